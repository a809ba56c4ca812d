#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "escpos_annotate.h"
#include "receipt.h"
#include "support/fake_session.h"

namespace vorn::cli {
namespace {

using test::FakeSession;
using test::hex;

TEST(CliReceipt, Money) {
  struct Row {
    int64_t cents;
    const char* text;
  };
  const Row rows[] = {
      {0, "0.00"}, {5, "0.05"}, {1250, "12.50"}, {-5, "-0.05"}, {123456, "1234.56"}};
  for (const Row& row : rows) EXPECT_EQ(money(row.cents), row.text) << row.cents;
}

TEST(CliReceipt, TwoColumnsPutsTheRightTextInTheLastColumns) {
  struct Row {
    const char* left;
    const char* right;
    size_t width;
    const char* line;
  };
  const Row rows[] = {
      {"TOTAL", "25.75", 20, "TOTAL          25.75"},
      {"Exactly fits", "1.00", 17, "Exactly fits 1.00"},
      {"A very long item name", "1.00", 12, "A very  1.00"},
      {"x", "123456", 4, " 123456"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(two_columns(row.left, row.right, row.width), row.line) << row.left;
  }
}

TEST(CliReceipt, ColumnsFollowTheModelsDotsPerLine) {
  EXPECT_EQ(receipt_columns("VR-T80A"), 48u);  // 576 dots
  EXPECT_EQ(receipt_columns("VR-T58A"), 32u);  // 384 dots
  EXPECT_EQ(receipt_columns("VR-T60"), 36u);   // 432 dots
  EXPECT_EQ(receipt_columns("unknown"), 48u);  // no width in the catalogue
  EXPECT_EQ(receipt_columns("no such model"), 48u);
}

std::vector<std::string> descriptions(const std::vector<uint8_t>& bytes) {
  std::vector<std::string> out;
  for (const AnnotatedCommand& command : annotate_escpos(bytes)) out.push_back(command.description);
  return out;
}

TEST(CliReceipt, PrintsAWholeReceiptWithinTheLineWidth) {
  FakeSession session("VR-T58A");
  CallReport report(nullptr);
  ReceiptOptions options;
  options.columns = 32;
  ASSERT_TRUE(print_receipt(session.handle(), options, report));
  EXPECT_TRUE(report.all_succeeded());

  std::vector<std::string> lines = descriptions(session.take_written());
  ASSERT_GE(lines.size(), 4u);
  EXPECT_EQ(lines.front(), "ESC @ initialise");
  EXPECT_EQ(lines.back(), "GS V 66 3 partial cut after feeding 3");
  size_t header = 0, total = 0, barcode = 0, qr_print = 0;
  for (size_t i = 0; i < lines.size(); ++i) {
    const std::string& line = lines[i];
    EXPECT_EQ(line.find("truncated"), std::string::npos) << line;
    EXPECT_EQ(line.find("unknown"), std::string::npos) << line;
    if (line.rfind("text \"", 0) == 0) {
      EXPECT_LE(line.size(), 32u + 7u) << line;  // text "..." around at most 32 characters
    }
    if (line == R"(text "VORN CORNER SHOP")") header = i;
    if (line.rfind("text \"TOTAL ", 0) == 0) total = i;
    if (line.rfind("GS k barcode CODE128", 0) == 0) barcode = i;
    if (line == "GS ( k QR print symbol") qr_print = i;
  }
  ASSERT_GT(header, 0u);
  EXPECT_EQ(lines[header - 1], "GS ! 0x11 double width and height");
  ASSERT_GT(total, header);
  // The amount ends in the last of the 32 columns.
  EXPECT_EQ(lines[total], R"(text "TOTAL                      25.75")");
  EXPECT_GT(barcode, total);
  EXPECT_GT(qr_print, barcode);
}

TEST(CliReceipt, StopsAtTheFirstFailingCall) {
  FakeSession session("VR-L80A");  // takes no ESC/POS commands
  CallReport report(nullptr);
  EXPECT_FALSE(print_receipt(session.handle(), ReceiptOptions{}, report));
  EXPECT_EQ(report.exit_status(), 1);
  EXPECT_TRUE(session.take_written().empty());
}

TEST(CliReceipt, LogoComesFirstAndAMissingFileStopsTheReceipt) {
  FakeSession session("VR-T80A");
  CallReport report(nullptr);
  ReceiptOptions options;
  options.logo_path = "/nonexistent/vorn-logo.png";
  EXPECT_FALSE(print_receipt(session.handle(), options, report));
  EXPECT_EQ(session.take_written(), hex("1B 40 1B 61 01"));
}

}  // namespace
}  // namespace vorn::cli
