// The simple setting commands through the exported functions: the bytes that
// reach the printer, the refused values, and the room each call asks for.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <cerrno>
#include <functional>
#include <iterator>
#include <type_traits>

#include "support/fake_session.h"

namespace vorn::test {
namespace {

using Call = std::function<int32_t(VORN_PRINTER)>;

// `fn` bound to its arguments after the handle.
template <typename... Args>
Call call(int32_t(VORN_CALL* fn)(VORN_PRINTER, Args...), std::type_identity_t<Args>... args) {
  return [=](VORN_PRINTER h) { return fn(h, args...); };
}

struct Case {
  Call call;
  int32_t result;
  const char* bytes;  // what reaches the printer; "" when nothing may
};

const char* const kStoredCodePage =
    "1D 28 45 03 00 01 49 4E  1D 28 45 04 00 05 08 10 00"
    "1D 28 45 02 00 06 08 01 49 4E  1D 28 45 04 00 02 4F 55 54";

// One-byte arguments are cut to their low 8 bits; positions, buzzer mode and
// code page mode are checked whole. Cut modes 0 and 65 cut fully, 1 and 66
// partially. The drawer's off time is raised to the on time after the cut.
const Case kCases[] = {{call(PrinterInitialize), 0, "1B 40"},
                       {call(SetTextLineSpace, 0x1FF), 0, "1B 33 FF"},
                       {call(SetAlign, 257), 0, "1B 61 01"},
                       {call(SetTextBold, 0x101), 0, "1B 45 01"},
                       {call(SetAbsolutePrintPosition, 0x0102), 0, "1B 24 02 01"},
                       {call(SetAbsolutePrintPosition, 65536), -1, ""},
                       {call(SetTextFont, 258), 0, "1B 4D 02"},
                       {call(SetTextFont, 3), -1, ""},
                       {call(SetCodePage, 0x110, 0), 0, "1B 74 10"},
                       {call(SetCodePage, 0x10, 2), -1, ""},
                       {call(SetCodePage, 0x10, 256), -1, ""},
                       {call(SetCodePage, 0x10, 1), 0, kStoredCodePage},
                       {call(SetBuzzer, 2), 0, "12 27 77 10 02 0D 0A"},
                       {call(SetBuzzer, 1), -1, ""},
                       {call(SetBuzzer, 258), -1, ""},
                       {call(FeedLine, 0x103), 0, "1B 64 03"},
                       {call(CutPaper, 0, 5), 0, "1D 56 41 05"},
                       {call(CutPaper, 1, 3), 0, "1D 56 42 03"},
                       {call(CutPaper, 65, 0), 0, "1D 56 41 00"},
                       {call(CutPaper, 66, 0x1FF), 0, "1D 56 42 FF"},
                       {call(CutPaper, 2, 0), -1, ""},
                       {call(CutPaper, 67, 0), -1, ""},
                       {call(OpenCashDrawer, 1, 20, 50), 0, "1B 70 01 14 32"},
                       {call(OpenCashDrawer, 0, 50, 20), 0, "1B 70 00 32 32"},
                       {call(OpenCashDrawer, 48, 0x10, 0x105), 0, "1B 70 30 10 10"},
                       {call(OpenCashDrawer, 2, 20, 50), -1, ""},
                       {call(SetHorizontalAndVerticalMotionUnits, 180, 0x1B4), 0, "1D 50 B4 B4"},
                       {call(SetInternationalCharacter, 15), 0, "1B 52 0F"},
                       {call(SetInternationalCharacter, 16), -1, ""},
                       {call(SetPrintSpeed, 3), 0, "1D 45 03"},
                       {call(ClearBuffer), 0, "10 14 08 01 03 14 01 06 02 08"}};

TEST(SimpleCommands, SendTheirBytesOrRefuse) {
  for (size_t i = 0; i < std::size(kCases); ++i) {
    SCOPED_TRACE(testing::Message() << "case " << i);
    FakeSession session;
    EXPECT_EQ(kCases[i].call(session.handle()), kCases[i].result);
    EXPECT_EQ(session.take_written(), hex(kCases[i].bytes));
    EXPECT_TRUE(session.pending().empty());
  }
}

// The model is checked before the values: every row gives -3 here.
TEST(SimpleCommands, ModelWithoutEscPosRefusesEveryCommand) {
  FakeSession session("VR-L80A");  // type flags 0x42
  for (size_t i = 0; i < std::size(kCases); ++i) {
    EXPECT_EQ(kCases[i].call(session.handle()), VORN_ERR_COMMAND_NOT_SUPPORTED) << "case " << i;
  }
  EXPECT_TRUE(session.pending().empty());
  EXPECT_TRUE(session.take_written().empty());
}

// Each builder asks for 32 free bytes; the stored code page needs 36 of them.
TEST(SimpleCommands, RoomForThirtyTwoBytesAndTheLongerCommand) {
  FakeSession session;
  session.context().length = 256 - 32;
  EXPECT_EQ(PrinterInitialize(session.handle()), VORN_OK);
  EXPECT_EQ(session.context().capacity, 256u);
  session.context().length = 256 - 31;
  EXPECT_EQ(PrinterInitialize(session.handle()), VORN_OK);
  EXPECT_EQ(session.context().capacity, 256u + 128u);
  session.context().length = 384 - 33;
  EXPECT_EQ(SetCodePage(session.handle(), 0x10, 1), VORN_ERR_BUFFER_TOO_SMALL);
  EXPECT_EQ(session.context().length, 384u - 33u);
}

// ESC S goes out only in page mode and clears the flag once appended, even
// when the write then fails; outside page mode the call still flushes.
TEST(SelectStandardMode, LeavesPageModeOnlyWhenInIt) {
  FakeSession session;
  session.device.write_script.push_back({.accept = 0, .error = EIO});
  ASSERT_EQ(FeedLine(session.handle(), 1), EIO);
  EXPECT_EQ(SelectStandardMode(session.handle()), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("1B 64 01"));
  session.context().page_mode = 1;
  EXPECT_EQ(PrinterInitialize(session.handle()), VORN_OK);
  EXPECT_EQ(session.context().page_mode, 1);
  session.device.write_script.push_back({.accept = 0, .error = EIO});
  EXPECT_EQ(SelectStandardMode(session.handle()), EIO);
  EXPECT_EQ(session.context().page_mode, 0);
  EXPECT_EQ(session.pending(), hex("1B 53"));

  FakeSession label("VR-L80A");
  label.context().page_mode = 1;
  EXPECT_EQ(SelectStandardMode(label.handle()), VORN_ERR_COMMAND_NOT_SUPPORTED);
  EXPECT_EQ(label.context().page_mode, 1);
}

}  // namespace
}  // namespace vorn::test
