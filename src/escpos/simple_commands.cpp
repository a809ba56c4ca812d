// The simple setting commands: one exported function, one command each.
// Every function runs in the printing frame (handle, port, builder, send)
// with a builder that makes room and calls one encoder. Arguments the command
// sends as one byte are cut to their low 8 bits first, so SetAlign(h, 257)
// acts as SetAlign(h, 1); the few values the printer would misread when cut
// (positions, buzzer mode, code page mode) are checked whole instead.
#include "escpos/common_encoders.h"
#include "escpos/simple_encoders.h"

namespace vorn::escpos {

int32_t encode_initialize(const Target& t) {
  return emit(t, true, {0x1B, 0x40});
}
int32_t encode_line_spacing(const Target& t, uint8_t n) {
  return emit(t, true, {0x1B, 0x33, n});
}
int32_t encode_feed_lines(const Target& t, uint8_t n) {
  return emit(t, true, {0x1B, 0x64, n});
}
int32_t encode_international_character(const Target& t, uint8_t n) {
  return emit(t, n <= 15, {0x1B, 0x52, n});
}
int32_t encode_print_speed(const Target& t, uint8_t n) {
  return emit(t, true, {0x1D, 0x45, n});
}
int32_t encode_motion_units(const Target& t, uint8_t x, uint8_t y) {
  return emit(t, true, {0x1D, 0x50, x, y});
}
int32_t encode_clear_buffer(const Target& t) {
  return emit(t, true, {0x10, 0x14, 0x08, 0x01, 0x03, 0x14, 0x01, 0x06, 0x02, 0x08});
}
int32_t encode_standard_mode(const Target& t) {
  return emit(t, true, {0x1B, 0x53});
}

int32_t encode_cut(const Target& t, uint8_t mode, uint8_t feed) {
  const bool full = mode == 0 || mode == 65;
  const bool partial = mode == 1 || mode == 66;
  return emit(t, full || partial, {0x1D, 0x56, static_cast<uint8_t>(full ? 65 : 66), feed});
}

int32_t encode_cash_drawer(const Target& t, uint8_t pin, uint8_t on_time, uint8_t off_time) {
  const bool valid = pin == 0 || pin == 1 || pin == 48 || pin == 49;
  // The pulse never gets an off time shorter than its on time: a shorter one
  // is raised to the on time rather than refused.
  const uint8_t off = off_time > on_time ? off_time : on_time;
  return emit(t, valid, {0x1B, 0x70, pin, on_time, off});
}

int32_t encode_buzzer(const Target& t, int32_t mode) {
  const auto n = static_cast<uint8_t>(mode);
  return emit(t, mode == 0 || mode == 2, {0x12, 0x27, 0x77, 0x10, n, 0x0D, 0x0A});
}

int32_t encode_code_page(const Target& t, uint8_t n, int32_t mode) {
  if (mode == 1) {
    // Stored in the printer rather than selected for now: enter user-setting
    // mode (function 1), store n (function 5), function 6 with the bytes the
    // printers take, leave user-setting mode (function 2).
    return emit(t, true, {0x1D, 0x28, 0x45, 0x03, 0x00, 0x01, 0x49, 0x4E,              //
                          0x1D, 0x28, 0x45, 0x04, 0x00, 0x05, 0x08, n,    0x00,        //
                          0x1D, 0x28, 0x45, 0x02, 0x00, 0x06, 0x08, 0x01, 0x49, 0x4E,  //
                          0x1D, 0x28, 0x45, 0x04, 0x00, 0x02, 0x4F, 0x55, 0x54});
  }
  // Any mode but 0 and 1 is refused rather than silently sending nothing.
  return emit(t, mode == 0, {0x1B, 0x74, n});
}

}  // namespace vorn::escpos

using vorn::escpos::byte_of;
using vorn::escpos::Target;
using vorn::escpos::with_room;
using vorn::printer::CommandContext;
using vorn::printer::run_printing_call;

namespace {

// The frame with the simple builder: room for 32 bytes, then one encoder.
template <typename Encoder>
int32_t simple_command(VORN_PRINTER handle, Encoder&& encoder) {
  return run_printing_call(handle,
                           [&](CommandContext& context) { return with_room(context, encoder); });
}

}  // namespace

namespace es = vorn::escpos;

