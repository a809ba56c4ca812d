#include "support/fake_clock.h"

#include "platform/clock.h"

namespace vorn::test {
namespace {
FakeClock* current = nullptr;
}  // namespace

struct FakeClockAccess {
  static uint32_t now_ms() { return current->now_; }
  static void sleep_ms(uint32_t ms) {
    current->sleeps_.push_back(ms);
    current->now_ += ms;
  }
};

namespace {
constexpr platform::ClockOps kFakeClockOps = {
    .now_ms = FakeClockAccess::now_ms,
    .sleep_ms = FakeClockAccess::sleep_ms,
};
}  // namespace

FakeClock::FakeClock(uint32_t start_ms) : now_(start_ms) {
  current = this;
  platform::install_clock(&kFakeClockOps);
}

FakeClock::~FakeClock() {
  platform::install_clock(nullptr);
  current = nullptr;
}

FakeClock* FakeClock::active() {
  return current;
}

}  // namespace vorn::test
