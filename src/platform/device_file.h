// Device files: a parallel port, a printer device node or an existing file,
// opened by name and moved one bounded attempt at a time. The handle port core
// keeps all loops, budgets and retries; it asks this family for one attempt.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vorn::platform {

// An open device; kNoDevice when none.
using DeviceHandle = intptr_t;
inline constexpr DeviceHandle kNoDevice = -1;

// What one attempt did. `done` counts the bytes moved, also on failure.
struct Attempt {
  int32_t error = 0;       // 0, or a positive system error number
  uint32_t done = 0;       // bytes written or read
  bool timed_out = false;  // the wait ran out before the device was ready
};

struct DeviceFileOps {
  // Opens an existing device or file for reading and writing, not shared.
  // Never creates a file. `overlapped` asks for a handle that supports waits
  // on each transfer (USB). Returns 0 or a positive system error number.
  int32_t (*open_existing)(const char* path, bool overlapped, DeviceHandle* out);
  // Closes a handle from open_existing. Never fails.
  void (*close)(DeviceHandle handle);
  // One write of up to `length` bytes. Waits at most `wait_ms` milliseconds
  // for the device to take data; when it takes none in that time the attempt
  // returns with timed_out set and done 0. May block up to wait_ms.
  Attempt (*write)(DeviceHandle handle, const uint8_t* data, uint32_t length, uint32_t wait_ms);
  // One read of up to `length` bytes, waiting at most `wait_ms` for the first
  // byte; returns what arrived (done 0 at end of file or on timeout).
  Attempt (*read)(DeviceHandle handle, uint8_t* buffer, uint32_t length, uint32_t wait_ms);
  // True for the errors a device reports when it merely has no data path
  // back (a printer port that cannot be read): byte-polling reads treat them
  // as "nothing arrived".
  bool (*is_no_data_error)(int32_t error);
  // Cuts short the attempt running on `handle` and every later one: each
  // returns soon with the bytes it moved so far, no error and not timed out.
  // Called from another thread while an attempt on the handle may be running;
  // never while the handle is being closed (the core keeps the two apart).
  // Null when the family cannot cut an attempt short: a kill is then seen
  // only between attempts.
  void (*cancel)(DeviceHandle handle);
};

// The device to open for a parallel port name, zero-terminated in `out`.
void parallel_device_path(const char* name, char* out, size_t size);

const DeviceFileOps& device_file();
const DeviceFileOps* install_device_file(const DeviceFileOps* ops);
const DeviceFileOps& native_device_file();

}  // namespace vorn::platform
