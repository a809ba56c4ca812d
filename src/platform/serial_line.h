// Serial lines: a serial device opened as a file, set to 8 data bits, no
// parity, one stop bit and no flow control, with line timeouts that bound
// every transfer the way a serial handle's own timeouts bound it.
//
// A serial handle is moved through the `files` table below (a device-file
// table whose reads and writes honour the handle's line timeouts rather than
// the wait the caller passes), so the handle port core's one-attempt reads
// and writes serve a serial line unchanged.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/device_file.h"

namespace vorn::platform {

// The five line timeouts in milliseconds, with the meaning of the serial
// timeouts of the same names: a read of n bytes ends when n bytes arrived,
// when read_multiplier x n + read_constant ran out (both 0: no limit), or when
// read_interval passed after a byte without the next one (0: no limit). A
// write of n bytes ends when all are taken or write_multiplier x n +
// write_constant ran out (both 0: no limit). read_interval = UINT32_MAX with
// both read totals 0 returns at once with what is there.
struct LineTimeouts {
  uint32_t read_interval = 0;
  uint32_t read_multiplier = 0;
  uint32_t read_constant = 0;
  uint32_t write_multiplier = 0;
  uint32_t write_constant = 0;
};

// How the line setup went: reading the device's settings failed, or writing
// them back did (the driver reports these as its own codes).
enum class LineSetup { kDone, kReadFailed, kWriteFailed };

struct SerialLineOps {
  // Opens, closes, reads and writes serial handles.
  const DeviceFileOps* files;
  // 8N1 at `baud_rate` (one of the standard rates), no hardware or software
  // flow control, DTR and RTS switched off where the device allows it.
  LineSetup (*configure)(DeviceHandle handle, uint32_t baud_rate);
  // The handle's line timeouts; false when they cannot be read or written.
  bool (*get_timeouts)(DeviceHandle handle, LineTimeouts* out);
  bool (*set_timeouts)(DeviceHandle handle, const LineTimeouts& timeouts);
  // Sizes of the driver's input and output queues; false when refused.
  bool (*set_queue_sizes)(DeviceHandle handle, uint32_t input, uint32_t output);
  // Discards what waits in both directions. 0 or a positive system error.
  int32_t (*purge)(DeviceHandle handle);
};

// The device to open for a serial port name, zero-terminated in `out`.
void serial_device_path(const char* name, char* out, size_t size);

const SerialLineOps& serial_line();
const SerialLineOps* install_serial_line(const SerialLineOps* ops);
const SerialLineOps& native_serial_line();

// The device-file table of the serial line in force; what a serial port's
// handle port state talks through.
inline const DeviceFileOps& serial_device_file() {
  return *serial_line().files;
}

}  // namespace vorn::platform
