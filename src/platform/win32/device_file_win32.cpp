// Device files on Windows: CreateFileA, and one ReadFile or WriteFile per
// attempt. Handles opened for overlapped input/output (USB printers) wait
// for each transfer on an event, at most the attempt's wait, and cancel a
// transfer that did not finish in time.
#include <windows.h>

#include <atomic>
#include <new>

#include "platform/device_file.h"
#include "platform/win32/win32_error.h"

namespace vorn::platform {
namespace {

struct OpenDevice {
  HANDLE file = INVALID_HANDLE_VALUE;
  // Manual-reset, for overlapped handles only; reused by every attempt.
  HANDLE event = nullptr;
  // Set by a kill from another thread: the running transfer is cancelled and
  // every later one ends at once.
  std::atomic<bool> cancelled{false};
};

OpenDevice* device_of(DeviceHandle handle) {
  return handle == kNoDevice ? nullptr : reinterpret_cast<OpenDevice*>(handle);
}

int32_t open_existing(const char* path, bool overlapped, DeviceHandle* out) {
  // No sharing: a second opener of the same port is refused by the system.
  HANDLE file = CreateFileA(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                            overlapped ? FILE_FLAG_OVERLAPPED : 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return last_error_or(ERROR_OPEN_FAILED);
  auto* device = new (std::nothrow) OpenDevice{file, nullptr, {}};
  if (device != nullptr && overlapped) {
    device->event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    if (device->event == nullptr) {
      const int32_t error = last_error_or(ERROR_NOT_ENOUGH_MEMORY);
      CloseHandle(file);
      delete device;
      return error;
    }
  }
  if (device == nullptr) {
    CloseHandle(file);
    return ERROR_NOT_ENOUGH_MEMORY;
  }
  *out = reinterpret_cast<DeviceHandle>(device);
  return 0;
}

void close_device(DeviceHandle handle) {
  OpenDevice* device = device_of(handle);
  if (device == nullptr) return;
  CloseHandle(device->file);
  if (device->event != nullptr) CloseHandle(device->event);
  delete device;
}

// One transfer on a handle without overlapped input/output: the call itself
// blocks until the device is done (or its own timeouts end it).
Attempt plain_transfer(HANDLE file, void* data, uint32_t length, bool writing) {
  Attempt attempt;
  DWORD done = 0;
  SetLastError(0);
  const BOOL ok = writing ? WriteFile(file, data, length, &done, nullptr)
                          : ReadFile(file, data, length, &done, nullptr);
  attempt.done = done;
  // A write that took nothing reports why, if the system recorded a reason.
  if (!ok || (writing && done == 0 && length > 0))
    attempt.error = static_cast<int32_t>(GetLastError());
  if (!ok && attempt.error == 0) attempt.error = ERROR_GEN_FAILURE;
  return attempt;
}

// One overlapped transfer, waited for at most `wait_ms`. A transfer still
// running then is cancelled, and waited for until the system has let go of
// the buffer and the record on this stack.
Attempt overlapped_transfer(const OpenDevice& device, void* data, uint32_t length, uint32_t wait_ms,
                            bool writing) {
  Attempt attempt;
  OVERLAPPED record{};
  record.hEvent = device.event;
  ResetEvent(device.event);
  const BOOL ok = writing ? WriteFile(device.file, data, length, nullptr, &record)
                          : ReadFile(device.file, data, length, nullptr, &record);
  if (!ok) {
    const DWORD error = GetLastError();
    if (error != ERROR_IO_PENDING) {
      attempt.error = static_cast<int32_t>(error != 0 ? error : ERROR_GEN_FAILURE);
      return attempt;
    }
    DWORD waited = WaitForSingleObject(device.event, wait_ms);
    if (waited != WAIT_OBJECT_0) {
      DWORD wait_error = waited == WAIT_FAILED ? GetLastError() : 0;
      attempt.timed_out = waited == WAIT_TIMEOUT;
      CancelIo(device.file);
      if (WaitForSingleObject(device.event, INFINITE) != WAIT_OBJECT_0) {
        wait_error = last_error_or(ERROR_GEN_FAILURE);
      }
      // Whatever went through before the cancel still counts.
      attempt.done = static_cast<uint32_t>(record.InternalHigh);
      attempt.error = static_cast<int32_t>(wait_error);
      return attempt;
    }
  }
  DWORD done = 0;
  if (!GetOverlappedResult(device.file, &record, &done, FALSE)) {
    attempt.error = last_error_or(ERROR_GEN_FAILURE);
  }
  attempt.done = done;
  return attempt;
}

Attempt transfer(DeviceHandle handle, void* data, uint32_t length, uint32_t wait_ms, bool writing) {
  const OpenDevice* device = device_of(handle);
  Attempt attempt;
  if (device == nullptr) {
    attempt.error = ERROR_INVALID_HANDLE;
    return attempt;
  }
  if (device->cancelled) return attempt;
  attempt = device->event == nullptr ? plain_transfer(device->file, data, length, writing)
                                     : overlapped_transfer(*device, data, length, wait_ms, writing);
  // A transfer cut short by a kill ends with what it moved, without the
  // system's "aborted" or a timeout.
  if (device->cancelled) {
    attempt.error = 0;
    attempt.timed_out = false;
  }
  return attempt;
}

// CancelIoEx reaches transfers running on other threads, synchronous ones
// included. A kill that lands between the flag test and the start of a
// synchronous transfer is seen by the next attempt only.
void cancel_device(DeviceHandle handle) {
  OpenDevice* device = device_of(handle);
  if (device == nullptr) return;
  device->cancelled = true;
  CancelIoEx(device->file, nullptr);
}

Attempt write_attempt(DeviceHandle handle, const uint8_t* data, uint32_t length, uint32_t wait_ms) {
  return transfer(handle, const_cast<uint8_t*>(data), length, wait_ms, true);
}

Attempt read_attempt(DeviceHandle handle, uint8_t* buffer, uint32_t length, uint32_t wait_ms) {
  return transfer(handle, buffer, length, wait_ms, false);
}

// A parallel port without a reverse channel fails reads with one of these.
bool is_no_data_error(int32_t error) {
  return error == ERROR_IO_DEVICE || error == ERROR_INVALID_FUNCTION;
}

constexpr DeviceFileOps kWin32DeviceFile = {
    .open_existing = open_existing,
    .close = close_device,
    .write = write_attempt,
    .read = read_attempt,
    .is_no_data_error = is_no_data_error,
    .cancel = cancel_device,
};

}  // namespace

const DeviceFileOps& native_device_file() {
  return kWin32DeviceFile;
}

}  // namespace vorn::platform
