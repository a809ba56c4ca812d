// The generated photo-like picture the benchmarks print: smooth shading with
// detail and a little sensor noise, so that it compresses and dithers like a
// photograph rather than like flat artwork. Written as a 24-bit PNG and a
// 24-bit BMP of the same pixels.
#pragma once

#include <png.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace vorn::bench {

// Row y of a width-pixel picture as red, green, blue bytes; the noise runs on
// from row to row in `noise_state`.
inline void photo_row(int width, int y, uint32_t* noise_state, std::vector<uint8_t>* row) {
  row->resize(static_cast<size_t>(width) * 3);
  for (int x = 0; x < width; ++x) {
    for (int c = 0; c < 3; ++c) {
      uint32_t& s = *noise_state;
      s ^= s << 13;
      s ^= s >> 17;
      s ^= s << 5;
      const double shade = 128 + 80 * std::sin(x * 0.011 + c) * std::cos(y * 0.006 - c * 0.5) +
                           30 * std::sin((x + 2 * y) * 0.043) + static_cast<int>(s % 13) - 6;
      (*row)[static_cast<size_t>(x) * 3 + c] = static_cast<uint8_t>(shade < 0     ? 0
                                                                    : shade > 255 ? 255
                                                                                  : shade);
    }
  }
}

// The whole picture, top row first.
inline std::vector<uint8_t> photo(int width, int height) {
  std::vector<uint8_t> pixels;
  std::vector<uint8_t> row;
  uint32_t noise = 2463534242u;
  for (int y = 0; y < height; ++y) {
    photo_row(width, y, &noise, &row);
    pixels.insert(pixels.end(), row.begin(), row.end());
  }
  return pixels;
}

namespace detail {
inline bool write_png_rows(png_structp png, png_infop info, FILE* file, int width, int height,
                           const uint8_t* pixels) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_init_io(png, file);
  png_set_IHDR(png, info, width, height, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (int y = 0; y < height; ++y) {
    png_write_row(png, pixels + static_cast<size_t>(y) * width * 3);
  }
  png_write_end(png, nullptr);
  return true;
}
}  // namespace detail

inline bool write_png(const std::string& path, int width, int height,
                      const std::vector<uint8_t>& pixels) {
  FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return false;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  const bool written = detail::write_png_rows(png, info, file, width, height, pixels.data());
  png_destroy_write_struct(&png, &info);
  return std::fclose(file) == 0 && written;
}

// Bottom-up rows of blue, green, red, each padded to a multiple of 4 bytes.
inline bool write_bmp(const std::string& path, int width, int height,
                      const std::vector<uint8_t>& pixels) {
  const uint32_t stride = (static_cast<uint32_t>(width) * 3 + 3) / 4 * 4;
  const uint32_t data_bytes = stride * static_cast<uint32_t>(height);
  std::vector<uint8_t> file(54 + static_cast<size_t>(data_bytes), 0);
  auto put32 = [&](size_t at, uint32_t value) {
    for (int i = 0; i < 4; ++i) file[at + i] = static_cast<uint8_t>(value >> (8 * i));
  };
  file[0] = 'B';
  file[1] = 'M';
  put32(2, static_cast<uint32_t>(file.size()));
  put32(10, 54);
  put32(14, 40);
  put32(18, static_cast<uint32_t>(width));
  put32(22, static_cast<uint32_t>(height));
  file[26] = 1;   // planes
  file[28] = 24;  // bits per pixel
  put32(34, data_bytes);
  for (int y = 0; y < height; ++y) {
    const uint8_t* in = pixels.data() + static_cast<size_t>(y) * width * 3;
    uint8_t* out = file.data() + 54 + static_cast<size_t>(height - 1 - y) * stride;
    for (int x = 0; x < width; ++x) {
      out[x * 3] = in[x * 3 + 2];
      out[x * 3 + 1] = in[x * 3 + 1];
      out[x * 3 + 2] = in[x * 3];
    }
  }
  FILE* out = std::fopen(path.c_str(), "wb");
  if (out == nullptr) return false;
  const bool written = std::fwrite(file.data(), 1, file.size(), out) == file.size();
  return std::fclose(out) == 0 && written;
}

}  // namespace vorn::bench
