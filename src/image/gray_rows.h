// The gray values the error diffusion starts from, one row at a time:
// R x 0.29891 + G x 0.58661 + B x 0.11448 in double precision, added in that
// order and truncated. The weights as doubles add up to slightly less than 1,
// so white is 254.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "image/loaded_image.h"

namespace vorn::image {

class GrayRows {
 public:
  virtual ~GrayRows() = default;
  // Writes the gray values of the pixels of row y (top row 0) to `out`.
  virtual void read(int32_t y, int16_t* out) const = 0;
};

// The gray rows of a loaded image, read from the decoder's own bytes where it
// gives them out and through its row reader otherwise.
class ImageGrayRows final : public GrayRows {
 public:
  explicit ImageGrayRows(const LoadedImage& image);
  // False when the row of colours a row reader needs could not be had.
  bool ready() const { return top_ != nullptr || colours_ != nullptr; }
  void read(int32_t y, int16_t* out) const override;

 private:
  const LoadedImage& image_;
  const uint8_t* top_ = nullptr;
  ptrdiff_t step_ = 0;
  bool blue_first_ = false;
  std::unique_ptr<platform::Rgb[]> colours_;
};

}  // namespace vorn::image
