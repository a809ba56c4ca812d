// PrintTwoQRCode through the public API on a fake session whose device
// answers the size queries from a script.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "support/fake_session.h"

namespace vorn::test {
namespace {

// The fake device's "nothing waiting" error: it ends a byte-polling read, so
// the second answer is not taken together with the first.
constexpr int32_t kNoData = 1117;

void script_answers(FakeSession& session, const std::vector<std::string>& answers) {
  for (const std::string& answer : answers) {
    session.device.read_script.push_back({.bytes = hex(answer)});
    session.device.read_script.push_back({.error = kNoData});
  }
}

// "76", the digits, 0x1F, the digits, 0x1F, 0x00.
const char* const kAnswer120 = "37 36 31 32 30 1F 31 32 30 1F 00";
const char* const kAnswer96 = "37 36 39 36 1F 39 36 1F 00";

std::vector<uint8_t> cat(const std::vector<std::string>& parts) {
  std::vector<uint8_t> all;
  for (const std::string& part : parts) {
    const std::vector<uint8_t> bytes = hex(part);
    all.insert(all.end(), bytes.begin(), bytes.end());
  }
  return all;
}

bool contains(const std::vector<uint8_t>& haystack, const std::vector<uint8_t>& needle) {
  return std::search(haystack.begin(), haystack.end(), needle.begin(), needle.end()) !=
         haystack.end();
}

const char* const kQueryA4 =
    "1D 28 6B 03 00 31 43 04 1D 28 6B 04 00 31 50 30 41 1D 28 6B 03 00 31 52 30";
const char* const kQueryB5 =
    "1D 28 6B 03 00 31 43 05 1D 28 6B 04 00 31 50 30 42 1D 28 6B 03 00 31 52 30";
const char* const kSymbolA4 =
    "1D 28 6B 04 00 31 41 31 00 1D 28 6B 03 00 31 43 04 1D 28 6B 03 00 31 45 30"
    " 1D 28 6B 04 00 31 50 30 41 1D 28 6B 03 00 31 51 30";
const char* const kSymbolB5 =
    "1D 28 6B 04 00 31 41 31 00 1D 28 6B 03 00 31 43 05 1D 28 6B 03 00 31 45 30"
    " 1D 28 6B 04 00 31 50 30 42 1D 28 6B 03 00 31 51 30";

TEST(PrintTwoQRCode, CentredPairWritesTheWholePageJob) {
  FakeSession session("VR-M60A");  // page mode, fine motion unit 0.125
  script_answers(session, {kAnswer120, kAnswer96});
  ASSERT_EQ(PrintTwoQRCode(session.handle(), u"A", 4, 1, 1, u"B", 5, 1, 1), VORN_OK);
  EXPECT_EQ(session.take_written(), cat({kQueryA4, kQueryB5, "1B 4C",
                                         "1B 57 00 00 00 00 80 01 80 00", "1B 24 84 00 1D 24 00 00",
                                         kSymbolA4, "1B 24 90 00 1D 24 0C 00", kSymbolB5, "0C"}));
  // Each block is one write: the positions go out with their symbol.
  EXPECT_EQ(session.device.write_requests,
            (std::vector<uint32_t>{25, 25, 2, 10, 8 + 42, 8 + 42, 1}));
  EXPECT_EQ(session.clock.sleeps(), (std::vector<uint32_t>{100, 100}));
  EXPECT_EQ(session.context().page_mode, 0);
  EXPECT_TRUE(session.device.read_script.empty());
}

TEST(PrintTwoQRCode, PaddedPrintAreaOn0x1102) {
  FakeSession session("VR-M80A");
  script_answers(session, {kAnswer96, kAnswer96});
  ASSERT_EQ(PrintTwoQRCode(session.handle(), u"A", 4, 0, 0, u"B", 5, 0, 0), VORN_OK);
  EXPECT_TRUE(contains(session.take_written(), hex("1B 4C 1B 57 00 00 00 00 00 80 01 68 00")));
}

TEST(PrintTwoQRCode, FineMotionUnitDoublesVerticalSize) {
  FakeSession session("VR-T80A");  // 0x1001: fine motion unit 0.0625
  script_answers(session, {kAnswer120, kAnswer96});
  ASSERT_EQ(PrintTwoQRCode(session.handle(), u"A", 4, 1, 1, u"B", 5, 1, 1), VORN_OK);
  // 240 and 192 high: page 240, area 248; symbol 2 at (240 - 192) / 2 = 24.
  EXPECT_EQ(session.take_written(), cat({kQueryA4, kQueryB5, "1B 4C",
                                         "1B 57 00 00 00 00 80 01 F8 00", "1B 24 84 00 1D 24 00 00",
                                         kSymbolA4, "1B 24 90 00 1D 24 18 00", kSymbolB5, "0C"}));
}

struct PlacementCase {
  const char* name;
  int32_t x_code;
  int32_t y_code;
  const char* placement;  // ESC $ and GS $ of symbol 2 (96 by 96 on a 120 page)
};

const PlacementCase kPlacements[] = {
    {"codes_0_mean_dot_1", 0, 0, "1B 24 01 00 1D 24 01 00"},
    {"codes_1_centre", 1, 1, "1B 24 90 00 1D 24 0C 00"},
    // Right edge: 384 - 96 - 1 = 287; bottom: 120 - 96 = 24, no - 1.
    {"codes_2_right_and_bottom", 2, 2, "1B 24 1F 01 1D 24 18 00"},
    {"other_values_are_dots", 5, 300, "1B 24 05 00 1D 24 2C 01"},
    {"largest_dots", 65535, 3, "1B 24 FF FF 1D 24 03 00"},
};

class TwoQrPlacement : public ::testing::TestWithParam<PlacementCase> {};

TEST_P(TwoQrPlacement, PlacesSymbolTwo) {
  const PlacementCase& c = GetParam();
  FakeSession session("VR-M60A");
  script_answers(session, {kAnswer120, kAnswer96});
  ASSERT_EQ(PrintTwoQRCode(session.handle(), u"A", 4, 2, 2, u"B", 5, c.x_code, c.y_code), VORN_OK);
  const std::vector<uint8_t> written = session.take_written();
  // Symbol 1 (120 wide) at the right edge: 384 - 120 - 1 = 263.
  EXPECT_TRUE(contains(written, cat({"1B 24 07 01 1D 24 00 00", kSymbolA4})));
  EXPECT_TRUE(contains(written, cat({kSymbolA4, c.placement, kSymbolB5, "0C"})));
}

INSTANTIATE_TEST_SUITE_P(PrintTwoQRCode, TwoQrPlacement, ::testing::ValuesIn(kPlacements),
                         [](const auto& info) { return std::string(info.param.name); });

struct AnswerCase {
  const char* name;
  const char* answer;  // given for both symbols
  int32_t result;
  const char* print_area;  // on success: the ESC W command
};

const AnswerCase kAnswers[] = {
    {"digits", kAnswer96, 0, "1B 57 00 00 00 00 80 01 68 00"},
    // Fields read like the C library reads numbers.
    {"blanks_and_sign", "37 36 20 31 32 30 1F 20 2B 39 36 1F 00", 0,
     "1B 57 00 00 00 00 80 01 68 00"},
    {"trailing_bytes_ignored", "37 36 39 36 41 1F 39 36 41 1F 35 35 35 00", 0,
     "1B 57 00 00 00 00 80 01 68 00"},
    {"eighteen_bytes_of_text", "37 36 39 36 1F 39 36 1F 30 30 30 30 30 30 30 30 30 30 00", 0,
     "1B 57 00 00 00 00 80 01 68 00"},
    {"nineteen_bytes_of_text", "37 36 39 36 1F 39 36 1F 30 30 30 30 30 30 30 30 30 30 30 00",
     VORN_ERR_BAD_ANSWER, ""},
    {"begins_37_37", "37 37 39 36 1F 39 36 1F 00", VORN_ERR_BAD_ANSWER, ""},
    {"begins_36_37", "36 37 39 36 1F 39 36 1F 00", VORN_ERR_BAD_ANSWER, ""},
    {"second_separator_missing", "37 36 39 36 1F 39 36 00", VORN_ERR_BAD_ANSWER, ""},
    {"both_separators_missing", "37 36 39 36 00", VORN_ERR_BAD_ANSWER, ""},
    {"only_the_prefix", "37 36 00", VORN_ERR_BAD_ANSWER, ""},
    {"only_one_byte", "37 00", VORN_ERR_BAD_ANSWER, ""},
    {"empty", "00", VORN_ERR_BAD_ANSWER, ""},
};

class TwoQrAnswer : public ::testing::TestWithParam<AnswerCase> {};

TEST_P(TwoQrAnswer, ParsesOrRefuses) {
  const AnswerCase& c = GetParam();
  FakeSession session("VR-M60A");
  script_answers(session, {c.answer, c.answer});
  EXPECT_EQ(PrintTwoQRCode(session.handle(), u"A", 4, 0, 0, u"B", 5, 0, 0), c.result);
  const std::vector<uint8_t> written = session.take_written();
  if (c.result == VORN_OK) {
    EXPECT_TRUE(contains(written, hex(std::string("1B 4C ") + c.print_area)));
  } else {
    // The first answer already fails: nothing after the first query.
    EXPECT_EQ(written, hex(kQueryA4));
    EXPECT_EQ(session.context().page_mode, 0);
  }
}

INSTANTIATE_TEST_SUITE_P(PrintTwoQRCode, TwoQrAnswer, ::testing::ValuesIn(kAnswers),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(PrintTwoQRCode, MissingAnswerTimesOutAfterElevenPolls) {
  FakeSession session("VR-M60A");
  EXPECT_EQ(PrintTwoQRCode(session.handle(), u"A", 4, 1, 1, u"B", 5, 1, 1),
            VORN_ERR_IO_READ_TIMEOUT);
  EXPECT_EQ(session.take_written(), hex(kQueryA4));
  std::vector<uint32_t> expected{100};
  expected.insert(expected.end(), 11, 20);
  EXPECT_EQ(session.clock.sleeps(), expected);
  EXPECT_EQ(session.context().page_mode, 0);
}

TEST(PrintTwoQRCode, SecondAnswerMissing) {
  FakeSession session("VR-M60A");
  script_answers(session, {kAnswer120});
  EXPECT_EQ(PrintTwoQRCode(session.handle(), u"A", 4, 1, 1, u"B", 5, 1, 1),
            VORN_ERR_IO_READ_TIMEOUT);
  EXPECT_EQ(session.take_written(), cat({kQueryA4, kQueryB5}));
  EXPECT_EQ(session.clock.sleeps().size(), 2u + 11);
}

TEST(PrintTwoQRCode, AnswerWithoutZeroWithinThirtyTwoBytesTimesOut) {
  FakeSession session("VR-M60A");
  std::string answer = "37 36";
  for (int i = 0; i < 38; ++i) answer += " 31";
  script_answers(session, {answer + " 00"});
  EXPECT_EQ(PrintTwoQRCode(session.handle(), u"A", 4, 1, 1, u"B", 5, 1, 1),
            VORN_ERR_IO_READ_TIMEOUT);
  EXPECT_EQ(session.take_written(), hex(kQueryA4));
}

TEST(PrintTwoQRCode, ModelWithoutPageModeFailsAfterEscL) {
  FakeSession session("unknown");
  script_answers(session, {kAnswer120, kAnswer96});
  EXPECT_EQ(PrintTwoQRCode(session.handle(), u"A", 4, 1, 1, u"B", 5, 1, 1),
            VORN_ERR_PRINTER_NOT_SUPPORTED);
  EXPECT_EQ(session.take_written(), cat({kQueryA4, kQueryB5, "1B 4C"}));
  EXPECT_EQ(session.context().page_mode, 1);
  EXPECT_TRUE(session.pending().empty());
}

TEST(PrintTwoQRCode, PositionOutsideSixteenBitsLeavesPageMode) {
  FakeSession session("VR-M60A");
  // 400 dots wide: centring gives (384 - 400) / 2 = -8.
  script_answers(session, {"37 36 34 30 30 1F 39 36 1F 00", kAnswer96});
  EXPECT_EQ(PrintTwoQRCode(session.handle(), u"A", 4, 1, 1, u"B", 5, 1, 1), VORN_ERR_PARAMETER);
  EXPECT_EQ(session.take_written(),
            cat({kQueryA4, kQueryB5, "1B 4C", "1B 57 00 00 00 00 80 01 68 00"}));
  EXPECT_TRUE(session.pending().empty());
  EXPECT_EQ(session.context().page_mode, 1);
}

TEST(PrintTwoQRCode, VerticalPositionFailureTakesBackHorizontal) {
  FakeSession session("VR-M60A");
  script_answers(session, {kAnswer96, kAnswer96});
  EXPECT_EQ(PrintTwoQRCode(session.handle(), u"A", 4, 0, 0, u"B", 5, 0, -5), VORN_ERR_PARAMETER);
  const std::vector<uint8_t> written = session.take_written();
  EXPECT_TRUE(contains(written, cat({"1B 24 01 00 1D 24 01 00", kSymbolA4})));
  EXPECT_FALSE(contains(written, cat({kSymbolA4, "1B 24"})));
  EXPECT_TRUE(session.pending().empty());
}

struct DataCase {
  const char* name;
  std::u16string data1;
  std::u16string data2;
  int32_t module1;
  int32_t module2;
  int32_t result;
  const char* written;
};

const DataCase kDataCases[] = {
    {"text_over_259_bytes", std::u16string(260, u'A'), u"B", 4, 5, VORN_ERR_BUFFER_TOO_SMALL, ""},
    {"second_text_over_259_bytes", u"A", std::u16string(260, u'B'), 4, 5, VORN_ERR_BUFFER_TOO_SMALL,
     ""},
    {"empty_first_text", u"", u"B", 4, 5, EINVAL, ""},
    {"empty_second_text_before_any_query", u"A", u"", 4, 5, EINVAL, ""},
    {"module_size_0", u"A", u"B", 0, 5, VORN_ERR_PARAMETER, ""},
    {"module_size_2_is_17", u"A", u"B", 4, 17, VORN_ERR_PARAMETER, kQueryA4},
    {"module_size_cut_to_low_byte", u"A", u"B", 0x104, 0x105, VORN_OK, ""},
};

class TwoQrData : public ::testing::TestWithParam<DataCase> {};

TEST_P(TwoQrData, ChecksDataAndModuleSize) {
  const DataCase& c = GetParam();
  FakeSession session("VR-M60A");
  script_answers(session, {kAnswer96, kAnswer96});
  EXPECT_EQ(PrintTwoQRCode(session.handle(), c.data1.c_str(), c.module1, 0, 0, c.data2.c_str(),
                           c.module2, 0, 0),
            c.result);
  const std::vector<uint8_t> written = session.take_written();
  if (c.result == VORN_OK) {
    EXPECT_TRUE(contains(written, cat({kQueryA4, kQueryB5, "1B 4C"})));
  } else {
    EXPECT_EQ(written, hex(c.written));
  }
  EXPECT_TRUE(session.pending().empty());
}

INSTANTIATE_TEST_SUITE_P(PrintTwoQRCode, TwoQrData, ::testing::ValuesIn(kDataCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(PrintTwoQRCode, TwoHundredFiftyNineBytesFit) {
  FakeSession session("VR-M60A");
  script_answers(session, {kAnswer96, kAnswer96});
  EXPECT_EQ(
      PrintTwoQRCode(session.handle(), std::u16string(259, u'A').c_str(), 4, 0, 0, u"B", 5, 0, 0),
      VORN_OK);
  // Store command of the first query: 259 + 3 = 0x106.
  EXPECT_TRUE(contains(session.take_written(), hex("1D 28 6B 06 01 31 50 30 41 41")));
}

TEST(PrintTwoQRCode, HandleAndPortChecks) {
  EXPECT_EQ(PrintTwoQRCode(nullptr, u"A", 4, 1, 1, u"B", 5, 1, 1), VORN_ERR_INVALID_HANDLE);
  FakeSession session("VR-M60A");
  ASSERT_EQ(PortClose(session.handle()), VORN_OK);
  EXPECT_EQ(PrintTwoQRCode(session.handle(), u"A", 4, 1, 1, u"B", 5, 1, 1), VORN_ERR_IO_NOT_OPEN);
  EXPECT_TRUE(session.clock.sleeps().empty());
}

TEST(PrintTwoQRCode, FailedQueryWriteStopsBeforeWaiting) {
  FakeSession session("VR-M60A");
  session.device.write_script.push_back({.accept = 0, .error = EIO});
  EXPECT_EQ(PrintTwoQRCode(session.handle(), u"A", 4, 1, 1, u"B", 5, 1, 1), EIO);
  EXPECT_TRUE(session.clock.sleeps().empty());
  EXPECT_EQ(session.pending(), hex(kQueryA4));
}

}  // namespace
}  // namespace vorn::test
