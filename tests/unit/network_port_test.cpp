// The network driver against a scripted socket table and a fake clock: option
// parsing, the connect procedure, the write and read budgets, reconnects.
#include "io/network_port.h"

#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "io/port.h"
#include "platform/socket.h"
#include "support/fake_clock.h"

namespace vorn::test {
namespace {

using Bytes = std::vector<uint8_t>;
using platform::SocketHandle;

constexpr uint32_t kHour = 3600 * 1000;

// How the socket answers one send; the socket becomes writable for it
// `after` ms after the previous step.
struct SendStep {
  uint32_t accept = UINT32_MAX;
  int32_t error = 0;
  uint32_t after = 0;
};

// What one receive gets; it becomes readable `after` ms after the previous.
struct RecvStep {
  Bytes bytes;
  int32_t error = 0;
  bool closed = false;  // the peer's end of stream
  uint32_t after = 0;
};

// Sentinel in `connects`: the connect's time limit runs out.
constexpr int32_t kConnectTimesOut = -1;
// What binding a socket that was connected before gives.
constexpr int32_t kUsedSocket = EINVAL;

class FakeSockets {
 public:
  FakeSockets() {
    current = this;
    platform::install_socket_ops(&kOps);
  }
  ~FakeSockets() {
    platform::install_socket_ops(nullptr);
    current = nullptr;
  }

  // Script.
  std::deque<int32_t> connects;  // per connect; empty: connected
  std::deque<SendStep> sends;    // empty: every send takes all
  std::deque<RecvStep> recvs;    // empty: nothing ever arrives
  bool peer_closed = false;      // until the next connection
  int32_t pending = 0;           // an error pending until the next connection
  std::function<void()> on_wait;

  // Record.
  int startups = 0;
  int cleanups = 0;
  std::vector<SocketHandle> opened;
  std::vector<SocketHandle> closed;
  std::vector<platform::Ipv4Endpoint> remotes;
  std::vector<uint32_t> connect_limits;
  std::map<SocketHandle, Bytes> sent_on;
  std::vector<uint32_t> send_sizes;
  std::vector<uint32_t> recv_sizes;
  std::vector<std::pair<platform::SocketOption, uint32_t>> options;
  int waits = 0;

 private:
  static FakeSockets* current;

  static FakeSockets& self() { return *current; }
  static void spend(uint32_t ms) { FakeClock::active()->advance(ms); }

  // Waits for a step that becomes ready `after` ms from when it was first
  // waited for; time passes on the fake clock.
  static platform::SocketWait wait_step(uint32_t& after, uint32_t limit) {
    platform::SocketWait result;
    if (after <= limit || limit == platform::kWaitForever) {
      spend(after);
      after = 0;
      result.ready = true;
    } else {
      spend(limit);
      after -= limit;
    }
    return result;
  }

