#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <new>

#include "platform/device_file.h"
#include "platform/posix/cancellable_wait_posix.h"
#include "platform/posix/exclusive_open_posix.h"

namespace vorn::platform {
namespace {

// What a device handle refers to. The flag lets another thread cut short
// the wait of a running attempt (see wait_unless_cancelled).
struct OpenDevice {
  int fd;
  std::atomic<bool> cancelled{false};
};

OpenDevice* device_of(DeviceHandle handle) {
  return handle == kNoDevice ? nullptr : reinterpret_cast<OpenDevice*>(handle);
}

int32_t open_existing(const char* path, bool /*overlapped*/, DeviceHandle* out) {
  int fd = -1;
  const int32_t result = open_exclusive(path, &fd);
  if (result != 0) return result;
  auto* device = new (std::nothrow) OpenDevice{fd};
  if (device == nullptr) {
    ::close(fd);
    return ENOMEM;
  }
  *out = reinterpret_cast<DeviceHandle>(device);
  return 0;
}

void close_device(DeviceHandle handle) {
  OpenDevice* device = device_of(handle);
  if (device == nullptr) return;
  ::close(device->fd);
  delete device;
}

void cancel_device(DeviceHandle handle) {
  if (OpenDevice* device = device_of(handle)) device->cancelled.store(true);
}

Attempt transfer(DeviceHandle handle, void* data, uint32_t length, uint32_t wait_ms, bool writing) {
  Attempt attempt;
  OpenDevice* device = device_of(handle);
  if (device == nullptr) {
    attempt.error = EBADF;
    return attempt;
  }
  // Nothing to move: no reason to wait for the device.
  if (length == 0) return attempt;
  const int fd = device->fd;
  const int timeout =
      wait_ms > static_cast<uint32_t>(INT_MAX) ? INT_MAX : static_cast<int>(wait_ms);
  WaitEnd end = WaitEnd::kReady;
  attempt.error =
      wait_unless_cancelled(fd, writing ? POLLOUT : POLLIN, timeout, device->cancelled, &end);
  if (attempt.error != 0 || end == WaitEnd::kCancelled) return attempt;
  if (end == WaitEnd::kTimedOut) {
    attempt.timed_out = true;
    return attempt;
  }
  for (;;) {
    ssize_t n = writing ? ::write(fd, data, length) : ::read(fd, data, length);
    if (n >= 0) {
      attempt.done = static_cast<uint32_t>(n);
      return attempt;
    }
    if (errno == EINTR) continue;
    // Readiness was reported but the device had nothing after all.
    if (errno == EAGAIN || errno == EWOULDBLOCK) return attempt;
    attempt.error = errno;
    return attempt;
  }
}

Attempt write_attempt(DeviceHandle handle, const uint8_t* data, uint32_t length, uint32_t wait_ms) {
  return transfer(handle, const_cast<uint8_t*>(data), length, wait_ms, true);
}

Attempt read_attempt(DeviceHandle handle, uint8_t* buffer, uint32_t length, uint32_t wait_ms) {
  return transfer(handle, buffer, length, wait_ms, false);
}

// EIO: a parallel port without a reverse channel; EINVAL: a device or file
// opened in a way that cannot be read.
bool is_no_data_error(int32_t error) {
  return error == EIO || error == EINVAL;
}

constexpr DeviceFileOps kPosixDeviceFile = {
    .open_existing = open_existing,
    .close = close_device,
    .write = write_attempt,
    .read = read_attempt,
    .is_no_data_error = is_no_data_error,
    .cancel = cancel_device,
};

}  // namespace

const DeviceFileOps& native_device_file() {
  return kPosixDeviceFile;
}

}  // namespace vorn::platform
