// The shared transfer loops of serial, parallel and USB ports, driven through
// an LPT port on a scripted device and a fake clock.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <deque>
#include <string>
#include <vector>

#include "support/fake_clock.h"
#include "support/fake_device.h"
#include "support/platform_expect.h"

namespace vorn::test {
namespace {

using U32s = std::vector<uint32_t>;

class HandlePortTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(vorn_io_port_creator(&port, "vorn:/dev/bus/LPT/LPT1"), VORN_OK);
    ASSERT_EQ(vorn_io_open(port), VORN_OK);
    ASSERT_EQ(device.opened_paths, std::vector<std::string>{on_platform("/dev/lp0", "LPT1")});
    // The budgets below are those of the default timeouts.
    uint32_t values[6] = {};
    ASSERT_EQ(vorn_io_get_timeout(port, values), VORN_OK);
    ASSERT_EQ(U32s(values, values + 6), (U32s{10, 5, 2000, 10, 2000, 2000}));
  }
  void TearDown() override { vorn_io_port_destroy(port); }
  int32_t write(const std::vector<uint8_t>& data, uint32_t offset = 0) {
    const auto length = static_cast<uint32_t>(data.size()) - offset;
    return vorn_io_write(port, data.data(), offset, length, &transferred);
  }
  uint32_t elapsed() const { return clock.now() - 1000u; }

  FakeClock clock;
  FakeDevice device;
  VORN_PORT port = nullptr;
  uint32_t transferred = 99;
};

// Each wait is what is left of the whole budget (10 x length + 2000); the
// attempt that completes a chunk is not charged to it. A device error ends
// the write unless the device took every byte.
TEST_F(HandlePortTest, WritesInPiecesOfTheTransferUnitWithinTheWholeBudget) {
  const struct {
    std::deque<WriteStep> script;
    uint32_t size, offset;
    int32_t result;
    uint32_t transferred;
    U32s requests, waits;
  } rows[] = {
      {{}, 0, 0, VORN_OK, 0, {}, {}},
      {{}, 10003, 3, VORN_OK, 10000, {4096, 4096, 1808}, {102000, 102000, 102000}},
      {{{.accept = 1000, .ms = 5}, {.accept = 96, .ms = 5}, {.ms = 5}},
       5000,
       0,
       VORN_OK,
       5000,
       {4096, 3096, 3000, 904},
       {52000, 51995, 51990, 51990}},
      {{{.accept = 10}, {.accept = 0, .error = 5}}, 100, 0, 5, 10, {100, 90}, {3000, 3000}},
      {{{.error = 5}}, 4, 0, VORN_OK, 4, {4}, {2040}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.size);
    device.write_script = row.script;
    device.write_requests.clear();
    device.write_waits.clear();
    device.written.clear();
    std::vector<uint8_t> data(row.size);
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i);
    EXPECT_EQ(write(data, row.offset), row.result);
    EXPECT_EQ(transferred, row.transferred);
    EXPECT_EQ(device.written, std::vector<uint8_t>(data.begin() + row.offset,
                                                   data.begin() + row.offset + row.transferred));
    EXPECT_EQ(device.write_requests, row.requests);
    EXPECT_EQ(device.write_waits, row.waits);
  }
}

TEST_F(HandlePortTest, StalledDeviceTimesOutWithThePartialCount) {
  ASSERT_EQ(vorn_io_set_timeout(port, 10, 5, 2000, 1, 100, 2000), VORN_OK);
  device.write_script.push_back({.accept = 300, .ms = 10});
  for (int i = 0; i < 40; ++i) device.write_script.push_back({.accept = 0, .ms = 40});
  EXPECT_EQ(write(std::vector<uint8_t>(1000, 1)), VORN_ERR_IO_WRITE_TIMEOUT);
  EXPECT_EQ(transferred, 300u);
  // Budget 1 x 1000 + 100 ms: the 28th empty try crosses it.
  EXPECT_EQ(device.write_requests.size(), 29u);
  EXPECT_EQ(elapsed(), 10u + 28u * 40u);
}

// A kill before the write or during its second attempt: the write returns 0
// with what went before and makes no further attempt, even when the attempt
// it cut short outlasted the budget; the device family is asked to cut the
// running attempt short where it can.
TEST_F(HandlePortTest, KillEndsTheWriteWithTheBytesSoFar) {
  const struct {
    bool during, can_cancel;
    uint32_t written;
    int cancels;
  } rows[] = {{false, true, 0, 1}, {true, true, 5096, 1}, {true, false, 5096, 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << "during " << row.during << ", cancel " << row.can_cancel);
    vorn_io_port_destroy(port);
    if (!row.can_cancel) device.cannot_cancel();
    ASSERT_EQ(vorn_io_port_creator(&port, "vorn:/dev/bus/LPT/LPT1"), VORN_OK);
    ASSERT_EQ(vorn_io_open(port), VORN_OK);
    device.cancels = 0;
    device.write_requests.clear();
    if (row.during) {
      device.write_script = {{.accept = 4096}, {.accept = 1000, .ms = 60000, .meanwhile = [&] {
                                                  EXPECT_EQ(vorn_io_kill(port), VORN_OK);
                                                }}};
    } else {
      ASSERT_EQ(vorn_io_kill(port), VORN_OK);
    }
    EXPECT_EQ(write(std::vector<uint8_t>(10000, 3)), VORN_OK);
    EXPECT_EQ(transferred, row.written);
    EXPECT_EQ(device.write_requests.size(), row.during ? 2u : 0u);
    EXPECT_EQ(device.cancels, row.cancels);
  }
}

