// The state and loops shared by the drivers whose device the system opens as
// a file (serial, parallel, USB): chunked writes within a write budget, timed
// reads, quick reads of what is already there, and the common operations.
#pragma once

#include <cstddef>
#include <cstdint>

#include "io/driver.h"
#include "platform/device_file.h"

namespace vorn::io {

inline constexpr uint32_t kTransferUnit = 4096;
inline constexpr uint32_t kDefaultTimeouts[kTimeoutCount] = {10, 5, 2000, 10, 2000, 2000};

struct HandlePortState {
  uint8_t has_uri;
  char uri[256];       // normalised URI, zero-terminated
  char port_name[32];  // the USB driver's port name
  uint8_t open;        // changed only under the port lock, with `handle`
  uint8_t kill_mark;   // only under the port lock
  uint32_t timeouts[kTimeoutCount];
  uint32_t transfer_unit;  // largest piece handed to one write attempt
  char device_path[256];
  platform::DeviceHandle handle;
  uint8_t kind;        // VORN_PORT_SERIAL, VORN_PORT_PARALLEL or VORN_PORT_USB
  uint8_t overlapped;  // every transfer waits with a limit and can be cancelled
  // The device family this port talks through, looked up at each use so that
  // tests may replace it.
  const platform::DeviceFileOps& (*device)();
};

// Initial values: all zero but the default timeouts, the transfer unit, the
// kind and the overlapped flag; talks through the platform's device files.
void init_handle_port_state(HandlePortState* state, uint8_t kind, bool overlapped);

// Stores `uri` (already normalised) as the port's URI.
void store_uri(HandlePortState* state, const char* uri);

// Driver operations that are the same for every handle port.
int32_t handle_port_get_uri(void* state, char* buffer, uint32_t size, uint32_t* length);
int32_t handle_port_close(void* state);
int32_t handle_port_kill(void* state);
int32_t handle_port_flush(void* state);
int32_t handle_port_set_timeout(void* state, const uint32_t values[kTimeoutCount]);
int32_t handle_port_get_timeout(void* state, uint32_t values[kTimeoutCount]);

// Answers a control code that reports one byte: the byte into `output` and,
// when asked for, a count of 1.
int32_t report_byte(uint8_t value, void* output, uint32_t output_length, uint32_t* output_count);

// Opens the device path; 0 or the system's error number.
int32_t handle_port_open_device(HandlePortState* state);
// Opens the device that `device_path_for` gives for the port name of the
// stored URI. The name is looked up at each open, as the system opening it by
// name would: a file made after the port, or a change of working directory,
// counts.
int32_t handle_port_open_named(HandlePortState* state,
                               void (*device_path_for)(const char* name, char* out, size_t size));

// Writes `length` bytes from data + offset in pieces of at most the transfer
// unit, within write multiplier x length + write constant milliseconds overall
// and multiplier x piece + constant per piece. -322 when a budget runs out;
// 0 with the bytes so far once the port is killed.
int32_t chunked_write(HandlePortState* state, const uint8_t* data, uint32_t offset, uint32_t length,
                      uint32_t* transferred);
// Reads up to `length` bytes into buffer + offset within read multiplier x
// length + read constant milliseconds. -332 when the budget runs out.
int32_t timed_read(HandlePortState* state, uint8_t* buffer, uint32_t offset, uint32_t length,
                   uint32_t* transferred);
// Reads what is already waiting, at most size - offset bytes.
int32_t quick_read(HandlePortState* state, uint8_t* buffer, uint32_t offset, uint32_t size,
                   uint32_t* transferred);

}  // namespace vorn::io
