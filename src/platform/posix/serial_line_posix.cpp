// Serial lines on termios. A terminal has no per-handle read and write
// timeouts of the kind the driver programs, so each open line keeps its own
// and every transfer enforces them with poll deadlines.
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <mutex>
#include <new>

#include "platform/posix/cancellable_wait_posix.h"
#include "platform/posix/exclusive_open_posix.h"
#include "platform/serial_line.h"

namespace vorn::platform {
namespace {

// What a serial handle refers to. The timeouts are changed around quick
// reads while another thread may be writing, hence the lock; the flag lets
// another thread cut short a running transfer's wait.
struct OpenLine {
  int fd;
  std::mutex lock;
  LineTimeouts timeouts;
  std::atomic<bool> cancelled{false};
};

OpenLine* line_of(DeviceHandle handle) {
  return handle == kNoDevice ? nullptr : reinterpret_cast<OpenLine*>(handle);
}

LineTimeouts timeouts_of(OpenLine* line) {
  std::lock_guard<std::mutex> hold(line->lock);
  return line->timeouts;
}

using Clock = std::chrono::steady_clock;

// A total time limit for one transfer, or none.
class Deadline {
 public:
  Deadline(bool limited, uint64_t ms)
      : limited_(limited), end_(Clock::now() + std::chrono::milliseconds(ms)) {}
  // Milliseconds left for poll(): -1 without a limit, never negative otherwise.
  int left() const {
    if (!limited_) return -1;
    auto ms = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now()).count();
    return static_cast<int>(std::clamp<decltype(ms)>(ms, 0, INT_MAX));
  }

 private:
  bool limited_;
  Clock::time_point end_;
};

int as_poll_wait(uint32_t ms) {
  return ms > static_cast<uint32_t>(INT_MAX) ? INT_MAX : int(ms);
}

// Waits until the line is ready for `events`; 0 or the system error. A
// cancelled wait counts as neither ready nor timed out.
int32_t wait_ready(OpenLine* line, short events, int timeout_ms, WaitEnd* end) {
  return wait_unless_cancelled(line->fd, events, timeout_ms, line->cancelled, end);
}

int32_t open_line(const char* path, bool /*overlapped*/, DeviceHandle* out) {
  // Non-blocking also means opening does not wait for a carrier.
  int fd = -1;
  const int32_t opened = open_exclusive(path, &fd);
  if (opened != 0) return opened;
  auto* line = new (std::nothrow) OpenLine{};
  if (line == nullptr) {
    ::close(fd);
    return ENOMEM;
  }
  line->fd = fd;
  *out = reinterpret_cast<DeviceHandle>(line);
  return 0;
}

void close_line(DeviceHandle handle) {
  OpenLine* line = line_of(handle);
  if (line == nullptr) return;
  ::close(line->fd);
  delete line;
}

void cancel_line(DeviceHandle handle) {
  if (OpenLine* line = line_of(handle)) line->cancelled.store(true);
}

// Reads until `length` bytes arrived, the total read time ran out, or the
// line stayed silent for the read interval after a byte. The caller's wait
// is not used: the line's own timeouts bound the read, as they bound a read
// on a serial handle, and a quick read relies on that.
Attempt read_line(DeviceHandle handle, uint8_t* buffer, uint32_t length, uint32_t /*wait_ms*/) {
  Attempt attempt;
  OpenLine* line = line_of(handle);
  if (line == nullptr) {
    attempt.error = EBADF;
    return attempt;
  }
  const LineTimeouts t = timeouts_of(line);
  const bool at_once =
      t.read_interval == UINT32_MAX && t.read_multiplier == 0 && t.read_constant == 0;
  const Deadline total(t.read_multiplier != 0 || t.read_constant != 0,
                       static_cast<uint64_t>(t.read_multiplier) * length + t.read_constant);
  while (attempt.done < length) {
    int wait = at_once ? 0 : total.left();
    if (!at_once && attempt.done > 0 && t.read_interval != 0) {
      int interval = as_poll_wait(t.read_interval);
      wait = wait < 0 ? interval : std::min(wait, interval);
    }
    WaitEnd end = WaitEnd::kReady;
    attempt.error = wait_ready(line, POLLIN, wait, &end);
    if (attempt.error != 0 || end == WaitEnd::kCancelled) break;
    if (end == WaitEnd::kTimedOut) {
      attempt.timed_out = true;
      break;
    }
    ssize_t n = ::read(line->fd, buffer + attempt.done, length - attempt.done);
    if (n > 0) {
      attempt.done += static_cast<uint32_t>(n);
      continue;
    }
    if (n == 0) break;  // end of file: nothing more will come
    if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK) continue;
    attempt.error = errno;
    break;
  }
  return attempt;
}

