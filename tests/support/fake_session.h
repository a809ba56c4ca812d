// A printer handle whose port is a scripted fake device on a fake clock:
// every call goes through the real frame and the real port write, and the
// bytes that reached the "printer" can be inspected.
#pragma once

#include <vorn/vorn.h>

#include <cstdint>
#include <string>
#include <vector>

#include "printer/session.h"
#include "support/fake_clock.h"
#include "support/fake_device.h"

namespace vorn::test {

class FakeSession {
 public:
  // A handle for the catalogue model `model`, its port open on the fake device.
  explicit FakeSession(const char* model = "unknown");
  ~FakeSession();
  FakeSession(const FakeSession&) = delete;
  FakeSession& operator=(const FakeSession&) = delete;

  VORN_PRINTER handle() const { return printer_; }
  printer::CommandContext& context() const { return *printer_->context; }
  // The bytes the device took since the last call.
  std::vector<uint8_t> take_written();
  // Bytes waiting in the command buffer (not yet written).
  std::vector<uint8_t> pending() const;

  FakeClock clock;
  FakeDevice device;

 private:
  VORN_PRINTER printer_ = nullptr;
};

// "1B 40 0A" -> {0x1B, 0x40, 0x0A}; blanks are ignored.
std::vector<uint8_t> hex(const std::string& text);

}  // namespace vorn::test
