// The annotator reads bytes that come from printers' command streams and
// from files: every command must be cut at the right length, and nothing
// the bytes claim may lead it past their end.
#include "escpos_annotate.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/fake_session.h"

namespace vorn::cli {
namespace {

using test::hex;

struct Expected {
  size_t offset;
  size_t length;
  std::string description;
};

struct Row {
  const char* name;
  std::string input;  // hex
  std::vector<Expected> expected;
};

std::string zeros(size_t count) {
  std::string text;
  for (size_t i = 0; i < count; ++i) text += " 00";
  return text;
}

void expect_annotation(const Row& row) {
  std::vector<uint8_t> bytes = hex(row.input);
  std::vector<AnnotatedCommand> got = annotate_escpos(bytes);
  ASSERT_EQ(got.size(), row.expected.size()) << row.name << "\n" << format_annotation(bytes, got);
  for (size_t i = 0; i < got.size(); ++i) {
    EXPECT_EQ(got[i].offset, row.expected[i].offset) << row.name << " entry " << i;
    EXPECT_EQ(got[i].length, row.expected[i].length) << row.name << " entry " << i;
    EXPECT_EQ(got[i].description, row.expected[i].description) << row.name << " entry " << i;
  }
}

const std::vector<Row>& complete_rows() {
  static const std::vector<Row> kRows = {
      {"initialise", "1B 40", {{0, 2, "ESC @ initialise"}}},
      {"centre", "1B 61 01", {{0, 3, "ESC a 1 centre"}}},
      {"right as character", "1B 61 32", {{0, 3, "ESC a 50 right"}}},
      {"double size", "1D 21 11", {{0, 3, "GS ! 0x11 double width and height"}}},
      {"size with bit 3", "1D 21 08", {{0, 3, "GS ! 0x08 invalid character size"}}},
      {"print mode bits",
       "1B 21 38",
       {{0, 3, "ESC ! 0x38 print mode bold, double height, double width"}}},
      {"text and line feed",
       "54 6F 74 61 6C 20 20 31 32 2E 35 30 0A",
       {{0, 12, R"(text "Total  12.50")"}, {12, 1, "LF"}}},
      {"text with quote and code page byte", "41 22 42 22 B0", {{0, 5, R"(text "A\"B\"\xB0")"}}},
      {"PrintText AB centred bold double",
       "1B 61 01 1B 4D 00 1B 45 01 1B 2D 00 1D 42 00 1B 47 00 1D 21 11 41 42",
       {{0, 3, "ESC a 1 centre"},
        {3, 3, "ESC M 0 font A"},
        {6, 3, "ESC E 1 bold on"},
        {9, 3, "ESC - 0 underline off"},
        {12, 3, "GS B 0 reverse off"},
        {15, 3, "ESC G 0 double-strike off"},
        {18, 3, "GS ! 0x11 double width and height"},
        {21, 2, R"(text "AB")"}}},
      {"CODE128 counted",
       "1D 6B 49 06 7B 42 31 32 33 34",
       {{0, 10, R"(GS k barcode CODE128, 6 bytes "{B1234")"}}},
      {"CODE39 ended by NUL",
       "1D 6B 04 31 32 33 34 35 00 0A",
       {{0, 9, R"(GS k barcode CODE39, 5 bytes "12345")"}, {9, 1, "LF"}}},
      {"CODE128 packed digits are not quoted",
       "1D 6B 49 05 7B 43 0C 22 38",
       {{0, 9, "GS k barcode CODE128, 5 bytes"}}},
      {"barcode settings",
       "1D 77 02 1D 68 50 1D 48 02",
       {{0, 3, "GS w 2 barcode module width 2"},
        {3, 3, "GS h 80 barcode height 80 dots"},
        {6, 3, "GS H 2 HRI below"}}},
      {"QR sequence of PrintSymbol",
       "1B 61 01 1D 28 6B 04 00 31 41 31 00 1D 28 6B 03 00 31 43 04 1D 28 6B 03 00 31 45 31 "
       "1D 28 6B 06 00 31 50 30 41 42 43 1D 28 6B 03 00 31 51 30",
       {{0, 3, "ESC a 1 centre"},
        {3, 9, "GS ( k QR select model 1"},
        {12, 8, "GS ( k QR module size 4"},
        {20, 8, "GS ( k QR error correction M"},
        {28, 11, R"(GS ( k QR store data (3 bytes) "ABC")"},
        {39, 8, "GS ( k QR print symbol"}}},
      {"PDF417 settings",
       "1D 28 6B 03 00 30 43 03 1D 28 6B 04 00 30 45 30 35",
       {{0, 8, "GS ( k PDF417 module width 3"}, {8, 9, "GS ( k PDF417 error correction level 5"}}},
      {"partial cut after feed", "1D 56 42 03", {{0, 4, "GS V 66 3 partial cut after feeding 3"}}},
      {"full cut without feed byte", "1D 56 00 0A", {{0, 3, "GS V 0 full cut"}, {3, 1, "LF"}}},
      {"drawer pulse",
       "1B 70 00 32 32",
       {{0, 5, "ESC p 0 50 50 drawer pulse pin 2, on 100 ms, off 100 ms"}}},
      {"clear buffers", "10 14 08 01 03 14 01 06 02 08", {{0, 10, "DLE DC4 8 clear buffers"}}},
      {"status queries",
       "10 04 04 1D 72 02 1D 49 41 1B 23 2A 0A 00 1B 76",
       {{0, 3, "DLE EOT 4 paper sensor query"},
        {3, 3, "GS r 2 drawer status query"},
        {6, 3, "GS I 65 firmware version query"},
        {9, 5, "ESC # * firmware version query"},
        {14, 2, "ESC v paper sensor status query"}}},
      {"page mode job",
       "1B 4C 1B 57 00 00 00 00 80 01 C8 00 1B 24 84 00 1D 24 2C 01 0C",
       {{0, 2, "ESC L select page mode"},
        {2, 10, "ESC W print area x 0 y 0 width 384 height 200"},
        {12, 4, "ESC $ absolute position 132"},
        {16, 4, "GS $ vertical position 300"},
        {20, 1, "FF print and return to standard mode"}}},
      {"raster image",
       "1D 76 30 00 02 00 02 00 FF 00 FF 00",
       {{0, 12, "GS v 0 raster image 16x2"}}},
      {"raster image scaled",
       "1D 76 30 03 01 00 01 00 80",
       {{0, 9, "GS v 0 raster image 8x1, double width and height"}}},
      {"compressed raster of repeats",
       "1D 76 30 20 04 00 02 00 FD 00 FD 00 0A",
       {{0, 12, "GS v 0 compressed raster image 32x2 (12 bytes)"}, {12, 1, "LF"}}},
      {"compressed raster of literal and mixed rows",
       "1D 76 30 20 04 00 02 00 03 41 42 43 43 FE 41 00 42 1B 40",
       {{0, 17, "GS v 0 compressed raster image 32x2 (17 bytes)"}, {17, 2, "ESC @ initialise"}}},
      {"define NV graphic",
       "1D 28 4C 0D 00 30 43 30 41 42 01 08 00 02 00 31 FF 00",
       {{0, 18, R"(GS ( L define NV graphic key "AB" 8x2)"}}},
      {"define NV graphic, long form",
       "1D 38 4C 0D 00 00 00 30 43 30 41 42 01 08 00 02 00 31 FF 00",
       {{0, 20, R"(GS 8 L define NV graphic key "AB" 8x2)"}}},
      {"store in print buffer",
       "1D 28 4C 0C 00 30 70 30 01 01 31 08 00 02 00 FF 00",
       {{0, 17, "GS ( L store graphic in print buffer 8x2"}}},
      {"print and delete graphics",
       "1D 28 4C 06 00 30 45 41 42 01 01 1D 28 4C 02 00 30 32 1D 28 4C 05 00 30 41 43 4C 52",
       {{0, 11, R"(GS ( L print NV graphic key "AB")"},
        {11, 7, "GS ( L print graphic in print buffer"},
        {18, 10, "GS ( L delete all NV graphics"}}},
      {"NV bit images",
       "1C 71 02 02 00 02 00" + zeros(32) + " 02 00 03 00" + zeros(48) + " 1C 70 01 00",
       {{0, 91, "FS q define 2 NV bit images 16x16, 16x24"},
        {91, 4, "FS p 1 0 print NV bit image 1"}}},
      {"downloaded bit image",
       "1D 2A 01 01" + zeros(8) + " 1D 2F 00",
       {{0, 12, "GS * define downloaded bit image 8x8"},
        {12, 3, "GS / 0 print downloaded bit image"}}},
      {"buzzer", "12 27 77 10 02 0D 0A", {{0, 7, "DC2 ' w buzzer mode 2"}}},
      {"user setting mode enter",
       "1D 28 45 03 00 01 49 4E",
       {{0, 8, "GS ( E 1 enter user setting mode"}}},
      // The parameter count says 2, so the printer reads the last three
      // bytes as what follows the command.
      {"user setting function with bytes past its count",
       "1D 28 45 02 00 06 08 01 49 4E",
       {{0, 7, "GS ( E 6 user setting function"},
        {7, 1, "unknown byte 0x01"},
        {8, 2, R"(text "IN")"}}},
      {"unknown control byte", "07 7F", {{0, 1, "unknown byte 0x07"}, {1, 1, "unknown byte 0x7F"}}},
      {"unknown ESC command", "1B 7A 41", {{0, 2, "ESC z unknown command"}, {2, 1, R"(text "A")"}}},
      {"unknown GS command", "1D 01", {{0, 2, "GS 0x01 unknown command"}}},
  };
  return kRows;
}

TEST(EscposAnnotate, CompleteCommands) {
  for (const Row& row : complete_rows()) expect_annotation(row);
}

TEST(EscposAnnotate, TruncatedCommands) {
  const std::vector<Row> rows = {
      {"ESC alone", "1B", {{0, 1, "ESC, truncated after 1 byte"}}},
      {"GS alone after a command",
       "1B 40 1D",
       {{0, 2, "ESC @ initialise"}, {2, 1, "GS, truncated after 1 byte"}}},
      {"parameter missing", "1B 61", {{0, 2, "ESC a justification, truncated after 2 bytes"}}},
      {"drawer pulse short",
       "1B 70 00 32",
       {{0, 4, "ESC p drawer pulse, truncated after 4 bytes"}}},
      {"prefix cut", "1D 76", {{0, 2, "GS v 0 raster image, truncated after 2 bytes"}}},
      {"raster header cut",
       "1D 76 30 00 02 00",
       {{0, 6, "GS v 0 raster image, truncated after 6 bytes"}}},
      {"raster data cut",
       "1D 76 30 00 02 00 02 00 FF 00 FF",
       {{0, 11, "GS v 0 raster image, truncated after 11 bytes"}}},
      {"raster claiming 4 GB",
       "1D 76 30 00 FF FF FF FF 00",
       {{0, 9, "GS v 0 raster image, truncated after 9 bytes"}}},
      {"compressed raster row missing",
       "1D 76 30 20 04 00 02 00 FD 00",
       {{0, 10, "GS v 0 raster image, truncated after 10 bytes"}}},
      {"compressed raster literal cut",
       "1D 76 30 20 04 00 01 00 03 41 42",
       {{0, 11, "GS v 0 raster image, truncated after 11 bytes"}}},
      {"compressed raster repeat byte missing",
       "1D 76 30 20 04 00 01 00 FD",
       {{0, 9, "GS v 0 raster image, truncated after 9 bytes"}}},
      {"barcode without NUL", "1D 6B 04 31 32", {{0, 5, "GS k barcode, truncated after 5 bytes"}}},
      {"barcode shorter than its count",
       "1D 6B 49 06 7B 42",
       {{0, 6, "GS k barcode, truncated after 6 bytes"}}},
      {"barcode type missing", "1D 6B", {{0, 2, "GS k barcode, truncated after 2 bytes"}}},
      {"QR data cut", "1D 28 6B 06 00 31 50", {{0, 7, "GS ( k symbol, truncated after 7 bytes"}}},
      {"QR count cut", "1D 28 6B 06", {{0, 4, "GS ( k symbol, truncated after 4 bytes"}}},
      {"GS ( alone", "1D 28", {{0, 2, "GS ( command, truncated after 2 bytes"}}},
      {"long graphics count cut",
       "1D 38 4C 0D 00",
       {{0, 5, "GS 8 L graphics, truncated after 5 bytes"}}},
      {"long graphics claiming 4 GB",
       "1D 38 4C FF FF FF FF 30",
       {{0, 8, "GS 8 L graphics, truncated after 8 bytes"}}},
      {"NV bit image header cut",
       "1C 71 02 01 00 01 00" + zeros(8) + " 01",
       {{0, 16, "FS q NV bit images, truncated after 16 bytes"}}},
      {"clear buffers cut",
       "10 14 08 01",
       {{0, 4, "DLE DC4 real-time command, truncated after 4 bytes"}}},
      {"buzzer cut", "12 27", {{0, 2, "DC2 buzzer, truncated after 2 bytes"}}},
      {"firmware query cut",
       "1B 23 2A",
       {{0, 3, "ESC # * firmware query, truncated after 3 bytes"}}},
  };
  for (const Row& row : rows) expect_annotation(row);
}

// Every prefix of a stream of real commands, each in a buffer of its own
// size, so a read past the end shows under the address sanitizer.
TEST(EscposAnnotate, EveryPrefixIsCoveredWithoutGaps) {
  std::vector<uint8_t> stream;
  for (const Row& row : complete_rows()) {
    std::vector<uint8_t> bytes = hex(row.input);
    stream.insert(stream.end(), bytes.begin(), bytes.end());
  }
  for (size_t n = 0; n <= stream.size(); ++n) {
    std::vector<uint8_t> prefix(stream.begin(), stream.begin() + static_cast<ptrdiff_t>(n));
    size_t covered = 0;
    for (const AnnotatedCommand& command : annotate_escpos(prefix)) {
      ASSERT_EQ(command.offset, covered) << "prefix " << n;
      ASSERT_GE(command.length, 1u) << "prefix " << n;
      covered += command.length;
    }
    ASSERT_EQ(covered, n);
  }
  for (const AnnotatedCommand& command : annotate_escpos(stream)) {
    EXPECT_EQ(command.description.find("truncated"), std::string::npos) << command.description;
  }
}

TEST(EscposAnnotate, HexSummaryShowsShortCommandsWhole) {
  EXPECT_EQ(hex_summary(hex("1B 40")), "1B 40");
  EXPECT_EQ(hex_summary(hex("00 01 02 03 04 05 06 07 08 09 0A 0B")),
            "00 01 02 03 04 05 06 07 08 09 0A 0B");
  EXPECT_EQ(hex_summary(hex("00 01 02 03 04 05 06 07 08 09 0A 0B 0C")),
            "00 01 02 03 04 05 06 07 \xE2\x80\xA6 (13 bytes)");
}

TEST(EscposAnnotate, DescriptionsLineUpAfterAbbreviatedBytes) {
  std::vector<uint8_t> bytes = hex("1B 40 1D 76 30 00 02 00 03 00 FF 00 FF 00 FF 00");
  std::string text = format_annotation(bytes, annotate_escpos(bytes));
  std::string first = text.substr(0, text.find('\n') + 1);
  std::string second = text.substr(first.size());
  EXPECT_EQ(first, "0000  1B 40" + std::string(34, ' ') + "ESC @ initialise\n");
  // The ellipsis takes three bytes for one column.
  EXPECT_EQ(second.find("GS v 0"), first.find("ESC @") + 2) << text;
  EXPECT_EQ(second.substr(0, 6), "0002  ");
}

}  // namespace
}  // namespace vorn::cli