  static int32_t startup() {
    ++self().startups;
    return 0;
  }
  static void cleanup() { ++self().cleanups; }
  static int32_t parse_ipv4(const char* text, uint32_t* address) {
    return platform::native_socket_ops().parse_ipv4(text, address);
  }
  static int32_t open_tcp(SocketHandle* out) {
    *out = 100 + static_cast<SocketHandle>(self().opened.size());
    self().opened.push_back(*out);
    return 0;
  }
  static int32_t set_option(SocketHandle, platform::SocketOption option, uint32_t value) {
    self().options.emplace_back(option, value);
    return 0;
  }
  static int32_t bind(SocketHandle socket, const platform::Ipv4Endpoint& local) {
    EXPECT_EQ(local.address, 0u);
    EXPECT_EQ(local.port, 0u);
    return self().sent_on.count(socket) != 0 ? kUsedSocket : 0;
  }
  static platform::SocketConnect connect(SocketHandle socket, const platform::Ipv4Endpoint& remote,
                                         uint32_t limit) {
    FakeSockets& s = self();
    s.remotes.push_back(remote);
    s.connect_limits.push_back(limit);
    platform::SocketConnect result;
    int32_t outcome = 0;
    if (!s.connects.empty()) {
      outcome = s.connects.front();
      s.connects.pop_front();
    }
    if (outcome == kConnectTimesOut) {
      spend(limit);
      result.timed_out = true;
    } else {
      result.error = outcome;
    }
    if (outcome == 0) {
      s.sent_on.try_emplace(socket);
      s.peer_closed = false;
      s.pending = 0;
    }
    return result;
  }
  static platform::SocketWait wait(SocketHandle, platform::WaitFor what, uint32_t limit) {
    FakeSockets& s = self();
    ++s.waits;
    if (s.on_wait) s.on_wait();
    platform::SocketWait result;
    switch (what) {
      case platform::WaitFor::kException:
        result.ready = s.pending != 0;
        return result;
      case platform::WaitFor::kWritable:
        if (s.sends.empty()) return {0, true};
        return wait_step(s.sends.front().after, limit);
      case platform::WaitFor::kReadable:
        if (s.peer_closed) return {0, true};
        if (s.recvs.empty()) {
          if (limit == platform::kWaitForever) return {EIO, false};  // would hang
          spend(limit);
          return result;
        }
        return wait_step(s.recvs.front().after, limit);
    }
    return result;
  }
  static int32_t pending_error(SocketHandle, int32_t* value) {
    *value = self().pending;
    self().pending = 0;
    return 0;
  }
  static platform::SocketTransfer send(SocketHandle socket, const uint8_t* data, uint32_t length) {
    FakeSockets& s = self();
    s.send_sizes.push_back(length);
    SendStep step;
    if (!s.sends.empty()) {
      step = s.sends.front();
      s.sends.pop_front();
    }
    if (step.error != 0) return {step.error, 0};
    const uint32_t taken = std::min(step.accept, length);
    s.sent_on[socket].insert(s.sent_on[socket].end(), data, data + taken);
    return {0, taken};
  }
  static platform::SocketTransfer recv(SocketHandle, uint8_t* buffer, uint32_t length) {
    FakeSockets& s = self();
    s.recv_sizes.push_back(length);
    if (s.recvs.empty()) return {EAGAIN, 0};
    RecvStep& step = s.recvs.front();
    if (step.error != 0 || step.closed) {
      const int32_t error = step.error;
      s.recvs.pop_front();
      return {error, 0};
    }
    const uint32_t taken = std::min<uint32_t>(length, static_cast<uint32_t>(step.bytes.size()));
    std::memcpy(buffer, step.bytes.data(), taken);
    step.bytes.erase(step.bytes.begin(), step.bytes.begin() + taken);
    if (step.bytes.empty()) s.recvs.pop_front();
    return {0, taken};
  }
  static platform::SocketTransfer peek(SocketHandle) { return {0, self().peer_closed ? 0u : 1u}; }
  static void shutdown(SocketHandle, platform::ShutdownHow) {}
  static void close(SocketHandle socket) { self().closed.push_back(socket); }
  static bool is_connection_reset(int32_t error) { return error == ECONNRESET; }

