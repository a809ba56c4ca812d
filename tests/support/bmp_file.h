// Bitmap files written by hand, byte by byte, for the image decoders.
#pragma once

#include <cstdint>
#include <vector>

namespace vorn::test {

// A bitmap with a 40-byte info header and `palette` (0xRRGGBB each). Per
// pixel, top row first, `values` holds the palette index or the colour.
inline std::vector<uint8_t> make_bmp(int width, int height, int bits, bool top_down,
                                     const std::vector<uint32_t>& palette,
                                     const std::vector<uint32_t>& values) {
  const uint32_t stride = (static_cast<uint32_t>(width) * bits + 31) / 32 * 4;
  const auto offset = static_cast<uint32_t>(54 + palette.size() * 4);
  std::vector<uint8_t> out = {'B', 'M'};
  auto put = [&](int64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
  };
  put(offset + stride * height, 4), put(0, 4), put(offset, 4);
  put(40, 4), put(width, 4), put(top_down ? -height : height, 4), put(1, 2), put(bits, 2);
  put(0, 4), put(stride * height, 4), put(2835, 4), put(2835, 4), put(palette.size(), 4);
  put(0, 4);
  for (uint32_t colour : palette) put(colour, 4);  // blue, green, red, 0
  for (int r = 0; r < height; ++r) {
    std::vector<uint8_t> row(stride, 0);
    for (int x = 0; x < width; ++x) {
      const uint32_t v = values[static_cast<size_t>(top_down ? r : height - 1 - r) * width + x];
      if (bits < 24) row[x * bits / 8] |= static_cast<uint8_t>(v << (8 - bits - x * bits % 8));
      // The fourth byte of a 32-bit pixel is unused, not alpha: 0 must not matter.
      for (int i = 0; bits >= 24 && i < 3; ++i) row[x * bits / 8 + i] = uint8_t(v >> (8 * i));
    }
    out.insert(out.end(), row.begin(), row.end());
  }
  return out;
}

}  // namespace vorn::test
