// The model catalogue is compiled-in constant data: lookups return the first
// matching row, so the row order below is part of the behaviour and must not be
// sorted or regrouped.
#include "printer/catalogue.h"

#include <iterator>
#include <new>
#include <string_view>

#include "vorn/vorn.h"

namespace vorn::printer {
namespace {

// Display name and description are always brand + model (+ kind); building
// them from the same literals keeps the three texts of a row consistent.
#define VORN_ROW(id, brand, model, kind, flags, dots, vendor, product, unit)                   \
  CatalogueRow {                                                                               \
    id, brand, model, brand " " model, brand " " model " " kind, flags, dots, vendor, product, \
        unit                                                                                   \
  }

// The kind that ends each description.
#define VORN_RECEIPT "receipt printer"
#define VORN_LABEL "label printer"
#define VORN_MOBILE "mobile printer"
#define VORN_BOARD "control board"

constexpr CatalogueRow kRows[] = {
    // 0-6: 80 mm desktop receipt printers.
    VORN_ROW(0x1001, "Vorn", "VR-T80A", VORN_RECEIPT, 0x201, 576, 0x5A3C, 0x7008, 0.0625f),
    VORN_ROW(0x1001, "Vorn", "VR-T80B", VORN_RECEIPT, 0x201, 576, 0x5A3C, 0x7008, 0.0625f),
    VORN_ROW(0x1001, "Vorn", "VR-T80C", VORN_RECEIPT, 0x201, 576, 0x5A3C, 0x7008, 0.0625f),
    VORN_ROW(0x1001, "Vorn", "VR-T80D", VORN_RECEIPT, 0x201, 576, 0x5A3C, 0x7008, 0.0625f),
    VORN_ROW(0x1001, "Vorn", "VR-T80E", VORN_RECEIPT, 0x201, 576, 0x5A3C, 0x7008, 0.0625f),
    VORN_ROW(0x1001, "Vorn", "VR-T80F", VORN_RECEIPT, 0x201, 576, 0x5A3C, 0x7008, 0.0625f),
    VORN_ROW(0x1001, "Vorn", "VR-T80G", VORN_RECEIPT, 0x201, 576, 0x5A3C, 0x7008, 0.0625f),
    // 7-14
    VORN_ROW(0x1002, "Vorn", "VR-T82A", VORN_RECEIPT, 0x201, 576, 0x5A3C, 0x7007, 0.0625f),
    VORN_ROW(0x1002, "Vorn", "VR-T82B", VORN_RECEIPT, 0x201, 576, 0x5A3C, 0x7007, 0.0625f),
    VORN_ROW(0x1002, "Vorn", "VR-T82C", VORN_RECEIPT, 0x201, 576, 0x5A3C, 0x7007, 0.0625f),
    VORN_ROW(0x1002, "Vorn", "VR-T82D", VORN_RECEIPT, 0x201, 576, 0x5A3C, 0x7007, 0.0625f),
    VORN_ROW(0x1002, "Vorn", "VR-T82E", VORN_RECEIPT, 0x201, 576, 0x5A3C, 0x7007, 0.0625f),
    VORN_ROW(0x1002, "Vorn", "VR-T82F", VORN_RECEIPT, 0x201, 576, 0x5A3C, 0x7007, 0.0625f),
    VORN_ROW(0x1002, "Vorn", "VR-T82G", VORN_RECEIPT, 0x201, 576, 0x5A3C, 0x7007, 0.0625f),
    VORN_ROW(0x1002, "Vorn", "VR-T82H", VORN_RECEIPT, 0x201, 576, 0x5A3C, 0x7007, 0.0625f),
    // 15-21
    VORN_ROW(0x1003, "Vorn", "VR-T85A", VORN_RECEIPT, 0x201, 576, 0x5A3C, 0x7008, 0.0625f),
    VORN_ROW(0x1003, "Vorn", "VR-T85B", VORN_RECEIPT, 0x201, 576, 0x5A3C, 0x7008, 0.0625f),
    VORN_ROW(0x1003, "Vorn", "VR-T85C", VORN_RECEIPT, 0x201, 576, 0x5A3C, 0x7008, 0.0625f),
    VORN_ROW(0x1003, "Vorn", "VR-T85D", VORN_RECEIPT, 0x201, 576, 0x5A3C, 0x7008, 0.0625f),
    VORN_ROW(0x1003, "Vorn", "VR-T85E", VORN_RECEIPT, 0x201, 576, 0x5A3C, 0x7008, 0.0625f),
    VORN_ROW(0x1003, "Vorn", "VR-T85F", VORN_RECEIPT, 0x201, 576, 0x5A3C, 0x7008, 0.0625f),
    VORN_ROW(0x1003, "Vorn", "VR-T85G", VORN_RECEIPT, 0x201, 576, 0x5A3C, 0x7008, 0.0625f),
    // 22
    VORN_ROW(0x1006, "Vorn", "VR-T86", VORN_RECEIPT, 0x201, 576, 0x5A3C, 0x7007, 0.125f),
    // 23-32: 58 mm receipt printers.
    VORN_ROW(0x1011, "Vorn", "VR-T58A", VORN_RECEIPT, 0x401, 384, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1011, "Vorn", "VR-T58B", VORN_RECEIPT, 0x401, 384, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1011, "Vorn", "VR-T58C", VORN_RECEIPT, 0x401, 384, 0x5A3D, 0xA101, 0.125f),
    VORN_ROW(0x1011, "Vorn", "VR-T58D", VORN_RECEIPT, 0x401, 384, 0x5A3D, 0xA101, 0.125f),
    VORN_ROW(0x1011, "Vorn", "VR-T58E", VORN_RECEIPT, 0x401, 384, 0x5A3D, 0xA101, 0.125f),
    VORN_ROW(0x1013, "Vorn", "VR-T59A", VORN_RECEIPT, 0x401, 384, 0x5A3D, 0xA101, 0.125f),
    VORN_ROW(0x1013, "Vorn", "VR-T59B", VORN_RECEIPT, 0x401, 384, 0x5A3D, 0xA101, 0.125f),
    VORN_ROW(0x1013, "Vorn", "VR-T59C", VORN_RECEIPT, 0x401, 384, 0x5A3D, 0xA101, 0.125f),
    VORN_ROW(0x1012, "Vorn", "VR-T58S", VORN_RECEIPT, 0x401, 384, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1021, "Vorn", "VR-T60", VORN_RECEIPT, 0x401, 432, 0x5A3C, 0x7008, 0.125f),
    // 33-52: mobile printers.
    VORN_ROW(0x1101, "Vorn", "VR-M58A", VORN_MOBILE, 0x401, 384, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1101, "Vorn", "VR-M58B", VORN_MOBILE, 0x401, 384, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1101, "Vorn", "VR-M58C", VORN_MOBILE, 0x401, 384, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1101, "Vorn", "VR-M58D", VORN_MOBILE, 0x401, 384, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3220, "Vorn", "VR-M58P", VORN_MOBILE, 0x401, 384, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1102, "Vorn", "VR-M80A", VORN_MOBILE, 0x401, 576, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1102, "Vorn", "VR-M80B", VORN_MOBILE, 0x401, 576, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1102, "Vorn", "VR-M80C", VORN_MOBILE, 0x401, 576, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1102, "Vorn", "VR-M80D", VORN_MOBILE, 0x401, 576, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1102, "Vorn", "VR-M80E", VORN_MOBILE, 0x401, 576, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1104, "Vorn", "VR-M82A", VORN_MOBILE, 0x401, 576, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1104, "Vorn", "VR-M82B", VORN_MOBILE, 0x401, 576, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1131, "Vorn", "VR-M50A", VORN_MOBILE, 0x401, 384, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1131, "Vorn", "VR-M50B", VORN_MOBILE, 0x401, 384, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1151, "Vorn", "VR-M55A", VORN_MOBILE, 0x401, 384, 0x5A3C, 0x7008, 0.125f),
    // 48 and 49 are one model entered twice; a name lookup stops at 48.
    VORN_ROW(0x1151, "Vorn", "VR-M55B", VORN_MOBILE, 0x401, 384, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1151, "Vorn", "VR-M55B", VORN_MOBILE, 0x401, 384, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1151, "Vorn", "VR-M55C", VORN_MOBILE, 0x401, 384, 0x5A3C, 0x7008, 0.125f),
    // The product id of 51-52 really is five hex digits.
    VORN_ROW(0x1103, "Vorn", "VR-M60A", VORN_MOBILE, 0x401, 384, 0x5A3D, 0xA2101, 0.125f),
    VORN_ROW(0x1103, "Vorn", "VR-M60B", VORN_MOBILE, 0x401, 384, 0x5A3D, 0xA2101, 0.125f),
    // 53-54: 210 mm wide label printers.
    VORN_ROW(0x1191, "Vorn", "VR-W210A", VORN_LABEL, 0x401, 1680, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1191, "Vorn", "VR-W210B", VORN_LABEL, 0x401, 1680, 0x5A3C, 0x7008, 0.125f),
    // 55-62: kiosk receipt printers and control boards.
    VORN_ROW(0x1541, "Vorn", "VR-K58A", VORN_RECEIPT, 0x1101, 384, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1562, "Vorn", "VR-K60A", VORN_RECEIPT, 0x1101, 384, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1562, "Vorn", "VR-K60B", VORN_RECEIPT, 0x1101, 384, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1721, "Vorn", "VR-K80A", VORN_RECEIPT, 0x101, 576, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1725, "Vorn", "VR-K85A", VORN_RECEIPT, 0x101, 576, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1955, "Vorn", "VR-B80", VORN_BOARD, 0x1, 576, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1956, "Vorn", "VR-B80S", VORN_BOARD, 0x1, 576, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x1486, "Vorn", "VR-T84", VORN_RECEIPT, 0x101, 576, 0x5A3C, 0x7008, 0.125f),
    // 63-69: 104 mm label printers.
    VORN_ROW(0x3102, "Vorn", "VR-L104A", VORN_LABEL, 0x2, 848, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3103, "Vorn", "VR-L104B", VORN_LABEL, 0x2, 848, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3104, "Vorn", "VR-L104C", VORN_LABEL, 0x2, 848, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3105, "Vorn", "VR-L104D", VORN_LABEL, 0x2, 848, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3103, "Vorn", "VR-L104E", VORN_LABEL, 0x2, 848, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3103, "Vorn", "VR-L104F", VORN_LABEL, 0x2, 848, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3103, "Vorn", "VR-L104G", VORN_LABEL, 0x2, 848, 0x5A3C, 0x7008, 0.125f),
    // 70-84: the reseller line. Rows 71-75 and 79-81 share the identifier of
    // the row before them, so a session bound by identifier takes that row's
    // flags, not their own.
    VORN_ROW(0x9601, "Quenby", "QB-P58A", VORN_MOBILE, 0x3, 384, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x9601, "Quenby", "QB-P58B", VORN_MOBILE, 0x1, 384, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x9601, "Quenby", "QB-P58C", VORN_MOBILE, 0x1, 384, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x9601, "Quenby", "QB-P58D", VORN_MOBILE, 0x1, 384, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x9601, "Quenby", "QB-P58E", VORN_MOBILE, 0x1, 384, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x9601, "Quenby", "QB-P58F", VORN_MOBILE, 0x1, 384, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x9602, "Quenby", "QB-P80A", VORN_MOBILE, 0x3, 576, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x9602, "Quenby", "QB-P80B", VORN_MOBILE, 0x3, 576, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x9602, "Quenby", "QB-P80C", VORN_MOBILE, 0x3, 576, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x9602, "Quenby", "QB-P80D", VORN_MOBILE, 0x1, 576, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x9602, "Quenby", "QB-P80E", VORN_MOBILE, 0x1, 576, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x9602, "Quenby", "QB-P80F", VORN_MOBILE, 0x1, 576, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x9603, "Quenby", "QB-L108A", VORN_LABEL, 0x2, 864, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x9603, "Quenby", "QB-L108B", VORN_LABEL, 0x2, 864, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x9603, "Quenby", "QB-L108C", VORN_LABEL, 0x2, 864, 0x5A3C, 0x7008, 0.125f),
    // 85-103: 108 mm and 110 mm label printers. The letter I is skipped in
    // model names so that it cannot be mistaken for the digit 1.
    VORN_ROW(0x2042, "Vorn", "VR-L108X", VORN_LABEL, 0x38, 864, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3001, "Vorn", "VR-L108A", VORN_LABEL, 0x2, 864, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3001, "Vorn", "VR-L108B", VORN_LABEL, 0x2, 864, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3001, "Vorn", "VR-L108C", VORN_LABEL, 0x2, 864, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3001, "Vorn", "VR-L108D", VORN_LABEL, 0x2, 864, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3001, "Vorn", "VR-L108E", VORN_LABEL, 0x2, 864, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3001, "Vorn", "VR-L108F", VORN_LABEL, 0x2, 864, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3001, "Vorn", "VR-L108G", VORN_LABEL, 0x2, 864, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3001, "Vorn", "VR-L108H", VORN_LABEL, 0x2, 864, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3001, "Vorn", "VR-L108J", VORN_LABEL, 0x2, 864, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3108, "Vorn", "VR-L110A", VORN_LABEL, 0x2, 864, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3108, "Vorn", "VR-L110B", VORN_LABEL, 0x2, 864, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3108, "Vorn", "VR-L110C", VORN_LABEL, 0x2, 864, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3108, "Vorn", "VR-L110D", VORN_LABEL, 0x2, 864, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3108, "Vorn", "VR-L110E", VORN_LABEL, 0x2, 864, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3108, "Vorn", "VR-L110F", VORN_LABEL, 0x2, 864, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3108, "Vorn", "VR-L110G", VORN_LABEL, 0x2, 864, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3108, "Vorn", "VR-L110H", VORN_LABEL, 0x2, 864, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3108, "Vorn", "VR-L110J", VORN_LABEL, 0x2, 864, 0x5A3C, 0x7008, 0.125f),
    // 104-107
    VORN_ROW(0x4001, "Vorn", "VR-C80", VORN_BOARD, 0x40, 576, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3201, "Vorn", "VR-L80A", VORN_LABEL, 0x42, 576, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3201, "Vorn", "VR-L80B", VORN_LABEL, 0x42, 576, 0x5A3C, 0x7008, 0.125f),
    VORN_ROW(0x3201, "Vorn", "VR-L80C", VORN_LABEL, 0x42, 576, 0x5A3C, 0x7008, 0.125f),
    // 108: the catch-all. Every bit set in the identifier and flags, so a
    // session on it accepts every command, and no dots, so it takes no image.
    CatalogueRow{0xFFFFFFFF, "Unknown", "unknown", "", "", 0xFFFFFFFF, 0, 0, 0, 0.0f},
};

#undef VORN_ROW
#undef VORN_RECEIPT
#undef VORN_LABEL
#undef VORN_MOBILE
#undef VORN_BOARD

static_assert(std::size(kRows) == kCatalogueRows);

// The texts are shown by tools (one tab-separated line per row) and handed to
// applications in fixed-size fields, so their limits are checked when building.
constexpr bool is_plain_text(std::string_view text) {
  for (char c : text) {
    if (c < 0x20 || c > 0x7E) return false;
  }
  return true;
}

constexpr bool texts_fit() {
  for (const CatalogueRow& row : kRows) {
    const std::string_view brand = row.brand, model = row.model_name, display = row.display_name,
                           description = row.description;
    if (model.empty() || model.size() > 13 || display.size() > 19 || description.size() > 41) {
      return false;
    }
    if (!is_plain_text(brand) || !is_plain_text(model) || !is_plain_text(display) ||
        !is_plain_text(description)) {
      return false;
    }
  }
  return true;
}
static_assert(texts_fit());

// Row 49 repeats row 48; every other model name must be unique or a name
// lookup would silently hide a row.
constexpr bool model_names_unique() {
  for (size_t i = 0; i < std::size(kRows); ++i) {
    for (size_t j = i + 1; j < std::size(kRows); ++j) {
      if (i == 48 && j == 49) continue;
      if (std::string_view(kRows[i].model_name) == std::string_view(kRows[j].model_name)) {
        return false;
      }
    }
  }
  return true;
}
static_assert(model_names_unique());

// The record's size in the 32-bit layout, which the size field reports on
// every platform.
constexpr uint32_t kRecordSize = 88;
static_assert(sizeof(void*) != 4 || sizeof(CapabilityRecord) == kRecordSize);

constexpr char kEmptyText[] = "";
constexpr char kNumberList[] = "576,936";
constexpr char kBarcodeList[] = "UPC-A,UPC-E,EAN8,EAN13,CODE39,ITF,CODEBAR,CODE128,CODE93,QRCODE";
constexpr char kBarcodeListWithPdf417[] =
    "UPC-A,UPC-E,EAN8,EAN13,CODE39,ITF,CODEBAR,CODE128,CODE93,QRCODE,PDF417";
// Per font: letter, cell width and height in dots, then its code pages.
constexpr char kFontList[] =
    "A,12,24,242,311,318,437,720,850,860,863,865,866,852,858;"
    "B,9,17,242,311,318,437,850,860,863,865,866,852,858,1252;";

void set_defaults(CapabilityRecord& record) {
  record.attributes_a[0] = 0;
  record.attributes_a[1] = 0;
  record.attributes_a[2] = 2;
  record.attributes_a[3] = 0;
  record.attributes_a[4] = 0;
  record.page_mode_support = 0;
  record.number_list = kEmptyText;
  record.barcode_list = kBarcodeList;
  record.spare_list = nullptr;
  record.font_list = kFontList;
  record.attributes_b[0] = 1;
  record.attributes_b[1] = 1;
  record.attributes_b[2] = 8;
  record.resolution_dpi = 203;
  record.fine_motion_unit_mm = 0.125f;
  record.motion_unit_mm = 0.125f;
  record.compressed_raster = 0;
}

// Changes the defaults for the identifiers that have a rule. An identifier
// without one reports -8 and keeps the defaults.
int32_t apply_model_rule(uint32_t model_id, CapabilityRecord& record) {
  switch (model_id) {
    case 0x1001:
    case 0x1002:
    case 0x1003:
    case 0x1006:
      record.attributes_a[0] = 1;
      record.attributes_a[1] = model_id == 0x1001 ? 23 : model_id == 0x1003 ? 24 : 22;
      record.attributes_a[3] = 3;
      record.attributes_a[4] = 1;
      record.page_mode_support = 1;
      record.number_list = kNumberList;
      record.barcode_list = kBarcodeListWithPdf417;
      record.fine_motion_unit_mm = 0.0625f;
      return VORN_OK;
    case 0x1011:
    case 0x1012:
    case 0x1013:
    case 0x1021:
      record.attributes_a[3] = 3;
      return VORN_OK;
    case 0x1101:
      record.compressed_raster = 1;
      return VORN_OK;
    case 0x1102:
    case 0x1103:
    case 0x1191:
    case 0x3220:
      record.page_mode_support = 1;
      return VORN_OK;
    case 0x1541:
    case 0x1562:
      record.page_mode_support = 1;
      record.attributes_a[2] = 5;
      return VORN_OK;
    case 0x1955:
    case 0x1956:
      // These boards move in half steps but have no page mode.
      record.attributes_a[0] = 1;
      record.attributes_a[1] = 5;
      record.attributes_a[2] = 5;
      record.attributes_a[3] = 3;
      record.fine_motion_unit_mm = 0.0625f;
      return VORN_OK;
    case 0x1104:
    case 0x1131:
    case 0x1151:
    case 0x1721:
    case 0x1725:
    case 0x3102:
    case 0x3103:
    case 0x9601:
    case 0x9602:
      return VORN_OK;
    default:
      return VORN_ERR_UNKNOWN_MODEL;
  }
}

}  // namespace

std::span<const CatalogueRow> catalogue() {
  return kRows;
}

const CatalogueRow* find_model_by_name(const char* name) {
  if (name == nullptr) return nullptr;
  const std::string_view wanted(name);
  for (const CatalogueRow& row : kRows) {
    if (wanted == row.model_name) return &row;
  }
  return nullptr;
}

const CatalogueRow* find_model_by_id(uint32_t model_id) {
  for (const CatalogueRow& row : kRows) {
    if (row.model_id == model_id) return &row;
  }
  return nullptr;
}

uint32_t capability_word(uint32_t model_id, uint32_t type_flags) {
  return (model_id << 16) | type_flags;
}

int32_t create_capability_record(uint32_t model_id, CapabilityRecord** out) {
  if (out == nullptr) return VORN_ERR_PARAMETER;
  *out = nullptr;
  const CatalogueRow* row = find_model_by_id(model_id);
  if (row == nullptr) return VORN_ERR_UNKNOWN_MODEL;

  // Value-initialisation zero-fills the whole record, padding included.
  auto* record = new (std::nothrow) CapabilityRecord();
  if (record == nullptr) return VORN_ERR_NO_MEMORY;

  record->record_size = kRecordSize;
  record->model_id = row->model_id;
  record->brand = row->brand;
  record->model_name = row->model_name;
  record->display_name = row->display_name;
  record->description = row->description;
  // Unlike the capability word, only the identifier's low byte is kept here.
  record->packed_flags = ((row->model_id & 0xFFu) << 16) | row->type_flags;
  record->dots_per_line = row->dots_per_line;
  record->usb_vendor_id = row->usb_vendor_id;
  record->usb_product_id = row->usb_product_id;
  record->unit = row->unit;
  set_defaults(*record);
  // Identifiers without a rule are catalogued models all the same: their
  // record keeps the defaults and creation succeeds.
  (void)apply_model_rule(row->model_id, *record);

  *out = record;
  return VORN_OK;
}

int32_t destroy_capability_record(CapabilityRecord* record) {
  if (record == nullptr) return VORN_ERR_INVALID_HANDLE;
  delete record;
  return VORN_OK;
}

}  // namespace vorn::printer
