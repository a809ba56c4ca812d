// A picture of dots, one byte per dot (1 printed, 0 paper), the unit every
// part of the virtual printer draws into.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vorn::vprinter {

struct Bitmap {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> dots;  // rows top first, width dots each

  Bitmap() = default;
  Bitmap(int w, int h) : width(w), height(h), dots(static_cast<size_t>(w) * h, 0) {}

  bool empty() const { return width == 0 || height == 0; }
  uint8_t at(int x, int y) const { return dots[static_cast<size_t>(y) * width + x]; }
  uint8_t& at(int x, int y) { return dots[static_cast<size_t>(y) * width + x]; }
};

// ORs `src` into `dst` with its top left corner at (x, y); dots outside
// `dst` are dropped.
void draw(Bitmap& dst, const Bitmap& src, int x, int y);

// Every dot of `src` becomes a block of sx by sy dots.
Bitmap scaled(const Bitmap& src, int sx, int sy);

// Turned by a quarter turn clockwise `quarters` times (0 to 3).
Bitmap rotated(const Bitmap& src, int quarters);

// Rows of `bytes_per_row` bytes, leftmost dot in the most significant bit.
Bitmap from_raster(const uint8_t* data, int bytes_per_row, int rows);

// Columns of `bytes_per_column` bytes, topmost dot in the most significant
// bit.
Bitmap from_columns(const uint8_t* data, int columns, int bytes_per_column);

}  // namespace vorn::vprinter
