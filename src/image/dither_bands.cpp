// The diffusion eight rows at a time, in the 16-bit lanes of SSE2 registers.
//
// A pixel's value depends on its left neighbour and on three pixels of the
// row above: x - 1 (its below-right share), x (below) and x + 1 (below-left).
// So row k + 1 may visit pixel x as soon as row k has visited x + 1. Each row
// of a band of eight runs three pixels behind the row above it: one step of
// the loop visits pixel s of the first row, s - 3 of the second, ... s - 21
// of the eighth, one row per lane. The chain from one pixel to the next,
// which sets the pace, then serves eight pixels per step. (A lag of two would
// keep the order too, but then what a lane passes down is needed by the lane
// below at the very next step, which makes a second chain as long as the
// first.)
//
// The shares are computed with shifts and adds rather than looked up (SIMD
// has no per-lane table lookup); adding 15 to a negative product before the
// shift truncates toward zero. Values stay in [-128, 382] and the products in
// [-1024, 1016], well inside 16 bits.
//
// Lanes outside their row (before its first pixel or past its last) take in
// nothing from above and pass nothing to the left, so their shares land only
// outside the row below, where nothing takes them in. Between bands the
// carried values travel through one row: the last lane writes it 22 pixels
// behind where the first lane of the band reads it, so one row serves both.
#include <vorn/vorn.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>

#include "image/dither.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace vorn::image {

#if defined(__SSE2__)

namespace {

constexpr int32_t kLanes = 8;
constexpr int32_t kLag = 3;
// At step u the last lane completes the cell below it, in the first row of
// the next band, at x = u - kOutputDelay.
constexpr int32_t kOutputDelay = kLag * (kLanes - 1) + 1;
// Lanes hold 16-bit pixel positions that run to width + kOutputDelay.
constexpr int32_t kWidestBand = 16384;

// The working memory of one conversion.
struct Band {
  int32_t steps = 0;  // per band: width + kOutputDelay
  int32_t span = 0;   // steps rounded up to whole 8 x 8 blocks
  // Each lane's gray row, shifted kLag pixels per lane and zero around it.
  std::unique_ptr<int16_t[]> rows;
  // The same values step by step: eight lanes per step.
  std::unique_ptr<int16_t[]> steps_in;
  // What the row above the band passed down (read) and what the band passes
  // to the row below it (written), one cell per pixel.
  std::unique_ptr<int16_t[]> carried;
  // One byte per step: bit k is lane k's dot.
  std::unique_ptr<uint8_t[]> dots;

  bool allocate(int32_t width) {
    steps = width + kOutputDelay;
    span = (steps + 7) / 8 * 8;
    rows.reset(new (std::nothrow) int16_t[static_cast<size_t>(kLanes) * span]());
    steps_in.reset(new (std::nothrow) int16_t[static_cast<size_t>(kLanes) * span]);
    carried.reset(new (std::nothrow) int16_t[span]());
    // The packing reads whole 8-byte words up to 8 bytes past the last step.
    dots.reset(new (std::nothrow) uint8_t[static_cast<size_t>(span) + 8]());
    return rows && steps_in && carried && dots;
  }
  int16_t* lane_row(int32_t lane) { return rows.get() + static_cast<size_t>(lane) * span; }
};

// Turns the eight lane rows into one register per step, 8 x 8 at a time.
void transpose(Band& band) {
  for (int32_t block = 0; block < band.span; block += 8) {
    __m128i r[kLanes];
    for (int32_t k = 0; k < kLanes; ++k) {
      r[k] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(band.lane_row(k) + block));
    }
    __m128i pairs[kLanes];
    for (int32_t k = 0; k < kLanes; k += 2) {
      pairs[k] = _mm_unpacklo_epi16(r[k], r[k + 1]);
      pairs[k + 1] = _mm_unpackhi_epi16(r[k], r[k + 1]);
    }
    __m128i quads[kLanes];
    for (int32_t k = 0; k < kLanes; k += 4) {
      quads[k] = _mm_unpacklo_epi32(pairs[k], pairs[k + 2]);
      quads[k + 1] = _mm_unpackhi_epi32(pairs[k], pairs[k + 2]);
      quads[k + 2] = _mm_unpacklo_epi32(pairs[k + 1], pairs[k + 3]);
      quads[k + 3] = _mm_unpackhi_epi32(pairs[k + 1], pairs[k + 3]);
    }
    __m128i* out = reinterpret_cast<__m128i*>(band.steps_in.get() + kLanes * block);
    for (int32_t j = 0; j < 4; ++j) {
      _mm_storeu_si128(out + 2 * j, _mm_unpacklo_epi64(quads[j], quads[j + 4]));
      _mm_storeu_si128(out + 2 * j + 1, _mm_unpackhi_epi64(quads[j], quads[j + 4]));
    }
  }
}

