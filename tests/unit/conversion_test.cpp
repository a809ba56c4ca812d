// The monochrome conversions and the loaded image's life cycle, against a
// fake image decoder that serves small pictures given as pixel arrays.
#include "image/conversion.h"

#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <cstring>
#include <map>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "image/dither.h"
#include "platform/image_decoder.h"
#include "support/fake_session.h"

namespace vorn::test {
namespace {

using platform::ColourEntry;
using platform::DecodedImage;
using platform::Rgb;

// One picture as the fake decoder delivers it.
struct Picture {
  int32_t width = 0;
  int32_t height = 0;
  int32_t bits_per_pixel = 24;
  std::vector<Rgb> pixels;    // row-major, top row first (not 1-bit)
  std::vector<uint8_t> bits;  // 1-bit rows, top row first, (width + 7) / 8 each
  std::vector<ColourEntry> table;
  bool bottom_up = false;  // store the bit rows bottom-up (negative step)
  int32_t load_error = 0;  // a failed load with this number
  bool fails = false;      // the load fails (with load_error, maybe 0)
};

class FakeDecoder {
 public:
  FakeDecoder() {
    active_ = this;
    previous_ = platform::install_image_decoder(&ops_);
  }
  ~FakeDecoder() {
    platform::install_image_decoder(previous_);
    active_ = nullptr;
  }
  FakeDecoder(const FakeDecoder&) = delete;
  FakeDecoder& operator=(const FakeDecoder&) = delete;

  void add(const std::u16string& path, Picture picture) { pictures_[path] = std::move(picture); }
  // Rows on request only pixel by pixel, as a decoder without a row reader.
  void without_row_reader() { ops_.pixel_row = nullptr; }

  int starts = 0;
  int stops = 0;
  int live = 0;
  int32_t start_error = 0;

 private:
  struct Loaded {
    const Picture* picture;
    std::vector<uint8_t> stored_bits;  // in storage order
  };

  static Loaded& of(DecodedImage image) { return *static_cast<Loaded*>(image); }

  static int32_t start() {
    if (active_->start_error != 0) return active_->start_error;
    ++active_->starts;
    return 0;
  }
  static void stop() { ++active_->stops; }
  static int32_t load(const char16_t* path, DecodedImage* out) {
    *out = nullptr;
    auto found = active_->pictures_.find(path);
    if (found == active_->pictures_.end()) return ENOENT;
    const Picture& picture = found->second;
    if (picture.fails) return picture.load_error;
    auto* loaded = new Loaded{&picture, picture.bits};
    if (picture.bottom_up) {
      const size_t row = (static_cast<size_t>(picture.width) + 7) / 8;
      for (int32_t y = 0; y < picture.height; ++y) {
        std::memcpy(&loaded->stored_bits[(picture.height - 1 - y) * row], &picture.bits[y * row],
                    row);
      }
    }
    ++active_->live;
    *out = loaded;
    return 0;
  }
  static int32_t width(DecodedImage image) { return of(image).picture->width; }
  static int32_t height(DecodedImage image) { return of(image).picture->height; }
  static int32_t depth(DecodedImage image) { return of(image).picture->bits_per_pixel; }
  static uint32_t table(DecodedImage image, uint32_t first, uint32_t count, ColourEntry* out) {
    const std::vector<ColourEntry>& entries = of(image).picture->table;
    uint32_t copied = 0;
    for (uint32_t i = first; i < entries.size() && copied < count; ++i) out[copied++] = entries[i];
    return copied;
  }
  static void bit_rows(DecodedImage image, const uint8_t** top, ptrdiff_t* step) {
    const Loaded& loaded = of(image);
    const ptrdiff_t row = (loaded.picture->width + 7) / 8;
    if (loaded.picture->bottom_up) {
      *top = loaded.stored_bits.data() + (loaded.picture->height - 1) * row;
      *step = -row;
    } else {
      *top = loaded.stored_bits.data();
      *step = row;
    }
  }
  static Rgb pixel(DecodedImage image, int32_t x, int32_t y) {
    const Picture& p = *of(image).picture;
    EXPECT_TRUE(x >= 0 && x < p.width && y >= 0 && y < p.height) << x << "," << y;
    return p.pixels.at(static_cast<size_t>(y) * p.width + x);
  }
  static void pixel_row(DecodedImage image, int32_t y, Rgb* out) {
    const Picture& p = *of(image).picture;
    std::memcpy(out, &p.pixels.at(static_cast<size_t>(y) * p.width), p.width * sizeof(Rgb));
  }
  static void release(DecodedImage image) {
    --active_->live;
    delete &of(image);
  }

