// Images: raster images (plain and with PackBits rows), column images, and
// the pictures the printer stores (NV and download graphics, the print
// buffer's graphic, NV and downloaded bit images).
#include <algorithm>

#include "engine.h"

namespace vorn::vprinter {
namespace {

using cli::byte_at;
using cli::choice;
using cli::u16_at;

// Rows of `row_bytes` bytes coded with PackBits; empty when they run short.
std::vector<uint8_t> unpack_rows(Bytes coded, size_t row_bytes, size_t rows) {
  std::vector<uint8_t> out;
  out.reserve(row_bytes * rows);
  size_t at = 0;
  for (size_t row = 0; row < rows; ++row) {
    const size_t end = out.size() + row_bytes;
    while (out.size() < end) {
      if (at >= coded.size()) return {};
      const unsigned head = coded[at++];
      if (head < 128) {
        const size_t count = std::min<size_t>(head + 1, end - out.size());
        if (at + head + 1 > coded.size()) return {};
        out.insert(out.end(), coded.begin() + at, coded.begin() + at + count);
        at += head + 1;
      } else if (head > 128) {
        if (at >= coded.size()) return {};
        const size_t count = std::min<size_t>(257 - head, end - out.size());
        out.insert(out.end(), count, coded[at++]);
      }
    }
  }
  return out;
}

size_t dots_of(const Bitmap& b) {
  return b.dots.size();
}

}  // namespace

bool Engine::store_allowed(size_t bytes) {
  size_t held = dots_of(buffered_graphic_) + dots_of(downloaded_bit_image_);
  for (const auto& [key, picture] : nv_graphics_) held += dots_of(picture);
  for (const auto& [key, picture] : download_graphics_) held += dots_of(picture);
  for (const Bitmap& picture : nv_bit_images_) held += dots_of(picture);
  if (held + bytes <= kMaxStoredBytes) return true;
  log("memory for stored pictures full, picture not stored");
  return false;
}

// Scaled by `scale` (0 to 3: normal, double width, double height, both) and
// placed like a block, unless it would be larger than any picture.
void Engine::print_picture(const Bitmap& picture, int scale) {
  const int sx = (scale & 1) != 0 ? 2 : 1;
  const int sy = (scale & 2) != 0 ? 2 : 1;
  if (picture.empty()) return;
  if (picture.width * sx > 4096 || picture.height * sy > kMaxPictureRows) {
    log("picture too large to print");
    return;
  }
  place_block(scaled(picture, sx, sy));
}

void Engine::raster(Bytes c) {
  const unsigned m = c[3];
  const size_t row_bytes = u16_at(c, 4);
  const size_t rows = u16_at(c, 6);
  if (row_bytes == 0 || rows == 0) return;
  if (row_bytes > 512 || rows > static_cast<size_t>(kMaxPictureRows)) {
    log("raster image too large to print");
    return;
  }
  if (m == cli::kCompressedRaster) {
    std::vector<uint8_t> data = unpack_rows(c.subspan(8), row_bytes, rows);
    if (data.empty()) return;
    print_picture(from_raster(data.data(), static_cast<int>(row_bytes), static_cast<int>(rows)), 0);
    return;
  }
  if (choice(m) < 0) return;
  print_picture(from_raster(c.data() + 8, static_cast<int>(row_bytes), static_cast<int>(rows)),
                choice(m));
}

// ESC *: columns of 8 or 24 dots, part of the line like characters. The
// single densities are drawn with wider dots, the 8-dot modes taller ones.
void Engine::column_image(Bytes c) {
  const unsigned m = c[2];
  const int columns = static_cast<int>(u16_at(c, 3));
  const int bytes_per_column = m >= 32 ? 3 : 1;
  if (m != 0 && m != 1 && m != 32 && m != 33) return;
  if (columns == 0 || columns > 4096) return;
  const int sx = (m == 0 || m == 32) ? 2 : 1;
  const int sy = m < 32 ? 3 : 1;
  Bitmap dots = scaled(from_columns(c.data() + 5, columns, bytes_per_column), sx, sy);
  if (line_x_ + dots.width > area_width()) print_line(true);
  const int x = line_x_;
  line_x_ += dots.width;
  line_.push_back({std::move(dots), x});
}

void Engine::graphics(Bytes c) {
  graphics_function(c, 5);
}

void Engine::graphics_long(Bytes c) {
  graphics_function(c, 7);
}

// GS ( L and GS 8 L, from m at `base`.
void Engine::graphics_function(Bytes c, size_t base) {
  const unsigned function = byte_at(c, base + 1);
  const uint16_t key = static_cast<uint16_t>(byte_at(c, base + 3) << 8 | byte_at(c, base + 4));
  auto picture_at = [&](size_t size_at, size_t data_at) -> Bitmap {
    const size_t width = u16_at(c, size_at);
    const size_t height = u16_at(c, size_at + 2);
    const size_t row_bytes = (width + 7) / 8;
    if (width == 0 || height == 0 || data_at + row_bytes * height > c.size()) {
      log("graphic data does not match its size, ignored");
      return {};
    }
    if (!store_allowed(row_bytes * 8 * height)) return {};
    Bitmap b =
        from_raster(c.data() + data_at, static_cast<int>(row_bytes), static_cast<int>(height));
    return b;
  };
  switch (function) {
    case 0x43:
    case 0x53: {
      Bitmap picture = picture_at(base + 6, base + 11);
      if (picture.empty()) return;
      (function == 0x43 ? nv_graphics_ : download_graphics_)[key] = std::move(picture);
      break;
    }
    case 0x70: {
      buffered_graphic_ = Bitmap();
      buffered_graphic_ = picture_at(base + 6, base + 10);
      break;
    }
    case 0x45:
    case 0x55: {
      const uint16_t print_key =
          static_cast<uint16_t>(byte_at(c, base + 2) << 8 | byte_at(c, base + 3));
      auto& store = function == 0x45 ? nv_graphics_ : download_graphics_;
      auto found = store.find(print_key);
      if (found == store.end()) {
        log("no graphic stored under that key");
        return;
      }
      const int scale = (byte_at(c, base + 4) == 2 ? 1 : 0) | (byte_at(c, base + 5) == 2 ? 2 : 0);
      print_picture(found->second, scale);
      break;
    }
    case 0x32:
      print_picture(buffered_graphic_, 0);
      buffered_graphic_ = Bitmap();
      break;
    case 0x41:
      nv_graphics_.clear();
      break;
    default:
      break;
  }
}

void Engine::define_bit_image(Bytes c) {
  const int columns = c[2] * 8;
  const int bytes_per_column = c[3];
  downloaded_bit_image_ = Bitmap();
  if (columns == 0 || bytes_per_column == 0) return;
  if (!store_allowed(static_cast<size_t>(columns) * bytes_per_column * 8)) return;
  downloaded_bit_image_ = from_columns(c.data() + 4, columns, bytes_per_column);
}

void Engine::print_bit_image(Bytes c) {
  if (choice(c[2]) >= 0) print_picture(downloaded_bit_image_, choice(c[2]));
}

void Engine::define_nv_bit_images(Bytes c) {
  nv_bit_images_.clear();
  size_t at = 3;
  for (unsigned image = 0; image < c[2]; ++image) {
    const int columns = static_cast<int>(u16_at(c, at)) * 8;
    const int bytes_per_column = static_cast<int>(u16_at(c, at + 2));
    const size_t size = static_cast<size_t>(columns) * bytes_per_column;
    if (!store_allowed(size * 8)) return;
    nv_bit_images_.push_back(columns == 0 || bytes_per_column == 0
                                 ? Bitmap()
                                 : from_columns(c.data() + at + 4, columns, bytes_per_column));
    at += 4 + size;
  }
}

void Engine::print_nv_bit_image(Bytes c) {
  const unsigned n = c[2];
  if (n == 0 || n > nv_bit_images_.size() || choice(c[3]) < 0) {
    log("no NV bit image " + std::to_string(n));
    return;
  }
  print_picture(nv_bit_images_[n - 1], choice(c[3]));
}

}  // namespace vorn::vprinter
