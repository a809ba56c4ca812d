// Allocation that can be made to fail: every operator new of the process and
// every malloc, calloc and realloc of the statically linked code (the linker
// wraps them) is counted while a window is armed, and the allocation with a
// chosen index fails as running out of memory would: null, or std::bad_alloc
// from a throwing new.
#pragma once

#include <cstdint>

namespace vorn::test {

class AllocationFaults {
 public:
  // Counts the allocations from now on; the one with index `fail_at` (from
  // 0) fails, none when it is negative.
  static void arm(int64_t fail_at);
  // Stops counting; how many allocations were counted.
  static int64_t disarm();
  // Whether the chosen allocation was reached and failed.
  static bool failed();

  // Opens (true) and closes (false) a stretch whose allocations are the
  // fixture's, like a Pause that does not follow a scope.
  static void hold(bool on);

  // Allocations made while a Pause lives are the test fixture's, never
  // counted or failed.
  class Pause {
   public:
    Pause();
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;
  };
};

}  // namespace vorn::test
