// The network driver against a scripted socket table and a fake clock; real
// sockets are the integration tests' part.
#include "io/network_port.h"

#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "platform/socket.h"
#include "support/fake_clock.h"
#include "support/fake_sockets.h"
#include "support/platform_expect.h"

namespace vorn::test {
namespace {

using Bytes = std::vector<uint8_t>;
using U32s = std::vector<uint32_t>;
constexpr uint32_t kHour = 3600 * 1000;
using Step = SocketStep;

// Bytes 1, 2, 3, ... so that any slip in offsets shows.
Bytes counting(size_t size, size_t from = 0) {
  Bytes data(size);
  for (size_t i = 0; i < size; ++i) data[i] = static_cast<uint8_t>(from + i + 1);
  return data;
}

class NetworkPortTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(vorn_io_port_creator(&port, "vorn:/dev/bus/NET/DEVICE?ip=10.0.0.7"), VORN_OK);
  }
  void TearDown() override { vorn_io_port_destroy(port); }
  void open(uint32_t interval = 10, uint32_t read_c = 2000, uint32_t write_m = 0,
            uint32_t write_c = 2000, uint32_t read_m = 0, uint32_t connect = 2000) {
    ASSERT_EQ(vorn_io_set_timeout(port, interval, read_m, read_c, write_m, write_c, connect), 0);
    ASSERT_EQ(vorn_io_open(port), VORN_OK);
    start = clock.now();
  }
  int32_t write(const Bytes& data, uint32_t offset = 0) {
    const auto length = static_cast<uint32_t>(data.size()) - offset;
    return vorn_io_write(port, data.data(), offset, length, &done);
  }
  int32_t read(uint32_t length) {
    buffer.assign(length, 0);
    return vorn_io_read(port, buffer.data(), 0, length, &done);
  }
  uint32_t elapsed() const { return clock.now() - start; }

  FakeClock clock;
  FakeSockets sockets;
  VORN_PORT port = nullptr;
  uint32_t done = 99, start = 0;
  Bytes buffer;
};

TEST(NetworkOptions, ConnectWhereTheUriSays) {
  const struct {
    const char* options;
    int32_t created, opened;
    uint32_t address, port;
  } rows[] = {
      {"ip=192.168.1.100+port=0x2390", 0, 0, 0xC0A80164, 9104},
      {"ip=10.0.0.7+port=9101xyz", 0, 0, 0x0A000007, 9101},
      {"ip=10.0.0.7+port=abc", 0, 0, 0x0A000007, 9100},
      {"ip=10.0.0.7+port=74636", 0, 0, 0x0A000007, 9100},  // 65536 + 9100
      {"port=9100", VORN_ERR_IO_INVALID_SETTING},
      {"ip=printer.example.com", 0, kAddressNotAvailable},  // never looked up as a host name
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.options);
    FakeSockets sockets;
    VORN_PORT port = nullptr;
    const std::string uri = std::string("vorn:/dev/bus/NET/DEVICE?") + row.options;
    ASSERT_EQ(vorn_io_port_creator(&port, uri.c_str()), row.created);
    if (row.created != VORN_OK) continue;
    EXPECT_EQ(vorn_io_open(port), row.opened);
    EXPECT_EQ(sockets.opened.size(), row.opened == 0 ? 1u : 0u);
    for (const platform::Ipv4Endpoint& remote : sockets.remotes) {
      EXPECT_EQ(remote.address, row.address);
      EXPECT_EQ(remote.port, row.port);
    }
    EXPECT_EQ(vorn_io_port_destroy(port), VORN_OK);
  }
}

