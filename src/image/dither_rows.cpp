// The diffusion row after row, for any machine.
//
// Integer sums do not depend on their order, so instead of a work plane of
// the whole image one row of carried values suffices: a pixel's value is its
// gray value plus what the row above passed down plus what its left
// neighbour passed right. The shares for the row below are kept in two
// registers until a cell below is complete (it has heard from its three
// neighbours above) and then stored in place of the value just used. The
// shares of every possible value come from tables.
#include <vorn/vorn.h>

#include <array>
#include <cstddef>
#include <memory>
#include <new>

#include "image/dither.h"

namespace vorn::image {
namespace {

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
  RowDiffusion(const int16_t* gray, int32_t* carried) : gray_(gray), carried_(carried) {}

  // Visits pixel x; true when it becomes a dot.
  bool visit(ptrdiff_t x) {
    // What the pixel brings itself: its gray value and the carry from above.
    const ptrdiff_t own = ptrdiff_t{gray_[x] + carried_[x]} - kLowestValue;
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
  const int16_t* gray_;
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
void diffuse_row(const int16_t* gray, int32_t* carried, int32_t width, uint8_t* out) {
  RowDiffusion row(gray, carried);
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

int32_t diffuse_row_by_row(const GrayRows& rows, int32_t width, int32_t height, uint8_t* out) {
  std::unique_ptr<int32_t[]> carried(new (std::nothrow) int32_t[static_cast<size_t>(width) + 1]());
  std::unique_ptr<int16_t[]> gray(new (std::nothrow) int16_t[width]);
  if (!carried || !gray) return VORN_ERR_NO_MEMORY;
  const size_t row_bytes = (static_cast<size_t>(width) + 7) / 8;
  for (int32_t y = 0; y < height; ++y) {
    rows.read(y, gray.get());
    diffuse_row(gray.get(), carried.get() + 1, width, out + static_cast<size_t>(y) * row_bytes);
  }
  return VORN_OK;
}

}  // namespace vorn::image
