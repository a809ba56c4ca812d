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

const char* const kFour = "10 04 01 10 04 02 10 04 03 10 04 04";

struct StateCase {
  const char* model;
  const char* answers;  // one byte per question
  int32_t result;
  uint32_t state;
  const char* asked;
};

const StateCase kStateCases[] = {
    // Type flags 0x201: four real-time questions; the most pressing condition wins.
    {"VR-T80A", "12 16 12 7E", 0, 0x02, kFour},  // cover open over paper end
    {"VR-T80A", "12 12 12 7E", 0, 0x01, kFour},  // paper end over near end
    {"VR-T80A", "1A 12 12 1E", 0, 0x04, kFour},  // near end over off line
    {"VR-T80A", "1E 12 12 12", 0, 0x80, kFour},
    {"VR-T80A", "12 12 12 32", 0, 0, kFour},  // half a paper end is none
    // Bits 1 and 4 set, 0 and 7 clear, or the answer is invalid; the first
    // invalid one ends decoding, so the cover open before it is lost.
    {"VR-T80A", "12 00 12 12", -1, 0x20, kFour},
    {"VR-T80A", "13 12 12 12", -1, 0x20, kFour},
    {"VR-T80A", "12 16 92 12", -1, 0x20, kFour},
    // Type flags 0x101: one question about the line.
    {"VR-K80A", "1A", 0, 0x80, "10 04 01"},
    {"VR-K80A", "02", -1, 0x20, "10 04 01"},
    // Type flags 0x401: the paper sensor; bits 4 and 7 are never set.
    {"VR-T58A", "03", 0, 0x01, "1B 76"},
    {"VR-T58A", "02", 0, 0x80, "1B 76"},
    {"VR-T58A", "10", -1, 0x20, "1B 76"},
    {"VR-T58A", "81", -1, 0x20, "1B 76"},
    // No status protocol: nothing is asked.
    {"VR-L104A", "", 0, 0, ""},
};

TEST(GetPrinterState, DecodesTheAnswers) {
  for (const StateCase& c : kStateCases) {
    SCOPED_TRACE(testing::Message() << c.model << " answering " << c.answers);
    FakeSession session(c.model);
    const std::vector<uint8_t> answers = hex(c.answers);
    for (uint8_t answer : answers) session.device.read_script.push_back({.bytes = {answer}});
    uint32_t state = 0xFFFFFFFF;
    EXPECT_EQ(GetPrinterState(session.handle(), &state), c.result);
    EXPECT_EQ(state, c.state);
    EXPECT_EQ(session.take_written(), hex(c.asked));
    // One 100 ms wait per question.
    EXPECT_EQ(session.clock.sleeps(), std::vector<uint32_t>(answers.size(), 100));
  }
}

TEST(GetPrinterState, FailuresSetTheFailureBit) {
  uint32_t state = 0;
  FakeSession silent("VR-T80A");  // the first question stays unanswered
  EXPECT_EQ(GetPrinterState(silent.handle(), &state), VORN_ERR_IO_READ_TIMEOUT);
  EXPECT_EQ(state, 0x20u);
  EXPECT_EQ(silent.take_written(), hex("10 04 01"));

  FakeSession failing("VR-T58A");
  failing.device.write_script.push_back({.accept = 0, .error = EIO});
  EXPECT_EQ(GetPrinterState(failing.handle(), &state), EIO);
  EXPECT_EQ(state, 0x20u);
  EXPECT_EQ(failing.pending(), hex("1B 76"));
  EXPECT_TRUE(failing.clock.sleeps().empty());

  FakeSession no_escpos;
  no_escpos.context().capability_word = 0x12340200;
  EXPECT_EQ(GetPrinterState(no_escpos.handle(), &state), VORN_ERR_COMMAND_NOT_SUPPORTED);
  EXPECT_EQ(state, 0x20u);
}

// The state is zeroed before the frame checks; the drawer state is left alone.
TEST(StatusQueries, FrameAndPointerChecks) {
  uint32_t state = 0xFF;
  EXPECT_EQ(GetPrinterState(nullptr, &state), VORN_ERR_INVALID_HANDLE);
  EXPECT_EQ(state, 0u);
  state = 7;
  EXPECT_EQ(GetCashDrawerState(nullptr, &state), VORN_ERR_INVALID_HANDLE);
  EXPECT_EQ(state, 7u);
  FakeSession session("VR-T80A");
  EXPECT_EQ(GetPrinterState(session.handle(), nullptr), VORN_ERR_PARAMETER);
  EXPECT_EQ(GetCashDrawerState(session.handle(), nullptr), VORN_ERR_PARAMETER);
  EXPECT_EQ(GetFirmwareVersion(session.handle(), nullptr, 3), VORN_ERR_PARAMETER);
  EXPECT_TRUE(session.take_written().empty());
}

