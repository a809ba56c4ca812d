#include "image/dither.h"

#include <vorn/vorn.h>

namespace vorn::image {

int32_t diffuse_errors(const LoadedImage& image, uint8_t* out) {
  const int32_t width = image.width();
  const int32_t height = image.height();
  if (width < 1 || height < 1) return VORN_OK;
  const ImageGrayRows rows(image);
  if (!rows.ready()) return VORN_ERR_NO_MEMORY;
  if (bands_available(width)) return diffuse_in_bands(rows, width, height, out);
  return diffuse_row_by_row(rows, width, height, out);
}

}  // namespace vorn::image
