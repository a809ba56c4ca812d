// USB ports end to end through libusb, against printers emulated by
// umockdev. Waits are kept short: the emulated usbfs node never blocks, so
// libusb polls it busily while a transfer waits.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "commands.h"
#include "printer/session.h"
#include "support/wall_clock.h"
#include "support/wide_text.h"
#include "test_printer.h"

namespace vorn::test {
namespace {

using Bytes = std::vector<uint8_t>;
using Clock = WallClock;

const EmulatedDevice kVendorClassPrinter{"1-1.4", 5, 0x5A3C, 0x7008, 0x0100, 0xFF};
const EmulatedDevice kPrinterClassPrinter{"1-2", 3, 0x067E, 0x000D, 0x0200, 7};
const EmulatedDevice kUnlistedPrinter{"1-3", 4, 0x1234, 0x5678, 0x0100, 7};
const EmulatedDevice kMouse{"1-1.1", 6, 0x046D, 0xC52B, 0x1200, 3};

class UsbPrinterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!EmulatedUsb::available()) GTEST_SKIP() << "needs umockdev-wrapper";
    bed = std::make_unique<EmulatedUsb>();
  }
  // Sends `bytes` through a new port on `uri`; the open's result.
  int32_t send(const char* uri, const Bytes& bytes) {
    VORN_PORT port = nullptr;
    EXPECT_EQ(vorn_io_port_creator(&port, uri), VORN_OK);
    int32_t result = vorn_io_open(port);
    if (result == VORN_OK) {
      uint32_t transferred = 0;
      EXPECT_EQ(
          vorn_io_write(port, bytes.data(), 0, static_cast<uint32_t>(bytes.size()), &transferred),
          VORN_OK);
      EXPECT_EQ(transferred, bytes.size());
    }
    vorn_io_port_destroy(port);
    return result;
  }

  std::unique_ptr<EmulatedUsb> bed;
};

TEST_F(UsbPrinterTest, OpensByVendorTableAndByLocationAndListsBoth) {
  bed->add(kMouse);
  TestPrinter& first = bed->add(kVendorClassPrinter);
  TestPrinter& second = bed->add(kPrinterClassPrinter);

  char list[64];
  uint32_t used = 0;
  ASSERT_EQ(vorn_io_list_usb(list, sizeof list, &used, 0), VORN_OK);
  EXPECT_STREQ(list, "1-1.4|1-2");
  EXPECT_EQ(used, 10u);
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(cli::run_command({"list-usb"}), 0);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "1-1.4\n1-2\n");
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(cli::run_command({"list-usb", "--all"}), 0);
  const std::string all = ::testing::internal::GetCapturedStdout();
  EXPECT_NE(all.find("/dev/bus/usb/001/006\tUSB\\VID_046D&PID_C52B&REV_1200\t1-1.1\thid\tnot a "
                     "printer\n"),
            std::string::npos)
      << all;
  EXPECT_NE(all.find("/dev/bus/usb/001/003\tUSB\\VID_067E&PID_000D&REV_0200\t1-2\tusbprint\t"
                     "supported printer\n"),
            std::string::npos)
      << all;

  Bytes data(10000);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 7);
  VORN_PORT port = nullptr;
  ASSERT_EQ(vorn_io_port_creator(&port, "USB"), VORN_OK);
  ASSERT_EQ(vorn_io_open(port), VORN_OK);
  EXPECT_FALSE(first.kernel_driver_bound()) << "detached while open";
  EXPECT_TRUE(first.interface_claimed());
  uint32_t transferred = 0;
  EXPECT_EQ(vorn_io_write(port, data.data(), 0, 10000, &transferred), VORN_OK);
  EXPECT_EQ(transferred, 10000u);
  EXPECT_EQ(vorn_io_close(port), VORN_OK);
  EXPECT_TRUE(first.kernel_driver_bound()) << "given back at close";
  EXPECT_FALSE(first.interface_claimed());
  vorn_io_port_destroy(port);
  EXPECT_EQ(first.received(), data);

  EXPECT_EQ(send("vorn:/dev/bus/USB/DEVICE?location=1-2", {0x1B, 0x40}), VORN_OK);
  EXPECT_EQ(second.received(), (Bytes{0x1B, 0x40}));
  EXPECT_EQ(first.received().size(), 10000u);
  EXPECT_EQ(send("vorn:/dev/bus/USB/DEVICE?location=1-1", {0x0A}), VORN_ERR_IO_USB_NOT_FOUND);
}

