// Every exported function, made to fail in turn at each allocation and at
// each platform call that can fail (with every failure that call can give).
// Whatever fails, the call returns a result code and throws nothing, the
// command buffer holds what it held before, or what a send that went out or
// failed left there, and nothing leaks (LeakSanitizer checks at exit).
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "allocation_hooks.h"
#include "io/port.h"
#include "platform/clock.h"
#include "platform/device_file.h"
#include "platform/image_decoder.h"
#include "platform/text.h"
#include "printer/session.h"
#include "support/api_calls.h"
#include "support/fake_clock.h"
#include "support/fake_device.h"

namespace vorn::test {
namespace {

using Bytes = std::vector<uint8_t>;

// The platform calls that can fail, and how each can fail.
enum class Slot { kOpen, kWrite, kRead, kToNarrow, kToWide, kMessage, kStart, kLoad, kMeasure };

std::vector<int32_t> failures_of(Slot slot) {
  // 0 stands for "no error number, but no result either": a write or read
  // that timed out, a decoder that lost its number.
  switch (slot) {
    case Slot::kOpen:
      return {ENOENT, EACCES, EBUSY, EINTR};
    case Slot::kWrite:
    case Slot::kRead:
      return {EIO, EINTR, EAGAIN, ECONNRESET, 0};
    case Slot::kToNarrow:
    case Slot::kToWide:
      return {EILSEQ, EINVAL, E2BIG, ENOMEM};
    case Slot::kMessage:
    case Slot::kStart:
      return {EINVAL, ENOMEM};
    case Slot::kLoad:
      return {ENOENT, EILSEQ, ENOMEM, 0};
    case Slot::kMeasure:
      return {ENOENT, EILSEQ};
  }
  return {};
}
// Writes can also take part of what they are given and report no error.
constexpr int32_t kShortWrite = -1;

// Which platform call fails, and how; the calls seen so far.
struct Plan {
  int64_t fail_at = -1;
  int32_t failure = 0;
  std::vector<Slot> seen;
  bool hit(Slot slot) {
    AllocationFaults::Pause fixture;
    seen.push_back(slot);
    return static_cast<int64_t>(seen.size()) - 1 == fail_at;
  }
};
Plan* plan = nullptr;

// The tables in force underneath: the scripted device and clock, the
// system's text and image decoding.
const platform::DeviceFileOps* device = nullptr;
const platform::ClockOps* clock_below = nullptr;
const platform::TextOps* text_below = nullptr;
const platform::ImageDecoderOps* decoder_below = nullptr;

int32_t open_existing(const char* path, bool overlapped, platform::DeviceHandle* out) {
  if (plan->hit(Slot::kOpen)) return plan->failure;
  AllocationFaults::Pause fixture;
  return device->open_existing(path, overlapped, out);
}
void close_device(platform::DeviceHandle handle) {
  AllocationFaults::Pause fixture;
  device->close(handle);
}
platform::Attempt write(platform::DeviceHandle handle, const uint8_t* data, uint32_t length,
                        uint32_t wait_ms) {
  AllocationFaults::Pause fixture;
  if (!plan->hit(Slot::kWrite)) return device->write(handle, data, length, wait_ms);
  if (plan->failure == kShortWrite) return device->write(handle, data, length / 2, wait_ms);
  return {.error = plan->failure, .timed_out = plan->failure == 0};
}
platform::Attempt read(platform::DeviceHandle handle, uint8_t* buffer, uint32_t length,
                       uint32_t wait_ms) {
  if (plan->hit(Slot::kRead)) return {.error = plan->failure, .timed_out = plan->failure == 0};
  AllocationFaults::Pause fixture;
  return device->read(handle, buffer, length, wait_ms);
}
bool is_no_data_error(int32_t error) {
  return device->is_no_data_error(error);
}
constexpr platform::DeviceFileOps kDevice = {
    .open_existing = open_existing,
    .close = close_device,
    .write = write,
    .read = read,
    .is_no_data_error = is_no_data_error,
};

uint32_t now_ms() {
  return clock_below->now_ms();
}
void sleep_ms(uint32_t ms) {
  AllocationFaults::Pause fixture;
  clock_below->sleep_ms(ms);
}
constexpr platform::ClockOps kClock = {.now_ms = now_ms, .sleep_ms = sleep_ms};

int32_t to_narrow(const char16_t* text, size_t units, char* out, size_t size, size_t* written) {
  if (plan->hit(Slot::kToNarrow)) return *written = 0, plan->failure;
  return text_below->to_narrow(text, units, out, size, written);
}
int32_t to_wide(const char* text, size_t bytes, char16_t* out, size_t units, size_t* written) {
  if (plan->hit(Slot::kToWide)) return *written = 0, plan->failure;
  return text_below->to_wide(text, bytes, out, units, written);
}
int32_t system_message(int32_t code, uint32_t language, char* out, size_t size) {
  if (plan->hit(Slot::kMessage)) return plan->failure;
  return text_below->system_message(code, language, out, size);
}
int32_t system_message_wide(int32_t code, uint32_t language, char16_t* out, size_t units) {
  if (plan->hit(Slot::kMessage)) return plan->failure;
  return text_below->system_message_wide(code, language, out, units);
}
uint32_t user_language() {
  return text_below->user_language();
}

int32_t start() {
  if (plan->hit(Slot::kStart)) return plan->failure;
  return decoder_below->start ? decoder_below->start() : 0;
}
void stop() {
  if (decoder_below->stop) decoder_below->stop();
}
int32_t load(const char16_t* path, platform::DecodedImage* out) {
  if (plan->hit(Slot::kLoad)) return *out = nullptr, plan->failure;
  return decoder_below->load(path, out);
}
int32_t measure(const char16_t* path, int32_t* width, int32_t* height) {
  if (plan->hit(Slot::kMeasure)) return plan->failure;
  return decoder_below->measure(path, width, height);
}

// Installs the failing tables over the ones in force for one run.
class FaultyPlatform {
 public:
  explicit FaultyPlatform(Plan& p) {
    plan = &p;
    device = &platform::device_file();
    clock_below = &platform::clock();
    text_below = &platform::text();
    decoder_below = &platform::image_decoder();
    text_ = *text_below;
    text_.to_narrow = to_narrow;
    text_.to_wide = to_wide;
    text_.system_message = system_message;
    text_.system_message_wide = system_message_wide;
    text_.user_language = user_language;
    decoder_ = *decoder_below;
    decoder_.start = start;
    decoder_.stop = stop;
    decoder_.load = load;
    decoder_.measure = decoder_below->measure ? measure : nullptr;
    platform::install_device_file(&kDevice);
    platform::install_clock(&kClock);
    platform::install_text(&text_);
    platform::install_image_decoder(&decoder_);
  }
  ~FaultyPlatform() {
    platform::install_image_decoder(nullptr);
    platform::install_text(nullptr);
    platform::install_clock(clock_below);
    platform::install_device_file(device);
    plan = nullptr;
  }

