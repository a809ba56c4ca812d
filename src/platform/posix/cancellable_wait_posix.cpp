#include "platform/posix/cancellable_wait_posix.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace vorn::platform {
namespace {

// Short enough that a cancel is seen without a noticeable delay, long enough
// that a stalled device costs only a few wakeups a second. A cancel is a flag
// rather than a wakeup descriptor: it then needs nothing per open device,
// cannot fail, and leaves nothing to tear down when the device is closed.
constexpr int kSliceMs = 50;

using Clock = std::chrono::steady_clock;

}  // namespace

int32_t wait_unless_cancelled(int fd, short events, int timeout_ms,
                              const std::atomic<bool>& cancelled, WaitEnd* end) {
  const bool limited = timeout_ms >= 0;
  const Clock::time_point deadline =
      Clock::now() + std::chrono::milliseconds(limited ? timeout_ms : 0);
  for (;;) {
    if (cancelled.load()) {
      *end = WaitEnd::kCancelled;
      return 0;
    }
    int slice = kSliceMs;
    if (limited) {
      const auto left =
          std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
      slice = static_cast<int>(std::clamp<decltype(left)>(left, 0, kSliceMs));
    }
    pollfd p{fd, events, 0};
    const int n = ::poll(&p, 1, slice);
    if (n > 0) {
      *end = WaitEnd::kReady;
      return 0;
    }
    if (n < 0 && errno != EINTR) return errno;
    if (n == 0 && limited && Clock::now() >= deadline) {
      *end = WaitEnd::kTimedOut;
      return 0;
    }
  }
}

}  // namespace vorn::platform
