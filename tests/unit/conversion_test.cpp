// The monochrome conversions and the loaded image's life cycle, against a
// fake image decoder that serves small pictures given as pixel arrays.
#include "image/conversion.h"

#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "image/dither.h"
#include "image/loaded_image.h"
#include "platform/image_decoder.h"
#include "support/fake_session.h"
#include "support/wide_text.h"

namespace vorn::test {
namespace {

using platform::ColourEntry;
using platform::DecodedImage;
using platform::Rgb;

struct Picture {
  int32_t width = 0, height = 0, bits_per_pixel = 24;
  std::vector<Rgb> pixels;    // top row first
  std::vector<uint8_t> bits;  // 1-bit rows in storage order
  std::vector<ColourEntry> table;
  bool bottom_up = false;  // bit rows stored bottom row first
  bool fails = false;      // the load fails with load_error (maybe 0)
  int32_t load_error = 0;
  std::vector<uint8_t> blue_first;  // the pixels as blue, green, red bytes, bottom row first
};

// How the fake gives out colours: pixel by pixel, by rows of Rgb, or its own
// three-byte rows (red first, top-down; blue first, bottom-up).
enum class Rows { kPixels, kReader, kRedFirst, kBlueFirst };

// Installed for its lifetime; counts starts, stops and live images.
class FakeDecoder {
 public:
  explicit FakeDecoder(Rows rows = Rows::kReader, bool size_reader = false) : rows_(rows) {
    active_ = this;
    if (rows == Rows::kPixels) ops_.pixel_row = nullptr;
    if (rows == Rows::kRedFirst || rows == Rows::kBlueFirst) ops_.colour_rows = colour_rows;
    if (size_reader) ops_.measure = measure;
    previous_ = platform::install_image_decoder(&ops_);
  }
  ~FakeDecoder() { platform::install_image_decoder(previous_), active_ = nullptr; }
  void add(const WideString& path, Picture picture) {
    for (int32_t y = picture.height - 1; y >= 0 && !picture.pixels.empty(); --y) {
      for (int32_t x = 0; x < picture.width; ++x) {
        const Rgb& p = picture.pixels[static_cast<size_t>(y) * picture.width + x];
        picture.blue_first.insert(picture.blue_first.end(), {p.blue, p.green, p.red});
      }
    }
    pictures_[path] = std::move(picture);
  }

  int starts = 0, stops = 0, live = 0, loads = 0;
  int32_t start_error = 0;

 private:
  static const Picture& of(DecodedImage image) { return *static_cast<const Picture*>(image); }
  static int32_t start() {
    if (active_->start_error != 0) return active_->start_error;
    return ++active_->starts, 0;
  }
  static void stop() { ++active_->stops; }
  // The picture at `path`, or the load's failure number.
  static int32_t find(const char16_t* path, Picture** out) {
    auto found = active_->pictures_.find(as_api_text(path));
    if (found == active_->pictures_.end()) return ENOENT;
    *out = &found->second;
    return found->second.fails ? found->second.load_error : 0;
  }
  static int32_t load(const char16_t* path, DecodedImage* out) {
    *out = nullptr;
    ++active_->loads;
    Picture* p = nullptr;
    const int32_t result = find(path, &p);
    if (result == 0 && p != nullptr) *out = p, ++active_->live;
    return result;
  }
  static int32_t measure(const char16_t* path, int32_t* width, int32_t* height) {
    Picture* p = nullptr;
    const int32_t result = find(path, &p);
    if (result == 0) *width = p->width, *height = p->height;
    return result;
  }
  static int32_t width(DecodedImage image) { return of(image).width; }
  static int32_t height(DecodedImage image) { return of(image).height; }
  static int32_t depth(DecodedImage image) { return of(image).bits_per_pixel; }
  static uint32_t table(DecodedImage image, uint32_t first, uint32_t count, ColourEntry* out) {
    uint32_t copied = 0;
    for (uint32_t i = first; i < of(image).table.size() && copied < count; ++i) {
      out[copied++] = of(image).table[i];
    }
    return copied;
  }
  static void bit_rows(DecodedImage image, const uint8_t** top, ptrdiff_t* step) {
    const Picture& p = of(image);
    const ptrdiff_t row = (p.width + 7) / 8;
    *top = p.bits.data() + (p.bottom_up ? (p.height - 1) * row : 0);
    *step = p.bottom_up ? -row : row;
  }
  static Rgb pixel(DecodedImage image, int32_t x, int32_t y) {
    return of(image).pixels.at(static_cast<size_t>(y) * of(image).width + x);
  }
  static void pixel_row(DecodedImage image, int32_t y, Rgb* out) {
    for (int32_t x = 0; x < of(image).width; ++x) out[x] = pixel(image, x, y);
  }
  static void release(DecodedImage) { --active_->live; }
  static bool colour_rows(DecodedImage image, const uint8_t** top, ptrdiff_t* step,
                          bool* blue_first) {
    const Picture& p = of(image);
    if (p.bits_per_pixel == 1) return false;
    const ptrdiff_t row = ptrdiff_t{p.width} * 3;
    *blue_first = active_->rows_ == Rows::kBlueFirst;
    *top = *blue_first ? p.blue_first.data() + (p.height - 1) * row
                       : reinterpret_cast<const uint8_t*>(p.pixels.data());
    *step = *blue_first ? -row : row;
    return true;
  }

