// PrintTwoQRCode: two QR codes on one page-mode page. The library does not
// know how large a QR Code comes out; the printer encodes each symbol once,
// reports its size in dots, and the page and both positions are computed
// from those answers.
#include <algorithm>

#include "escpos/common_encoders.h"
#include "escpos/encoder.h"
#include "escpos/page_mode.h"
#include "escpos/symbols.h"
#include "platform/clock.h"

namespace vorn::escpos {
namespace {

constexpr int64_t kPageWidth = 384;
// The print area is this much higher than the taller symbol.
constexpr int64_t kPageMargin = 8;
constexpr uint32_t kTextArea = 260;  // 259 bytes of text and the terminator
constexpr uint32_t kAnswerWait = 100;
constexpr uint32_t kAnswerArea = 32;
constexpr size_t kMaxAnswerText = 18;
constexpr uint8_t kSeparator = 0x1F;
constexpr float kFineMotionUnit = 0.0625f;
constexpr int32_t kPrintedSymbolType = kSymbolQrCodeAlternate;
constexpr uint8_t kPrintedErrorCorrection = 0x30;

// Position codes; any other value is a position in dots.
constexpr int32_t kAtStart = 0;
constexpr int32_t kCentred = 1;
constexpr int32_t kAtEnd = 2;

struct SymbolSize {
  int64_t horizontal = 0;
  int64_t vertical = 0;
};

struct SymbolText {
  char bytes[kTextArea];
  uint32_t length;
  std::span<const uint8_t> view() const {
    return {reinterpret_cast<const uint8_t*>(bytes), length};
  }
};

// A decimal field as the C library reads one: leading blanks, an optional
// sign, digits up to the first other character. The answer text is at most
// 18 bytes, so the value always fits 64 bits.
int64_t read_decimal(const uint8_t* text, const uint8_t* end) {
  while (text < end && (*text == ' ' || (*text >= '\t' && *text <= '\r'))) ++text;
  bool negative = false;
  if (text < end && (*text == '+' || *text == '-')) negative = *text++ == '-';
  int64_t value = 0;
  for (; text < end && *text >= '0' && *text <= '9'; ++text) value = value * 10 + (*text - '0');
  return negative ? -value : value;
}

// The answer to transmit-size-information: "76", the horizontal size, 0x1F,
// the vertical size, 0x1F, bytes not used, then the zero byte that ended the
// read. -30 for anything else.
int32_t parse_size_answer(const uint8_t* answer, uint32_t count, SymbolSize* size) {
  const uint8_t* end = std::find(answer, answer + count, 0);
  const auto text_length = static_cast<size_t>(end - answer);
  if (text_length > kMaxAnswerText || text_length < 2) return VORN_ERR_BAD_ANSWER;
  if (answer[0] != 0x37 || answer[1] != 0x36) return VORN_ERR_BAD_ANSWER;
  const uint8_t* first = std::find(answer + 2, end, kSeparator);
  if (first == end) return VORN_ERR_BAD_ANSWER;
  const uint8_t* second = std::find(first + 1, end, kSeparator);
  if (second == end) return VORN_ERR_BAD_ANSWER;
  size->horizontal = read_decimal(answer + 2, end);
  size->vertical = read_decimal(first + 1, end);
  return VORN_OK;
}

int32_t send_built(VORN_PRINTER handle, int32_t built) {
  return built == VORN_OK ? printer::send(handle) : built;
}

// Lets the printer encode the symbol and reads back its size in dots.
int32_t measure(VORN_PRINTER handle, const SymbolText& text, uint8_t module_size,
                SymbolSize* size) {
  printer::CommandContext& context = *handle->context;
  int32_t result = send_built(handle, build_qr_size_query(context, text.view(), module_size));
  if (result != VORN_OK) return result;
  // The printer needs a moment to encode the symbol before it answers.
  platform::clock().sleep_ms(kAnswerWait);
  uint8_t answer[kAnswerArea] = {};
  uint32_t count = 0;
  result = printer::delimited_read(handle, answer, 0, kAnswerArea, 0, 0, &count);
  if (result != VORN_OK) return result;
  result = parse_size_answer(answer, count, size);
  if (result != VORN_OK) return result;
  // Models with the finer motion unit count vertical positions in half dots.
  if (context.record != nullptr && context.record->fine_motion_unit_mm == kFineMotionUnit) {
    size->vertical *= 2;
  }
  return VORN_OK;
}

int64_t horizontal_position(int32_t code, int64_t symbol_width) {
  switch (code) {
    case kAtStart:
      return 1;
    case kCentred:
      return (kPageWidth - symbol_width) / 2;
    case kAtEnd:
      return kPageWidth - symbol_width - 1;
    default:
      return code;
  }
}

int64_t vertical_position(int32_t code, int64_t symbol_height, int64_t page_height) {
  switch (code) {
    case kAtStart:
      return 1;
    case kCentred:
      return (page_height - symbol_height) / 2;
    case kAtEnd:
      return page_height - symbol_height;
    default:
      return code;
  }
}

// A computed value as a command argument: one that does not fit a 16-bit
// field becomes -1, which every such encoder refuses.
int32_t as_argument(int64_t value) {
  return fits_u16(value) ? static_cast<int32_t>(value) : -1;
}

// ESC $ and GS $ for one symbol, then its QR Code sequence, written together.
// A failure takes back the whole placement.
int32_t place_and_print(VORN_PRINTER handle, const SymbolText& text, uint8_t module_size,
                        int32_t x_code, int32_t y_code, const SymbolSize& size,
                        int64_t page_height) {
  printer::CommandContext& context = *handle->context;
  int32_t result = VORN_OK;
  {
    Rollback rollback(context);
    const int32_t x = as_argument(horizontal_position(x_code, size.horizontal));
    const int32_t y = as_argument(vertical_position(y_code, size.vertical, page_height));
    result = with_room(context, [x](const Target& t) { return encode_absolute_position(t, x); });
    if (result == VORN_OK) result = build_vertical_position(context, y);
    // Justification 0 is never sent: the page-mode flag is set by now.
    if (result == VORN_OK) {
      result = build_symbol(context, kPrintedSymbolType, text.view(), kPrintedErrorCorrection,
                            module_size, 0, 0);
    }
    rollback.finish(result);
  }
  return send_built(handle, result);
}

int32_t convert(const VORN_WCHAR* data, SymbolText* text) {
  return printer::to_narrow_text(data, text->bytes, kTextArea, &text->length);
}

}  // namespace
}  // namespace vorn::escpos

