// Encoders of the simple setting commands. Each follows the encoder contract
// (capability bit 0, room, range) and appends one command or nothing. The
// byte arguments are what the exported functions pass after cutting their
// 32-bit arguments to the low 8 bits; the few values that are checked whole
// arrive as int32_t.
#pragma once

#include <cstdint>

#include "escpos/encoder.h"

namespace vorn::escpos {

int32_t encode_initialize(const Target& target);                          // ESC @
int32_t encode_line_spacing(const Target& target, uint8_t n);             // ESC 3 n
int32_t encode_feed_lines(const Target& target, uint8_t n);               // ESC d n
int32_t encode_international_character(const Target& target, uint8_t n);  // ESC R n, 0 to 15
int32_t encode_print_speed(const Target& target, uint8_t n);              // GS E n
int32_t encode_motion_units(const Target& target, uint8_t x, uint8_t y);  // GS P x y
int32_t encode_clear_buffer(const Target& target);                        // DLE DC4 8 ...
int32_t encode_standard_mode(const Target& target);                       // ESC S

// GS V m n; mode 0 or 65 cuts fully (m = 65), 1 or 66 partially (m = 66).
int32_t encode_cut(const Target& target, uint8_t mode, uint8_t feed);
// ESC p m t1 t2; pin 0, 1, 48 or 49. The off time never goes out shorter
// than the on time.
int32_t encode_cash_drawer(const Target& target, uint8_t pin, uint8_t on_time, uint8_t off_time);
// The buzzer command; mode 0 or 2, checked on the whole value.
int32_t encode_buzzer(const Target& target, int32_t mode);
// Mode 0: ESC t n. Mode 1: n stored as the printer's code page setting
// (36 bytes). Mode is checked on the whole value; any other mode is -1.
int32_t encode_code_page(const Target& target, uint8_t code_page, int32_t mode);

}  // namespace vorn::escpos
