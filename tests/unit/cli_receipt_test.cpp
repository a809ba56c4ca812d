#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "escpos_annotate.h"
#include "receipt.h"
#include "support/fake_session.h"

namespace vorn::cli {
namespace {

using test::FakeSession;
using test::hex;

TEST(CliReceipt, MoneyAndColumns) {
  EXPECT_EQ(money(5), "0.05");
  EXPECT_EQ(money(-5), "-0.05");
  EXPECT_EQ(money(123456), "1234.56");
  EXPECT_EQ(two_columns("TOTAL", "25.75", 20), "TOTAL          25.75");
  EXPECT_EQ(two_columns("Exactly fits", "1.00", 17), "Exactly fits 1.00");
  // A long left text is cut so one blank stays; a right text too long for
  // the line still gets its blank.
  EXPECT_EQ(two_columns("A very long item name", "1.00", 12), "A very  1.00");
  EXPECT_EQ(two_columns("x", "123456", 4), " 123456");
  EXPECT_EQ(receipt_columns("VR-T60"), 36u);   // 432 dots
  EXPECT_EQ(receipt_columns("unknown"), 48u);  // no width in the catalogue
  EXPECT_EQ(receipt_columns("no such model"), 48u);
}

TEST(CliReceipt, PrintsAWholeReceiptWithinTheLineWidth) {
  FakeSession session("VR-T58A");
  CallReport report(nullptr);
  ReceiptOptions options;
  options.columns = 32;
  ASSERT_TRUE(print_receipt(session.handle(), options, report));
  EXPECT_TRUE(report.all_succeeded());
  std::vector<std::string> lines;
  for (const AnnotatedCommand& command : annotate_escpos(session.take_written())) {
    lines.push_back(command.description);
    EXPECT_EQ(command.description.find("truncated"), std::string::npos) << command.description;
    if (command.description.starts_with("text \"")) {
      EXPECT_LE(command.description.size(), 32u + 7u) << command.description;
    }
  }
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines.front(), "ESC @ initialise");
  EXPECT_EQ(lines.back(), "GS V 66 3 partial cut after feeding 3");
  // The amount ends in the last of the 32 columns.
  EXPECT_NE(std::find(lines.begin(), lines.end(), R"(text "TOTAL                      25.75")"),
            lines.end());
}

TEST(CliReceipt, StopsAtTheFirstFailingCall) {
  FakeSession label("VR-L80A");  // takes no ESC/POS commands
  CallReport report(nullptr);
  EXPECT_FALSE(print_receipt(label.handle(), ReceiptOptions{}, report));
  EXPECT_EQ(report.exit_status(), 1);
  EXPECT_TRUE(label.take_written().empty());

  // The logo comes first: a missing file stops the receipt there.
  FakeSession session("VR-T80A");
  ReceiptOptions options;
  options.logo_path = "/nonexistent/vorn-logo.png";
  EXPECT_FALSE(print_receipt(session.handle(), options, report));
  EXPECT_EQ(session.take_written(), hex("1B 40 1B 61 01"));
}

}  // namespace
}  // namespace vorn::cli
