// Clock and sleep: the only source of time for the library's budgets, so that
// tests can run every timing rule against a fake clock without sleeping.
#pragma once

#include <cstdint>

namespace vorn::platform {

struct ClockOps {
  // Milliseconds from an arbitrary origin. Wraps around like a 32-bit tick
  // count; callers only ever subtract two readings.
  uint32_t (*now_ms)();
  // Blocks the calling thread for about `ms` milliseconds.
  void (*sleep_ms)(uint32_t ms);
};

// The operations in force (the native ones unless a test installed others).
const ClockOps& clock();
// Installs `ops` (null: back to the native clock); returns what was in force.
const ClockOps* install_clock(const ClockOps* ops);
// The platform's own clock, defined by the platform directory.
const ClockOps& native_clock();

}  // namespace vorn::platform
