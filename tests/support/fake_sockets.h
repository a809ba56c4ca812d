// A scripted socket table: connections succeed or fail as scripted, sends
// take what their step allows, receives deliver their step's bytes, and each
// step may spend time on the active FakeClock before the socket is ready.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <map>
#include <utility>
#include <vector>

#include "platform/socket.h"
#include "support/fake_clock.h"

namespace vorn::test {

using platform::SocketHandle;
using platform::SocketTransfer;
using platform::SocketWait;

constexpr int32_t kConnectTimesOut = -1;  // in `connects`

// One send or receive, ready `after` ms after the previous step. A receive
// without bytes or error is the peer's end of stream.
struct SocketStep {
  uint32_t accept = UINT32_MAX;  // sends: takes at most this many bytes
  std::vector<uint8_t> bytes;    // receives: what arrives
  int32_t error = 0;
  uint32_t after = 0;
};

struct FakeSockets {
  FakeSockets() { current = this, platform::install_socket_ops(&kOps); }
  ~FakeSockets() { platform::install_socket_ops(nullptr); }

  std::deque<int32_t> connects;  // per connect; empty: connected
  std::deque<SocketStep> sends;  // empty: every send takes all
  std::deque<SocketStep> recvs;  // empty: nothing ever arrives
  bool peer_closed = false;      // both until the next connection
  int32_t pending = 0;

  int startups = 0, cleanups = 0;
  std::vector<SocketHandle> opened, closed;
  std::vector<platform::Ipv4Endpoint> remotes;
  std::vector<uint32_t> connect_limits, send_sizes, recv_sizes;
  std::map<SocketHandle, std::vector<uint8_t>> sent_on;  // a socket that connected has an entry
  std::vector<std::pair<platform::SocketOption, uint32_t>> options;

  static inline FakeSockets* current = nullptr;
  static FakeSockets& s() { return *current; }
  static void spend(uint32_t ms) { FakeClock::active()->advance(ms); }
  static int32_t open_tcp(SocketHandle* out) {
    s().opened.push_back(*out = 100 + static_cast<SocketHandle>(s().opened.size()));
    return 0;
  }
  static int32_t set_option(SocketHandle, platform::SocketOption option, uint32_t value) {
    return s().options.emplace_back(option, value), 0;
  }
  // A socket that was connected before cannot be bound again.
  static int32_t bind(SocketHandle socket, const platform::Ipv4Endpoint& local) {
    EXPECT_EQ(local.address | local.port, 0u);
    return s().sent_on.count(socket) != 0 ? EINVAL : 0;
  }
  static platform::SocketConnect connect(SocketHandle socket, const platform::Ipv4Endpoint& remote,
                                         uint32_t limit) {
    s().remotes.push_back(remote);
    s().connect_limits.push_back(limit);
    int32_t outcome = 0;
    if (!s().connects.empty()) outcome = s().connects.front(), s().connects.pop_front();
    if (outcome == kConnectTimesOut) return spend(limit), platform::SocketConnect{0, true};
    if (outcome == 0) s().sent_on.try_emplace(socket), s().peer_closed = false, s().pending = 0;
    return {outcome, false};
  }
  static SocketWait wait(SocketHandle, platform::WaitFor what, uint32_t limit) {
    using platform::WaitFor;
    if (what == WaitFor::kException) return {0, s().pending != 0};
    std::deque<SocketStep>& steps = what == WaitFor::kWritable ? s().sends : s().recvs;
    if (!steps.empty()) {  // ready when the step's time comes within the limit
      uint32_t& after = steps.front().after;
      const uint32_t spent = std::min(after, limit);
      spend(spent);
      return {0, (after -= spent) == 0};
    }
    if (what == WaitFor::kWritable || s().peer_closed) return {0, true};
    if (limit == platform::kWaitForever) return {EIO, false};  // would hang
    return spend(limit), SocketWait{0, false};
  }
  static int32_t pending_error(SocketHandle, int32_t* value) {
    return *value = std::exchange(s().pending, 0), 0;
  }
  static SocketTransfer send(SocketHandle socket, const uint8_t* data, uint32_t length) {
    s().send_sizes.push_back(length);
    if (s().sent_on.count(socket) == 0) return {ENOTCONN, 0};
    SocketStep step;
    if (!s().sends.empty()) step = s().sends.front(), s().sends.pop_front();
    const uint32_t taken = step.error != 0 ? 0 : std::min(step.accept, length);
    s().sent_on[socket].insert(s().sent_on[socket].end(), data, data + taken);
    return {step.error, taken};
  }
  static SocketTransfer recv(SocketHandle, uint8_t* buffer, uint32_t length) {
    s().recv_sizes.push_back(length);
    if (s().recvs.empty()) return {0, 0};  // only after the peer closed
    SocketStep& step = s().recvs.front();
    const auto taken = std::min<uint32_t>(length, static_cast<uint32_t>(step.bytes.size()));
    std::copy_n(step.bytes.begin(), taken, buffer);
    step.bytes.erase(step.bytes.begin(), step.bytes.begin() + taken);
    const int32_t error = step.error;
    if (step.bytes.empty()) s().recvs.pop_front();
    return {error, taken};
  }
  static int32_t startup() { return ++s().startups, 0; }
  static void cleanup() { ++s().cleanups; }
  static int32_t parse(const char* text, uint32_t* address) {
    return platform::native_socket_ops().parse_ipv4(text, address);
  }
  static SocketTransfer peek(SocketHandle) { return {0, s().peer_closed ? 0u : 1u}; }
  static void shutdown(SocketHandle, platform::ShutdownHow) {}
  static void close(SocketHandle socket) { s().closed.push_back(socket); }
  static bool is_reset(int32_t error) { return error == ECONNRESET; }
  static constexpr platform::SocketOps kOps = {
      startup,       cleanup, parse, open_tcp, set_option, bind,  connect, wait,
      pending_error, send,    recv,  peek,     shutdown,   close, is_reset};
};

}  // namespace vorn::test
