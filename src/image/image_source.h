// Where the image commands get their pictures from: the size probe and the two
// conversions. The commands call them only through this table, so that tests
// can hand in known sizes and dot patterns without image files.
#pragma once

#include <vorn/vorn.h>

#include <cstdint>

namespace vorn::image {

struct ImageSource {
  // 0 with the picture's size, or the load failure code.
  int32_t (*probe)(const VORN_WCHAR* path, int32_t* width, int32_t* height);
  // Fills `out` (zero-filled by the caller) in the raster layout; 0 or a code.
  int32_t (*raster)(const VORN_WCHAR* path, int32_t width, int32_t height, uint8_t* out);
  // Fills `out` (zero-filled by the caller) in the column layout; 0 or a code.
  int32_t (*columns)(const VORN_WCHAR* path, int32_t width, int32_t height, uint8_t* out);
};

// The source in force: the file conversions unless a test installed another.
const ImageSource& image_source();
// Installs `source` (null: back to the file conversions); returns what was in
// force before, null when that was the default.
const ImageSource* install_image_source(const ImageSource* source);

}  // namespace vorn::image