// Writes until all bytes are taken or the total write time ran out. As with
// reads, the line's timeouts bound the attempt, not the caller's wait.
Attempt write_line(DeviceHandle handle, const uint8_t* data, uint32_t length,
                   uint32_t /*wait_ms*/) {
  Attempt attempt;
  OpenLine* line = line_of(handle);
  if (line == nullptr) {
    attempt.error = EBADF;
    return attempt;
  }
  const LineTimeouts t = timeouts_of(line);
  const Deadline total(t.write_multiplier != 0 || t.write_constant != 0,
                       static_cast<uint64_t>(t.write_multiplier) * length + t.write_constant);
  while (attempt.done < length) {
    WaitEnd end = WaitEnd::kReady;
    attempt.error = wait_ready(line, POLLOUT, total.left(), &end);
    if (attempt.error != 0 || end == WaitEnd::kCancelled) break;
    if (end == WaitEnd::kTimedOut) {
      attempt.timed_out = true;
      break;
    }
    ssize_t n = ::write(line->fd, data + attempt.done, length - attempt.done);
    if (n >= 0) {
      attempt.done += static_cast<uint32_t>(n);
      continue;
    }
    if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK) continue;
    attempt.error = errno;
    break;
  }
  return attempt;
}

// Serial reads are never polled byte by byte, so no error means "no data".
bool never_no_data(int32_t) {
  return false;
}

speed_t speed_of(uint32_t baud_rate) {
  switch (baud_rate) {
    case 1200:
      return B1200;
    case 2400:
      return B2400;
    case 4800:
      return B4800;
    case 9600:
      return B9600;
    case 19200:
      return B19200;
    case 38400:
      return B38400;
    case 57600:
      return B57600;
    case 115200:
      return B115200;
    default:
      return B0;
  }
}

LineSetup configure(DeviceHandle handle, uint32_t baud_rate) {
  OpenLine* line = line_of(handle);
  termios settings{};
  if (line == nullptr || tcgetattr(line->fd, &settings) != 0) return LineSetup::kReadFailed;
  const speed_t speed = speed_of(baud_rate);
  if (speed == B0) return LineSetup::kWriteFailed;
  // Raw bytes both ways: printer commands are binary, so no echo, no line
  // editing, no signals and no newline translation.
  cfmakeraw(&settings);
  settings.c_cflag &= ~static_cast<tcflag_t>(CSIZE | PARENB | CSTOPB);
  settings.c_cflag |= CS8 | CLOCAL | CREAD;
#ifdef CRTSCTS
  settings.c_cflag &= ~static_cast<tcflag_t>(CRTSCTS);
#endif
  settings.c_iflag &= ~static_cast<tcflag_t>(IXON | IXOFF | IXANY);
  // Reads never block in the driver; poll() does all the waiting.
  settings.c_cc[VMIN] = 0;
  settings.c_cc[VTIME] = 0;
  if (cfsetispeed(&settings, speed) != 0 || cfsetospeed(&settings, speed) != 0) {
    return LineSetup::kWriteFailed;
  }
  if (tcsetattr(line->fd, TCSANOW, &settings) != 0) return LineSetup::kWriteFailed;
  // DTR and RTS off, as with flow control disabled. A pseudo-terminal or an
  // adapter without modem lines refuses this; the line works without it.
  int modem_lines = TIOCM_DTR | TIOCM_RTS;
  (void)ioctl(line->fd, TIOCMBIC, &modem_lines);
  return LineSetup::kDone;
}

bool get_timeouts(DeviceHandle handle, LineTimeouts* out) {
  OpenLine* line = line_of(handle);
  if (line == nullptr || out == nullptr) return false;
  *out = timeouts_of(line);
  return true;
}

bool set_timeouts(DeviceHandle handle, const LineTimeouts& timeouts) {
  OpenLine* line = line_of(handle);
  if (line == nullptr) return false;
  std::lock_guard<std::mutex> hold(line->lock);
  line->timeouts = timeouts;
  return true;
}

// Linux sizes a terminal's queues itself and offers no way to change them;
// its queues are at least as large as any the driver asks for, so the request
// is met as it stands.
bool set_queue_sizes(DeviceHandle handle, uint32_t /*input*/, uint32_t /*output*/) {
  return line_of(handle) != nullptr;
}

int32_t purge(DeviceHandle handle) {
  OpenLine* line = line_of(handle);
  if (line == nullptr) return EBADF;
  return tcflush(line->fd, TCIOFLUSH) == 0 ? 0 : errno;
}

constexpr DeviceFileOps kLineFiles = {
    .open_existing = open_line,
    .close = close_line,
    .write = write_line,
    .read = read_line,
    .is_no_data_error = never_no_data,
    .cancel = cancel_line,
};

constexpr SerialLineOps kPosixSerialLine = {
    .files = &kLineFiles,
    .configure = configure,
    .get_timeouts = get_timeouts,
    .set_timeouts = set_timeouts,
    .set_queue_sizes = set_queue_sizes,
    .purge = purge,
};

}  // namespace

const SerialLineOps& native_serial_line() {
  return kPosixSerialLine;
}

}  // namespace vorn::platform
