// A recording serial line over the device-file table in force (a
// FakeDevice): every line call is logged in order, with the timeouts set as
// a text, and each step can be told to fail.
#pragma once

#include <string>
#include <vector>

#include "platform/serial_line.h"

namespace vorn::test {

struct FakeSerialLine {
  FakeSerialLine() {
    current = this;
    ops.files = &platform::device_file();  // the FakeDevice installed before
    platform::install_serial_line(&ops);
  }
  ~FakeSerialLine() { platform::install_serial_line(nullptr); }

  platform::LineSetup configure_result = platform::LineSetup::kDone;
  bool get_ok = true, set_ok = true, queue_ok = true;
  int32_t purge_error = 0;
  std::vector<std::string> calls;

  static inline FakeSerialLine* current = nullptr;
  template <typename Result>
  static Result log(std::string call, Result result) {
    current->calls.push_back(std::move(call));
    return result;
  }
  static platform::LineSetup configure(platform::DeviceHandle, uint32_t baud_rate) {
    return log("configure " + std::to_string(baud_rate), current->configure_result);
  }
  static bool get(platform::DeviceHandle, platform::LineTimeouts* out) {
    *out = {};
    return log("get", current->get_ok);
  }
  static bool set(platform::DeviceHandle, const platform::LineTimeouts& t) {
    std::string text = "set ";
    for (uint32_t value : {t.read_interval, t.read_multiplier, t.read_constant, t.write_multiplier,
                           t.write_constant})
      text += std::to_string(value) + ",";
    text.pop_back();
    return log(text, current->set_ok);
  }
  static bool queue(platform::DeviceHandle, uint32_t input, uint32_t output) {
    return log("queue " + std::to_string(input) + "/" + std::to_string(output), current->queue_ok);
  }
  static int32_t purge(platform::DeviceHandle) { return log("purge", current->purge_error); }
  platform::SerialLineOps ops{nullptr, configure, get, set, queue, purge};
};

}  // namespace vorn::test
