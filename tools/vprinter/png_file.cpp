#include "png_file.h"

#include <png.h>

#include <cstdio>
#include <vector>

namespace vorn::vprinter {

bool write_png(const std::string& path, const Bitmap& picture, std::string* problem) {
  if (picture.empty()) {
    *problem = "empty picture";
    return false;
  }
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) {
    *problem = "cannot create " + path;
    return false;
  }
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
  // Gray at one bit: 0 is black, so a printed dot clears its bit.
  std::vector<png_byte> row((picture.width + 7) / 8);
  bool ok = png != nullptr && info != nullptr;
  if (ok && setjmp(png_jmpbuf(png)) == 0) {
    png_init_io(png, file);
    png_set_IHDR(png, info, picture.width, picture.height, 1, PNG_COLOR_TYPE_GRAY,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < picture.height; ++y) {
      const uint8_t* dots = &picture.dots[static_cast<size_t>(y) * picture.width];
      for (size_t i = 0; i < row.size(); ++i) {
        unsigned byte = 0;
        for (int bit = 0; bit < 8; ++bit) {
          const int x = static_cast<int>(i) * 8 + bit;
          const bool paper = x >= picture.width || dots[x] == 0;
          byte |= (paper ? 1u : 0u) << (7 - bit);
        }
        row[i] = static_cast<png_byte>(byte);
      }
      png_write_row(png, row.data());
    }
    png_write_end(png, nullptr);
  } else {
    ok = false;
  }
  png_destroy_write_struct(&png, &info);
  if (std::fclose(file) != 0) ok = false;
  if (!ok) *problem = "cannot write " + path;
  return ok;
}

}  // namespace vorn::vprinter
