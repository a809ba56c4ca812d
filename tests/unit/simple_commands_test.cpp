// The simple setting commands through the exported functions: the bytes that
// reach the printer, the refused values, and the frame around each call.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "support/fake_session.h"

namespace vorn::test {
namespace {

using Call = std::function<int32_t(VORN_PRINTER)>;

struct Case {
  const char* name;
  Call call;
  int32_t result;
  const char* bytes;  // what reaches the printer; "" when nothing may
};

const char* const kCodePageStored =
    "1D 28 45 03 00 01 49 4E  1D 28 45 04 00 05 08 10 00"
    "1D 28 45 02 00 06 08 01 49 4E  1D 28 45 04 00 02 4F 55 54";

const Case kCases[] = {
    {"Initialize", [](VORN_PRINTER h) { return PrinterInitialize(h); }, 0, "1B 40"},
    {"LineSpace", [](VORN_PRINTER h) { return SetTextLineSpace(h, 0x30); }, 0, "1B 33 30"},
    {"LineSpaceCut", [](VORN_PRINTER h) { return SetTextLineSpace(h, 0x1FF); }, 0, "1B 33 FF"},
    {"AlignLeft", [](VORN_PRINTER h) { return SetAlign(h, 0); }, 0, "1B 61 00"},
    {"AlignRight", [](VORN_PRINTER h) { return SetAlign(h, 2); }, 0, "1B 61 02"},
    {"AlignAscii", [](VORN_PRINTER h) { return SetAlign(h, 48); }, 0, "1B 61 30"},
    {"AlignAsciiRight", [](VORN_PRINTER h) { return SetAlign(h, 50); }, 0, "1B 61 32"},
    {"Align3", [](VORN_PRINTER h) { return SetAlign(h, 3); }, -1, ""},
    {"Align51", [](VORN_PRINTER h) { return SetAlign(h, 51); }, -1, ""},
    {"Align257Cut", [](VORN_PRINTER h) { return SetAlign(h, 257); }, 0, "1B 61 01"},
    {"Align259Cut", [](VORN_PRINTER h) { return SetAlign(h, 259); }, -1, ""},
    {"Bold", [](VORN_PRINTER h) { return SetTextBold(h, 1); }, 0, "1B 45 01"},
    {"BoldCut", [](VORN_PRINTER h) { return SetTextBold(h, 0x100); }, 0, "1B 45 00"},
    {"Position", [](VORN_PRINTER h) { return SetAbsolutePrintPosition(h, 0x0102); }, 0,
     "1B 24 02 01"},
    {"PositionMax", [](VORN_PRINTER h) { return SetAbsolutePrintPosition(h, 65535); }, 0,
     "1B 24 FF FF"},
    {"Position65536", [](VORN_PRINTER h) { return SetAbsolutePrintPosition(h, 65536); }, -1, ""},
    {"PositionNegative", [](VORN_PRINTER h) { return SetAbsolutePrintPosition(h, -1); }, -1, ""},
    {"FontB", [](VORN_PRINTER h) { return SetTextFont(h, 1); }, 0, "1B 4D 01"},
    {"FontAscii", [](VORN_PRINTER h) { return SetTextFont(h, 49); }, 0, "1B 4D 31"},
    {"Font3", [](VORN_PRINTER h) { return SetTextFont(h, 3); }, -1, ""},
    {"FontCut", [](VORN_PRINTER h) { return SetTextFont(h, 258); }, 0, "1B 4D 02"},
    {"CodePageSelect", [](VORN_PRINTER h) { return SetCodePage(h, 0x10, 0); }, 0, "1B 74 10"},
    {"CodePageCut", [](VORN_PRINTER h) { return SetCodePage(h, 0x110, 0); }, 0, "1B 74 10"},
    {"CodePageStored", [](VORN_PRINTER h) { return SetCodePage(h, 0x10, 1); }, 0, kCodePageStored},
    {"CodePageMode2", [](VORN_PRINTER h) { return SetCodePage(h, 0x10, 2); }, -1, ""},
    {"CodePageMode256Whole", [](VORN_PRINTER h) { return SetCodePage(h, 0x10, 256); }, -1, ""},
    {"CodePageMode257Whole", [](VORN_PRINTER h) { return SetCodePage(h, 0x10, 257); }, -1, ""},
    {"BuzzerOff", [](VORN_PRINTER h) { return SetBuzzer(h, 0); }, 0, "12 27 77 10 00 0D 0A"},
    {"BuzzerOn", [](VORN_PRINTER h) { return SetBuzzer(h, 2); }, 0, "12 27 77 10 02 0D 0A"},
    {"Buzzer1", [](VORN_PRINTER h) { return SetBuzzer(h, 1); }, -1, ""},
    {"Buzzer258Whole", [](VORN_PRINTER h) { return SetBuzzer(h, 258); }, -1, ""},
    {"Feed", [](VORN_PRINTER h) { return FeedLine(h, 3); }, 0, "1B 64 03"},
    {"FeedCut", [](VORN_PRINTER h) { return FeedLine(h, 0x103); }, 0, "1B 64 03"},
    {"Cut0", [](VORN_PRINTER h) { return CutPaper(h, 0, 5); }, 0, "1D 56 41 05"},
    {"Cut1", [](VORN_PRINTER h) { return CutPaper(h, 1, 3); }, 0, "1D 56 42 03"},
    {"Cut65", [](VORN_PRINTER h) { return CutPaper(h, 65, 0); }, 0, "1D 56 41 00"},
    {"Cut66FeedCut", [](VORN_PRINTER h) { return CutPaper(h, 66, 0x1FF); }, 0, "1D 56 42 FF"},
    {"Cut256Cut", [](VORN_PRINTER h) { return CutPaper(h, 256, 0); }, 0, "1D 56 41 00"},
    {"Cut2", [](VORN_PRINTER h) { return CutPaper(h, 2, 0); }, -1, ""},
    {"Cut67", [](VORN_PRINTER h) { return CutPaper(h, 67, 0); }, -1, ""},
    {"Drawer", [](VORN_PRINTER h) { return OpenCashDrawer(h, 1, 20, 50); }, 0, "1B 70 01 14 32"},
    {"DrawerOffRaised", [](VORN_PRINTER h) { return OpenCashDrawer(h, 0, 50, 20); }, 0,
     "1B 70 00 32 32"},
    {"DrawerCut", [](VORN_PRINTER h) { return OpenCashDrawer(h, 49, 0x114, 0x132); }, 0,
     "1B 70 31 14 32"},
    // The off time is compared after the cut: 0x105 goes out as 05, raised to 10.
    {"DrawerOffCutThenRaised", [](VORN_PRINTER h) { return OpenCashDrawer(h, 48, 0x10, 0x105); }, 0,
     "1B 70 30 10 10"},
    {"DrawerPin2", [](VORN_PRINTER h) { return OpenCashDrawer(h, 2, 20, 50); }, -1, ""},
    {"MotionUnits",
     [](VORN_PRINTER h) { return SetHorizontalAndVerticalMotionUnits(h, 180, 0x1B4); }, 0,
     "1D 50 B4 B4"},
    {"Charset15", [](VORN_PRINTER h) { return SetInternationalCharacter(h, 15); }, 0, "1B 52 0F"},
    {"Charset16", [](VORN_PRINTER h) { return SetInternationalCharacter(h, 16); }, -1, ""},
    {"CharsetCut", [](VORN_PRINTER h) { return SetInternationalCharacter(h, 0x10F); }, 0,
     "1B 52 0F"},
    {"Speed", [](VORN_PRINTER h) { return SetPrintSpeed(h, 3); }, 0, "1D 45 03"},
    {"ClearBuffer", [](VORN_PRINTER h) { return ClearBuffer(h); }, 0,
     "10 14 08 01 03 14 01 06 02 08"},
    {"StandardModeOutsidePageMode", [](VORN_PRINTER h) { return SelectStandardMode(h); }, 0, ""},
};

class SimpleCommandTest : public ::testing::TestWithParam<Case> {};

TEST_P(SimpleCommandTest, SendsItsBytesOrRefuses) {
  const Case& c = GetParam();
  FakeSession session;
  EXPECT_EQ(c.call(session.handle()), c.result);
  EXPECT_EQ(session.take_written(), hex(c.bytes));
  EXPECT_TRUE(session.pending().empty());
}

INSTANTIATE_TEST_SUITE_P(Table, SimpleCommandTest, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

// Every exported simple command, with arguments it would accept.
const std::vector<Call> kEveryCommand = {
    [](VORN_PRINTER h) { return PrinterInitialize(h); },
    [](VORN_PRINTER h) { return FeedLine(h, 1); },
    [](VORN_PRINTER h) { return SetAlign(h, 1); },
    [](VORN_PRINTER h) { return CutPaper(h, 0, 0); },
    [](VORN_PRINTER h) { return OpenCashDrawer(h, 0, 1, 1); },
    [](VORN_PRINTER h) { return SetTextLineSpace(h, 1); },
    [](VORN_PRINTER h) { return SetTextBold(h, 1); },
    [](VORN_PRINTER h) { return SetTextFont(h, 1); },
    [](VORN_PRINTER h) { return SetAbsolutePrintPosition(h, 1); },
    [](VORN_PRINTER h) { return SetCodePage(h, 1, 0); },
    [](VORN_PRINTER h) { return SetCodePage(h, 1, 1); },
    [](VORN_PRINTER h) { return SetBuzzer(h, 2); },
    [](VORN_PRINTER h) { return SetInternationalCharacter(h, 1); },
    [](VORN_PRINTER h) { return ClearBuffer(h); },
    [](VORN_PRINTER h) { return SetHorizontalAndVerticalMotionUnits(h, 1, 1); },
    [](VORN_PRINTER h) { return SetPrintSpeed(h, 1); },
};

TEST(SimpleCommandFrame, ModelWithoutEscPosRefusesEveryCommand) {
  FakeSession session("VR-L80A");  // type flags 0x42
  for (size_t i = 0; i < kEveryCommand.size(); ++i) {
    EXPECT_EQ(kEveryCommand[i](session.handle()), VORN_ERR_COMMAND_NOT_SUPPORTED) << i;
    EXPECT_TRUE(session.pending().empty()) << i;
  }
  EXPECT_TRUE(session.take_written().empty());
}

TEST(SimpleCommandFrame, RefusedValuesAreCheckedAfterTheModel) {
  FakeSession session("VR-L80A");
  EXPECT_EQ(SetAlign(session.handle(), 3), VORN_ERR_COMMAND_NOT_SUPPORTED);
  EXPECT_EQ(SetCodePage(session.handle(), 0, 5), VORN_ERR_COMMAND_NOT_SUPPORTED);
}

TEST(SimpleCommandFrame, PortNeverOpenedGives309AndLeavesTheBufferEmpty) {
  VORN_PRINTER handle = PrinterCreatorS("unknown");
  ASSERT_NE(handle, nullptr);
  for (size_t i = 0; i < kEveryCommand.size(); ++i) {
    EXPECT_EQ(kEveryCommand[i](handle), VORN_ERR_IO_NOT_OPEN) << i;
  }
  EXPECT_EQ(SelectStandardMode(handle), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(handle->context->length, 0u);
  PrinterDestroy(handle);
}

TEST(SimpleCommandFrame, NullHandleGives6) {
  for (size_t i = 0; i < kEveryCommand.size(); ++i) {
    EXPECT_EQ(kEveryCommand[i](nullptr), VORN_ERR_INVALID_HANDLE) << i;
  }
  EXPECT_EQ(SelectStandardMode(nullptr), VORN_ERR_INVALID_HANDLE);
}

TEST(SimpleCommandFrame, FailedSendKeepsItsBytesForTheNextCall) {
  FakeSession session;
  session.device.write_script.push_back({.accept = 0, .error = EIO});
  EXPECT_EQ(SetAlign(session.handle(), 1), EIO);
  EXPECT_TRUE(session.take_written().empty());
  EXPECT_EQ(session.pending(), hex("1B 61 01"));

  EXPECT_EQ(FeedLine(session.handle(), 2), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("1B 61 01 1B 64 02"));
  EXPECT_TRUE(session.pending().empty());
  // The old and the new bytes went out in one write.
  EXPECT_EQ(session.device.write_requests.back(), 6u);
}

TEST(SimpleCommandFrame, RefusedCommandKeepsEarlierUnsentBytes) {
  FakeSession session;
  session.device.write_script.push_back({.accept = 0, .error = EIO});
  ASSERT_EQ(SetTextBold(session.handle(), 1), EIO);
  EXPECT_EQ(SetAlign(session.handle(), 3), VORN_ERR_PARAMETER);
  EXPECT_EQ(session.pending(), hex("1B 45 01"));
  EXPECT_TRUE(session.take_written().empty());
}

TEST(SimpleCommandFrame, ExactlyThirtyTwoFreeBytesNeedNoGrowth) {
  FakeSession session;
  session.context().length = 256 - 32;
  EXPECT_EQ(PrinterInitialize(session.handle()), VORN_OK);
  EXPECT_EQ(session.context().capacity, 256u);

  session.context().length = 256 - 31;
  EXPECT_EQ(PrinterInitialize(session.handle()), VORN_OK);
  EXPECT_EQ(session.context().capacity, 256u + 128u);
}

TEST(SimpleCommandFrame, StoredCodePageNeedsAllItsThirtySixBytes) {
  FakeSession session;
  // 33 bytes free: enough for the builder's 32, too few for the command.
  session.context().length = 256 - 33;
  EXPECT_EQ(SetCodePage(session.handle(), 0x10, 1), VORN_ERR_BUFFER_TOO_SMALL);
  EXPECT_EQ(session.context().length, 256u - 33u);
  EXPECT_TRUE(session.take_written().empty());
  // The three-byte form still fits.
  EXPECT_EQ(SetCodePage(session.handle(), 0x10, 0), VORN_OK);
}

TEST(StandardMode, LeavesPageModeWithEscS) {
  FakeSession session;
  session.context().page_mode = 1;
  EXPECT_EQ(SelectStandardMode(session.handle()), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("1B 53"));
  EXPECT_EQ(session.context().page_mode, 0);
  // Back in standard mode there is nothing left to send.
  EXPECT_EQ(SelectStandardMode(session.handle()), VORN_OK);
  EXPECT_TRUE(session.take_written().empty());
}

TEST(StandardMode, InitializeDoesNotLeavePageMode) {
  FakeSession session;
  session.context().page_mode = 1;
  EXPECT_EQ(PrinterInitialize(session.handle()), VORN_OK);
  EXPECT_EQ(session.context().page_mode, 1);
  EXPECT_EQ(SelectStandardMode(session.handle()), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("1B 40 1B 53"));
}

TEST(StandardMode, FlagStaysWhenTheCommandIsRefused) {
  FakeSession session("VR-L80A");
  session.context().page_mode = 1;
  EXPECT_EQ(SelectStandardMode(session.handle()), VORN_ERR_COMMAND_NOT_SUPPORTED);
  EXPECT_EQ(session.context().page_mode, 1);
  EXPECT_TRUE(session.take_written().empty());
}

TEST(StandardMode, FlagIsClearedBeforeTheSendEvenWhenTheSendFails) {
  FakeSession session;
  session.context().page_mode = 1;
  session.device.write_script.push_back({.accept = 0, .error = EIO});
  EXPECT_EQ(SelectStandardMode(session.handle()), EIO);
  EXPECT_EQ(session.context().page_mode, 0);
  EXPECT_EQ(session.pending(), hex("1B 53"));
}

TEST(StandardMode, OutsidePageModeStillFlushesUnsentBytes) {
  FakeSession session;
  session.device.write_script.push_back({.accept = 0, .error = EIO});
  ASSERT_EQ(FeedLine(session.handle(), 1), EIO);
  EXPECT_EQ(SelectStandardMode(session.handle()), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("1B 64 01"));
}

}  // namespace
}  // namespace vorn::test
