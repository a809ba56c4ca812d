// Image decoding: the platform's reader of image files. The library needs
// only a decoded bitmap's size, its depth, its colour table, its bit rows and
// its pixel colours; how a file becomes that bitmap is the platform's affair.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vorn::platform {

// A decoded image owned by the decoder; null when none.
using DecodedImage = void*;

// One colour table entry, in the order of a device-independent bitmap.
struct ColourEntry {
  uint8_t blue = 0;
  uint8_t green = 0;
  uint8_t red = 0;
  uint8_t reserved = 0;
};

// A pixel's colour. Transparency is not part of it: the decoder delivers
// transparent pixels as they would look on white paper.
struct Rgb {
  uint8_t red = 0;
  uint8_t green = 0;
  uint8_t blue = 0;
};

struct ImageDecoderOps {
  // Prepares the decoder before the first load and undoes that after the
  // last release; both may be null when the decoder needs no preparation.
  // start returns 0 or a positive system error number.
  int32_t (*start)();
  void (*stop)();
  // Decodes the file at `path` (UTF-16, zero-terminated, may be null). On
  // success stores the image in `*out` and returns 0. On failure leaves
  // `*out` null and returns the platform's error number for the failure: a
  // positive number wherever the platform has one (a decoder that lost its
  // number may return 0 with `*out` null).
  int32_t (*load)(const char16_t* path, DecodedImage* out);
  // The size `load` would give, learnt from the file's headers without
  // decoding its pixels; or the error number `load` gives for a file whose
  // headers are unusable. A file whose pixels are damaged is measured
  // successfully and fails only when loaded. May be null: the size is then
  // learnt by loading the file.
  int32_t (*measure)(const char16_t* path, int32_t* width, int32_t* height);
  // Size in pixels, both at least 1 for a loaded image.
  int32_t (*width)(DecodedImage image);
  int32_t (*height)(DecodedImage image);
  // 1 when the image is delivered as 1-bit indexed (two colours, one bit per
  // pixel); otherwise 4, 8, 16, 24 or 32.
  int32_t (*bits_per_pixel)(DecodedImage image);
  // Copies up to `count` colour table entries from index `first` into `out`;
  // returns how many there were.
  uint32_t (*colour_table)(DecodedImage image, uint32_t first, uint32_t count, ColourEntry* out);
  // The top row of the bitmap and the signed distance in bytes from one row
  // to the row below it. In a 1-bit image each byte holds 8 pixels, the
  // leftmost in the most significant bit, each bit a colour table index.
  void (*bit_rows)(DecodedImage image, const uint8_t** top_row, ptrdiff_t* step);
  // The colour of pixel (x, y), x from the left, y from the top.
  Rgb (*pixel)(DecodedImage image, int32_t x, int32_t y);
  // The colours of all `width` pixels of row y at once, the same values
  // `pixel` gives. May be null; readers then ask pixel by pixel.
  void (*pixel_row)(DecodedImage image, int32_t y, Rgb* out);
  // Frees an image from load.
  void (*release)(DecodedImage image);
  // For an image held as three bytes per pixel: its top row, the signed
  // distance in bytes from one row to the row below it, and whether each
  // pixel's bytes run blue, green, red (else red, green, blue); transparency
  // already composited as `pixel` gives it. Returns false for images held
  // any other way. May be null; readers then use `pixel_row`.
  bool (*colour_rows)(DecodedImage image, const uint8_t** top_row, ptrdiff_t* step,
                      bool* blue_first);
};

// The operations in force (the native ones unless a test installed others).
const ImageDecoderOps& image_decoder();
// Installs `ops` (null: back to the native decoder); returns what was in force.
const ImageDecoderOps* install_image_decoder(const ImageDecoderOps* ops);
// The platform's own decoder, defined by the platform directory.
const ImageDecoderOps& native_image_decoder();

}  // namespace vorn::platform
