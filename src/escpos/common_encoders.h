// Encoders shared by text printing and the other command families. Each
// follows the encoder contract (capability bit 0, room, range).
#pragma once

#include <cstdint>

#include "escpos/encoder.h"

namespace vorn::escpos {

// True for the byte values 0, 1, 2, 48, 49, 50 that justification, font and
// underline accept.
constexpr bool is_zero_one_two(uint8_t n) {
  return n <= 2 || (n >= 48 && n <= 50);
}

int32_t encode_print_mode(const Target& target, uint8_t n);      // ESC ! n
int32_t encode_emphasized(const Target& target, uint8_t n);      // ESC E n
int32_t encode_double_strike(const Target& target, uint8_t n);   // ESC G n
int32_t encode_font(const Target& target, uint8_t n);            // ESC M n
int32_t encode_character_size(const Target& target, uint8_t n);  // GS ! n, bits 3 and 7 clear
int32_t encode_reverse(const Target& target, uint8_t n);         // GS B n
int32_t encode_justification(const Target& target, uint8_t n);   // ESC a n
int32_t encode_underline(const Target& target, uint8_t n);       // ESC - n
// ESC $ nL nH; the position is checked whole: 0 to 65535.
int32_t encode_absolute_position(const Target& target, int32_t position);

}  // namespace vorn::escpos
