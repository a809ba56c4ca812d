// The serial driver: ports of type "COM" and "BSP", handled alike. The line
// runs at 8N1 without flow control at the URI's "baudrate", with the port's
// timeouts programmed as the line's own.
#pragma once

#include <cstdint>

#include "io/driver.h"
#include "io/handle_port.h"

namespace vorn::io {

struct SerialState {
  HandlePortState core;  // first, so the shared operations can take the state
  uint32_t baud_rate;
  // 1 until the application sets timeouts: while set, open derives the write
  // constant from the baud rate.
  uint32_t automatic_write_timeout;
};

// The baud rate named by a "baudrate" value; 0 unless the text is exactly one
// of the supported rates.
uint32_t baud_rate_from_text(const char* text);

// The write constant a port gets at open while its timeouts are automatic:
// enough for a whole transfer unit to go out at `baud_rate`, at least 2000 ms.
uint32_t automatic_write_constant(uint32_t transfer_unit, uint32_t baud_rate);

extern const DriverOps kSerialDriverOps;
// A new state with the defaults; null when memory runs out.
void* new_serial_state();

}  // namespace vorn::io
