#include "support/fake_device.h"

#include <algorithm>

#include "platform/device_file.h"
#include "support/fake_clock.h"

namespace vorn::test {
namespace {

FakeDevice* current = nullptr;
constexpr platform::DeviceHandle kFakeHandle = 7;
// Any error the script marks as "no data" for byte-polling reads.
constexpr int32_t kNoDataError = 1117;

void spend(uint32_t ms) {
  if (FakeClock* clock = FakeClock::active()) clock->advance(ms);
}

int32_t open_existing(const char* path, bool, platform::DeviceHandle* out) {
  current->opened_paths.emplace_back(path);
  if (current->open_error != 0) return current->open_error;
  *out = kFakeHandle;
  return 0;
}

void close_device(platform::DeviceHandle) {
  ++current->closes;
}

platform::Attempt write(platform::DeviceHandle, const uint8_t* data, uint32_t length,
                        uint32_t wait_ms) {
  current->write_requests.push_back(length);
  current->write_waits.push_back(wait_ms);
  WriteStep step;
  if (!current->write_script.empty()) {
    step = current->write_script.front();
    current->write_script.pop_front();
  }
  platform::Attempt attempt;
  attempt.done = std::min(step.accept, length);
  attempt.error = step.error;
  attempt.timed_out = step.timed_out;
  current->written.insert(current->written.end(), data, data + attempt.done);
  if (step.meanwhile) step.meanwhile();
  spend(step.ms);
  return attempt;
}

platform::Attempt read(platform::DeviceHandle, uint8_t* buffer, uint32_t length, uint32_t wait_ms) {
  current->read_requests.push_back(length);
  current->read_waits.push_back(wait_ms);
  platform::Attempt attempt;
  if (current->read_script.empty()) {
    spend(current->idle_read_waits ? std::max(wait_ms, current->idle_read_ms)
                                   : current->idle_read_ms);
    return attempt;
  }
  ReadStep& step = current->read_script.front();
  attempt.error = step.error;
  attempt.done = static_cast<uint32_t>(std::min<size_t>(length, step.bytes.size()));
  std::copy_n(step.bytes.begin(), attempt.done, buffer);
  step.bytes.erase(step.bytes.begin(), step.bytes.begin() + attempt.done);
  spend(step.ms);
  step.ms = 0;
  if (step.bytes.empty()) current->read_script.pop_front();
  return attempt;
}

bool is_no_data_error(int32_t error) {
  return error == kNoDataError;
}

void cancel(platform::DeviceHandle) {
  ++current->cancels;
}

constexpr platform::DeviceFileOps kFakeDeviceOps = {
    .open_existing = open_existing,
    .close = close_device,
    .write = write,
    .read = read,
    .is_no_data_error = is_no_data_error,
    .cancel = cancel,
};
}  // namespace

// Fakes may nest (two sessions at once): the inner one hands back what was
// in force before it, so that a port opened on the outer fake is still
// closed there and never by the system's device files.
FakeDevice::FakeDevice() : outer_(current) {
  current = this;
  below_ = platform::install_device_file(&kFakeDeviceOps);
}

FakeDevice::~FakeDevice() {
  platform::install_device_file(below_);
  current = outer_;
}

void FakeDevice::cannot_cancel() {
  static constexpr platform::DeviceFileOps kNoCancel = [] {
    platform::DeviceFileOps ops = kFakeDeviceOps;
    ops.cancel = nullptr;
    return ops;
  }();
  platform::install_device_file(&kNoCancel);
}

FakeDevice* FakeDevice::active() {
  return current;
}

}  // namespace vorn::test
