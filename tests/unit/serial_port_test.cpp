// The serial driver against a scripted device and a recording serial line:
// baud-rate texts, the automatic write constant, device names, the order and
// codes of the line setup, and the short timeouts around readexist.
#include "io/serial_port.h"

#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <cstdint>
#include <string>
#include <vector>

#include "io/port.h"
#include "platform/serial_line.h"
#include "support/fake_clock.h"
#include "support/fake_device.h"

namespace vorn::test {
namespace {

using platform::LineSetup;
using platform::LineTimeouts;

std::vector<uint32_t> five(const LineTimeouts& t) {
  return {t.read_interval, t.read_multiplier, t.read_constant, t.write_multiplier,
          t.write_constant};
}

// Records every line call in order; each call can be told to fail.
class FakeSerialLine {
 public:
  FakeSerialLine() {
    current = this;
    ops_.files = &platform::device_file();  // the FakeDevice installed before
    platform::install_serial_line(&ops_);
  }
  ~FakeSerialLine() {
    platform::install_serial_line(nullptr);
    current = nullptr;
  }

  LineSetup configure_result = LineSetup::kDone;
  bool get_ok = true;
  bool set_ok = true;
  bool queue_ok = true;
  int32_t purge_error = 0;

  std::vector<std::string> calls;
  std::vector<uint32_t> baud_rates;
  std::vector<std::vector<uint32_t>> timeouts_set;

 private:
  static inline FakeSerialLine* current = nullptr;

  static LineSetup configure(platform::DeviceHandle, uint32_t baud_rate) {
    current->calls.push_back("configure");
    current->baud_rates.push_back(baud_rate);
    return current->configure_result;
  }
  static bool get_timeouts(platform::DeviceHandle, LineTimeouts* out) {
    current->calls.push_back("get");
    *out = {};
    return current->get_ok;
  }
  static bool set_timeouts(platform::DeviceHandle, const LineTimeouts& t) {
    current->calls.push_back("set");
    current->timeouts_set.push_back(five(t));
    return current->set_ok;
  }
  static bool set_queue_sizes(platform::DeviceHandle, uint32_t input, uint32_t output) {
    current->calls.push_back("queue " + std::to_string(input) + "/" + std::to_string(output));
    return current->queue_ok;
  }
  static int32_t purge(platform::DeviceHandle) {
    current->calls.push_back("purge");
    return current->purge_error;
  }

  platform::SerialLineOps ops_{nullptr,      configure,       get_timeouts,
                               set_timeouts, set_queue_sizes, purge};
};

class SerialPort : public ::testing::Test {
 protected:
  ~SerialPort() override {
    if (port_ != nullptr) vorn_io_port_destroy(port_);
  }

  int32_t create(const std::string& uri) { return vorn_io_port_creator(&port_, uri.c_str()); }

  std::vector<uint32_t> timeouts() {
    std::vector<uint32_t> values(6);
    EXPECT_EQ(vorn_io_get_timeout(port_, values.data()), 0);
    return values;
  }

