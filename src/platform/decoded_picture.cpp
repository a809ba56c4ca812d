#include "platform/decoded_picture.h"

#include <cstring>

namespace vorn::platform {
namespace {

const DecodedPicture& picture_of(DecodedImage image) {
  return *static_cast<const DecodedPicture*>(image);
}

Rgb palette_colour(const DecodedPicture& picture, const uint8_t* row, int32_t x) {
  const ColourEntry& entry = picture.palette[(row[x >> 3] >> (7 - (x & 7))) & 1];
  return {entry.red, entry.green, entry.blue};
}

static_assert(sizeof(Rgb) == 3, "pixel rows are copied as packed red, green, blue bytes");

}  // namespace

int32_t picture_width(DecodedImage image) {
  return picture_of(image).width;
}
int32_t picture_height(DecodedImage image) {
  return picture_of(image).height;
}
int32_t picture_bits_per_pixel(DecodedImage image) {
  return picture_of(image).bits_per_pixel;
}

uint32_t picture_colour_table(DecodedImage image, uint32_t first, uint32_t count,
                              ColourEntry* out) {
  const DecodedPicture& picture = picture_of(image);
  const uint32_t entries = picture.one_bit ? 2 : 0;
  uint32_t copied = 0;
  for (uint32_t index = first; index < entries && copied < count; ++index) {
    out[copied++] = picture.palette[index];
  }
  return copied;
}

void picture_bit_rows(DecodedImage image, const uint8_t** top_row, ptrdiff_t* step) {
  const DecodedPicture& picture = picture_of(image);
  *top_row = picture.top;
  *step = picture.step;
}

Rgb picture_pixel(DecodedImage image, int32_t x, int32_t y) {
  const DecodedPicture& picture = picture_of(image);
  // Outside the bitmap there is only paper.
  if (x < 0 || y < 0 || x >= picture.width || y >= picture.height) return {255, 255, 255};
  const uint8_t* row = picture.row(y);
  if (picture.one_bit) return palette_colour(picture, row, x);
  const uint8_t* p = row + static_cast<size_t>(x) * 3;
  if (picture.blue_first) return {p[2], p[1], p[0]};
  return {p[0], p[1], p[2]};
}

void picture_pixel_row(DecodedImage image, int32_t y, Rgb* out) {
  const DecodedPicture& picture = picture_of(image);
  if (y < 0 || y >= picture.height) return;
  const uint8_t* row = picture.row(y);
  if (picture.one_bit) {
    for (int32_t x = 0; x < picture.width; ++x) out[x] = palette_colour(picture, row, x);
  } else if (picture.blue_first) {
    for (int32_t x = 0; x < picture.width; ++x, row += 3) out[x] = {row[2], row[1], row[0]};
  } else {
    std::memcpy(out, row, static_cast<size_t>(picture.width) * 3);
  }
}

bool picture_colour_rows(DecodedImage image, const uint8_t** top_row, ptrdiff_t* step,
                         bool* blue_first) {
  const DecodedPicture& picture = picture_of(image);
  if (picture.one_bit) return false;
  *top_row = picture.top;
  *step = picture.step;
  *blue_first = picture.blue_first;
  return true;
}

}  // namespace vorn::platform
