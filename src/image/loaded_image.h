// A loaded image: one image file decoded by the platform's image decoder,
// used by one command and released before the command returns.
//
// The decoder is started by the first load and stopped when the last loaded
// image is released (and at the latest when the library is unloaded); the
// start, the stop and the count of live images share one process-wide lock.
#pragma once

#include <vorn/vorn.h>

#include <cstddef>
#include <cstdint>

#include "platform/image_decoder.h"

namespace vorn::image {

class LoadedImage {
 public:
  LoadedImage() = default;
  ~LoadedImage() { release(); }
  LoadedImage(const LoadedImage&) = delete;
  LoadedImage& operator=(const LoadedImage&) = delete;

  // Decodes the file at `path` (UTF-16, owned by the caller). Returns 0 when
  // loaded; otherwise the decoder's error number, which is positive on every
  // platform that has one and 0 only when a decoder lost its number. Any
  // image loaded before is released first.
  int32_t load(const VORN_WCHAR* path);
  bool loaded() const { return image_ != nullptr; }
  void release();

  // The accessors need a loaded image.
  int32_t width() const { return ops_->width(image_); }
  int32_t height() const { return ops_->height(image_); }
  int32_t bits_per_pixel() const { return ops_->bits_per_pixel(image_); }
  // Colour table entry `index`; all zero when the table has no such entry.
  platform::ColourEntry colour_entry(uint32_t index) const;
  // Row y of the bitmap's bits, counted from the top.
  const uint8_t* bit_row(int32_t y) const;
  platform::Rgb pixel(int32_t x, int32_t y) const { return ops_->pixel(image_, x, y); }
  // The colours of the `width()` pixels of row y, the same as `pixel` gives.
  void pixel_row(int32_t y, platform::Rgb* out) const;
  // The decoder's own rows of three bytes per pixel, when it holds the image
  // that way (see platform::ImageDecoderOps::colour_rows); else false.
  bool colour_rows(const uint8_t** top_row, ptrdiff_t* step, bool* blue_first) const {
    return ops_->colour_rows != nullptr && ops_->colour_rows(image_, top_row, step, blue_first);
  }

 private:
  const platform::ImageDecoderOps* ops_ = nullptr;
  platform::DecodedImage image_ = nullptr;
};

}  // namespace vorn::image