TEST_F(NetworkPortTest, OpenSetsTheSocketOptionsAndRefusesASecondOpen) {
  open(10, 700, 0, 900, 0, 300);
  using O = platform::SocketOption;
  using Options = std::vector<std::pair<O, uint32_t>>;
  EXPECT_EQ(sockets.options, (Options{{O::kNoDelay, 1},
                                      {O::kDontLinger, 1},
                                      {O::kSendBufferSize, 4096},
                                      {O::kReceiveTimeout, 700},
                                      {O::kSendTimeout, 900}}));
  EXPECT_EQ(sockets.connect_limits, U32s{300});
  EXPECT_EQ(vorn_io_open(port), VORN_ERR_IO_ALREADY_OPEN);
  EXPECT_EQ(sockets.opened.size(), 1u);
  // Timeouts set on an open port reach its socket at once.
  sockets.options.clear();
  ASSERT_EQ(vorn_io_set_timeout(port, 10, 0, 50, 0, 60, 300), VORN_OK);
  EXPECT_EQ(sockets.options, (Options{{O::kReceiveTimeout, 50}, {O::kSendTimeout, 60}}));
  EXPECT_EQ(vorn_io_close(port), VORN_OK);
  EXPECT_EQ(sockets.closed.size(), 1u);
  EXPECT_EQ(sockets.startups + sockets.cleanups, 2);
  EXPECT_EQ(write({1}), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(done, 0u);
}

TEST_F(NetworkPortTest, OpenMakesASecondConnectAttemptOnAFreshSocket) {
  sockets.connects = {ECONNREFUSED, 0};
  EXPECT_EQ(vorn_io_open(port), VORN_OK);
  EXPECT_EQ(sockets.closed, std::vector<SocketHandle>{100});
  EXPECT_EQ(sockets.connect_limits, (U32s{2000, 2000})) << "the default connect timeout";
  ASSERT_EQ(vorn_io_close(port), VORN_OK);
  sockets.connects = {ECONNREFUSED, ECONNREFUSED};
  EXPECT_EQ(vorn_io_open(port), ECONNREFUSED);
  EXPECT_EQ(sockets.closed.size(), 4u) << "no socket is left behind";
}

TEST_F(NetworkPortTest, WritesInSendPiecesFromTheOffsetContinuingAfterPartialSends) {
  open();
  sockets.sends = {{.accept = 1000}};
  const Bytes data = counting(10003);
  EXPECT_EQ(write(data, 3), VORN_OK);
  EXPECT_EQ(done, 10000u);
  EXPECT_EQ(sockets.send_sizes, (U32s{4096, 4096, 4096, 808}));
  EXPECT_EQ(sockets.sent_on[100], Bytes(data.begin() + 3, data.end()));
}

TEST_F(NetworkPortTest, WriteBudgetBoundsTheWholeWrite) {
  // Timeouts 4 and 5, the length, how long each piece waits to be writable;
  // then result, bytes sent, time spent.
  const uint32_t rows[][7] = {
      {0, 1000, 5 * 4096, 300, uint32_t(-322), 3 * 4096, 1000},  // for all pieces together
      {2, 100, 8192, 8300, uint32_t(-322), 4096, 16484},         // 2 x 8192 + 100
      {0, 0, 10, kHour, 0, 10, kHour},                           // both zero: no limit at all
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row[1]);
    open(10, 2000, row[0], row[1]);
    sockets.sends.assign(row[2] / 4096 + 1, Step{.after = row[3]});
    EXPECT_EQ(write(counting(row[2])), static_cast<int32_t>(row[4]));
    EXPECT_EQ(done, row[5]);
    EXPECT_EQ(elapsed(), row[6]);
    vorn_io_close(port);
  }
}

TEST_F(NetworkPortTest, OneReconnectPerWriteCarriesTheUnsentRest) {
  const struct {
    std::deque<Step> sends;
    int32_t connect, result;
    uint32_t sent;
  } rows[] = {
      {{{.accept = 4096}, {.error = ECONNRESET}}, 0, VORN_OK, 10000},
      {{{.accept = 4096}, {.error = ECONNRESET}, {.accept = 100}, {.error = ECONNRESET}},
       0,
       ECONNRESET,
       4196},
      {{{.accept = 10}, {.error = EIO}}, 0, EIO, 10},  // not a reset: no reconnect
      // A send that takes nothing also reconnects; the second ends the write.
      {{{.accept = 0}, {.accept = 50}, {.accept = 0}}, 0, VORN_OK, 50},
      {{{.accept = 30}, {.error = ECONNRESET}}, kConnectTimesOut, VORN_ERR_IO_OPEN_FAILED, 30},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.sent);
    open();
    const SocketHandle first = sockets.opened.back();
    const size_t connects_before = sockets.connect_limits.size();
    sockets.sends = row.sends;
    sockets.connects = {row.connect};
    EXPECT_EQ(write(counting(10000)), row.result);
    EXPECT_EQ(done, row.sent);
    // The used socket cannot be bound again: a fresh one carries the rest.
    const Bytes& later = sockets.sent_on[first + 1];
    EXPECT_EQ(sockets.sent_on[first].size() + later.size(), row.sent);
    EXPECT_EQ(later, counting(later.size(), sockets.sent_on[first].size()));
    const size_t reconnects = row.result == EIO ? 0 : 1;
    EXPECT_EQ(sockets.opened.back() - first, reconnects);
    EXPECT_EQ(sockets.connect_limits.size() - connects_before, reconnects) << "one connect each";
    vorn_io_close(port);
  }
}

