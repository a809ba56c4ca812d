#include "escpos/common_encoders.h"

namespace vorn::escpos {

int32_t encode_print_mode(const Target& t, uint8_t n) {
  return emit(t, true, {0x1B, 0x21, n});
}
int32_t encode_emphasized(const Target& t, uint8_t n) {
  return emit(t, true, {0x1B, 0x45, n});
}
int32_t encode_double_strike(const Target& t, uint8_t n) {
  return emit(t, true, {0x1B, 0x47, n});
}
int32_t encode_font(const Target& t, uint8_t n) {
  return emit(t, is_zero_one_two(n), {0x1B, 0x4D, n});
}
int32_t encode_character_size(const Target& t, uint8_t n) {
  // Bits 3 and 7 would ask for more than eight times the size.
  return emit(t, (n & 0x88) == 0, {0x1D, 0x21, n});
}
int32_t encode_reverse(const Target& t, uint8_t n) {
  return emit(t, true, {0x1D, 0x42, n});
}
int32_t encode_justification(const Target& t, uint8_t n) {
  return emit(t, is_zero_one_two(n), {0x1B, 0x61, n});
}
int32_t encode_underline(const Target& t, uint8_t n) {
  return emit(t, is_zero_one_two(n), {0x1B, 0x2D, n});
}
int32_t encode_absolute_position(const Target& t, int32_t position) {
  const auto value = static_cast<uint32_t>(position);
  return emit(t, fits_u16(position), {0x1B, 0x24, low_byte(value), high_byte(value)});
}

}  // namespace vorn::escpos
