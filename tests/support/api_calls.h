// Every exported function as a table of calls with their arguments drawn
// from one source: typical values (the fault walker makes each call fail in
// turn at every allocation and platform call) or fuzzer bytes (the printing
// fuzz target). One table serves both, so a function added to the API is
// walked and fuzzed once it has its row.
#pragma once

#include <vorn/vorn.h>

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <vector>

#include "support/wide_text.h"

namespace vorn::test {

// Arguments of one call: with no bytes every value is the typical one; with
// bytes each value is read from them (a selector byte chooses the typical
// value, a small number or a wide one), typical once they run out. A zero
// byte always stands for the typical value.
class Args {
 public:
  Args() = default;
  explicit Args(std::span<const uint8_t> bytes) : bytes_(bytes) {}

  int32_t number(int32_t typical);
  WideString text(std::basic_string_view<VORN_WCHAR> typical);
  std::vector<uint8_t> bytes(std::initializer_list<uint8_t> typical);
  // A raw byte, 0 when none is left.
  uint8_t byte();
  bool exhausted() const { return bytes_.empty(); }

  // Called with true before and false after the making of each value that
  // allocates, so that a test counting the library's allocations leaves the
  // arguments' own out.
  static inline void (*value_guard)(bool making) = nullptr;

 private:
  uint64_t take(size_t count);
  std::span<const uint8_t> bytes_;
};

// The bytes of a small image file for the image calls.
std::span<const uint8_t> sample_image_file();
// The image file the image calls name (UTF-16, zero-terminated); a small
// picture every model that prints images takes.
void set_sample_image(WideString path);
const VORN_WCHAR* sample_image();
// The port PortOpen opens unless the arguments say otherwise ("LPT1" until
// set): the fault walk opens each kind of port in turn.
void set_printer_port(WideString name);

struct PrinterCall {
  const char* name;
  // Runs the call on a handle whose port is open.
  int32_t (*run)(VORN_PRINTER handle, Args& args);
};
struct PortCall {
  const char* name;
  // Runs the call on an open port.
  int32_t (*run)(VORN_PORT port, Args& args);
};
// What a free call gives for PrinterCreatorS's null handle: that function has
// no result code, a null handle is its only report of a failure.
inline constexpr int32_t kNullHandle = INT32_MIN;

struct FreeCall {
  const char* name;
  // Runs a call that needs no handle; what it creates it destroys again.
  int32_t (*run)(Args& args);
};

std::span<const PrinterCall> printer_calls();
std::span<const PortCall> port_calls();
std::span<const FreeCall> free_calls();

}  // namespace vorn::test