// Only exactly 1 is open; the question waits 500 ms before it is sent.
TEST(GetCashDrawerState, ReadsOneByteAfterHalfASecond) {
  for (const auto& [answer, open] : {std::pair<uint8_t, uint32_t>{0x01, 1}, {0x11, 0}}) {
    FakeSession session("VR-T80A");
    session.device.read_script.push_back({.bytes = {answer}});
    uint32_t state = 7;
    EXPECT_EQ(GetCashDrawerState(session.handle(), &state), VORN_OK);
    EXPECT_EQ(state, open);
    EXPECT_EQ(session.take_written(), hex("1D 72 02"));
    EXPECT_EQ(session.clock.sleeps(), std::vector<uint32_t>{500});
  }
  FakeSession silent("VR-T80A");
  uint32_t state = 7;
  EXPECT_EQ(GetCashDrawerState(silent.handle(), &state), VORN_ERR_IO_READ_TIMEOUT);
  EXPECT_EQ(state, 7u);
  FakeSession label("VR-L104A");  // refused before waiting
  EXPECT_EQ(GetCashDrawerState(label.handle(), &state), VORN_ERR_COMMAND_NOT_SUPPORTED);
  EXPECT_TRUE(label.clock.sleeps().empty());
}

struct VersionCase {
  const char* model;
  const char* answer;
  int32_t count;
  int32_t result;
  std::vector<int32_t> version;  // after the call; -7 marks untouched entries
  const char* asked = nullptr;   // the model's own query when not given
  uint32_t capability_word = 0;  // replaces the model's when given
};

const VersionCase kVersionCases[] = {
    // ESC/POS models: GS I A, answered "_major.minor.third ".
    {"VR-T80A", "5F 31 2E 32 30 2E 33 20 58 00", 2, 0, {1, 20, 3}},
    {"VR-T80A", "5F 31 2E 32 30 2E 33 20 58 00", 0, 0, {1, -7, -7}},
    {"VR-T80A", "31 2E 32 2E 33 20 00", 3, VORN_ERR_BAD_ANSWER, {-7, -7, -7}},
    // A number of 255 or more ends the decoding, keeping what came before.
    {"VR-T80A", "5F 31 2E 32 35 35 2E 33 20 00", 3, 0, {1, -7, -7}},
    {"VR-T80A", "5F 31 2E 32 2E 00", 3, 0, {1, 2, -7}},  // no space after the third
    // _7 3: no dots, so the space-ended piece is read from the start.
    {"VR-T80A", "5F 37 20 33 00", 3, 0, {-7, -7, 7}},
    // Blanks and a sign before the digits; no digits give 0.
    {"VR-T80A", "5F 20 37 2E 2D 32 2E 78 20 00", 3, 0, {7, -2, 0}},
    {"QB-P58A", "5F 32 2E 30 2E 31 20 00", 3, 0, {2, 0, 1}},  // 0x3: the ESC/POS bit wins
    // Type flags 0x2 and 0x42: the text query; the answer bytes are the version.
    {"VR-L104A", "F6 01 00", 1, 0, {-10, 1, -7}},
    {"VR-L80A", "01 02 03 00", 2, 0, {1, 2, 3}},
    // ESC # * answers carry nothing the array can hold.
    {"unknown", "31 2E 32 00", 3, 0, {-7, -7, -7}, "1B 23 2A 0A 00", 0x12340004},
    {"VR-L108X", "", 3, VORN_ERR_COMMAND_NOT_SUPPORTED, {-7, -7, -7}, ""},  // no query kind
};

TEST(GetFirmwareVersion, DecodesTheAnswer) {
  for (const VersionCase& c : kVersionCases) {
    SCOPED_TRACE(testing::Message() << c.model << " answering " << c.answer);
    FakeSession session(c.model);
    if (c.capability_word != 0) session.context().capability_word = c.capability_word;
    session.device.read_script.push_back({.bytes = hex(c.answer)});
    std::vector<int32_t> version = {-7, -7, -7};
    EXPECT_EQ(GetFirmwareVersion(session.handle(), version.data(), c.count), c.result);
    EXPECT_EQ(version, c.version);
    const bool text_query = std::string(c.model).starts_with("VR-L");
    const char* own = text_query ? "5A 5A 5A 47 45 54 56 45 52 53 49 4F 4E" : "1D 49 41";
    EXPECT_EQ(session.take_written(), hex(c.asked != nullptr ? c.asked : own));
    EXPECT_TRUE(session.pending().empty());
    EXPECT_TRUE(session.clock.sleeps().empty());  // no wait before the read
  }
}

}  // namespace
}  // namespace vorn::test
