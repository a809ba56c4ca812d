// Real time for the tests that use real OS objects; unit tests use FakeClock.
#pragma once

#include <chrono>

namespace vorn::test {

using WallClock = std::chrono::steady_clock;

inline long ms_since(WallClock::time_point start) {
  return static_cast<long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(WallClock::now() - start).count());
}

}  // namespace vorn::test
