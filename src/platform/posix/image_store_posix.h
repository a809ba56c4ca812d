// The decoded bitmap behind every POSIX image decoder, and the per-format
// readers that fill it from a file's bytes.
//
// Rows run from the top. A 1-bit image keeps its packed rows and its two
// colour table entries, so that it takes the library's one-bit copy; every
// other image is stored as 3 bytes per pixel (red, green, blue) with any
// transparency already composited on white paper.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/image_decoder.h"

namespace vorn::platform {

// The one number every reader gives for a file that exists and was read but
// cannot be decoded: corrupt, truncated, or of a format no reader takes.
// POSIX has no "bad image" errno; EILSEQ ("invalid or incomplete multibyte or
// wide character", an illegal byte sequence) is the closest in meaning and is
// never produced by opening or reading a file, so it cannot be mistaken for
// an I/O failure.
inline constexpr int32_t kUndecodableImage = EILSEQ;

// The largest bitmap a reader builds. Far above anything a printer takes
// (the widest print line is under 2048 dots), it keeps a crafted header from
// asking for gigabytes; a larger image fails with ENOMEM.
inline constexpr uint64_t kMaxImagePixels = uint64_t{1} << 27;

struct ImageStore {
  int32_t width = 0;
  int32_t height = 0;
  // The depth reported to the library: 1 for a packed 1-bit image, else the
  // depth of the file's own pixel format (4, 8, 16, 24 or 32).
  int32_t bits_per_pixel = 0;
  bool one_bit = false;
  // Set before decoding when only the size is wanted: `allocate` then records
  // the size without making room, and the readers stop there.
  bool size_only = false;
  ColourEntry palette[2];
  size_t stride = 0;
  std::unique_ptr<uint8_t[]> pixels;

  // Makes room for `width` x `height` pixels of the given kind; the pixels
  // are left undefined. Returns 0, ENOMEM, or kUndecodableImage for a size
  // below 1. With `size_only` it checks and records the size but makes no
  // room.
  int32_t allocate(int64_t new_width, int64_t new_height, bool packed_one_bit);
  uint8_t* row(int32_t y) { return pixels.get() + static_cast<size_t>(y) * stride; }
  const uint8_t* row(int32_t y) const { return pixels.get() + static_cast<size_t>(y) * stride; }
};

// A channel seen through `alpha` (0 transparent, 255 opaque) on white.
inline uint8_t on_white(uint32_t channel, uint32_t alpha) {
  return static_cast<uint8_t>((channel * alpha + 255 * (255 - alpha) + 127) / 255);
}

// The readers. Each returns 0 with the store filled, kUndecodableImage, or
// ENOMEM. None reads outside [data, data + size).
int32_t decode_png(const uint8_t* data, size_t size, ImageStore* store);
int32_t decode_jpeg(const uint8_t* data, size_t size, ImageStore* store);
int32_t decode_gif(const uint8_t* data, size_t size, ImageStore* store);
int32_t decode_bmp(const uint8_t* data, size_t size, ImageStore* store);

}  // namespace vorn::platform
