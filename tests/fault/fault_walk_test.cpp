// Every exported function, on each kind of port, made to fail in turn at
// each allocation and at each platform call that can fail (with every
// failure that call can give). Whatever fails, the call returns a result
// code and throws nothing, the command buffer holds what it held before, or
// what a send that went out or failed left there, and nothing leaks
// (LeakSanitizer checks at exit).
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
#include "platform/serial_line.h"
#include "platform/socket.h"
#include "platform/text.h"
#include "platform/usb.h"
#include "printer/session.h"
#include "support/api_calls.h"
#include "support/fake_clock.h"
#include "support/fake_device.h"
#include "support/fake_serial_line.h"
#include "support/fake_sockets.h"
#include "support/fake_usb.h"
#include "support/wide_text.h"

namespace vorn::test {
namespace {

using Bytes = std::vector<uint8_t>;

// The platform calls that can fail, and how each can fail.
// clang-format off
enum class Slot {
  kOpen, kWrite, kRead,                                     // device files
  kToNarrow, kToWide, kMessage,                             // text
  kStart, kLoad, kMeasure,                                  // image decoding
  kSocketSetup, kConnect, kWait, kQuery, kSend, kReceive,   // sockets
  kLine, kPurge,                                            // serial lines
  kEnumerate,                                               // USB devices
};
// clang-format on

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
    // 0: a connect or wait whose limit ran out; a send that took nothing, a
    // receive or look that found the peer gone.
    case Slot::kSocketSetup:
      return {EMFILE, EACCES};
    case Slot::kConnect:
      return {ECONNREFUSED, EINTR, 0};
    case Slot::kWait:
      return {EINTR, EBADF, 0};
    case Slot::kQuery:
      return {EBADF};
    case Slot::kSend:
      return {ECONNRESET, EPIPE, EINTR, EAGAIN, 0};
    case Slot::kReceive:
      return {ECONNRESET, EINTR, EAGAIN, 0};
    // 1 and 2: the line's settings could not be read, or not be written.
    case Slot::kLine:
      return {1, 2};
    case Slot::kPurge:
      return {EIO, EINTR};
    case Slot::kEnumerate:
      return {EACCES, ENOMEM};
  }
  return {};
}
// Writes can also take part of what they are given and report no error.
constexpr int32_t kShortWrite = -1;

