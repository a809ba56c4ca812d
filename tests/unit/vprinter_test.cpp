// The virtual printer's engine: what it draws for each family of commands,
// and what it answers.
#include <gtest/gtest.h>
#include <zbar.h>

#include <string>
#include <vector>

#include "engine.h"
#include "support/fake_session.h"
#include "support/wide_text.h"

namespace vorn::vprinter {
namespace {

using test::hex;
using namespace zbar;

constexpr int kPaper = 64;

struct Printed {
  std::vector<std::pair<std::string, Bitmap>> pictures;
  std::vector<std::vector<uint8_t>> answers;
  std::vector<std::string> logs;
};

Fonts& fonts() {
  static Fonts shared;
  return shared;
}

EngineOptions paper(int dots = kPaper, Conditions conditions = {}) {
  EngineOptions options;
  options.dots_per_line = dots;
  options.conditions = conditions;
  return options;
}

Printed print(const std::vector<uint8_t>& bytes, EngineOptions options = paper()) {
  Printed out;
  Engine engine(fonts(), options,
                {[&](const Bitmap& b, const char* kind) { out.pictures.emplace_back(kind, b); },
                 [&](std::vector<uint8_t> a) { out.answers.push_back(std::move(a)); },
                 [&](const std::string& line) { out.logs.push_back(line); }});
  engine.feed(Bytes(bytes));
  engine.finish();
  return out;
}

Bitmap only_picture(const Printed& printed, const char* kind = "receipt") {
  EXPECT_EQ(printed.pictures.size(), 1u);
  if (printed.pictures.empty()) return {};
  EXPECT_EQ(printed.pictures[0].first, kind);
  return printed.pictures[0].second;
}

// A region as rows of '#' (dot) and '.' (paper), separated by '|'.
std::string art(const Bitmap& b, int x, int y, int w, int h) {
  std::string rows;
  for (int row = y; row < y + h; ++row) {
    if (row > y) rows += '|';
    for (int col = x; col < x + w; ++col) {
      rows += col < b.width && row < b.height && b.at(col, row) != 0 ? '#' : '.';
    }
  }
  return rows;
}

size_t dot_count(const Bitmap& b) {
  size_t n = 0;
  for (uint8_t d : b.dots) n += d;
  return n;
}

Bitmap region(const Bitmap& b, int x, int y, int w, int h) {
  Bitmap out(w, h);
  for (int row = 0; row < h; ++row) {
    for (int col = 0; col < w; ++col) out.at(col, row) = b.at(x + col, y + row);
  }
  return out;
}

struct DotsCase {
  const char* name;
  const char* input;
  std::string expected;  // the only dots of the picture, as art(), at (x, y)
  int x = 0, y = 0;
  const char* kind = "receipt";
  uint32_t model_id = 0;
};

const DotsCase kImageCases[] = {
    {"raster", "1D 76 30 00 01 00 02 00 A5 3C", "#.#..#.#|..####.."},
    {"compressed raster", "1D 76 30 20 02 00 02 00 FF A5 01 3C 81",
     "#.#..#.##.#..#.#|..####..#......#"},
    {"raster double width and height", "1D 76 30 33 01 00 01 00 C0", "####|####"},
    {"raster centred", "1B 61 01 1D 76 30 00 01 00 01 00 FF", "########", 28},
    {"NV graphic",
     "1D 28 4C 0C 00 30 43 30 41 42 01 08 00 01 00 31 81 1D 28 4C 06 00 30 45 41 42 01 01",
     "#......#"},
    {"download graphic, long form",
     "1D 38 4C 0C 00 00 00 30 53 30 41 42 01 08 00 01 00 31 81 1D 28 4C 06 00 30 55 41 42 01 01",
     "#......#"},
    {"print buffer graphic", "1D 28 4C 0B 00 30 70 30 01 01 31 08 00 01 00 F0 1D 28 4C 02 00 30 32",
     "####"},
    {"downloaded bit image", "1D 2A 01 01 80 00 00 00 00 00 00 01 1D 2F 00",
     "#.......|........|........|........|........|........|........|.......#"},
    {"NV bit image", "1C 71 01 01 00 01 00 81 00 00 00 00 00 00 00 1C 70 01 00", "#|.|.|.|.|.|.|#"},
    {"column image, 24 dots", "1B 2A 21 02 00 80 00 01 00 80 00 0A",
     "#.|..|..|..|..|..|..|..|.#|..|..|..|..|..|..|..|..|..|..|..|..|..|..|#."},
    {"page, upright",
     "1B 4C 1B 57 00 00 00 00 10 00 08 00 1B 24 02 00 1D 24 01 00 1D 76 30 00 01 00 01 00 FF 0C",
     "########", 2, 1, "page"},
    {"page, top to bottom",
     "1B 4C 1B 57 00 00 00 00 10 00 08 00 1B 54 03 1D 76 30 00 01 00 01 00 FF 0C",
     "#|#|#|#|#|#|#|#", 15, 0, "page"},
    {"page, 0x1102 print area",
     "1B 4C 1B 57 00 04 00 00 00 08 00 04 00 1D 76 30 00 01 00 01 00 FF 0C", "########", 4, 0,
     "page", 0x1102},
};

TEST(VirtualPrinter, DrawsImagesDotForDot) {
  for (const DotsCase& c : kImageCases) {
    SCOPED_TRACE(c.name);
    EngineOptions options = paper();
    options.model_id = c.model_id;
    Printed printed = print(hex(c.input), options);
    Bitmap picture = only_picture(printed, c.kind);
    const std::string& e = c.expected;
    const auto w = static_cast<int>(std::min(e.find('|'), e.size()));
    const auto h = static_cast<int>(std::count(e.begin(), e.end(), '|')) + 1;
    EXPECT_EQ(art(picture, c.x, c.y, w, h), e);
    EXPECT_EQ(dot_count(picture), static_cast<size_t>(std::count(e.begin(), e.end(), '#')))
        << "dots outside the expected place";
    EXPECT_EQ(picture.width, kPaper);
  }
}

Bitmap glyph_picture(const std::string& input) {
  return only_picture(print(hex(input)));
}

// Each text mode, font and code table against the plain "H" of font A; the
// fonts' own glyphs must differ from it for the rows to mean anything.
TEST(VirtualPrinter, TextModesAndFontsShapeTheGlyph) {
  const Bitmap h = region(glyph_picture("48 0A"), 0, 0, 12, 24);
  ASSERT_GT(dot_count(h), 20u);
  Bitmap reversed = h, underlined = h;
  for (uint8_t& d : reversed.dots) d ^= 1;
  for (int x = 0; x < 12; ++x) underlined.at(x, 22) = underlined.at(x, 23) = 1;
  Bitmap euro(12, 24), c_cedilla(12, 24), bold(12, 24), font_b(12, 24), chinese(24, 24);
  draw(euro, fonts().latin(VW('\u20AC'), false, false), 0, 0);
  draw(c_cedilla, fonts().latin(VW('\u00C7'), false, false), 0, 0);
  draw(bold, fonts().latin(VW('H'), false, true), 0, 0);
  draw(font_b, fonts().latin(VW('H'), true, false), 0, 0);
  draw(chinese, fonts().chinese(0xD6D0, false), 0, 0);
  for (const Bitmap* glyph : {&euro, &c_cedilla, &bold, &font_b, &chinese}) {
    EXPECT_GT(dot_count(*glyph), 10u);
    EXPECT_NE(glyph->dots, h.dots);
  }
  EXPECT_EQ(dot_count(region(font_b, 0, 0, 9, 17)), dot_count(font_b)) << "font B's 9 x 17 cell";
  const std::string user_table_16 =
      "1D 28 45 03 00 01 49 4E 1D 28 45 04 00 05 08 10 00 1D 28 45 02 00 06 08 01 49 4E "
      "1D 28 45 04 00 02 4F 55 54 ";
  struct Case {
    std::string input;
    int x, y;
    Bitmap expected;
  };
  const Case cases[] = {
      {"1D 21 11 48 0A", 0, 0, scaled(h, 2, 2)},
      {"1D 21 02 48 0A", 0, 0, scaled(h, 1, 3)},
      {"1B 21 20 48 0A", 0, 0, scaled(h, 2, 1)},
      {"1D 42 01 48 0A", 0, 0, reversed},
      {"1B 2D 02 48 0A", 0, 0, underlined},
      {"1B 61 02 48 0A", kPaper - 12, 0, h},
      {"1B 61 01 48 0A", (kPaper - 12) / 2, 0, h},
      {"1B 20 04 20 48 0A", 16, 0, h},
      {"48 0A 48 0A", 0, 30, h},
      {"1B 33 28 48 0A 48 0A", 0, 40, h},
      {"1B 24 14 00 48 0A", 20, 0, h},
      {"80 0A", 0, 0, c_cedilla},
      {"1B 74 10 80 0A", 0, 0, euro},
      {user_table_16 + "80 0A", 0, 0, euro},
      {"1B 45 01 48 0A", 0, 0, bold},
      {"1B 4D 01 48 0A", 0, 0, font_b},
      {"1C 26 D6 D0 0A", 0, 0, chinese},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.input);
    const Bitmap picture = glyph_picture(c.input);
    const Bitmap got = region(picture, c.x, c.y, c.expected.width, c.expected.height);
    EXPECT_EQ(got.dots, c.expected.dots);
    EXPECT_EQ(dot_count(picture), dot_count(c.expected) * (c.y > 0 ? 2 : 1));
  }
}

// Every barcode and symbol read back from the picture with zbar.
std::vector<std::string> decode(const Bitmap& picture) {
  std::vector<uint8_t> gray(picture.dots.size());
  for (size_t i = 0; i < gray.size(); ++i) gray[i] = picture.dots[i] != 0 ? 0 : 255;
  ImageScanner scanner;
  scanner.set_config(ZBAR_NONE, ZBAR_CFG_ENABLE, 1);
  Image image(picture.width, picture.height, "Y800", gray.data(), gray.size());
  scanner.scan(image);
  std::vector<std::string> found;
  for (auto s = image.symbol_begin(); s != image.symbol_end(); ++s) {
    found.push_back(s->get_type_name() + ":" + s->get_data());
  }
  return found;
}

TEST(VirtualPrinter, BarcodesAndSymbolsDecodeToTheirData) {
  struct Case {
    const char* input;
    const char* decoded;
  };
  const Case cases[] = {
      {"1D 6B 49 0D 7B 42 30 30 30 31 2D 30 30 30 31 33 37", "CODE-128:0001-000137"},
      {"1D 6B 49 05 7B 43 0C 22 38", "CODE-128:123456"},
      {"1D 6B 02 34 30 30 36 33 38 31 33 33 33 39 33 00", "EAN-13:4006381333931"},
      {"1D 6B 44 07 39 36 33 38 35 30 37", "EAN-8:96385074"},
      {"1D 6B 41 0B 30 33 36 30 30 30 32 39 31 34 35", "UPC-A:036000291452"},
      {"1D 6B 01 30 31 32 33 34 35 36 00", "UPC-E:01234565"},
      {"1D 6B 04 43 4F 44 45 33 39 00", "CODE-39:CODE39"},
      {"1D 6B 05 31 32 33 34 35 36 37 38 00", "I2/5:12345678"},
      {"1D 6B 06 41 34 30 31 35 36 42 00", "Codabar:A40156B"},
      {"1D 6B 48 06 43 4F 44 45 39 33", "CODE-93:CODE93"},
      {"1D 28 6B 04 00 31 41 32 00 1D 28 6B 03 00 31 43 04 1D 28 6B 03 00 31 45 31 "
       "1D 28 6B 06 00 31 50 30 41 42 43 1D 28 6B 03 00 31 51 30",
       "QR-Code:ABC"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.input);
    Printed printed =
        print(hex(std::string("1D 77 02 1D 68 40 1D 48 02 1B 61 01 ") + c.input), paper(576));
    const Bitmap picture = only_picture(printed);
    EXPECT_EQ(decode(picture), std::vector<std::string>{c.decoded});
  }
}

TEST(VirtualPrinter, Pdf417RowsFollowModuleWidthAndRowHeight) {
  // zbar does not read PDF417; its rows are checked by their size instead:
  // module width 2, rows 3 module widths high.
  const Printed printed = print(hex("1D 28 6B 03 00 30 43 02 1D 28 6B 03 00 30 44 03 "
                                    "1D 28 6B 06 00 30 50 30 41 42 43 1D 28 6B 03 00 30 51 30"),
                                paper(576));
  const Bitmap picture = only_picture(printed);
  EXPECT_EQ(picture.height % 6, 0);
  EXPECT_GT(dot_count(picture), 100u);
  for (int y = 0; y < picture.height; y += 6) {
    for (int r = 1; r < 6; ++r)
      EXPECT_EQ(art(picture, 0, y, 576, 1), art(picture, 0, y + r, 576, 1));
  }
}

TEST(VirtualPrinter, AnswersFromItsConditions) {
  struct Case {
    Conditions conditions;
    const char* query;
    const char* answer;
    uint32_t type_flags = 0;
  };
  const Case cases[] = {
      {{}, "10 04 01", "12"},
      {{.offline = true}, "10 04 01", "1A"},
      {{.cover_open = true}, "10 04 01", "1A"},
      {{.drawer_open = true}, "10 04 01", "16"},
      {{.cover_open = true}, "10 04 02", "16"},
      {{.paper_out = true}, "10 04 02", "32"},
      {{.paper_out = true}, "10 04 03", "12"},
      {{.paper_near_end = true}, "10 04 04", "1E"},
      {{.paper_out = true}, "10 04 04", "7E"},
      {{.paper_out = true}, "1B 76", "01"},
      {{.offline = true}, "1B 76", "02"},
      {{.paper_near_end = true}, "1B 76", "00"},
      {{.paper_near_end = true}, "1D 72 01", "03"},
      {{.paper_out = true}, "1D 72 31", "0F"},
      {{.drawer_open = true}, "1D 72 02", "01"},
      {{}, "1D 72 02", "00"},
      {{}, "1D 49 41", "5F 31 2E 32 2E 33 20 56 4F 52 4E 00"},
      {{}, "1B 23 2A 0A 00", "31 2E 32 2E 33 00"},
      {{},
       "1D 28 6B 03 00 31 43 04 1D 28 6B 06 00 31 50 30 41 42 43 1D 28 6B 03 00 31 52 30",
       "37 36 38 34 1F 38 34 1F 31 00"},
      {{}, "5A 5A 5A 47 45 54 56 45 52 53 49 4F 4E", "01 02 03 00", 0x2},  // the text query
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.query);
    EngineOptions options = paper(kPaper, c.conditions);
    options.type_flags = c.type_flags;
    EXPECT_EQ(print(hex(c.query), options).answers,
              std::vector<std::vector<uint8_t>>{hex(c.answer)});
  }
}

TEST(VirtualPrinter, CutsEndPicturesAndUnknownBytesAreLogged) {
  const Printed printed = print(hex("41 0A 1D 56 42 03 07 42 0A 1D 56 00 1B"));
  ASSERT_EQ(printed.pictures.size(), 2u);
  EXPECT_EQ(printed.pictures[0].second.height, 30 + 3);
  auto logged = [&](const std::string& text) {
    return std::any_of(printed.logs.begin(), printed.logs.end(), [&](const std::string& line) {
      return line.find(text) != std::string::npos;
    });
  };
  EXPECT_TRUE(logged("offset 0x0006: unknown byte 0x07 skipped"));
  EXPECT_TRUE(logged("offset 0x000C: command cut short after 1 byte, dropped"));
  // A command that claims more than the printer holds is skipped, not kept.
  const Printed huge = print(hex("1D 38 4C FF FF FF FF 30 43 30 41 42"));
  ASSERT_FALSE(huge.logs.empty());
  EXPECT_NE(huge.logs[0].find("too long, skipped"), std::string::npos);
}

}  // namespace
}  // namespace vorn::vprinter
