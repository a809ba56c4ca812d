// PrintSymbol through the public API on a fake session.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <cerrno>
#include <cstdlib>
#include <optional>
#include <string>

#include "support/fake_session.h"

namespace vorn::test {
namespace {

struct SymbolCase {
  const char* name;
  int32_t type;
  const char16_t* data;
  int32_t error_correction;
  int32_t module_size;
  int32_t row_height;
  int32_t alignment;
  int32_t result;
  const char* written;  // empty when nothing may reach the printer
};

constexpr const char* kQrAbc =
    "1B 61 01 1D 28 6B 04 00 31 41 31 00 1D 28 6B 03 00 31 43 04 1D 28 6B 03 00 31 45 31"
    " 1D 28 6B 06 00 31 50 30 41 42 43 1D 28 6B 03 00 31 51 30";
constexpr const char* kPdf417Abc =
    "1B 61 00 1D 28 6B 03 00 30 41 00 1D 28 6B 03 00 30 42 00 1D 28 6B 03 00 30 43 03"
    " 1D 28 6B 03 00 30 44 04 1D 28 6B 04 00 30 45 30 38 1D 28 6B 03 00 30 46 00"
    " 1D 28 6B 06 00 30 50 30 41 42 43 1D 28 6B 03 00 30 51 30";

const SymbolCase kSymbolCases[] = {
    {"qr_worked_example", 103, u"ABC", 0x31, 4, 0, 1, 0, kQrAbc},
    {"qr_second_type_value_alike", 104, u"ABC", 0x31, 4, 0, 1, 0, kQrAbc},
    {"qr_arguments_cut_to_low_byte", 103, u"ABC", 0x131, 0x104, 0, 0x101, 0, kQrAbc},
    {"qr_row_height_unused", 103, u"ABC", 0x31, 4, 99, 1, 0, kQrAbc},
    {"pdf417", 101, u"ABC", 0x38, 3, 4, 0, 0, kPdf417Abc},
    {"pdf417_second_type_value_alike", 102, u"ABC", 0x38, 3, 4, 0, 0, kPdf417Abc},
    {"qr_largest_module_and_level", 103, u"A", 0x33, 16, 0, 50, 0,
     "1B 61 32 1D 28 6B 04 00 31 41 31 00 1D 28 6B 03 00 31 43 10 1D 28 6B 03 00 31 45 33"
     " 1D 28 6B 04 00 31 50 30 41 1D 28 6B 03 00 31 51 30"},
    {"type_below_range", 100, u"ABC", 0x31, 4, 0, 1, VORN_ERR_PARAMETER, ""},
    {"type_above_range", 105, u"ABC", 0x31, 4, 0, 1, VORN_ERR_PARAMETER, ""},
    {"qr_level_is_a_character_not_0", 103, u"ABC", 0, 4, 0, 1, VORN_ERR_PARAMETER, ""},
    {"qr_level_above_H", 103, u"ABC", 0x34, 4, 0, 1, VORN_ERR_PARAMETER, ""},
    {"qr_module_0", 103, u"ABC", 0x30, 0, 0, 1, VORN_ERR_PARAMETER, ""},
    {"qr_module_17", 103, u"ABC", 0x30, 17, 0, 1, VORN_ERR_PARAMETER, ""},
    {"pdf417_level_above_8", 101, u"ABC", 0x39, 3, 3, 1, VORN_ERR_PARAMETER, ""},
    {"pdf417_level_as_number", 101, u"ABC", 1, 3, 3, 1, VORN_ERR_PARAMETER, ""},
    {"pdf417_module_1", 101, u"ABC", 0x30, 1, 3, 1, VORN_ERR_PARAMETER, ""},
    {"pdf417_module_9", 101, u"ABC", 0x30, 9, 3, 1, VORN_ERR_PARAMETER, ""},
    {"pdf417_row_height_1", 101, u"ABC", 0x30, 3, 1, 1, VORN_ERR_PARAMETER, ""},
    {"pdf417_row_height_9", 101, u"ABC", 0x30, 3, 9, 1, VORN_ERR_PARAMETER, ""},
    {"alignment_3", 103, u"ABC", 0x30, 4, 0, 3, VORN_ERR_PARAMETER, ""},
    {"alignment_259_is_3", 103, u"ABC", 0x30, 4, 0, 259, VORN_ERR_PARAMETER, ""},
};

class SymbolTable : public ::testing::TestWithParam<SymbolCase> {};

TEST_P(SymbolTable, SendsSequenceOrNothing) {
  const SymbolCase& c = GetParam();
  FakeSession session;
  EXPECT_EQ(PrintSymbol(session.handle(), c.type, c.data, c.error_correction, c.module_size,
                        c.row_height, c.alignment),
            c.result);
  EXPECT_EQ(session.take_written(), hex(c.written));
  EXPECT_TRUE(session.pending().empty());
}

INSTANTIATE_TEST_SUITE_P(PrintSymbol, SymbolTable, ::testing::ValuesIn(kSymbolCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(PrintSymbol, PageModeSendsNoJustificationAndChecksNone) {
  FakeSession session;
  ASSERT_EQ(SelectPageMode(session.handle()), VORN_OK);
  session.take_written();
  EXPECT_EQ(PrintSymbol(session.handle(), 103, u"ABC", 0x31, 4, 0, 3), VORN_OK);
  EXPECT_EQ(session.take_written(),
            hex("1D 28 6B 04 00 31 41 31 00 1D 28 6B 03 00 31 43 04 1D 28 6B 03 00 31 45 31"
                " 1D 28 6B 06 00 31 50 30 41 42 43 1D 28 6B 03 00 31 51 30"));
  EXPECT_EQ(PrintSymbol(session.handle(), 105, u"ABC", 0x31, 4, 0, 0), VORN_ERR_PARAMETER);
  EXPECT_TRUE(session.take_written().empty());
}

TEST(PrintSymbol, LengthFieldsOfLongDataAndBufferGrows) {
  FakeSession session;
  const std::u16string data(300, u'A');
  // 300 bytes do not fit the first 256-byte buffer: it has to grow, not fail.
  ASSERT_EQ(PrintSymbol(session.handle(), 103, data.c_str(), 0x30, 4, 0, 0), VORN_OK);
  const std::vector<uint8_t> written = session.take_written();
  const std::vector<uint8_t> store_head = hex("1D 28 6B 2F 01 31 50 30");
  ASSERT_EQ(written.size(), 3u + 9 + 8 + 8 + 308 + 8);
  EXPECT_TRUE(std::equal(store_head.begin(), store_head.end(), written.begin() + 28));

  ASSERT_EQ(PrintSymbol(session.handle(), 101, data.c_str(), 0x30, 2, 2, 0), VORN_OK);
  const std::vector<uint8_t> pdf = session.take_written();
  const std::vector<uint8_t> pdf_store_head = hex("1D 28 6B 2F 01 30 50 30");
  ASSERT_EQ(pdf.size(), 3u + 6 * 8 + 9 + 308);
  EXPECT_TRUE(
      std::equal(pdf_store_head.begin(), pdf_store_head.end(), pdf.begin() + 3 + 5 * 8 + 9));
}

TEST(PrintSymbol, Pdf417RefusesDataAbove65532Bytes) {
  FakeSession session;
  const std::u16string largest(65532, u'7');
  EXPECT_EQ(PrintSymbol(session.handle(), 101, largest.c_str(), 0x30, 2, 2, 0), VORN_OK);
  EXPECT_EQ(session.take_written().size(), 3u + 6 * 8 + 9 + 65540);
  const std::u16string too_long(65533, u'7');
  EXPECT_EQ(PrintSymbol(session.handle(), 101, too_long.c_str(), 0x30, 2, 2, 0),
            VORN_ERR_PARAMETER);
  EXPECT_TRUE(session.take_written().empty());
  EXPECT_TRUE(session.pending().empty());
}

TEST(PrintSymbol, QrDataWhoseLengthFieldWouldOverflowIsRefused) {
  FakeSession session;
  EXPECT_EQ(PrintSymbol(session.handle(), 103, std::u16string(65532, u'7').c_str(), 0x30, 1, 0, 0),
            VORN_OK);
  session.take_written();
  EXPECT_EQ(PrintSymbol(session.handle(), 103, std::u16string(65533, u'7').c_str(), 0x30, 1, 0, 0),
            VORN_ERR_PARAMETER);
  EXPECT_TRUE(session.take_written().empty());
}

TEST(PrintSymbol, ModelWithoutEscPosRefusesWithMinus3) {
  FakeSession session("VR-L80A");
  EXPECT_EQ(PrintSymbol(session.handle(), 103, u"ABC", 0x31, 4, 0, 1),
            VORN_ERR_COMMAND_NOT_SUPPORTED);
  EXPECT_TRUE(session.take_written().empty());
  EXPECT_TRUE(session.pending().empty());
}

TEST(PrintSymbol, EmptyDataFailsInConversion) {
  FakeSession session;
  EXPECT_EQ(PrintSymbol(session.handle(), 103, u"", 0x31, 4, 0, 1), EINVAL);
  EXPECT_TRUE(session.take_written().empty());
}

// Sets LC_ALL for one test and puts the old value back.
class ScopedLcAll {
 public:
  explicit ScopedLcAll(const char* value) {
    if (const char* old = std::getenv("LC_ALL")) saved_ = old;
    setenv("LC_ALL", value, 1);
  }
  ~ScopedLcAll() {
    if (saved_) {
      setenv("LC_ALL", saved_->c_str(), 1);
    } else {
      unsetenv("LC_ALL");
    }
  }

 private:
  std::optional<std::string> saved_;
};

// Three bytes per character in UTF-8 exceed the 2n + 2 bytes a Windows code
// page could need; the data is still taken whole.
TEST(PrintSymbol, Utf8DataLongerThanTwoBytesPerUnitIsTaken) {
  ScopedLcAll utf8("C.UTF-8");
  FakeSession session;
  ASSERT_EQ(PrintSymbol(session.handle(), 103, u"\u4E2D\u6587\u4E2D\u6587", 0x30, 4, 0, 0),
            VORN_OK);
  EXPECT_EQ(
      session.take_written(),
      hex("1B 61 00 1D 28 6B 04 00 31 41 31 00 1D 28 6B 03 00 31 43 04 1D 28 6B 03 00 31 45 30"
          " 1D 28 6B 0F 00 31 50 30 E4 B8 AD E6 96 87 E4 B8 AD E6 96 87"
          " 1D 28 6B 03 00 31 51 30"));
}

TEST(PrintSymbol, HandleAndPortChecks) {
  EXPECT_EQ(PrintSymbol(nullptr, 103, u"ABC", 0x31, 4, 0, 1), VORN_ERR_INVALID_HANDLE);
  FakeSession session;
  ASSERT_EQ(PortClose(session.handle()), VORN_OK);
  EXPECT_EQ(PrintSymbol(session.handle(), 103, u"ABC", 0x31, 4, 0, 1), VORN_ERR_IO_NOT_OPEN);
  EXPECT_TRUE(session.pending().empty());
}

// A failure in the fourth command of the sequence takes back the three before
// it and the justification, zeroing them, and keeps what was already waiting.
TEST(PrintSymbol, LateFailureLeavesBufferAsFound) {
  FakeSession session;
  session.device.write_script.push_back({.accept = 0, .error = EIO});
  ASSERT_NE(PositionNextLabel(session.handle()), VORN_OK);
  ASSERT_EQ(session.pending(), hex("1D 0C"));

  EXPECT_EQ(PrintSymbol(session.handle(), 101, u"ABC", 0x30, 3, 9, 1), VORN_ERR_PARAMETER);
  EXPECT_EQ(session.pending(), hex("1D 0C"));
  const printer::CommandContext& context = session.context();
  for (uint32_t i = context.length; i < context.length + 40; ++i) {
    EXPECT_EQ(context.buffer[i], 0) << "byte " << i;
  }
  EXPECT_TRUE(session.take_written().empty());
}

}  // namespace
}  // namespace vorn::test