extern "C" {

VORN_API int32_t VORN_CALL PrinterInitialize(VORN_PRINTER handle) {
  // The page-mode flag is left alone: the library keeps it until a command
  // that explicitly returns to standard mode.
  return simple_command(handle, [](const Target& t) { return es::encode_initialize(t); });
}

VORN_API int32_t VORN_CALL SetTextLineSpace(VORN_PRINTER handle, int32_t spacing) {
  return simple_command(
      handle, [&](const Target& t) { return es::encode_line_spacing(t, byte_of(spacing)); });
}

VORN_API int32_t VORN_CALL SetAlign(VORN_PRINTER handle, int32_t alignment) {
  return simple_command(
      handle, [&](const Target& t) { return es::encode_justification(t, byte_of(alignment)); });
}

VORN_API int32_t VORN_CALL SetTextBold(VORN_PRINTER handle, int32_t bold) {
  return simple_command(handle,
                        [&](const Target& t) { return es::encode_emphasized(t, byte_of(bold)); });
}

VORN_API int32_t VORN_CALL SetAbsolutePrintPosition(VORN_PRINTER handle, int32_t position) {
  return simple_command(handle,
                        [&](const Target& t) { return es::encode_absolute_position(t, position); });
}

VORN_API int32_t VORN_CALL SetTextFont(VORN_PRINTER handle, int32_t font) {
  return simple_command(handle, [&](const Target& t) { return es::encode_font(t, byte_of(font)); });
}

VORN_API int32_t VORN_CALL SetCodePage(VORN_PRINTER handle, int32_t codePage, int32_t mode) {
  return simple_command(
      handle, [&](const Target& t) { return es::encode_code_page(t, byte_of(codePage), mode); });
}

VORN_API int32_t VORN_CALL SetBuzzer(VORN_PRINTER handle, int32_t mode) {
  return simple_command(handle, [&](const Target& t) { return es::encode_buzzer(t, mode); });
}

VORN_API int32_t VORN_CALL FeedLine(VORN_PRINTER handle, int32_t lines) {
  return simple_command(handle,
                        [&](const Target& t) { return es::encode_feed_lines(t, byte_of(lines)); });
}

VORN_API int32_t VORN_CALL CutPaper(VORN_PRINTER handle, int32_t mode, int32_t feed) {
  return simple_command(
      handle, [&](const Target& t) { return es::encode_cut(t, byte_of(mode), byte_of(feed)); });
}

VORN_API int32_t VORN_CALL OpenCashDrawer(VORN_PRINTER handle, int32_t pin, int32_t onTime,
                                          int32_t offTime) {
  return simple_command(handle, [&](const Target& t) {
    return es::encode_cash_drawer(t, byte_of(pin), byte_of(onTime), byte_of(offTime));
  });
}

VORN_API int32_t VORN_CALL SetHorizontalAndVerticalMotionUnits(VORN_PRINTER handle,
                                                               int32_t horizontal,
                                                               int32_t vertical) {
  return simple_command(handle, [&](const Target& t) {
    return es::encode_motion_units(t, byte_of(horizontal), byte_of(vertical));
  });
}

VORN_API int32_t VORN_CALL SetInternationalCharacter(VORN_PRINTER handle, int32_t characterSet) {
  return simple_command(handle, [&](const Target& t) {
    return es::encode_international_character(t, byte_of(characterSet));
  });
}

VORN_API int32_t VORN_CALL SetPrintSpeed(VORN_PRINTER handle, int32_t speed) {
  return simple_command(handle,
                        [&](const Target& t) { return es::encode_print_speed(t, byte_of(speed)); });
}

VORN_API int32_t VORN_CALL ClearBuffer(VORN_PRINTER handle) {
  return simple_command(handle, [](const Target& t) { return es::encode_clear_buffer(t); });
}

VORN_API int32_t VORN_CALL SelectStandardMode(VORN_PRINTER handle) {
  return run_printing_call(handle, [](CommandContext& context) -> int32_t {
    // Outside page mode there is nothing to leave; the send still runs and
    // flushes whatever an earlier failed write left behind.
    if (!context.page_mode) return VORN_OK;
    const int32_t result = with_room(context, es::encode_standard_mode);
    if (result == VORN_OK) context.page_mode = 0;
    return result;
  });
}

}  // extern "C"
