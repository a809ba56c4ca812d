#include <windows.h>

#include "platform/clock.h"

namespace vorn::platform {
namespace {

// The tick count wraps after 49 days; callers only subtract readings.
uint32_t now_ms() {
  return GetTickCount();
}

void sleep_ms(uint32_t ms) {
  Sleep(ms);
}

constexpr ClockOps kWin32Clock = {
    .now_ms = now_ms,
    .sleep_ms = sleep_ms,
};

}  // namespace

const ClockOps& native_clock() {
  return kWin32Clock;
}

}  // namespace vorn::platform
