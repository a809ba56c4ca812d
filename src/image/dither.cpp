// Error diffusion, rows top to bottom, each row left to right:
//
//   v <= 128: a dot, error e = v;   v > 128: no dot, error e = v - 255
//   right neighbour                 += e * 7 / 16
//   below-left, below, below-right  += e * 3 / 16, e * 5 / 16, e * 1 / 16
//
// each share truncated toward zero and the work values never clamped.
//
// Integer sums do not depend on their order, so instead of a work plane of
// the whole image one row of carried values suffices: a pixel's value is its
// gray value plus what the row above passed down plus what its left
// neighbour passed right. The shares for the row below are kept in two
// registers until a cell below is complete (it has heard from its three
// neighbours above) and then stored in place of the value just used. The
// shares of every possible value come from tables. That gives the bits of the
// plain rule at a fraction of its memory and time.
//
// The tables' range: a value is a gray value (0 to 254) plus at most 7/16 +
// 1/16 + 5/16 + 3/16 = 1 times the largest error magnitude M, and then its
// error lies in [-M, 128] or [-126, M - 1]. Starting from no error at all, M
// can never exceed 128, so every value lies in [-128, 382].
#include "image/dither.h"

#include <vorn/vorn.h>

#include <array>
#include <cstddef>
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
constexpr int32_t kLowestValue = -128;
constexpr int32_t kHighestValue = 382;

constexpr int32_t kValueCount = kHighestValue - kLowestValue + 1;

// The error a visited value leaves behind.
constexpr int32_t error_of(int32_t value) {
  return value <= kDotThreshold ? value : value - kPaper;
}

// What a visited value passes to the row below; C++ integer division
// truncates toward zero, as the rule wants. Whole words, so that each share
// is one load with no unpacking (measured faster than 16-bit fields, packed
// or not, and than one table per share).
struct BelowShares {
  int32_t left;
  int32_t below;
  int32_t right;
  int32_t unused;  // a power-of-two entry size keeps the index a plain scale
};

constexpr std::array<BelowShares, kValueCount> make_below_shares() {
  std::array<BelowShares, kValueCount> table{};
  for (int32_t value = kLowestValue; value <= kHighestValue; ++value) {
    const int32_t error = error_of(value);
    table[value - kLowestValue] = {error * 3 / 16, error * 5 / 16, error / 16, 0};
  }
  return table;
}

constexpr auto kBelowShares = make_below_shares();

// The right share, pointer-sized, in a table of its own. It feeds the next
// value, and that chain from one pixel to the next limits the pace of the
// whole conversion: one load and one add, with no widening in between. The
// table has a margin on both sides so that the pixel's own part of the value
// (without the right share) can serve as the table's base: the own part
// alone may lie up to one right share outside the values' range.
constexpr ptrdiff_t kRightMargin = 64;
static_assert(-kLowestValue * 7 / 16 <= kRightMargin, "largest right share fits the margin");

constexpr std::array<ptrdiff_t, kValueCount + 2 * kRightMargin> make_right_shares() {
  std::array<ptrdiff_t, kValueCount + 2 * kRightMargin> table{};
  for (int32_t value = kLowestValue; value <= kHighestValue; ++value) {
    table[kRightMargin + value - kLowestValue] = error_of(value) * 7 / 16;
  }
  return table;
}

constexpr auto kRightShares = make_right_shares();

class RowDiffusion {
 public:
  RowDiffusion(const platform::Rgb* pixels, int32_t* carried)
      : pixels_(pixels), carried_(carried) {}

  // Visits pixel x; true when it becomes a dot.
  bool visit(ptrdiff_t x) {
    // What the pixel brings itself: its gray value and the carry from above.
    const ptrdiff_t own = ptrdiff_t{table_gray(pixels_[x]) + carried_[x]} - kLowestValue;
    const ptrdiff_t value = own + from_left_;
    from_left_ = (kRightShares.data() + kRightMargin + own)[from_left_];
    const BelowShares& below = kBelowShares[value];
    carried_[x - 1] = below_previous_ + below.left;
    below_previous_ = below_current_ + below.below;
    below_current_ = below.right;
    return value <= kDotThreshold - kLowestValue;
  }
  // After the last pixel x: the cell below it is complete.
  void finish(ptrdiff_t x) { carried_[x] = below_previous_; }

 private:
  const platform::Rgb* pixels_;
  int32_t* carried_;
  ptrdiff_t from_left_ = 0;     // pointer-sized: it indexes the table without widening
  int32_t below_previous_ = 0;  // the cell below x - 1, still missing x's share
  int32_t below_current_ = 0;   // the cell below x, so far
};

// Visits one row. `carried` holds, on entry, what the row above passed to
// each pixel and, on return, what this row passes to the row below; it has a
// spare cell before the first pixel. The right share of the last pixel and
// the below-left share of the first fall outside the image and are dropped,
// as is the below-right share of the last. Whole bytes of dots are packed
// eight pixels at a time.
void diffuse_row(const platform::Rgb* pixels, int32_t* carried, int32_t width, uint8_t* out) {
  RowDiffusion row(pixels, carried);
  const ptrdiff_t whole_bytes = width / 8;
  ptrdiff_t x = 0;
  for (ptrdiff_t byte = 0; byte < whole_bytes; ++byte) {
    uint32_t bits = 0;
    for (int bit = 0; bit < 8; ++bit, ++x) bits = bits * 2 + (row.visit(x) ? 1 : 0);
    out[byte] |= static_cast<uint8_t>(bits);
  }
  if (x < width) {
    uint32_t bits = 0;
    for (uint32_t mask = 0x80; x < width; ++x, mask >>= 1) {
      if (row.visit(x)) bits |= mask;
    }
    out[whole_bytes] |= static_cast<uint8_t>(bits);
  }
  row.finish(width - 1);
}

}  // namespace

int32_t gray_value(uint8_t red, uint8_t green, uint8_t blue) {
  return table_gray({red, green, blue});
}

int32_t diffuse_errors(const LoadedImage& image, uint8_t* out) {
  const int32_t width = image.width();
  const int32_t height = image.height();
  if (width < 1 || height < 1) return VORN_OK;
  std::unique_ptr<int32_t[]> carried(new (std::nothrow) int32_t[static_cast<size_t>(width) + 1]());
  std::unique_ptr<platform::Rgb[]> pixels(new (std::nothrow) platform::Rgb[width]);
  if (!carried || !pixels) return VORN_ERR_NO_MEMORY;
  const size_t row_bytes = (static_cast<size_t>(width) + 7) / 8;
  for (int32_t y = 0; y < height; ++y) {
    image.pixel_row(y, pixels.get());
    diffuse_row(pixels.get(), carried.get() + 1, width, out + static_cast<size_t>(y) * row_bytes);
  }
  return VORN_OK;
}

}  // namespace vorn::image
