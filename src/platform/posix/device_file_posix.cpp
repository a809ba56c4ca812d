#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "platform/device_file.h"
#include "platform/posix/exclusive_open_posix.h"

namespace vorn::platform {
namespace {

int32_t open_existing(const char* path, bool /*overlapped*/, DeviceHandle* out) {
  int fd = -1;
  const int32_t result = open_exclusive(path, &fd);
  if (result != 0) return result;
  *out = fd;
  return 0;
}

void close_device(DeviceHandle handle) {
  if (handle != kNoDevice) ::close(static_cast<int>(handle));
}

// Waits until the descriptor is ready for `events`; false when the wait ran out.
int wait_ready(int fd, short events, uint32_t wait_ms, bool* ready) {
  pollfd p{fd, events, 0};
  int timeout = wait_ms > static_cast<uint32_t>(INT_MAX) ? INT_MAX : static_cast<int>(wait_ms);
  for (;;) {
    int n = ::poll(&p, 1, timeout);
    if (n >= 0) {
      *ready = n > 0;
      return 0;
    }
    if (errno != EINTR) return errno;
  }
}

Attempt transfer(DeviceHandle handle, void* data, uint32_t length, uint32_t wait_ms, bool writing) {
  Attempt attempt;
  // Nothing to move: no reason to wait for the device.
  if (length == 0) return attempt;
  int fd = static_cast<int>(handle);
  bool ready = false;
  attempt.error = wait_ready(fd, writing ? POLLOUT : POLLIN, wait_ms, &ready);
  if (attempt.error != 0) return attempt;
  if (!ready) {
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
};

}  // namespace

const DeviceFileOps& native_device_file() {
  return kPosixDeviceFile;
}

}  // namespace vorn::platform
