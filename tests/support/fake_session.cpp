#include "support/fake_session.h"

#include <gtest/gtest.h>

#include <cctype>

#include "support/wide_text.h"

namespace vorn::test {

FakeSession::FakeSession(const char* model) {
  printer_ = PrinterCreatorS(model);
  EXPECT_NE(printer_, nullptr) << "unknown model " << model;
  if (printer_ == nullptr) return;
  EXPECT_EQ(PortOpen(printer_, VW("LPT1")), VORN_OK);
}

FakeSession::~FakeSession() {
  if (printer_ != nullptr) PrinterDestroy(printer_);
}

std::vector<uint8_t> FakeSession::take_written() {
  std::vector<uint8_t> bytes;
  bytes.swap(device.written);
  return bytes;
}

std::vector<uint8_t> FakeSession::pending() const {
  const printer::CommandContext& c = context();
  return {c.buffer, c.buffer + c.length};
}

std::vector<uint8_t> hex(const std::string& text) {
  std::vector<uint8_t> bytes;
  int high = -1;
  for (char ch : text) {
    if (std::isspace(static_cast<unsigned char>(ch))) continue;
    int digit = std::isdigit(static_cast<unsigned char>(ch))
                    ? ch - '0'
                    : std::tolower(static_cast<unsigned char>(ch)) - 'a' + 10;
    if (high < 0) {
      high = digit;
    } else {
      bytes.push_back(static_cast<uint8_t>(high * 16 + digit));
      high = -1;
    }
  }
  EXPECT_LT(high, 0) << "odd number of hex digits in " << text;
  return bytes;
}

}  // namespace vorn::test
