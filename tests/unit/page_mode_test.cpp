// Page-mode commands through the public API on a fake session.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <functional>
#include <iterator>

#include "support/fake_session.h"

namespace vorn::test {
namespace {

using Call = std::function<int32_t(VORN_PRINTER)>;

Call area(int32_t x, int32_t y, int32_t width, int32_t height) {
  return [=](VORN_PRINTER h) { return SetPrintAreaInPageMode(h, x, y, width, height); };
}
Call direction(int32_t n) {
  return [=](VORN_PRINTER h) { return SelectPrintDirectionInPageMode(h, n); };
}
Call vertical(int32_t n) {
  return [=](VORN_PRINTER h) { return SetAbsoluteVerticalPrintPositionInPageMode(h, n); };
}

struct PageCase {
  const char* model;
  Call call;
  int32_t result;
  const char* written;
};

constexpr int32_t kBad = VORN_ERR_PARAMETER;
constexpr int32_t kNoPageMode = VORN_ERR_PRINTER_NOT_SUPPORTED;

// VR-M60A (0x1103) has page mode, VR-M80A is the 0x1102 model; "unknown" and
// VR-B80 (0x1955, despite its fine motion unit) have none, VR-L80A no ESC/POS.
const PageCase kPageCases[] = {
    {"VR-M60A", SelectPageMode, 0, "1B 4C"},
    {"VR-M60A", area(0x1234, 65535, 1, 0x0100), 0, "1B 57 34 12 FF FF 01 00 00 01"},
    {"VR-M80A", area(0, 0, 384, 200), 0, "1B 57 00 00 00 00 00 80 01 C8 00"},
    {"VR-M60A", area(-1, 0, 384, 200), kBad, ""},
    {"VR-M60A", area(0, 65536, 384, 200), kBad, ""},
    {"VR-M60A", area(0, 0, 65536, 200), kBad, ""},
    {"VR-M80A", area(0, 0, 384, -200), kBad, ""},
    {"VR-M60A", CancelPrintDataInPageMode, 0, "18"},
    {"VR-M60A", direction(3), 0, "1B 54 03"},
    {"VR-M60A", direction(0x33), 0, "1B 54 33"},
    {"VR-M60A", direction(256), 0, "1B 54 00"},
    {"VR-M60A", direction(4), kBad, ""},
    {"VR-M60A", direction(52), kBad, ""},
    {"VR-M60A", vertical(300), 0, "1D 24 2C 01"},
    {"VR-M60A", vertical(-1), kBad, ""},
    {"VR-M60A", vertical(65536), kBad, ""},
    {"VR-M60A", PrintAndReturnStandardMode, 0, "0C"},
    {"VR-M60A", PositionNextLabel, 0, "1D 0C"},
    {"VR-M60A", PrintDataInPageMode, 0, "1B 0C"},
    // Three commands (ESC L, FF, GS FF) work without page-mode support, five refuse with -4,
    // before their range check and before the ESC/POS check (-3).
    {"unknown", SelectPageMode, 0, "1B 4C"},
    {"VR-B80", PositionNextLabel, 0, "1D 0C"},
    {"unknown", area(0, 0, 384, 200), kNoPageMode, ""},
    {"VR-B80", CancelPrintDataInPageMode, kNoPageMode, ""},
    {"unknown", direction(0), kNoPageMode, ""},
    {"VR-B80", vertical(-1), kNoPageMode, ""},
    {"VR-L80A", PrintDataInPageMode, kNoPageMode, ""},
    {"VR-L80A", PositionNextLabel, VORN_ERR_COMMAND_NOT_SUPPORTED, ""},
};

TEST(PageMode, SendsCommandOrNothing) {
  for (size_t i = 0; i < std::size(kPageCases); ++i) {
    const PageCase& c = kPageCases[i];
    SCOPED_TRACE(testing::Message() << "case " << i << " on " << c.model);
    FakeSession session(c.model);
    EXPECT_EQ(c.call(session.handle()), c.result);
    EXPECT_EQ(session.take_written(), hex(c.written));
    EXPECT_TRUE(session.pending().empty());
  }
}

// The flag follows the request: ESC L sets it and FF clears it even when the
// command is refused; no other command looks at it.
TEST(PageModeFlag, FollowsTheRequestNotTheOutcome) {
  FakeSession session("VR-M60A");
  ASSERT_EQ(SelectPageMode(session.handle()), VORN_OK);
  EXPECT_EQ(session.context().page_mode, 1);
  ASSERT_EQ(SelectPageMode(session.handle()), VORN_OK);
  ASSERT_EQ(PrintDataInPageMode(session.handle()), VORN_OK);
  ASSERT_EQ(PositionNextLabel(session.handle()), VORN_OK);
  EXPECT_EQ(session.context().page_mode, 1);
  ASSERT_EQ(PrintAndReturnStandardMode(session.handle()), VORN_OK);
  EXPECT_EQ(session.context().page_mode, 0);
  EXPECT_EQ(session.take_written(), hex("1B 4C 1B 4C 1B 0C 1D 0C 0C"));

  FakeSession label("VR-L80A");
  EXPECT_EQ(SelectPageMode(label.handle()), VORN_ERR_COMMAND_NOT_SUPPORTED);
  EXPECT_EQ(label.context().page_mode, 1);
  EXPECT_EQ(PrintAndReturnStandardMode(label.handle()), VORN_ERR_COMMAND_NOT_SUPPORTED);
  EXPECT_EQ(label.context().page_mode, 0);

  // A call the frame refuses never reaches the flag.
  ASSERT_EQ(PortClose(session.handle()), VORN_OK);
  EXPECT_EQ(SelectPageMode(session.handle()), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(session.context().page_mode, 0);
}

// ESC W asks for 11 free bytes on every model, although only 0x1102 sends 11.
TEST(PageMode, PrintAreaNeedsElevenFreeBytesOnEveryModel) {
  FakeSession session("VR-M60A");
  printer::CommandContext& context = session.context();
  context.growable = 0;  // a fixed buffer, so the room check is the encoder's
  context.length = context.capacity - 10;
  EXPECT_EQ(SetPrintAreaInPageMode(session.handle(), 0, 0, 384, 200), VORN_ERR_BUFFER_TOO_SMALL);
  EXPECT_EQ(context.length, context.capacity - 10);
  context.length = context.capacity - 11;
  EXPECT_EQ(SetPrintAreaInPageMode(session.handle(), 0, 0, 384, 200), VORN_OK);
  EXPECT_EQ(context.length, 0u);
  context.growable = 1;
}

}  // namespace
}  // namespace vorn::test
