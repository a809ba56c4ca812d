// Status queries against scripted answers: what is asked, how long the call
// waits, and how answers (good, malformed or missing) become results.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <cerrno>
#include <string>
#include <vector>

#include "support/fake_session.h"

namespace vorn::test {
namespace {

// ---- GetPrinterState ------------------------------------------------------

struct StateCase {
  const char* name;
  const char* model;
  std::vector<std::vector<uint8_t>> answers;  // one byte per question
  int32_t result;
  uint32_t state;
  const char* asked;
};

const char* const kFourQuestions = "10 04 01 10 04 02 10 04 03 10 04 04";

const StateCase kStateCases[] = {
    // Type flags 0x201: four real-time questions.
    {"PaperEndOutranksNearEnd",
     "VR-T80A",
     {{0x12}, {0x12}, {0x12}, {0x7E}},
     0,
     0x01,
     kFourQuestions},
    {"CoverOpenOutranksPaperEnd",
     "VR-T80A",
     {{0x12}, {0x16}, {0x12}, {0x7E}},
     0,
     0x02,
     kFourQuestions},
    {"OffLine", "VR-T80A", {{0x1E}, {0x12}, {0x12}, {0x12}}, 0, 0x80, kFourQuestions},
    {"PaperEndOutranksOffLine",
     "VR-T80A",
     {{0x1A}, {0x12}, {0x12}, {0x72}},
     0,
     0x01,
     kFourQuestions},
    {"NearEndOnly", "VR-T80A", {{0x12}, {0x12}, {0x12}, {0x1E}}, 0, 0x04, kFourQuestions},
    {"NearEndOutranksOffLine",
     "VR-T80A",
     {{0x1A}, {0x12}, {0x12}, {0x1E}},
     0,
     0x04,
     kFourQuestions},
    {"HalfAPaperEndIsNone", "VR-T80A", {{0x12}, {0x12}, {0x12}, {0x32}}, 0, 0, kFourQuestions},
    {"AllWell", "VR-T80A", {{0x12}, {0x12}, {0x12}, {0x12}}, 0, 0, kFourQuestions},
    {"ZeroAnswerIsInvalid", "VR-T80A", {{0x12}, {0x00}, {0x12}, {0x12}}, -1, 0x20, kFourQuestions},
    {"Bit0SetIsInvalid", "VR-T80A", {{0x13}, {0x12}, {0x12}, {0x12}}, -1, 0x20, kFourQuestions},
    // The first invalid answer ends decoding: cover open in answer 2 is lost.
    {"InvalidAfterCoverOpen",
     "VR-T80A",
     {{0x12}, {0x16}, {0x92}, {0x12}},
     -1,
     0x20,
     kFourQuestions},
    // Type flags 0x101: one real-time question about the line.
    {"LineOffLine", "VR-K80A", {{0x1A}}, 0, 0x80, "10 04 01"},
    {"LineOnLine", "VR-K80A", {{0x12}}, 0, 0, "10 04 01"},
    {"LineInvalid", "VR-K80A", {{0x02}}, -1, 0x20, "10 04 01"},
    // Type flags 0x1101 carry the same protocol bit.
    {"LineOnOtherModel", "VR-K58A", {{0x1A}}, 0, 0x80, "10 04 01"},
    // Type flags 0x401: the paper sensor.
    {"SensorPaperEnd", "VR-T58A", {{0x03}}, 0, 0x01, "1B 76"},
    {"SensorOffLine", "VR-T58A", {{0x02}}, 0, 0x80, "1B 76"},
    {"SensorAllWell", "VR-T58A", {{0x00}}, 0, 0, "1B 76"},
    {"SensorBit4", "VR-T58A", {{0x10}}, -1, 0x20, "1B 76"},
    {"SensorBit7", "VR-T58A", {{0x81}}, -1, 0x20, "1B 76"},
    // Models without a status protocol are not asked.
    {"EscPosOnly", "VR-B80", {}, 0, 0, ""},
    {"LabelPrinter", "VR-L104A", {}, 0, 0, ""},
};

class PrinterStateTable : public ::testing::TestWithParam<StateCase> {};

TEST_P(PrinterStateTable, DecodesTheAnswers) {
  const StateCase& c = GetParam();
  FakeSession session(c.model);
  for (const auto& bytes : c.answers) session.device.read_script.push_back({.bytes = bytes});
  uint32_t state = 0xFFFFFFFF;
  EXPECT_EQ(GetPrinterState(session.handle(), &state), c.result);
  EXPECT_EQ(state, c.state);
  EXPECT_EQ(session.take_written(), hex(c.asked));
  // One 100 ms wait per question.
  EXPECT_EQ(session.clock.sleeps(), std::vector<uint32_t>(c.answers.size(), 100));
}

INSTANTIATE_TEST_SUITE_P(Status, PrinterStateTable, ::testing::ValuesIn(kStateCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(PrinterState, MissingAnswerGivesTheReadTimeout) {
  FakeSession session("VR-T80A");
  uint32_t state = 0;
  EXPECT_EQ(GetPrinterState(session.handle(), &state), VORN_ERR_IO_READ_TIMEOUT);
  EXPECT_EQ(state, 0x20u);
  // The first question stays unanswered; the others are never asked.
  EXPECT_EQ(session.take_written(), hex("10 04 01"));
  ASSERT_FALSE(session.clock.sleeps().empty());
  EXPECT_EQ(session.clock.sleeps().front(), 100u);
}

TEST(PrinterState, ReadErrorIsPassedOn) {
  FakeSession session("VR-T80A");
  session.device.read_script = {{.bytes = {0x12}}, {.error = EIO}};
  uint32_t state = 0;
  EXPECT_EQ(GetPrinterState(session.handle(), &state), EIO);
  EXPECT_EQ(state, 0x20u);
  EXPECT_EQ(session.take_written(), hex("10 04 01 10 04 02"));
}

TEST(PrinterState, FailedSendKeepsTheQuestionAndSetsTheFailureBit) {
  FakeSession session("VR-T58A");
  session.device.write_script.push_back({.accept = 0, .error = EIO});
  uint32_t state = 0;
  EXPECT_EQ(GetPrinterState(session.handle(), &state), EIO);
  EXPECT_EQ(state, 0x20u);
  EXPECT_EQ(session.pending(), hex("1B 76"));
  EXPECT_TRUE(session.clock.sleeps().empty());
}

TEST(PrinterState, ProtocolWithoutEscPosBitIsRefusedWhileBuilding) {
  FakeSession session;
  session.context().capability_word = 0x12340200;
  uint32_t state = 0;
  EXPECT_EQ(GetPrinterState(session.handle(), &state), VORN_ERR_COMMAND_NOT_SUPPORTED);
  EXPECT_EQ(state, 0x20u);
  EXPECT_TRUE(session.take_written().empty());
}

TEST(PrinterState, FrameFailuresLeaveTheStateAtZero) {
  uint32_t state = 0xFF;
  EXPECT_EQ(GetPrinterState(nullptr, &state), VORN_ERR_INVALID_HANDLE);
  EXPECT_EQ(state, 0u);
  VORN_PRINTER handle = PrinterCreatorS("VR-T80A");
  ASSERT_NE(handle, nullptr);
  state = 0xFF;
  EXPECT_EQ(GetPrinterState(handle, &state), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(state, 0u);
  PrinterDestroy(handle);
}

TEST(PrinterState, NullStateIsRefused) {
  FakeSession session("VR-T80A");
  EXPECT_EQ(GetPrinterState(session.handle(), nullptr), VORN_ERR_PARAMETER);
  EXPECT_TRUE(session.take_written().empty());
}

// ---- GetCashDrawerState ---------------------------------------------------

struct DrawerCase {
  const char* name;
  std::vector<uint8_t> answer;
  uint32_t state;
};

const DrawerCase kDrawerCases[] = {
    {"Open", {0x01}, 1},
    {"Closed", {0x00}, 0},
    {"OtherBitsCountAsClosed", {0x11}, 0},
};

class DrawerTable : public ::testing::TestWithParam<DrawerCase> {};

TEST_P(DrawerTable, OnlyExactlyOneIsOne) {
  FakeSession session("VR-T80A");
  session.device.read_script.push_back({.bytes = GetParam().answer});
  uint32_t state = 7;
  EXPECT_EQ(GetCashDrawerState(session.handle(), &state), VORN_OK);
  EXPECT_EQ(state, GetParam().state);
  EXPECT_EQ(session.take_written(), hex("1D 72 02"));
  EXPECT_EQ(session.clock.sleeps(), std::vector<uint32_t>{500});
}

INSTANTIATE_TEST_SUITE_P(Status, DrawerTable, ::testing::ValuesIn(kDrawerCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(CashDrawer, MissingAnswerLeavesTheStateAlone) {
  FakeSession session("VR-T80A");
  uint32_t state = 7;
  EXPECT_EQ(GetCashDrawerState(session.handle(), &state), VORN_ERR_IO_READ_TIMEOUT);
  EXPECT_EQ(state, 7u);
  EXPECT_EQ(session.clock.sleeps().front(), 500u);
}

TEST(CashDrawer, ReadErrorLeavesTheStateAlone) {
  FakeSession session("VR-T80A");
  session.device.read_script.push_back({.error = EIO});
  uint32_t state = 7;
  EXPECT_EQ(GetCashDrawerState(session.handle(), &state), EIO);
  EXPECT_EQ(state, 7u);
}

TEST(CashDrawer, ModelWithoutEscPosIsRefusedBeforeWaiting) {
  FakeSession session("VR-L104A");
  uint32_t state = 7;
  EXPECT_EQ(GetCashDrawerState(session.handle(), &state), VORN_ERR_COMMAND_NOT_SUPPORTED);
  EXPECT_EQ(state, 7u);
  EXPECT_TRUE(session.clock.sleeps().empty());
  EXPECT_TRUE(session.take_written().empty());
}

TEST(CashDrawer, FailedSendKeepsTheQuestion) {
  FakeSession session("VR-T80A");
  session.device.write_script.push_back({.accept = 0, .error = EIO});
  uint32_t state = 7;
  EXPECT_EQ(GetCashDrawerState(session.handle(), &state), EIO);
  EXPECT_EQ(state, 7u);
  EXPECT_EQ(session.pending(), hex("1D 72 02"));
}

TEST(CashDrawer, FrameFailuresLeaveTheStateAlone) {
  uint32_t state = 7;
  EXPECT_EQ(GetCashDrawerState(nullptr, &state), VORN_ERR_INVALID_HANDLE);
  VORN_PRINTER handle = PrinterCreatorS("VR-T80A");
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(GetCashDrawerState(handle, &state), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(state, 7u);
  PrinterDestroy(handle);
}

// ---- GetFirmwareVersion ---------------------------------------------------

struct VersionCase {
  const char* name;
  const char* model;
  const char* answer;
  int32_t count;
  int32_t result;
  std::vector<int32_t> version;  // after the call; -7 marks untouched entries
  const char* asked;
};

const char* const kGsIA = "1D 49 41";
const char* const kZzz = "5A 5A 5A 47 45 54 56 45 52 53 49 4F 4E";

const VersionCase kVersionCases[] = {
    {"Dotted", "VR-T80A", "5F 31 2E 32 30 2E 33 20 58 00", 2, 0, {1, 20, 3}, kGsIA},
    {"DottedCount3", "VR-T80A", "5F 31 2E 32 30 2E 33 20 58 00", 3, 0, {1, 20, 3}, kGsIA},
    {"DottedCount1", "VR-T80A", "5F 31 2E 32 30 2E 33 20 58 00", 1, 0, {1, 20, -7}, kGsIA},
    {"DottedCount0", "VR-T80A", "5F 31 2E 32 30 2E 33 20 58 00", 0, 0, {1, -7, -7}, kGsIA},
    {"DottedNegativeCount", "VR-T80A", "5F 31 2E 32 30 2E 33 20 58 00", -5, 0, {1, -7, -7}, kGsIA},
    // _300.1.1 and a space: 300 ends the decoding at once.
    {"TooLargeStops", "VR-T80A", "5F 33 30 30 2E 31 2E 31 20 00", 3, 0, {-7, -7, -7}, kGsIA},
    // _1.255.3 : the second piece stops, the first stays stored.
    {"TooLargeLaterStops", "VR-T80A", "5F 31 2E 32 35 35 2E 33 20 00", 3, 0, {1, -7, -7}, kGsIA},
    // 1.2.3 without the leading underscore.
    {"NoUnderscore", "VR-T80A", "31 2E 32 2E 33 20 00", 3, -30, {-7, -7, -7}, kGsIA},
    // _1.2 : no space after the third piece.
    {"ThirdWithoutSpace", "VR-T80A", "5F 31 2E 32 2E 00", 3, 0, {1, 2, -7}, kGsIA},
    // _7 3: no dots, so the space-ended piece is read from the start.
    {"PieceWithoutSeparatorIsSkipped", "VR-T80A", "5F 37 20 33 00", 3, 0, {-7, -7, 7}, kGsIA},
    // _ 7.-2.x : blanks and a sign before the digits; no digits give 0.
    {"BlanksSignsAndNoDigits", "VR-T80A", "5F 20 37 2E 2D 32 2E 78 20 00", 3, 0, {7, -2, 0}, kGsIA},
    // Type flags 0x3: the ESC/POS bit decides the query and the decoding.
    {"EscPosBitWins", "QB-P58A", "5F 32 2E 30 2E 31 20 00", 3, 0, {2, 0, 1}, kGsIA},
    // Type flags 0x2: the text query; the answer bytes are the version.
    {"TextQuery", "VR-L104A", "56 31 32 00", 3, 0, {86, 49, 50}, kZzz},
    {"TextQuerySignedBytes", "VR-L104A", "F6 01 00", 1, 0, {-10, 1, -7}, kZzz},
    {"TextQueryShortAnswer", "VR-L104A", "41 00", 3, 0, {65, 0, 0}, kZzz},
    // Type flags 0x42: no ESC/POS, still asked with the text query.
    {"TextQueryWithoutEscPos", "VR-L80A", "01 02 03 00", 2, 0, {1, 2, 3}, kZzz},
};

class VersionTable : public ::testing::TestWithParam<VersionCase> {};

TEST_P(VersionTable, DecodesTheAnswer) {
  const VersionCase& c = GetParam();
  FakeSession session(c.model);
  session.device.read_script.push_back({.bytes = hex(c.answer)});
  std::vector<int32_t> version = {-7, -7, -7};
  EXPECT_EQ(GetFirmwareVersion(session.handle(), version.data(), c.count), c.result);
  EXPECT_EQ(version, c.version);
  EXPECT_EQ(session.take_written(), hex(c.asked));
  // No wait before the read, and the whole answer came with the first poll.
  EXPECT_TRUE(session.clock.sleeps().empty());
}

INSTANTIATE_TEST_SUITE_P(Status, VersionTable, ::testing::ValuesIn(kVersionCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(FirmwareVersion, MissingAnswerGives332AfterElevenPolls) {
  FakeSession session("VR-T80A");
  std::vector<int32_t> version = {-7, -7, -7};
  EXPECT_EQ(GetFirmwareVersion(session.handle(), version.data(), 3), VORN_ERR_IO_READ_TIMEOUT);
  EXPECT_EQ(version, (std::vector<int32_t>{-7, -7, -7}));
  EXPECT_EQ(session.clock.sleeps(), std::vector<uint32_t>(11, 20));
}

TEST(FirmwareVersion, AnswerWithoutZeroByteGives332) {
  FakeSession session("VR-T80A");
  std::vector<uint8_t> answer = {0x5F, 0x31, 0x2E, 0x32, 0x2E, 0x33, 0x20};
  answer.resize(40, 0x41);
  session.device.read_script.push_back({.bytes = answer});
  std::vector<int32_t> version = {-7, -7, -7};
  EXPECT_EQ(GetFirmwareVersion(session.handle(), version.data(), 3), VORN_ERR_IO_READ_TIMEOUT);
  EXPECT_EQ(version, (std::vector<int32_t>{-7, -7, -7}));
}

TEST(FirmwareVersion, AnswerInPiecesIsCollected) {
  FakeSession session("VR-T80A");
  session.device.read_script.push_back({.bytes = hex("5F 34 2E")});
  session.device.read_script.push_back({.bytes = {}});
  session.device.read_script.push_back({.bytes = hex("35 2E 36 20 00")});
  std::vector<int32_t> version = {-7, -7, -7};
  EXPECT_EQ(GetFirmwareVersion(session.handle(), version.data(), 3), VORN_OK);
  EXPECT_EQ(version, (std::vector<int32_t>{4, 5, 6}));
}

TEST(FirmwareVersion, EscHashQueryDecodesNothing) {
  FakeSession session;
  session.context().capability_word = 0x12340004;
  session.device.read_script.push_back({.bytes = hex("31 2E 32 00")});
  std::vector<int32_t> version = {-7, -7, -7};
  EXPECT_EQ(GetFirmwareVersion(session.handle(), version.data(), 3), VORN_OK);
  EXPECT_EQ(version, (std::vector<int32_t>{-7, -7, -7}));
  EXPECT_EQ(session.take_written(), hex("1B 23 2A 0A 00"));
}

TEST(FirmwareVersion, ModelWithoutQueryKindIsRefused) {
  FakeSession session("VR-L108X");  // type flags 0x38
  std::vector<int32_t> version = {-7, -7, -7};
  EXPECT_EQ(GetFirmwareVersion(session.handle(), version.data(), 3),
            VORN_ERR_COMMAND_NOT_SUPPORTED);
  EXPECT_EQ(version, (std::vector<int32_t>{-7, -7, -7}));
  EXPECT_TRUE(session.take_written().empty());
  EXPECT_TRUE(session.pending().empty());
}

TEST(FirmwareVersion, FrameAndPointerChecks) {
  int32_t version[3] = {-7, -7, -7};
  EXPECT_EQ(GetFirmwareVersion(nullptr, version, 3), VORN_ERR_INVALID_HANDLE);
  VORN_PRINTER handle = PrinterCreatorS("VR-T80A");
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(GetFirmwareVersion(handle, version, 3), VORN_ERR_IO_NOT_OPEN);
  PrinterDestroy(handle);
  EXPECT_EQ(version[0], -7);

  FakeSession session("VR-T80A");
  EXPECT_EQ(GetFirmwareVersion(session.handle(), nullptr, 3), VORN_ERR_PARAMETER);
  EXPECT_TRUE(session.take_written().empty());
}

}  // namespace
}  // namespace vorn::test