TEST_F(UsbPrinterTest, PrinterClassDeviceStandsInForSupportedPrinters) {
  bed->add(kMouse);
  EXPECT_EQ(send("USB", {0x0A}), VORN_ERR_IO_USB_NOT_FOUND);
  TestPrinter& printer = bed->add(kUnlistedPrinter);
  EXPECT_EQ(send("USB", {0x1B, 0x40, 0x0A}), VORN_OK);
  EXPECT_EQ(printer.received(), (Bytes{0x1B, 0x40, 0x0A}));
  char list[16];
  uint32_t used = 9;
  ASSERT_EQ(vorn_io_list_usb(list, sizeof list, &used, 0), VORN_OK);
  EXPECT_EQ(used, 0u) << "only supported printers are listed";
}

TEST_F(UsbPrinterTest, StatusCommandReadsTheAnswers) {
  bed->add(kVendorClassPrinter);  // met first, but not at the location asked for
  TestPrinter& printer = bed->add(kPrinterClassPrinter);
  printer.answer({0x10, 0x04, 0x01}, {0x12});
  printer.answer({0x10, 0x04, 0x02}, {0x16});  // cover open
  printer.answer({0x10, 0x04, 0x03}, {0x12});
  printer.answer({0x10, 0x04, 0x04}, {0x12});
  printer.answer({0x1D, 0x72, 0x02}, {0x00});
  ::testing::internal::CaptureStdout();
  const int status = cli::run_command({"status", "--model", "VR-T80A", "--port", "USB,1-2"});
  const std::string out = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(status, 0) << out;
  EXPECT_NE(out.find("printer state 0x02: cover open"), std::string::npos) << out;
  EXPECT_NE(out.find("pin 3 low"), std::string::npos) << out;
}

TEST_F(UsbPrinterTest, StalledPrinterTimesOutAndKeepsTheBytesForTheNextCall) {
  TestPrinter& printer = bed->add(kPrinterClassPrinter);
  VORN_PRINTER handle = nullptr;
  ASSERT_EQ(PrinterCreator(&handle, VW("VR-T80A")), VORN_OK);
  ASSERT_EQ(PortOpen(handle, VW("USB")), VORN_OK);
  ASSERT_EQ(vorn_io_set_timeout(handle->port, 10, 0, 150, 0, 150, 0), VORN_OK);
  printer.set_stalled(true);
  const auto start = Clock::now();
  EXPECT_EQ(PrinterInitialize(handle), VORN_ERR_IO_WRITE_TIMEOUT);
  EXPECT_GE(ms_since(start), 140);
  EXPECT_LT(ms_since(start), 2000);
  printer.set_stalled(false);
  EXPECT_EQ(FeedLine(handle, 2), VORN_OK);
  EXPECT_EQ(printer.received(), (Bytes{0x1B, 0x40, 0x1B, 0x64, 0x02}));
  PrinterDestroy(handle);
}

TEST_F(UsbPrinterTest, SilentReadTimesOutWithinItsBudgetAndKillEndsAWaitingWrite) {
  TestPrinter& printer = bed->add(kPrinterClassPrinter);
  VORN_PORT port = nullptr;
  ASSERT_EQ(vorn_io_port_creator(&port, "USB"), VORN_OK);
  ASSERT_EQ(vorn_io_open(port), VORN_OK);
  ASSERT_EQ(vorn_io_set_timeout(port, 10, 0, 150, 0, 5000, 0), VORN_OK);
  uint8_t buffer[4];
  uint32_t transferred = 9;
  auto start = Clock::now();
  EXPECT_EQ(vorn_io_read(port, buffer, 0, 4, &transferred), VORN_ERR_IO_READ_TIMEOUT);
  EXPECT_EQ(transferred, 0u);
  EXPECT_GE(ms_since(start), 140);
  EXPECT_LT(ms_since(start), 1000);

  printer.set_stalled(true);
  start = Clock::now();
  auto writing = std::async(std::launch::async, [&] {
    uint32_t written = 9;
    const int32_t result = vorn_io_write(port, buffer, 0, 4, &written);
    return std::make_pair(result, written);
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  ASSERT_EQ(vorn_io_kill(port), VORN_OK);
  const auto [result, written] = writing.get();
  EXPECT_EQ(result, VORN_OK);
  EXPECT_EQ(written, 0u);
  EXPECT_LT(ms_since(start), 2000) << "the write's wait was 5000 ms";
  vorn_io_port_destroy(port);
}

}  // namespace
}  // namespace vorn::test
