// Image files turned into printer dots: 1 = a printed (black) dot.
//
// Raster layout: rows top to bottom, (w + 7) / 8 bytes per row, leftmost dot
// in the most significant bit. Column layout: columns left to right,
// (h + 7) / 8 bytes per column, topmost dot in the most significant bit.
// Padding bits are always 0.
#pragma once

#include <vorn/vorn.h>

#include <cstdint>

namespace vorn::image {

// Learns the file's size: from its headers when the decoder can read them
// alone, else by loading it. Returns 0 with the size; a positive platform
// error number when the file cannot be read or its headers decoded (never 0
// for a failure on this platform). Damage in the pixels shows only in the
// conversion.
int32_t probe_size(const VORN_WCHAR* path, int32_t* width, int32_t* height);

// Loads the file and writes its raster layout into `out`, which the
// caller zero-filled and sized for `width` x `height` from probe_size: the
// one-bit copy for 1-bit images, error diffusion otherwise. Returns 0, the
// load failure code, -9 when the work plane cannot be had, or -25 when the
// file no longer has the probed size (it changed since).
int32_t convert_to_raster(const VORN_WCHAR* path, int32_t width, int32_t height, uint8_t* out);

// The same for the column layout with the average threshold.
int32_t convert_to_columns(const VORN_WCHAR* path, int32_t width, int32_t height, uint8_t* out);

// Bytes of each layout; 0 for sizes below 1.
constexpr uint64_t raster_bytes(int32_t width, int32_t height) {
  return width < 1 || height < 1
             ? 0
             : (static_cast<uint64_t>(width) + 7) / 8 * static_cast<uint64_t>(height);
}
constexpr uint64_t column_bytes(int32_t width, int32_t height) {
  return width < 1 || height < 1
             ? 0
             : (static_cast<uint64_t>(height) + 7) / 8 * static_cast<uint64_t>(width);
}

}  // namespace vorn::image
