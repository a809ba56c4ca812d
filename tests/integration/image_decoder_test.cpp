// The platform's image decoder on real files written with the same libraries
// (PNG, JPEG, GIF) or by hand (BMP). Damaged files of every kind give the
// one number for an undecodable file.
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
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "image/conversion.h"
#include "image/loaded_image.h"
#include "platform/posix/image_store_posix.h"
#include "support/bmp_file.h"
#include "support/fake_session.h"
#include "support/wide_text.h"

namespace vorn::test {
namespace {

namespace fs = std::filesystem;
constexpr int32_t kUndecodable = EILSEQ;

std::vector<uint8_t> read_all(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void write_all(const fs::path& path, const std::vector<uint8_t>& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

WideString wide(const fs::path& path) {
  const std::string s = path.string();
  return {s.begin(), s.end()};
}

// `rows` as PNG stores them; libpng and libjpeg abort on a writing error.
void write_png(const fs::path& path, int width, int depth, int type,
               std::vector<std::vector<uint8_t>> rows, const std::vector<png_color>& palette = {},
               const std::vector<uint8_t>& alpha = {}, bool interlaced = false) {
  FILE* file = std::fopen(path.c_str(), "wb");
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_init_io(png, file);
  png_set_IHDR(png, info, width, static_cast<png_uint_32>(rows.size()), depth, type,
               interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  if (!palette.empty()) png_set_PLTE(png, info, palette.data(), static_cast<int>(palette.size()));
  if (!alpha.empty())
    png_set_tRNS(png, info, alpha.data(), static_cast<int>(alpha.size()), nullptr);
  std::vector<png_bytep> pointers;
  for (auto& row : rows) pointers.push_back(row.data());
  png_write_info(png, info);
  png_write_image(png, pointers.data());
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  std::fclose(file);
}

void write_jpeg(const fs::path& path, int width, int height, int components,
                const std::vector<uint8_t>& pixels) {
  FILE* file = std::fopen(path.c_str(), "wb");
  jpeg_compress_struct info{};
  jpeg_error_mgr errors{};
  info.err = jpeg_std_error(&errors);
  jpeg_create_compress(&info);
  jpeg_stdio_dest(&info, file);
  info.image_width = static_cast<JDIMENSION>(width);
  info.image_height = static_cast<JDIMENSION>(height);
  info.input_components = components;
  info.in_color_space = components == 1 ? JCS_GRAYSCALE : JCS_RGB;
  jpeg_set_defaults(&info);
  jpeg_set_quality(&info, 95, TRUE);
  jpeg_start_compress(&info, TRUE);
  for (int y = 0; y < height; ++y) {
    JSAMPROW row = const_cast<uint8_t*>(&pixels[static_cast<size_t>(y) * width * components]);
    jpeg_write_scanlines(&info, &row, 1);
  }
  jpeg_finish_compress(&info);
  jpeg_destroy_compress(&info);
  std::fclose(file);
}

const GifColorType kGifColours[4] = {{0, 0, 0}, {255, 0, 0}, {0, 0, 255}, {200, 200, 200}};

// The GIF picture: a 2 x 5 frame at (1, 1) on a 4 x 7 screen, its rows
// interlaced, index (x + y) % 4 at (x, y) in the frame and index 1
// transparent.
int gif_index(int x, int y) {
  return (x + y) % 4;
}

void write_gif(const fs::path& path) {
  int error = 0;
  GifFileType* gif = EGifOpenFileName(path.c_str(), false, &error);
  ASSERT_NE(gif, nullptr);
  EGifSetGifVersion(gif, true);
  ColorMapObject* map = GifMakeMapObject(4, kGifColours);
  const GifByteType transparent_1[4] = {0x01, 0, 0, 1};
  EXPECT_EQ(EGifPutScreenDesc(gif, 4, 7, 8, 0, map), GIF_OK);
  EXPECT_EQ(EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, 4, transparent_1), GIF_OK);
  EXPECT_EQ(EGifPutImageDesc(gif, 1, 1, 2, 5, true, nullptr), GIF_OK);
  for (int y : {0, 4, 2, 1, 3}) {
    GifPixelType line[2] = {GifPixelType(gif_index(0, y)), GifPixelType(gif_index(1, y))};
    EXPECT_EQ(EGifPutLine(gif, line, 2), GIF_OK);
  }
  EXPECT_EQ(EGifCloseFile(gif, &error), GIF_OK);
  GifFreeMapObject(map);
}

// Small pictures of every format and reader path, written for each test.
class ImageDecoder : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(dir_);
    // 10 x 2, black at row 0 pixels 4-9 and row 1 pixels 0-7, as palette
    // (black, white), palette (white, black), 1-bit gray, and a palette whose
    // transparent entry 1 is white on paper.
    const std::vector<std::vector<uint8_t>> white_is_1 = {hex("F0 00"), hex("00 C0")};
    write_png(file("bw.png"), 10, 1, PNG_COLOR_TYPE_PALETTE, white_is_1,
              {{0, 0, 0}, {255, 255, 255}});
    write_png(file("wb.png"), 10, 1, PNG_COLOR_TYPE_PALETTE, {hex("0F C0"), hex("FF 00")},
              {{255, 255, 255}, {0, 0, 0}});
    write_png(file("gray.png"), 10, 1, PNG_COLOR_TYPE_GRAY, white_is_1);
    write_png(file("trns.png"), 10, 1, PNG_COLOR_TYPE_PALETTE, white_is_1, {{0, 0, 0}, {0, 0, 0}},
              {255, 0});
    const std::vector<std::vector<uint8_t>> rgb = {hex("102030 405060 708090"),
                                                   hex("A0B0C0 D0E0F0 010203")};
    write_png(file("rgb.png"), 3, 8, PNG_COLOR_TYPE_RGB, rgb);
    write_png(file("interlaced.png"), 3, 8, PNG_COLOR_TYPE_RGB, rgb, {}, {}, true);
    // Black at alpha 0, 128 and 255, then opaque red.
    write_png(file("rgba.png"), 4, 8, PNG_COLOR_TYPE_RGB_ALPHA,
              {hex("00000000 00000080 000000FF FF0000FF")});
    write_png(file("palette.png"), 3, 8, PNG_COLOR_TYPE_PALETTE, {hex("02 01 00")},
              {{10, 20, 30}, {250, 128, 1}, {0, 0, 0}});
    write_png(file("gray16.png"), 2, 16, PNG_COLOR_TYPE_GRAY, {hex("FFFF 8000")});
    std::vector<uint8_t> halves;  // 16 x 8, black left, white right
    for (int i = 0; i < 16 * 8; ++i) halves.insert(halves.end(), 3, i % 16 < 8 ? 0 : 255);
    write_jpeg(file("halves.jpg"), 16, 8, 3, halves);
    write_jpeg(file("gray.jpg"), 8, 8, 1, std::vector<uint8_t>(64, 60));
    write_gif(file("frame.gif"));
    // 8 x 2: the top row alternates black and white, the bottom row is white.
    std::vector<uint32_t> values(16, 0xFFFFFF);
    for (int x = 0; x < 8; x += 2) values[x] = 0;
    write_all(file("p.bmp"), make_bmp(8, 2, 24, false, {}, values));
  }
  void TearDown() override { fs::remove_all(dir_); }
  fs::path file(const std::string& name) const { return dir_ / name; }
  const fs::path dir_ =
      fs::temp_directory_path() / ("vorn-images-" + std::to_string(std::random_device()()));
};

int32_t probe(const fs::path& path, int32_t* width = nullptr, int32_t* height = nullptr) {
  int32_t w = 0, h = 0;
  return image::probe_size(wide(path).c_str(), width ? width : &w, height ? height : &h);
}

// The pixels as red, green, blue bytes, top row first, read as whole rows;
// each must be what the pixel accessor gives, and what the decoder's own
// three-byte rows hold where it gives them out.
std::vector<uint8_t> pixels_of(const fs::path& path, int32_t width, int32_t bits_per_pixel) {
  image::LoadedImage image;
  EXPECT_EQ(image.load(wide(path).c_str()), 0) << path;
  if (!image.loaded()) return {};
  EXPECT_EQ(image.width(), width) << path;
  EXPECT_EQ(image.bits_per_pixel(), bits_per_pixel) << path;
  const uint8_t* top = nullptr;
  ptrdiff_t step = 0;
  bool blue_first = false;
  const bool own_rows = image.colour_rows(&top, &step, &blue_first);
  std::vector<uint8_t> out;
  std::vector<platform::Rgb> row(width);
  for (int32_t y = 0; y < image.height(); ++y) {
    image.pixel_row(y, row.data());
    for (int32_t x = 0; x < width; ++x) {
      const platform::Rgb p = image.pixel(x, y);
      EXPECT_TRUE(p.red == row[x].red && p.green == row[x].green && p.blue == row[x].blue)
          << path << " at " << x << "," << y;
      if (own_rows) {
        const uint8_t* own = top + y * step + x * 3;
        const uint8_t red = own[blue_first ? 2 : 0], blue = own[blue_first ? 0 : 2];
        EXPECT_TRUE(p.red == red && p.green == own[1] && p.blue == blue)
            << path << " own row at " << x << "," << y;
      }
      out.insert(out.end(), {p.red, p.green, p.blue});
    }
  }
  return out;
}

std::vector<uint8_t> raster(const fs::path& path) {
  int32_t width = 0, height = 0;
  EXPECT_EQ(probe(path, &width, &height), 0) << path;
  std::vector<uint8_t> out(image::raster_bytes(width, height));
  EXPECT_EQ(image::convert_to_raster(wide(path).c_str(), width, height, out.data()), 0) << path;
  return out;
}

TEST_F(ImageDecoder, OneBitPngsStayOneBitAndPrintTheSameBlackPixels) {
  for (const char* name : {"bw.png", "wb.png", "gray.png", "trns.png"}) {
    EXPECT_EQ(pixels_of(file(name), 10, 1).size(), 10u * 2 * 3) << name;
    EXPECT_EQ(raster(file(name)), hex("0F C0 FF 00")) << name;
  }
}

TEST_F(ImageDecoder, ColourPngsGiveExactPixelsOnWhite) {
  const struct {
    const char* name;
    int32_t width, bits_per_pixel;
    const char* pixels;
  } cases[] = {
      {"rgb.png", 3, 24, "102030 405060 708090 A0B0C0 D0E0F0 010203"},
      {"interlaced.png", 3, 24, "102030 405060 708090 A0B0C0 D0E0F0 010203"},
      {"rgba.png", 4, 32, "FFFFFF 7F7F7F 000000 FF0000"},
      {"palette.png", 3, 8, "000000 FA8001 0A141E"},
      {"gray16.png", 2, 16, "FFFFFF 808080"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(pixels_of(file(c.name), c.width, c.bits_per_pixel), hex(c.pixels)) << c.name;
  }
}

// A picture whose file and inflated rows together are too large to hold at
// once is read from the file on demand, to the same pixels and failures.
TEST_F(ImageDecoder, LargePngReadOnDemandGivesEveryRowAndFailsWhenCut) {
  constexpr int kSide = 2048;
  std::vector<std::vector<uint8_t>> rows(kSide, std::vector<uint8_t>(kSide * 3));
  for (int y = 0; y < kSide; ++y) {
    for (int x = 0; x < kSide; ++x) {
      rows[y][x * 3] = uint8_t(x * 7 + y), rows[y][x * 3 + 1] = uint8_t(y * 3);
      rows[y][x * 3 + 2] = uint8_t(x ^ y);
    }
  }
  write_png(file("large.png"), kSide, 8, PNG_COLOR_TYPE_RGB, rows);
  image::LoadedImage image;
  ASSERT_EQ(image.load(wide(file("large.png")).c_str()), 0);
  ASSERT_EQ(std::tuple(image.width(), image.height(), image.bits_per_pixel()),
            std::tuple(kSide, kSide, 24));
  std::vector<platform::Rgb> row(kSide);
  int wrong_rows = 0;
  for (int y = 0; y < kSide; ++y) {
    image.pixel_row(y, row.data());
    wrong_rows += std::memcmp(row.data(), rows[y].data(), rows[y].size()) != 0;
  }
  EXPECT_EQ(wrong_rows, 0);
  const std::vector<uint8_t> bytes = read_all(file("large.png"));
  write_all(file("cut.png"), {bytes.begin(), bytes.begin() + bytes.size() * 2 / 3});
  image::LoadedImage cut;
  EXPECT_EQ(cut.load(wide(file("cut.png")).c_str()), kUndecodable);
}

TEST_F(ImageDecoder, BmpDepthsGiveTheColoursOfEveryPixel) {
  const uint32_t colours[2] = {0x0A141E, 0xC89664};
  const struct {
    int bits;
    bool top_down;
    size_t palette_entries;  // an index past them is black
  } cases[] = {{1, false, 2}, {4, true, 2}, {8, false, 1}, {24, true, 0}, {32, false, 0}};
  for (const auto& c : cases) {
    const int width = 5, height = 3;  // every depth but 32 pads its rows
    std::vector<uint32_t> values;
    std::vector<uint8_t> expected;
    for (int i = 0; i < width * height; ++i) {
      const uint32_t index = (i % width + i / width) % 2;
      const uint32_t colour = c.bits >= 24 || index < c.palette_entries ? colours[index] : 0;
      values.push_back(c.bits >= 24 ? colour : index);
      expected.insert(expected.end(),
                      {uint8_t(colour >> 16), uint8_t(colour >> 8), uint8_t(colour)});
    }
    const std::vector<uint32_t> palette(colours, colours + c.palette_entries);
    write_all(file("image.bmp"), make_bmp(width, height, c.bits, c.top_down, palette, values));
    EXPECT_EQ(pixels_of(file("image.bmp"), width, c.bits), expected) << c.bits << " bits";
  }
}

TEST_F(ImageDecoder, GifFirstFrameOnWhitePaperWithInterlacedRowsInPlace) {
  std::vector<uint8_t> expected;
  for (int y = 0; y < 7; ++y) {
    for (int x = 0; x < 4; ++x) {
      const bool inside = x >= 1 && x <= 2 && y >= 1 && y <= 5;
      const int index = inside ? gif_index(x - 1, y - 1) : 1;
      const GifColorType c = index == 1 ? GifColorType{255, 255, 255} : kGifColours[index];
      expected.insert(expected.end(), {c.Red, c.Green, c.Blue});
    }
  }
  EXPECT_EQ(pixels_of(file("frame.gif"), 4, 8), expected);
}

TEST_F(ImageDecoder, JpegKeepsDarkAndLightApart) {
  const std::vector<uint8_t> pixels = pixels_of(file("halves.jpg"), 16, 24);
  ASSERT_EQ(pixels.size(), 16u * 8 * 3);
  EXPECT_LT(pixels[(4 * 16 + 2) * 3 + 1], 30);
  EXPECT_GT(pixels[(4 * 16 + 13) * 3 + 1], 225);
  EXPECT_NEAR(pixels_of(file("gray.jpg"), 8, 8).at(2), 60, 4);
}

TEST_F(ImageDecoder, FailureNumbers) {
  write_all(file("empty.png"), {});
  std::vector<uint8_t> garbage(1000);
  std::mt19937 random(3);
  for (uint8_t& b : garbage) b = static_cast<uint8_t>(random());
  write_all(file("garbage.png"), garbage);
  EXPECT_EQ(probe(file("absent.png")), ENOENT);
  EXPECT_EQ(probe(dir_), EISDIR);
  EXPECT_EQ(probe(file("empty.png")), kUndecodable);
  EXPECT_EQ(probe(file("garbage.png")), kUndecodable);
  // Malformed bitmaps: a 4 x 4 one with bytes overwritten at an offset.
  const std::pair<size_t, const char*> damaged_bmps[] = {
      {10, "F0 FF 00 00"},  // pixels past the end
      {14, "14 00 00 00"},  // header size too small
      {18, "00 00 00 00"},  // zero width
      {22, "00 00 00 80"},  // most negative height
      {28, "07 00"},        // 7 bits per pixel
      {30, "01 00 00 00"},  // run-length compressed
      {46, "FF 00 00 00"},  // palette past the end
  };
  for (const auto& [offset, bytes] : damaged_bmps) {
    std::vector<uint8_t> bmp = make_bmp(4, 4, 8, false, {0x123456}, std::vector<uint32_t>(16, 0));
    std::ranges::copy(hex(bytes), bmp.begin() + static_cast<ptrdiff_t>(offset));
    write_all(file("bad.bmp"), bmp);
    EXPECT_EQ(probe(file("bad.bmp")), kUndecodable) << bytes << " at " << offset;
  }
  // No UTF-8 name holds an unpaired surrogate; other names are found as UTF-8.
  int32_t width = 0, height = 0;
  EXPECT_EQ(image::probe_size((wide(dir_) + VW("/\xD800.png")).c_str(), &width, &height), ENOENT);
  write_all(file("bild-\xC3\xA4\xE2\x82\xAC.bmp"),
            make_bmp(3, 2, 24, false, {}, {0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(image::probe_size((wide(dir_) + VW("/bild-\u00E4\u20AC.bmp")).c_str(), &width, &height),
            0);
  EXPECT_EQ(std::pair(width, height), std::pair(3, 2));
}

TEST_F(ImageDecoder, CommandsReadTheFileThroughTheDecoder) {
  FakeSession session("VR-T82B");
  const WideString path = wide(file("p.bmp"));
  ASSERT_EQ(PrintImage(session.handle(), path.c_str(), 0), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("1D 76 30 00 01 00 02 00 AA 00"));
}

// The size probe reads headers only: it gives the size a load gives, and a
// file cut in its pixel data passes it and fails at the conversion, which
// decodes the pixels.
TEST_F(ImageDecoder, ProbeReadsHeadersAndTruncatedPixelsFailAtConversion) {
  for (const std::string name :
       {"rgb.png", "interlaced.png", "bw.png", "halves.jpg", "frame.gif", "p.bmp"}) {
    const std::vector<uint8_t> bytes = read_all(dir_ / name);
    ASSERT_GT(bytes.size(), 40u) << name;
    image::LoadedImage loaded;
    ASSERT_EQ(loaded.load(wide(dir_ / name).c_str()), 0) << name;
    int32_t width = 0, height = 0;
    EXPECT_EQ(probe(dir_ / name, &width, &height), 0) << name;
    EXPECT_EQ(std::pair(width, height), std::pair(loaded.width(), loaded.height())) << name;
    // Cut in the middle of the pixel data. In these small samples only the
    // PNG headers lie wholly before the cut (a JPEG's tables outweigh its few
    // pixels; a BMP header says where its pixels end).
    write_all(file("cut"),
              std::vector<uint8_t>(bytes.begin(), bytes.begin() + bytes.size() * 2 / 3));
    EXPECT_EQ(probe(file("cut")), name.ends_with(".png") ? 0 : kUndecodable) << name;
    std::vector<uint8_t> out(image::raster_bytes(width, height));
    EXPECT_EQ(image::convert_to_raster(wide(file("cut")).c_str(), width, height, out.data()),
              kUndecodable)
        << name;
    // Cut inside the headers: the probe already fails.
    write_all(file("cut"), std::vector<uint8_t>(bytes.begin(), bytes.begin() + 12));
    EXPECT_EQ(probe(file("cut")), kUndecodable) << name;
  }
}

}  // namespace
}  // namespace vorn::test
