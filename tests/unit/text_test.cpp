// Text printing through PrintText and PrintTextS: the layout commands, their
// order, page mode, the room for the converted text, and the rollback of a
// call that fails half-way.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <cerrno>
#include <string>
#include <vector>

#include "support/fake_session.h"
#include "support/platform_expect.h"
#include "support/utf8_text.h"
#include "support/wide_text.h"

namespace vorn::test {
namespace {

struct Case {
  const VORN_WCHAR* text;
  int32_t alignment, attributes, size, result;
  const char* bytes;
};

// Attributes 0 resets the modes; otherwise every switch goes out, each on or
// off by its bit (font, bold, underline, reverse, double-strike). Each bit is
// on in a different set of rows, so a swapped bit shows.
const Case kCases[] = {
    {VW("AB"), 1, 2, 0x11, 0,
     "1B 61 01 1B 4D 00 1B 45 01 1B 2D 00 1D 42 00 1B 47 00 1D 21 11 41 42"},
    {VW("A"), 0, 0, 0, 0, "1B 61 00 1B 21 00 1D 42 00 1D 21 00 41"},
    {VW("A"), 0, 0x09, 0, 0, "1B 61 00 1B 4D 01 1B 45 00 1B 2D 00 1D 42 01 1B 47 00 1D 21 00 41"},
    {VW("A"), 0, 0x14, 0, 0, "1B 61 00 1B 4D 00 1B 45 00 1B 2D 01 1D 42 00 1B 47 01 1D 21 00 41"},
    // Bit 5 means nothing; attributes are not cut, so 256 is not the reset.
    {VW("A"), 0, 0x25, 0, 0, "1B 61 00 1B 4D 01 1B 45 00 1B 2D 01 1D 42 00 1B 47 00 1D 21 00 41"},
    {VW("A"), 0, 256, 0, 0, "1B 61 00 1B 4D 00 1B 45 00 1B 2D 00 1D 42 00 1B 47 00 1D 21 00 41"},
    // Alignment and size are cut to 8 bits.
    {VW("A"), 256, 0, 0x111, 0, "1B 61 00 1B 21 00 1D 42 00 1D 21 11 41"},
    {VW("A\tB\n"), 0, 0, 0, 0, "1B 61 00 1B 21 00 1D 42 00 1D 21 00 41 09 42 0A"},
    {VW("A"), 3, 0, 0, -1, ""},
    {VW("A"), 0, 0, 0x08, -1, ""},
    {VW("A"), 0, 2, 0x80, -1, ""},
    {VW(""), 0, 0, 0, kInvalidParameter, ""},
    {nullptr, 0, 0, 0, kInvalidParameter, ""},
};

TEST(PrintText, SendsLayoutThenText) {
  for (const Case& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.alignment << ", " << c.attributes << ", " << c.size);
    FakeSession session;
    EXPECT_EQ(PrintText(session.handle(), c.text, c.alignment, c.attributes, c.size), c.result);
    EXPECT_EQ(session.take_written(), hex(c.bytes));
    EXPECT_TRUE(session.pending().empty());
  }
}

// In page mode justification is neither sent nor checked, and the 0x1102
// model ends each text with a line feed unless the text brings one.
TEST(PrintText, PageMode) {
  const struct {
    const char* model;
    uint8_t page_mode;
    const VORN_WCHAR* text;
    const char* bytes;
  } cases[] = {
      {"VR-M80A", 1, VW("AB"), "1B 21 00 1D 42 00 1D 21 00 41 42 0A"},
      {"VR-M80A", 1, VW("A\n"), "1B 21 00 1D 42 00 1D 21 00 41 0A"},
      {"VR-M80A", 1, VW("A\nB"), "1B 21 00 1D 42 00 1D 21 00 41 0A 42 0A"},
      {"VR-T80A", 1, VW("AB"), "1B 21 00 1D 42 00 1D 21 00 41 42"},
      {"VR-M80A", 0, VW("AB"), "1B 61 00 1B 21 00 1D 42 00 1D 21 00 41 42"},
  };
  for (const auto& c : cases) {
    FakeSession session(c.model);
    session.context().page_mode = c.page_mode;
    EXPECT_EQ(PrintText(session.handle(), c.text, c.page_mode ? 3 : 0, 0, 0), VORN_OK);
    EXPECT_EQ(session.take_written(), hex(c.bytes)) << c.model << " " << int{c.page_mode};
  }
  // PrintTextS sends the bytes alone.
  FakeSession session("VR-M80A");
  session.context().page_mode = 1;
  EXPECT_EQ(PrintTextS(session.handle(), VW("Hi")), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("48 69"));
}

TEST(PrintText, ModelWithoutEscPosTakesOnlyRawText) {
  FakeSession label("VR-L80A");  // no ESC/POS
  EXPECT_EQ(PrintText(label.handle(), VW("A"), 0, 0, 0), VORN_ERR_COMMAND_NOT_SUPPORTED);
  EXPECT_TRUE(label.pending().empty());
  EXPECT_EQ(PrintTextS(label.handle(), VW("SIZE 40\r\n")), VORN_OK);
  EXPECT_EQ(label.take_written(), hex("53 49 5A 45 20 34 30 0D 0A"));
}

TEST(PrintText, RoomForTheConvertedText) {
  FakeSession session;
  EXPECT_EQ(PrintTextS(session.handle(), WideString(300, VW('x')).c_str()), VORN_OK);
  // 300 + 64 rounded up to whole steps of 128.
  EXPECT_EQ(session.context().capacity, 256u + 384u);
  EXPECT_EQ(session.take_written(), std::vector<uint8_t>(300, 'x'));

  // Text is never refused for its encoding: UTF-8 takes three bytes for one
  // unit, more than the two a Windows code page can need.
  const Utf8NarrowText utf8;
  const WideString cjk(300, VW('中'));
  EXPECT_EQ(PrintTextS(session.handle(), cjk.c_str()), VORN_OK);
  EXPECT_EQ(PrintText(session.handle(), VW("中文字"), 0, 0, 0), VORN_OK);
  const std::vector<uint8_t> written = session.take_written();
  ASSERT_EQ(written.size(), 900u + 12u + 9u);
  EXPECT_EQ(std::vector<uint8_t>(written.end() - 9, written.end()),
            hex("E4 B8 AD E6 96 87 E5 AD 97"));
  EXPECT_TRUE(session.pending().empty());
}

}  // namespace
}  // namespace vorn::test