  static inline FakeDecoder* active_ = nullptr;
  platform::ImageDecoderOps ops_{
      .start = start,
      .stop = stop,
      .load = load,
      .width = width,
      .height = height,
      .bits_per_pixel = depth,
      .colour_table = table,
      .bit_rows = bit_rows,
      .pixel = pixel,
      .pixel_row = pixel_row,
      .release = release,
  };
  const platform::ImageDecoderOps* previous_ = nullptr;
  std::map<std::u16string, Picture> pictures_;
};

constexpr Rgb kWhite{255, 255, 255};
constexpr Rgb kBlack{0, 0, 0};
constexpr Rgb gray(uint8_t level) {
  return {level, level, level};
}
constexpr ColourEntry entry(uint8_t blue, uint8_t green, uint8_t red) {
  return {blue, green, red, 0};
}
constexpr ColourEntry kBlackEntry = entry(0, 0, 0);
constexpr ColourEntry kWhiteEntry = entry(255, 255, 255);

Picture colour_picture(int32_t width, int32_t height, std::vector<Rgb> pixels, int32_t depth = 24) {
  Picture p;
  p.width = width;
  p.height = height;
  p.bits_per_pixel = depth;
  p.pixels = std::move(pixels);
  return p;
}

Picture uniform(int32_t width, int32_t height, Rgb colour) {
  return colour_picture(width, height, std::vector<Rgb>(width * height, colour));
}

Picture one_bit(int32_t width, int32_t height, std::vector<uint8_t> bits,
                std::vector<ColourEntry> table, bool bottom_up = false) {
  Picture p;
  p.width = width;
  p.height = height;
  p.bits_per_pixel = 1;
  p.bits = std::move(bits);
  p.table = std::move(table);
  p.bottom_up = bottom_up;
  return p;
}

const std::u16string kPath = u"picture.png";

std::vector<uint8_t> raster_of(const Picture& picture, int32_t* result = nullptr) {
  FakeDecoder decoder;
  decoder.add(kPath, picture);
  std::vector<uint8_t> out(image::raster_bytes(picture.width, picture.height));
  const int32_t rc =
      image::convert_to_raster(kPath.c_str(), picture.width, picture.height, out.data());
  if (result != nullptr)
    *result = rc;
  else
    EXPECT_EQ(rc, 0);
  EXPECT_EQ(decoder.live, 0) << "the loaded image was not released";
  return out;
}

std::vector<uint8_t> columns_of(const Picture& picture) {
  FakeDecoder decoder;
  decoder.add(kPath, picture);
  std::vector<uint8_t> out(image::column_bytes(picture.width, picture.height));
  EXPECT_EQ(image::convert_to_columns(kPath.c_str(), picture.width, picture.height, out.data()), 0);
  EXPECT_EQ(decoder.live, 0);
  return out;
}

struct ConversionCase {
  const char* name;
  Picture picture;
  const char* raster;  // expected bytes in hex
};

void PrintTo(const ConversionCase& c, std::ostream* os) {
  *os << c.name;
}

class RasterConversion : public testing::TestWithParam<ConversionCase> {};

TEST_P(RasterConversion, GivesTheExpectedDots) {
  EXPECT_EQ(raster_of(GetParam().picture), hex(GetParam().raster));
}

// Gray values of uniform colours: most levels keep their value (128 stays
// 128), some lose one (251 gives 250, 255 gives 254).
const ConversionCase kRasterCases[] = {
    // One-bit copy. Entry 1 with blue 255 is white: the bits are inverted.
    {"one_bit_black_white_table", one_bit(8, 2, {0x0F, 0xF0}, {kBlackEntry, kWhiteEntry}), "F0 0F"},
    {"one_bit_white_black_table", one_bit(8, 2, {0xF0, 0x0F}, {kWhiteEntry, kBlackEntry}), "F0 0F"},
    {"one_bit_black_red_not_inverted", one_bit(8, 1, {0xF0}, {kBlackEntry, entry(0, 0, 255)}),
     "F0"},
    {"one_bit_only_blue_is_looked_at", one_bit(8, 1, {0x0F}, {kBlackEntry, entry(255, 0, 0)}),
     "F0"},
    {"one_bit_blue_254_not_inverted", one_bit(8, 1, {0x0F}, {kBlackEntry, entry(254, 255, 255)}),
     "0F"},
    {"one_bit_padding_cleared_after_inversion",
     one_bit(10, 2, {0x00, 0x00, 0x12, 0x00}, {kBlackEntry, kWhiteEntry}), "FF C0 ED C0"},
    {"one_bit_padding_cleared_without_inversion",
     one_bit(10, 1, {0xFF, 0xFF}, {kWhiteEntry, kBlackEntry}), "FF C0"},
    {"one_bit_one_dot_wide", one_bit(1, 3, {0x00, 0x7F, 0x80}, {kBlackEntry, kWhiteEntry}),
     "80 80 00"},
    {"one_bit_bottom_up_storage",
     one_bit(8, 3, {0x01, 0x02, 0x03}, {kWhiteEntry, kBlackEntry}, true), "01 02 03"},
    {"one_bit_missing_entry_1_not_inverted", one_bit(8, 1, {0x81}, {kBlackEntry}), "81"},
    // Error diffusion.
    {"uniform_white_is_blank", uniform(10, 3, kWhite), "00 00 00 00 00 00"},
    {"uniform_black_is_all_dots_padding_excepted", uniform(10, 2, kBlack), "FF C0 FF C0"},
    {"one_black_dot_in_place",
     colour_picture(10, 2,
                    [] {
                      std::vector<Rgb> p(20, kWhite);
                      p[19] = kBlack;
                      return p;
                    }()),
     "00 00 00 40"},
    // 128 is a dot and passes +128 on: 56 to the right makes 100 + 56 blank
    // (were 128 blank, -127 would pass -55 and make the right pixel a dot).
    {"gray_128_is_a_dot_and_passes_128_right", colour_picture(2, 1, {gray(128), gray(100)}), "80"},
    // ... and 40 downward: 100 + 40 blank.
    {"gray_128_is_a_dot_and_passes_128_down", colour_picture(1, 2, {gray(128), gray(100)}),
     "80 00"},
    // Gray 250 passes e = -5. -5 * 7 / 16 is -2 (not -3): 131 - 2 stays blank.
    {"right_share_truncates_toward_zero", colour_picture(2, 1, {gray(251), gray(131)}), "00"},
    // -5 * 5 / 16 is -1 (not -2): 130 - 1 stays blank.
    {"below_share_truncates_toward_zero", colour_picture(1, 2, {gray(251), gray(130)}), "00 00"},
    // -5 * 3 / 16 is 0 (not -1): 129 stays blank below-left.
    {"below_left_share_truncates_toward_zero",
     colour_picture(2, 2, {kWhite, gray(251), gray(129), kWhite}), "00 00"},
    // -5 * 1 / 16 is 0 (not -1), and so are the -1 and -2 errors of the
    // white pixels: the pixel below-right stays at 129.
    {"below_right_share_truncates_toward_zero",
     colour_picture(2, 2, {gray(251), kWhite, kWhite, gray(129)}), "00 00"},
    // Row 1 visited right to left (serpentine) would give A0 80.
    {"every_row_left_to_right",
     colour_picture(3, 2, {gray(128), gray(128), gray(128), kBlack, gray(128), gray(128)}),
     "A0 A0"},
    // An alpha-carrying depth converts like any other non-1-bit depth.
    {"depth_32_like_depth_24", colour_picture(2, 1, {gray(128), gray(100)}, 32), "80"},
    {"depth_8_like_depth_24", colour_picture(2, 1, {gray(128), gray(100)}, 8), "80"},
};

INSTANTIATE_TEST_SUITE_P(Table, RasterConversion, testing::ValuesIn(kRasterCases),
                         [](const auto& info) { return std::string(info.param.name); });

struct ColumnCase {
  const char* name;
  Picture picture;
  const char* columns;
};

void PrintTo(const ColumnCase& c, std::ostream* os) {
  *os << c.name;
}

class ColumnConversion : public testing::TestWithParam<ColumnCase> {};

TEST_P(ColumnConversion, GivesTheExpectedDots) {
  EXPECT_EQ(columns_of(GetParam().picture), hex(GetParam().columns));
}

const ColumnCase kColumnCases[] = {
    {"average_128_is_blank", colour_picture(1, 1, {gray(128)}), "00"},
    {"average_127_is_a_dot", colour_picture(1, 1, {gray(127)}), "80"},
    {"average_of_127_128_129_is_128_blank", colour_picture(1, 1, {{127, 128, 129}}), "00"},
    {"average_of_126_128_129_is_127_a_dot", colour_picture(1, 1, {{126, 128, 129}}), "80"},
    {"nine_high_takes_two_bytes_per_column", uniform(1, 9, kBlack), "FF 80"},
    {"columns_left_to_right",
     colour_picture(2, 9,
                    [] {
                      std::vector<Rgb> p(18, kWhite);
                      p[0] = kBlack;          // (0, 0)
                      p[2 * 8 + 1] = kBlack;  // (1, 8)
                      p[2 * 3 + 1] = kBlack;  // (1, 3)
                      return p;
                    }()),
     "80 00 10 80"},
    {"one_row", colour_picture(3, 1, {kBlack, kWhite, kBlack}), "80 00 80"},
    // A 1-bit image takes the threshold too, through its pixel colours.
    {"one_bit_image_by_colour",
     [] {
       Picture p = uniform(2, 1, kWhite);
       p.bits_per_pixel = 1;
       p.pixels[1] = kBlack;
       p.bits = {0x40};
       p.table = {kWhiteEntry, kBlackEntry};
       return p;
     }(),
     "00 80"},
};

INSTANTIATE_TEST_SUITE_P(Table, ColumnConversion, testing::ValuesIn(kColumnCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(GrayValue, FollowsTheWeightsAndTruncates) {
  struct Row {
    Rgb pixel;
    int32_t gray;
  };
  const Row rows[] = {{kWhite, 254},     {gray(7), 6},      {kBlack, 0},       {gray(128), 128},
                      {gray(120), 119},  {gray(251), 250},  {{255, 0, 0}, 76}, {{0, 255, 0}, 149},
                      {{0, 0, 255}, 29}, {{10, 20, 30}, 18}};
  for (const Row& row : rows) {
    EXPECT_EQ(image::gray_value(row.pixel.red, row.pixel.green, row.pixel.blue), row.gray)
        << int(row.pixel.red) << "," << int(row.pixel.green) << "," << int(row.pixel.blue);
  }
}

TEST(GrayValue, TablesGiveThePlainFormulaForEveryColour) {
  int mismatches = 0;
  for (int r = 0; r < 256; ++r) {
    for (int g = 0; g < 256; ++g) {
      for (int b = 0; b < 256; ++b) {
        const auto plain = static_cast<int32_t>(r * 0.29891 + g * 0.58661 + b * 0.11448);
        if (image::gray_value(static_cast<uint8_t>(r), static_cast<uint8_t>(g),
                              static_cast<uint8_t>(b)) != plain) {
          ++mismatches;
        }
      }
    }
  }
  EXPECT_EQ(mismatches, 0);
}

TEST(ErrorDiffusion, MidGrayBecomesAPatternNotASolidArea) {
  const std::vector<uint8_t> out = raster_of(uniform(32, 32, gray(128)));
  int dots = 0;
  for (uint8_t byte : out) dots += __builtin_popcount(byte);
  // Gray 127 of 255: about half the dots, never all or none.
  EXPECT_GT(dots, 32 * 32 * 4 / 10);
  EXPECT_LT(dots, 32 * 32 * 6 / 10);
}

// The plain rule, one pixel at a time through the pixel accessor, with a
// work plane of the whole image.
std::vector<uint8_t> reference_raster(const Picture& p) {
  const int32_t w = p.width;
  const int32_t h = p.height;
  const int32_t row_bytes = (w + 7) / 8;
  std::vector<uint8_t> out(static_cast<size_t>(row_bytes) * h);
  std::vector<int32_t> plane(static_cast<size_t>(w) * h);
  auto at = [&](int32_t x, int32_t y) -> int32_t& { return plane[static_cast<size_t>(y) * w + x]; };
  for (int32_t y = 0; y < h; ++y) {
    for (int32_t x = 0; x < w; ++x) {
      const Rgb c = p.pixels[static_cast<size_t>(y) * w + x];
      at(x, y) = static_cast<int32_t>(c.red * 0.29891 + c.green * 0.58661 + c.blue * 0.11448);
    }
  }
  for (int32_t y = 0; y < h; ++y) {
    for (int32_t x = 0; x < w; ++x) {
      int32_t e;
      if (at(x, y) > 128) {
        e = at(x, y) - 255;
        at(x, y) = 255;
      } else {
        e = at(x, y);
        at(x, y) = 0;
      }
      if (x < w - 1) at(x + 1, y) += static_cast<int32_t>(e * 0.4375);
      if (y < h - 1) {
        if (x >= 1) at(x - 1, y + 1) += static_cast<int32_t>(e * 0.1875);
        at(x, y + 1) += static_cast<int32_t>(e * 0.3125);
        if (x < w - 1) at(x + 1, y + 1) += static_cast<int32_t>(e * 0.0625);
      }
    }
  }
  for (int32_t y = 0; y < h; ++y) {
    for (int32_t x = 0; x < w; ++x) {
      if (at(x, y) <= 128) out[static_cast<size_t>(y) * row_bytes + x / 8] |= 0x80 >> (x % 8);
    }
  }
  return out;
}

// Column by column, with the bit masks filling each byte from the top.
std::vector<uint8_t> reference_columns(const Picture& p) {
  static constexpr uint8_t kBitSet[] = {0x80, 0x40, 0x20, 0x10, 0x08, 0x04, 0x02, 0x01};
  const int32_t column_bytes = (p.height + 7) / 8;
  std::vector<uint8_t> out(static_cast<size_t>(column_bytes) * p.width);
  for (int32_t x = 0; x < p.width; ++x) {
    uint8_t* position = &out[static_cast<size_t>(x) * column_bytes];
    uint8_t byte = 0;
    int placed = 0;
    for (int32_t y = 0; y < p.height; ++y) {
      const Rgb c = p.pixels[static_cast<size_t>(y) * p.width + x];
      if ((c.red + c.green + c.blue) / 3 < 128) byte |= kBitSet[placed];
      if (++placed == 8) {
        *position++ = byte;
        byte = 0;
        placed = 0;
      }
    }
    if (placed != 0) *position = byte;
  }
  return out;
}

// Photo-like content: smooth ramps with noise, so that errors travel far,
// plus runs of pure colours.
Picture random_picture(std::mt19937& random) {
  std::uniform_int_distribution<int32_t> size(1, 45);
  std::uniform_int_distribution<int32_t> noise(-40, 40);
  std::uniform_int_distribution<int32_t> level(0, 255);
  const int32_t w = size(random);
  const int32_t h = size(random);
  std::vector<Rgb> pixels(static_cast<size_t>(w) * h);
  const int32_t base = level(random);
  for (int32_t y = 0; y < h; ++y) {
    for (int32_t x = 0; x < w; ++x) {
      auto channel = [&](int32_t shift) {
        const int32_t v = (base + shift + x * 255 / w + noise(random)) % 300;
        return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
      };
      pixels[static_cast<size_t>(y) * w + x] =
          level(random) < 20 ? Rgb{static_cast<uint8_t>(level(random) & 0x80 ? 255 : 0), 0, 0}
                             : Rgb{channel(0), channel(y * 3), channel(-y)};
    }
  }
  return colour_picture(w, h, std::move(pixels));
}

TEST(ConversionFastPath, MatchesThePlainRuleOnRandomPictures) {
  std::mt19937 random(20240611);
  for (int round = 0; round < 300; ++round) {
    const Picture picture = random_picture(random);
    ASSERT_EQ(raster_of(picture), reference_raster(picture))
        << "round " << round << ", " << picture.width << " x " << picture.height;
    ASSERT_EQ(columns_of(picture), reference_columns(picture))
        << "round " << round << ", " << picture.width << " x " << picture.height;
  }
}

TEST(ConversionFastPath, DecoderWithoutRowReaderGivesTheSameDots) {
  std::mt19937 random(7);
  for (int round = 0; round < 20; ++round) {
    const Picture picture = random_picture(random);
    FakeDecoder decoder;
    decoder.without_row_reader();
    decoder.add(kPath, picture);
    std::vector<uint8_t> out(image::raster_bytes(picture.width, picture.height));
    ASSERT_EQ(image::convert_to_raster(kPath.c_str(), picture.width, picture.height, out.data()),
              0);
    ASSERT_EQ(out, reference_raster(picture)) << "round " << round;
  }
}

TEST(ImageConversion, MissingFileGivesTheDecodersNumberAndLeavesTheOutput) {
  FakeDecoder decoder;
  std::vector<uint8_t> out(4, 0);
  EXPECT_EQ(image::convert_to_raster(u"absent.png", 8, 4, out.data()), ENOENT);
  EXPECT_EQ(image::convert_to_columns(u"absent.png", 8, 4, out.data()), ENOENT);
  EXPECT_EQ(out, std::vector<uint8_t>(4, 0));
  EXPECT_EQ(decoder.live, 0);
  EXPECT_EQ(decoder.starts, decoder.stops);
}

TEST(ImageConversion, FailureWithoutANumberReadsAsNoSize) {
  FakeDecoder decoder;
  Picture broken;
  broken.fails = true;
  decoder.add(kPath, broken);
  std::vector<uint8_t> out(1, 0);
  EXPECT_EQ(image::convert_to_raster(kPath.c_str(), 1, 1, out.data()), VORN_ERR_IMAGE_SIZE);
  int32_t width = 7, height = 7;
  EXPECT_EQ(image::probe_size(kPath.c_str(), &width, &height), 0);
  EXPECT_EQ(width, 0);
  EXPECT_EQ(height, 0);
}

TEST(ImageConversion, ImageThatChangedSizeSinceTheProbeIsRefused) {
  FakeDecoder decoder;
  decoder.add(kPath, uniform(9, 2, kBlack));
  std::vector<uint8_t> out(4, 0);
  EXPECT_EQ(image::convert_to_raster(kPath.c_str(), 8, 2, out.data()), VORN_ERR_IMAGE_SIZE);
  EXPECT_EQ(image::convert_to_columns(kPath.c_str(), 9, 1, out.data()), VORN_ERR_IMAGE_SIZE);
  EXPECT_EQ(out, std::vector<uint8_t>(4, 0));
  EXPECT_EQ(decoder.live, 0);
}

TEST(ImageSizeProbe, ReportsTheSizeAndReleasesTheImage) {
  FakeDecoder decoder;
  decoder.add(kPath, uniform(577, 3, kWhite));
  int32_t width = 0, height = 0;
  EXPECT_EQ(image::probe_size(kPath.c_str(), &width, &height), 0);
  EXPECT_EQ(width, 577);
  EXPECT_EQ(height, 3);
  EXPECT_EQ(decoder.live, 0);
}

TEST(ImageSizeProbe, FailedLoadGivesItsNumberAndNoSize) {
  FakeDecoder decoder;
  Picture broken;
  broken.fails = true;
  broken.load_error = 84;
  decoder.add(kPath, broken);
  int32_t width = 5, height = 5;
  EXPECT_EQ(image::probe_size(kPath.c_str(), &width, &height), 84);
  EXPECT_EQ(width, 0);
  EXPECT_EQ(height, 0);
}

TEST(ImageDecoderLifeCycle, StartedPerLoadWhenIdleAndStoppedWithTheLastImage) {
  FakeDecoder decoder;
  decoder.add(kPath, uniform(2, 2, kWhite));
  decoder.add(u"other.png", uniform(1, 1, kBlack));
  {
    image::LoadedImage first;
    ASSERT_EQ(first.load(kPath.c_str()), 0);
    EXPECT_EQ(decoder.starts, 1);
    {
      image::LoadedImage second;
      ASSERT_EQ(second.load(u"other.png"), 0);
      EXPECT_EQ(decoder.starts, 1) << "a running decoder is not started again";
    }
    EXPECT_EQ(decoder.stops, 0) << "stopped while an image was still live";
  }
  EXPECT_EQ(decoder.stops, 1);
  int32_t width = 0, height = 0;
  ASSERT_EQ(image::probe_size(kPath.c_str(), &width, &height), 0);
  EXPECT_EQ(decoder.starts, 2);
  EXPECT_EQ(decoder.stops, 2);
}

TEST(ImageDecoderLifeCycle, FailedLoadStopsTheDecoderItStarted) {
  FakeDecoder decoder;
  int32_t width = 0, height = 0;
  EXPECT_EQ(image::probe_size(u"absent.png", &width, &height), ENOENT);
  EXPECT_EQ(decoder.starts, 1);
  EXPECT_EQ(decoder.stops, 1);
}

TEST(ImageDecoderLifeCycle, FailedStartFailsTheLoad) {
  FakeDecoder decoder;
  decoder.add(kPath, uniform(2, 2, kWhite));
  decoder.start_error = 1450;
  int32_t width = 0, height = 0;
  EXPECT_EQ(image::probe_size(kPath.c_str(), &width, &height), 1450);
  EXPECT_EQ(decoder.live, 0);
  EXPECT_EQ(decoder.stops, 0) << "a decoder that did not start is not stopped";
  decoder.start_error = 0;
  EXPECT_EQ(image::probe_size(kPath.c_str(), &width, &height), 0);
  EXPECT_EQ(width, 2);
  EXPECT_EQ(decoder.starts, 1);
  EXPECT_EQ(decoder.stops, 1);
}

}  // namespace
}  // namespace vorn::test
