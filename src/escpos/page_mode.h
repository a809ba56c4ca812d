// Page mode: the page-mode flag of the command context and the commands that
// enter page mode, set up and print the page, and return to standard mode.
//
// Each builder follows the builder contract (own checks, room for 32 bytes,
// encoder). The gated ones fail with -4 before anything else when the model
// has no page-mode support.
#pragma once

#include <cstdint>

#include "escpos/encoder.h"
#include "printer/session.h"

namespace vorn::escpos {

// The model whose ESC W takes one 0x00 byte before the origin.
inline constexpr uint32_t kModelWithPaddedPrintArea = 0x1102;

// True when the context's capability record grants page-mode support.
bool supports_page_mode(const printer::CommandContext& context);

int32_t encode_select_page_mode(const Target& target);  // ESC L
// ESC W with origin and size, each 0 to 65535 checked whole; 11 bytes of room
// for every model.
int32_t encode_print_area(const Target& target, int32_t origin_x, int32_t origin_y, int32_t width,
                          int32_t height);
// GS $ nL nH; the position is checked whole: 0 to 65535.
int32_t encode_vertical_position(const Target& target, int32_t position);
int32_t encode_print_and_return(const Target& target);  // FF

// SelectPageMode: sets the flag first, so also when the command fails.
int32_t build_select_page_mode(printer::CommandContext& context);
// SetPrintAreaInPageMode (gated).
int32_t build_print_area(printer::CommandContext& context, int32_t origin_x, int32_t origin_y,
                         int32_t width, int32_t height);
// SetAbsoluteVerticalPrintPositionInPageMode (gated).
int32_t build_vertical_position(printer::CommandContext& context, int32_t position);
// PrintAndReturnStandardMode: clears the flag first, so also when the command
// fails.
int32_t build_print_and_return(printer::CommandContext& context);

}  // namespace vorn::escpos
