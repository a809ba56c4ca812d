// The USB driver on a scripted device list: which device an open chooses,
// the controls, and the overlapped read loops on a fake clock.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <cctype>
#include <deque>
#include <ostream>
#include <string>
#include <vector>

#include "io/driver.h"
#include "support/fake_clock.h"
#include "support/fake_device.h"
#include "support/fake_usb.h"

namespace vorn::test {
namespace {

using Bytes = std::vector<uint8_t>;
using U32s = std::vector<uint32_t>;

// Test names from a case's `what`, with characters a name cannot hold as '_'.
const auto case_name = [](const auto& info) {
  std::string name = info.param.what;
  for (char& ch : name) {
    if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
  }
  return name;
};

// gtest shows a case by its `what` rather than as raw bytes.
template <typename Case>
requires requires(Case c) {
  c.what;
}
void PrintTo(const Case& c, std::ostream* out) {
  *out << c.what;
}

FakeUsbDevice printer(const std::string& path, const std::string& id, const std::string& location,
                      const std::string& service = "usbprint") {
  return {path, id, location, service};
}

struct SearchCase {
  const char* what;
  std::vector<FakeUsbDevice> devices;
  const char* uri;
  int32_t result;
  const char* opened;  // null: nothing opened
  uint8_t restricted = 0;
};

class UsbSearchTest : public ::testing::TestWithParam<SearchCase> {};

TEST_P(UsbSearchTest, OpenChoosesTheDevice) {
  const SearchCase& c = GetParam();
  FakeClock clock;
  FakeDevice device;
  FakeUsb usb;
  usb.devices = c.devices;
  VORN_PORT port = nullptr;
  ASSERT_EQ(vorn_io_port_creator(&port, c.uri), VORN_OK);
  EXPECT_EQ(vorn_io_open(port), c.result);
  if (c.opened != nullptr) {
    EXPECT_EQ(device.opened_paths, std::vector<std::string>{c.opened});
  } else {
    EXPECT_TRUE(device.opened_paths.empty());
  }
  uint8_t restricted = 9;
  EXPECT_EQ(vorn_io_control(port, 5, 0, nullptr, 0, &restricted, 1, nullptr), VORN_OK);
  EXPECT_EQ(restricted, c.restricted);
  vorn_io_port_destroy(port);
}

const std::string kLongId = "USB\\VID_5A3C&PID_7008&REV_0100" + std::string(226, 'X');

INSTANTIATE_TEST_SUITE_P(
    Cases, UsbSearchTest,
    ::testing::Values(
        SearchCase("table device among others",
                   {printer("/hid", "USB\\VID_046D&PID_C52B&REV_1200", "1-2", "hid"),
                    printer("/p", "USB\\VID_5A3C&PID_7008&REV_0100", "1-3", "vendor")},
                   "vorn:/dev/bus/USB/DEVICE", 0, "/p"),
        SearchCase("enumeration order wins over table order",
                   {printer("/late", "USB\\VID_5A3D&PID_0001&REV_0001", "1-1"),
                    printer("/early", "USB\\VID_5A3C&PID_7009&REV_0001", "1-2")},
                   "vorn:/dev/bus/USB/DEVICE", 0, "/late"),
        SearchCase("lower-case identifier is upper-cased",
                   {printer("/p", "usb\\vid_4348&pid_5584&rev_0254", "1-1")}, "USB", 0, "/p"),
        SearchCase("only the device's location is upper-cased",
                   {printer("/a", "USB\\VID_04B8&PID_0202", "Port_#0001.Hub_#0001"),
                    printer("/b", "USB\\VID_04B8&PID_0202", "Port_#0002.Hub_#0001")},
                   "vorn:/dev/bus/USB/DEVICE?location=PORT_#0002.HUB_#0001", 0, "/b"),
        SearchCase("lower-case location value never matches",
                   {printer("/b", "USB\\VID_04B8&PID_0202", "Port_#0002.Hub_#0001", "x")},
                   "vorn:/dev/bus/USB/DEVICE?location=port_#0002.hub_#0001", -372, nullptr),
        SearchCase("location compared in full",
                   {printer("/b", "USB\\VID_067E&PID_000D", "1-1.4.2", "x")},
                   "vorn:/dev/bus/USB/DEVICE?location=1-1.4", -372, nullptr),
        SearchCase("port number only stops choosing table devices",
                   {printer("/t", "USB\\VID_5A3C&PID_7007", "1-1"),
                    printer("/q", "USB\\VID_1234&PID_0001", "1-2", "USBPRINT")},
                   "vorn:/dev/bus/USB/DEVICE?portnum=USB001", 0, "/q"),
        SearchCase("restricted device chosen when met first",
                   {printer("/r", "USB\\VID_0FE6&PID_811E&REV_0100", "1-1", "x"),
                    printer("/t", "USB\\VID_5A3C&PID_7009", "1-2")},
                   "USB", 0, "/r", 1),
        SearchCase("table device met before the restricted one",
                   {printer("/t", "USB\\VID_5A3C&PID_7009", "1-2"),
                    printer("/r", "USB\\VID_0FE6&PID_811E", "1-1")},
                   "USB", 0, "/t", 0),
        SearchCase("first printer-class device stands in",
                   {printer("/h", "USB\\VID_1111&PID_0001", "1-1", "hid"),
                    printer("/f1", "USB\\VID_2222&PID_0001", "1-2", "print"),
                    printer("/f2", "USB\\VID_3333&PID_0001", "1-3", "usbprint")},
                   "USB", 0, "/f1"),
        SearchCase("a table device elsewhere is no stand-in",
                   {printer("/t", "USB\\VID_5A3C&PID_7008", "1-1"),
                    printer("/f", "USB\\VID_2222&PID_0001", "1-2", "usbprint")},
                   "vorn:/dev/bus/USB/DEVICE?location=1-9", 0, "/f"),
        SearchCase("service names that do not qualify",
                   {printer("/a", "USB\\VID_2222&PID_0001", "1-1", "usbprint2"),
                    printer("/b", "USB\\VID_2222&PID_0002", "1-2", std::string(32, 'p')),
                    {"/c", "USB\\VID_2222&PID_0003", "1-3", std::nullopt}},
                   "USB", -372, nullptr),
        SearchCase("devices without a usable identifier are passed over",
                   {{"/n", std::nullopt, "1-1", "usbprint"}, printer("/long", kLongId, "1-2", "x")},
                   "USB", -372, nullptr)),
    case_name);

class UsbPortTest : public ::testing::Test {
 protected:
  void SetUp() override {
    usb.devices = {printer("/r", "USB\\VID_0FE6&PID_811E&REV_0100", "1-1")};
    ASSERT_EQ(vorn_io_port_creator(&port, "USB"), VORN_OK);
    ASSERT_EQ(vorn_io_open(port), VORN_OK);
  }
  void TearDown() override { vorn_io_port_destroy(port); }
  int32_t read(uint8_t* buffer, uint32_t offset, uint32_t length) {
    return vorn_io_read(port, buffer, offset, length, &transferred);
  }
  uint32_t elapsed() const { return clock.now() - 1000u; }