  static constexpr platform::SocketOps kOps = {
      .startup = startup,
      .cleanup = cleanup,
      .parse_ipv4 = parse_ipv4,
      .open_tcp = open_tcp,
      .set_option = set_option,
      .bind = bind,
      .connect = connect,
      .wait = wait,
      .pending_error = pending_error,
      .send = send,
      .recv = recv,
      .peek = peek,
      .shutdown = shutdown,
      .close = close,
      .is_connection_reset = is_connection_reset,
  };
};

FakeSockets* FakeSockets::current = nullptr;

Bytes pattern(size_t size) {
  Bytes data(size);
  for (size_t i = 0; i < size; ++i) data[i] = static_cast<uint8_t>(i * 7 + 1);
  return data;
}

io::NetworkState& state_of(VORN_PORT port) {
  return *static_cast<io::NetworkState*>(port->driver->state);
}

// ---- Options ---------------------------------------------------------------

struct OptionCase {
  const char* uri;
  int32_t created;   // result of creating the port
  int32_t opened;    // result of opening it (when created)
  uint32_t address;  // where it connects (when opened)
  uint16_t remote_port;
};

class NetworkOptions : public ::testing::TestWithParam<OptionCase> {};

TEST_P(NetworkOptions, ConnectsWhereTheUriSays) {
  const OptionCase& row = GetParam();
  FakeClock clock;
  FakeSockets sockets;
  VORN_PORT port = nullptr;
  ASSERT_EQ(vorn_io_port_creator(&port, row.uri), row.created);
  if (row.created != VORN_OK) return;
  EXPECT_EQ(vorn_io_open(port), row.opened);
  if (row.opened == VORN_OK) {
    ASSERT_EQ(sockets.remotes.size(), 1u);
    EXPECT_EQ(sockets.remotes[0].address, row.address);
    EXPECT_EQ(sockets.remotes[0].port, row.remote_port);
  } else {
    EXPECT_TRUE(sockets.opened.empty()) << "nothing may be tried for an unusable address";
  }
  EXPECT_EQ(vorn_io_port_destroy(port), VORN_OK);
}

#define NET "vorn:/dev/bus/NET/DEVICE?"
INSTANTIATE_TEST_SUITE_P(
    Rows, NetworkOptions,
    ::testing::Values(OptionCase{NET "ip=192.168.1.100", 0, 0, 0xC0A80164, 9100},
                      OptionCase{NET "ip=192.168.1.100+port=9100", 0, 0, 0xC0A80164, 9100},
                      OptionCase{NET "ip=10.0.0.7+port=0x238C", 0, 0, 0x0A000007, 9100},
                      OptionCase{NET "ip=10.0.0.7+port=021614", 0, 0, 0x0A000007, 9100},
                      OptionCase{NET "ip=192.168.1.100+port=0x2390", 0, 0, 0xC0A80164, 9104},
                      OptionCase{NET "ip=10.0.0.7+port=515", 0, 0, 0x0A000007, 515},
                      OptionCase{NET "ip=10.0.0.7+port=9101xyz", 0, 0, 0x0A000007, 9101},
                      OptionCase{NET "ip=192.168.1.100+port=abc", 0, 0, 0xC0A80164, 9100},
                      OptionCase{NET "ip=10.0.0.7+port=74636", 0, 0, 0x0A000007,
                                 9100},  // 65536 + 9100
                      OptionCase{NET "ip=10.0.0.7+port=-1", 0, 0, 0x0A000007, 65535},
                      OptionCase{NET "port=9100", VORN_ERR_IO_INVALID_SETTING, 0, 0, 0},
                      OptionCase{"vorn:/dev/bus/NET/DEVICE", VORN_ERR_IO_INVALID_SETTING, 0, 0, 0},
                      OptionCase{"NET,10.0.0.7,0x2390", 0, 0, 0x0A000007, 9104},
                      OptionCase{NET "ip=printer.example.com", 0, EADDRNOTAVAIL, 0, 0},
                      OptionCase{NET "ip=localhost", 0, EADDRNOTAVAIL, 0, 0}));
#undef NET

TEST(NetworkPort, PortNameIsCutToItsField) {
  FakeSockets sockets;
  const std::string name(40, 'N');
  VORN_PORT port = nullptr;
  ASSERT_EQ(vorn_io_port_creator(&port, ("vorn:/dev/bus/NET/" + name + "?ip=10.0.0.7").c_str()),
            VORN_OK);
  EXPECT_EQ(std::string(state_of(port).port_name), name.substr(0, 27));
  char uri[256] = {};
  uint32_t length = 0;
  ASSERT_EQ(vorn_io_get_uri(port, uri, sizeof uri, &length), VORN_OK);
  EXPECT_EQ(std::string(uri), "vorn:/dev/bus/NET/" + name + "?ip=10.0.0.7");
  uint32_t values[6] = {};
  ASSERT_EQ(vorn_io_get_timeout(port, values), VORN_OK);
  EXPECT_EQ(std::vector<uint32_t>(values, values + 6),
            (std::vector<uint32_t>{10, 0, 2000, 0, 2000, 2000}));
  EXPECT_EQ(vorn_io_control(port, 1, 0, nullptr, 0, nullptr, 0, nullptr), VORN_ERR_NOT_IMPLEMENTED);
  EXPECT_EQ(vorn_io_port_destroy(port), VORN_OK);
}

// ---- Open, close, connect procedure -----------------------------------------

class NetworkPortTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(vorn_io_port_creator(&port, "vorn:/dev/bus/NET/DEVICE?ip=10.0.0.7"), VORN_OK);
  }
  void TearDown() override { vorn_io_port_destroy(port); }
  void open() { ASSERT_EQ(vorn_io_open(port), VORN_OK); }
  int32_t write(const Bytes& data, uint32_t* sent) {
    return vorn_io_write(port, data.data(), 0, static_cast<uint32_t>(data.size()), sent);
  }
  int32_t read(Bytes& buffer, uint32_t* received) {
    return vorn_io_read(port, buffer.data(), 0, static_cast<uint32_t>(buffer.size()), received);
  }
  uint32_t elapsed() const { return clock.now() - 1000u; }

