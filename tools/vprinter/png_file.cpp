#include "png_file.h"

#include <png.h>

#include <cstdio>
#include <vector>

namespace vorn::vprinter {
namespace {

// libpng reports errors by longjmp, so nothing with a destructor lives in
// this function: the rows are packed before it runs.
bool write_rows(std::FILE* file, int width, int height, const png_byte* packed, size_t stride) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
  bool ok = png != nullptr && info != nullptr;
  if (ok && setjmp(png_jmpbuf(png)) == 0) {
    png_init_io(png, file);
    png_set_IHDR(png, info, width, height, 1, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < height; ++y) png_write_row(png, packed + static_cast<size_t>(y) * stride);
    png_write_end(png, nullptr);
  } else {
    ok = false;
  }
  png_destroy_write_struct(&png, &info);
  return ok;
}

}  // namespace

bool write_png(const std::string& path, const Bitmap& picture, std::string* problem) {
  if (picture.empty()) {
    *problem = "empty picture";
    return false;
  }
  // Gray at one bit: 0 is black, so a printed dot clears its bit.
  const size_t stride = (static_cast<size_t>(picture.width) + 7) / 8;
  std::vector<png_byte> packed(stride * picture.height, 0xFF);
  for (int y = 0; y < picture.height; ++y) {
    png_byte* row = &packed[static_cast<size_t>(y) * stride];
    for (int x = 0; x < picture.width; ++x) {
      if (picture.at(x, y) != 0) row[x / 8] &= static_cast<png_byte>(~(0x80 >> (x % 8)));
    }
  }
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) {
    *problem = "cannot create " + path;
    return false;
  }
  bool ok = write_rows(file, picture.width, picture.height, packed.data(), stride);
  if (std::fclose(file) != 0) ok = false;
  if (!ok) *problem = "cannot write " + path;
  return ok;
}

}  // namespace vorn::vprinter
