// USB printers: the devices present, described the way the printer search
// matches them, and one opened printer moved one bounded attempt at a time.
//
// The texts of a device follow the conventions of the system's own device
// manager so that the search and listing are the same portable code on
// every system:
//   hardware identifier  "USB\VID_xxxx&PID_xxxx&REV_xxxx", upper-case hex of
//                        idVendor, idProduct and bcdDevice (more text may
//                        follow; only substrings are looked for)
//   location             where the device is plugged in, as the system shows
//                        it to its users (Linux: the port path "1-1.4")
//   service              the name of the system driver that serves the
//                        device; "usbprint" when it is a printer-class device
//   path                 what `open` takes
//
// A Linux backend reaches the devices through usbfs (libusb); a Windows
// backend through the device-interface list of the USB device class and an
// overlapped file handle on the interface path.
#pragma once

#include <cstdint>

#include "platform/device_file.h"

namespace vorn::platform {

// One present device. A text the system could not give is null.
struct UsbDevice {
  const char* path;
  const char* hardware_id;
  const char* location;
  const char* service;
};

// Called once per present device, in the system's enumeration order; returns
// false to end the enumeration early.
using UsbVisitor = bool (*)(const UsbDevice& device, void* context);

struct UsbOps {
  // Visits the present devices. The texts live only during the visit. Returns
  // 0, a positive system error number when the device list could not be had
  // or released, or -300 when that failed without a system number.
  int32_t (*enumerate)(UsbVisitor visit, void* context);

  // Opens the device at `path` for bulk transfers on its printer interface
  // (the printer-class interface, else the first one with a bulk OUT
  // endpoint), taking that interface from a system driver that holds it
  // until close. Returns 0, -372 when no present device has that path, or a
  // positive system error number (access denied, interface busy, ...).
  int32_t (*open)(const char* path, DeviceHandle* out);
  // Releases the interface, gives it back to the system driver that held it
  // and closes the handle. Never fails. Not concurrent with any other call
  // on the handle.
  void (*close)(DeviceHandle handle);

  // One bulk OUT transfer of up to `length` bytes, waiting at most `wait_ms`
  // (0 counts as the shortest wait the system offers, never as "forever").
  // When the wait runs out the transfer is cancelled and the attempt reports
  // timed_out with the bytes that went out before. Blocks the caller.
  Attempt (*write)(DeviceHandle handle, const uint8_t* data, uint32_t length, uint32_t wait_ms);
  // One bulk IN transfer of up to `length` bytes with the same wait rule;
  // timed_out only when the wait ran out with nothing received.
  Attempt (*read)(DeviceHandle handle, uint8_t* buffer, uint32_t length, uint32_t wait_ms);

  // Ends the running transfer of the handle at once and makes every later
  // transfer on it end at once, each with what it moved so far and no
  // error. Called from any thread while another thread may be inside write
  // or read on the same handle.
  void (*cancel)(DeviceHandle handle);
};

const UsbOps& usb();
// Installs `ops` (null: back to the native backend); returns what was in force.
const UsbOps* install_usb(const UsbOps* ops);
const UsbOps& native_usb();

}  // namespace vorn::platform
