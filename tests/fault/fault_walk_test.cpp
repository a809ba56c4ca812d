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
#include <iterator>
#include <optional>
#include <string>
#include <type_traits>
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

// The platform calls that can fail.
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

// How each can fail, in the order of the slots. 0 stands for "no error
// number, but no result either": a transfer, connect or wait whose limit ran
// out, a decoder that lost its number, a send that took nothing, a receive
// or look that found the peer gone. 1 and 2 for the line: its settings could
// not be read, or not be written.
const std::vector<int32_t> kFailures[] = {
    {ENOENT, EACCES, EBUSY, EINTR},         // open
    {EIO, EINTR, EAGAIN, ECONNRESET, 0},    // write
    {EIO, EINTR, EAGAIN, ECONNRESET, 0},    // read
    {EILSEQ, EINVAL, E2BIG, ENOMEM},        // to narrow
    {EILSEQ, EINVAL, E2BIG, ENOMEM},        // to wide
    {EINVAL, ENOMEM},                       // message
    {EINVAL, ENOMEM},                       // start
    {ENOENT, EILSEQ, ENOMEM, 0},            // load
    {ENOENT, EILSEQ},                       // measure
    {EMFILE, EACCES},                       // socket setup
    {ECONNREFUSED, EINTR, 0},               // connect
    {EINTR, EBADF, 0},                      // wait
    {EBADF},                                // query
    {ECONNRESET, EPIPE, EINTR, EAGAIN, 0},  // send
    {ECONNRESET, EINTR, EAGAIN, 0},         // receive
    {1, 2},                                 // line
    {EIO, EINTR},                           // purge
    {EACCES, ENOMEM},                       // enumerate
};
const std::vector<int32_t>& failures_of(Slot slot) {
  return kFailures[static_cast<size_t>(slot)];
}
static_assert(std::size(kFailures) == static_cast<size_t>(Slot::kEnumerate) + 1);

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

// The tables in force underneath: the scripted device, clock, sockets,
// serial line and USB list, the system's text and image decoding.
template <typename Ops>
const Ops* below = nullptr;

// What a failing platform call returns, by its result type. 0 stands for a
// timed-out transfer or connect.
template <typename R>
R failed() {
  if constexpr (std::is_same_v<R, bool>) {
    return false;
  } else if constexpr (std::is_same_v<R, platform::LineSetup>) {
    return plan->failure == 1 ? platform::LineSetup::kReadFailed
                              : platform::LineSetup::kWriteFailed;
  } else if constexpr (std::is_same_v<R, platform::SocketWait>) {
    return {.error = plan->failure, .ready = false};
  } else if constexpr (std::is_same_v<R, platform::SocketTransfer>) {
    return {.error = plan->failure, .count = 0};
  } else if constexpr (std::is_same_v<R, int32_t>) {
    return plan->failure;
  } else {
    return {.error = plan->failure, .timed_out = plan->failure == 0};
  }
}

// The entry `Field` of the table underneath, failing as the plan says when
// `slot` is one that fails (kNever: it never does). `paused` keeps the
// fakes' own allocations out of the walk's count.
constexpr Slot kNever = static_cast<Slot>(-1);
template <auto Field, Slot slot, bool paused>
struct Failing;
template <typename Ops, typename R, typename... A, R (*Ops::*Field)(A...), Slot slot, bool paused>
struct Failing<Field, slot, paused> {
  static R call(A... args) {
    if constexpr (slot != kNever) {
      if (plan->hit(slot)) return failed<R>();
    }
    if (below<Ops>->*Field == nullptr) return R();
    std::optional<AllocationFaults::Pause> pause;
    if (paused) pause.emplace();
    return (below<Ops>->*Field)(args...);
  }
};
template <auto Field, Slot slot, bool paused = true>
constexpr auto failing = Failing<Field, slot, paused>::call;

// Writes can also take part of what they are given and report no error; a
// failed text conversion writes nothing, a failed load gives no image.
constexpr int32_t kShortWrite = -1;
platform::Attempt write(platform::DeviceHandle handle, const uint8_t* data, uint32_t length,
                        uint32_t wait_ms) {
  const bool fails = plan->hit(Slot::kWrite);
  if (fails && plan->failure != kShortWrite) return failed<platform::Attempt>();
  AllocationFaults::Pause fixture;
  return below<platform::DeviceFileOps>->write(handle, data, fails ? length / 2 : length, wait_ms);
}
platform::SocketTransfer send(platform::SocketHandle socket, const uint8_t* data, uint32_t length) {
  const bool fails = plan->hit(Slot::kSend);
  if (fails && plan->failure != kShortWrite) return failed<platform::SocketTransfer>();
  AllocationFaults::Pause fixture;
  return below<platform::SocketOps>->send(socket, data, fails ? length / 2 : length);
}
int32_t to_narrow(const char16_t* text, size_t units, char* out, size_t size, size_t* written) {
  if (plan->hit(Slot::kToNarrow)) return *written = 0, plan->failure;
  return below<platform::TextOps>->to_narrow(text, units, out, size, written);
}
int32_t to_wide(const char* text, size_t bytes, char16_t* out, size_t units, size_t* written) {
  if (plan->hit(Slot::kToWide)) return *written = 0, plan->failure;
  return below<platform::TextOps>->to_wide(text, bytes, out, units, written);
}
int32_t load(const char16_t* path, platform::DecodedImage* out) {
  if (plan->hit(Slot::kLoad)) return *out = nullptr, plan->failure;
  return below<platform::ImageDecoderOps>->load(path, out);
}

