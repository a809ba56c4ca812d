// What the fuzz targets share: a failed property aborts (libFuzzer and the
// replay driver both report an abort with the input that caused it), and a
// printer session on the scripted device and clock, so nothing reaches real
// hardware and no wait takes real time.
#pragma once

#include <vorn/vorn.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "support/fake_clock.h"
#include "support/fake_device.h"
#include "support/wide_text.h"

#define FUZZ_CHECK(condition)                                           \
  do {                                                                  \
    if (!(condition)) vorn::fuzz::fail(__FILE__, __LINE__, #condition); \
  } while (0)

namespace vorn::fuzz {

[[noreturn]] void fail(const char* file, int line, const char* condition);

// A handle for a catalogue model, its port open on the scripted device.
class Session {
 public:
  explicit Session(const char* model);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  VORN_PRINTER handle() const { return printer_; }
  // Bytes waiting in the command buffer.
  std::vector<uint8_t> pending() const;

  test::FakeClock clock;
  test::FakeDevice device;

 private:
  VORN_PRINTER printer_ = nullptr;
};

// The model name of catalogue row `index` modulo the catalogue's size.
const char* model_name(uint32_t index);

// Writes `bytes` to a file of this process's scratch folder; its UTF-16 path.
WideString scratch_file(const char* name, std::span<const uint8_t> bytes);
// The path of a file in that folder, which is removed when the process ends.
std::string scratch_path(const char* name);

}  // namespace vorn::fuzz