TEST_F(NetworkPortTest, BrokenConnectionIsRenewedBeforeTheWrite) {
  open();
  sockets.pending = ECONNRESET;
  EXPECT_EQ(write({1, 2}), VORN_OK);
  EXPECT_TRUE(sockets.sent_on[100].empty());
  EXPECT_EQ(sockets.sent_on[101], (Bytes{1, 2}));
  // A connection that cannot be renewed sends nothing.
  sockets.peer_closed = true;
  sockets.connects = {ECONNREFUSED};
  EXPECT_EQ(write({1, 2}), ECONNREFUSED);
  EXPECT_EQ(done, 0u);
  EXPECT_EQ(sockets.send_sizes.size(), 1u);
}

TEST_F(NetworkPortTest, KillNeedsASocketAndThenEndsEveryTransferAtOnce) {
  EXPECT_EQ(vorn_io_kill(port), VORN_OK);
  open();
  EXPECT_EQ(write(counting(10)), VORN_OK);
  EXPECT_EQ(done, 10u);
  EXPECT_EQ(vorn_io_kill(port), VORN_OK);
  EXPECT_EQ(write(counting(10)), VORN_OK);
  EXPECT_EQ(done, 0u);
  sockets.recvs = {{.bytes = {1}}};
  EXPECT_EQ(read(1), VORN_OK);
  EXPECT_EQ(done, 0u);
  EXPECT_EQ(sockets.send_sizes.size() + sockets.recv_sizes.size(), 1u);
}

TEST_F(NetworkPortTest, FirstDataWithinTheBudgetTheRestWithinTheInterval) {
  // Timeouts 1 to 3 and the length; two receives (bytes, delay; then bytes,
  // delay, error); then result, bytes received, time spent.
  const int32_t rows[][12] = {
      {10, 0, 2000, 10, 4, 100, 0, 0, 0, -332, 4, 110},  // silence after 4 of 10 bytes
      {10, 0, 2000, 10, 1, 2001, 0, 0, 0, -332, 0, 2000},
      {10, 100, 0, 10, 10, 1000, 0, 0, 0, 0, 10, 1000},
      // An interval longer than the whole budget ends the read after the
      // piece it waited for.
      {50, 0, 20, 10, 2, 0, 2, 0, 0, -332, 4, 0},
      {0, 0, 0, 3, 3, kHour, 0, 0, 0, 0, 3, kHour},  // no budget: no limit
      {10, 0, 2000, 10, 1, 0, 0, 0, ECONNRESET, ECONNRESET, 1, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row[11]);
    open(row[0], row[2], 0, 0, row[1]);
    sockets.recvs = {{.bytes = counting(row[4]), .after = uint32_t(row[5])}};
    if (row[6] + row[8] != 0) {
      sockets.recvs.push_back(
          {.bytes = counting(row[6], row[4]), .error = row[8], .after = uint32_t(row[7])});
    }
    EXPECT_EQ(read(row[3]), row[9]);
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + done), counting(row[10]));
    EXPECT_EQ(elapsed(), uint32_t(row[11]));
    vorn_io_close(port);
  }
}

TEST_F(NetworkPortTest, PeerClosingDuringAReadReconnects) {
  open();
  sockets.recvs = {{.bytes = {5, 6, 7}}, {}};
  EXPECT_EQ(read(10), VORN_OK);
  EXPECT_EQ(done, 3u);
  EXPECT_EQ(sockets.opened.size(), 2u);
}

TEST_F(NetworkPortTest, ReadexistTakesOnlyWhatIsWaiting) {
  open();
  uint8_t data[8] = {};
  EXPECT_EQ(vorn_io_readexist(port, data, 2, sizeof data, &done), VORN_OK);
  EXPECT_EQ(done, 0u);
  EXPECT_EQ(elapsed(), 0u);
  sockets.recvs = {{.bytes = {0x12, 0x34}}};
  EXPECT_EQ(vorn_io_readexist(port, data, 2, sizeof data, &done), VORN_OK);
  EXPECT_EQ(done, 2u);
  EXPECT_EQ(sockets.recv_sizes, U32s{6});
  EXPECT_EQ(data[3], 0x34);
}

}  // namespace
}  // namespace vorn::test
