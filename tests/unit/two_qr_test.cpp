// PrintTwoQRCode through the public API on a fake session whose device
// answers the size queries from a script.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "support/fake_session.h"
#include "support/wide_text.h"

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

std::vector<uint8_t> cat(const std::vector<std::string>& parts) {
  std::string all;
  for (const std::string& part : parts) all += part + " ";
  return hex(all);
}

bool contains(const std::vector<uint8_t>& haystack, const std::vector<uint8_t>& needle) {
  return std::search(haystack.begin(), haystack.end(), needle.begin(), needle.end()) !=
         haystack.end();
}

// "76", the digits, 0x1F, the digits, 0x1F, 0x00.
const char* const kAnswer120 = "37 36 31 32 30 1F 31 32 30 1F 00";
const char* const kAnswer96 = "37 36 39 36 1F 39 36 1F 00";
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

// Symbol A (module 4) at (x1, y1), symbol B (module 5) at (x2, y2).
int32_t print_two(FakeSession& session, int32_t x1, int32_t y1, int32_t x2, int32_t y2) {
  return PrintTwoQRCode(session.handle(), VW("A"), 4, x1, y1, VW("B"), 5, x2, y2);
}

// Symbol 1 is 120 dots square, symbol 2 96. Position codes: 0 start (dot 1),
// 1 centred, 2 end; anything else is a position in dots. On models with the
// finer motion unit the vertical sizes count double: 240 and 192 high give
// page 240, area 248, symbol 2 centred at (240 - 192) / 2 = 24.
TEST(PrintTwoQRCode, WritesTheWholePageJob) {
  const struct {
    const char* model;
    int32_t x1, y1, x2, y2;
    const char *area_height, *first, *second;  // the ESC $ and GS $ of each
  } cases[] = {
      {"VR-M60A", 1, 1, 1, 1, "80 00", "1B 24 84 00 1D 24 00 00", "1B 24 90 00 1D 24 0C 00"},
      {"VR-T80A", 1, 1, 1, 1, "F8 00", "1B 24 84 00 1D 24 00 00", "1B 24 90 00 1D 24 18 00"},
      // Right edge 384 - 120 - 1 = 263; bottom 120 - 96 = 24, without the - 1.
      {"VR-M60A", 2, 2, 0, 0, "80 00", "1B 24 07 01 1D 24 00 00", "1B 24 01 00 1D 24 01 00"},
      {"VR-M60A", 2, 2, 2, 2, "80 00", "1B 24 07 01 1D 24 00 00", "1B 24 1F 01 1D 24 18 00"},
      {"VR-M60A", 2, 2, 5, 300, "80 00", "1B 24 07 01 1D 24 00 00", "1B 24 05 00 1D 24 2C 01"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.model << " " << c.x2 << ", " << c.y2);
    FakeSession session(c.model);
    script_answers(session, {kAnswer120, kAnswer96});
    ASSERT_EQ(print_two(session, c.x1, c.y1, c.x2, c.y2), VORN_OK);
    EXPECT_EQ(session.take_written(),
              cat({kQueryA4, kQueryB5, "1B 4C 1B 57 00 00 00 00 80 01", c.area_height, c.first,
                   kSymbolA4, c.second, kSymbolB5, "0C"}));
    // Each block is one write: the positions go out with their symbol.
    EXPECT_EQ(session.device.write_requests,
              (std::vector<uint32_t>{25, 25, 2, 10, 8 + 42, 8 + 42, 1}));
    EXPECT_EQ(session.clock.sleeps(), (std::vector<uint32_t>{100, 100}));
    EXPECT_EQ(session.context().page_mode, 0);
  }
}

