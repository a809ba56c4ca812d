// The USB driver and listing on the system's own device list. Wine's
// SetupAPI lists no USB device, so this is the machine without a printer:
// the list is valid and empty, and every open finds nothing.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <string>
#include <vector>

#include "support/wide_text.h"

namespace vorn::test {
namespace {

TEST(Usb, WithoutDevicesTheListIsEmptyAndEveryOpenFindsNothing) {
  for (int32_t flag : {0, 1}) {
    std::vector<char> buffer(64, 'Z');
    uint32_t used = 99;
    EXPECT_EQ(vorn_io_list_usb(buffer.data(), static_cast<int32_t>(buffer.size()), &used, flag),
              VORN_OK)
        << flag;
    EXPECT_EQ(used, 0u) << flag;
    EXPECT_EQ(buffer, std::vector<char>(64, '\0')) << flag;
  }
  for (const char* uri : {"vorn:/dev/bus/USB/DEVICE", "USB",
                          "vorn:/dev/bus/USB/DEVICE?location=PORT_#0001.HUB_#0001"}) {
    VORN_PORT port = nullptr;
    ASSERT_EQ(vorn_io_port_creator(&port, uri), VORN_OK) << uri;
    EXPECT_EQ(vorn_io_open(port), VORN_ERR_IO_USB_NOT_FOUND) << uri;
    EXPECT_EQ(vorn_io_port_destroy(port), VORN_OK) << uri;
  }
  VORN_PRINTER printer = PrinterCreatorS("unknown");
  ASSERT_NE(printer, nullptr);
  EXPECT_EQ(PortOpen(printer, VW("USB")), VORN_ERR_IO_USB_NOT_FOUND);
  EXPECT_EQ(PrinterDestroy(printer), VORN_OK);
}

}  // namespace
}  // namespace vorn::test