  FakeClock clock;
  FakeSockets sockets;
  VORN_PORT port = nullptr;
};

TEST_F(NetworkPortTest, OpenSetsTheSocketOptionsAndRefusesASecondOpen) {
  ASSERT_EQ(vorn_io_set_timeout(port, 10, 0, 700, 0, 900, 300), VORN_OK);
  open();
  using O = platform::SocketOption;
  EXPECT_EQ(sockets.options, (std::vector<std::pair<O, uint32_t>>{{O::kNoDelay, 1},
                                                                  {O::kDontLinger, 1},
                                                                  {O::kSendBufferSize, 4096},
                                                                  {O::kReceiveTimeout, 700},
                                                                  {O::kSendTimeout, 900}}));
  EXPECT_EQ(sockets.connect_limits, (std::vector<uint32_t>{300}));
  EXPECT_EQ(vorn_io_open(port), VORN_ERR_IO_ALREADY_OPEN);
  EXPECT_EQ(sockets.opened.size(), 1u);
  // Timeouts set on an open port reach its socket at once.
  sockets.options.clear();
  ASSERT_EQ(vorn_io_set_timeout(port, 10, 0, 50, 0, 60, 300), VORN_OK);
  EXPECT_EQ(sockets.options,
            (std::vector<std::pair<O, uint32_t>>{{O::kReceiveTimeout, 50}, {O::kSendTimeout, 60}}));
  EXPECT_EQ(vorn_io_close(port), VORN_OK);
  EXPECT_EQ(sockets.closed, (std::vector<SocketHandle>{100}));
  EXPECT_EQ(sockets.startups, 1);
  EXPECT_EQ(sockets.cleanups, 1);
}

