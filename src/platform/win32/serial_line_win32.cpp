// Serial lines on Windows: a COM port opened as a file, set up through its
// device control block, with the line timeouts held by the driver itself,
// so every ReadFile and WriteFile is bounded by them.
#include <windows.h>

#include "platform/serial_line.h"
#include "platform/win32/win32_error.h"

namespace vorn::platform {
namespace {

HANDLE file_of(DeviceHandle handle) {
  return reinterpret_cast<HANDLE>(handle);
}

int32_t open_line(const char* path, bool /*overlapped*/, DeviceHandle* out) {
  // No sharing, no overlapped input/output: the driver's timeouts bound
  // each call.
  HANDLE file =
      CreateFileA(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return last_error_or(ERROR_OPEN_FAILED);
  *out = reinterpret_cast<DeviceHandle>(file);
  return 0;
}

void close_line(DeviceHandle handle) {
  if (handle != kNoDevice) CloseHandle(file_of(handle));
}

// A line error (framing, overrun, a break) stops all further transfers on a
// port set to abort on errors until it is cleared; the failing call still
// reports its own error.
void clear_line_error(HANDLE file) {
  DWORD errors = 0;
  ClearCommError(file, &errors, nullptr);
}

Attempt transfer(DeviceHandle handle, void* data, uint32_t length, bool writing) {
  Attempt attempt;
  HANDLE file = file_of(handle);
  DWORD done = 0;
  SetLastError(0);
  const BOOL ok = writing ? WriteFile(file, data, length, &done, nullptr)
                          : ReadFile(file, data, length, &done, nullptr);
  attempt.done = done;
  if (!ok) {
    attempt.error = last_error_or(ERROR_GEN_FAILURE);
    clear_line_error(file);
  } else if (writing && done == 0 && length > 0) {
    // The write timeout ended the call before the line took a byte.
    attempt.error = static_cast<int32_t>(GetLastError());
  }
  return attempt;
}

Attempt write_line(DeviceHandle handle, const uint8_t* data, uint32_t length,
                   uint32_t /*wait_ms*/) {
  return transfer(handle, const_cast<uint8_t*>(data), length, true);
}

Attempt read_line(DeviceHandle handle, uint8_t* buffer, uint32_t length, uint32_t /*wait_ms*/) {
  return transfer(handle, buffer, length, false);
}

// Serial reads are never polled byte by byte, so no error means "no data".
bool never_no_data(int32_t) {
  return false;
}

LineSetup configure(DeviceHandle handle, uint32_t baud_rate) {
  DCB settings{};
  settings.DCBlength = sizeof settings;
  if (!GetCommState(file_of(handle), &settings)) return LineSetup::kReadFailed;
  // 8N1 without flow control; every other flag stays as the port had it.
  settings.BaudRate = baud_rate;
  settings.ByteSize = 8;
  settings.Parity = NOPARITY;
  settings.StopBits = ONESTOPBIT;
  settings.fOutxCtsFlow = FALSE;
  settings.fOutxDsrFlow = FALSE;
  settings.fOutX = FALSE;
  settings.fInX = FALSE;
  settings.fDtrControl = DTR_CONTROL_DISABLE;
  settings.fRtsControl = RTS_CONTROL_DISABLE;
  if (!SetCommState(file_of(handle), &settings)) return LineSetup::kWriteFailed;
  return LineSetup::kDone;
}

bool get_timeouts(DeviceHandle handle, LineTimeouts* out) {
  COMMTIMEOUTS t{};
  if (out == nullptr || !GetCommTimeouts(file_of(handle), &t)) return false;
  out->read_interval = t.ReadIntervalTimeout;
  out->read_multiplier = t.ReadTotalTimeoutMultiplier;
  out->read_constant = t.ReadTotalTimeoutConstant;
  out->write_multiplier = t.WriteTotalTimeoutMultiplier;
  out->write_constant = t.WriteTotalTimeoutConstant;
  return true;
}

bool set_timeouts(DeviceHandle handle, const LineTimeouts& timeouts) {
  COMMTIMEOUTS t{};
  t.ReadIntervalTimeout = timeouts.read_interval;
  t.ReadTotalTimeoutMultiplier = timeouts.read_multiplier;
  t.ReadTotalTimeoutConstant = timeouts.read_constant;
  t.WriteTotalTimeoutMultiplier = timeouts.write_multiplier;
  t.WriteTotalTimeoutConstant = timeouts.write_constant;
  return SetCommTimeouts(file_of(handle), &t) != 0;
}

bool set_queue_sizes(DeviceHandle handle, uint32_t input, uint32_t output) {
  return SetupComm(file_of(handle), input, output) != 0;
}

int32_t purge(DeviceHandle handle) {
  if (PurgeComm(file_of(handle), PURGE_TXCLEAR | PURGE_RXCLEAR)) return 0;
  return last_error_or(ERROR_GEN_FAILURE);
}

constexpr DeviceFileOps kLineFiles = {
    .open_existing = open_line,
    .close = close_line,
    .write = write_line,
    .read = read_line,
    .is_no_data_error = never_no_data,
    // Attempts here are not cut short yet: a kill takes effect between them.
    .cancel = nullptr,
};

constexpr SerialLineOps kWin32SerialLine = {
    .files = &kLineFiles,
    .configure = configure,
    .get_timeouts = get_timeouts,
    .set_timeouts = set_timeouts,
    .set_queue_sizes = set_queue_sizes,
    .purge = purge,
};

}  // namespace

const SerialLineOps& native_serial_line() {
  return kWin32SerialLine;
}

}  // namespace vorn::platform