extern "C" {

VORN_API int32_t VORN_CALL PrintTwoQRCode(VORN_PRINTER handle, const VORN_WCHAR* data1,
                                          int32_t moduleSize1, int32_t xPosition1,
                                          int32_t yPosition1, const VORN_WCHAR* data2,
                                          int32_t moduleSize2, int32_t xPosition2,
                                          int32_t yPosition2) {
  using namespace vorn::escpos;
  int32_t result = vorn::printer::check_session(handle);
  if (result != VORN_OK) return result;
  SymbolText text1;
  SymbolText text2;
  result = convert(data1, &text1);
  if (result != VORN_OK) return result;
  result = convert(data2, &text2);
  if (result != VORN_OK) return result;

  const uint8_t module1 = byte_of(moduleSize1);
  const uint8_t module2 = byte_of(moduleSize2);
  SymbolSize size1;
  SymbolSize size2;
  result = measure(handle, text1, module1, &size1);
  if (result != VORN_OK) return result;
  result = measure(handle, text2, module2, &size2);
  if (result != VORN_OK) return result;
  const int64_t page_height = std::max(size1.vertical, size2.vertical);

  vorn::printer::CommandContext& context = *handle->context;
  result = send_built(handle, build_select_page_mode(context));
  if (result != VORN_OK) return result;
  result = send_built(handle, build_print_area(context, 0, 0, static_cast<int32_t>(kPageWidth),
                                               as_argument(page_height + kPageMargin)));
  if (result != VORN_OK) return result;
  result = place_and_print(handle, text1, module1, xPosition1, yPosition1, size1, page_height);
  if (result != VORN_OK) return result;
  result = place_and_print(handle, text2, module2, xPosition2, yPosition2, size2, page_height);
  if (result != VORN_OK) return result;
  return send_built(handle, build_print_and_return(context));
}

}  // extern "C"