  FakeClock clock_;
  FakeDevice device_;
  FakeSerialLine line_;
  VORN_PORT port_ = nullptr;
};

TEST_F(SerialPort, BaudRateMustBeOneOfTheExactTexts) {
  struct Row {
    const char* value;
    int32_t result;
    uint32_t rate;
  };
  const Row rows[] = {
      {"1200", 0, 1200},    {"2400", 0, 2400},   {"4800", 0, 4800},   {"9600", 0, 9600},
      {"19200", 0, 19200},  {"38400", 0, 38400}, {"57600", 0, 57600}, {"115200", 0, 115200},
      {"14400", -351, 0},   {"09600", -351, 0},  {"9600 ", -351, 0},  {" 9600", -351, 0},
      {"115200x", -351, 0}, {"230400", -351, 0}, {"600", -351, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.value);
    VORN_PORT port = nullptr;
    std::string uri = std::string("vorn:/dev/bus/COM/COM3?baudrate=") + row.value;
    ASSERT_EQ(vorn_io_port_creator(&port, uri.c_str()), row.result);
    if (row.result != 0) continue;
    line_.baud_rates.clear();
    EXPECT_EQ(vorn_io_open(port), 0);
    EXPECT_EQ(line_.baud_rates, std::vector<uint32_t>{row.rate});
    EXPECT_EQ(vorn_io_port_destroy(port), 0);
  }
}

TEST_F(SerialPort, MissingBaudRateIsRefused) {
  EXPECT_EQ(create("vorn:/dev/bus/COM/COM3"), -301);
  EXPECT_EQ(create("vorn:/dev/bus/COM/COM3?speed=9600"), -301);
}

TEST_F(SerialPort, SetUriTakesOnlyUriTextAndKeepsTheOldUriOnFailure) {
  ASSERT_EQ(create("vorn:/dev/bus/COM/COM1?baudrate=9600"), 0);
  EXPECT_EQ(vorn_io_set_uri(port_, "COM2,9600"), -1);
  EXPECT_EQ(vorn_io_set_uri(port_, "vorn:/dev/bus/COM/COM2?baudrate=14400"), -351);
  char text[256];
  uint32_t length = 0;
  ASSERT_EQ(vorn_io_get_uri(port_, text, sizeof text, &length), 0);
  EXPECT_STREQ(text, "vorn:/dev/bus/COM/COM1?baudrate=9600");
  ASSERT_EQ(vorn_io_open(port_), 0);
  EXPECT_EQ(device_.opened_paths, std::vector<std::string>{"/dev/ttyS0"});
}

TEST_F(SerialPort, OpenDerivesTheWriteConstantFromTheBaudRate) {
  struct Row {
    const char* rate;
    uint32_t write_constant;
  };
  const Row rows[] = {
      {"1200", 16200}, {"2400", 7800},  {"4800", 3600},   {"9600", 2000},
      {"19200", 2000}, {"57600", 2000}, {"115200", 2000},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.rate);
    VORN_PORT port = nullptr;
    std::string uri = std::string("vorn:/dev/bus/COM/COM3?baudrate=") + row.rate;
    ASSERT_EQ(vorn_io_port_creator(&port, uri.c_str()), 0);
    line_.timeouts_set.clear();
    ASSERT_EQ(vorn_io_open(port), 0);
    uint32_t values[6] = {};
    ASSERT_EQ(vorn_io_get_timeout(port, values), 0);
    EXPECT_EQ(values[4], row.write_constant);
    // The other five stay at their defaults.
    EXPECT_EQ(values[0], 10u);
    EXPECT_EQ(values[1], 5u);
    EXPECT_EQ(values[2], 2000u);
    EXPECT_EQ(values[3], 10u);
    EXPECT_EQ(values[5], 2000u);
    ASSERT_EQ(line_.timeouts_set.size(), 1u);
    EXPECT_EQ(line_.timeouts_set[0], (std::vector<uint32_t>{10, 5, 2000, 10, row.write_constant}));
    EXPECT_EQ(vorn_io_port_destroy(port), 0);
  }
}

TEST_F(SerialPort, TimeoutsSetBeforeOpenAreKeptAsTheyAre) {
  ASSERT_EQ(create("vorn:/dev/bus/COM/COM3?baudrate=1200"), 0);
  ASSERT_EQ(vorn_io_set_timeout(port_, 1, 2, 3, 4, 5, 6), 0);
  ASSERT_EQ(vorn_io_open(port_), 0);
  EXPECT_EQ(timeouts(), (std::vector<uint32_t>{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(line_.timeouts_set.back(), (std::vector<uint32_t>{1, 2, 3, 4, 5}));
}

TEST_F(SerialPort, WriteConstantComputedAtOpenStaysAfterClose) {
  ASSERT_EQ(create("vorn:/dev/bus/COM/COM3?baudrate=2400"), 0);
  EXPECT_EQ(timeouts()[4], 2000u);
  ASSERT_EQ(vorn_io_open(port_), 0);
  ASSERT_EQ(vorn_io_close(port_), 0);
  EXPECT_EQ(timeouts()[4], 7800u);
}

#ifndef _WIN32
TEST_F(SerialPort, PortNamesMapOntoLinuxDevices) {
  struct Row {
    const char* uri;
    const char* device;
  };
  const Row rows[] = {
      {"vorn:/dev/bus/COM/COM1?baudrate=9600", "/dev/ttyS0"},
      {"vorn:/dev/bus/COM/COM3?baudrate=9600", "/dev/ttyS2"},
      {"vorn:/dev/bus/COM/COM10?baudrate=9600", "/dev/ttyS9"},
      {"vorn:/dev/bus/COM//dev/pts/4?baudrate=9600", "/dev/pts/4"},
      {"vorn:/dev/bus/COM/ttyUSB0?baudrate=9600", "/dev/ttyUSB0"},
      {"vorn:/dev/bus/COM/COM0?baudrate=9600", "/dev/COM0"},
      {"vorn:/dev/bus/COM/COM01?baudrate=9600", "/dev/COM01"},
      {"vorn:/dev/bus/COM/com1?baudrate=9600", "/dev/com1"},
      {"vorn:/dev/bus/BSP/COM7?baudrate=9600", "/dev/ttyS6"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.uri);
    VORN_PORT port = nullptr;
    ASSERT_EQ(vorn_io_port_creator(&port, row.uri), 0);
    device_.opened_paths.clear();
    ASSERT_EQ(vorn_io_open(port), 0);
    EXPECT_EQ(device_.opened_paths, std::vector<std::string>{row.device});
    EXPECT_EQ(vorn_io_port_destroy(port), 0);
  }
}
#endif

TEST_F(SerialPort, BspPortsAreSerialPortsLikeCom) {
  ASSERT_EQ(create("vorn:/dev/bus/BSP/COM7?baudrate=1200"), 0);
  EXPECT_EQ(port_->kind, VORN_PORT_SERIAL);
  ASSERT_EQ(vorn_io_open(port_), 0);
  EXPECT_EQ(line_.baud_rates, std::vector<uint32_t>{1200});
  EXPECT_EQ(timeouts()[4], 16200u);
}

TEST_F(SerialPort, OpenSetsUpTheLineInOrder) {
  ASSERT_EQ(create("vorn:/dev/bus/COM/COM3?baudrate=115200"), 0);
  ASSERT_EQ(vorn_io_open(port_), 0);
  EXPECT_EQ(line_.calls,
            (std::vector<std::string>{"configure", "get", "set", "queue 4096/4096", "purge"}));
  EXPECT_EQ(line_.baud_rates, std::vector<uint32_t>{115200});
}

TEST(SerialPortSetup, EachFailingLineStepEndsOpenWithItsCodeAndLeavesTheDeviceOpen) {
  FakeClock clock;
  struct Row {
    const char* name;
    void (*fail)(FakeSerialLine&);
    int32_t result;
    size_t calls;  // line calls made up to and including the failing one
  };
  const Row rows[] = {
      {"reading settings", [](FakeSerialLine& l) { l.configure_result = LineSetup::kReadFailed; },
       -312, 1},
      {"writing settings", [](FakeSerialLine& l) { l.configure_result = LineSetup::kWriteFailed; },
       -313, 1},
      {"reading timeouts", [](FakeSerialLine& l) { l.get_ok = false; }, -312, 2},
      {"writing timeouts", [](FakeSerialLine& l) { l.set_ok = false; }, -313, 3},
      {"queue sizes", [](FakeSerialLine& l) { l.queue_ok = false; }, -313, 4},
      {"purge", [](FakeSerialLine& l) { l.purge_error = 5; }, 5, 5},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    FakeDevice device;
    FakeSerialLine line;
    row.fail(line);
    VORN_PORT port = nullptr;
    ASSERT_EQ(vorn_io_port_creator(&port, "vorn:/dev/bus/COM/COM3?baudrate=9600"), 0);
    EXPECT_EQ(vorn_io_open(port), row.result);
    EXPECT_EQ(line.calls.size(), row.calls);
    EXPECT_EQ(device.closes, 0);
    // Still open: a transfer reaches the device, and closing releases it.
    uint32_t transferred = 0;
    const uint8_t byte = 0x1B;
    EXPECT_EQ(vorn_io_write(port, &byte, 0, 1, &transferred), 0);
    EXPECT_EQ(vorn_io_close(port), 0);
    EXPECT_EQ(device.closes, 1);
    EXPECT_EQ(vorn_io_port_destroy(port), 0);
  }
}

TEST_F(SerialPort, DeviceThatCannotBeOpenedGivesTheSystemErrorAndStaysClosed) {
  device_.open_error = 2;
  ASSERT_EQ(create("vorn:/dev/bus/COM/COM3?baudrate=9600"), 0);
  EXPECT_EQ(vorn_io_open(port_), 2);
  EXPECT_TRUE(line_.calls.empty());
  uint8_t buffer[4];
  uint32_t transferred = 0;
  EXPECT_EQ(vorn_io_read(port_, buffer, 0, 4, &transferred), -309);
}

TEST_F(SerialPort, OpenWithoutUriIsRefused) {
  void* state = io::new_serial_state();
  ASSERT_NE(state, nullptr);
  EXPECT_EQ(io::kSerialDriverOps.open(state), -301);
  EXPECT_TRUE(device_.opened_paths.empty());
  io::kSerialDriverOps.destroy(state);
}

TEST_F(SerialPort, ReadIsOneAttemptAndAShortAnswerIsStillSuccess) {
  ASSERT_EQ(create("vorn:/dev/bus/COM/COM3?baudrate=9600"), 0);
  ASSERT_EQ(vorn_io_open(port_), 0);
  device_.read_script.push_back({{0x12, 0x34, 0x56}, 0, 30});
  uint8_t buffer[12] = {};
  uint32_t transferred = 99;
  EXPECT_EQ(vorn_io_read(port_, buffer, 2, 10, &transferred), 0);
  EXPECT_EQ(transferred, 3u);
  EXPECT_EQ(device_.read_requests, std::vector<uint32_t>{10});
  EXPECT_EQ(buffer[2], 0x12);
  EXPECT_EQ(buffer[4], 0x56);
}

TEST_F(SerialPort, ReadexistRunsUnderShortTimeoutsAndRestoresThePortsOwn) {
  ASSERT_EQ(create("vorn:/dev/bus/COM/COM3?baudrate=9600"), 0);
  ASSERT_EQ(vorn_io_open(port_), 0);
  // Set while open: the line learns them when readexist restores its timeouts.
  ASSERT_EQ(vorn_io_set_timeout(port_, 7, 8, 9, 10, 11, 12), 0);
  line_.calls.clear();
  line_.timeouts_set.clear();
  device_.read_script.push_back({{0xAA, 0xBB}, 0, 0});
  uint8_t buffer[10] = {};
  uint32_t transferred = 0;
  EXPECT_EQ(vorn_io_readexist(port_, buffer, 2, 10, &transferred), 0);
  EXPECT_EQ(transferred, 2u);
  EXPECT_EQ(buffer[2], 0xAA);
  EXPECT_EQ(device_.read_requests, std::vector<uint32_t>{8});
  EXPECT_EQ(line_.calls, (std::vector<std::string>{"get", "set", "get", "set"}));
  ASSERT_EQ(line_.timeouts_set.size(), 2u);
  EXPECT_EQ(line_.timeouts_set[0], (std::vector<uint32_t>{5, 1, 10, 10, 10}));
  EXPECT_EQ(line_.timeouts_set[1], (std::vector<uint32_t>{7, 8, 9, 10, 11}));
}

TEST_F(SerialPort, ReadexistIgnoresFailingTimeoutCalls) {
  ASSERT_EQ(create("vorn:/dev/bus/COM/COM3?baudrate=9600"), 0);
  ASSERT_EQ(vorn_io_open(port_), 0);
  line_.calls.clear();
  line_.get_ok = false;
  device_.read_script.push_back({{0x01}, 0, 0});
  uint8_t buffer[4] = {};
  uint32_t transferred = 0;
  EXPECT_EQ(vorn_io_readexist(port_, buffer, 0, 4, &transferred), 0);
  EXPECT_EQ(transferred, 1u);
  EXPECT_EQ(line_.calls, (std::vector<std::string>{"get", "get"}));
}

TEST_F(SerialPort, ControlIsNotImplementedForAnyCode) {
  ASSERT_EQ(create("vorn:/dev/bus/COM/COM3?baudrate=9600"), 0);
  for (uint32_t code : {0u, 1u, 2u, 5u, 6u, 7u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(code);
    uint8_t out[4];
    uint32_t count = 9;
    EXPECT_EQ(vorn_io_control(port_, code, 0, nullptr, 0, out, sizeof out, &count), -7);
    EXPECT_EQ(count, 0u);
  }
}

}  // namespace
}  // namespace vorn::test