TEST_F(NetworkPortTest, ConnectTimingOutTwiceFailsTheOpenAfterTwoLimits) {
  ASSERT_EQ(vorn_io_set_timeout(port, 10, 0, 2000, 0, 2000, 200), VORN_OK);
  sockets.connects = {kConnectTimesOut, kConnectTimesOut};
  EXPECT_EQ(vorn_io_open(port), VORN_ERR_IO_OPEN_FAILED);
  EXPECT_EQ(elapsed(), 400u);
  EXPECT_EQ(sockets.opened, (std::vector<SocketHandle>{100, 101}));
  EXPECT_EQ(sockets.closed, (std::vector<SocketHandle>{100, 101}));
  uint32_t sent = 9;
  EXPECT_EQ(write({1, 2}, &sent), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(sent, 0u);
}

TEST_F(NetworkPortTest, SecondConnectAttemptCanSucceed) {
  sockets.connects = {ECONNREFUSED, 0};
  EXPECT_EQ(vorn_io_open(port), VORN_OK);
  EXPECT_EQ(sockets.closed, (std::vector<SocketHandle>{100}));
  EXPECT_EQ(sockets.connects.size(), 0u);
  sockets.connects = {ECONNREFUSED, ECONNREFUSED};
  ASSERT_EQ(vorn_io_close(port), VORN_OK);
  EXPECT_EQ(vorn_io_open(port), ECONNREFUSED);
}

// ---- Write -----------------------------------------------------------------

struct WriteBudgetCase {
  uint32_t multiplier;
  uint32_t constant;
  uint32_t length;
  std::vector<uint32_t> ready_after;  // per send of a piece
  int32_t result;
  uint32_t sent;
  uint32_t elapsed;
};

class NetworkWriteBudget : public ::testing::TestWithParam<WriteBudgetCase> {};

TEST_P(NetworkWriteBudget, BoundsTheWholeWrite) {
  const WriteBudgetCase& row = GetParam();
  FakeClock clock;
  FakeSockets sockets;
  VORN_PORT port = nullptr;
  ASSERT_EQ(vorn_io_port_creator(&port, "vorn:/dev/bus/NET/DEVICE?ip=10.0.0.7"), VORN_OK);
  ASSERT_EQ(vorn_io_set_timeout(port, 10, 0, 2000, row.multiplier, row.constant, 2000), VORN_OK);
  ASSERT_EQ(vorn_io_open(port), VORN_OK);
  for (uint32_t after : row.ready_after) sockets.sends.push_back({.after = after});
  const Bytes data = pattern(row.length);
  uint32_t sent = 0;
  EXPECT_EQ(vorn_io_write(port, data.data(), 0, row.length, &sent), row.result);
  EXPECT_EQ(sent, row.sent);
  EXPECT_EQ(clock.now() - 1000u, row.elapsed);
  EXPECT_EQ(vorn_io_port_destroy(port), VORN_OK);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, NetworkWriteBudget,
    ::testing::Values(
        // Budget 1000 ms for all pieces together: the fourth is not in time.
        WriteBudgetCase{0, 1000, 5 * 4096, {300, 300, 300, 300, 300}, -322, 3 * 4096, 1000},
        // Budget 1 x 1000 + 0.
        WriteBudgetCase{1, 0, 1000, {999}, 0, 1000, 999},
        WriteBudgetCase{1, 0, 1000, {1001}, -322, 0, 1000},
        // 2 x 8192 + 100 = 16484 ms for two pieces of 8000 ms each.
        WriteBudgetCase{2, 100, 8192, {8000, 8000}, 0, 8192, 16000},
        WriteBudgetCase{2, 100, 8192, {8000, 8500}, -322, 4096, 16484},
        // Both zero: the write waits as long as the printer needs.
        WriteBudgetCase{0, 0, 10, {kHour}, 0, 10, kHour}));

TEST_F(NetworkPortTest, WritesInPiecesOfTheSendPiece) {
  open();
  Bytes data = pattern(10003);
  uint32_t sent = 0;
  EXPECT_EQ(vorn_io_write(port, data.data(), 3, 10000, &sent), VORN_OK);
  EXPECT_EQ(sent, 10000u);
  EXPECT_EQ(sockets.send_sizes, (std::vector<uint32_t>{4096, 4096, 1808}));
  EXPECT_EQ(sockets.sent_on[100], Bytes(data.begin() + 3, data.end()));
}

TEST_F(NetworkPortTest, PartialSendsContinueWithTheRest) {
  open();
  sockets.sends = {{.accept = 1000}, {.accept = 96}};
  const Bytes data = pattern(5000);
  uint32_t sent = 0;
  EXPECT_EQ(write(data, &sent), VORN_OK);
  EXPECT_EQ(sockets.send_sizes, (std::vector<uint32_t>{4096, 4000, 3904}));
  EXPECT_EQ(sockets.sent_on[100], data);
}

TEST_F(NetworkPortTest, ResetReconnectsOnceAndSendsOnlyTheUnsentRest) {
  open();
  sockets.sends = {{.accept = 4096}, {.error = ECONNRESET}};
  const Bytes data = pattern(10000);
  uint32_t sent = 0;
  EXPECT_EQ(write(data, &sent), VORN_OK);
  EXPECT_EQ(sent, 10000u);
  // The used socket cannot be bound again; a fresh one carries the rest.
  EXPECT_EQ(sockets.opened, (std::vector<SocketHandle>{100, 101}));
  EXPECT_EQ(sockets.closed, (std::vector<SocketHandle>{100}));
  EXPECT_EQ(sockets.sent_on[100], Bytes(data.begin(), data.begin() + 4096));
  EXPECT_EQ(sockets.sent_on[101], Bytes(data.begin() + 4096, data.end()));
}

TEST_F(NetworkPortTest, SecondResetFailsWithItsError) {
  open();
  sockets.sends = {{.accept = 4096}, {.error = ECONNRESET}, {.accept = 100}, {.error = ECONNRESET}};
  uint32_t sent = 0;
  EXPECT_EQ(write(pattern(10000), &sent), ECONNRESET);
  EXPECT_EQ(sent, 4196u);
}

TEST_F(NetworkPortTest, OtherSendErrorsAreNotRetried) {
  open();
  sockets.sends = {{.accept = 10}, {.error = EIO}};
  uint32_t sent = 0;
  EXPECT_EQ(write(pattern(100), &sent), EIO);
  EXPECT_EQ(sent, 10u);
  EXPECT_EQ(sockets.opened.size(), 1u);
}

TEST_F(NetworkPortTest, SendTakingNothingReconnectsOnceThenEndsTheWrite) {
  open();
  sockets.sends = {{.accept = 0}, {.accept = 50}, {.accept = 0}};
  uint32_t sent = 0;
  EXPECT_EQ(write(pattern(100), &sent), VORN_OK);
  EXPECT_EQ(sent, 50u) << "the second empty send ends the write without an error";
  EXPECT_EQ(sockets.opened.size(), 2u);
}

TEST_F(NetworkPortTest, FailedReconnectEndsTheWriteWithTheConnectError) {
  open();
  sockets.sends = {{.accept = 30}, {.error = ECONNRESET}};
  sockets.connects = {kConnectTimesOut};
  uint32_t sent = 0;
  EXPECT_EQ(write(pattern(100), &sent), VORN_ERR_IO_OPEN_FAILED);
  EXPECT_EQ(sent, 30u);
}

TEST_F(NetworkPortTest, ClosedPeerIsReconnectedBeforeTheWrite) {
  open();
  sockets.peer_closed = true;
  const Bytes data = pattern(20);
  uint32_t sent = 0;
  EXPECT_EQ(write(data, &sent), VORN_OK);
  EXPECT_EQ(sockets.sent_on[101], data);
  EXPECT_TRUE(sockets.sent_on[100].empty());
}

TEST_F(NetworkPortTest, PendingSocketErrorIsReconnectedBeforeTheWrite) {
  open();
  sockets.pending = ECONNRESET;
  const Bytes data = pattern(20);
  uint32_t sent = 0;
  EXPECT_EQ(write(data, &sent), VORN_OK);
  EXPECT_EQ(sockets.sent_on[101], data);
}

TEST_F(NetworkPortTest, BrokenConnectionThatCannotBeRenewedSendsNothing) {
  open();
  sockets.peer_closed = true;
  sockets.connects = {ECONNREFUSED};
  uint32_t sent = 0;
  EXPECT_EQ(write(pattern(20), &sent), ECONNREFUSED);
  EXPECT_EQ(sent, 0u);
  EXPECT_TRUE(sockets.send_sizes.empty());
}

TEST_F(NetworkPortTest, KillDuringALongWaitEndsTheWriteWithinOneSlice) {
  ASSERT_EQ(vorn_io_set_timeout(port, 10, 0, 2000, 0, 60000, 2000), VORN_OK);
  open();
  sockets.sends = {{.accept = 100}, {.after = 50000}};
  sockets.on_wait = [this] {
    if (clock.now() - 1000u >= 1000u) vorn_io_kill(port);
  };
  uint32_t sent = 0;
  EXPECT_EQ(write(pattern(1000), &sent), VORN_OK);
  EXPECT_EQ(sent, 100u);
  EXPECT_LE(elapsed(), 1100u);
  // A killed port stays killed.
  EXPECT_EQ(write(pattern(10), &sent), VORN_OK);
  EXPECT_EQ(sent, 0u);
}

TEST_F(NetworkPortTest, KillOnAPortWithoutSocketIsIgnored) {
  EXPECT_EQ(vorn_io_kill(port), VORN_OK);
  open();
  uint32_t sent = 0;
  EXPECT_EQ(write(pattern(10), &sent), VORN_OK);
  EXPECT_EQ(sent, 10u);
}

// ---- Read ------------------------------------------------------------------

struct ReadCase {
  uint32_t interval, multiplier, constant, length;
  std::vector<RecvStep> steps;
  int32_t result;
  uint32_t received;
  uint32_t elapsed;
};

class NetworkRead : public ::testing::TestWithParam<ReadCase> {};

TEST_P(NetworkRead, FirstDataWithinTheBudgetTheRestWithinTheInterval) {
  const ReadCase& row = GetParam();
  FakeClock clock;
  FakeSockets sockets;
  VORN_PORT port = nullptr;
  ASSERT_EQ(vorn_io_port_creator(&port, "vorn:/dev/bus/NET/DEVICE?ip=10.0.0.7"), VORN_OK);
  ASSERT_EQ(vorn_io_set_timeout(port, row.interval, row.multiplier, row.constant, 0, 2000, 2000),
            VORN_OK);
  ASSERT_EQ(vorn_io_open(port), VORN_OK);
  sockets.recvs.assign(row.steps.begin(), row.steps.end());
  Bytes buffer(row.length);
  uint32_t received = 0;
  EXPECT_EQ(vorn_io_read(port, buffer.data(), 0, row.length, &received), row.result);
  EXPECT_EQ(received, row.received);
  EXPECT_EQ(clock.now() - 1000u, row.elapsed);
  Bytes expected;
  for (const RecvStep& step : row.steps)
    expected.insert(expected.end(), step.bytes.begin(), step.bytes.end());
  expected.resize(row.received);
  EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + received), expected);
  EXPECT_EQ(vorn_io_port_destroy(port), VORN_OK);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, NetworkRead,
    ::testing::Values(
        // 4 of 10 bytes, then silence: ends one read interval later.
        ReadCase{10, 0, 2000, 10, {{.bytes = {1, 2, 3, 4}, .after = 100}}, -332, 4, 110},
        // Nothing within the budget.
        ReadCase{10, 0, 2000, 10, {{.bytes = {1}, .after = 2001}}, -332, 0, 2000},
        ReadCase{10,
                 100,
                 0,
                 10,
                 {{.bytes = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, .after = 1000}},
                 0,
                 10,
                 1000},
        // Further pieces each within the interval.
        ReadCase{
            50,
            0,
            2000,
            6,
            {{.bytes = {1, 2}}, {.bytes = {3, 4}, .after = 50}, {.bytes = {5, 6}, .after = 50}},
            0,
            6,
            100},
        ReadCase{50, 0, 2000, 6, {{.bytes = {1, 2}}, {.bytes = {3, 4}, .after = 51}}, -332, 2, 50},
        // An interval longer than the whole budget ends the read after the
        // piece it waited for.
        ReadCase{50, 0, 20, 10, {{.bytes = {1, 2}}, {.bytes = {3, 4}}}, -332, 4, 0},
        ReadCase{0, 0, 0, 3, {{.bytes = {7, 8, 9}, .after = kHour}}, 0, 3, kHour},
        ReadCase{10, 0, 2000, 10, {{.bytes = {1}}, {.error = ECONNRESET}}, ECONNRESET, 1, 0}));