// Visits every pixel of the band, step by step.
void run_steps(Band& band, int32_t width) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i one = _mm_set1_epi16(1);
  const __m128i before_row = _mm_set1_epi16(-1);
  const __m128i past_row = _mm_set1_epi16(static_cast<int16_t>(width));
  const __m128i threshold = _mm_set1_epi16(128);
  const __m128i dot_below = _mm_set1_epi16(129);
  const __m128i paper = _mm_set1_epi16(255);
  const __m128i fifteen = _mm_set1_epi16(15);
  // Each lane's pixel at the current step.
  __m128i x =
      _mm_setr_epi16(0, -kLag, -2 * kLag, -3 * kLag, -4 * kLag, -5 * kLag, -6 * kLag, -7 * kLag);
  __m128i from_left = zero;
  __m128i below_previous = zero, right_previous = zero, right_before = zero;
  // Each lane's completed cell below it, one and two steps ago.
  __m128i passed_previous = zero, passed_before = zero;
  const __m128i* in = reinterpret_cast<const __m128i*>(band.steps_in.get());
  int16_t* carried = band.carried.get();
  uint8_t* dots = band.dots.get();
  for (int32_t s = 0; s < band.steps; ++s) {
    const __m128i inside =
        _mm_and_si128(_mm_cmpgt_epi16(x, before_row), _mm_cmplt_epi16(x, past_row));
    // Lane k + 1 takes what lane k completed two steps ago; lane 0 takes the
    // row above the band.
    const __m128i from_above = _mm_insert_epi16(_mm_slli_si128(passed_before, 2), carried[s], 0);
    const __m128i value = _mm_add_epi16(
        _mm_add_epi16(_mm_loadu_si128(in + s), _mm_and_si128(from_above, inside)), from_left);
    dots[s] = static_cast<uint8_t>(
        _mm_movemask_epi8(_mm_packs_epi16(_mm_cmplt_epi16(value, dot_below), zero)));
    const __m128i error =
        _mm_sub_epi16(value, _mm_and_si128(_mm_cmpgt_epi16(value, threshold), paper));
    const __m128i toward_zero = _mm_and_si128(_mm_srai_epi16(error, 15), fifteen);
    const __m128i twice = _mm_add_epi16(error, error);
    const __m128i four_times = _mm_add_epi16(twice, twice);
    const __m128i seven_times = _mm_sub_epi16(_mm_slli_epi16(error, 3), error);
    from_left = _mm_srai_epi16(_mm_add_epi16(seven_times, toward_zero), 4);
    const __m128i left = _mm_and_si128(
        _mm_srai_epi16(_mm_add_epi16(_mm_add_epi16(twice, error), toward_zero), 4), inside);
    const __m128i below =
        _mm_srai_epi16(_mm_add_epi16(_mm_add_epi16(four_times, error), toward_zero), 4);
    const __m128i right = _mm_srai_epi16(_mm_add_epi16(error, toward_zero), 4);
    const __m128i passed = _mm_add_epi16(_mm_add_epi16(left, below_previous), right_before);
    right_before = right_previous;
    right_previous = right;
    below_previous = below;
    passed_before = passed_previous;
    passed_previous = passed;
    if (s >= kOutputDelay) {
      carried[s - kOutputDelay] = static_cast<int16_t>(_mm_extract_epi16(passed, kLanes - 1));
    }
    x = _mm_add_epi16(x, one);
  }
}

// Packs lane k's dots, bit k of the step bytes from step kLag * k on, into
// row `k` of `out`, eight pixels per byte with the leftmost in the top bit.
void pack_rows(const Band& band, int32_t lanes, int32_t width, uint8_t* out) {
  const size_t row_bytes = (static_cast<size_t>(width) + 7) / 8;
  const int32_t used_in_last = width % 8;
  const uint8_t last_mask =
      used_in_last == 0 ? 0xFF : static_cast<uint8_t>(0xFF << (8 - used_in_last));
  for (int32_t k = 0; k < lanes; ++k) {
    const uint8_t* steps = band.dots.get() + kLag * k;
    uint8_t* row = out + static_cast<size_t>(k) * row_bytes;
    for (size_t i = 0; i < row_bytes; ++i) {
      uint64_t eight;
      std::memcpy(&eight, steps + 8 * i, sizeof eight);
      // One bit per byte, then the multiply gathers byte j's bit at 7 - j.
      const uint64_t bits = (eight >> k) & 0x0101010101010101u;
      row[i] = static_cast<uint8_t>((bits * 0x8040201008040201u) >> 56);
    }
    row[row_bytes - 1] &= last_mask;
  }
}

}  // namespace

bool bands_available(int32_t width) {
  return width >= 1 && width <= kWidestBand;
}

int32_t diffuse_in_bands(const GrayRows& rows, int32_t width, int32_t height, uint8_t* out) {
  Band band;
  if (!band.allocate(width)) return VORN_ERR_NO_MEMORY;
  const size_t row_bytes = (static_cast<size_t>(width) + 7) / 8;
  for (int32_t first = 0; first < height; first += kLanes) {
    const int32_t lanes = std::min(kLanes, height - first);
    // Lanes without a row in the last band run on zeros; their dots are not
    // packed and nothing reads what they pass down.
    for (int32_t k = lanes; k < kLanes; ++k) std::fill_n(band.lane_row(k), band.span, 0);
    for (int32_t k = 0; k < lanes; ++k) rows.read(first + k, band.lane_row(k) + kLag * k);
    transpose(band);
    run_steps(band, width);
    pack_rows(band, lanes, width, out + static_cast<size_t>(first) * row_bytes);
  }
  return VORN_OK;
}

#else  // without SSE2 the bands are diffused row after row

bool bands_available(int32_t) {
  return false;
}

int32_t diffuse_in_bands(const GrayRows& rows, int32_t width, int32_t height, uint8_t* out) {
  return diffuse_row_by_row(rows, width, height, out);
}

#endif

}  // namespace vorn::image
