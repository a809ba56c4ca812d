#include "escpos/page_mode.h"

namespace vorn::escpos {
namespace {

constexpr uint32_t kPrintAreaRoom = 11;

bool is_direction(uint8_t n) {
  return n <= 3 || (n >= 48 && n <= 51);
}

int32_t encode_cancel(const Target& t) {
  return emit(t, true, {0x18});
}
int32_t encode_direction(const Target& t, uint8_t n) {
  return emit(t, is_direction(n), {0x1B, 0x54, n});
}
int32_t encode_position_next_label(const Target& t) {
  return emit(t, true, {0x1D, 0x0C});
}
int32_t encode_print_page(const Target& t) {
  return emit(t, true, {0x1B, 0x0C});
}

// The builder of a command that needs page-mode support.
template <typename Encoder>
int32_t gated(printer::CommandContext& context, Encoder&& encoder) {
  if (!supports_page_mode(context)) return VORN_ERR_PRINTER_NOT_SUPPORTED;
  return with_room(context, encoder);
}

}  // namespace

bool supports_page_mode(const printer::CommandContext& context) {
  return context.record != nullptr && context.record->page_mode_support != 0;
}

int32_t encode_select_page_mode(const Target& t) {
  return emit(t, true, {0x1B, 0x4C});
}

int32_t encode_print_area(const Target& t, int32_t origin_x, int32_t origin_y, int32_t width,
                          int32_t height) {
  const bool valid =
      fits_u16(origin_x) && fits_u16(origin_y) && fits_u16(width) && fits_u16(height);
  const int32_t result = check(t, kPrintAreaRoom, valid);
  if (result != VORN_OK) return result;
  const auto x = static_cast<uint32_t>(origin_x);
  const auto y = static_cast<uint32_t>(origin_y);
  const auto dx = static_cast<uint32_t>(width);
  const auto dy = static_cast<uint32_t>(height);
  put(t, {0x1B, 0x57});
  if ((t.capability >> 16) == kModelWithPaddedPrintArea) put(t, {0x00});
  put(t, {low_byte(x), high_byte(x), low_byte(y), high_byte(y), low_byte(dx), high_byte(dx),
          low_byte(dy), high_byte(dy)});
  return VORN_OK;
}

int32_t encode_vertical_position(const Target& t, int32_t position) {
  const auto value = static_cast<uint32_t>(position);
  return emit(t, fits_u16(position), {0x1D, 0x24, low_byte(value), high_byte(value)});
}

int32_t encode_print_and_return(const Target& t) {
  return emit(t, true, {0x0C});
}

int32_t build_select_page_mode(printer::CommandContext& context) {
  // The flag follows the request, not the outcome: the session assumes page
  // mode from here on even when ESC L could not be appended.
  context.page_mode = 1;
  return with_room(context, encode_select_page_mode);
}

int32_t build_print_area(printer::CommandContext& context, int32_t origin_x, int32_t origin_y,
                         int32_t width, int32_t height) {
  return gated(context, [&](const Target& t) {
    return encode_print_area(t, origin_x, origin_y, width, height);
  });
}

int32_t build_vertical_position(printer::CommandContext& context, int32_t position) {
  return gated(context, [&](const Target& t) { return encode_vertical_position(t, position); });
}

int32_t build_print_and_return(printer::CommandContext& context) {
  context.page_mode = 0;
  return with_room(context, encode_print_and_return);
}

}  // namespace vorn::escpos

extern "C" {

using vorn::printer::CommandContext;
namespace escpos = vorn::escpos;

VORN_API int32_t VORN_CALL SelectPageMode(VORN_PRINTER handle) {
  return vorn::printer::run_printing_call(handle, escpos::build_select_page_mode);
}

VORN_API int32_t VORN_CALL SetPrintAreaInPageMode(VORN_PRINTER handle, int32_t originX,
                                                  int32_t originY, int32_t areaWidth,
                                                  int32_t areaHeight) {
  return vorn::printer::run_printing_call(handle, [&](CommandContext& c) {
    return escpos::build_print_area(c, originX, originY, areaWidth, areaHeight);
  });
}

VORN_API int32_t VORN_CALL CancelPrintDataInPageMode(VORN_PRINTER handle) {
  return vorn::printer::run_printing_call(
      handle, [](CommandContext& c) { return escpos::gated(c, escpos::encode_cancel); });
}

VORN_API int32_t VORN_CALL SelectPrintDirectionInPageMode(VORN_PRINTER handle, int32_t direction) {
  const uint8_t n = escpos::byte_of(direction);
  return vorn::printer::run_printing_call(handle, [n](CommandContext& c) {
    return escpos::gated(c,
                         [n](const escpos::Target& t) { return escpos::encode_direction(t, n); });
  });
}

VORN_API int32_t VORN_CALL SetAbsoluteVerticalPrintPositionInPageMode(VORN_PRINTER handle,
                                                                      int32_t position) {
  return vorn::printer::run_printing_call(handle, [position](CommandContext& c) {
    return escpos::build_vertical_position(c, position);
  });
}

VORN_API int32_t VORN_CALL PrintAndReturnStandardMode(VORN_PRINTER handle) {
  return vorn::printer::run_printing_call(handle, escpos::build_print_and_return);
}

VORN_API int32_t VORN_CALL PositionNextLabel(VORN_PRINTER handle) {
  return vorn::printer::run_printing_call(handle, [](CommandContext& c) {
    return escpos::with_room(c, escpos::encode_position_next_label);
  });
}

VORN_API int32_t VORN_CALL PrintDataInPageMode(VORN_PRINTER handle) {
  return vorn::printer::run_printing_call(
      handle, [](CommandContext& c) { return escpos::gated(c, escpos::encode_print_page); });
}

}  // extern "C"
