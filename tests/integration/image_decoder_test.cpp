// The platform's image decoder on real files, written here with the same
// libraries (PNG, JPEG, GIF) or by hand (BMP): pixel colours, 1-bit images,
// transparency on white, and the failure numbers for files that are missing,
// damaged or not images at all. Run under AddressSanitizer, the damaged-file
// tests also show that no reader looks outside its file.
// jpeglib.h uses FILE and size_t without including their headers.
// clang-format off
#include <cstddef>
#include <cstdio>
#include <jpeglib.h>
// clang-format on

#include <gif_lib.h>
#include <gtest/gtest.h>
#include <png.h>
#include <vorn/vorn.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csetjmp>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "image/conversion.h"
#include "image/loaded_image.h"
#include "platform/posix/image_store_posix.h"

namespace vorn::test {
namespace {

namespace fs = std::filesystem;
using platform::ColourEntry;
using platform::Rgb;

constexpr int32_t kUndecodable = EILSEQ;

std::vector<uint8_t> read_all(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void write_all(const fs::path& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
}

// ---- writers ---------------------------------------------------------------

struct PngLayout {
  int width;
  int height;
  int bit_depth;
  int colour_type;
  std::vector<std::vector<uint8_t>> rows;  // raw rows as PNG stores them
  std::vector<png_color> palette;
  std::vector<uint8_t> trans_alpha;  // tRNS for palettes
  bool interlaced = false;
};

bool write_png_rows(png_structp png, png_infop info, FILE* file, const PngLayout* layout,
                    png_bytepp rows) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_init_io(png, file);
  png_set_IHDR(png, info, layout->width, layout->height, layout->bit_depth, layout->colour_type,
               layout->interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  if (!layout->palette.empty()) {
    png_set_PLTE(png, info, layout->palette.data(), static_cast<int>(layout->palette.size()));
  }
  if (!layout->trans_alpha.empty()) {
    png_set_tRNS(png, info, layout->trans_alpha.data(),
                 static_cast<int>(layout->trans_alpha.size()), nullptr);
  }
  png_write_info(png, info);
  png_write_image(png, rows);
  png_write_end(png, nullptr);
  return true;
}

void write_png(const fs::path& path, const PngLayout& layout) {
  FILE* file = std::fopen(path.c_str(), "wb");
  ASSERT_NE(file, nullptr);
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  std::vector<png_bytep> rows;
  std::vector<std::vector<uint8_t>> copies = layout.rows;
  for (auto& row : copies) rows.push_back(row.data());
  const bool written = write_png_rows(png, info, file, &layout, rows.data());
  png_destroy_write_struct(&png, &info);
  std::fclose(file);
  ASSERT_TRUE(written);
}

bool write_jpeg_rows(jpeg_compress_struct* info, FILE* file, const std::vector<uint8_t>* pixels,
                     int width, int height, int components) {
  jpeg_stdio_dest(info, file);
  info->image_width = static_cast<JDIMENSION>(width);
  info->image_height = static_cast<JDIMENSION>(height);
  info->input_components = components;
  info->in_color_space = components == 1 ? JCS_GRAYSCALE : JCS_RGB;
  jpeg_set_defaults(info);
  jpeg_set_quality(info, 95, TRUE);
  jpeg_start_compress(info, TRUE);
  for (int y = 0; y < height; ++y) {
    JSAMPROW row =
        const_cast<uint8_t*>(pixels->data()) + static_cast<size_t>(y) * width * components;
    jpeg_write_scanlines(info, &row, 1);
  }
  jpeg_finish_compress(info);
  return true;
}

void write_jpeg(const fs::path& path, const std::vector<uint8_t>& pixels, int width, int height,
                int components) {
  FILE* file = std::fopen(path.c_str(), "wb");
  ASSERT_NE(file, nullptr);
  jpeg_compress_struct info{};
  jpeg_error_mgr errors{};
  info.err = jpeg_std_error(&errors);
  jpeg_create_compress(&info);
  write_jpeg_rows(&info, file, &pixels, width, height, components);
  jpeg_destroy_compress(&info);
  std::fclose(file);
}

struct GifSpec {
  int screen_width;
  int screen_height;
  int left = 0;
  int top = 0;
  int width;
  int height;
  std::vector<GifColorType> colours;       // a power of two of them
  std::vector<std::vector<uint8_t>> rows;  // frame rows, top first
  int transparent = -1;
  bool interlaced = false;
};

void write_gif(const fs::path& path, const GifSpec& layout) {
  int error = 0;
  GifFileType* gif = EGifOpenFileName(path.c_str(), false, &error);
  ASSERT_NE(gif, nullptr);
  EGifSetGifVersion(gif, true);
  ColorMapObject* map =
      GifMakeMapObject(static_cast<int>(layout.colours.size()), layout.colours.data());
  EXPECT_EQ(EGifPutScreenDesc(gif, layout.screen_width, layout.screen_height, 8, 0, map), GIF_OK);
  if (layout.transparent >= 0) {
    const GifByteType control[4] = {0x01, 0, 0, static_cast<GifByteType>(layout.transparent)};
    EXPECT_EQ(EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, 4, control), GIF_OK);
  }
  EXPECT_EQ(EGifPutImageDesc(gif, layout.left, layout.top, layout.width, layout.height,
                             layout.interlaced, nullptr),
            GIF_OK);
  std::vector<int> order;
  if (layout.interlaced) {
    for (auto [first, step] : {std::pair{0, 8}, {4, 8}, {2, 4}, {1, 2}}) {
      for (int y = first; y < layout.height; y += step) order.push_back(y);
    }
  } else {
    for (int y = 0; y < layout.height; ++y) order.push_back(y);
  }
  for (int y : order) {
    std::vector<GifPixelType> line = layout.rows[y];
    EXPECT_EQ(EGifPutLine(gif, line.data(), layout.width), GIF_OK);
  }
  EXPECT_EQ(EGifCloseFile(gif, &error), GIF_OK);
  GifFreeMapObject(map);
}

void put16(std::vector<uint8_t>* out, uint32_t v) {
  out->push_back(static_cast<uint8_t>(v));
  out->push_back(static_cast<uint8_t>(v >> 8));
}
void put32(std::vector<uint8_t>* out, uint32_t v) {
  put16(out, v & 0xFFFF);
  put16(out, v >> 16);
}

// A bitmap with a 40-byte info header. `values` holds, per pixel top row
// first, the palette index (up to 8 bits) or the colour as 0xRRGGBB.
std::vector<uint8_t> make_bmp(int width, int height, int bits, bool top_down,
                              const std::vector<std::array<uint8_t, 3>>& palette /* r, g, b */,
                              const std::vector<uint32_t>& values) {
  const uint32_t stride = (static_cast<uint32_t>(width) * bits + 31) / 32 * 4;
  const uint32_t pixel_offset = 14 + 40 + static_cast<uint32_t>(palette.size()) * 4;
  std::vector<uint8_t> out;
  out.push_back('B');
  out.push_back('M');
  put32(&out, pixel_offset + stride * height);
  put32(&out, 0);
  put32(&out, pixel_offset);
  put32(&out, 40);
  put32(&out, static_cast<uint32_t>(width));
  put32(&out, static_cast<uint32_t>(top_down ? -height : height));
  put16(&out, 1);
  put16(&out, static_cast<uint32_t>(bits));
  put32(&out, 0);  // no compression
  put32(&out, stride * height);
  put32(&out, 2835);
  put32(&out, 2835);
  put32(&out, static_cast<uint32_t>(palette.size()));
  put32(&out, 0);
  for (const auto& c : palette) {
    out.push_back(c[2]);
    out.push_back(c[1]);
    out.push_back(c[0]);
    out.push_back(0);
  }
  for (int r = 0; r < height; ++r) {
    const int y = top_down ? r : height - 1 - r;
    std::vector<uint8_t> row(stride, 0);
    for (int x = 0; x < width; ++x) {
      const uint32_t v = values[static_cast<size_t>(y) * width + x];
      switch (bits) {
        case 1:
          row[x / 8] |= static_cast<uint8_t>((v & 1) << (7 - x % 8));
          break;
        case 4:
          row[x / 2] |= static_cast<uint8_t>((v & 0xF) << (x % 2 == 0 ? 4 : 0));
          break;
        case 8:
          row[x] = static_cast<uint8_t>(v);
          break;
        case 24:
          row[x * 3] = static_cast<uint8_t>(v);
          row[x * 3 + 1] = static_cast<uint8_t>(v >> 8);
          row[x * 3 + 2] = static_cast<uint8_t>(v >> 16);
          break;
        case 32:
          row[x * 4] = static_cast<uint8_t>(v);
          row[x * 4 + 1] = static_cast<uint8_t>(v >> 8);
          row[x * 4 + 2] = static_cast<uint8_t>(v >> 16);
          row[x * 4 + 3] = 0x00;  // unused byte, not alpha: must not matter
          break;
      }
    }
    out.insert(out.end(), row.begin(), row.end());
  }
  return out;
}

// ---- fixture ---------------------------------------------------------------

class ImageDecoder : public testing::Test {
 protected:
  void SetUp() override {
    std::random_device seed;
    dir_ = fs::temp_directory_path() / ("vorn-images-" + std::to_string(seed()));
    fs::create_directories(dir_);
  }
  void TearDown() override {
    std::error_code ignored;
    fs::remove_all(dir_, ignored);
  }
  fs::path file(const std::string& name) const { return dir_ / name; }
  static std::u16string wide(const fs::path& path) {
    const std::string s = path.string();
    return {s.begin(), s.end()};
  }
  // Loads through the decoder in force, as the conversions do.
  static int32_t load(image::LoadedImage* image, const fs::path& path) {
    return image->load(wide(path).c_str());
  }
  static int32_t probe(const fs::path& path) {
    int32_t width = 0, height = 0;
    return image::probe_size(wide(path).c_str(), &width, &height);
  }
  static std::vector<uint8_t> raster(const fs::path& path, int32_t width, int32_t height) {
    std::vector<uint8_t> out(image::raster_bytes(width, height));
    EXPECT_EQ(image::convert_to_raster(wide(path).c_str(), width, height, out.data()), 0);
    return out;
  }

