// How long an ESC/POS command is when its bytes say so: counted parameters,
// data ended by NUL, image sizes, compressed rows. Each length is judged from
// the bytes present (which begin with the command's prefix) and may exceed
// them: then the command is cut short.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vorn::cli {

using Bytes = std::span<const uint8_t>;

// A byte of the command, 0 past its end, so that a command whose count says
// less than its function needs is still read within its bytes.
inline unsigned byte_at(Bytes b, size_t i) {
  return i < b.size() ? b[i] : 0;
}
inline unsigned u16_at(Bytes b, size_t i) {
  return byte_at(b, i) | byte_at(b, i + 1) << 8;
}
inline uint64_t u32_at(Bytes b, size_t i) {
  return u16_at(b, i) | static_cast<uint64_t>(u16_at(b, i + 2)) << 16;
}

// 0/48, 1/49, 2/50 and 3/51 name the same choice in most commands; -1 for
// any other byte.
inline int choice(unsigned n) {
  if (n <= 3) return static_cast<int>(n);
  if (n >= 48 && n <= 51) return static_cast<int>(n - 48);
  return -1;
}

// The mode byte of GS v 0 that announces compressed rows.
inline constexpr unsigned kCompressedRaster = 0x20;

uint64_t gs_paren_length(Bytes present);  // GS ( X pL pH ...
uint64_t gs_8l_length(Bytes present);     // GS 8 L p1 p2 p3 p4 ...
uint64_t gs_k_length(Bytes present);      // GS k m ...
uint64_t gs_cut_length(Bytes present);    // GS V m [n]
uint64_t raster_length(Bytes present);    // GS v 0 m xL xH yL yH ...
uint64_t gs_star_length(Bytes present);   // GS * x y ...
uint64_t esc_star_length(Bytes present);  // ESC * m nL nH ...
uint64_t fs_q_length(Bytes present);      // FS q n [xL xH yL yH d...]...
uint64_t dle_dc4_length(Bytes present);   // DLE DC4 fn ...

}  // namespace vorn::cli