// Which platform call fails, and how, and which later one fails after it;
// the calls seen so far.
struct Plan {
  int64_t fail_at = -1;
  int32_t failure = 0;
  int64_t then_at = -1;
  int32_t then_failure = 0;
  std::vector<Slot> seen;
  bool hit(Slot slot) {
    AllocationFaults::Pause fixture;
    seen.push_back(slot);
    const int64_t index = static_cast<int64_t>(seen.size()) - 1;
    if (index == then_at) failure = then_failure;
    return index == fail_at || index == then_at;
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

const platform::SocketOps* sockets_below = nullptr;

int32_t socket_startup() {
  if (plan->hit(Slot::kSocketSetup)) return plan->failure;
  return sockets_below->startup();
}
void socket_cleanup() {
  sockets_below->cleanup();
}
int32_t parse_ipv4(const char* text, uint32_t* address) {
  if (plan->hit(Slot::kSocketSetup)) return plan->failure;
  return sockets_below->parse_ipv4(text, address);
}
int32_t open_tcp(platform::SocketHandle* out) {
  if (plan->hit(Slot::kSocketSetup)) return plan->failure;
  AllocationFaults::Pause fixture;
  return sockets_below->open_tcp(out);
}
int32_t set_option(platform::SocketHandle socket, platform::SocketOption option, uint32_t value) {
  if (plan->hit(Slot::kSocketSetup)) return plan->failure;
  AllocationFaults::Pause fixture;
  return sockets_below->set_option(socket, option, value);
}
int32_t bind(platform::SocketHandle socket, const platform::Ipv4Endpoint& local) {
  if (plan->hit(Slot::kSocketSetup)) return plan->failure;
  return sockets_below->bind(socket, local);
}
platform::SocketConnect connect(platform::SocketHandle socket, const platform::Ipv4Endpoint& remote,
                                uint32_t limit_ms) {
  if (plan->hit(Slot::kConnect)) return {.error = plan->failure, .timed_out = plan->failure == 0};
  AllocationFaults::Pause fixture;
  return sockets_below->connect(socket, remote, limit_ms);
}
platform::SocketWait wait(platform::SocketHandle socket, platform::WaitFor what,
                          uint32_t limit_ms) {
  if (plan->hit(Slot::kWait)) return {.error = plan->failure, .ready = false};
  return sockets_below->wait(socket, what, limit_ms);
}
int32_t pending_error(platform::SocketHandle socket, int32_t* value) {
  if (plan->hit(Slot::kQuery)) return plan->failure;
  return sockets_below->pending_error(socket, value);
}
platform::SocketTransfer send(platform::SocketHandle socket, const uint8_t* data, uint32_t length) {
  AllocationFaults::Pause fixture;
  if (!plan->hit(Slot::kSend)) return sockets_below->send(socket, data, length);
  if (plan->failure == kShortWrite) return sockets_below->send(socket, data, length / 2);
  return {.error = plan->failure, .count = 0};
}
platform::SocketTransfer recv(platform::SocketHandle socket, uint8_t* buffer, uint32_t length) {
  if (plan->hit(Slot::kReceive)) return {.error = plan->failure, .count = 0};
  AllocationFaults::Pause fixture;
  return sockets_below->recv(socket, buffer, length);
}
platform::SocketTransfer peek(platform::SocketHandle socket) {
  if (plan->hit(Slot::kReceive)) return {.error = plan->failure, .count = 0};
  return sockets_below->peek(socket);
}
void shutdown(platform::SocketHandle socket, platform::ShutdownHow how) {
  sockets_below->shutdown(socket, how);
}
void close_socket(platform::SocketHandle socket) {
  AllocationFaults::Pause fixture;
  sockets_below->close(socket);
}
bool is_connection_reset(int32_t error) {
  return sockets_below->is_connection_reset(error);
}
constexpr platform::SocketOps kSockets = {
    .startup = socket_startup,
    .cleanup = socket_cleanup,
    .parse_ipv4 = parse_ipv4,
    .open_tcp = open_tcp,
    .set_option = set_option,
    .bind = bind,
    .connect = connect,
    .wait = wait,
    .pending_error = pending_error,
    .send = send,
    .recv = recv,
    .peek = peek,
    .shutdown = shutdown,
    .close = close_socket,
    .is_connection_reset = is_connection_reset,
};

const platform::SerialLineOps* line_below = nullptr;

platform::LineSetup configure(platform::DeviceHandle handle, uint32_t baud_rate) {
  if (plan->hit(Slot::kLine)) {
    return plan->failure == 1 ? platform::LineSetup::kReadFailed
                              : platform::LineSetup::kWriteFailed;
  }
  AllocationFaults::Pause fixture;
  return line_below->configure(handle, baud_rate);
}
bool get_timeouts(platform::DeviceHandle handle, platform::LineTimeouts* out) {
  if (plan->hit(Slot::kLine)) return false;
  AllocationFaults::Pause fixture;
  return line_below->get_timeouts(handle, out);
}
bool set_timeouts(platform::DeviceHandle handle, const platform::LineTimeouts& timeouts) {
  if (plan->hit(Slot::kLine)) return false;
  AllocationFaults::Pause fixture;
  return line_below->set_timeouts(handle, timeouts);
}
bool set_queue_sizes(platform::DeviceHandle handle, uint32_t input, uint32_t output) {
  if (plan->hit(Slot::kLine)) return false;
  AllocationFaults::Pause fixture;
  return line_below->set_queue_sizes(handle, input, output);
}
int32_t purge(platform::DeviceHandle handle) {
  if (plan->hit(Slot::kPurge)) return plan->failure;
  AllocationFaults::Pause fixture;
  return line_below->purge(handle);
}
constexpr platform::SerialLineOps kLine = {
    .files = &kDevice,
    .configure = configure,
    .get_timeouts = get_timeouts,
    .set_timeouts = set_timeouts,
    .set_queue_sizes = set_queue_sizes,
    .purge = purge,
};

// The USB family's transfers reach the device-file table in force, the
// failing one above; only the device list fails here.
const platform::UsbOps* usb_below = nullptr;

int32_t enumerate(platform::UsbVisitor visit, void* context) {
  if (plan->hit(Slot::kEnumerate)) return plan->failure;
  return usb_below->enumerate(visit, context);
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
    sockets_below = &platform::socket_ops();
    line_below = &platform::serial_line();
    usb_below = &platform::usb();
    usb_ = *usb_below;
    usb_.enumerate = enumerate;
    platform::install_socket_ops(&kSockets);
    platform::install_serial_line(&kLine);
    platform::install_usb(&usb_);
    platform::install_device_file(&kDevice);
    platform::install_clock(&kClock);
    platform::install_text(&text_);
    platform::install_image_decoder(&decoder_);
  }
  ~FaultyPlatform() {
    platform::install_usb(usb_below);
    platform::install_serial_line(line_below);
    platform::install_socket_ops(sockets_below);
    platform::install_image_decoder(nullptr);
    platform::install_text(nullptr);
    platform::install_clock(clock_below);
    platform::install_device_file(device);
    plan = nullptr;
  }

 private:
  platform::TextOps text_;
  platform::ImageDecoderOps decoder_;
  platform::UsbOps usb_;
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

// The kinds of port the calls run on, each on its scripted fake.
struct Link {
  const char* name;
  const char* port;
  const char16_t* printer_port;
};
constexpr Link kLinks[] = {
    {"parallel", "LPT1", VW("LPT1")},
    {"serial", "COM2,9600", VW("COM2,9600")},
    {"network", "NET,10.0.0.7", VW("NET,10.0.0.7")},
    {"usb", "USB", VW("USB")},
};

// The scripted devices behind every kind of port. The printer answers every
// question with a version text whose first bytes also serve as one-byte
// status answers.
struct Fakes {
  Fakes() {
    device.idle_read_ms = 500;
    usb.devices = {{"/usb/printer", "USB\\VID_5A3C&PID_7008&REV_0100", "1-3", "usbprint"}};
    for (int i = 0; i < 2; ++i) {
      device.read_script.push_back({.bytes = {'_', '1', '.', '2', ' ', 0}});
      sockets.recvs.push_back({.bytes = {'_', '1', '.', '2', ' ', 0}});
    }
  }
  // The next write on `link` fails with EIO and takes nothing.
  void fail_next_write(const Link& link) {
    if (link.printer_port[0] == VW('N')) {
      sockets.sends.push_back({.error = EIO});
    } else {
      device.write_script.push_back({.accept = 0, .error = EIO});
    }
  }

  FakeClock clock;
  FakeDevice device;
  FakeSockets sockets;
  FakeSerialLine line;
  FakeUsb usb;
};

// Runs `call` on `link` once with allocation `fail_allocation` failing (-1:
// none) and platform call `plan.fail_at` failing.
template <typename Call>
Run run_once(const Call& call, const Link& link, int64_t fail_allocation, Plan plan_for_run) {
  Run run;
  Fakes fakes;
  VORN_PRINTER printer = nullptr;
  VORN_PORT port = nullptr;
  if constexpr (std::is_same_v<Call, PrinterCall>) {
    printer = PrinterCreatorS("VR-T80A");
    EXPECT_EQ(PortOpen(printer, link.printer_port), VORN_OK);
    // Bytes of an earlier call wait in the buffer: its write failed.
    fakes.fail_next_write(link);
    EXPECT_EQ(FeedLine(printer, 1), EIO);
    printer->port->write = recording_write;
    run.before = pending(printer);
  } else if constexpr (std::is_same_v<Call, PortCall>) {
    EXPECT_EQ(vorn_io_port_creator(&port, link.port), VORN_OK);
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
void walk(const Call& call, const Link& link) {
  const Run clean = run_once(call, link, -1, {});
  ASSERT_FALSE(clean.threw) << call.name;
  for (int64_t i = 0; i < clean.allocations; ++i) {
    const std::string what = std::string(call.name) + ", allocation " + std::to_string(i);
    const Run run = run_once(call, link, i, {});
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
    const Slot slot = clean.platform_calls[i];
    std::vector<int32_t> failures = failures_of(slot);
    if (slot == Slot::kWrite || slot == Slot::kSend) failures.push_back(kShortWrite);
    for (int32_t failure : failures) {
      const std::string what = std::string(call.name) + ", platform call " + std::to_string(i) +
                               " fails with " + std::to_string(failure);
      const Plan first{.fail_at = static_cast<int64_t>(i), .failure = failure};
      const Run run = run_once(call, link, -1, first);
      EXPECT_FALSE(run.threw) << what;
      expect_buffer_consistent(clean, run, what);
      // A reset, or a send that took nothing, makes the driver connect
      // again: each call after it fails in turn as well.
      if (slot != Slot::kSend || (failure != ECONNRESET && failure != 0)) continue;
      for (size_t j = i + 1; j < run.platform_calls.size(); ++j) {
        for (int32_t then : failures_of(run.platform_calls[j])) {
          Plan second = first;
          second.then_at = static_cast<int64_t>(j);
          second.then_failure = then;
          const Run again = run_once(call, link, -1, second);
          const std::string and_then =
              what + ", then call " + std::to_string(j) + " with " + std::to_string(then);
          EXPECT_FALSE(again.threw) << and_then;
          expect_buffer_consistent(clean, again, and_then);
        }
      }
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
    set_sample_image(WideString(image_.begin(), image_.end()));
    Args::value_guard = AllocationFaults::hold;
  }
  static void TearDownTestSuite() {
    Args::value_guard = nullptr;
    std::remove(image_.c_str());
  }
  static inline std::string image_;
};

TEST_F(FaultWalk, EveryCallFailsCleanlyAtEachAllocationAndPlatformCall) {
  for (const Link& link : kLinks) {
    SCOPED_TRACE(link.name);
    set_printer_port(link.printer_port);
    for (const PrinterCall& call : printer_calls()) walk(call, link);
    for (const PortCall& call : port_calls()) walk(call, link);
  }
  set_printer_port(VW("LPT1"));
  for (const FreeCall& call : free_calls()) walk(call, kLinks[0]);
}

}  // namespace
}  // namespace vorn::test