  fs::path dir_;
};

void expect_pixel(const image::LoadedImage& image, int32_t x, int32_t y, Rgb want) {
  const Rgb got = image.pixel(x, y);
  EXPECT_EQ(got.red, want.red) << "at " << x << "," << y;
  EXPECT_EQ(got.green, want.green) << "at " << x << "," << y;
  EXPECT_EQ(got.blue, want.blue) << "at " << x << "," << y;
}

// Whole rows must say what the pixel accessor says.
void expect_rows_match_pixels(const image::LoadedImage& image) {
  std::vector<Rgb> row(image.width());
  for (int32_t y = 0; y < image.height(); ++y) {
    image.pixel_row(y, row.data());
    for (int32_t x = 0; x < image.width(); ++x) {
      const Rgb p = image.pixel(x, y);
      ASSERT_TRUE(p.red == row[x].red && p.green == row[x].green && p.blue == row[x].blue)
          << "at " << x << "," << y;
    }
  }
}

// ---- PNG -------------------------------------------------------------------

PngLayout one_bit_png(std::vector<png_color> palette) {
  // 10 x 2: row 0 = pixels 0..3 index 1; row 1 = pixels 8, 9 index 1.
  return {10, 2, 1, PNG_COLOR_TYPE_PALETTE, {{0xF0, 0x00}, {0x00, 0xC0}}, std::move(palette)};
}

TEST_F(ImageDecoder, OneBitPngPaletteStaysOneBitWithItsTable) {
  write_png(file("bw.png"), one_bit_png({{0, 0, 0}, {255, 255, 255}}));
  image::LoadedImage image;
  ASSERT_EQ(load(&image, file("bw.png")), 0);
  EXPECT_EQ(image.width(), 10);
  EXPECT_EQ(image.height(), 2);
  EXPECT_EQ(image.bits_per_pixel(), 1);
  EXPECT_EQ(image.colour_entry(1).blue, 255);
  EXPECT_EQ(image.colour_entry(0).red, 0);
  EXPECT_EQ(image.bit_row(0)[0], 0xF0);
  EXPECT_EQ(image.bit_row(1)[1] & 0xC0, 0xC0);
  expect_pixel(image, 0, 0, {255, 255, 255});
  expect_pixel(image, 4, 0, {0, 0, 0});
  expect_rows_match_pixels(image);
}

TEST_F(ImageDecoder, OneBitPngBothPaletteOrdersPrintTheSameBlackPixels) {
  write_png(file("bw.png"), one_bit_png({{0, 0, 0}, {255, 255, 255}}));
  PngLayout swapped = one_bit_png({{255, 255, 255}, {0, 0, 0}});
  swapped.rows = {{0x0F, 0xC0}, {0xFF, 0x00}};  // the same picture, indices swapped
  write_png(file("wb.png"), swapped);
  // Black is index 0 in bw.png: row 0 pixels 4..9, row 1 pixels 0..7.
  const std::vector<uint8_t> expected = {0x0F, 0xC0, 0xFF, 0x00};
  EXPECT_EQ(raster(file("bw.png"), 10, 2), expected);
  EXPECT_EQ(raster(file("wb.png"), 10, 2), expected);
}

TEST_F(ImageDecoder, OneBitGrayPngStaysOneBit) {
  write_png(file("gray1.png"), {9, 1, 1, PNG_COLOR_TYPE_GRAY, {{0x5A, 0x80}}});
  image::LoadedImage image;
  ASSERT_EQ(load(&image, file("gray1.png")), 0);
  EXPECT_EQ(image.bits_per_pixel(), 1);
  expect_pixel(image, 0, 0, {0, 0, 0});
  expect_pixel(image, 1, 0, {255, 255, 255});
  expect_pixel(image, 8, 0, {255, 255, 255});
  EXPECT_EQ(raster(file("gray1.png"), 9, 1), (std::vector<uint8_t>{0xA5, 0x00}));
}

TEST_F(ImageDecoder, TransparentEntryOfAOneBitPaletteIsWhite) {
  PngLayout layout = one_bit_png({{0, 0, 0}, {0, 0, 0}});
  layout.trans_alpha = {255, 0};  // index 1 transparent
  write_png(file("trns1.png"), layout);
  image::LoadedImage image;
  ASSERT_EQ(load(&image, file("trns1.png")), 0);
  EXPECT_EQ(image.bits_per_pixel(), 1);
  expect_pixel(image, 0, 0, {255, 255, 255});
  expect_pixel(image, 5, 0, {0, 0, 0});
}

TEST_F(ImageDecoder, EightBitPalettePngGivesPaletteColours) {
  std::vector<png_color> palette(256, png_color{0, 0, 0});
  palette[7] = {10, 20, 30};
  palette[200] = {250, 128, 1};
  write_png(file("p8.png"), {3, 2, 8, PNG_COLOR_TYPE_PALETTE, {{7, 200, 0}, {200, 7, 7}}, palette});
  image::LoadedImage image;
  ASSERT_EQ(load(&image, file("p8.png")), 0);
  EXPECT_EQ(image.bits_per_pixel(), 8);
  expect_pixel(image, 0, 0, {10, 20, 30});
  expect_pixel(image, 1, 0, {250, 128, 1});
  expect_pixel(image, 2, 0, {0, 0, 0});
  expect_pixel(image, 0, 1, {250, 128, 1});
  expect_rows_match_pixels(image);
}

std::vector<uint8_t> rgb_ramp_row(int width, int y, int channels) {
  std::vector<uint8_t> row;
  for (int x = 0; x < width; ++x) {
    row.push_back(static_cast<uint8_t>(x * 20 + y));
    row.push_back(static_cast<uint8_t>(255 - x * 7));
    row.push_back(static_cast<uint8_t>(y * 30));
    if (channels == 4) row.push_back(255);
  }
  return row;
}

TEST_F(ImageDecoder, RgbPngGivesExactColours) {
  for (bool interlaced : {false, true}) {
    PngLayout layout{11, 9, 8, PNG_COLOR_TYPE_RGB, {}};
    for (int y = 0; y < 9; ++y) layout.rows.push_back(rgb_ramp_row(11, y, 3));
    layout.interlaced = interlaced;
    write_png(file("rgb.png"), layout);
    image::LoadedImage image;
    ASSERT_EQ(load(&image, file("rgb.png")), 0) << interlaced;
    EXPECT_EQ(image.bits_per_pixel(), 24);
    for (int y = 0; y < 9; ++y) {
      for (int x = 0; x < 11; ++x) {
        expect_pixel(image, x, y,
                     {static_cast<uint8_t>(x * 20 + y), static_cast<uint8_t>(255 - x * 7),
                      static_cast<uint8_t>(y * 30)});
      }
    }
    expect_rows_match_pixels(image);
  }
}

TEST_F(ImageDecoder, RgbaPngIsCompositedOnWhite) {
  // Black at alpha 0, 128 and 255; red at alpha 255.
  write_png(file("rgba.png"), {4,
                               1,
                               8,
                               PNG_COLOR_TYPE_RGB_ALPHA,
                               {{0, 0, 0, 0, 0, 0, 0, 128, 0, 0, 0, 255, 255, 0, 0, 255}}});
  image::LoadedImage image;
  ASSERT_EQ(load(&image, file("rgba.png")), 0);
  EXPECT_NE(image.bits_per_pixel(), 1);
  expect_pixel(image, 0, 0, {255, 255, 255});
  expect_pixel(image, 1, 0, {127, 127, 127});
  expect_pixel(image, 2, 0, {0, 0, 0});
  expect_pixel(image, 3, 0, {255, 0, 0});
  // The transparent black prints nothing, the opaque black a dot.
  EXPECT_EQ(raster(file("rgba.png"), 4, 1)[0] & 0xA0, 0x20);
}

TEST_F(ImageDecoder, SixteenBitGrayPngIsScaledToEightBits) {
  write_png(file("g16.png"), {2, 1, 16, PNG_COLOR_TYPE_GRAY, {{0xFF, 0xFF, 0x80, 0x00}}});
  image::LoadedImage image;
  ASSERT_EQ(load(&image, file("g16.png")), 0);
  expect_pixel(image, 0, 0, {255, 255, 255});
  const Rgb half = image.pixel(1, 0);
  EXPECT_EQ(half.red, 128);
  EXPECT_EQ(half.red, half.blue);
}

// ---- BMP -------------------------------------------------------------------

struct BmpCase {
  const char* name;
  int bits;
  bool top_down;
};

class BmpDecoding : public ImageDecoder, public testing::WithParamInterface<BmpCase> {};

TEST_P(BmpDecoding, GivesTheColoursOfEveryPixel) {
  const BmpCase& c = GetParam();
  const int width = 13, height = 5;
  std::vector<std::array<uint8_t, 3>> palette;
  if (c.bits <= 8) {
    for (int i = 0; i < (1 << c.bits); ++i) {
      palette.push_back({static_cast<uint8_t>(i * 37), static_cast<uint8_t>(255 - i),
                         static_cast<uint8_t>(i * 3)});
    }
  }
  std::vector<uint32_t> values;
  std::vector<Rgb> expected;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      if (c.bits <= 8) {
        const uint32_t index = static_cast<uint32_t>(x + 3 * y) % (1u << c.bits);
        values.push_back(index);
        expected.push_back({palette[index][0], palette[index][1], palette[index][2]});
      } else {
        const Rgb colour{static_cast<uint8_t>(x * 19), static_cast<uint8_t>(y * 50),
                         static_cast<uint8_t>(x + y)};
        values.push_back(uint32_t{colour.red} << 16 | uint32_t{colour.green} << 8 | colour.blue);
        expected.push_back(colour);
      }
    }
  }
  write_all(file("image.bmp"), make_bmp(width, height, c.bits, c.top_down, palette, values));
  image::LoadedImage image;
  ASSERT_EQ(load(&image, file("image.bmp")), 0);
  EXPECT_EQ(image.width(), width);
  EXPECT_EQ(image.height(), height);
  EXPECT_EQ(image.bits_per_pixel(), c.bits);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) expect_pixel(image, x, y, expected[y * width + x]);
  }
  expect_rows_match_pixels(image);
}

