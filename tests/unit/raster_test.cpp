// PrintImage and PrintBitMapData through the public API on a fake session,
// with pictures handed in through the image source instead of files.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "image/conversion.h"
#include "image/image_source.h"
#include "support/fake_images.h"

namespace vorn::test {
namespace {

void remove_capability_record(FakeSession& session) {
  printer::destroy_capability_record(session.context().record);
  session.context().record = nullptr;
}

std::vector<uint8_t> head_of(const std::vector<uint8_t>& bytes, size_t count) {
  return {bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(std::min(count, bytes.size()))};
}

// A 24-bit BMP file of 8 x 2 pixels for the end-to-end checks through the
// real decoder: the top row alternates black and white from the left, the
// bottom row is white.
std::u16string write_test_bmp(const std::string& name) {
  const std::string path = testing::TempDir() + name;
  std::vector<uint8_t> file =
      hex("42 4D 66 00 00 00 00 00 00 00 36 00 00 00"  // file header: 54 + 48 bytes
          "28 00 00 00 08 00 00 00 02 00 00 00 01 00 18 00"
          "00 00 00 00 30 00 00 00 13 0B 00 00 13 0B 00 00 00 00 00 00 00 00 00 00");
  const std::vector<uint8_t> white(24, 0xFF);
  file.insert(file.end(), white.begin(), white.end());  // rows are stored bottom up
  for (int x = 0; x < 8; ++x) file.insert(file.end(), 3, x % 2 == 0 ? 0x00 : 0xFF);
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
  return std::u16string(path.begin(), path.end());
}

// ---- PrintImage: whole commands -----------------------------------------------

TEST(PrintImage, PlainRasterCarriesTheRowsWithTheCallersScale) {
  struct Case {
    int32_t m;
    const char* written;
  };
  const Case cases[] = {
      {0, "1D 76 30 00 02 00 02 00 AA 55 0F F0"},
      {51, "1D 76 30 33 02 00 02 00 AA 55 0F F0"},
      {257, "1D 76 30 01 02 00 02 00 AA 55 0F F0"},  // the low byte counts
  };
  for (const Case& c : cases) {
    FakeSession session("VR-T82B");
    FakeImages images;
    images.add(u"p.png", {16, 2, hex("AA 55 0F F0")});
    EXPECT_EQ(PrintImage(session.handle(), u"p.png", c.m), VORN_OK) << c.m;
    EXPECT_EQ(session.take_written(), hex(c.written)) << c.m;
  }
}

TEST(PrintImage, CompressedRasterCodesEachRowAndIgnoresTheScale) {
  for (int32_t m : {0, 4, 47}) {
    FakeSession session("VR-M58A");
    FakeImages images;
    images.add(u"p.png", {32, 2, hex("41 41 41 42  41 42 43 43")});
    EXPECT_EQ(PrintImage(session.handle(), u"p.png", m), VORN_OK) << m;
    EXPECT_EQ(session.take_written(), hex("1D 76 30 20 04 00 02 00  FE 41 00 42  03 41 42 43 43"))
        << m;
  }
}

TEST(PrintImage, CompressedBlankRowsTakeTwoBytesEach) {
  struct Case {
    int32_t width;
    const char* header;
    const char* row;
  };
  for (const Case& c :
       {Case{24, "1D 76 30 20 03 00 05 00", "FE 00"}, Case{8, "1D 76 30 20 01 00 05 00", "00 00"},
        Case{384, "1D 76 30 20 30 00 05 00", "D1 00"}}) {
    FakeSession session("VR-M58A");
    FakeImages images;
    images.add(u"blank.png", {c.width, 5});
    ASSERT_EQ(PrintImage(session.handle(), u"blank.png", 0), VORN_OK);
    std::vector<uint8_t> expected = hex(c.header);
    for (int row = 0; row < 5; ++row) {
      const std::vector<uint8_t> coded = hex(c.row);
      expected.insert(expected.end(), coded.begin(), coded.end());
    }
    EXPECT_EQ(session.take_written(), expected) << c.width;
  }
}

TEST(PrintImage, SessionWithoutRecordSendsPlainRaster) {
  FakeSession session("VR-M58A");
  remove_capability_record(session);
  FakeImages images;
  images.add(u"p.png", {8, 1, hex("81")});
  EXPECT_EQ(PrintImage(session.handle(), u"p.png", 2), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("1D 76 30 02 01 00 01 00 81"));
}

// ---- PrintImage: size rules, one row per case ---------------------------------

struct SizeCase {
  const char* name;
  const char* model;
  bool without_record;
  int32_t width;
  int32_t height;
  int32_t m;
  int32_t result;
  const char* header;  // the first 8 bytes written when the result is 0
};

class PrintImageSize : public testing::TestWithParam<SizeCase> {};

TEST_P(PrintImageSize, AppliesTheLimitsInOrder) {
  const SizeCase& c = GetParam();
  FakeSession session(c.model);
  if (c.without_record) remove_capability_record(session);
  FakeImages images;
  images.add(u"p.png", {c.width, c.height});
  EXPECT_EQ(PrintImage(session.handle(), u"p.png", c.m), c.result);
  const std::vector<uint8_t> written = session.take_written();
  if (c.result != VORN_OK) {
    EXPECT_TRUE(written.empty());
    EXPECT_TRUE(session.pending().empty());
    return;
  }
  EXPECT_EQ(head_of(written, 8), hex(c.header));
  EXPECT_EQ(written.size(), 8 + image::raster_bytes(c.width, c.height));
}

// VR-T82B: 576 dots; VR-W210A: 1680 dots; VR-K80A: model 0x1721, 576 dots;
// "unknown" has a record with 0 dots per line.
const SizeCase kSizeCases[] = {
    {"width_equal_to_dots", "VR-T82B", false, 576, 1, 0, 0, "1D 76 30 00 48 00 01 00"},
    {"width_one_above_dots", "VR-T82B", false, 577, 1, 0, VORN_ERR_IMAGE_SIZE, ""},
    {"width_0", "VR-T82B", false, 0, 1, 0, VORN_ERR_IMAGE_SIZE, ""},
    {"width_negative", "VR-T82B", false, -8, 1, 0, VORN_ERR_IMAGE_SIZE, ""},
    {"height_0", "VR-T82B", false, 8, 0, 0, VORN_ERR_IMAGE_SIZE, ""},
    {"record_with_0_dots", "unknown", false, 1, 1, 0, VORN_ERR_IMAGE_SIZE, ""},
    {"no_record_576", "VR-W210A", true, 576, 1, 0, 0, "1D 76 30 00 48 00 01 00"},
    {"no_record_577", "VR-W210A", true, 577, 1, 0, VORN_ERR_IMAGE_SIZE, ""},
    {"width_1024", "VR-W210A", false, 1024, 1, 0, 0, "1D 76 30 00 80 00 01 00"},
    {"width_1025_encoder", "VR-W210A", false, 1025, 1, 0, VORN_ERR_PARAMETER, ""},
    {"width_1680_encoder", "VR-W210A", false, 1680, 1, 0, VORN_ERR_PARAMETER, ""},
    {"height_2303", "VR-T82B", false, 8, 2303, 0, 0, "1D 76 30 00 01 00 FF 08"},
    {"height_2304_encoder", "VR-T82B", false, 8, 2304, 0, VORN_ERR_PARAMETER, ""},
    {"height_65535_encoder", "VR-T82B", false, 8, 65535, 0, VORN_ERR_PARAMETER, ""},
    {"height_65536", "VR-T82B", false, 8, 65536, 0, VORN_ERR_IMAGE_SIZE, ""},
    {"k80_height_900", "VR-K80A", false, 8, 900, 0, 0, "1D 76 30 00 01 00 84 03"},
    {"k80_height_901", "VR-K80A", false, 8, 901, 0, VORN_ERR_IMAGE_SIZE, ""},
    {"k80_width_577", "VR-K80A", false, 577, 1, 0, VORN_ERR_IMAGE_SIZE, ""},
    {"m_4", "VR-T82B", false, 8, 1, 4, VORN_ERR_PARAMETER, ""},
    {"m_47", "VR-T82B", false, 8, 1, 47, VORN_ERR_PARAMETER, ""},
    {"m_52", "VR-T82B", false, 8, 1, 52, VORN_ERR_PARAMETER, ""},
    {"m_48", "VR-T82B", false, 8, 1, 48, 0, "1D 76 30 30 01 00 01 00"},
    {"compressed_height_2304", "VR-M58A", false, 8, 2304, 0, VORN_ERR_PARAMETER, ""},
    {"no_escpos_bit", "VR-L80A", false, 8, 1, 0, VORN_ERR_COMMAND_NOT_SUPPORTED, ""},
    {"size_before_escpos_bit", "VR-L80A", false, 577, 1, 0, VORN_ERR_IMAGE_SIZE, ""},
};

INSTANTIATE_TEST_SUITE_P(Cases, PrintImageSize, testing::ValuesIn(kSizeCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(PrintImage, CompressedHeightLimits) {
  FakeSession session("VR-M58A");
  FakeImages images;
  images.add(u"tall.png", {16, 2304});
  images.add(u"ok.png", {16, 2303});
  EXPECT_EQ(PrintImage(session.handle(), u"tall.png", 0), VORN_ERR_PARAMETER);
  EXPECT_TRUE(session.pending().empty());
  EXPECT_TRUE(session.take_written().empty());
  ASSERT_EQ(PrintImage(session.handle(), u"ok.png", 0), VORN_OK);
  // Blank rows of two bytes code as FF 00 each.
  const std::vector<uint8_t> written = session.take_written();
  EXPECT_EQ(head_of(written, 8), hex("1D 76 30 20 02 00 FF 08"));
  EXPECT_EQ(written.size(), 8u + 2 * 2303);
}

// ---- PrintImage: failures leave the buffer as it was --------------------------

TEST(PrintImage, LoadAndConversionFailuresPassThroughUntouched) {
  struct Case {
    const char* name;
    Picture picture;
    int32_t result;
  };
  const Case cases[] = {
      {"missing_file", {.probe_result = 2}, 2},
      {"failed_load_without_error",
       {.width = 8, .height = 1, .reports_size = false},
       VORN_ERR_IMAGE_SIZE},
      {"second_load_fails", {.width = 8, .height = 1, .convert_result = 2}, 2},
      {"work_plane_missing",
       {.width = 8, .height = 1, .convert_result = VORN_ERR_NO_MEMORY},
       VORN_ERR_NO_MEMORY},
  };
  for (const Case& c : cases) {
    for (const char* model : {"VR-T82B", "VR-M58A"}) {
      FakeSession session(model);
      FakeImages images;
      images.add(u"p.png", c.picture);
      leave_pending(session, hex("1B 40"));
      EXPECT_EQ(PrintImage(session.handle(), u"p.png", 0), c.result) << c.name << " " << model;
      EXPECT_EQ(session.pending(), hex("1B 40")) << c.name << " " << model;
      EXPECT_TRUE(session.take_written().empty()) << c.name;
    }
  }
}

TEST(PrintImage, NullPathIsRefused) {
  FakeSession session("VR-T82B");
  FakeImages images;
  EXPECT_EQ(PrintImage(session.handle(), nullptr, 0), VORN_ERR_PARAMETER);
  EXPECT_TRUE(session.pending().empty());
}

TEST(PrintImage, CompressedRowsThatDoNotFitTakeBackTheHeader) {
  FakeSession session("VR-M58A");
  FakeImages images;
  // Two rows coded into 4 + 5 bytes; the buffer cannot grow and keeps 12
  // bytes free: the header fits, the rows do not.
  images.add(u"p.png", {32, 2, hex("41 41 41 42  41 42 43 43")});
  printer::CommandContext& context = session.context();
  const FixedBuffer fixed(session);
  const std::vector<uint8_t> before(context.capacity - 12, 0x0A);
  leave_pending(session, before);
  EXPECT_EQ(PrintImage(session.handle(), u"p.png", 0), VORN_ERR_BUFFER_TOO_SMALL);
  EXPECT_EQ(session.pending(), before);
  // The taken-back header is zeroed, not just forgotten.
  EXPECT_EQ(
      std::vector<uint8_t>(context.buffer + context.length, context.buffer + context.capacity),
      std::vector<uint8_t>(12, 0));
  EXPECT_TRUE(session.take_written().empty());
}

TEST(PrintImage, CompressedRowsLongerThanTheRoomMadeForThemGiveMinus2) {
  // Room is made for the uncoded B x h + 32 bytes; one-byte rows code into
  // two bytes each, so a tall narrow picture outgrows it.
  FakeSession session("VR-M58A");
  FakeImages images;
  images.add(u"narrow.png", {8, 1000});
  EXPECT_EQ(PrintImage(session.handle(), u"narrow.png", 0), VORN_ERR_BUFFER_TOO_SMALL);
  EXPECT_TRUE(session.pending().empty());
  EXPECT_TRUE(session.take_written().empty());
}

// ---- PrintBitMapData -----------------------------------------------------------

struct BitmapCase {
  const char* name;
  const char* model;
  int32_t m;
  int32_t width;
  int32_t height;
  uint8_t fill;  // every data byte
  int32_t result;
  const char* header;
  uint8_t sent;  // every data byte sent
};

class PrintBitMap : public testing::TestWithParam<BitmapCase> {};

TEST_P(PrintBitMap, InvertsAndChecksTheEncoderRanges) {
  const BitmapCase& c = GetParam();
  FakeSession session(c.model);
  const int64_t row = (static_cast<int64_t>(c.width) + 7) / 8;
  std::vector<uint8_t> data(row > 0 && c.height > 0 ? row * c.height : 1, c.fill);
  EXPECT_EQ(PrintBitMapData(session.handle(), c.m, c.width, c.height, data.data()), c.result);
  const std::vector<uint8_t> written = session.take_written();
  if (c.result != VORN_OK) {
    EXPECT_TRUE(written.empty());
    EXPECT_TRUE(session.pending().empty());
    return;
  }
  std::vector<uint8_t> expected = hex(c.header);
  expected.insert(expected.end(), data.size(), c.sent);
  EXPECT_EQ(written, expected);
}

// PrintBitMapData reads nothing from the capability record: "unknown" has 0
// dots per line and still prints 1024 dots.
const BitmapCase kBitmapCases[] = {
    {"width_9_all_blank", "VR-T82B", 0, 9, 2, 0xFF, 0, "1D 76 30 00 02 00 02 00", 0x00},
    {"width_9_all_black", "VR-T82B", 0, 9, 2, 0x00, 0, "1D 76 30 00 02 00 02 00", 0xFF},
    {"pattern_inverted", "VR-T82B", 3, 8, 1, 0x5A, 0, "1D 76 30 03 01 00 01 00", 0xA5},
    {"m_49", "VR-T82B", 49, 8, 1, 0x00, 0, "1D 76 30 31 01 00 01 00", 0xFF},
    {"width_1024", "unknown", 0, 1024, 1, 0xF0, 0, "1D 76 30 00 80 00 01 00", 0x0F},
    {"width_1025", "unknown", 0, 1025, 1, 0xF0, VORN_ERR_PARAMETER, "", 0},
    {"height_2303", "unknown", 0, 8, 2303, 0xFE, 0, "1D 76 30 00 01 00 FF 08", 0x01},
    {"height_2304", "unknown", 0, 8, 2304, 0xFE, VORN_ERR_PARAMETER, "", 0},
    {"width_0", "VR-T82B", 0, 0, 1, 0, VORN_ERR_PARAMETER, "", 0},
    {"height_0", "VR-T82B", 0, 8, 0, 0, VORN_ERR_PARAMETER, "", 0},
    {"width_negative", "VR-T82B", 0, -100, 1, 0, VORN_ERR_PARAMETER, "", 0},
    {"width_huge", "VR-T82B", 0, INT32_MAX, 1, 0, VORN_ERR_PARAMETER, "", 0},
    {"m_4", "VR-T82B", 4, 8, 1, 0, VORN_ERR_PARAMETER, "", 0},
    {"m_47", "VR-T82B", 47, 8, 1, 0, VORN_ERR_PARAMETER, "", 0},
    {"no_escpos_bit", "VR-L80A", 0, 8, 1, 0, VORN_ERR_COMMAND_NOT_SUPPORTED, "", 0},
    {"no_escpos_bit_before_range", "VR-L80A", 0, 0, 1, 0, VORN_ERR_COMMAND_NOT_SUPPORTED, "", 0},
    {"compressed_model_plain", "VR-M58A", 0, 8, 1, 0x00, 0, "1D 76 30 00 01 00 01 00", 0xFF},
};

INSTANTIATE_TEST_SUITE_P(Cases, PrintBitMap, testing::ValuesIn(kBitmapCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(PrintBitMapData, NullDataIsRefused) {
  FakeSession session("VR-T82B");
  EXPECT_EQ(PrintBitMapData(session.handle(), 0, 8, 1, nullptr), VORN_ERR_PARAMETER);
  EXPECT_TRUE(session.pending().empty());
}

TEST(PrintBitMapData, FailureLeavesEarlierBytesAlone) {
  FakeSession session("VR-T82B");
  leave_pending(session, hex("1B 40"));
  const uint8_t data[4] = {0, 0, 0, 0};
  EXPECT_EQ(PrintBitMapData(session.handle(), 4, 16, 1, data), VORN_ERR_PARAMETER);
  EXPECT_EQ(session.pending(), hex("1B 40"));
  const FixedBuffer fixed(session);
  leave_pending(session, std::vector<uint8_t>(session.context().capacity - 11, 0x0A));
  const std::vector<uint8_t> before = session.pending();
  EXPECT_EQ(PrintBitMapData(session.handle(), 0, 16, 2, data), VORN_ERR_BUFFER_TOO_SMALL);
  EXPECT_EQ(session.pending(), before);
}

TEST(PrintBitMapData, EarlierBytesGoOutFirst) {
  FakeSession session("VR-T82B");
  leave_pending(session, hex("1B 40"));
  const uint8_t data[1] = {0x7F};
  ASSERT_EQ(PrintBitMapData(session.handle(), 0, 1, 1, data), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("1B 40 1D 76 30 00 01 00 01 00 80"));
  EXPECT_TRUE(session.pending().empty());
}

TEST(PrintImage, RealFileThroughTheDecoder) {
  FakeSession session("VR-T82B");
  const std::u16string path = write_test_bmp("vorn_raster_test.bmp");
  ASSERT_EQ(PrintImage(session.handle(), path.c_str(), 0), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("1D 76 30 00 01 00 02 00 AA 00"));
  // A missing file gives the system's positive number and appends nothing.
  leave_pending(session, hex("1B 40"));
  EXPECT_GT(PrintImage(session.handle(), u"/nonexistent/vorn.bmp", 0), 0);
  EXPECT_EQ(session.pending(), hex("1B 40"));
}

}  // namespace
}  // namespace vorn::test
