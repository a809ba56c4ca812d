#include <time.h>

#include <cerrno>

#include "platform/clock.h"

namespace vorn::platform {
namespace {

uint32_t now_ms() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  // Kept to 32 bits on purpose: callers subtract readings, so the wrap after
  // 49 days is harmless, as with a tick count.
  return static_cast<uint32_t>(static_cast<uint64_t>(ts.tv_sec) * 1000u +
                               static_cast<uint64_t>(ts.tv_nsec) / 1000000u);
}

void sleep_ms(uint32_t ms) {
  timespec left{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

constexpr ClockOps kPosixClock = {
    .now_ms = now_ms,
    .sleep_ms = sleep_ms,
};

}  // namespace

const ClockOps& native_clock() {
  return kPosixClock;
}

}  // namespace vorn::platform