TEST_F(NetworkPortTest, PeerClosingDuringAReadReconnects) {
  open();
  sockets.recvs = {{.bytes = {5, 6, 7}}, {.closed = true}};
  Bytes buffer(10);
  uint32_t received = 0;
  EXPECT_EQ(read(buffer, &received), VORN_OK);
  EXPECT_EQ(received, 3u);
  EXPECT_EQ(sockets.opened.size(), 2u);
}

TEST_F(NetworkPortTest, KillBeforeAReadReceivesNothing) {
  open();
  ASSERT_EQ(vorn_io_kill(port), VORN_OK);
  sockets.recvs = {{.bytes = {1}}};
  Bytes buffer(1);
  uint32_t received = 9;
  EXPECT_EQ(read(buffer, &received), VORN_OK);
  EXPECT_EQ(received, 0u);
  EXPECT_TRUE(sockets.recv_sizes.empty());
}

TEST_F(NetworkPortTest, ReadexistTakesOnlyWhatIsWaiting) {
  open();
  uint8_t buffer[8] = {};
  uint32_t received = 9;
  EXPECT_EQ(vorn_io_readexist(port, buffer, 2, sizeof buffer, &received), VORN_OK);
  EXPECT_EQ(received, 0u);
  EXPECT_EQ(elapsed(), 0u);
  sockets.recvs = {{.bytes = {0x12, 0x34}}};
  EXPECT_EQ(vorn_io_readexist(port, buffer, 2, sizeof buffer, &received), VORN_OK);
  EXPECT_EQ(received, 2u);
  EXPECT_EQ(sockets.recv_sizes, (std::vector<uint32_t>{6}));
  EXPECT_EQ(buffer[2], 0x12);
  EXPECT_EQ(buffer[3], 0x34);
}

}  // namespace
}  // namespace vorn::test
