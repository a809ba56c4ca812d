// The direct PNG reader against libpng on files libpng writes: the same
// pixels for every kind it takes, the same result for everything else
// (other kinds, cuts, damage), and the file's bytes handed on unchanged when
// it leaves a file to libpng.
#include <gtest/gtest.h>
#include <png.h>
#include <zlib.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "platform/posix/image_store_posix.h"

namespace vorn::test {
namespace {

using platform::ImageStore;

struct Picture {
  int type;
  int depth;
  int filter;      // PNG_FILTER_*: one filter for every row
  bool with_trns;  // palette: alpha for the first entries; gray, RGB: a key colour
  bool interlaced;
  bool direct;  // taken by the direct reader
};

void append(png_structp png, png_bytep data, size_t length) {
  auto* out = static_cast<std::vector<uint8_t>*>(png_get_io_ptr(png));
  out->insert(out->end(), data, data + length);
}
void no_flush(png_structp) {}

// A random 37 x 23 picture, its image data split into IDAT chunks of 200
// bytes. Palette pictures use 200 entries, so that some indices lie past it.
std::vector<uint8_t> write_png(const Picture& p, uint32_t seed) {
  constexpr int kWidth = 37, kHeight = 23;
  std::mt19937 random(seed);
  const int channels = p.type == PNG_COLOR_TYPE_RGB          ? 3
                       : p.type == PNG_COLOR_TYPE_RGB_ALPHA  ? 4
                       : p.type == PNG_COLOR_TYPE_GRAY_ALPHA ? 2
                                                             : 1;
  const int row_bytes = (kWidth * channels * p.depth + 7) / 8;
  std::vector<std::vector<uint8_t>> rows(kHeight, std::vector<uint8_t>(row_bytes));
  for (auto& row : rows) {
    for (uint8_t& b : row) b = static_cast<uint8_t>(random() % 6 == 0 ? 0x21 : random());
  }
  std::vector<uint8_t> out;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_set_write_fn(png, &out, append, no_flush);
  png_set_compression_buffer_size(png, 200);
  png_set_check_for_invalid_index(png, 0);
  png_set_filter(png, 0, p.filter);
  png_set_IHDR(png, info, kWidth, kHeight, p.depth, p.type,
               p.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  std::vector<png_color> palette(200);
  std::vector<uint8_t> alpha(150);
  for (auto& c : palette) c = {uint8_t(random()), uint8_t(random()), uint8_t(random())};
  for (uint8_t& a : alpha) a = static_cast<uint8_t>(random() % 3 == 0 ? 255 : random());
  const int entries = std::min(200, 1 << p.depth);
  if (p.type == PNG_COLOR_TYPE_PALETTE) png_set_PLTE(png, info, palette.data(), entries);
  const png_uint_16 level = p.depth < 8 ? 1 : 0x21;
  png_color_16 key{0, level, level, level, level};
  if (p.with_trns && p.type == PNG_COLOR_TYPE_PALETTE) {
    png_set_tRNS(png, info, alpha.data(), std::min(150, entries), nullptr);
  } else if (p.with_trns) {
    png_set_tRNS(png, info, nullptr, 0, &key);
  }
  std::vector<png_bytep> pointers;
  for (auto& row : rows) pointers.push_back(row.data());
  png_write_info(png, info);
  png_write_image(png, pointers.data());
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return out;
}

std::vector<uint8_t> pixels(const ImageStore& store) {
  std::vector<uint8_t> out;
  for (int32_t y = 0; y < store.height; ++y) {
    out.insert(out.end(), store.row(y), store.row(y) + store.stride);
  }
  return out;
}

// The loader's way (the file's bytes its own to change) against libpng alone.
void expect_as_libpng(const std::vector<uint8_t>& file, const std::string& what) {
  ImageStore expected;
  const int32_t expected_result = platform::decode_png_general(file.data(), file.size(), &expected);
  std::unique_ptr<uint8_t[]> bytes(new uint8_t[file.size()]);
  std::copy(file.begin(), file.end(), bytes.get());
  ImageStore store;
  ASSERT_EQ(platform::decode_png_file(&bytes, file.size(), &store), expected_result) << what;
  if (expected_result != 0) {
    EXPECT_EQ(std::vector<uint8_t>(bytes.get(), bytes.get() + file.size()), file) << what;
    return;
  }
  EXPECT_EQ(store.bits_per_pixel, expected.bits_per_pixel) << what;
  EXPECT_EQ(std::pair(store.width, store.height), std::pair(expected.width, expected.height));
  EXPECT_EQ(pixels(store), pixels(expected)) << what;
}

TEST(PngDirectReader, GivesLibpngsPixelsForEveryKindAndFilter) {
  const Picture kinds[] = {
      {PNG_COLOR_TYPE_GRAY, 8, 0, false, false, true},
      {PNG_COLOR_TYPE_GRAY, 8, 0, true, false, true},
      {PNG_COLOR_TYPE_RGB, 8, 0, false, false, true},
      {PNG_COLOR_TYPE_RGB, 8, 0, true, false, true},
      {PNG_COLOR_TYPE_PALETTE, 8, 0, false, false, true},
      {PNG_COLOR_TYPE_PALETTE, 8, 0, true, false, true},
      {PNG_COLOR_TYPE_GRAY_ALPHA, 8, 0, false, false, true},
      {PNG_COLOR_TYPE_RGB_ALPHA, 8, 0, false, false, true},
      // Left to libpng.
      {PNG_COLOR_TYPE_RGB, 8, 0, false, true, false},
      {PNG_COLOR_TYPE_RGB, 16, 0, false, false, false},
      {PNG_COLOR_TYPE_GRAY, 4, 0, true, false, false},
      {PNG_COLOR_TYPE_PALETTE, 2, 0, false, false, false},
  };
  const int filters[] = {PNG_FILTER_NONE, PNG_FILTER_SUB,   PNG_FILTER_UP,
                         PNG_FILTER_AVG,  PNG_FILTER_PAETH, PNG_ALL_FILTERS};
  uint32_t seed = 1;
  for (Picture kind : kinds) {
    for (int filter : filters) {
      kind.filter = filter;
      const std::vector<uint8_t> file = write_png(kind, seed++);
      const std::string what = "type " + std::to_string(kind.type) + " depth " +
                               std::to_string(kind.depth) + " filter " + std::to_string(filter) +
                               (kind.with_trns ? " tRNS" : "");
      ImageStore direct;
      EXPECT_EQ(platform::decode_png_direct(file.data(), file.size(), &direct), kind.direct)
          << what;
      expect_as_libpng(file, what);
    }
  }
}

// Cuts, changed bytes and wrong lengths give libpng's result, whether libpng
// fails or shrugs them off. The image data lies in chunks of 200 bytes from
// offset 33 on.
TEST(PngDirectReader, DamagedFilesGiveLibpngsResult) {
  const std::vector<uint8_t> file =
      write_png({PNG_COLOR_TYPE_RGB_ALPHA, 8, PNG_ALL_FILTERS, false, false, true}, 99);
  ASSERT_EQ(std::string(file.begin() + 37, file.begin() + 41), "IDAT");
  for (size_t length = 0; length < file.size(); length += 7) {
    expect_as_libpng({file.begin(), file.begin() + static_cast<ptrdiff_t>(length)},
                     "cut at " + std::to_string(length));
  }
  std::mt19937 random(5);
  for (int round = 0; round < 300; ++round) {
    // Any byte, a chunk's length, or compressed data under a good CRC.
    std::vector<uint8_t> damaged = file;
    const size_t chunk = 33 + 212 * (random() % 8);
    const size_t at = round % 3 == 0   ? 8 + random() % (file.size() - 8)
                      : round % 3 == 1 ? chunk + 3
                                       : chunk + 8 + random() % 200;
    damaged[at] = static_cast<uint8_t>(random());
    const uLong crc = crc32(0, damaged.data() + chunk + 4, 204);
    for (int i = 0; round % 3 == 2 && i < 4; ++i)
      damaged[chunk + 208 + i] = static_cast<uint8_t>(crc >> (24 - 8 * i));
    expect_as_libpng(damaged, "round " + std::to_string(round));
  }
}

}  // namespace
}  // namespace vorn::test