// The size answers, texts and module sizes a call takes or refuses. A
// call that ends leaves standard mode selected and nothing in the buffer.
TEST(PrintTwoQRCode, AnswersTextsAndModuleSizesAreChecked) {
  const char* const kPage96 = "1B 4C 1B 57 00 00 00 00 80 01 68 00";
  struct Case {
    const char* answer;  // to both queries
    int32_t result;
    const char* written;  // all of it if refused, part of it if not
    WideString data1 = VW("A"), data2 = VW("B");
    int32_t module2 = 5;
  } cases[] = {
      // Fields read like the C library reads numbers.
      {"37 36 20 31 32 30 1F 20 2B 39 36 1F 00", VORN_OK, kPage96},
      {"37 36 39 36 1F 39 36 1F 30 30 30 30 30 30 30 30 30 30 00", VORN_OK, kPage96},  // 18 bytes
      {"37 36 39 36 1F 39 36 1F 30 30 30 30 30 30 30 30 30 30 30 00", VORN_ERR_BAD_ANSWER,
       kQueryA4},
      {"37 37 39 36 1F 39 36 1F 00", VORN_ERR_BAD_ANSWER, kQueryA4},
      {"36 36 39 36 1F 39 36 1F 00", VORN_ERR_BAD_ANSWER, kQueryA4},
      {"37 36 39 36 1F 39 36 00", VORN_ERR_BAD_ANSWER, kQueryA4},
      {"37 36 39 36 00", VORN_ERR_BAD_ANSWER, kQueryA4},
      // Both texts are converted, into 260 bytes each, before any query.
      {kAnswer96, VORN_ERR_BUFFER_TOO_SMALL, "", VW("A"), WideString(260, VW('B'))},
      {kAnswer96, VORN_ERR_PARAMETER, kQueryA4, VW("A"), VW("B"), 17},
      // 259 bytes fit: the store command counts 259 + 3 = 0x106.
      {kAnswer96, VORN_OK, "1D 28 6B 06 01 31 50 30 41 41", WideString(259, VW('A'))},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.answer << ", result " << c.result);
    FakeSession session("VR-M60A");
    script_answers(session, {c.answer, c.answer});
    EXPECT_EQ(PrintTwoQRCode(session.handle(), c.data1.c_str(), 4, 0, 0, c.data2.c_str(), c.module2,
                             0, 0),
              c.result);
    const std::vector<uint8_t> written = session.take_written();
    EXPECT_TRUE(c.result == VORN_OK ? contains(written, hex(c.written))
                                    : written == hex(c.written));
    EXPECT_TRUE(session.pending().empty());
    EXPECT_EQ(session.context().page_mode, 0);
  }
}

// A failed query stops the call there; a write that fails waits for nothing.
TEST(PrintTwoQRCode, FailedQueriesStopTheCall) {
  FakeSession failing("VR-M60A");
  failing.device.write_script.push_back({.accept = 0, .error = EIO});
  EXPECT_EQ(print_two(failing, 1, 1, 1, 1), EIO);
  EXPECT_TRUE(failing.clock.sleeps().empty());
  EXPECT_EQ(failing.pending(), hex(kQueryA4));

  FakeSession none("VR-M60A");
  EXPECT_EQ(print_two(none, 1, 1, 1, 1), VORN_ERR_IO_READ_TIMEOUT);
  EXPECT_EQ(none.take_written(), hex(kQueryA4));
  std::vector<uint32_t> expected{100};
  expected.insert(expected.end(), 11, 20);
  EXPECT_EQ(none.clock.sleeps(), expected);

  FakeSession second_missing("VR-M60A");
  script_answers(second_missing, {kAnswer120});
  EXPECT_EQ(print_two(second_missing, 1, 1, 1, 1), VORN_ERR_IO_READ_TIMEOUT);
  EXPECT_EQ(second_missing.take_written(), cat({kQueryA4, kQueryB5}));
}

TEST(PrintTwoQRCode, PageFailuresLeavePageModeSelected) {
  FakeSession unknown("unknown");  // no page-mode support: ESC W is refused
  script_answers(unknown, {kAnswer120, kAnswer96});
  EXPECT_EQ(print_two(unknown, 1, 1, 1, 1), VORN_ERR_PRINTER_NOT_SUPPORTED);
  EXPECT_EQ(unknown.take_written(), cat({kQueryA4, kQueryB5, "1B 4C"}));
  EXPECT_EQ(unknown.context().page_mode, 1);

  // 400 dots wide: centring gives (384 - 400) / 2 = -8.
  FakeSession wide("VR-M60A");
  script_answers(wide, {"37 36 34 30 30 1F 39 36 1F 00", kAnswer96});
  EXPECT_EQ(print_two(wide, 1, 1, 1, 1), VORN_ERR_PARAMETER);
  EXPECT_EQ(wide.take_written(), cat({kQueryA4, kQueryB5, "1B 4C 1B 57 00 00 00 00 80 01 68 00"}));
  EXPECT_TRUE(wide.pending().empty());
  EXPECT_EQ(wide.context().page_mode, 1);

  // A refused vertical position takes back the horizontal one with it.
  FakeSession low("VR-M60A");
  script_answers(low, {kAnswer96, kAnswer96});
  EXPECT_EQ(print_two(low, 0, 0, 0, -5), VORN_ERR_PARAMETER);
  const std::vector<uint8_t> written = low.take_written();
  EXPECT_TRUE(contains(written, hex(kSymbolA4)));
  EXPECT_FALSE(contains(written, cat({kSymbolA4, "1B 24"})));
  EXPECT_TRUE(low.pending().empty());
}

}  // namespace
}  // namespace vorn::test
