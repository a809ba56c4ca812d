// PrintBarCode and PrintSymbol through the public API on a fake session.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "support/fake_session.h"
#include "support/platform_expect.h"
#include "support/utf8_text.h"
#include "support/wide_text.h"

namespace vorn::test {
namespace {

using Call = std::function<int32_t(VORN_PRINTER)>;

Call barcode(int32_t type, const VORN_WCHAR* data, int32_t width, int32_t height, int32_t alignment,
             int32_t hri) {
  return [=](VORN_PRINTER h) { return PrintBarCode(h, type, data, width, height, alignment, hri); };
}
Call symbol(int32_t type, const VORN_WCHAR* data, int32_t level, int32_t module, int32_t row_height,
            int32_t alignment) {
  return [=](VORN_PRINTER h) {
    return PrintSymbol(h, type, data, level, module, row_height, alignment);
  };
}

bool contains(const std::vector<uint8_t>& bytes, const std::string& part) {
  const std::vector<uint8_t> needle = hex(part);
  return std::search(bytes.begin(), bytes.end(), needle.begin(), needle.end()) != bytes.end();
}

// PrintBarCode's two-dimensional types have no column, row or error-correction command.
const char* const kBarcodePdf417 =
    "1B 61 01 1D 28 6B 03 00 30 46 00 1D 28 6B 03 00 30 43 03 1D 28 6B 03 00 30 44 04"
    " 1D 28 6B 05 00 30 50 30 41 42 1D 28 6B 03 00 30 51 30";

const std::pair<Call, const char*> kAccepted[] = {
    {barcode(73, VW("{B1234"), 2, 80, 1, 2),  // the worked example
     "1B 61 01 1D 77 02 1D 68 50 1D 48 02 1D 6B 49 06 7B 42 31 32 33 34"},
    // Lowest and highest values of form A (NUL-ended), lowest type of form B (counted).
    {barcode(0, VW("1"), 1, 1, 48, 51), "1B 61 30 1D 77 01 1D 68 01 1D 48 33 1D 6B 00 31 00"},
    {barcode(6, VW("1"), 6, 255, 50, 48), "1B 61 32 1D 77 06 1D 68 FF 1D 48 30 1D 6B 06 31 00"},
    {barcode(65, VW("1"), 3, 3, 2, 3), "1B 61 02 1D 77 03 1D 68 03 1D 48 03 1D 6B 41 01 31"},
    // Only CODE128 is packed. Width, height and alignment keep their low 8 bits.
    {barcode(72, VW("{C12"), 3, 3, 0, 0),
     "1B 61 00 1D 77 03 1D 68 03 1D 48 00 1D 6B 48 04 7B 43 31 32"},
    {barcode(4, VW("1"), 257, 0x150, 257, 0), "1B 61 01 1D 77 01 1D 68 50 1D 48 00 1D 6B 04 31 00"},
    {barcode(101, VW("AB"), 3, 4, 1, 99), kBarcodePdf417},
    {barcode(102, VW("AB"), 3, 4, 1, 99), kBarcodePdf417},
    {barcode(104, VW("AB"), 5, 0, 0, 99),
     "1B 61 00 1D 28 6B 04 00 31 41 31 00 1D 28 6B 03 00 31 43 05"
     " 1D 28 6B 05 00 31 50 30 41 42 1D 28 6B 03 00 31 51 30"},
    {symbol(103, VW("ABC"), 0x131, 0x104, 99, 0x101),  // the worked example, arguments cut
     "1B 61 01 1D 28 6B 04 00 31 41 31 00 1D 28 6B 03 00 31 43 04 1D 28 6B 03 00 31 45 31"
     " 1D 28 6B 06 00 31 50 30 41 42 43 1D 28 6B 03 00 31 51 30"},
    {symbol(101, VW("ABC"), 0x38, 3, 4, 0),
     "1B 61 00 1D 28 6B 03 00 30 41 00 1D 28 6B 03 00 30 42 00 1D 28 6B 03 00 30 43 03"
     " 1D 28 6B 03 00 30 44 04 1D 28 6B 04 00 30 45 30 38 1D 28 6B 03 00 30 46 00"
     " 1D 28 6B 06 00 30 50 30 41 42 43 1D 28 6B 03 00 30 51 30"},
    {symbol(104, VW("A"), 0x33, 16, 0, 50),
     "1B 61 32 1D 28 6B 04 00 31 41 31 00 1D 28 6B 03 00 31 43 10 1D 28 6B 03 00 31 45 33"
     " 1D 28 6B 04 00 31 50 30 41 1D 28 6B 03 00 31 51 30"},
};

TEST(BarcodesAndSymbols, SendTheirCommands) {
  for (size_t i = 0; i < std::size(kAccepted); ++i) {
    FakeSession session;
    EXPECT_EQ(kAccepted[i].first(session.handle()), VORN_OK) << "case " << i;
    EXPECT_EQ(session.take_written(), hex(kAccepted[i].second)) << "case " << i;
  }
}

// Type and HRI position are checked whole: 269 is not 13, 257 is not 1.
const Call kRefused[] = {barcode(4, VW("1"), 2, 256, 0, 0),   barcode(4, VW("1"), 0, 80, 0, 0),
                         barcode(4, VW("1"), 7, 80, 0, 0),    barcode(4, VW("1"), 2, 80, 3, 0),
                         barcode(4, VW("1"), 2, 80, 0, 257),  barcode(4, VW("1"), 2, 80, 0, -1),
                         barcode(4, VW("1"), 2, 80, 0, 4),    barcode(4, VW("1"), 2, 80, 0, 47),
                         barcode(4, VW("1"), 2, 80, 0, 52),   barcode(-1, VW("1"), 2, 80, 0, 0),
                         barcode(7, VW("1"), 2, 80, 0, 0),    barcode(64, VW("1"), 2, 80, 0, 0),
                         barcode(74, VW("1"), 2, 80, 0, 0),   barcode(100, VW("1"), 2, 80, 0, 0),
                         barcode(105, VW("1"), 2, 80, 0, 0),  barcode(269, VW("1"), 2, 80, 0, 0),
                         barcode(101, VW("AB"), 3, 1, 1, 0),  barcode(103, VW("AB"), 17, 0, 0, 0),
                         symbol(100, VW("A"), 0x31, 4, 0, 1), symbol(105, VW("A"), 0x31, 4, 0, 1),
                         symbol(103, VW("A"), 0, 4, 0, 1),    symbol(103, VW("A"), 0x34, 4, 0, 1),
                         symbol(103, VW("A"), 0x30, 0, 0, 1), symbol(103, VW("A"), 0x30, 17, 0, 1),
                         symbol(101, VW("A"), 0x39, 3, 3, 1), symbol(101, VW("A"), 1, 3, 3, 1),
                         symbol(101, VW("A"), 0x30, 1, 3, 1), symbol(101, VW("A"), 0x30, 9, 3, 1),
                         symbol(101, VW("A"), 0x30, 3, 1, 1), symbol(101, VW("A"), 0x30, 3, 9, 1),
                         symbol(103, VW("A"), 0x30, 4, 0, 3)};

TEST(BarcodesAndSymbols, RefuseValuesOutOfRangeSendingNothing) {
  FakeSession session;
  for (size_t i = 0; i < std::size(kRefused); ++i) {
    EXPECT_EQ(kRefused[i](session.handle()), VORN_ERR_PARAMETER) << "case " << i;
  }
  EXPECT_EQ(PrintBarCode(session.handle(), 4, VW(""), 2, 80, 0, 0), kInvalidParameter);
  EXPECT_TRUE(session.take_written().empty());
  EXPECT_TRUE(session.pending().empty());
}

// Pairs of digits after "{C" become one byte. An odd last digit pairs with the
// terminating zero, 3 * 10 + (0 - 48), or with the "{" of the next segment,
// 3 * 10 + (123 - 48). A first segment is packed too, "{" or not.
TEST(PrintBarCode, PacksCode128CodeSetC) {
  const std::pair<const VORN_WCHAR*, const char*> cases[] = {
      {VW("{C123456"), "05 7B 43 0C 22 38"},
      {VW("{A12{C3456"), "08 7B 41 31 32 7B 43 22 38"},
      {VW("{C123"), "04 7B 43 0C EE"},
      {VW("{C123{A4"), "07 7B 43 0C 69 7B 41 34"},
      {VW("{C"), "02 7B 43"},
      {VW("{{{"), "03 7B 7B 7B"},
      {VW("1C2345"), "04 31 43 17 2D"}};
  for (const auto& [data, command] : cases) {
    FakeSession session;
    ASSERT_EQ(PrintBarCode(session.handle(), 73, data, 2, 80, 0, 0), VORN_OK);
    EXPECT_EQ(session.take_written(),
              hex(std::string("1B 61 00 1D 77 02 1D 68 50 1D 48 00 1D 6B 49 ") + command));
  }
}

// VR-K60A (0x1562) is sent no select-model command; VR-K58A has the same flags.
TEST(PrintBarCode, QrSelectModelLeftOutOnlyFor0x1562) {
  for (const auto& [model, select] :
       {std::pair{"VR-K60A", ""}, {"VR-K58A", "1D 28 6B 04 00 31 41 31 00 "}}) {
    FakeSession session(model);
    ASSERT_EQ(PrintBarCode(session.handle(), 103, VW("A"), 4, 0, 0, 0), VORN_OK);
    EXPECT_EQ(session.take_written(),
              hex(std::string("1B 61 00 ") + select +
                  "1D 28 6B 03 00 31 43 04 1D 28 6B 04 00 31 50 30 41 1D 28 6B 03 00 31 51 30"));
  }
}

TEST(BarcodesAndSymbols, LengthFieldsMustHoldTheData) {
  FakeSession session;
  auto print = [&](int32_t type, const WideString& data) {
    return type < 100 ? PrintBarCode(session.handle(), type, data.c_str(), 2, 80, 0, 0)
                      : PrintSymbol(session.handle(), type, data.c_str(), 0x30, 2, 2, 0);
  };
  EXPECT_EQ(print(69, WideString(255, VW('1'))), VORN_OK);
  EXPECT_EQ(print(69, WideString(256, VW('1'))), VORN_ERR_PARAMETER);
  // Packed: 2 + 508 / 2 = 256 bytes do not fit the length byte, 2 + 506 / 2 = 255 do.
  EXPECT_EQ(print(73, VW("{C") + WideString(508, VW('1'))), VORN_ERR_PARAMETER);
  EXPECT_EQ(print(73, VW("{C") + WideString(506, VW('1'))), VORN_OK);
  EXPECT_EQ(session.take_written().size(), 2 * (12u + 4 + 255));
  for (int32_t type : {101, 103}) {
    EXPECT_EQ(print(type, WideString(65532, VW('7'))), VORN_OK) << type;
    EXPECT_EQ(print(type, WideString(65533, VW('7'))), VORN_ERR_PARAMETER) << type;
  }
  // 300 bytes make the buffer grow, and the store command counts 303 = 0x12F.
  ASSERT_EQ(print(103, WideString(300, VW('A'))), VORN_OK);
  EXPECT_TRUE(contains(session.take_written(), "1D 28 6B 2F 01 31 50 30 41 41"));
  // Three bytes per character in UTF-8 exceed the 2n + 2 bytes a Windows
  // code page could need; the data is still taken whole.
  {
    const Utf8NarrowText utf8;
    EXPECT_EQ(print(103, VW("\u4E2D\u6587\u4E2D\u6587")), VORN_OK);
  }
  EXPECT_TRUE(
      contains(session.take_written(), "0F 00 31 50 30 E4 B8 AD E6 96 87 E4 B8 AD E6 96 87"));
}

TEST(BarcodesAndSymbols, PageModeSendsNoJustificationAndChecksNone) {
  FakeSession session;
  session.context().page_mode = 1;
  EXPECT_EQ(PrintBarCode(session.handle(), 69, VW("12"), 2, 80, 3, 2), VORN_OK);
  EXPECT_EQ(PrintSymbol(session.handle(), 103, VW("A"), 0x31, 4, 0, 3), VORN_OK);
  EXPECT_EQ(session.take_written(),
            hex("1D 77 02 1D 68 50 1D 48 02 1D 6B 45 02 31 32"
                " 1D 28 6B 04 00 31 41 31 00 1D 28 6B 03 00 31 43 04 1D 28 6B 03 00 31 45 31"
                " 1D 28 6B 04 00 31 50 30 41 1D 28 6B 03 00 31 51 30"));
}

}  // namespace
}  // namespace vorn::test
