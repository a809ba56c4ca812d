// The decoded picture every image decoder hands to the library, and the
// decoder operations that only read it, shared by the backends: each one
// fills a DecodedPicture its own way and gives these functions out in its
// operations table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/image_decoder.h"

namespace vorn::platform {

// Rows run from the top. A 1-bit picture keeps its packed rows and its two
// colour table entries, so that it takes the library's one-bit copy; every
// other picture holds 3 bytes per pixel (red, green, blue, or blue first)
// with any transparency already composited on white paper.
struct DecodedPicture {
  int32_t width = 0;
  int32_t height = 0;
  // The depth reported to the library: 1 for a packed 1-bit picture, else
  // the depth of the file's own pixel format.
  int32_t bits_per_pixel = 0;
  bool one_bit = false;
  // Rows hold blue, green, red: a bitmap file's own rows, kept as they are.
  bool blue_first = false;
  ColourEntry palette[2];
  // Bytes of pixels in one row; rows may lie further apart (`step`).
  size_t stride = 0;
  // The top row, and the distance from one row to the row below it, which is
  // negative for a bitmap file's bottom-up rows.
  uint8_t* top = nullptr;
  ptrdiff_t step = 0;
  // The memory the rows are in.
  std::unique_ptr<uint8_t[]> pixels;

  uint8_t* row(int32_t y) { return top + static_cast<ptrdiff_t>(y) * step; }
  const uint8_t* row(int32_t y) const { return top + static_cast<ptrdiff_t>(y) * step; }
};

// The handle given out for a picture; the accessors below read it back.
inline DecodedImage image_of(DecodedPicture* picture) {
  return picture;
}

int32_t picture_width(DecodedImage image);
int32_t picture_height(DecodedImage image);
int32_t picture_bits_per_pixel(DecodedImage image);
uint32_t picture_colour_table(DecodedImage image, uint32_t first, uint32_t count, ColourEntry* out);
void picture_bit_rows(DecodedImage image, const uint8_t** top_row, ptrdiff_t* step);
Rgb picture_pixel(DecodedImage image, int32_t x, int32_t y);
void picture_pixel_row(DecodedImage image, int32_t y, Rgb* out);
bool picture_colour_rows(DecodedImage image, const uint8_t** top_row, ptrdiff_t* step,
                         bool* blue_first);

}  // namespace vorn::platform