 private:
  platform::TextOps text_;
  platform::ImageDecoderOps decoder_;
};

struct Send {
  Bytes bytes;
  bool written = false;
};

// What one run of a call did.
struct Run {
  int32_t result = 0;
  bool threw = false;
  int64_t allocations = 0;
  std::vector<Slot> platform_calls;
  Bytes before;             // the command buffer when the call began
  Bytes after;              // and when it returned
  std::vector<Send> sends;  // each command buffer the call tried to write
};

std::vector<Send>* sends = nullptr;
VORN_PRINTER sending_printer = nullptr;

int32_t VORN_CALL recording_write(VORN_PORT port, const uint8_t* data, uint32_t offset,
                                  uint32_t length, uint32_t* transferred) {
  // Raw data (DirectIO, WriteData) goes out past the command buffer.
  if (data != sending_printer->context->buffer) {
    return vorn_io_write(port, data, offset, length, transferred);
  }
  {
    AllocationFaults::Pause fixture;
    sends->push_back({.bytes = Bytes(data + offset, data + offset + length)});
  }
  const int32_t result = vorn_io_write(port, data, offset, length, transferred);
  sends->back().written = result == VORN_OK;
  return result;
}

Bytes pending(VORN_PRINTER printer) {
  const printer::CommandContext& context = *printer->context;
  return {context.buffer, context.buffer + context.length};
}

// The answer the scripted printer gives to every question: a version text
// whose first bytes also serve as one-byte status answers.
void script_answers(FakeDevice& fake) {
  fake.idle_read_ms = 500;
  for (int i = 0; i < 2; ++i) fake.read_script.push_back({.bytes = {'_', '1', '.', '2', ' ', 0}});
}

// Runs `call` once with allocation `fail_allocation` failing (-1: none) and
// platform call `plan.fail_at` failing.
template <typename Call>
Run run_once(const Call& call, int64_t fail_allocation, Plan plan_for_run) {
  Run run;
  FakeClock clock;
  FakeDevice fake;
  script_answers(fake);
  VORN_PRINTER printer = nullptr;
  VORN_PORT port = nullptr;
  if constexpr (std::is_same_v<Call, PrinterCall>) {
    printer = PrinterCreatorS("VR-T80A");
    EXPECT_EQ(PortOpen(printer, u"LPT1"), VORN_OK);
    // Bytes of an earlier call wait in the buffer: its write failed.
    fake.write_script.push_back({.accept = 0, .error = EIO});
    EXPECT_EQ(FeedLine(printer, 1), EIO);
    printer->port->write = recording_write;
    run.before = pending(printer);
  } else if constexpr (std::is_same_v<Call, PortCall>) {
    EXPECT_EQ(vorn_io_port_creator(&port, "LPT1"), VORN_OK);
    EXPECT_EQ(vorn_io_open(port), VORN_OK);
  }
  Args args;
  sends = &run.sends;
  sending_printer = printer;
  {
    FaultyPlatform faulty(plan_for_run);
    AllocationFaults::arm(fail_allocation);
    try {
      if constexpr (std::is_same_v<Call, PrinterCall>) {
        run.result = call.run(printer, args);
      } else if constexpr (std::is_same_v<Call, PortCall>) {
        run.result = call.run(port, args);
      } else {
        run.result = call.run(args);
      }
    } catch (...) {
      run.threw = true;
    }
    run.allocations = AllocationFaults::disarm();
    run.platform_calls = plan_for_run.seen;
  }
  sends = nullptr;
  if (printer != nullptr) {
    run.after = pending(printer);
    PrinterDestroy(printer);
  }
  if (port != nullptr) vorn_io_port_destroy(port);
  return run;
}

std::string hex_of(const Bytes& bytes) {
  std::string text;
  for (uint8_t b : bytes) text += "0123456789ABCDEF"[b >> 4], text += "0123456789ABCDEF"[b & 15];
  return text;
}

// The buffer after a failed call: as it was when nothing was sent, emptied
// by a send that went out last, or holding exactly what a send that failed
// last had tried to write.
void expect_buffer_consistent(const Run& clean, const Run& run, const std::string& what) {
  if (run.result == VORN_OK) {
    EXPECT_EQ(run.after, clean.after) << what;
    return;
  }
  Bytes expected = run.before;
  if (!run.sends.empty()) expected = run.sends.back().written ? Bytes{} : run.sends.back().bytes;
  EXPECT_EQ(hex_of(run.after), hex_of(expected)) << what << ", had " << hex_of(run.before);
}

template <typename Call>
void walk(const Call& call) {
  const Run clean = run_once(call, -1, {});
  ASSERT_FALSE(clean.threw) << call.name;
  for (int64_t i = 0; i < clean.allocations; ++i) {
    const std::string what = std::string(call.name) + ", allocation " + std::to_string(i);
    const Run run = run_once(call, i, {});
    EXPECT_FALSE(run.threw) << what;
    // Out of memory is reported as such: by the library, or as the
    // system's number when a platform call ran out.
    if (AllocationFaults::failed()) {
      EXPECT_TRUE(run.result == VORN_ERR_NO_MEMORY || run.result == VORN_ERR_BUFFER_TOO_SMALL ||
                  run.result == ENOMEM || run.result == kNullHandle)
          << what << " gave " << run.result;
    }
    expect_buffer_consistent(clean, run, what);
  }
  for (size_t i = 0; i < clean.platform_calls.size(); ++i) {
    std::vector<int32_t> failures = failures_of(clean.platform_calls[i]);
    if (clean.platform_calls[i] == Slot::kWrite) failures.push_back(kShortWrite);
    for (int32_t failure : failures) {
      const std::string what = std::string(call.name) + ", platform call " + std::to_string(i) +
                               " fails with " + std::to_string(failure);
      const Run run = run_once(call, -1, {.fail_at = static_cast<int64_t>(i), .failure = failure});
      EXPECT_FALSE(run.threw) << what;
      expect_buffer_consistent(clean, run, what);
    }
  }
}

class FaultWalk : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    image_ = std::string(::testing::TempDir()) + "vorn_fault_sample.bmp";
    FILE* file = std::fopen(image_.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    const auto bytes = sample_image_file();
    std::fwrite(bytes.data(), 1, bytes.size(), file);
    std::fclose(file);
    set_sample_image(std::u16string(image_.begin(), image_.end()));
    Args::value_guard = AllocationFaults::hold;
  }
  static void TearDownTestSuite() {
    Args::value_guard = nullptr;
    std::remove(image_.c_str());
  }
  static inline std::string image_;
};

TEST_F(FaultWalk, EveryCallFailsCleanlyAtEachAllocationAndPlatformCall) {
  for (const PrinterCall& call : printer_calls()) walk(call);
  for (const PortCall& call : port_calls()) walk(call);
  for (const FreeCall& call : free_calls()) walk(call);
}

}  // namespace
}  // namespace vorn::test