// Five naps, then attempts at most every 10 ms until the budget (5 x length +
// 2000 ms) runs out: waiting inside the attempt on a device that can signal
// data, sleeping after it on one that answers at once.
TEST_F(HandlePortTest, SilentParallelDeviceTimesOutAfterItsBudgetWithoutSpinning) {
  const struct {
    uint32_t length;
    bool device_waits;
  } rows[] = {{4, false}, {4096, false}, {4096, true}};
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.length << (row.device_waits ? " waits" : " at once"));
    device.idle_read_waits = row.device_waits;
    device.read_requests.clear();
    const uint32_t start = clock.now(), first_sleep = clock.sleeps().size();
    const uint32_t budget = 5 * row.length + 2000;
    std::vector<uint8_t> buffer(row.length);
    EXPECT_EQ(vorn_io_read(port, buffer.data(), 0, row.length, &transferred),
              VORN_ERR_IO_READ_TIMEOUT);
    EXPECT_EQ(transferred, 0u);
    const U32s sleeps(clock.sleeps().begin() + first_sleep, clock.sleeps().end());
    ASSERT_GE(sleeps.size(), 5u);
    EXPECT_EQ(U32s(sleeps.begin(), sleeps.begin() + 5), (U32s{100, 100, 100, 100, 100}));
    if (row.device_waits) {
      EXPECT_EQ(sleeps.size(), 5u);
    }
    EXPECT_GE(clock.now() - start, budget);
    EXPECT_LE(clock.now() - start, budget + 10);
    EXPECT_LE(device.read_requests.size(), budget / 10 + 10);
  }
}

TEST_F(HandlePortTest, ParallelReadsPollSingleBytesSkippingNoDataErrors) {
  device.read_script = {{.bytes = {0x41}}, {.error = 1117}, {.bytes = {0x42, 0x43, 0x44}}};
  uint8_t buffer[8] = {};
  EXPECT_EQ(vorn_io_read(port, buffer, 2, 3, &transferred), VORN_OK);
  EXPECT_EQ(transferred, 3u);
  EXPECT_EQ(std::vector<uint8_t>(buffer, buffer + 6),
            (std::vector<uint8_t>{0, 0, 0x41, 0x42, 0x43, 0}));
  for (uint32_t asked : device.read_requests) EXPECT_EQ(asked, 1u);
  device.read_script = {{.bytes = {0x10}}, {.error = 13}};
  EXPECT_EQ(vorn_io_read(port, buffer, 0, 4, &transferred), 13);
  EXPECT_EQ(transferred, 1u);
  // A quick read asks for size minus offset and stops at the first empty try.
  device.read_script = {{.bytes = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}}};
  EXPECT_EQ(vorn_io_readexist(port, buffer, 2, 6, &transferred), VORN_OK);
  EXPECT_EQ(transferred, 4u);
  EXPECT_EQ(std::vector<uint8_t>(buffer + 2, buffer + 6), (std::vector<uint8_t>{1, 2, 3, 4}));
  device.read_requests.clear();
  device.read_script.clear();
  EXPECT_EQ(vorn_io_readexist(port, buffer, 0, 8, &transferred), VORN_OK);
  EXPECT_EQ(transferred, 0u);
  EXPECT_EQ(device.read_requests.size(), 1u);
}

TEST_F(HandlePortTest, ControlSwitchesReadingOffAndOn) {
  uint8_t off = 0, on = 1, state = 9, buffer[2];
  ASSERT_EQ(vorn_io_control(port, 1, 0, &off, 1, nullptr, 0, nullptr), VORN_OK);
  ASSERT_EQ(vorn_io_control(port, 2, 0, nullptr, 0, &state, 1, nullptr), VORN_OK);
  EXPECT_EQ(state, 0);
  EXPECT_EQ(vorn_io_read(port, buffer, 0, 2, &transferred), VORN_ERR_NOT_IMPLEMENTED);
  EXPECT_EQ(vorn_io_readexist(port, buffer, 0, 2, &transferred), VORN_ERR_NOT_IMPLEMENTED);
  ASSERT_EQ(vorn_io_control(port, 1, 0, &on, 1, nullptr, 0, nullptr), VORN_OK);
  EXPECT_EQ(vorn_io_readexist(port, buffer, 0, 2, &transferred), VORN_OK);
  EXPECT_EQ(vorn_io_control(port, 1, 0, &on, 0, nullptr, 0, nullptr), VORN_ERR_PARAMETER);
  EXPECT_EQ(vorn_io_control(port, 1, 0, nullptr, 1, nullptr, 0, nullptr), VORN_ERR_PARAMETER);
  EXPECT_EQ(vorn_io_control(port, 2, 0, nullptr, 0, &state, 0, nullptr), VORN_ERR_BUFFER_TOO_SMALL);
  EXPECT_EQ(vorn_io_control(port, 3, 0, &on, 1, &state, 1, nullptr), VORN_ERR_NOT_IMPLEMENTED);
}

TEST_F(HandlePortTest, ClosedPortRefusesTransfersKillAndFlush) {
  ASSERT_EQ(vorn_io_flush(port), VORN_OK);
  ASSERT_EQ(vorn_io_close(port), VORN_OK);
  EXPECT_EQ(device.closes, 1);
  uint8_t buffer[2];
  EXPECT_EQ(vorn_io_read(port, buffer, 0, 2, &transferred), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(vorn_io_readexist(port, buffer, 0, 2, &transferred), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(vorn_io_write(port, buffer, 0, 2, &transferred), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(vorn_io_kill(port), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(vorn_io_flush(port), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(vorn_io_close(port), VORN_OK);
  EXPECT_EQ(device.closes, 1) << "closing a closed port does nothing";
}

}  // namespace
}  // namespace vorn::test
