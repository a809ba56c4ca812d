// The conversions of an image file to printer dots. Each loads the file (the
// command learnt its size beforehand) and releases it before returning.
#include "image/conversion.h"

#include <memory>
#include <new>

#include "image/dither.h"
#include "image/loaded_image.h"

namespace vorn::image {
namespace {

// Loads `path` and checks that it still has the size the command probed.
int32_t load_probed(const VORN_WCHAR* path, int32_t width, int32_t height, LoadedImage* image) {
  const int32_t result = image->load(path);
  // A failed load without an error number reads as an image of no size.
  if (!image->loaded()) return result != 0 ? result : VORN_ERR_IMAGE_SIZE;
  if (image->width() != width || image->height() != height) return VORN_ERR_IMAGE_SIZE;
  return VORN_OK;
}

// The bitmap's own bits, row by row. Entry 1 of the colour table is taken to
// be white when its blue component is 255 (only that component is looked
// at), and then every bit is inverted so that 1 means a dot. Padding bits are
// cleared after the inversion so that they never print.
void copy_one_bit(const LoadedImage& image, uint8_t* out) {
  const int32_t width = image.width();
  const int32_t height = image.height();
  if (width < 1 || height < 1) return;
  const size_t row_bytes = (static_cast<size_t>(width) + 7) / 8;
  const uint8_t flip = image.colour_entry(1).blue == 255 ? 0xFF : 0x00;
  const int32_t used_in_last = width % 8;
  const uint8_t last_mask =
      used_in_last == 0 ? 0xFF : static_cast<uint8_t>(0xFF << (8 - used_in_last));
  for (int32_t y = 0; y < height; ++y) {
    const uint8_t* in = image.bit_row(y);
    uint8_t* row = out + static_cast<size_t>(y) * row_bytes;
    for (size_t i = 0; i < row_bytes; ++i) row[i] = in[i] ^ flip;
    row[row_bytes - 1] &= last_mask;
  }
}

// Column layout: a dot wherever the channels' integer average is below 128.
// Rows are read whole and each dot set at its place in its column, which
// gives the bits of the column-by-column rule.
int32_t threshold_columns(const LoadedImage& image, uint8_t* out) {
  const int32_t width = image.width();
  const int32_t height = image.height();
  if (width < 1 || height < 1) return VORN_OK;
  std::unique_ptr<platform::Rgb[]> pixels(new (std::nothrow) platform::Rgb[width]);
  if (!pixels) return VORN_ERR_NO_MEMORY;
  const size_t column_bytes = (static_cast<size_t>(height) + 7) / 8;
  for (int32_t y = 0; y < height; ++y) {
    image.pixel_row(y, pixels.get());
    const uint8_t bit = static_cast<uint8_t>(0x80 >> (y % 8));
    uint8_t* cell = out + y / 8;
    for (int32_t x = 0; x < width; ++x, cell += column_bytes) {
      const platform::Rgb& p = pixels[x];
      if ((p.red + p.green + p.blue) / 3 < 128) *cell |= bit;
    }
  }
  return VORN_OK;
}

}  // namespace

int32_t convert_to_raster(const VORN_WCHAR* path, int32_t width, int32_t height, uint8_t* out) {
  LoadedImage image;
  const int32_t result = load_probed(path, width, height, &image);
  if (result != VORN_OK) return result;
  if (image.bits_per_pixel() == 1) {
    copy_one_bit(image, out);
    return VORN_OK;
  }
  return diffuse_errors(image, out);
}

int32_t convert_to_columns(const VORN_WCHAR* path, int32_t width, int32_t height, uint8_t* out) {
  LoadedImage image;
  const int32_t result = load_probed(path, width, height, &image);
  if (result != VORN_OK) return result;
  return threshold_columns(image, out);
}

}  // namespace vorn::image
