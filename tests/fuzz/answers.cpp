// The printer's answers to the status, drawer, firmware and QR-size
// questions, as any sequence of reads may deliver them: every query ends
// with a result, writes only the room it was given, and leaves nothing in
// the command buffer (every question went out whole).
#include <vorn/vorn.h>

#include <algorithm>
#include <memory>

#include "fuzz_support.h"
#include "support/api_calls.h"
#include "support/wide_text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vorn::test::Args args({data, size});
  vorn::fuzz::Session session(vorn::fuzz::model_name(args.byte()));
  const uint8_t query = args.byte();
  const uint8_t detail = args.byte();
  // The rest is the answer, cut into reads: a length byte, then the bytes.
  while (!args.exhausted()) {
    vorn::test::ReadStep step;
    step.bytes = args.bytes({});
    step.ms = detail & 0x0F;
    session.device.read_script.push_back(step);
  }
  switch (query % 5) {
    case 0: {
      uint32_t state = 0xFFFFFFFF;
      if (GetPrinterState(session.handle(), &state) != VORN_OK) FUZZ_CHECK(state & 0x20);
      FUZZ_CHECK((state & ~0xA7u) == 0);
      break;
    }
    case 1: {
      uint32_t state = 0xFFFFFFFF;
      if (GetCashDrawerState(session.handle(), &state) == VORN_OK) FUZZ_CHECK(state <= 1);
      break;
    }
    case 2: {
      // Exactly the entries the header promises are written.
      const int32_t count = static_cast<int8_t>(detail) % 5;
      const size_t room = static_cast<size_t>(std::clamp(count, 0, 2)) + 1;
      auto version = std::make_unique<int32_t[]>(room);
      GetFirmwareVersion(session.handle(), version.get(), count);
      break;
    }
    case 3:
      PrintTwoQRCode(session.handle(), VW("https://example.com/a"), detail % 9, 0, 0, VW("b"),
                     detail % 7, 200, 0);
      break;
    default: {
      const uint32_t room = detail % 16;
      auto buffer = std::make_unique<uint8_t[]>(room + 2);
      uint32_t count = 0;
      ReadDataEOF(session.handle(), buffer.get(), 2, room + 2, detail & 0x80 ? 0x5F : 0, 0, &count);
      FUZZ_CHECK(count <= room);
      break;
    }
  }
  FUZZ_CHECK(session.pending().empty());
  return 0;
}
