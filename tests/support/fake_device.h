// A scripted device behind the device-file family: it records what is opened
// and written, and answers reads from a script. Each attempt may spend time
// on the active FakeClock, so budgets are exercised without sleeping.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "platform/device_file.h"

namespace vorn::test {

// How the device answers one write attempt.
struct WriteStep {
  uint32_t accept = UINT32_MAX;     // takes at most this many bytes
  int32_t error = 0;                // system error reported by the attempt
  bool timed_out = false;           // the attempt's wait ran out
  uint32_t ms = 0;                  // time the attempt takes
  std::function<void()> meanwhile;  // runs during the attempt, as another thread would
};

// What one read attempt delivers.
struct ReadStep {
  std::vector<uint8_t> bytes;  // what arrives; a longer answer is kept for the next read
  int32_t error = 0;
  uint32_t ms = 0;
};

class FakeDevice {
 public:
  FakeDevice();
  ~FakeDevice();
  FakeDevice(const FakeDevice&) = delete;
  FakeDevice& operator=(const FakeDevice&) = delete;

  // Script.
  int32_t open_error = 0;
  std::deque<WriteStep> write_script;  // consumed per attempt; empty: take all at once
  std::deque<ReadStep> read_script;    // consumed per attempt; empty: nothing arrives
  uint32_t idle_read_ms = 1;           // time of a read attempt with nothing scripted
  // An idle read waits out its whole limit, as a device that can signal data
  // does; otherwise it returns at once, as a regular file does.
  bool idle_read_waits = false;
  // Installs the device as a family without a cancel slot.
  void cannot_cancel();

  // Record.
  std::vector<std::string> opened_paths;
  int closes = 0;
  int cancels = 0;
  std::vector<uint8_t> written;          // every byte the device took, in order
  std::vector<uint32_t> write_requests;  // bytes offered to each write attempt
  std::vector<uint32_t> write_waits;     // wait limit given to each write attempt
  std::vector<uint32_t> read_requests;   // bytes asked by each read attempt
  std::vector<uint32_t> read_waits;      // wait limit given to each read attempt

  static FakeDevice* active();

 private:
  FakeDevice* outer_;
  const platform::DeviceFileOps* below_ = nullptr;
};

}  // namespace vorn::test
