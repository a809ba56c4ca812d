// Serial lines on Windows: a COM port opened as a file, set up through its
// device control block, with the line timeouts held by the driver itself,
// so every ReadFile and WriteFile is bounded by them.
//
// Transfers are overlapped, each waited for until the driver ends it (the
// line timeouts still bound it) or a kill from another thread sets the
// line's cancel event: a synchronous transfer cannot be relied on to stop
// for CancelIoEx from another thread on every system that runs the DLL.
#include <windows.h>

#include <atomic>
#include <new>

#include "platform/serial_line.h"
#include "platform/win32/win32_error.h"

namespace vorn::platform {
namespace {

struct OpenLine {
  HANDLE file = INVALID_HANDLE_VALUE;
  // Manual-reset events: one reused by every transfer, one set by a kill.
  HANDLE done = nullptr;
  HANDLE killed = nullptr;
  // Set by a kill too: every later transfer ends at once.
  std::atomic<bool> cancelled{false};
};

OpenLine& line_of(DeviceHandle handle) {
  return *reinterpret_cast<OpenLine*>(handle);
}

HANDLE file_of(DeviceHandle handle) {
  return line_of(handle).file;
}

void free_line(OpenLine* line) {
  if (line->file != INVALID_HANDLE_VALUE) CloseHandle(line->file);
  if (line->done != nullptr) CloseHandle(line->done);
  if (line->killed != nullptr) CloseHandle(line->killed);
  delete line;
}

int32_t open_line(const char* path, bool /*overlapped*/, DeviceHandle* out) {
  auto* line = new (std::nothrow) OpenLine;
  if (line == nullptr) return ERROR_NOT_ENOUGH_MEMORY;
  // No sharing: a second opener of the same port is refused by the system.
  line->file = CreateFileA(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                           FILE_FLAG_OVERLAPPED, nullptr);
  if (line->file == INVALID_HANDLE_VALUE) {
    const int32_t error = last_error_or(ERROR_OPEN_FAILED);
    free_line(line);
    return error;
  }
  line->done = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  line->killed = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  if (line->done == nullptr || line->killed == nullptr) {
    const int32_t error = last_error_or(ERROR_NOT_ENOUGH_MEMORY);
    free_line(line);
    return error;
  }
  *out = reinterpret_cast<DeviceHandle>(line);
  return 0;
}

void close_line(DeviceHandle handle) {
  if (handle != kNoDevice) free_line(&line_of(handle));
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
  const OpenLine& line = line_of(handle);
  if (line.cancelled) return attempt;
  OVERLAPPED record{};
  record.hEvent = line.done;
  ResetEvent(line.done);
  SetLastError(0);
  BOOL ok = writing ? WriteFile(line.file, data, length, nullptr, &record)
                    : ReadFile(line.file, data, length, nullptr, &record);
  if (!ok && GetLastError() == ERROR_IO_PENDING) {
    const HANDLE events[2] = {line.done, line.killed};
    if (WaitForMultipleObjects(2, events, FALSE, INFINITE) != WAIT_OBJECT_0) {
      CancelIo(line.file);
    }
    ok = TRUE;
  }
  DWORD done = 0;
  // Waits until the system has let go of the buffer and the record on this
  // stack, also after a cancel.
  if (ok) {
    SetLastError(0);
    ok = GetOverlappedResult(line.file, &record, &done, TRUE);
    // Some systems complete a transfer the line timeouts ended with "timed
    // out" where a synchronous call reports success with fewer bytes.
    if (!ok && GetLastError() == ERROR_TIMEOUT) {
      ok = TRUE;
      done = static_cast<DWORD>(record.InternalHigh);
      SetLastError(0);
    }
  }
  attempt.done = done;
  if (!ok) {
    attempt.error = last_error_or(ERROR_GEN_FAILURE);
    clear_line_error(line.file);
  } else if (writing && done == 0 && length > 0) {
    // The write timeout ended the call before the line took a byte.
    attempt.error = static_cast<int32_t>(GetLastError());
  }
  // A transfer cut short by a kill ends with what it moved, without the
  // system's "aborted".
  if (line.cancelled) attempt.error = 0;
  return attempt;
}

void cancel_line(DeviceHandle handle) {
  if (handle == kNoDevice) return;
  OpenLine& line = line_of(handle);
  line.cancelled = true;
  SetEvent(line.killed);
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
    .cancel = cancel_line,
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