const BmpCase kBmpCases[] = {
    {"bits1_bottom_up", 1, false},   {"bits1_top_down", 1, true},   {"bits4_bottom_up", 4, false},
    {"bits4_top_down", 4, true},     {"bits8_bottom_up", 8, false}, {"bits8_top_down", 8, true},
    {"bits24_bottom_up", 24, false}, {"bits24_top_down", 24, true}, {"bits32_bottom_up", 32, false},
    {"bits32_top_down", 32, true},
};

INSTANTIATE_TEST_SUITE_P(Table, BmpDecoding, testing::ValuesIn(kBmpCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(ImageDecoder, OneBitBmpTakesTheOneBitCopy) {
  // Palette (white, black): index 1 is black and prints without inversion.
  const std::vector<uint32_t> values = {1, 0, 0, 1, 1, 1, 1, 1, 1, 0,  //
                                        0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
  write_all(file("one.bmp"), make_bmp(10, 2, 1, false, {{255, 255, 255}, {0, 0, 0}}, values));
  EXPECT_EQ(raster(file("one.bmp"), 10, 2), (std::vector<uint8_t>{0x9F, 0x80, 0x00, 0x40}));
}

TEST_F(ImageDecoder, BmpIndexPastItsPaletteIsBlack) {
  // Two palette entries declared for an 8-bit image; index 9 has no colour.
  write_all(file("short.bmp"), make_bmp(2, 1, 8, true, {{255, 255, 255}, {9, 9, 9}}, {9, 1}));
  image::LoadedImage image;
  ASSERT_EQ(load(&image, file("short.bmp")), 0);
  expect_pixel(image, 0, 0, {0, 0, 0});
  expect_pixel(image, 1, 0, {9, 9, 9});
}

struct MalformedBmp {
  const char* name;
  size_t offset;  // byte to overwrite
  std::vector<uint8_t> bytes;
};

class MalformedBmpFile : public ImageDecoder, public testing::WithParamInterface<MalformedBmp> {};

TEST_P(MalformedBmpFile, IsRefusedAsUndecodable) {
  std::vector<uint8_t> bmp = make_bmp(4, 4, 24, false, {}, std::vector<uint32_t>(16, 0x123456));
  for (size_t i = 0; i < GetParam().bytes.size(); ++i)
    bmp[GetParam().offset + i] = GetParam().bytes[i];
  write_all(file("bad.bmp"), bmp);
  EXPECT_EQ(probe(file("bad.bmp")), kUndecodable);
}

const MalformedBmp kMalformedBmps[] = {
    {"pixels_past_the_end", 10, {0xF0, 0xFF, 0x00, 0x00}},
    {"huge_height", 22, {0xFF, 0xFF, 0xFF, 0x7F}},
    {"most_negative_height", 22, {0x00, 0x00, 0x00, 0x80}},
    {"zero_width", 18, {0, 0, 0, 0}},
    {"negative_width", 18, {0xFC, 0xFF, 0xFF, 0xFF}},
    {"bits_per_pixel_7", 28, {7, 0}},
    {"run_length_compressed", 30, {1, 0, 0, 0}},
    {"header_size_past_the_end", 14, {0x00, 0x10, 0x00, 0x00}},
    {"header_size_too_small", 14, {20, 0, 0, 0}},
    {"two_planes", 26, {2, 0}},
};

INSTANTIATE_TEST_SUITE_P(Table, MalformedBmpFile, testing::ValuesIn(kMalformedBmps),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(ImageDecoder, BmpPaletteLargerThanTheFileIsRefused) {
  std::vector<uint8_t> bmp = make_bmp(2, 1, 8, true, {{1, 2, 3}}, {0, 0});
  bmp[46] = 0xFF;  // 255 palette entries declared, the file holds one
  write_all(file("palette.bmp"), bmp);
  EXPECT_EQ(probe(file("palette.bmp")), kUndecodable);
}

// ---- GIF -------------------------------------------------------------------

std::vector<GifColorType> four_colours() {
  return {{0, 0, 0}, {255, 0, 0}, {0, 0, 255}, {200, 200, 200}};
}

TEST_F(ImageDecoder, GifFirstFrameWithTransparencyOnWhite) {
  GifSpec layout{6, 4, 1, 1, 3, 2, four_colours(), {{0, 1, 2}, {3, 1, 0}}};
  layout.transparent = 1;
  write_gif(file("frame.gif"), layout);
  image::LoadedImage image;
  ASSERT_EQ(load(&image, file("frame.gif")), 0);
  EXPECT_EQ(image.width(), 6);
  EXPECT_EQ(image.height(), 4);
  EXPECT_NE(image.bits_per_pixel(), 1);
  expect_pixel(image, 0, 0, {255, 255, 255});  // outside the frame
  expect_pixel(image, 1, 1, {0, 0, 0});
  expect_pixel(image, 2, 1, {255, 255, 255});  // transparent
  expect_pixel(image, 3, 1, {0, 0, 255});
  expect_pixel(image, 1, 2, {200, 200, 200});
  expect_pixel(image, 3, 2, {0, 0, 0});
  expect_pixel(image, 5, 3, {255, 255, 255});
  expect_rows_match_pixels(image);
}

TEST_F(ImageDecoder, InterlacedGifRowsLandInPlace) {
  GifSpec layout{2, 11, 0, 0, 2, 11, four_colours(), {}};
  for (int y = 0; y < 11; ++y) {
    layout.rows.push_back({static_cast<uint8_t>(y % 4), static_cast<uint8_t>((y + 1) % 4)});
  }
  layout.interlaced = true;
  write_gif(file("interlaced.gif"), layout);
  image::LoadedImage image;
  ASSERT_EQ(load(&image, file("interlaced.gif")), 0);
  const std::vector<GifColorType> colours = four_colours();
  for (int y = 0; y < 11; ++y) {
    const GifColorType c = colours[y % 4];
    expect_pixel(image, 0, y, {c.Red, c.Green, c.Blue});
  }
}

// ---- JPEG ------------------------------------------------------------------

TEST_F(ImageDecoder, JpegKeepsDarkAndLightApart) {
  const int width = 32, height = 16;
  std::vector<uint8_t> rgb;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const uint8_t level = x < width / 2 ? 0 : 255;
      rgb.insert(rgb.end(), {level, level, level});
    }
  }
  write_jpeg(file("halves.jpg"), rgb, width, height, 3);
  image::LoadedImage image;
  ASSERT_EQ(load(&image, file("halves.jpg")), 0);
  EXPECT_EQ(image.width(), width);
  EXPECT_EQ(image.height(), height);
  EXPECT_EQ(image.bits_per_pixel(), 24);
  EXPECT_LT(image.pixel(4, 8).green, 30);
  EXPECT_GT(image.pixel(27, 8).green, 225);
  expect_rows_match_pixels(image);
  const std::vector<uint8_t> dots = raster(file("halves.jpg"), width, height);
  EXPECT_EQ(dots[8 * 4], 0xFF);      // dark left edge of row 8
  EXPECT_EQ(dots[8 * 4 + 3], 0x00);  // light right edge
}

TEST_F(ImageDecoder, GrayJpegLoads) {
  std::vector<uint8_t> gray(8 * 8, 60);
  write_jpeg(file("gray.jpg"), gray, 8, 8, 1);
  image::LoadedImage image;
  ASSERT_EQ(load(&image, file("gray.jpg")), 0);
  EXPECT_EQ(image.bits_per_pixel(), 8);
  const Rgb p = image.pixel(3, 3);
  EXPECT_NEAR(p.red, 60, 4);
  EXPECT_EQ(p.red, p.green);
  EXPECT_EQ(p.red, p.blue);
}

// ---- failures --------------------------------------------------------------

TEST_F(ImageDecoder, MissingFileGivesEnoent) {
  EXPECT_EQ(probe(file("absent.png")), ENOENT);
}

TEST_F(ImageDecoder, DirectoryGivesItsReadError) {
  EXPECT_EQ(probe(dir_), EISDIR);
}

TEST_F(ImageDecoder, EmptyAndGarbageFilesAreUndecodable) {
  write_all(file("empty.png"), {});
  EXPECT_EQ(probe(file("empty.png")), kUndecodable);
  std::vector<uint8_t> garbage(1000);
  std::mt19937 random(3);
  for (uint8_t& b : garbage) b = static_cast<uint8_t>(random());
  write_all(file("garbage.png"), garbage);
  EXPECT_EQ(probe(file("garbage.png")), kUndecodable);
  write_all(file("text.bmp"), {'B', 'M', 'x'});
  EXPECT_EQ(probe(file("text.bmp")), kUndecodable);
}

TEST_F(ImageDecoder, UnpairedSurrogateNamesNoFile) {
  const std::u16string name = wide(dir_) + u"/\xD800.png";
  int32_t width = 0, height = 0;
  EXPECT_EQ(image::probe_size(name.c_str(), &width, &height), ENOENT);
}

TEST_F(ImageDecoder, NonAsciiPathIsFoundAsUtf8) {
  write_all(file("bild-\xC3\xA4\xE2\x82\xAC.bmp"),
            make_bmp(3, 2, 24, false, {}, std::vector<uint32_t>(6, 0)));
  const std::u16string name = wide(dir_) + u"/bild-\u00E4\u20AC.bmp";
  int32_t width = 0, height = 0;
  EXPECT_EQ(image::probe_size(name.c_str(), &width, &height), 0);
  EXPECT_EQ(width, 3);
  EXPECT_EQ(height, 2);
}

// The written samples of every format, for the damage tests.
std::vector<std::pair<std::string, std::vector<uint8_t>>> samples(const fs::path& dir) {
  PngLayout rgb{40, 30, 8, PNG_COLOR_TYPE_RGB, {}};
  for (int y = 0; y < 30; ++y) rgb.rows.push_back(rgb_ramp_row(40, y, 3));
  write_png(dir / "s.png", rgb);
  PngLayout interlaced = rgb;
  interlaced.interlaced = true;
  write_png(dir / "si.png", interlaced);
  write_png(dir / "s1.png", one_bit_png({{0, 0, 0}, {255, 255, 255}}));
  std::vector<uint8_t> pixels;
  for (int i = 0; i < 24 * 16; ++i) {
    pixels.insert(pixels.end(), {static_cast<uint8_t>(i), static_cast<uint8_t>(i * 3), 77});
  }
  write_jpeg(dir / "s.jpg", pixels, 24, 16, 3);
  GifSpec gif{5, 5, 0, 0, 5, 5, four_colours(), {}};
  for (int y = 0; y < 5; ++y) gif.rows.push_back({0, 1, 2, 3, static_cast<uint8_t>(y % 4)});
  write_gif(dir / "s.gif", gif);
  write_all(dir / "s.bmp",
            make_bmp(7, 3, 4, false, {{1, 2, 3}, {4, 5, 6}}, std::vector<uint32_t>(21, 1)));
  std::vector<std::pair<std::string, std::vector<uint8_t>>> out;
  for (const char* name : {"s.png", "si.png", "s1.png", "s.jpg", "s.gif", "s.bmp"}) {
    out.emplace_back(name, read_all(dir / name));
  }
  return out;
}

// The size probe reads headers only: it gives the size a load gives, and a
// file cut in its pixel data passes it and fails at the conversion, which
// decodes the pixels.
TEST_F(ImageDecoder, ProbeReadsHeadersAndTruncatedPixelsFailAtConversion) {
  for (const auto& [name, bytes] : samples(dir_)) {
    ASSERT_GT(bytes.size(), 40u) << name;
    image::LoadedImage loaded;
    ASSERT_EQ(load(&loaded, dir_ / name), 0) << name;
    int32_t width = 0, height = 0;
    EXPECT_EQ(image::probe_size(wide(dir_ / name).c_str(), &width, &height), 0) << name;
    EXPECT_EQ(width, loaded.width()) << name;
    EXPECT_EQ(height, loaded.height()) << name;
    // Cut in the middle of the pixel data.
    write_all(file("cut"),
              std::vector<uint8_t>(bytes.begin(), bytes.begin() + bytes.size() * 2 / 3));
    // In these small samples only the PNG headers lie wholly before the cut
    // (a JPEG's tables outweigh its few pixels; a BMP header says where its
    // pixels end).
    const bool headers_intact = name.ends_with(".png");
    const int32_t probed = probe(file("cut"));
    EXPECT_EQ(probed, headers_intact ? 0 : kUndecodable) << name;
    std::vector<uint8_t> out(image::raster_bytes(width, height));
    EXPECT_EQ(image::convert_to_raster(wide(file("cut")).c_str(), width, height, out.data()),
              kUndecodable)
        << name;
    // Cut inside the headers: the probe already fails.
    write_all(file("cut"), std::vector<uint8_t>(bytes.begin(), bytes.begin() + 12));
    EXPECT_EQ(probe(file("cut")), kUndecodable) << name;
  }
}

using Reader = int32_t (*)(const uint8_t*, size_t, platform::ImageStore*);

Reader reader_for(const std::string& name) {
  if (name.ends_with(".png")) return platform::decode_png;
  if (name.ends_with(".jpg")) return platform::decode_jpeg;
  if (name.ends_with(".gif")) return platform::decode_gif;
  return platform::decode_bmp;
}

// Decodes from a heap block of exactly the given bytes, so that the address
// sanitizer reports any read past the end.
int32_t decode_exactly(Reader reader, const std::vector<uint8_t>& bytes, size_t length) {
  std::unique_ptr<uint8_t[]> block(new uint8_t[length == 0 ? 1 : length]);
  std::copy(bytes.begin(), bytes.begin() + length, block.get());
  platform::ImageStore store;
  const int32_t result = reader(block.get(), length, &store);
  if (result == 0) {
    EXPECT_TRUE(store.width >= 1 && store.height >= 1 && store.pixels != nullptr);
    const size_t row_bytes = store.one_bit ? (static_cast<size_t>(store.width) + 7) / 8
                                           : static_cast<size_t>(store.width) * 3;
    EXPECT_EQ(store.stride, row_bytes);
  }
  return result;
}

TEST_F(ImageDecoder, EveryTruncationAndDamageGivesAResultWithoutStrayReads) {
  std::mt19937 random(11);
  for (const auto& [name, bytes] : samples(dir_)) {
    const Reader reader = reader_for(name);
    for (size_t length = 0; length < bytes.size(); ++length) {
      const int32_t result = decode_exactly(reader, bytes, length);
      // A cut after the last pixel may still decode; anything else fails
      // with the one number.
      ASSERT_TRUE(result == 0 || result == kUndecodable) << name << " cut at " << length;
    }
    for (int round = 0; round < 400; ++round) {
      std::vector<uint8_t> damaged = bytes;
      const int flips = 1 + static_cast<int>(random() % 4);
      for (int i = 0; i < flips; ++i) {
        damaged[random() % damaged.size()] = static_cast<uint8_t>(random());
      }
      const int32_t result = decode_exactly(reader, damaged, damaged.size());
      ASSERT_TRUE(result == 0 || result == kUndecodable || result == ENOMEM)
          << name << " round " << round << ": " << result;
    }
  }
}

}  // namespace
}  // namespace vorn::test
