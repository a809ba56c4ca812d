// The annotator reads bytes that come from printers' command streams and
// from files: every command must be cut at the right length, and nothing
// the bytes claim may lead it past their end.
#include "escpos_annotate.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "support/fake_session.h"

namespace vorn::cli {
namespace {

using test::hex;

// Each entry: the length of the command and its description; entries follow
// one another without gaps.
using Entries = std::vector<std::pair<size_t, std::string>>;

std::string zeros(size_t count) {
  std::string text;
  for (size_t i = 0; i < count; ++i) text += " 00";
  return text;
}

void expect_annotation(const std::string& input, const Entries& expected,
                       uint32_t model_id = kAnyModel) {
  const std::vector<uint8_t> bytes = hex(input);
  const std::vector<AnnotatedCommand> got = annotate_escpos(bytes, model_id);
  ASSERT_EQ(got.size(), expected.size()) << input << "\n" << format_annotation(bytes, got);
  size_t offset = 0;
  for (size_t i = 0; i < got.size(); ++i) {
    EXPECT_EQ(got[i].offset, offset) << input;
    EXPECT_EQ(got[i].length, expected[i].first) << input;
    EXPECT_EQ(got[i].description, expected[i].second) << input;
    offset += got[i].length;
  }
}

const std::vector<std::pair<std::string, Entries>> kComplete = {
    {"1B 40 1B 61 32", {{2, "ESC @ initialise"}, {3, "ESC a 50 right"}}},
    {"1B 21 38", {{3, "ESC ! 0x38 print mode bold, double height, double width"}}},
    {"41 22 42 B0 0A", {{4, R"(text "A\"B\xB0")"}, {1, "LF"}}},
    {"1D 6B 49 06 7B 42 31 32 33 34", {{10, R"(GS k barcode CODE128, 6 bytes "{B1234")"}}},
    {"1D 6B 04 31 32 00", {{6, R"(GS k barcode CODE39, 2 bytes "12")"}}},
    {"1D 6B 49 03 7B 43 0C", {{7, "GS k barcode CODE128, 3 bytes"}}},  // packed: not quoted
    {"1D 28 6B 06 00 31 50 30 41 42 43 1D 28 6B 03 00 31 45 31",
     {{11, R"(GS ( k QR store data (3 bytes) "ABC")"}, {8, "GS ( k QR error correction M"}}},
    {"1D 56 42 03 1D 56 00",
     {{4, "GS V 66 3 partial cut after feeding 3"}, {3, "GS V 0 full cut"}}},
    {"1B 70 00 32 32", {{5, "ESC p 0 50 50 drawer pulse pin 2, on 100 ms, off 100 ms"}}},
    {"10 14 08 01 03 14 01 06 02 08 10 04 04",
     {{10, "DLE DC4 8 clear buffers"}, {3, "DLE EOT 4 paper sensor query"}}},
    {"1B 57 00 00 00 00 80 01 C8 00", {{10, "ESC W print area x 0 y 0 width 384 height 200"}}},
    {"1B 20 03", {{3, "ESC SP 3 right-side character spacing 3"}}},
    {"1D 76 30 03 01 00 01 00 80", {{9, "GS v 0 raster image 8x1, double width and height"}}},
    // Compressed rows are decoded to find their end: literal, repeat, mixed.
    {"1D 76 30 20 04 00 02 00 03 41 42 43 43 FE 41 00 42 1B 40",
     {{17, "GS v 0 compressed raster image 32x2 (17 bytes)"}, {2, "ESC @ initialise"}}},
    {"1D 38 4C 0D 00 00 00 30 43 30 41 42 01 08 00 02 00 31 FF 00",
     {{20, R"(GS 8 L define NV graphic key "AB" 8x2)"}}},
    {"1C 71 02 02 00 02 00" + zeros(32) + " 02 00 03 00" + zeros(48),
     {{91, "FS q define 2 NV bit images 16x16, 16x24"}}},
    {"1D 2A 01 01" + zeros(8), {{12, "GS * define downloaded bit image 8x8"}}},
    // The count says 2, so the printer reads the last three bytes as what follows.
    {"1D 28 45 02 00 06 08 01 49 4E",
     {{7, "GS ( E 6 user setting function"}, {1, "unknown byte 0x01"}, {2, R"(text "IN")"}}},
    {"7F 1B 7A 1D 01",
     {{1, "unknown byte 0x7F"}, {2, "ESC z unknown command"}, {2, "GS 0x01 unknown command"}}},
};

TEST(EscposAnnotate, CompleteCommands) {
  for (const auto& [input, expected] : kComplete) expect_annotation(input, expected);
}

// A model's own form of a command replaces the standard one for that model
// only; the other commands read as usual.
TEST(EscposAnnotate, ModelForms) {
  const struct {
    uint32_t model_id;
    const char* input;
    Entries expected;
  } rows[] = {
      {0x1102,
       "1B 57 00 00 00 00 00 80 01 C8 00 1B 40",
       {{11, "ESC W print area x 0 y 0 width 384 height 200"}, {2, "ESC @ initialise"}}},
      {0x1102, "1B 57 00 00 00", {{5, "ESC W print area, truncated after 5 bytes"}}},
      {0x1103,
       "1B 57 00 00 00 00 80 01 C8 00",
       {{10, "ESC W print area x 0 y 0 width 384 height 200"}}},
  };
  for (const auto& row : rows) expect_annotation(row.input, row.expected, row.model_id);
}

// Every command the reader knows, with each parameter byte a control byte:
// no description may carry one to the terminal.
TEST(EscposAnnotate, ControlBytesInParametersNeverShowRaw) {
  constexpr size_t kLongest = 70000;  // longer commands stay cut short
  for (uint32_t model_id : {kAnyModel, 0x1102u}) {
    for (auto shapes : {command_shapes(), model_shapes(model_id)}) {
      for (const CommandShape& shape : shapes) {
        bool described = false;
        for (uint8_t control : {0x00, 0x0A, 0x1B, 0x7F}) {
          std::vector<uint8_t> command(shape.prefix.begin(), shape.prefix.end());
          for (;;) {  // parameters until the command is whole
            const uint64_t needed = std::max<uint64_t>(
                shape.length != nullptr ? shape.length(command) : shape.fixed_length,
                shape.prefix.size());
            if (needed <= command.size() || needed > kLongest) break;
            command.resize(needed, control);
          }
          const std::vector<AnnotatedCommand> got = annotate_escpos(command, model_id);
          described |= got.size() == 1 && got[0].length == command.size();
          const std::string text = format_annotation(command, got);
          for (char c : text) {
            ASSERT_TRUE(c == '\n' || (static_cast<uint8_t>(c) >= 0x20 && c != 0x7F))
                << shape.name << " with " << int{control} << ":\n"
                << text;
          }
        }
        EXPECT_TRUE(described) << shape.name;
      }
    }
  }
}

TEST(EscposAnnotate, TruncatedCommands) {
  const std::pair<const char*, const char*> rows[] = {
      {"1B", "ESC, truncated after 1 byte"},
      {"1D 76", "GS v 0 raster image, truncated after 2 bytes"},  // prefix cut
      {"1D 76 30 00 FF FF FF FF 00", "GS v 0 raster image, truncated after 9 bytes"},
      {"1D 76 30 20 04 00 02 00 FD 00", "GS v 0 raster image, truncated after 10 bytes"},
      {"1D 38 4C FF FF FF FF 30", "GS 8 L graphics, truncated after 8 bytes"},
      {"1C 71 02 01 00 01 00 00 00 00 00 00 00 00 00 01",
       "FS q NV bit images, truncated after 16 bytes"},
  };
  for (const auto& [input, description] : rows) {
    expect_annotation(input, {{hex(input).size(), description}});
  }
}

TEST(EscposAnnotate, TwelveBytesShowWholeAndDescriptionsLineUp) {
  EXPECT_EQ(hex_summary(hex("00 01 02 03 04 05 06 07 08 09 0A 0B")),
            "00 01 02 03 04 05 06 07 08 09 0A 0B");
  EXPECT_EQ(hex_summary(hex("00 01 02 03 04 05 06 07 08 09 0A 0B 0C")),
            "00 01 02 03 04 05 06 07 \xE2\x80\xA6 (13 bytes)");
  const std::vector<uint8_t> bytes = hex("1B 40 1D 76 30 00 02 00 03 00 FF 00 FF 00 FF 00");
  const std::string text = format_annotation(bytes, annotate_escpos(bytes));
  const std::string first = text.substr(0, text.find('\n') + 1);
  EXPECT_EQ(first, "0000  1B 40" + std::string(34, ' ') + "ESC @ initialise\n");
  // The ellipsis takes three bytes for one column.
  EXPECT_EQ(text.find("GS v 0"), first.size() + first.find("ESC @") + 2) << text;
}

}  // namespace
}  // namespace vorn::cli
