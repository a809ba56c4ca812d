// PrintBarCode through the public API on a fake session.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <cerrno>
#include <string>

#include "support/fake_session.h"

namespace vorn::test {
namespace {

struct BarcodeCase {
  const char* name;
  int32_t type;
  const char16_t* data;
  int32_t width;
  int32_t height;
  int32_t alignment;
  int32_t hri;
  int32_t result;
  const char* written;  // empty when nothing may reach the printer
};

const BarcodeCase kBarcodeCases[] = {
    {"code128_worked_example", 73, u"{B1234", 2, 80, 1, 2, 0,
     "1B 61 01 1D 77 02 1D 68 50 1D 48 02 1D 6B 49 06 7B 42 31 32 33 34"},
    {"code39_form_a", 4, u"12345", 2, 80, 0, 0, 0,
     "1B 61 00 1D 77 02 1D 68 50 1D 48 00 1D 6B 04 31 32 33 34 35 00"},
    {"code39_form_b", 69, u"12345", 2, 80, 0, 0, 0,
     "1B 61 00 1D 77 02 1D 68 50 1D 48 00 1D 6B 45 05 31 32 33 34 35"},
    {"upca_form_a_lowest", 0, u"1", 1, 1, 48, 51, 0,
     "1B 61 30 1D 77 01 1D 68 01 1D 48 33 1D 6B 00 31 00"},
    {"codebar_form_a_highest", 6, u"1", 6, 255, 50, 48, 0,
     "1B 61 32 1D 77 06 1D 68 FF 1D 48 30 1D 6B 06 31 00"},
    {"upca_form_b_lowest", 65, u"1", 3, 3, 2, 3, 0,
     "1B 61 02 1D 77 03 1D 68 03 1D 48 03 1D 6B 41 01 31"},
    {"code93_form_b_unpacked", 72, u"{C12", 3, 3, 0, 0, 0,
     "1B 61 00 1D 77 03 1D 68 03 1D 48 00 1D 6B 48 04 7B 43 31 32"},
    // Width, height and alignment keep only their low 8 bits.
    {"width_257_is_1", 4, u"1", 257, 80, 0, 0, 0,
     "1B 61 00 1D 77 01 1D 68 50 1D 48 00 1D 6B 04 31 00"},
    {"alignment_257_is_1", 4, u"1", 2, 0x150, 257, 0, 0,
     "1B 61 01 1D 77 02 1D 68 50 1D 48 00 1D 6B 04 31 00"},
    {"height_256_is_0", 4, u"1", 2, 256, 0, 0, VORN_ERR_PARAMETER, ""},
    {"width_0", 4, u"1", 0, 80, 0, 0, VORN_ERR_PARAMETER, ""},
    {"width_7", 4, u"1", 7, 80, 0, 0, VORN_ERR_PARAMETER, ""},
    {"alignment_3", 4, u"1", 2, 80, 3, 0, VORN_ERR_PARAMETER, ""},
    {"alignment_259_is_3", 4, u"1", 2, 80, 259, 0, VORN_ERR_PARAMETER, ""},
    // The HRI position is checked whole: no cut to 8 bits.
    {"hri_257_not_cut", 4, u"1", 2, 80, 0, 257, VORN_ERR_PARAMETER, ""},
    {"hri_minus_1", 4, u"1", 2, 80, 0, -1, VORN_ERR_PARAMETER, ""},
    {"hri_4", 4, u"1", 2, 80, 0, 4, VORN_ERR_PARAMETER, ""},
    {"hri_47", 4, u"1", 2, 80, 0, 47, VORN_ERR_PARAMETER, ""},
    {"hri_52", 4, u"1", 2, 80, 0, 52, VORN_ERR_PARAMETER, ""},
    {"type_7", 7, u"1", 2, 80, 0, 0, VORN_ERR_PARAMETER, ""},
    {"type_64", 64, u"1", 2, 80, 0, 0, VORN_ERR_PARAMETER, ""},
    {"type_74", 74, u"1", 2, 80, 0, 0, VORN_ERR_PARAMETER, ""},
    {"type_100", 100, u"1", 2, 80, 0, 0, VORN_ERR_PARAMETER, ""},
    {"type_minus_1", -1, u"1", 2, 80, 0, 0, VORN_ERR_PARAMETER, ""},
    {"type_105", 105, u"1", 2, 80, 0, 0, VORN_ERR_PARAMETER, ""},
    {"type_269_not_cut", 269, u"1", 2, 80, 0, 0, VORN_ERR_PARAMETER, ""},
    // Two-dimensional types: no column, row or error-correction command.
    {"pdf417", 101, u"AB", 3, 4, 1, 99, 0,
     "1B 61 01 1D 28 6B 03 00 30 46 00 1D 28 6B 03 00 30 43 03 1D 28 6B 03 00 30 44 04"
     " 1D 28 6B 05 00 30 50 30 41 42 1D 28 6B 03 00 30 51 30"},
    {"pdf417_second_value", 102, u"AB", 3, 4, 1, 99, 0,
     "1B 61 01 1D 28 6B 03 00 30 46 00 1D 28 6B 03 00 30 43 03 1D 28 6B 03 00 30 44 04"
     " 1D 28 6B 05 00 30 50 30 41 42 1D 28 6B 03 00 30 51 30"},
    {"pdf417_row_height_1", 101, u"AB", 3, 1, 1, 0, VORN_ERR_PARAMETER, ""},
    {"qr", 103, u"AB", 5, 0, 0, 99, 0,
     "1B 61 00 1D 28 6B 04 00 31 41 31 00 1D 28 6B 03 00 31 43 05"
     " 1D 28 6B 05 00 31 50 30 41 42 1D 28 6B 03 00 31 51 30"},
    {"qr_second_value", 104, u"AB", 5, 0, 0, 99, 0,
     "1B 61 00 1D 28 6B 04 00 31 41 31 00 1D 28 6B 03 00 31 43 05"
     " 1D 28 6B 05 00 31 50 30 41 42 1D 28 6B 03 00 31 51 30"},
    {"qr_module_17", 103, u"AB", 17, 0, 0, 0, VORN_ERR_PARAMETER, ""},
};

class BarcodeTable : public ::testing::TestWithParam<BarcodeCase> {};

TEST_P(BarcodeTable, SendsCommandsOrNothing) {
  const BarcodeCase& c = GetParam();
  FakeSession session;
  EXPECT_EQ(PrintBarCode(session.handle(), c.type, c.data, c.width, c.height, c.alignment, c.hri),
            c.result);
  EXPECT_EQ(session.take_written(), hex(c.written));
  EXPECT_TRUE(session.pending().empty());
}

INSTANTIATE_TEST_SUITE_P(PrintBarCode, BarcodeTable, ::testing::ValuesIn(kBarcodeCases),
                         [](const auto& info) { return std::string(info.param.name); });

struct PackingCase {
  const char* name;
  const char16_t* data;
  const char* print_command;  // the GS k command with the packed data
};

const PackingCase kPackingCases[] = {
    {"set_c_pairs", u"{C123456", "1D 6B 49 05 7B 43 0C 22 38"},
    {"set_c_after_set_a", u"{A12{C3456", "1D 6B 49 08 7B 41 31 32 7B 43 22 38"},
    {"no_brace_no_c_unchanged", u"ABC123", "1D 6B 49 06 41 42 43 31 32 33"},
    {"set_b_unchanged", u"{B1234", "1D 6B 49 06 7B 42 31 32 33 34"},
    // An odd last digit pairs with the terminating zero: 3 * 10 + (0 - 48).
    {"odd_digits_at_end", u"{C123", "1D 6B 49 04 7B 43 0C EE"},
    // ... or with the "{" that opens the next segment: 3 * 10 + (123 - 48).
    {"odd_digits_before_next_segment", u"{C123{A4", "1D 6B 49 07 7B 43 0C 69 7B 41 34"},
    {"set_c_without_digits", u"{C", "1D 6B 49 02 7B 43"},
    {"single_byte_segments", u"{{{", "1D 6B 49 03 7B 7B 7B"},
    // A first segment with C in second place is packed too, "{" or not.
    {"first_segment_without_brace", u"1C2345", "1D 6B 49 04 31 43 17 2D"},
    // Non-digits are not checked: ('A' - 48) * 10 + ('B' - 48) = 17 * 10 + 18.
    {"letters_packed_unchecked", u"{CAB", "1D 6B 49 03 7B 43 BC"},
};

class Code128Packing : public ::testing::TestWithParam<PackingCase> {};

TEST_P(Code128Packing, PacksCodeSetC) {
  const PackingCase& c = GetParam();
  FakeSession session;
  ASSERT_EQ(PrintBarCode(session.handle(), 73, c.data, 2, 80, 0, 0), VORN_OK);
  const std::vector<uint8_t> prefix = hex("1B 61 00 1D 77 02 1D 68 50 1D 48 00");
  std::vector<uint8_t> expected = prefix;
  const std::vector<uint8_t> command = hex(c.print_command);
  expected.insert(expected.end(), command.begin(), command.end());
  EXPECT_EQ(session.take_written(), expected);
}

INSTANTIATE_TEST_SUITE_P(PrintBarCode, Code128Packing, ::testing::ValuesIn(kPackingCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(PrintBarCode, QrSelectModelLeftOutOnlyFor0x1562) {
  const char* qr_tail =
      "1D 28 6B 03 00 31 43 04 1D 28 6B 04 00 31 50 30 41 1D 28 6B 03 00 31 51 30";
  FakeSession k60("VR-K60A");  // 0x1562
  ASSERT_EQ(PrintBarCode(k60.handle(), 103, u"A", 4, 0, 0, 0), VORN_OK);
  EXPECT_EQ(k60.take_written(), hex(std::string("1B 61 00 ") + qr_tail));

  FakeSession k58("VR-K58A");  // 0x1541, same flags
  ASSERT_EQ(PrintBarCode(k58.handle(), 104, u"A", 4, 0, 0, 0), VORN_OK);
  EXPECT_EQ(k58.take_written(), hex(std::string("1B 61 00 1D 28 6B 04 00 31 41 31 00 ") + qr_tail));
}

TEST(PrintBarCode, PageModeSendsNoJustificationAndChecksNone) {
  FakeSession session;
  ASSERT_EQ(SelectPageMode(session.handle()), VORN_OK);
  session.take_written();
  EXPECT_EQ(PrintBarCode(session.handle(), 69, u"12", 2, 80, 3, 2), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("1D 77 02 1D 68 50 1D 48 02 1D 6B 45 02 31 32"));
  EXPECT_EQ(PrintBarCode(session.handle(), 103, u"A", 4, 0, 200, 0), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("1D 28 6B 04 00 31 41 31 00 1D 28 6B 03 00 31 43 04"
                                        " 1D 28 6B 04 00 31 50 30 41 1D 28 6B 03 00 31 51 30"));
}

TEST(PrintBarCode, FormBLengthAbove255IsRefused) {
  FakeSession session;
  EXPECT_EQ(PrintBarCode(session.handle(), 69, std::u16string(255, u'1').c_str(), 2, 80, 0, 0),
            VORN_OK);
  EXPECT_EQ(session.take_written().size(), 12u + 4 + 255);
  EXPECT_EQ(PrintBarCode(session.handle(), 69, std::u16string(256, u'1').c_str(), 2, 80, 0, 0),
            VORN_ERR_PARAMETER);
  EXPECT_TRUE(session.take_written().empty());
  // Packing counts: 2 + 508 / 2 = 256 bytes still do not fit the length byte,
  // 2 + 506 / 2 = 255 do.
  EXPECT_EQ(
      PrintBarCode(session.handle(), 73, (u"{C" + std::u16string(508, u'1')).c_str(), 2, 80, 0, 0),
      VORN_ERR_PARAMETER);
  EXPECT_EQ(
      PrintBarCode(session.handle(), 73, (u"{C" + std::u16string(506, u'1')).c_str(), 2, 80, 0, 0),
      VORN_OK);
  EXPECT_EQ(session.take_written().size(), 12u + 4 + 255);
}

TEST(PrintBarCode, ModelWithoutEscPosRefusesWithMinus3) {
  FakeSession session("VR-L80A");
  EXPECT_EQ(PrintBarCode(session.handle(), 4, u"1", 2, 80, 0, 0), VORN_ERR_COMMAND_NOT_SUPPORTED);
  EXPECT_EQ(PrintBarCode(session.handle(), 103, u"1", 4, 0, 0, 0), VORN_ERR_COMMAND_NOT_SUPPORTED);
  EXPECT_TRUE(session.take_written().empty());
  EXPECT_TRUE(session.pending().empty());
}

TEST(PrintBarCode, EmptyDataFailsInConversion) {
  FakeSession session;
  EXPECT_EQ(PrintBarCode(session.handle(), 4, u"", 2, 80, 0, 0), EINVAL);
  EXPECT_TRUE(session.take_written().empty());
}

// GS w, GS h and GS H were appended before GS k refused the type: all of it,
// the justification included, goes again, and what was waiting stays.
TEST(PrintBarCode, LateFailureLeavesBufferAsFound) {
  FakeSession session;
  session.device.write_script.push_back({.accept = 0, .error = EIO});
  ASSERT_NE(PositionNextLabel(session.handle()), VORN_OK);
  ASSERT_EQ(session.pending(), hex("1D 0C"));

  EXPECT_EQ(PrintBarCode(session.handle(), 74, u"12345", 2, 80, 1, 2), VORN_ERR_PARAMETER);
  EXPECT_EQ(PrintBarCode(session.handle(), 103, u"12345", 17, 80, 1, 2), VORN_ERR_PARAMETER);
  EXPECT_EQ(session.pending(), hex("1D 0C"));
  const printer::CommandContext& context = session.context();
  for (uint32_t i = context.length; i < context.length + 40; ++i) {
    EXPECT_EQ(context.buffer[i], 0) << "byte " << i;
  }
  EXPECT_TRUE(session.take_written().empty());

  // The next successful call sends the waiting bytes ahead of its own.
  ASSERT_EQ(PrintBarCode(session.handle(), 4, u"1", 2, 80, 0, 0), VORN_OK);
  EXPECT_EQ(session.take_written(),
            hex("1D 0C 1B 61 00 1D 77 02 1D 68 50 1D 48 00 1D 6B 04 31 00"));
}

}  // namespace
}  // namespace vorn::test