  FakeClock clock;
  FakeDevice device;
  FakeUsb usb;
  VORN_PORT port = nullptr;
  uint32_t transferred = 99;
};

TEST_F(UsbPortTest, ControlsAndReadRefusalOnTheRestrictedDevice) {
  uint8_t off = 0, on = 1, out = 9, buffer[4];
  uint32_t count = 0;
  EXPECT_EQ(vorn_io_control(port, 7, 0, nullptr, 0, &out, 1, &count), VORN_OK);
  EXPECT_EQ(out, 1);
  EXPECT_EQ(count, 1u);
  ASSERT_EQ(vorn_io_control(port, 6, 0, &off, 1, nullptr, 0, nullptr), VORN_OK);
  EXPECT_EQ(read(buffer, 0, 4), VORN_ERR_NOT_IMPLEMENTED);
  EXPECT_EQ(vorn_io_readexist(port, buffer, 0, 4, &transferred), VORN_ERR_NOT_IMPLEMENTED);
  EXPECT_EQ(vorn_io_write(port, &on, 0, 1, &transferred), VORN_OK);
  ASSERT_EQ(vorn_io_control(port, 6, 0, &on, 1, nullptr, 0, nullptr), VORN_OK);
  EXPECT_EQ(vorn_io_readexist(port, buffer, 0, 4, &transferred), VORN_OK);

  // Switched off on a device that is not the restricted one: no effect.
  usb.devices = {printer("/t", "USB\\VID_5A3C&PID_7008", "1-1")};
  ASSERT_EQ(vorn_io_control(port, 6, 0, &off, 1, nullptr, 0, nullptr), VORN_OK);
  ASSERT_EQ(vorn_io_open(port), VORN_OK);
  EXPECT_EQ(vorn_io_readexist(port, buffer, 0, 4, &transferred), VORN_OK);
  EXPECT_EQ(device.closes, 1) << "a second open gives up the first device";

  struct {
    uint32_t code;
    const void* input;
    uint32_t input_length;
    void* output;
    uint32_t output_length;
    int32_t result;
  } const rows[] = {
      {5, nullptr, 0, nullptr, 1, VORN_ERR_BUFFER_TOO_SMALL},
      {6, nullptr, 1, nullptr, 0, VORN_ERR_PARAMETER},
      {6, &on, 0, nullptr, 0, VORN_ERR_PARAMETER},
      {7, nullptr, 0, &out, 0, VORN_ERR_BUFFER_TOO_SMALL},
      {1, &on, 1, &out, 1, VORN_ERR_NOT_IMPLEMENTED},
      {8, &on, 1, &out, 1, VORN_ERR_NOT_IMPLEMENTED},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(vorn_io_control(port, row.code, 0, row.input, row.input_length, row.output,
                              row.output_length, nullptr),
              row.result)
        << "code " << row.code;
  }
}

TEST_F(UsbPortTest, OpenWithoutUriSearchesFirst) {
  io::Driver* driver = nullptr;
  ASSERT_EQ(io::create_driver(VORN_PORT_USB, &driver), VORN_OK);
  EXPECT_EQ(driver->ops->open(driver->state), VORN_ERR_IO_INVALID_SETTING);
  usb.devices.clear();
  EXPECT_EQ(driver->ops->open(driver->state), VORN_ERR_IO_USB_NOT_FOUND);
  usb.enumerate_error = 5;
  EXPECT_EQ(driver->ops->open(driver->state), 5);
  io::destroy_driver(driver);
}

TEST_F(UsbPortTest, TimedOutWriteAttemptIsAWriteTimeoutWithItsBytes) {
  device.write_script = {{.accept = 100, .timed_out = true, .ms = 50}};
  const Bytes data(300, 0x1B);
  EXPECT_EQ(vorn_io_write(port, data.data(), 0, 300, &transferred), VORN_ERR_IO_WRITE_TIMEOUT);
  EXPECT_EQ(transferred, 100u);
  EXPECT_EQ(device.write_waits, (U32s{5000}));
}

TEST_F(UsbPortTest, KillCancelsTheRunningTransferAndStopsTheNext) {
  ASSERT_EQ(vorn_io_kill(port), VORN_OK);
  EXPECT_EQ(usb.cancels, 1);
  uint8_t buffer[4];
  EXPECT_EQ(read(buffer, 0, 4), VORN_OK);
  EXPECT_EQ(transferred, 0u);
  EXPECT_EQ(vorn_io_write(port, buffer, 0, 4, &transferred), VORN_OK);
  EXPECT_EQ(transferred, 0u);
  EXPECT_TRUE(device.read_requests.empty());
  EXPECT_TRUE(device.write_requests.empty());
}

struct ReadCase {
  const char* what;
  std::deque<ReadStep> script;
  uint32_t offset, length;
  int32_t result;
  uint32_t transferred;
  Bytes delivered;  // buffer[offset .. offset + delivered.size())
  U32s requests;
  U32s waits;
  U32s sleeps;
  uint32_t elapsed;
  bool quick = false;  // readexist of offset + length bytes
};

class UsbReadTest : public UsbPortTest, public ::testing::WithParamInterface<ReadCase> {};

// A timed read's budget is 5 x length + 2000 with a read interval of 10; a
// quick read is one attempt of 100 ms and always succeeds.
TEST_P(UsbReadTest, OverlappedRead) {
  const ReadCase& c = GetParam();
  device.read_script = c.script;
  device.idle_read_ms = 0;
  Bytes buffer(c.offset + std::max<uint32_t>(c.length, 1) + 4, 0xEE);
  EXPECT_EQ(
      c.quick ? vorn_io_readexist(port, buffer.data(), c.offset, c.offset + c.length, &transferred)
              : read(buffer.data(), c.offset, c.length),
      c.result);
  EXPECT_EQ(transferred, c.transferred);
  EXPECT_EQ(Bytes(buffer.begin() + c.offset, buffer.begin() + c.offset + c.delivered.size()),
            c.delivered);
  EXPECT_EQ(buffer[c.offset + c.delivered.size()], 0xEE) << "nothing past what is delivered";
  EXPECT_EQ(device.read_requests, c.requests);
  EXPECT_EQ(device.read_waits, c.waits);
  EXPECT_EQ(clock.sleeps(), c.sleeps);
  EXPECT_EQ(elapsed(), c.elapsed);
}

Bytes count_up(uint8_t from, size_t n) {
  Bytes bytes(n);
  for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<uint8_t>(from + i);
  return bytes;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, UsbReadTest,
    ::testing::Values(
        ReadCase("longer answer keeps its last bytes", {{.bytes = count_up(1, 20), .ms = 3}}, 2, 10,
                 VORN_OK, 20, count_up(11, 10), {255}, {2050}, {}, 3),
        ReadCase("pieces: later attempts wait the read interval",
                 {{.bytes = {1, 2}, .ms = 4}, {.bytes = {3, 4, 5}, .ms = 6}}, 0, 5, VORN_OK, 5,
                 {1, 2, 3, 4, 5}, {255, 253}, {2025, 10}, {}, 10),
        ReadCase("silent device: one wait of the whole budget", {{.ms = 2020}}, 0, 4,
                 VORN_ERR_IO_READ_TIMEOUT, 0, {}, {255}, {2020}, {}, 2020),
        // The nap is counted in the next attempt's time, which is then too
        // long to nap after.
        ReadCase("empty answers: naps between attempts, five attempts",
                 {{.ms = 1}, {.ms = 1}, {.ms = 1}, {.ms = 1}, {.ms = 1}}, 0, 4,
                 VORN_ERR_IO_READ_TIMEOUT, 0, {}, {255, 255, 255, 255, 255},
                 {2020, 2019, 1918, 1917, 1816}, {100, 100}, 205),
        ReadCase("gap longer than the interval after the first data",
                 {{.bytes = {7}, .ms = 2}, {.ms = 11}}, 0, 3, VORN_ERR_IO_READ_TIMEOUT, 1, {7},
                 {255, 254}, {2015, 10}, {}, 13),
        ReadCase("five attempts without all bytes",
                 {{.bytes = {1}}, {.bytes = {2}}, {.bytes = {3}}, {.bytes = {4}}, {.bytes = {5}}},
                 0, 8, VORN_ERR_IO_READ_TIMEOUT, 5, {1, 2, 3, 4, 5}, {255, 254, 253, 252, 251},
                 {2040, 10, 10, 10, 10}, {}, 0),
        ReadCase("device error ends the read with what came", {{.bytes = {9}}, {.error = 5}}, 0, 3,
                 5, 1, {9}, {255, 254}, {2015, 10}, {}, 0),
        ReadCase("a read of nothing asks the printer nothing", {{.bytes = {1, 2}}}, 0, 0, VORN_OK,
                 0, {}, {}, {}, {}, 0),
        ReadCase("long reads go straight to the caller's buffer",
                 {{.bytes = count_up(0, 255)}, {.bytes = count_up(255, 45)}}, 1, 300, VORN_OK, 300,
                 count_up(0, 300), {300, 45}, {3500, 10}, {}, 0),
        ReadCase("quick read keeps the last bytes of a longer answer", {{.bytes = count_up(1, 12)}},
                 2, 8, VORN_OK, 12, count_up(5, 8), {64}, {100}, {}, 0, true),
        ReadCase("quick read of 64 bytes or more goes straight to the caller's buffer",
                 {{.bytes = {1, 2, 3}}}, 0, 70, VORN_OK, 3, {1, 2, 3}, {70}, {100}, {}, 0, true),
        ReadCase("quick read ignores a device error", {{.error = 5}}, 0, 8, VORN_OK, 0, {}, {64},
                 {100}, {}, 0, true)),
    case_name);

struct ListCase {
  const char* what;
  std::vector<FakeUsbDevice> devices;
  int32_t size;
  int32_t flag;
  std::string text;
  uint32_t used;
};

class UsbListingTest : public ::testing::TestWithParam<ListCase> {};

TEST_P(UsbListingTest, ListsSupportedPrintersByLocation) {
  const ListCase& c = GetParam();
  FakeUsb usb;
  usb.devices = c.devices;
  std::vector<char> buffer(c.size + 8, 'Z');
  uint32_t used = 99;
  EXPECT_EQ(vorn_io_list_usb(buffer.data(), c.size, &used, c.flag), VORN_OK);
  EXPECT_EQ(std::string(buffer.data()), c.text);
  EXPECT_EQ(used, c.used);
  for (int32_t i = static_cast<int32_t>(c.text.size()); i < c.size; ++i) {
    ASSERT_EQ(buffer[i], 0) << "byte " << i << " cleared";
  }
  EXPECT_EQ(buffer[c.size], 'Z') << "nothing written past the buffer";
}

const std::string k20a = "1-1.1.1.1.1.1.1.1.1a";
const std::string k20b = "1-1.1.1.1.1.1.1.1.1b";

INSTANTIATE_TEST_SUITE_P(
    Cases, UsbListingTest,
    ::testing::Values(ListCase("two printers joined",
                               {printer("/a", "USB\\VID_5A3C&PID_7009", k20a),
                                printer("/h", "USB\\VID_1111&PID_0001", "1-5"),
                                printer("/r", "USB\\VID_0FE6&PID_811E", "1-6"),
                                printer("/b", "usb\\vid_5a3d&pid_0042", k20b)},
                               64, 0, k20a + "|" + k20b, 42),
                      ListCase("entry that would fill the buffer is left out",
                               {printer("/a", "USB\\VID_5A3C&PID_7009", k20a)}, 21, 0, "", 0),
                      ListCase("one byte more and it fits",
                               {printer("/a", "USB\\VID_5A3C&PID_7009", k20a)}, 22, 0, k20a, 21),
                      ListCase("a later shorter entry still fits",
                               {printer("/a", "USB\\VID_5A3C&PID_7009", k20a),
                                printer("/b", "USB\\VID_5A3C&PID_7008", "1-2")},
                               12, 0, "1-2", 4),
                      ListCase("flag lists nothing",
                               {printer("/a", "USB\\VID_5A3C&PID_7009", k20a)}, 64, 1, "", 0),
                      ListCase("location too long or missing gives an empty entry",
                               {printer("/a", "USB\\VID_5A3C&PID_7009", std::string(128, 'L')),
                                {"/b", "USB\\VID_5A3C&PID_7009", std::nullopt, "x"},
                                printer("/c", "USB\\VID_5A3C&PID_7009", std::string(127, 'L'))},
                               200, 0, "||" + std::string(127, 'L'), 130)),
    case_name);

TEST(UsbListing, FailedEnumerationAndBadArguments) {
  FakeUsb usb;
  usb.enumerate_error = -300;
  char buffer[8] = {'x'};
  uint32_t used = 5;
  EXPECT_EQ(vorn_io_list_usb(buffer, 8, &used, 0), -300);
  EXPECT_EQ(used, 0u);
  EXPECT_EQ(buffer[0], 0);
  EXPECT_EQ(vorn_io_list_usb(buffer, 8, nullptr, 0), VORN_ERR_PARAMETER);
  EXPECT_EQ(vorn_io_list_usb(nullptr, 8, &used, 0), VORN_ERR_PARAMETER);
}

}  // namespace
}  // namespace vorn::test
