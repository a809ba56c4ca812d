#include "receipt.h"

#include <array>
#include <cstdio>
#include <cstdlib>

#include "printer/catalogue.h"
#include "text16.h"

namespace vorn::cli {
namespace {

constexpr size_t kDotsPerCharacter = 12;  // font A
constexpr size_t kFallbackColumns = 48;

// Text attribute bits and sizes of PrintText.
constexpr int32_t kPlain = 0;
constexpr int32_t kBold = 2;
constexpr int32_t kNormalSize = 0x00;
constexpr int32_t kDoubleHeight = 0x01;
constexpr int32_t kDoubleWidthAndHeight = 0x11;
constexpr int32_t kLeft = 0;
constexpr int32_t kCentre = 1;

constexpr int32_t kBarcodeCode128 = 73;
constexpr int32_t kBarcodeModuleWidth = 2;
constexpr int32_t kBarcodeHeight = 80;
constexpr int32_t kHriBelow = 2;
constexpr int32_t kSymbolQr = 103;
constexpr int32_t kQrLevelM = 0x31;
constexpr int32_t kQrModuleSize = 6;
constexpr int32_t kPartialCut = 1;

struct Item {
  const char* name;
  int quantity;
  int64_t unit_cents;
};

constexpr std::array<Item, 4> kItems = {{
    {"Coffee beans 250g", 2, 790},
    {"Oat milk 1 l", 1, 185},
    {"Croissant", 3, 120},
    {"Notebook A5", 1, 450},
}};

constexpr const char* kReceiptNumber = "0001-000137";
constexpr int64_t kVatPercent = 20;

bool print_text(VORN_PRINTER printer, CallReport& report, const std::string& text,
                int32_t alignment, int32_t attributes, int32_t size) {
  WideString wide = to_utf16(text);
  return report("PrintText", PrintText(printer, wide.c_str(), alignment, attributes, size));
}

std::string item_lines(size_t columns, int64_t* total_cents) {
  std::string rule(columns, '-');
  std::string lines = rule + "\n";
  for (const Item& item : kItems) {
    int64_t cents = item.quantity * item.unit_cents;
    *total_cents += cents;
    std::string left = std::to_string(item.quantity) + " x " + item.name;
    lines += two_columns(left, money(cents), columns) + "\n";
  }
  return lines + rule + "\n";
}

}  // namespace

std::string money(int64_t cents) {
  char text[32];
  int64_t whole = std::llabs(cents);
  std::snprintf(text, sizeof text, "%s%lld.%02lld", cents < 0 ? "-" : "",
                static_cast<long long>(whole / 100), static_cast<long long>(whole % 100));
  return text;
}

std::string two_columns(std::string_view left, std::string_view right, size_t width) {
  size_t room = width > right.size() + 1 ? width - right.size() - 1 : 0;
  if (left.size() > room) left = left.substr(0, room);
  size_t blanks = width > left.size() + right.size() ? width - left.size() - right.size() : 1;
  return std::string(left) + std::string(blanks, ' ') + std::string(right);
}

size_t receipt_columns(const std::string& model) {
  const printer::CatalogueRow* row = printer::find_model_by_name(model.c_str());
  if (row == nullptr || row->dots_per_line < kDotsPerCharacter) return kFallbackColumns;
  return row->dots_per_line / kDotsPerCharacter;
}

bool print_receipt(VORN_PRINTER printer, const ReceiptOptions& options, CallReport& report) {
  const size_t columns = options.columns;
  if (!report("PrinterInitialize", PrinterInitialize(printer))) return false;
  if (!options.logo_path.empty()) {
    // The raster image follows the justification in force.
    if (!report("SetAlign", SetAlign(printer, kCentre))) return false;
    WideString path = to_utf16(options.logo_path);
    if (!report("PrintImage", PrintImage(printer, path.c_str(), 0))) return false;
  }
  if (!print_text(printer, report, "VORN CORNER SHOP\n", kCentre, kBold, kDoubleWidthAndHeight)) {
    return false;
  }
  // Every line fits the 32 columns of the narrowest receipt printers.
  std::string shop = "12 Harbour Street, Portsea\nTel. 023 9200 0137\n2024-05-14 10:42  #" +
                     std::string(kReceiptNumber) + "\n";
  if (!print_text(printer, report, shop, kCentre, kPlain, kNormalSize)) return false;

  int64_t total = 0;
  if (!print_text(printer, report, item_lines(columns, &total), kLeft, kPlain, kNormalSize)) {
    return false;
  }
  // Prices include VAT; the receipt shows the share it makes up.
  int64_t vat = (total * kVatPercent * 2 + (100 + kVatPercent)) / ((100 + kVatPercent) * 2);
  std::string sums =
      two_columns("Subtotal", money(total), columns) + "\n" +
      two_columns("VAT " + std::to_string(kVatPercent) + "% included", money(vat), columns) + "\n";
  if (!print_text(printer, report, sums, kLeft, kPlain, kNormalSize)) return false;
  // Double height keeps the width, so the total stays in the price column.
  if (!print_text(printer, report, two_columns("TOTAL", money(total), columns) + "\n", kLeft, kBold,
                  kDoubleHeight)) {
    return false;
  }
  std::string paid = two_columns("Card", money(total), columns) + "\n\n";
  if (!print_text(printer, report, paid, kLeft, kPlain, kNormalSize)) return false;
  if (!print_text(printer, report, "Thank you for shopping!\n", kCentre, kPlain, kNormalSize)) {
    return false;
  }

  // CODE128 data names its code set first: {B is printable ASCII.
  WideString barcode = to_utf16(std::string("{B") + kReceiptNumber);
  if (!report("PrintBarCode",
              PrintBarCode(printer, kBarcodeCode128, barcode.c_str(), kBarcodeModuleWidth,
                           kBarcodeHeight, kCentre, kHriBelow))) {
    return false;
  }
  WideString link = to_utf16(std::string("https://vorn.example/r/") + kReceiptNumber);
  if (!report("PrintSymbol", PrintSymbol(printer, kSymbolQr, link.c_str(), kQrLevelM, kQrModuleSize,
                                         0, kCentre))) {
    return false;
  }
  if (!report("FeedLine", FeedLine(printer, 2))) return false;
  return report("CutPaper", CutPaper(printer, kPartialCut, 3));
}

}  // namespace vorn::cli
