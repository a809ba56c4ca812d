#include "bitmap.h"

#include <algorithm>
#include <cstring>

namespace vorn::vprinter {

void draw(Bitmap& dst, const Bitmap& src, int x, int y) {
  const int x0 = std::max(0, -x);
  const int x1 = std::min(src.width, dst.width - x);
  if (x0 >= x1) return;
  for (int row = std::max(0, -y); row < src.height && y + row < dst.height; ++row) {
    const uint8_t* from = &src.dots[static_cast<size_t>(row) * src.width];
    uint8_t* to = &dst.dots[static_cast<size_t>(y + row) * dst.width + x];
    for (int col = x0; col < x1; ++col) to[col] |= from[col];
  }
}

Bitmap scaled(const Bitmap& src, int sx, int sy) {
  if (sx == 1 && sy == 1) return src;
  Bitmap out(src.width * sx, src.height * sy);
  for (int y = 0; y < src.height; ++y) {
    uint8_t* row = &out.dots[static_cast<size_t>(y) * sy * out.width];
    for (int x = 0; x < src.width; ++x) std::memset(row + x * sx, src.at(x, y), sx);
    for (int copy = 1; copy < sy; ++copy) std::memcpy(row + copy * out.width, row, out.width);
  }
  return out;
}

Bitmap rotated(const Bitmap& src, int quarters) {
  switch (quarters & 3) {
    case 0:
      return src;
    case 2: {
      Bitmap out = src;
      std::reverse(out.dots.begin(), out.dots.end());
      return out;
    }
    default: {
      Bitmap out(src.height, src.width);
      const bool clockwise = (quarters & 3) == 1;
      for (int y = 0; y < src.height; ++y) {
        for (int x = 0; x < src.width; ++x) {
          if (clockwise) {
            out.at(src.height - 1 - y, x) = src.at(x, y);
          } else {
            out.at(y, src.width - 1 - x) = src.at(x, y);
          }
        }
      }
      return out;
    }
  }
}

Bitmap from_raster(const uint8_t* data, int bytes_per_row, int rows) {
  Bitmap out(bytes_per_row * 8, rows);
  for (size_t i = 0; i < static_cast<size_t>(bytes_per_row) * rows; ++i) {
    for (int bit = 0; bit < 8; ++bit) out.dots[i * 8 + bit] = data[i] >> (7 - bit) & 1;
  }
  return out;
}

Bitmap from_columns(const uint8_t* data, int columns, int bytes_per_column) {
  Bitmap out(columns, bytes_per_column * 8);
  for (int x = 0; x < columns; ++x) {
    for (int b = 0; b < bytes_per_column; ++b) {
      const uint8_t byte = data[static_cast<size_t>(x) * bytes_per_column + b];
      for (int bit = 0; bit < 8; ++bit) out.at(x, b * 8 + bit) = byte >> (7 - bit) & 1;
    }
  }
  return out;
}

}  // namespace vorn::vprinter
