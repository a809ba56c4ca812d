// PrintBarCode: one-dimensional barcodes through GS k, and the
// two-dimensional symbol types handed over to the symbol path.
#include <memory>
#include <new>

#include "escpos/common_encoders.h"
#include "escpos/encoder.h"
#include "escpos/symbols.h"

namespace vorn::escpos {
namespace {

constexpr int32_t kCode128 = 73;
constexpr uint8_t kSegmentStart = '{';
constexpr uint8_t kCodeSetC = 'C';

int32_t encode_module_width(const Target& t, uint8_t n) {
  return emit(t, n >= 1 && n <= 6, {0x1D, 0x77, n});
}
int32_t encode_height(const Target& t, uint8_t n) {
  return emit(t, n != 0, {0x1D, 0x68, n});
}
// The HRI position is checked whole: 257 is not 1.
int32_t encode_hri_position(const Target& t, int32_t position) {
  const bool valid = (position >= 0 && position <= 3) || (position >= 48 && position <= 51);
  return emit(t, valid, {0x1D, 0x48, byte_of(position)});
}

// GS k in form A (m 0 to 6, data ended by NUL) or form B (m 65 to 73, data
// preceded by its length byte). Both need the data plus four bytes.
int32_t encode_print_barcode(const Target& t, int32_t type, std::span<const uint8_t> data) {
  const uint64_t size = static_cast<uint64_t>(data.size()) + 4;
  const bool form_a = type >= 0 && type <= 6;
  const bool form_b = type >= 65 && type <= kCode128;
  // A form B length that does not fit its byte would make the printer read
  // the wrong number of bytes; such data is refused rather than cut.
  const bool valid = form_a || (form_b && data.size() <= 0xFF);
  const int32_t result = check(t, size, valid);
  if (result != VORN_OK) return result;
  const auto m = static_cast<uint8_t>(type);
  if (form_a) {
    put(t, {0x1D, 0x6B, m});
    put(t, data);
    put(t, {0x00});
  } else {
    put(t, {0x1D, 0x6B, m, static_cast<uint8_t>(data.size())});
    put(t, data);
  }
  return VORN_OK;
}

// One segment of CODE128 data in code set C: the two bytes that select the
// set stay, every following pair of digits becomes one byte. `after` is the
// byte that follows the segment (the next "{" or the terminating zero); an odd
// last digit is paired with it, as the printers expect.
uint32_t pack_code_set_c(std::span<const uint8_t> segment, uint8_t after, uint8_t* out) {
  uint32_t produced = 0;
  out[produced++] = segment[0];
  out[produced++] = segment[1];
  for (size_t i = 2; i < segment.size(); i += 2) {
    const uint8_t second = i + 1 < segment.size() ? segment[i + 1] : after;
    out[produced++] = static_cast<uint8_t>((segment[i] - 0x30) * 10 + (second - 0x30));
  }
  return produced;
}

// Cuts the data into segments at every "{" but a leading one and packs those
// in code set C; the packed data is never longer than the original.
uint32_t pack_code128(std::span<const uint8_t> data, uint8_t* out) {
  uint32_t produced = 0;
  size_t begin = 0;
  while (begin < data.size()) {
    size_t end = begin + 1;
    while (end < data.size() && data[end] != kSegmentStart) ++end;
    const std::span<const uint8_t> segment = data.subspan(begin, end - begin);
    if (segment.size() >= 2 && segment[1] == kCodeSetC) {
      const uint8_t after = end < data.size() ? data[end] : 0;
      produced += pack_code_set_c(segment, after, out + produced);
    } else {
      for (uint8_t byte : segment) out[produced++] = byte;
    }
    begin = end;
  }
  return produced;
}

int32_t build_barcode(printer::CommandContext& context, int32_t type, std::span<const uint8_t> data,
                      uint8_t width, uint8_t height, uint8_t alignment, int32_t hri_position) {
  const uint64_t room = static_cast<uint64_t>(data.size()) + printer::kCommandRoom;
  if (room > UINT32_MAX || printer::ensure_room(&context, static_cast<uint32_t>(room)) != VORN_OK) {
    return VORN_ERR_NO_MEMORY;
  }
  Rollback rollback(context);
  // In page mode the page commands place the barcode; no justification.
  if (!context.page_mode) {
    const int32_t result = encode_justification(target_of(context), alignment);
    if (result != VORN_OK) return result;
  }
  if (type >= kSymbolPdf417) {
    return rollback.finish(build_barcode_symbol(context, type, data, width, height));
  }

  std::unique_ptr<uint8_t[]> packed;
  if (type == kCode128) {
    packed.reset(new (std::nothrow) uint8_t[data.size() == 0 ? 1 : data.size()]);
    if (!packed) return VORN_ERR_NO_MEMORY;
    data = {packed.get(), pack_code128(data, packed.get())};
  }
  const Target t = target_of(context);
  int32_t result = encode_module_width(t, width);
  if (result == VORN_OK) result = encode_height(t, height);
  if (result == VORN_OK) result = encode_hri_position(t, hri_position);
  if (result == VORN_OK) result = encode_print_barcode(t, type, data);
  return rollback.finish(result);
}

}  // namespace
}  // namespace vorn::escpos

extern "C" {

VORN_API int32_t VORN_CALL PrintBarCode(VORN_PRINTER handle, int32_t barcodeType,
                                        const VORN_WCHAR* data, int32_t width, int32_t height,
                                        int32_t alignment, int32_t hriPosition) {
  using namespace vorn::escpos;
  return vorn::printer::run_printing_call(handle, [&](vorn::printer::CommandContext& c) {
    vorn::printer::NarrowText bytes;
    const int32_t result = vorn::printer::to_narrow_owned(data, &bytes);
    if (result != VORN_OK) return result;
    return build_barcode(c, barcodeType, bytes.view(), byte_of(width), byte_of(height),
                         byte_of(alignment), hriPosition);
  });
}

}  // extern "C"
