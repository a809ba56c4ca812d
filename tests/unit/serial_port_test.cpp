// The serial driver against a scripted device and a recording serial line:
// baud-rate texts, the automatic write constant, device names, the order and
// codes of the line setup, and the short timeouts around readexist.
#include "io/serial_port.h"

#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <string>
#include <vector>

#include "io/port.h"
#include "platform/serial_line.h"
#include "support/fake_clock.h"
#include "support/fake_device.h"
#include "support/fake_serial_line.h"
#include "support/platform_expect.h"

namespace vorn::test {
namespace {

using platform::LineSetup;
using platform::LineTimeouts;
using Calls = std::vector<std::string>;

class SerialPort : public ::testing::Test {
 protected:
  ~SerialPort() override { vorn_io_port_destroy(port_); }
  void open(const char* uri) {
    ASSERT_EQ(vorn_io_port_creator(&port_, uri), VORN_OK);
    ASSERT_EQ(vorn_io_open(port_), VORN_OK);
  }

  FakeClock clock_;
  FakeDevice device_;
  FakeSerialLine line_;
  VORN_PORT port_ = nullptr;
};

TEST(SerialRules, BaudRatesWriteConstantsAndDeviceNames) {
  const std::pair<const char*, uint32_t> rates[] = {
      {"1200", 1200}, {"115200", 115200}, {"14400", 0}, {"09600", 0}, {"9600 ", 0}};
  for (const auto& [text, rate] : rates) EXPECT_EQ(io::baud_rate_from_text(text), rate) << text;
  // Whole seconds per transfer unit, rounded down, and never below 2000.
  const uint32_t constants[][2] = {{4800, 3600}, {9600, 2000}};
  for (const auto& row : constants) EXPECT_EQ(io::automatic_write_constant(4096, row[0]), row[1]);
  // Names that exist nowhere here; the parallel driver shares the rule.
  const auto serial = platform::serial_device_path;
  const auto parallel = platform::parallel_device_path;
  const struct {
    void (*map)(const char*, char*, size_t);
    const char *name, *posix, *windows;
  } names[] = {
      {serial, "COM10", "/dev/ttyS9", "\\\\.\\COM10"},
      {serial, "/dev/pts/4", "/dev/pts/4", "\\\\.\\/dev/pts/4"},
      {serial, "ttyUSB0", "/dev/ttyUSB0", "\\\\.\\ttyUSB0"},
      {serial, "COM0", "/dev/COM0", "\\\\.\\COM0"},
      {serial, "COM01", "/dev/COM01", "\\\\.\\COM01"},
      {serial, "com1", "/dev/ttyS0", "\\\\.\\com1"},
      {serial, "LPT1", "/dev/LPT1", "\\\\.\\LPT1"},
      {parallel, "lpt1", "/dev/lp0", "lpt1"},
  };
  for (const auto& row : names) {
    char path[64];
    row.map(row.name, path, sizeof path);
    EXPECT_STREQ(path, on_platform(row.posix, row.windows)) << row.name;
  }
}

TEST_F(SerialPort, BspOpenSetsUpTheLineInOrderWithTheAutomaticWriteConstantKeptOverASetUri) {
  open("vorn:/dev/bus/BSP/COM7?baudrate=1200");
  EXPECT_EQ(device_.opened_paths, Calls{on_platform("/dev/ttyS6", "\\\\.\\COM7")});
  EXPECT_EQ(line_.calls,
            (Calls{"configure 1200", "get", "set 10,5,2000,10,16200", "queue 4096/4096", "purge"}));
  // The constant computed at open stays after close; timeouts set by the
  // caller are kept as they are.
  ASSERT_EQ(vorn_io_close(port_), VORN_OK);
  uint32_t values[6] = {};
  ASSERT_EQ(vorn_io_get_timeout(port_, values), VORN_OK);
  EXPECT_EQ(values[4], 16200u);
  ASSERT_EQ(vorn_io_set_timeout(port_, 1, 2, 3, 4, 5, 6), VORN_OK);
  line_.calls.clear();
  ASSERT_EQ(vorn_io_open(port_), VORN_OK);
  EXPECT_EQ(line_.calls[2], "set 1,2,3,4,5");
  // A refused URI leaves the old one in place.
  EXPECT_EQ(vorn_io_set_uri(port_, "vorn:/dev/bus/COM/COM2?baudrate=14400"), VORN_ERR_IO_BAUDRATE);
  char text[256];
  uint32_t length = 0;
  ASSERT_EQ(vorn_io_get_uri(port_, text, sizeof text, &length), VORN_OK);
  EXPECT_STREQ(text, "vorn:/dev/bus/BSP/COM7?baudrate=1200");
}

TEST(SerialPortSetup, EachFailingLineStepEndsOpenWithItsCodeAndLeavesTheDeviceOpen) {
  FakeClock clock;
  const struct {
    void (*fail)(FakeSerialLine&);
    int32_t result;
    size_t calls;  // line calls made up to and including the failing one
  } rows[] = {
      {[](FakeSerialLine& l) { l.configure_result = LineSetup::kReadFailed; }, -312, 1},
      {[](FakeSerialLine& l) { l.configure_result = LineSetup::kWriteFailed; }, -313, 1},
      {[](FakeSerialLine& l) { l.get_ok = false; }, -312, 2},
      {[](FakeSerialLine& l) { l.set_ok = false; }, -313, 3},
      {[](FakeSerialLine& l) { l.queue_ok = false; }, -313, 4},
      {[](FakeSerialLine& l) { l.purge_error = 5; }, 5, 5},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.result);
    FakeDevice device;
    FakeSerialLine line;
    row.fail(line);
    VORN_PORT port = nullptr;
    ASSERT_EQ(vorn_io_port_creator(&port, "vorn:/dev/bus/COM/COM3?baudrate=9600"), VORN_OK);
    EXPECT_EQ(vorn_io_open(port), row.result);
    EXPECT_EQ(line.calls.size(), row.calls);
    // Still open: a transfer reaches the device, and closing releases it.
    uint32_t transferred = 0;
    const uint8_t byte = 0x1B;
    EXPECT_EQ(vorn_io_write(port, &byte, 0, 1, &transferred), VORN_OK);
    EXPECT_EQ(device.closes, 0);
    EXPECT_EQ(vorn_io_port_destroy(port), VORN_OK);
    EXPECT_EQ(device.closes, 1);
  }
}

TEST_F(SerialPort, ReadIsOneAttemptAndReadexistRunsUnderShortTimeouts) {
  open("vorn:/dev/bus/COM/COM3?baudrate=9600");
  // A timed read is one attempt; a short answer is still a success.
  device_.read_script.push_back({{0x12, 0x34, 0x56}, 0, 30});
  uint8_t buffer[12] = {};
  uint32_t transferred = 99;
  EXPECT_EQ(vorn_io_read(port_, buffer, 2, 10, &transferred), VORN_OK);
  EXPECT_EQ(device_.read_requests, std::vector<uint32_t>{10});
  EXPECT_EQ(std::vector<uint8_t>(buffer + 2, buffer + 2 + transferred),
            (std::vector<uint8_t>{0x12, 0x34, 0x56}));
  device_.read_requests.clear();
  // Set while open: the line learns them when readexist restores its timeouts.
  ASSERT_EQ(vorn_io_set_timeout(port_, 7, 8, 9, 10, 11, 12), VORN_OK);
  line_.calls.clear();
  device_.read_script.push_back({{0xAA, 0xBB}, 0, 0});
  EXPECT_EQ(vorn_io_readexist(port_, buffer, 2, 10, &transferred), VORN_OK);
  EXPECT_EQ(buffer[3], 0xBB);
  EXPECT_EQ(device_.read_requests, std::vector<uint32_t>{8});
  EXPECT_EQ(line_.calls, (Calls{"get", "set 5,1,10,10,10", "get", "set 7,8,9,10,11"}));
  // Failing timeout calls do not spoil the read.
  line_.calls.clear();
  line_.get_ok = false;
  device_.read_script.push_back({{0x01}, 0, 0});
  EXPECT_EQ(vorn_io_readexist(port_, buffer, 0, 4, &transferred), VORN_OK);
  EXPECT_EQ(transferred, 1u);
  EXPECT_EQ(line_.calls, (Calls{"get", "get"}));
  uint32_t count = 9;
  EXPECT_EQ(vorn_io_control(port_, 1, 0, nullptr, 0, buffer, 4, &count), VORN_ERR_NOT_IMPLEMENTED);
  EXPECT_EQ(count, 0u);
}

}  // namespace
}  // namespace vorn::test