  static inline FakeDecoder* active_ = nullptr;
  // Without a size reader: the probe loads the picture.
  platform::ImageDecoderOps ops_{start, stop,  load,     nullptr, width,     height,
                                 depth, table, bit_rows, pixel,   pixel_row, release};
  const platform::ImageDecoderOps* previous_ = nullptr;
  const Rows rows_;
  std::map<WideString, Picture> pictures_;
};

constexpr Rgb kWhite{255, 255, 255};
constexpr Rgb kBlack{0, 0, 0};
constexpr ColourEntry kBlackEntry{0, 0, 0, 0};
constexpr ColourEntry kWhiteEntry{255, 255, 255, 0};

Picture colour(int32_t width, int32_t height, std::vector<Rgb> pixels, int32_t depth = 24) {
  if (pixels.size() == 1) pixels.resize(static_cast<size_t>(width) * height, pixels[0]);
  return {width, height, depth, std::move(pixels)};
}
Picture one_bit(int32_t width, int32_t height, std::vector<uint8_t> bits,
                std::vector<ColourEntry> table, bool bottom_up = false) {
  return {width, height, 1, {}, std::move(bits), std::move(table), bottom_up};
}

// Pixels of equal channels; 0, 50, 64, 72 and 128 keep their value as gray,
// 255 becomes 254.
Picture gray_rows(int32_t width, const std::vector<uint8_t>& levels) {
  std::vector<Rgb> pixels;
  for (uint8_t level : levels) pixels.push_back({level, level, level});
  return colour(width, static_cast<int32_t>(levels.size()) / width, std::move(pixels));
}

const WideString kPath = VW("picture.png");

// Converts `picture` to the raster (or column) layout; the image must be
// released afterwards.
std::vector<uint8_t> convert(const Picture& picture, bool columns, Rows rows) {
  FakeDecoder decoder(rows);
  decoder.add(kPath, picture);
  const int32_t w = picture.width, h = picture.height;
  std::vector<uint8_t> out(columns ? image::column_bytes(w, h) : image::raster_bytes(w, h));
  EXPECT_EQ(columns ? image::convert_to_columns(kPath.c_str(), w, h, out.data())
                    : image::convert_to_raster(kPath.c_str(), w, h, out.data()),
            0);
  EXPECT_EQ(decoder.live, 0) << "the loaded image was not released";
  return out;
}

TEST(Conversion, GivesTheExpectedDots) {
  Picture one_bit_by_colour = colour(2, 1, {kWhite, kBlack});
  one_bit_by_colour.bits_per_pixel = 1;
  one_bit_by_colour.bits = {0x00};  // the bits would say blank: colours decide
  one_bit_by_colour.table = {kBlackEntry, kWhiteEntry};
  const struct {
    const char* name;
    Picture picture;
    const char* dots;
    bool columns = false;
  } cases[] = {
      // One-bit copy: inverted when entry 1 has blue 255 (only blue counts);
      // padding is cleared after any inversion.
      {"black_white_table", one_bit(8, 2, {0x0F, 0xF0}, {kBlackEntry, kWhiteEntry}), "F0 0F"},
      {"only_blue_counts", one_bit(8, 1, {0x0F}, {kBlackEntry, {255, 0, 0, 0}}), "F0"},
      {"blue_254_not_inverted", one_bit(8, 1, {0x0F}, {kBlackEntry, {254, 255, 255, 0}}), "0F"},
      {"missing_entry_1_not_inverted", one_bit(8, 1, {0x81}, {kBlackEntry}), "81"},
      {"padding_after_inversion", one_bit(10, 2, {0, 0, 0x12, 0}, {kBlackEntry, kWhiteEntry}),
       "FF C0 ED C0"},
      {"padding_without_inversion", one_bit(10, 1, {0xFF, 0xFF}, {kWhiteEntry, kBlackEntry}),
       "FF C0"},
      {"bottom_up_storage", one_bit(8, 3, {0x01, 0x02, 0x03}, {kWhiteEntry, kBlackEntry}, true),
       "03 02 01"},
      // Error diffusion. White is gray 254 with error -1: every share is 0.
      {"white_is_blank", colour(10, 3, {kWhite}), "00 00 00 00 00 00"},
      {"black_is_dots_padding_excepted", colour(10, 2, {kBlack}), "FF C0 FF C0"},
      // Any depth but 1 is diffused, alpha-carrying ones included: 128 is a
      // dot passing +128, of which the 56 to the right keep gray 100 blank.
      {"depth_32_diffused", colour(2, 1, {{128, 128, 128}, {100, 100, 100}}, 32), "80"},
      // Three errors of +128 lift the white middle pixel below to 254 + 72
      // and its left neighbour's +56 takes it to 382, the highest value a
      // pixel can reach: error 127 passes 55 right, so 50 + 8 + 40 + 55 = 153
      // stays blank.
      {"highest_value_passes_55_right", gray_rows(3, {128, 72, 72, 64, 255, 50}), "E0 80"},
      // 128 passes +40 down (5/16): 92 below stays blank.
      {"down_share_five_sixteenths", gray_rows(1, {128, 92}), "80 00"},
      // Gray 134 is blank; with red and blue swapped it would be 87, a dot.
      {"red_weighs_more_than_blue", colour(1, 1, {{255, 100, 0}}), "00"},
      // Average threshold, in columns: below 128 is a dot, by integer division.
      {"integer_average_128_is_blank", colour(1, 1, {{127, 128, 129}}), "00", true},
      {"integer_average_127_is_a_dot", colour(1, 1, {{126, 128, 129}}), "80", true},
      {"nine_high_takes_two_bytes", colour(1, 9, {kBlack}), "FF 80", true},
      {"one_bit_image_by_colour", one_bit_by_colour, "00 80", true},
  };
  // However the decoder gives its colours out, the dots are the same.
  for (const auto& c : cases) {
    for (Rows rows : {Rows::kPixels, Rows::kReader, Rows::kRedFirst, Rows::kBlueFirst}) {
      EXPECT_EQ(convert(c.picture, c.columns, rows), hex(c.dots))
          << c.name << " " << static_cast<int>(rows);
    }
  }
}

// The diffusion rule as written, on a work plane of the whole image.
std::vector<uint8_t> plain_diffusion(std::vector<int32_t> work, int32_t w, int32_t h) {
  std::vector<uint8_t> dots(image::raster_bytes(w, h), 0);
  const size_t row_bytes = (static_cast<size_t>(w) + 7) / 8;
  auto pass = [&](int32_t x, int32_t y, int32_t share) {
    if (x >= 0 && x < w && y < h) work[static_cast<size_t>(y) * w + x] += share;
  };
  for (int32_t y = 0; y < h; ++y) {
    for (int32_t x = 0; x < w; ++x) {
      const int32_t v = work[static_cast<size_t>(y) * w + x];
      if (v <= 128) dots[y * row_bytes + x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
      const int32_t e = v <= 128 ? v : v - 255;
      pass(x + 1, y, e * 7 / 16), pass(x - 1, y + 1, e * 3 / 16);
      pass(x, y + 1, e * 5 / 16), pass(x + 1, y + 1, e / 16);
    }
  }
  return dots;
}

struct PlaneRows : image::GrayRows {
  std::vector<int32_t> plane;
  int32_t width = 0;
  void read(int32_t y, int16_t* out) const override {
    for (int32_t x = 0; x < width; ++x) out[x] = static_cast<int16_t>(plane[y * width + x]);
  }
};

TEST(Diffusion, RowByRowAndInBandsGiveThePlainRulesBits) {
  // Widths about a byte and the bands' lag, heights about a band of eight.
  const std::pair<int32_t, int32_t> sizes[] = {{1, 1},   {1, 20}, {2, 9},    {5, 17},   {8, 7},
                                               {23, 16}, {24, 3}, {100, 25}, {576, 41}, {1024, 9}};
  std::mt19937 random(7);
  // Runs of the extremes and the threshold among random grays.
  const int32_t levels[] = {0, 128, 129, 254};
  for (const auto& [w, h] : sizes) {
    PlaneRows rows;
    rows.width = w;
    for (int32_t i = 0; i < w * h; ++i) {
      rows.plane.push_back(random() % 3 == 0 ? levels[random() % 4] : random() % 255);
    }
    const std::vector<uint8_t> want = plain_diffusion(rows.plane, w, h);
    for (bool bands : {false, true}) {
      std::vector<uint8_t> out(want.size(), 0);
      EXPECT_EQ(bands ? image::diffuse_in_bands(rows, w, h, out.data())
                      : image::diffuse_row_by_row(rows, w, h, out.data()),
                0);
      EXPECT_EQ(out, want) << w << " x " << h << (bands ? " in bands" : " row by row");
    }
  }
}

TEST(ImageConversion, LoadFailuresAndChangedSizes) {
  FakeDecoder decoder;
  decoder.add(kPath, colour(9, 2, {kBlack}));
  decoder.add(VW("silent.png"), {.fails = true});
  decoder.add(VW("broken.png"), {.fails = true, .load_error = 84});
  std::vector<uint8_t> out(4, 0);
  // A missing file gives the decoder's number; an image whose size changed
  // since the probe is refused; the output stays blank either way.
  EXPECT_EQ(image::convert_to_raster(VW("absent.png"), 8, 4, out.data()), ENOENT);
  EXPECT_EQ(image::convert_to_raster(kPath.c_str(), 8, 2, out.data()), VORN_ERR_IMAGE_SIZE);
  EXPECT_EQ(out, std::vector<uint8_t>(4, 0));
  // A failure without a number reads as an image of no size.
  EXPECT_EQ(image::convert_to_raster(VW("silent.png"), 1, 1, out.data()), VORN_ERR_IMAGE_SIZE);
  int32_t width = 5, height = 5;
  EXPECT_EQ(image::probe_size(VW("silent.png"), &width, &height), 0);
  EXPECT_EQ(std::pair(width, height), std::pair(0, 0));
  EXPECT_EQ(image::probe_size(VW("broken.png"), &width, &height), 84);
  EXPECT_EQ(decoder.live, 0);
}

TEST(ImageDecoderLifeCycle, StartedWhenIdleAndStoppedWithTheLastImage) {
  FakeDecoder decoder;
  decoder.add(kPath, colour(2, 2, {kWhite}));
  {
    image::LoadedImage first, second;
    ASSERT_EQ(first.load(kPath.c_str()), 0);
    ASSERT_EQ(second.load(kPath.c_str()), 0);
    EXPECT_EQ(decoder.starts, 1) << "a running decoder is not started again";
    second.release();
    EXPECT_EQ(decoder.stops, 0) << "stopped while an image was still live";
  }
  EXPECT_EQ(decoder.stops, 1);
  int32_t width = 0, height = 0;
  ASSERT_EQ(image::probe_size(kPath.c_str(), &width, &height), 0);
  EXPECT_EQ(decoder.starts - decoder.stops, 0) << "the probe stops what it started";
  // A failed load stops the decoder it started; a failed start fails the
  // load and leaves nothing to stop.
  EXPECT_EQ(image::probe_size(VW("absent.png"), &width, &height), ENOENT);
  EXPECT_EQ(std::pair(decoder.starts, decoder.stops), std::pair(3, 3));
  decoder.start_error = 1450;
  EXPECT_EQ(image::probe_size(kPath.c_str(), &width, &height), 1450);
  EXPECT_EQ(std::pair(decoder.live, decoder.stops), std::pair(0, 3));
}

// A decoder that reads sizes from headers is asked for the size instead of
// loading the picture, inside the same start and stop.
TEST(ImageDecoderLifeCycle, SizeReaderServesTheProbeWithoutALoad) {
  FakeDecoder decoder(Rows::kReader, true);
  decoder.add(kPath, colour(3, 2, {kWhite}));
  int32_t width = 0, height = 0;
  ASSERT_EQ(image::probe_size(kPath.c_str(), &width, &height), 0);
  EXPECT_EQ(std::pair(width, height), std::pair(3, 2));
  EXPECT_EQ(decoder.loads, 0);
  EXPECT_EQ(image::probe_size(VW("absent.png"), &width, &height), ENOENT);
  EXPECT_EQ(std::pair(width, height), std::pair(0, 0)) << "a failure reports no size";
  EXPECT_EQ(std::pair(decoder.starts, decoder.stops), std::pair(2, 2));
  decoder.start_error = 1450;
  EXPECT_EQ(image::probe_size(kPath.c_str(), &width, &height), 1450);
  EXPECT_EQ(decoder.stops, 2) << "nothing to stop";
}

}  // namespace
}  // namespace vorn::test
