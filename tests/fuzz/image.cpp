// Image files of every format through the decoders and the image commands:
// any file gives a result, a refused one leaves the command buffer as it was,
// and nothing is read or written outside a buffer.
#include <vorn/vorn.h>

#include <string>
#include <vector>

#include "fuzz_support.h"
#include "support/wide_text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const WideString path = vorn::fuzz::scratch_file("input.img", {data, size});
  const auto* file = reinterpret_cast<const VORN_WCHAR*>(path.c_str());
  // A receipt model without compression, a mobile model with it: both
  // raster paths and both size limits.
  for (const char* model : {"VR-T80A", "VR-M58A"}) {
    vorn::fuzz::Session session(model);
    const std::vector<uint8_t> before = session.pending();
    if (PrintImage(session.handle(), file, static_cast<int32_t>(size % 4)) != VORN_OK) {
      FUZZ_CHECK(session.pending() == before);
    }
    if (DefineNVImage(session.handle(), file, 0x41, 0x42) != VORN_OK) {
      FUZZ_CHECK(session.pending() == before);
    }
  }
  return 0;
}