// Installs the failing tables over the ones in force for one run.
class FaultyPlatform {
 public:
  explicit FaultyPlatform(Plan& p) {
    using namespace platform;
    plan = &p;
    device_ = *(below<DeviceFileOps> = &device_file());
    device_.open_existing = failing<&DeviceFileOps::open_existing, Slot::kOpen>;
    device_.close = failing<&DeviceFileOps::close, kNever>;
    device_.write = write;
    device_.read = failing<&DeviceFileOps::read, Slot::kRead>;
    clock_ = *(below<ClockOps> = &clock());
    clock_.sleep_ms = failing<&ClockOps::sleep_ms, kNever>;
    text_ = *(below<TextOps> = &text());
    text_.to_narrow = to_narrow;
    text_.to_wide = to_wide;
    text_.system_message = failing<&TextOps::system_message, Slot::kMessage, false>;
    text_.system_message_wide = failing<&TextOps::system_message_wide, Slot::kMessage, false>;
    decoder_ = *(below<ImageDecoderOps> = &image_decoder());
    decoder_.start = failing<&ImageDecoderOps::start, Slot::kStart, false>;
    decoder_.load = load;
    if (decoder_.measure) {
      decoder_.measure = failing<&ImageDecoderOps::measure, Slot::kMeasure, false>;
    }
    sockets_ = *(below<SocketOps> = &socket_ops());
    sockets_.startup = failing<&SocketOps::startup, Slot::kSocketSetup, false>;
    sockets_.parse_ipv4 = failing<&SocketOps::parse_ipv4, Slot::kSocketSetup, false>;
    sockets_.open_tcp = failing<&SocketOps::open_tcp, Slot::kSocketSetup>;
    sockets_.set_option = failing<&SocketOps::set_option, Slot::kSocketSetup>;
    sockets_.bind = failing<&SocketOps::bind, Slot::kSocketSetup, false>;
    sockets_.connect = failing<&SocketOps::connect, Slot::kConnect>;
    sockets_.wait = failing<&SocketOps::wait, Slot::kWait, false>;
    sockets_.pending_error = failing<&SocketOps::pending_error, Slot::kQuery, false>;
    sockets_.send = send;
    sockets_.recv = failing<&SocketOps::recv, Slot::kReceive>;
    sockets_.peek = failing<&SocketOps::peek, Slot::kReceive, false>;
    sockets_.close = failing<&SocketOps::close, kNever>;
    line_ = *(below<SerialLineOps> = &serial_line());
    line_.files = &device_;
    line_.configure = failing<&SerialLineOps::configure, Slot::kLine>;
    line_.get_timeouts = failing<&SerialLineOps::get_timeouts, Slot::kLine>;
    line_.set_timeouts = failing<&SerialLineOps::set_timeouts, Slot::kLine>;
    line_.set_queue_sizes = failing<&SerialLineOps::set_queue_sizes, Slot::kLine>;
    line_.purge = failing<&SerialLineOps::purge, Slot::kPurge>;
    // The USB family's transfers reach the failing device-file table; only
    // the device list fails here.
    usb_ = *(below<UsbOps> = &usb());
    usb_.enumerate = failing<&UsbOps::enumerate, Slot::kEnumerate, false>;
    install_socket_ops(&sockets_);
    install_serial_line(&line_);
    install_usb(&usb_);
    install_device_file(&device_);
    install_clock(&clock_);
    install_text(&text_);
    install_image_decoder(&decoder_);
  }
  ~FaultyPlatform() {
    platform::install_usb(below<platform::UsbOps>);
    platform::install_serial_line(below<platform::SerialLineOps>);
    platform::install_socket_ops(below<platform::SocketOps>);
    platform::install_image_decoder(nullptr);
    platform::install_text(nullptr);
    platform::install_clock(below<platform::ClockOps>);
    platform::install_device_file(below<platform::DeviceFileOps>);
    plan = nullptr;
  }

 private:
  platform::DeviceFileOps device_;
  platform::ClockOps clock_;
  platform::TextOps text_;
  platform::ImageDecoderOps decoder_;
  platform::SocketOps sockets_;
  platform::SerialLineOps line_;
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
