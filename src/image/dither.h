// The error-diffusion conversion of a loaded image to the raster layout.
#pragma once

#include <cstdint>

#include "image/loaded_image.h"

namespace vorn::image {

// The gray value of a pixel: R x 0.29891 + G x 0.58661 + B x 0.11448 in
// double precision, added in that order and truncated. The weights as doubles
// add up to slightly less than 1, so white is 254.
int32_t gray_value(uint8_t red, uint8_t green, uint8_t blue);

// Diffuses the image's gray values to dots (1 = printed) in `out`, which the
// caller zero-filled with (width + 7) / 8 x height bytes; only sets bits.
// Returns 0, or -9 when the working rows cannot be had (`out` stays blank).
int32_t diffuse_errors(const LoadedImage& image, uint8_t* out);

}  // namespace vorn::image
