#include "escpos_lengths.h"

namespace vorn::cli {
namespace {

// The compressed raster carries no length: the printer decodes rows of B
// bytes until it has h of them, so the length is found the same way.
uint64_t packbits_rows_length(Bytes p, size_t start, unsigned row_bytes, unsigned rows) {
  size_t at_byte = start;
  for (unsigned row = 0; row < rows; ++row) {
    unsigned produced = 0;
    while (produced < row_bytes) {
      if (at_byte >= p.size()) return p.size() + 1;
      unsigned head = p[at_byte];
      if (head < 128) {  // literal of head + 1 bytes
        at_byte += 1 + head + 1;
        produced += head + 1;
      } else if (head > 128) {  // one byte repeated 257 - head times
        at_byte += 2;
        produced += 257 - head;
      } else {
        at_byte += 1;  // 0x80 is a no-op in PackBits
      }
    }
  }
  return at_byte;
}

}  // namespace

// The two count bytes count what follows them.
uint64_t gs_paren_length(Bytes p) {
  return p.size() < 5 ? 5 : 5 + u16_at(p, 3);
}

uint64_t gs_8l_length(Bytes p) {
  return p.size() < 7 ? 7 : 7 + u32_at(p, 3);
}

uint64_t gs_k_length(Bytes p) {
  if (p.size() < 3) return 3;
  unsigned m = p[2];
  if (m <= 6) {  // data ended by NUL
    for (size_t i = 3; i < p.size(); ++i) {
      if (p[i] == 0) return i + 1;
    }
    return p.size() + 1;
  }
  if (m >= 65 && m <= 73) return p.size() < 4 ? 4 : 4 + p[3];  // counted data
  return 3;
}

uint64_t gs_cut_length(Bytes p) {
  if (p.size() < 3) return 3;
  switch (p[2]) {
    case 65:
    case 66:
    case 97:
    case 98:
    case 103:
    case 104:
      return 4;  // these modes carry a feed byte
    default:
      return 3;
  }
}

uint64_t raster_length(Bytes p) {
  if (p.size() < 8) return 8;
  unsigned row_bytes = u16_at(p, 4);
  unsigned rows = u16_at(p, 6);
  if (p[3] == kCompressedRaster) return packbits_rows_length(p, 8, row_bytes, rows);
  return 8 + static_cast<uint64_t>(row_bytes) * rows;
}

uint64_t gs_star_length(Bytes p) {
  return p.size() < 4 ? 4 : 4 + 8ull * p[2] * p[3];
}

uint64_t esc_star_length(Bytes p) {
  if (p.size() < 5) return 5;
  uint64_t columns = u16_at(p, 3);
  return 5 + columns * (p[2] >= 32 ? 3 : 1);  // 24-dot modes take 3 bytes a column
}

uint64_t fs_q_length(Bytes p) {
  if (p.size() < 3) return 3;
  uint64_t at_byte = 3;
  for (unsigned image = 0; image < p[2]; ++image) {
    if (at_byte + 4 > p.size()) return at_byte + 4;
    at_byte += 4 + 8ull * u16_at(p, at_byte) * u16_at(p, at_byte + 2);
  }
  return at_byte;
}

uint64_t dle_dc4_length(Bytes p) {
  if (p.size() < 3) return 3;
  switch (p[2]) {
    case 1:
    case 2:
      return 5;
    case 8:
      return 10;
    default:
      return 3;
  }
}

}  // namespace vorn::cli
