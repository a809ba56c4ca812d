// The USB driver: ports of type "USB". At every open it looks through the
// USB devices present and picks the printer by vendor and product, by the
// place it is plugged in, or failing both, any printer-class device.
#pragma once

#include <cstdint>

#include "io/driver.h"
#include "io/handle_port.h"

namespace vorn::io {

struct UsbState {
  HandlePortState core;       // first, so the shared operations can take the state
  uint8_t restricted_device;  // the device chosen last is the restricted one
  uint8_t any_device;         // no location or port number given
  char model_name[256];       // the port name unless "DEVICE"; kept, not searched for
  char location[256];         // the "location" option
  char port_number[256];      // the "portnum" option; kept, not compared
  uint8_t read_enabled;       // reading the restricted device is refused while 0
};

// The supported printers: 1 + the index of the first vendor table entry that
// occurs in `upper_hardware_id` (already upper-cased), 0 for none.
int usb_vendor_table_match(const char* upper_hardware_id);

// The device that is chosen when met although it is not in the table.
bool usb_is_restricted(const char* upper_hardware_id);
// True when a device of this service may stand in for a supported printer.
bool usb_serves_printers(const char* service);

// ASCII letters a to z to upper case, in place, within `size` bytes.
void usb_upper(char* text, std::size_t size);

extern const DriverOps kUsbDriverOps;
// A new state with the defaults; null when memory runs out.
void* new_usb_state();

}  // namespace vorn::io
