// Error diffusion, rows top to bottom, each row left to right:
//
//   v <= 128: a dot, error e = v;   v > 128: no dot, error e = v - 255
//   right neighbour            += e * 7 / 16
//   below-left, below, below-right += e * 3 / 16, e * 5 / 16, e * 1 / 16
//
// each share truncated toward zero (C++ integer division does exactly that)
// and the work values never clamped. Integer sums do not depend on their
// order, so instead of a work plane of the whole image two rows suffice: the
// current row's value is its gray value plus what the row above passed down
// plus what its left neighbour passed right, and the row below collects its
// shares as the current row is visited. That gives the bits of the plain
// rule at a fraction of its memory and time.
#include "image/dither.h"

#include <vorn/vorn.h>

#include <algorithm>
#include <array>
#include <memory>
#include <new>

namespace vorn::image {
namespace {

// The three products of the gray value, one table per channel. Each entry is
// the same double the product gives at run time, so the table sum equals the
// plain formula bit for bit (the build forbids fused multiply-add).
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

inline int32_t table_gray(const platform::Rgb& pixel) {
  return static_cast<int32_t>(kGrayWeights.red[pixel.red] + kGrayWeights.green[pixel.green] +
                              kGrayWeights.blue[pixel.blue]);
}

constexpr int32_t kDotThreshold = 128;
constexpr int32_t kPaper = 255;

// Visits one row. `incoming` holds what the row above passed down; `below`
// (zero on entry, with one spare cell before and after) collects what this
// row passes to the next. The shares to the spare cells and the right share
// of the last pixel fall outside the image and are dropped, as the rule says.
void diffuse_row(const platform::Rgb* pixels, const int32_t* incoming, int32_t* below,
                 int32_t width, uint8_t* out) {
  int32_t from_left = 0;
  uint32_t bits = 0;
  int32_t x = 0;
  for (; x < width; ++x) {
    const int32_t value = table_gray(pixels[x]) + incoming[x] + from_left;
    const int32_t dot = value <= kDotThreshold;
    // Without a branch: mid-gray areas make the outcome unpredictable.
    const int32_t error = value - kPaper + kPaper * dot;
    from_left = error * 7 / 16;
    below[x - 1] += error * 3 / 16;
    below[x] += error * 5 / 16;
    below[x + 1] += error / 16;
    bits = (bits << 1) | static_cast<uint32_t>(dot);
    if ((x & 7) == 7) {
      out[x >> 3] |= static_cast<uint8_t>(bits);
      bits = 0;
    }
  }
  if ((x & 7) != 0) out[x >> 3] |= static_cast<uint8_t>(bits << (8 - (x & 7)));
}

}  // namespace

int32_t gray_value(uint8_t red, uint8_t green, uint8_t blue) {
  return table_gray({red, green, blue});
}

int32_t diffuse_errors(const LoadedImage& image, uint8_t* out) {
  const int32_t width = image.width();
  const int32_t height = image.height();
  if (width < 1 || height < 1) return VORN_OK;
  const size_t cells = static_cast<size_t>(width) + 2;
  std::unique_ptr<int32_t[]> work(new (std::nothrow) int32_t[2 * cells]());
  std::unique_ptr<platform::Rgb[]> pixels(new (std::nothrow) platform::Rgb[width]);
  if (!work || !pixels) return VORN_ERR_NO_MEMORY;
  int32_t* incoming = work.get() + 1;
  int32_t* below = incoming + cells;
  const size_t row_bytes = (static_cast<size_t>(width) + 7) / 8;
  for (int32_t y = 0; y < height; ++y) {
    image.pixel_row(y, pixels.get());
    diffuse_row(pixels.get(), incoming, below, width, out + static_cast<size_t>(y) * row_bytes);
    std::swap(incoming, below);
    std::fill(below - 1, below - 1 + cells, 0);
  }
  return VORN_OK;
}

}  // namespace vorn::image
