// Stored images (GS ( L / GS 8 L graphics, FS q / FS p, GS * / GS /) through
// the public API on a fake session, with pictures handed in through the image
// source instead of files.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "image/conversion.h"
#include "image/image_source.h"
#include "support/fake_images.h"

namespace vorn::test {
namespace {

std::vector<uint8_t> joined(std::initializer_list<std::vector<uint8_t>> parts) {
  std::vector<uint8_t> all;
  for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
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

using Call = std::function<int32_t(VORN_PRINTER)>;

// ---- Commands without a file ---------------------------------------------------

struct FixedCase {
  const char* name;
  const char* model;
  Call call;
  int32_t result;
  const char* written;
};

class FixedCommand : public testing::TestWithParam<FixedCase> {};

TEST_P(FixedCommand, AppendsItsBytes) {
  const FixedCase& c = GetParam();
  FakeSession session(c.model);
  EXPECT_EQ(c.call(session.handle()), c.result);
  EXPECT_EQ(session.take_written(), hex(c.written));
  EXPECT_TRUE(session.pending().empty());
}

const FixedCase kFixedCases[] = {
    {"print_nv", "VR-T82B", [](VORN_PRINTER h) { return PrintNVImage(h, 32, 126); }, 0,
     "1D 28 4C 06 00 30 45 20 7E 01 01"},
    {"print_nv_low_byte", "VR-T82B", [](VORN_PRINTER h) { return PrintNVImage(h, 0x141, 0x242); },
     0, "1D 28 4C 06 00 30 45 41 42 01 01"},
    {"print_nv_kc1_31", "VR-T82B", [](VORN_PRINTER h) { return PrintNVImage(h, 31, 32); },
     VORN_ERR_PARAMETER, ""},
    {"print_nv_kc1_127", "VR-T82B", [](VORN_PRINTER h) { return PrintNVImage(h, 127, 32); },
     VORN_ERR_PARAMETER, ""},
    {"print_nv_kc2_31", "VR-T82B", [](VORN_PRINTER h) { return PrintNVImage(h, 32, 31); },
     VORN_ERR_PARAMETER, ""},
    {"print_nv_kc2_127", "VR-T82B", [](VORN_PRINTER h) { return PrintNVImage(h, 32, 127); },
     VORN_ERR_PARAMETER, ""},
    {"print_download", "VR-T82B", [](VORN_PRINTER h) { return PrintDownloadedImage(h, 65, 66); }, 0,
     "1D 28 4C 06 00 30 55 41 42 01 01"},
    {"print_download_kc2_127", "VR-T82B",
     [](VORN_PRINTER h) { return PrintDownloadedImage(h, 65, 127); }, VORN_ERR_PARAMETER, ""},
    {"print_buffered", "VR-T82B", PrintBufferedImage, 0, "1D 28 4C 02 00 30 32"},
    {"delete_all_nv", "VR-T82B", DeleteAllNVImages, 0, "1D 28 4C 05 00 30 41 43 4C 52"},
    {"print_nv_bit_image", "VR-T82B",
     [](VORN_PRINTER h) { return PrintNVImageCompatible(h, 1, 0); }, 0, "1C 70 01 00"},
    {"print_nv_bit_image_51", "VR-T82B",
     [](VORN_PRINTER h) { return PrintNVImageCompatible(h, 2, 51); }, 0, "1C 70 02 33"},
    {"print_nv_bit_image_low_bytes", "VR-T82B",
     [](VORN_PRINTER h) { return PrintNVImageCompatible(h, 257, 304); }, 0, "1C 70 01 30"},
    {"print_nv_bit_image_n_256", "VR-T82B",
     [](VORN_PRINTER h) { return PrintNVImageCompatible(h, 256, 0); }, VORN_ERR_PARAMETER, ""},
    {"print_nv_bit_image_m_4", "VR-T82B",
     [](VORN_PRINTER h) { return PrintNVImageCompatible(h, 1, 4); }, VORN_ERR_PARAMETER, ""},
    {"print_nv_bit_image_m_47", "VR-T82B",
     [](VORN_PRINTER h) { return PrintNVImageCompatible(h, 1, 47); }, VORN_ERR_PARAMETER, ""},
    {"print_downloaded_bit_image", "VR-T82B",
     [](VORN_PRINTER h) { return PrintDownloadedImageCompatible(h, 3); }, 0, "1D 2F 03"},
    {"print_downloaded_bit_image_49", "VR-T82B",
     [](VORN_PRINTER h) { return PrintDownloadedImageCompatible(h, 49); }, 0, "1D 2F 31"},
    {"print_downloaded_bit_image_4", "VR-T82B",
     [](VORN_PRINTER h) { return PrintDownloadedImageCompatible(h, 4); }, VORN_ERR_PARAMETER, ""},
    {"print_downloaded_bit_image_52", "VR-T82B",
     [](VORN_PRINTER h) { return PrintDownloadedImageCompatible(h, 52); }, VORN_ERR_PARAMETER, ""},
    // Without the ESC/POS bit every command is refused before its ranges.
    {"no_escpos_print_nv", "VR-L80A", [](VORN_PRINTER h) { return PrintNVImage(h, 0, 0); },
     VORN_ERR_COMMAND_NOT_SUPPORTED, ""},
    {"no_escpos_delete_all", "VR-L80A", DeleteAllNVImages, VORN_ERR_COMMAND_NOT_SUPPORTED, ""},
    {"no_escpos_print_downloaded_bit_image", "VR-L80A",
     [](VORN_PRINTER h) { return PrintDownloadedImageCompatible(h, 9); },
     VORN_ERR_COMMAND_NOT_SUPPORTED, ""},
};

INSTANTIATE_TEST_SUITE_P(Cases, FixedCommand, testing::ValuesIn(kFixedCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(StoredImagePrinting, OnlyTheDownloadedBitImagePrintMakesRoom) {
  // Five bytes free: the commands that encode into the buffer as it stands
  // find no room; GS / grows the buffer first.
  struct Case {
    const char* name;
    Call call;
    int32_t result;
  };
  const Case cases[] = {
      {"print_nv", [](VORN_PRINTER h) { return PrintNVImage(h, 32, 32); },
       VORN_ERR_BUFFER_TOO_SMALL},
      {"print_buffered", PrintBufferedImage, VORN_ERR_BUFFER_TOO_SMALL},
      {"delete_all", DeleteAllNVImages, VORN_ERR_BUFFER_TOO_SMALL},
      {"print_nv_bit_image_fits", [](VORN_PRINTER h) { return PrintNVImageCompatible(h, 1, 0); },
       VORN_OK},
      {"print_downloaded_bit_image",
       [](VORN_PRINTER h) { return PrintDownloadedImageCompatible(h, 0); }, VORN_OK},
  };
  for (const Case& c : cases) {
    FakeSession session("VR-T82B");
    const std::vector<uint8_t> before(session.context().capacity - 5, 0x0A);
    leave_pending(session, before);
    EXPECT_EQ(c.call(session.handle()), c.result) << c.name;
    if (c.result != VORN_OK) {
      EXPECT_EQ(session.pending(), before) << c.name;
      EXPECT_TRUE(session.take_written().empty()) << c.name;
    } else {
      EXPECT_EQ(head_of(session.take_written(), before.size()), before) << c.name;
    }
  }
}

// ---- Graphics defined from a file ----------------------------------------------

TEST(DefineGraphics, SmallPicturesInTheShortForm) {
  struct Case {
    const char* name;
    Call call;
    const char* written;
  };
  const Case cases[] = {
      {"nv", [](VORN_PRINTER h) { return DefineNVImage(h, u"p.png", 0x20, 0x21); },
       "1D 28 4C 0F 00 30 43 30 20 21 01 10 00 02 00 31 AA 55 0F F0"},
      {"download", [](VORN_PRINTER h) { return DefineDownloadedImage(h, u"p.png", 0x7E, 0x41); },
       "1D 28 4C 0F 00 30 53 30 7E 41 01 10 00 02 00 31 AA 55 0F F0"},
      {"key_code_low_byte", [](VORN_PRINTER h) { return DefineNVImage(h, u"p.png", 0x120, 0x321); },
       "1D 28 4C 0F 00 30 43 30 20 21 01 10 00 02 00 31 AA 55 0F F0"},
      {"print_buffer", [](VORN_PRINTER h) { return DefineBufferedImage(h, u"p.png"); },
       "1D 28 4C 0E 00 30 70 30 01 01 31 10 00 02 00 AA 55 0F F0"},
  };
  for (const Case& c : cases) {
    FakeSession session("VR-T82B");
    FakeImages images;
    images.add(u"p.png", {16, 2, hex("AA 55 0F F0")});
    EXPECT_EQ(c.call(session.handle()), VORN_OK) << c.name;
    EXPECT_EQ(session.take_written(), hex(c.written)) << c.name;
    EXPECT_EQ(images.conversions, std::vector<std::string>{"raster"}) << c.name;
  }
}

// Header and total length of the definition of a width x height picture.
struct FormCase {
  const char* name;
  const char* model;
  int32_t width;
  int32_t height;
  Call call;
  int32_t result;
  const char* header;
  size_t total;
};

class DefineGraphicForm : public testing::TestWithParam<FormCase> {};

TEST_P(DefineGraphicForm, PicksTheFormAndChecksTheSize) {
  const FormCase& c = GetParam();
  FakeSession session(c.model);
  FakeImages images;
  images.add(u"p.png", {c.width, c.height, {0xC3}});
  EXPECT_EQ(c.call(session.handle()), c.result);
  const std::vector<uint8_t> written = session.take_written();
  if (c.result != VORN_OK) {
    EXPECT_TRUE(written.empty());
    EXPECT_TRUE(session.pending().empty());
    return;
  }
  const std::vector<uint8_t> header = hex(c.header);
  EXPECT_EQ(head_of(written, header.size()), header);
  EXPECT_EQ(written.size(), c.total);
  ASSERT_GT(written.size(), header.size());
  EXPECT_EQ(written[header.size()], 0xC3);  // the data follows the header
}

int32_t nv(VORN_PRINTER h) {
  return DefineNVImage(h, u"p.png", 0x20, 0x20);
}
int32_t download(VORN_PRINTER h) {
  return DefineDownloadedImage(h, u"p.png", 0x20, 0x20);
}
int32_t buffered(VORN_PRINTER h) {
  return DefineBufferedImage(h, u"p.png");
}

const FormCase kFormCases[] = {
    // 72 x 113 = 8136 bytes, p = 8147.
    {"nv_576x113_short", "VR-T82B", 576, 113, nv, 0,
     "1D 28 4C D3 1F 30 43 30 20 20 01 40 02 71 00 31", 16 + 8136},
    // 72 x 910 = 65520 bytes, p = 65531: the last short one.
    {"nv_576x910_short", "VR-T82B", 576, 910, nv, 0,
     "1D 28 4C FB FF 30 43 30 20 20 01 40 02 8E 03 31", 16 + 65520},
    // 72 x 911 = 65592 bytes, p = 65603.
    {"nv_576x911_long", "VR-T82B", 576, 911, nv, 0,
     "1D 38 4C 43 00 01 00 30 43 30 20 20 01 40 02 8F 03 31", 18 + 65592},
    {"download_576x911_long", "VR-T82B", 576, 911, download, 0,
     "1D 38 4C 43 00 01 00 30 53 30 20 20 01 40 02 8F 03 31", 18 + 65592},
    // 210 x 2304 = 483840 bytes, p = 483851 = 0x0007620B.
    {"nv_1680x2304_long", "VR-W210A", 1680, 2304, nv, 0,
     "1D 38 4C 0B 62 07 00 30 43 30 20 20 01 90 06 00 09 31", 18 + 483840},
    {"buffered_576x911_long", "VR-T82B", 576, 911, buffered, 0,
     "1D 38 4C 42 00 01 00 30 70 30 01 01 31 40 02 8F 03", 17 + 65592},
    {"buffered_height_1662", "VR-T82B", 8, 1662, buffered, 0,
     "1D 28 4C 88 06 30 70 30 01 01 31 08 00 7E 06", 15 + 1662},
    {"buffered_height_1663", "VR-T82B", 8, 1663, buffered, VORN_ERR_PARAMETER, "", 0},
    {"nv_height_2304", "VR-T82B", 8, 2304, nv, 0, "1D 28 4C 0B 09 30 43 30 20 20 01 08 00 00 09 31",
     16 + 2304},
    {"nv_height_2305", "VR-T82B", 8, 2305, nv, VORN_ERR_PARAMETER, "", 0},
    {"download_height_2305", "VR-T82B", 8, 2305, download, VORN_ERR_PARAMETER, "", 0},
    {"k80_height_900", "VR-K80A", 8, 900, nv, 0, "1D 28 4C 8F 03 30 43 30 20 20 01 08 00 84 03 31",
     16 + 900},
    {"k80_height_901", "VR-K80A", 8, 901, nv, VORN_ERR_IMAGE_SIZE, "", 0},
    {"k80_buffered_height_901", "VR-K80A", 8, 901, buffered, VORN_ERR_IMAGE_SIZE, "", 0},
    {"width_577", "VR-T82B", 577, 1, download, VORN_ERR_IMAGE_SIZE, "", 0},
    {"width_0", "VR-T82B", 0, 1, nv, VORN_ERR_IMAGE_SIZE, "", 0},
    {"height_0", "VR-T82B", 8, 0, buffered, VORN_ERR_IMAGE_SIZE, "", 0},
    {"record_with_0_dots", "unknown", 1, 1, nv, VORN_ERR_IMAGE_SIZE, "", 0},
    {"no_escpos_bit", "VR-L80A", 8, 1, nv, VORN_ERR_COMMAND_NOT_SUPPORTED, "", 0},
    {"no_escpos_bit_buffered", "VR-L80A", 8, 1, buffered, VORN_ERR_COMMAND_NOT_SUPPORTED, "", 0},
};

INSTANTIATE_TEST_SUITE_P(Cases, DefineGraphicForm, testing::ValuesIn(kFormCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(DefineGraphics, KeyCodesOutsidePrintableAsciiAreRefused) {
  struct Case {
    int32_t kc1;
    int32_t kc2;
    int32_t result;
  };
  const Case cases[] = {{32, 126, 0},
                        {126, 32, 0},
                        {31, 32, VORN_ERR_PARAMETER},
                        {127, 32, VORN_ERR_PARAMETER},
                        {32, 31, VORN_ERR_PARAMETER},
                        {32, 127, VORN_ERR_PARAMETER},
                        {0x1FF, 32, VORN_ERR_PARAMETER}};
  for (const Case& c : cases) {
    for (auto define : {DefineNVImage, DefineDownloadedImage}) {
      FakeSession session("VR-T82B");
      FakeImages images;
      images.add(u"p.png", {8, 1, {0x01}});
      EXPECT_EQ(define(session.handle(), u"p.png", c.kc1, c.kc2), c.result)
          << c.kc1 << " " << c.kc2;
      EXPECT_EQ(session.take_written().empty(), c.result != VORN_OK);
      EXPECT_TRUE(session.pending().empty());
    }
  }
}

TEST(DefineGraphics, SessionWithoutRecordAllows576Dots) {
  FakeSession session("VR-W210A");
  printer::destroy_capability_record(session.context().record);
  session.context().record = nullptr;
  FakeImages images;
  images.add(u"576.png", {576, 1});
  images.add(u"577.png", {577, 1});
  EXPECT_EQ(DefineNVImage(session.handle(), u"577.png", 32, 32), VORN_ERR_IMAGE_SIZE);
  EXPECT_EQ(DefineDownloadedImageCompatible(session.handle(), u"577.png"), VORN_ERR_IMAGE_SIZE);
  EXPECT_TRUE(session.take_written().empty());
  EXPECT_EQ(DefineNVImage(session.handle(), u"576.png", 32, 32), VORN_OK);
  EXPECT_EQ(head_of(session.take_written(), 16),
            hex("1D 28 4C 53 00 30 43 30 20 20 01 40 02 01 00 31"));
}

// ---- Failures of every definition leave the buffer as it was -------------------

TEST(StoredImageDefinitions, FailuresPassThroughAndLeaveTheBufferAlone) {
  struct Failure {
    const char* name;
    Picture picture;
    int32_t result;
  };
  const Failure failures[] = {
      {"missing_file", {.probe_result = 2}, 2},
      {"undecodable", {.probe_result = 84}, 84},
      {"second_load_fails", {.width = 8, .height = 8, .convert_result = 2}, 2},
      {"no_work_plane",
       {.width = 8, .height = 8, .convert_result = VORN_ERR_NO_MEMORY},
       VORN_ERR_NO_MEMORY},
  };
  const std::pair<const char*, Call> definitions[] = {
      {"nv", nv},
      {"download", download},
      {"buffered", buffered},
      {"downloaded_bit_image",
       [](VORN_PRINTER h) { return DefineDownloadedImageCompatible(h, u"p.png"); }},
      {"nv_bit_images",
       [](VORN_PRINTER h) {
         const VORN_WCHAR* paths[] = {u"p.png"};
         return DefineNVImageCompatible(h, paths, 1);
       }},
  };
  for (const Failure& f : failures) {
    for (const auto& [name, define] : definitions) {
      FakeSession session("VR-T82B");
      FakeImages images;
      images.add(u"p.png", f.picture);
      leave_pending(session, hex("1B 40"));
      EXPECT_EQ(define(session.handle()), f.result) << f.name << " " << name;
      EXPECT_EQ(session.pending(), hex("1B 40")) << f.name << " " << name;
      EXPECT_TRUE(session.take_written().empty());
    }
  }
}

TEST(StoredImageDefinitions, NoRoomAndNoGrowthGivesMinus2) {
  const Call definitions[] = {
      nv, download, buffered,
      [](VORN_PRINTER h) { return DefineDownloadedImageCompatible(h, u"p.png"); },
      [](VORN_PRINTER h) {
        const VORN_WCHAR* paths[] = {u"p.png"};
        return DefineNVImageCompatible(h, paths, 1);
      }};
  for (const Call& define : definitions) {
    FakeSession session("VR-T82B");
    FakeImages images;
    images.add(u"p.png", {64, 64});  // 512 data bytes in either layout
    const FixedBuffer fixed(session);
    EXPECT_EQ(define(session.handle()), VORN_ERR_BUFFER_TOO_SMALL);
    EXPECT_TRUE(session.pending().empty());
  }
}

// ---- NV bit images (FS q) ------------------------------------------------------

TEST(DefineNVImageCompatible, PicturesFollowEachOtherWithTheirSizes) {
  FakeSession session("VR-T82B");
  FakeImages images;
  // 10 x 10: two units each way, 10 columns of 2 bytes from the conversion,
  // then 6 blank columns. 16 x 20: two units across, three down.
  std::vector<uint8_t> first(20);
  for (size_t i = 0; i < first.size(); ++i) first[i] = static_cast<uint8_t>(0x80 + i);
  std::vector<uint8_t> second(48);
  for (size_t i = 0; i < second.size(); ++i) second[i] = static_cast<uint8_t>(0x10 + i);
  images.add(u"a.png", {10, 10, first});
  images.add(u"b.png", {16, 20, second});
  const VORN_WCHAR* paths[] = {u"a.png", u"b.png"};
  ASSERT_EQ(DefineNVImageCompatible(session.handle(), paths, 2), VORN_OK);
  const std::vector<uint8_t> expected =
      joined({hex("1C 71 02  02 00 02 00"), first, std::vector<uint8_t>(12, 0), hex("02 00 03 00"),
              second});
  EXPECT_EQ(session.take_written(), expected);
  // Both sizes are learnt before either picture is converted.
  EXPECT_EQ(images.probes, 2);
  EXPECT_EQ(images.conversions, (std::vector<std::string>{"columns", "columns"}));
}

TEST(DefineNVImageCompatible, HeightUnitsAbove255UseTheHighByte) {
  FakeSession session("VR-T82B");
  FakeImages images;
  images.add(u"tall.png", {8, 2048});  // 256 units down
  const VORN_WCHAR* paths[] = {u"tall.png"};
  ASSERT_EQ(DefineNVImageCompatible(session.handle(), paths, 1), VORN_OK);
  const std::vector<uint8_t> written = session.take_written();
  EXPECT_EQ(head_of(written, 7), hex("1C 71 01 01 00 00 01"));
  EXPECT_EQ(written.size(), 7u + 2048);
}

TEST(DefineNVImageCompatible, CountRules) {
  FakeSession session("VR-T82B");
  FakeImages images;
  images.add(u"p.png", {8, 8});
  const VORN_WCHAR* ten[10];
  const VORN_WCHAR* eleven[11];
  std::fill(std::begin(ten), std::end(ten), u"p.png");
  std::fill(std::begin(eleven), std::end(eleven), u"p.png");

  EXPECT_EQ(DefineNVImageCompatible(session.handle(), ten, 0), VORN_ERR_PARAMETER);
  // More pictures than the image table holds, or a negative count, are refused
  // before any file is read.
  EXPECT_EQ(DefineNVImageCompatible(session.handle(), eleven, 11), VORN_ERR_PARAMETER);
  EXPECT_EQ(DefineNVImageCompatible(session.handle(), ten, -1), VORN_ERR_PARAMETER);
  EXPECT_EQ(DefineNVImageCompatible(session.handle(), nullptr, 1), VORN_ERR_PARAMETER);
  EXPECT_EQ(images.probes, 0);
  EXPECT_TRUE(session.pending().empty());
  EXPECT_TRUE(session.take_written().empty());

  ASSERT_EQ(DefineNVImageCompatible(session.handle(), ten, 10), VORN_OK);
  const std::vector<uint8_t> written = session.take_written();
  EXPECT_EQ(head_of(written, 7), hex("1C 71 0A 01 00 01 00"));
  EXPECT_EQ(written.size(), 3u + 10 * (4 + 8));
}

TEST(DefineNVImageCompatible, ASizeFailureStopsBeforeAnyConversion) {
  FakeSession session("VR-K80A");
  FakeImages images;
  images.add(u"ok.png", {8, 8});
  images.add(u"tall.png", {8, 901});
  images.add(u"gone.png", {.probe_result = 2});
  const VORN_WCHAR* tall[] = {u"ok.png", u"tall.png", u"ok.png"};
  const VORN_WCHAR* gone[] = {u"ok.png", u"gone.png", u"ok.png"};
  EXPECT_EQ(DefineNVImageCompatible(session.handle(), tall, 3), VORN_ERR_IMAGE_SIZE);
  EXPECT_EQ(images.probes, 2);
  EXPECT_EQ(DefineNVImageCompatible(session.handle(), gone, 3), 2);
  EXPECT_TRUE(images.conversions.empty());
  EXPECT_TRUE(session.pending().empty());
}

TEST(DefineNVImageCompatible, WithoutEscPosBit) {
  FakeSession session("VR-L80A");
  FakeImages images;
  images.add(u"p.png", {8, 8});
  const VORN_WCHAR* paths[] = {u"p.png"};
  EXPECT_EQ(DefineNVImageCompatible(session.handle(), paths, 1), VORN_ERR_COMMAND_NOT_SUPPORTED);
  EXPECT_EQ(DefineNVImageCompatible(session.handle(), paths, 0), VORN_ERR_COMMAND_NOT_SUPPORTED);
  EXPECT_TRUE(session.pending().empty());
}

// ---- Downloaded bit image (GS *) -----------------------------------------------

struct DownloadedCase {
  const char* name;
  const char* model;
  int32_t width;
  int32_t height;
  int32_t result;
  const char* header;
  size_t data_size;
};

class DefineDownloadedBitImage : public testing::TestWithParam<DownloadedCase> {};

TEST_P(DefineDownloadedBitImage, SendsWholeUnits) {
  const DownloadedCase& c = GetParam();
  FakeSession session(c.model);
  FakeImages images;
  images.add(u"p.png", {c.width, c.height, {0xE7}});
  EXPECT_EQ(DefineDownloadedImageCompatible(session.handle(), u"p.png"), c.result);
  const std::vector<uint8_t> written = session.take_written();
  if (c.result != VORN_OK) {
    EXPECT_TRUE(written.empty());
    EXPECT_TRUE(session.pending().empty());
    return;
  }
  std::vector<uint8_t> expected = joined({hex(c.header), hex("E7")});
  expected.resize(4 + c.data_size, 0);
  EXPECT_EQ(written, expected);
}

const DownloadedCase kDownloadedCases[] = {
    // 10 dots wide: 16 columns of 2 bytes, the last 6 columns blank.
    {"10x10", "VR-T82B", 10, 10, 0, "1D 2A 02 02", 32},
    {"1x1", "VR-T82B", 1, 1, 0, "1D 2A 01 01", 8},
    {"576x8", "VR-T82B", 576, 8, 0, "1D 2A 48 01", 576},
    {"height_2040", "VR-T82B", 8, 2040, 0, "1D 2A 01 FF", 2040},
    {"height_2041", "VR-T82B", 8, 2041, VORN_ERR_PARAMETER, "", 0},
    {"height_4096", "VR-T82B", 8, 4096, VORN_ERR_PARAMETER, "", 0},  // 512 units: byte 0
    {"width_1680", "VR-W210A", 1680, 8, 0, "1D 2A D2 01", 1680},
    {"k80_height_901", "VR-K80A", 8, 901, VORN_ERR_IMAGE_SIZE, "", 0},
    {"width_577", "VR-T82B", 577, 8, VORN_ERR_IMAGE_SIZE, "", 0},
    {"no_escpos_bit", "VR-L80A", 8, 8, VORN_ERR_COMMAND_NOT_SUPPORTED, "", 0},
};

INSTANTIATE_TEST_SUITE_P(Cases, DefineDownloadedBitImage, testing::ValuesIn(kDownloadedCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(StoredImages, RealFileThroughTheDecoder) {
  FakeSession session("VR-T82B");
  const std::u16string path = write_test_bmp("vorn_stored_test.bmp");
  // Columns of one byte each: the top row's black pixels are the high bits.
  ASSERT_EQ(DefineDownloadedImageCompatible(session.handle(), path.c_str()), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("1D 2A 01 01 80 00 80 00 80 00 80 00"));
  ASSERT_EQ(DefineNVImage(session.handle(), path.c_str(), 0x41, 0x31), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("1D 28 4C 0D 00 30 43 30 41 31 01 08 00 02 00 31 AA 00"));
  EXPECT_GT(DefineBufferedImage(session.handle(), u"/nonexistent/vorn.bmp"), 0);
  EXPECT_TRUE(session.pending().empty());
}

}  // namespace
}  // namespace vorn::test
