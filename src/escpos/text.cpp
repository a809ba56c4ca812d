// Text printing. PrintText sends the text with its layout (justification,
// attributes, character size); PrintTextS sends the bytes alone so that the
// printer's current modes apply. Both convert the UTF-16 text to the system's
// narrow code page first.
#include <span>

#include "escpos/common_encoders.h"

namespace vorn::escpos {
namespace {

using printer::CommandContext;

// The model that ends a page-mode text with a line feed of its own.
constexpr uint32_t kModelNeedingPageModeLineFeed = 0x1102;
constexpr uint8_t kLineFeed = 0x0A;
// Room made before the text beyond its own bytes: the layout commands and
// the line feed all fit.
constexpr uint32_t kLayoutRoom = 64;

// The text copy needs one byte more than the text, kept for the line feed a
// page-mode text may get. No capability check: raw text goes to any model.
int32_t append_text(const Target& t, std::span<const uint8_t> text) {
  const uint64_t free_space = t.capacity >= *t.length ? t.capacity - *t.length : 0;
  if (t.buffer == nullptr || free_space < text.size() + 1) return VORN_ERR_BUFFER_TOO_SMALL;
  put(t, text);
  return VORN_OK;
}

// Attributes 0 resets the print modes; anything else sends all five switches,
// each on or off by its bit.
int32_t encode_attributes(const Target& t, int32_t attributes) {
  if (attributes == 0) {
    int32_t result = encode_print_mode(t, 0);
    if (result == VORN_OK) result = encode_reverse(t, 0);
    return result;
  }
  auto bit = [&](int n) { return static_cast<uint8_t>((attributes >> n) & 1); };
  int32_t result = encode_font(t, bit(0));
  if (result == VORN_OK) result = encode_emphasized(t, bit(1));
  if (result == VORN_OK) result = encode_underline(t, bit(2));
  if (result == VORN_OK) result = encode_reverse(t, bit(3));
  if (result == VORN_OK) result = encode_double_strike(t, bit(4));
  return result;
}

struct TextLayout {
  uint8_t alignment;
  int32_t attributes;
  uint8_t size;
};

int32_t build_text(CommandContext& context, std::span<const uint8_t> text,
                   const TextLayout& layout) {
  Rollback rollback(context);
  if (printer::ensure_room(&context, static_cast<uint32_t>(text.size()) + kLayoutRoom) != VORN_OK) {
    return VORN_ERR_NO_MEMORY;
  }
  const Target t = target_of(context);
  // In page mode the print area decides the position: justification would
  // fight it, so it is neither sent nor checked.
  int32_t result = context.page_mode ? VORN_OK : encode_justification(t, layout.alignment);
  if (result == VORN_OK) result = encode_attributes(t, layout.attributes);
  if (result == VORN_OK) result = encode_character_size(t, layout.size);
  if (result == VORN_OK) result = append_text(t, text);
  // This model expects every page-mode text to end with a line feed; one is
  // added unless the text brings its own.
  if (result == VORN_OK && context.page_mode && context.model_id == kModelNeedingPageModeLineFeed &&
      (text.empty() || text.back() != kLineFeed)) {
    put(t, {kLineFeed});
  }
  return rollback.finish(result);
}

int32_t build_bare_text(CommandContext& context, std::span<const uint8_t> text) {
  if (printer::ensure_room(&context, static_cast<uint32_t>(text.size()) + kLayoutRoom) != VORN_OK) {
    return VORN_ERR_NO_MEMORY;
  }
  return append_text(target_of(context), text);
}

// The shared front end: the frame, the conversion into a temporary buffer,
// then `builder` on the converted bytes.
template <typename Builder>
int32_t print_converted(VORN_PRINTER handle, const VORN_WCHAR* text, Builder&& builder) {
  return printer::run_printing_call(handle, [&](CommandContext& context) -> int32_t {
    printer::NarrowText narrow;
    const int32_t result = printer::to_narrow_owned(text, &narrow);
    if (result != VORN_OK) return result;
    return builder(context, narrow.view());
  });
}

}  // namespace
}  // namespace vorn::escpos

extern "C" {

VORN_API int32_t VORN_CALL PrintText(VORN_PRINTER handle, const VORN_WCHAR* text, int32_t alignment,
                                     int32_t attributes, int32_t textSize) {
  using namespace vorn::escpos;
  const TextLayout layout{byte_of(alignment), attributes, byte_of(textSize)};
  return print_converted(handle, text, [&](auto& context, std::span<const uint8_t> bytes) {
    return build_text(context, bytes, layout);
  });
}

VORN_API int32_t VORN_CALL PrintTextS(VORN_PRINTER handle, const VORN_WCHAR* text) {
  using namespace vorn::escpos;
  return print_converted(handle, text, build_bare_text);
}

}  // extern "C"
