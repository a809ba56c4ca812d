// Waiting for a descriptor in a way another thread can cut short.
#pragma once

#include <atomic>
#include <cstdint>

namespace vorn::platform {

enum class WaitEnd { kReady, kTimedOut, kCancelled };

// Waits until `fd` is ready for `events` (POLLIN, POLLOUT), at most
// `timeout_ms` (negative: no limit). The wait is cut into slices of at most
// 50 ms and `cancelled` is read before each, so a cancel from another thread
// ends it within one slice; a cancel set before the call ends it at once.
// Returns 0 with the outcome in `*end`, or the errno of a failed poll().
int32_t wait_unless_cancelled(int fd, short events, int timeout_ms,
                              const std::atomic<bool>& cancelled, WaitEnd* end);

}  // namespace vorn::platform
