// A clock that moves only when told to (or when a sleep or a scripted device
// attempt spends time), installed for the lifetime of the object.
#pragma once

#include <cstdint>
#include <vector>

namespace vorn::test {

class FakeClock {
 public:
  explicit FakeClock(uint32_t start_ms = 1000);
  ~FakeClock();
  FakeClock(const FakeClock&) = delete;
  FakeClock& operator=(const FakeClock&) = delete;

  uint32_t now() const { return now_; }
  void advance(uint32_t ms) { now_ += ms; }
  // Every sleep the code under test asked for, in order.
  const std::vector<uint32_t>& sleeps() const { return sleeps_; }

  // The clock in force, or null when none is installed.
  static FakeClock* active();

 private:
  friend struct FakeClockAccess;
  uint32_t now_;
  std::vector<uint32_t> sleeps_;
};

}  // namespace vorn::test
