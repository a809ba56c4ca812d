#include "image/gray_rows.h"

#include <array>
#include <new>

namespace vorn::image {
namespace {

// The three products, one table per channel. Each entry is the same double
// the product gives at run time, so the table sum equals the formula bit for
// bit (the build forbids fused multiply-add and keeps doubles in SSE
// registers on 32-bit x86 too).
struct GrayWeights {
  std::array<double, 256> red, green, blue;
};

constexpr GrayWeights make_gray_weights() {
  GrayWeights weights{};
  for (int level = 0; level < 256; ++level) {
    weights.red[level] = level * 0.29891;
    weights.green[level] = level * 0.58661;
    weights.blue[level] = level * 0.11448;
  }
  return weights;
}

constexpr GrayWeights kGrayWeights = make_gray_weights();

inline int16_t gray_of(uint8_t red, uint8_t green, uint8_t blue) {
  return static_cast<int16_t>(kGrayWeights.red[red] + kGrayWeights.green[green] +
                              kGrayWeights.blue[blue]);
}

// A row of three-byte pixels; `first` is the offset of red in each pixel and
// 2 - first that of blue.
template <int first>
void gray_row(const uint8_t* pixels, int32_t width, int16_t* out) {
  for (int32_t x = 0; x < width; ++x, pixels += 3) {
    out[x] = gray_of(pixels[first], pixels[1], pixels[2 - first]);
  }
}

}  // namespace

ImageGrayRows::ImageGrayRows(const LoadedImage& image) : image_(image) {
  if (!image.colour_rows(&top_, &step_, &blue_first_)) {
    top_ = nullptr;
    colours_.reset(new (std::nothrow) platform::Rgb[image.width()]);
  }
}

void ImageGrayRows::read(int32_t y, int16_t* out) const {
  const int32_t width = image_.width();
  if (top_ != nullptr) {
    const uint8_t* row = top_ + static_cast<ptrdiff_t>(y) * step_;
    blue_first_ ? gray_row<2>(row, width, out) : gray_row<0>(row, width, out);
    return;
  }
  image_.pixel_row(y, colours_.get());
  for (int32_t x = 0; x < width; ++x) {
    out[x] = gray_of(colours_[x].red, colours_[x].green, colours_[x].blue);
  }
}

}  // namespace vorn::image
