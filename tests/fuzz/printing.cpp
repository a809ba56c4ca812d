// Every printing call with arguments from the input, in any order, on any
// catalogue model: a call that fails leaves the command buffer exactly as it
// found it (the scripted device takes every write, so no failure comes from
// the port), and nothing is written outside a buffer.
#include <vorn/vorn.h>

#include <cstring>
#include <vector>

#include "fuzz_support.h"
#include "support/api_calls.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool sample_ready = [] {
    vorn::test::set_sample_image(
        vorn::fuzz::scratch_file("sample.bmp", vorn::test::sample_image_file()));
    return true;
  }();
  (void)sample_ready;
  vorn::test::Args args({data, size});
  vorn::fuzz::Session session(vorn::fuzz::model_name(args.byte()));
  session.device.idle_read_ms = 100;
  const auto calls = vorn::test::printer_calls();
  for (int steps = 0; steps < 64 && !args.exhausted(); ++steps) {
    const vorn::test::PrinterCall& call = calls[args.byte() % calls.size()];
    // Another port would be a real one: serial lines and sockets.
    if (std::strcmp(call.name, "PortOpen") == 0) continue;
    const std::vector<uint8_t> before = session.pending();
    const int32_t result = call.run(session.handle(), args);
    if (result != VORN_OK) FUZZ_CHECK(session.pending() == before);
  }
  return 0;
}
