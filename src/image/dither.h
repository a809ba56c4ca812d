// The error-diffusion conversion of a loaded image to the raster layout.
// Rows top to bottom, each row left to right, from the pixels' gray values
// (image/gray_rows.h):
//
//   v <= 128: a dot, error e = v;   v > 128: no dot, error e = v - 255
//   right neighbour                 += e * 7 / 16
//   below-left, below, below-right  += e * 3 / 16, e * 5 / 16, e * 1 / 16
//
// each share truncated toward zero and the work values never clamped; shares
// that would fall outside the image are dropped.
//
// The values' range: a value is a gray value (0 to 254) plus at most 7/16 +
// 1/16 + 5/16 + 3/16 = 1 times the largest error magnitude M, and then its
// error lies in [-M, 128] or [-126, M - 1]. Starting from no error at all, M
// can never exceed 128, so every value lies in [-128, 382].
#pragma once

#include <cstdint>

#include "image/gray_rows.h"
#include "image/loaded_image.h"

namespace vorn::image {

// Diffuses the image's gray values to dots (1 = printed) in `out`, which the
// caller zero-filled with (width + 7) / 8 x height bytes; padding bits stay 0.
// Returns 0, or -9 when the working rows cannot be had (`out` stays blank).
int32_t diffuse_errors(const LoadedImage& image, uint8_t* out);

// The two ways of carrying the rule out, for diffuse_errors and its tests;
// both give the same bits. Row after row, with the shares from tables, on
// any machine:
int32_t diffuse_row_by_row(const GrayRows& rows, int32_t width, int32_t height, uint8_t* out);
// Eight rows at a time in the lanes of SIMD registers, where the build has
// them and the width fits 16-bit lanes (bands_available):
bool bands_available(int32_t width);
int32_t diffuse_in_bands(const GrayRows& rows, int32_t width, int32_t height, uint8_t* out);

}  // namespace vorn::image
