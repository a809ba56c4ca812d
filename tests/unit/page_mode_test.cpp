// Page-mode commands through the public API on a fake session.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <functional>
#include <string>

#include "support/fake_session.h"

namespace vorn::test {
namespace {

using Call = std::function<int32_t(VORN_PRINTER)>;

struct PageCase {
  const char* name;
  const char* model;
  Call call;
  int32_t result;
  const char* written;
};

// VR-M60A (0x1103) has page mode; VR-M80A is the 0x1102 model.
const PageCase kPageCases[] = {
    {"select_page_mode", "VR-M60A", SelectPageMode, 0, "1B 4C"},
    {"print_area", "VR-M60A",
     [](VORN_PRINTER h) { return SetPrintAreaInPageMode(h, 0, 0, 384, 200); }, 0,
     "1B 57 00 00 00 00 80 01 C8 00"},
    {"print_area_0x1102_padded", "VR-M80A",
     [](VORN_PRINTER h) { return SetPrintAreaInPageMode(h, 0, 0, 384, 200); }, 0,
     "1B 57 00 00 00 00 00 80 01 C8 00"},
    {"print_area_largest", "VR-M60A",
     [](VORN_PRINTER h) { return SetPrintAreaInPageMode(h, 0x1234, 65535, 1, 0x0100); }, 0,
     "1B 57 34 12 FF FF 01 00 00 01"},
    {"print_area_x_negative", "VR-M60A",
     [](VORN_PRINTER h) { return SetPrintAreaInPageMode(h, -1, 0, 384, 200); }, VORN_ERR_PARAMETER,
     ""},
    {"print_area_y_65536", "VR-M60A",
     [](VORN_PRINTER h) { return SetPrintAreaInPageMode(h, 0, 65536, 384, 200); },
     VORN_ERR_PARAMETER, ""},
    {"print_area_width_65536", "VR-M60A",
     [](VORN_PRINTER h) { return SetPrintAreaInPageMode(h, 0, 0, 65536, 200); }, VORN_ERR_PARAMETER,
     ""},
    {"print_area_height_negative", "VR-M80A",
     [](VORN_PRINTER h) { return SetPrintAreaInPageMode(h, 0, 0, 384, -200); }, VORN_ERR_PARAMETER,
     ""},
    {"cancel", "VR-M60A", CancelPrintDataInPageMode, 0, "18"},
    {"direction_0x33", "VR-M60A",
     [](VORN_PRINTER h) { return SelectPrintDirectionInPageMode(h, 0x33); }, 0, "1B 54 33"},
    {"direction_256_is_0", "VR-M60A",
     [](VORN_PRINTER h) { return SelectPrintDirectionInPageMode(h, 256); }, 0, "1B 54 00"},
    {"direction_3", "VR-M60A", [](VORN_PRINTER h) { return SelectPrintDirectionInPageMode(h, 3); },
     0, "1B 54 03"},
    {"direction_4", "VR-M60A", [](VORN_PRINTER h) { return SelectPrintDirectionInPageMode(h, 4); },
     VORN_ERR_PARAMETER, ""},
    {"direction_47", "VR-M60A",
     [](VORN_PRINTER h) { return SelectPrintDirectionInPageMode(h, 47); }, VORN_ERR_PARAMETER, ""},
    {"direction_52", "VR-M60A",
     [](VORN_PRINTER h) { return SelectPrintDirectionInPageMode(h, 52); }, VORN_ERR_PARAMETER, ""},
    {"vertical_300", "VR-M60A",
     [](VORN_PRINTER h) { return SetAbsoluteVerticalPrintPositionInPageMode(h, 300); }, 0,
     "1D 24 2C 01"},
    {"vertical_65535", "VR-M60A",
     [](VORN_PRINTER h) { return SetAbsoluteVerticalPrintPositionInPageMode(h, 65535); }, 0,
     "1D 24 FF FF"},
    {"vertical_minus_1", "VR-M60A",
     [](VORN_PRINTER h) { return SetAbsoluteVerticalPrintPositionInPageMode(h, -1); },
     VORN_ERR_PARAMETER, ""},
    {"vertical_65536", "VR-M60A",
     [](VORN_PRINTER h) { return SetAbsoluteVerticalPrintPositionInPageMode(h, 65536); },
     VORN_ERR_PARAMETER, ""},
    {"print_and_return", "VR-M60A", PrintAndReturnStandardMode, 0, "0C"},
    {"position_next_label", "VR-M60A", PositionNextLabel, 0, "1D 0C"},
    {"print_page", "VR-M60A", PrintDataInPageMode, 0, "1B 0C"},
    // No page-mode support (the catch-all row, and 0x1955 despite its fine
    // motion unit): the five gated commands refuse, the other three work.
    {"ungated_select_page_mode", "unknown", SelectPageMode, 0, "1B 4C"},
    {"ungated_print_and_return", "unknown", PrintAndReturnStandardMode, 0, "0C"},
    {"ungated_position_next_label", "VR-B80", PositionNextLabel, 0, "1D 0C"},
    {"gated_print_area", "unknown",
     [](VORN_PRINTER h) { return SetPrintAreaInPageMode(h, 0, 0, 384, 200); },
     VORN_ERR_PRINTER_NOT_SUPPORTED, ""},
    {"gated_cancel", "VR-B80", CancelPrintDataInPageMode, VORN_ERR_PRINTER_NOT_SUPPORTED, ""},
    {"gated_direction", "unknown",
     [](VORN_PRINTER h) { return SelectPrintDirectionInPageMode(h, 0); },
     VORN_ERR_PRINTER_NOT_SUPPORTED, ""},
    // The gate comes before the range check.
    {"gated_vertical_before_range", "VR-B80",
     [](VORN_PRINTER h) { return SetAbsoluteVerticalPrintPositionInPageMode(h, -1); },
     VORN_ERR_PRINTER_NOT_SUPPORTED, ""},
    {"gated_print_page", "unknown", PrintDataInPageMode, VORN_ERR_PRINTER_NOT_SUPPORTED, ""},
    // Without ESC/POS commands: -3 (no page-mode support gives -4 first).
    {"no_escpos_select_page_mode", "VR-L80A", SelectPageMode, VORN_ERR_COMMAND_NOT_SUPPORTED, ""},
    {"no_escpos_position_next_label", "VR-L80A", PositionNextLabel, VORN_ERR_COMMAND_NOT_SUPPORTED,
     ""},
    {"no_escpos_gated_print_page", "VR-L80A", PrintDataInPageMode, VORN_ERR_PRINTER_NOT_SUPPORTED,
     ""},
};

class PageTable : public ::testing::TestWithParam<PageCase> {};

TEST_P(PageTable, SendsCommandOrNothing) {
  const PageCase& c = GetParam();
  FakeSession session(c.model);
  EXPECT_EQ(c.call(session.handle()), c.result);
  EXPECT_EQ(session.take_written(), hex(c.written));
  EXPECT_TRUE(session.pending().empty());
}

INSTANTIATE_TEST_SUITE_P(PageMode, PageTable, ::testing::ValuesIn(kPageCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(PageModeFlag, SelectSetsAndPrintAndReturnClears) {
  FakeSession session("VR-M60A");
  EXPECT_EQ(session.context().page_mode, 0);
  ASSERT_EQ(SelectPageMode(session.handle()), VORN_OK);
  EXPECT_EQ(session.context().page_mode, 1);
  // None of the commands looks at the flag: ESC L goes out again.
  ASSERT_EQ(SelectPageMode(session.handle()), VORN_OK);
  ASSERT_EQ(PrintDataInPageMode(session.handle()), VORN_OK);
  ASSERT_EQ(CancelPrintDataInPageMode(session.handle()), VORN_OK);
  ASSERT_EQ(PositionNextLabel(session.handle()), VORN_OK);
  EXPECT_EQ(session.context().page_mode, 1);
  ASSERT_EQ(PrintAndReturnStandardMode(session.handle()), VORN_OK);
  EXPECT_EQ(session.context().page_mode, 0);
  EXPECT_EQ(session.take_written(), hex("1B 4C 1B 4C 1B 0C 18 1D 0C 0C"));
}

TEST(PageModeFlag, SelectPageModeWorksWithoutPageModeSupport) {
  FakeSession session("unknown");
  ASSERT_EQ(SelectPageMode(session.handle()), VORN_OK);
  EXPECT_EQ(session.context().page_mode, 1);
  EXPECT_EQ(SetPrintAreaInPageMode(session.handle(), 0, 0, 384, 200),
            VORN_ERR_PRINTER_NOT_SUPPORTED);
  EXPECT_EQ(session.context().page_mode, 1);
  EXPECT_EQ(session.take_written(), hex("1B 4C"));
}

TEST(PageModeFlag, SetBeforeAppendingSoAlsoOnFailure) {
  FakeSession session("VR-L80A");  // type flags 0x42: bit 0 clear
  EXPECT_EQ(SelectPageMode(session.handle()), VORN_ERR_COMMAND_NOT_SUPPORTED);
  EXPECT_EQ(session.context().page_mode, 1);
  EXPECT_EQ(PrintAndReturnStandardMode(session.handle()), VORN_ERR_COMMAND_NOT_SUPPORTED);
  EXPECT_EQ(session.context().page_mode, 0);
  EXPECT_TRUE(session.take_written().empty());
}

TEST(PageModeFlag, UntouchedWhenThePortIsNotOpen) {
  FakeSession session("VR-M60A");
  ASSERT_EQ(PortClose(session.handle()), VORN_OK);
  EXPECT_EQ(SelectPageMode(session.handle()), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(session.context().page_mode, 0);
  session.context().page_mode = 1;
  EXPECT_EQ(PrintAndReturnStandardMode(session.handle()), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(session.context().page_mode, 1);
  EXPECT_EQ(SelectPageMode(nullptr), VORN_ERR_INVALID_HANDLE);
}

TEST(PageModeFlag, FailedWriteKeepsFlagAndBytes) {
  FakeSession session("VR-M60A");
  session.device.write_script.push_back({.accept = 0, .error = 5});
  EXPECT_EQ(SelectPageMode(session.handle()), 5);
  EXPECT_EQ(session.context().page_mode, 1);
  EXPECT_EQ(session.pending(), hex("1B 4C"));
  ASSERT_EQ(PrintDataInPageMode(session.handle()), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("1B 4C 1B 0C"));
}

// ESC W asks for 11 free bytes on every model, although only 0x1102 sends 11.
TEST(PrintArea, NeedsElevenFreeBytesOnEveryModel) {
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
