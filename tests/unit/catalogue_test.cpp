#include "printer/catalogue.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <string>
#include <string_view>

namespace vorn::printer {
namespace {

struct RowColumns {
  size_t row;
  uint32_t model_id;
  uint32_t type_flags;
  uint32_t dots_per_line;
  uint32_t vendor_id;
  uint32_t product_id;
  float unit;
};

// The first and last row of every group of equal numeric columns.
constexpr RowColumns kBoundaryRows[] = {
    {0, 0x1001, 0x201, 576, 0x5A3C, 0x7008, 0.0625f},
    {6, 0x1001, 0x201, 576, 0x5A3C, 0x7008, 0.0625f},
    {7, 0x1002, 0x201, 576, 0x5A3C, 0x7007, 0.0625f},
    {14, 0x1002, 0x201, 576, 0x5A3C, 0x7007, 0.0625f},
    {15, 0x1003, 0x201, 576, 0x5A3C, 0x7008, 0.0625f},
    {21, 0x1003, 0x201, 576, 0x5A3C, 0x7008, 0.0625f},
    {22, 0x1006, 0x201, 576, 0x5A3C, 0x7007, 0.125f},
    {23, 0x1011, 0x401, 384, 0x5A3C, 0x7008, 0.125f},
    {24, 0x1011, 0x401, 384, 0x5A3C, 0x7008, 0.125f},
    {25, 0x1011, 0x401, 384, 0x5A3D, 0xA101, 0.125f},
    {27, 0x1011, 0x401, 384, 0x5A3D, 0xA101, 0.125f},
    {28, 0x1013, 0x401, 384, 0x5A3D, 0xA101, 0.125f},
    {30, 0x1013, 0x401, 384, 0x5A3D, 0xA101, 0.125f},
    {31, 0x1012, 0x401, 384, 0x5A3C, 0x7008, 0.125f},
    {32, 0x1021, 0x401, 432, 0x5A3C, 0x7008, 0.125f},
    {33, 0x1101, 0x401, 384, 0x5A3C, 0x7008, 0.125f},
    {36, 0x1101, 0x401, 384, 0x5A3C, 0x7008, 0.125f},
    {37, 0x3220, 0x401, 384, 0x5A3C, 0x7008, 0.125f},
    {38, 0x1102, 0x401, 576, 0x5A3C, 0x7008, 0.125f},
    {42, 0x1102, 0x401, 576, 0x5A3C, 0x7008, 0.125f},
    {43, 0x1104, 0x401, 576, 0x5A3C, 0x7008, 0.125f},
    {44, 0x1104, 0x401, 576, 0x5A3C, 0x7008, 0.125f},
    {45, 0x1131, 0x401, 384, 0x5A3C, 0x7008, 0.125f},
    {46, 0x1131, 0x401, 384, 0x5A3C, 0x7008, 0.125f},
    {47, 0x1151, 0x401, 384, 0x5A3C, 0x7008, 0.125f},
    {50, 0x1151, 0x401, 384, 0x5A3C, 0x7008, 0.125f},
    {51, 0x1103, 0x401, 384, 0x5A3D, 0xA2101, 0.125f},
    {52, 0x1103, 0x401, 384, 0x5A3D, 0xA2101, 0.125f},
    {53, 0x1191, 0x401, 1680, 0x5A3C, 0x7008, 0.125f},
    {54, 0x1191, 0x401, 1680, 0x5A3C, 0x7008, 0.125f},
    {55, 0x1541, 0x1101, 384, 0x5A3C, 0x7008, 0.125f},
    {56, 0x1562, 0x1101, 384, 0x5A3C, 0x7008, 0.125f},
    {57, 0x1562, 0x1101, 384, 0x5A3C, 0x7008, 0.125f},
    {58, 0x1721, 0x101, 576, 0x5A3C, 0x7008, 0.125f},
    {59, 0x1725, 0x101, 576, 0x5A3C, 0x7008, 0.125f},
    {60, 0x1955, 0x1, 576, 0x5A3C, 0x7008, 0.125f},
    {61, 0x1956, 0x1, 576, 0x5A3C, 0x7008, 0.125f},
    {62, 0x1486, 0x101, 576, 0x5A3C, 0x7008, 0.125f},
    {63, 0x3102, 0x2, 848, 0x5A3C, 0x7008, 0.125f},
    {64, 0x3103, 0x2, 848, 0x5A3C, 0x7008, 0.125f},
    {65, 0x3104, 0x2, 848, 0x5A3C, 0x7008, 0.125f},
    {66, 0x3105, 0x2, 848, 0x5A3C, 0x7008, 0.125f},
    {67, 0x3103, 0x2, 848, 0x5A3C, 0x7008, 0.125f},
    {69, 0x3103, 0x2, 848, 0x5A3C, 0x7008, 0.125f},
    {70, 0x9601, 0x3, 384, 0x5A3C, 0x7008, 0.125f},
    {71, 0x9601, 0x1, 384, 0x5A3C, 0x7008, 0.125f},
    {75, 0x9601, 0x1, 384, 0x5A3C, 0x7008, 0.125f},
    {76, 0x9602, 0x3, 576, 0x5A3C, 0x7008, 0.125f},
    {78, 0x9602, 0x3, 576, 0x5A3C, 0x7008, 0.125f},
    {79, 0x9602, 0x1, 576, 0x5A3C, 0x7008, 0.125f},
    {81, 0x9602, 0x1, 576, 0x5A3C, 0x7008, 0.125f},
    {82, 0x9603, 0x2, 864, 0x5A3C, 0x7008, 0.125f},
    {84, 0x9603, 0x2, 864, 0x5A3C, 0x7008, 0.125f},
    {85, 0x2042, 0x38, 864, 0x5A3C, 0x7008, 0.125f},
    {86, 0x3001, 0x2, 864, 0x5A3C, 0x7008, 0.125f},
    {94, 0x3001, 0x2, 864, 0x5A3C, 0x7008, 0.125f},
    {95, 0x3108, 0x2, 864, 0x5A3C, 0x7008, 0.125f},
    {103, 0x3108, 0x2, 864, 0x5A3C, 0x7008, 0.125f},
    {104, 0x4001, 0x40, 576, 0x5A3C, 0x7008, 0.125f},
    {105, 0x3201, 0x42, 576, 0x5A3C, 0x7008, 0.125f},
    {107, 0x3201, 0x42, 576, 0x5A3C, 0x7008, 0.125f},
    {108, 0xFFFFFFFF, 0xFFFFFFFF, 0, 0, 0, 0.0f},
};

TEST(Catalogue, HasAllRows) {
  EXPECT_EQ(catalogue().size(), 109u);
}

TEST(Catalogue, NumericColumnsAtEveryGroupBoundary) {
  const auto rows = catalogue();
  ASSERT_EQ(rows.size(), 109u);
  for (const RowColumns& want : kBoundaryRows) {
    SCOPED_TRACE("row " + std::to_string(want.row));
    const CatalogueRow& row = rows[want.row];
    EXPECT_EQ(row.model_id, want.model_id);
    EXPECT_EQ(row.type_flags, want.type_flags);
    EXPECT_EQ(row.dots_per_line, want.dots_per_line);
    EXPECT_EQ(row.usb_vendor_id, want.vendor_id);
    EXPECT_EQ(row.usb_product_id, want.product_id);
    EXPECT_EQ(row.unit, want.unit);
  }
}

TEST(Catalogue, RowsFortyEightAndFortyNineAreOneModel) {
  const CatalogueRow& a = catalogue()[48];
  const CatalogueRow& b = catalogue()[49];
  EXPECT_EQ(a.model_id, 0x1151u);
  EXPECT_EQ(b.model_id, 0x1151u);
  EXPECT_EQ(a.type_flags, b.type_flags);
  EXPECT_EQ(a.dots_per_line, b.dots_per_line);
  EXPECT_STREQ(a.brand, b.brand);
  EXPECT_STREQ(a.model_name, b.model_name);
  EXPECT_STREQ(a.display_name, b.display_name);
  EXPECT_STREQ(a.description, b.description);
  EXPECT_EQ(find_model_by_name(b.model_name), &a);
}

TEST(Catalogue, CatchAllRowTexts) {
  const CatalogueRow& row = catalogue()[108];
  EXPECT_STREQ(row.brand, "Unknown");
  EXPECT_STREQ(row.model_name, "unknown");
  EXPECT_STREQ(row.display_name, "");
  EXPECT_STREQ(row.description, "");
}

TEST(Catalogue, NamesAreUniqueShortAndTabFree) {
  const auto rows = catalogue();
  for (size_t i = 0; i < rows.size(); ++i) {
    SCOPED_TRACE("row " + std::to_string(i));
    const std::string_view model = rows[i].model_name;
    EXPECT_FALSE(model.empty());
    EXPECT_LE(model.size(), 13u);
    EXPECT_LE(std::strlen(rows[i].display_name), 19u);
    EXPECT_LE(std::strlen(rows[i].description), 41u);
    EXPECT_EQ(model.find('\t'), std::string_view::npos);
    EXPECT_EQ(std::string_view(rows[i].description).find('\t'), std::string_view::npos);
    // Every name but the repeated row 49 leads back to its own row.
    EXPECT_EQ(find_model_by_name(rows[i].model_name), &rows[i == 49 ? 48 : i]);
  }
}

TEST(Catalogue, NameLookupIsExact) {
  const std::string first = catalogue()[0].model_name;
  std::string other_case = first;
  for (char& c : other_case) c = std::isupper(c) ? std::tolower(c) : std::toupper(c);
  ASSERT_NE(other_case, first);
  EXPECT_EQ(find_model_by_name(other_case.c_str()), nullptr);
  EXPECT_EQ(find_model_by_name("UNKNOWN"), nullptr);
  EXPECT_EQ(find_model_by_name("Unknown"), nullptr);
  EXPECT_EQ(find_model_by_name(first.substr(0, first.size() - 1).c_str()), nullptr);
  EXPECT_EQ(find_model_by_name((first + " ").c_str()), nullptr);
  EXPECT_EQ(find_model_by_name(""), nullptr);
  EXPECT_EQ(find_model_by_name(nullptr), nullptr);
}

TEST(Catalogue, UnknownNameIsTheCatchAllWithEveryCapabilityBit) {
  const CatalogueRow* row = find_model_by_name("unknown");
  ASSERT_EQ(row, &catalogue()[108]);
  EXPECT_EQ(capability_word(row->model_id, row->type_flags), 0xFFFFFFFFu);
}

TEST(Catalogue, CapabilityWordKeepsLowSixteenBitsOfIdentifier) {
  EXPECT_EQ(capability_word(0x1102, 0x401), 0x11020401u);
  EXPECT_EQ(capability_word(0x3201, 0x42), 0x32010042u);
  EXPECT_EQ(capability_word(0xABCD1955, 0x1), 0x19550001u);
}

TEST(Catalogue, IdentifierLookupTakesFirstRow) {
  EXPECT_EQ(find_model_by_id(0x1011), &catalogue()[23]);
  EXPECT_EQ(find_model_by_id(0x3103), &catalogue()[64]);
  EXPECT_EQ(find_model_by_id(0xFFFFFFFF), &catalogue()[108]);
  EXPECT_EQ(find_model_by_id(0x1234), nullptr);
}

// A session binds through the identifier, so these rows get the first row's
// flags rather than their own 0x1.
TEST(Catalogue, SharedIdentifierRowsBindToFirstRowFlags) {
  const struct {
    size_t first, last;
    uint32_t word;
  } groups[] = {{71, 75, 0x96010003}, {79, 81, 0x96020003}};
  for (const auto& group : groups) {
    for (size_t i = group.first; i <= group.last; ++i) {
      SCOPED_TRACE("row " + std::to_string(i));
      const CatalogueRow* named = find_model_by_name(catalogue()[i].model_name);
      ASSERT_EQ(named, &catalogue()[i]);
      const CatalogueRow* bound = find_model_by_id(named->model_id);
      ASSERT_NE(bound, nullptr);
      EXPECT_EQ(capability_word(bound->model_id, bound->type_flags), group.word);
    }
  }
}

constexpr const char* kPlainBarcodes =
    "UPC-A,UPC-E,EAN8,EAN13,CODE39,ITF,CODEBAR,CODE128,CODE93,QRCODE";
constexpr const char* kPdf417Barcodes =
    "UPC-A,UPC-E,EAN8,EAN13,CODE39,ITF,CODEBAR,CODE128,CODE93,QRCODE,PDF417";
constexpr const char* kFonts =
    "A,12,24,242,311,318,437,720,850,860,863,865,866,852,858;"
    "B,9,17,242,311,318,437,850,860,863,865,866,852,858,1252;";

struct RecordCase {
  uint32_t model_id;
  uint32_t packed_flags;
  uint8_t a[5];
  uint8_t page_mode;
  const char* numbers;
  const char* barcodes;
  float fine_unit;
  uint8_t compressed;
};

constexpr RecordCase kRecordCases[] = {
    {0x1001, 0x00010201, {1, 23, 2, 3, 1}, 1, "576,936", kPdf417Barcodes, 0.0625f, 0},
    {0x1002, 0x00020201, {1, 22, 2, 3, 1}, 1, "576,936", kPdf417Barcodes, 0.0625f, 0},
    {0x1003, 0x00030201, {1, 24, 2, 3, 1}, 1, "576,936", kPdf417Barcodes, 0.0625f, 0},
    {0x1006, 0x00060201, {1, 22, 2, 3, 1}, 1, "576,936", kPdf417Barcodes, 0.0625f, 0},
    {0x1011, 0x00110401, {0, 0, 2, 3, 0}, 0, "", kPlainBarcodes, 0.125f, 0},
    {0x1021, 0x00210401, {0, 0, 2, 3, 0}, 0, "", kPlainBarcodes, 0.125f, 0},
    {0x1101, 0x00010401, {0, 0, 2, 0, 0}, 0, "", kPlainBarcodes, 0.125f, 1},
    {0x3220, 0x00200401, {0, 0, 2, 0, 0}, 1, "", kPlainBarcodes, 0.125f, 0},
    {0x1104, 0x00040401, {0, 0, 2, 0, 0}, 0, "", kPlainBarcodes, 0.125f, 0},
    {0x1541, 0x00411101, {0, 0, 5, 0, 0}, 1, "", kPlainBarcodes, 0.125f, 0},
    {0x1955, 0x00550001, {1, 5, 5, 3, 0}, 0, "", kPlainBarcodes, 0.0625f, 0},
    {0x9601, 0x00010003, {0, 0, 2, 0, 0}, 0, "", kPlainBarcodes, 0.125f, 0},
    {0x2042, 0x00420038, {0, 0, 2, 0, 0}, 0, "", kPlainBarcodes, 0.125f, 0},
    {0x3201, 0x00010042, {0, 0, 2, 0, 0}, 0, "", kPlainBarcodes, 0.125f, 0},
    {0xFFFFFFFF, 0xFFFFFFFF, {0, 0, 2, 0, 0}, 0, "", kPlainBarcodes, 0.125f, 0},
};

TEST(CapabilityRecord, DerivedByIdentifierRules) {
  for (const RecordCase& want : kRecordCases) {
    SCOPED_TRACE(::testing::Message() << std::hex << "id 0x" << want.model_id);
    CapabilityRecord* record = nullptr;
    ASSERT_EQ(create_capability_record(want.model_id, &record), 0);
    ASSERT_NE(record, nullptr);
    const CatalogueRow* row = find_model_by_id(want.model_id);
    ASSERT_NE(row, nullptr);

    EXPECT_EQ(record->record_size, 88u);
    EXPECT_EQ(record->model_id, want.model_id);
    // The record shares the catalogue's texts rather than copying them.
    EXPECT_EQ(record->brand, row->brand);
    EXPECT_EQ(record->model_name, row->model_name);
    EXPECT_EQ(record->display_name, row->display_name);
    EXPECT_EQ(record->description, row->description);
    EXPECT_EQ(record->packed_flags, want.packed_flags);
    EXPECT_EQ(record->dots_per_line, row->dots_per_line);
    EXPECT_EQ(record->usb_vendor_id, row->usb_vendor_id);
    EXPECT_EQ(record->usb_product_id, row->usb_product_id);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(record->attributes_a[i], want.a[i]) << "A" << i + 1;
    EXPECT_EQ(record->page_mode_support, want.page_mode);
    ASSERT_NE(record->number_list, nullptr);
    EXPECT_STREQ(record->number_list, want.numbers);
    EXPECT_STREQ(record->barcode_list, want.barcodes);
    EXPECT_EQ(record->spare_list, nullptr);
    EXPECT_STREQ(record->font_list, kFonts);
    EXPECT_EQ(record->attributes_b[0], 1);
    EXPECT_EQ(record->attributes_b[1], 1);
    EXPECT_EQ(record->attributes_b[2], 8);
    EXPECT_EQ(record->resolution_dpi, 203u);
    EXPECT_EQ(record->fine_motion_unit_mm, want.fine_unit);
    EXPECT_EQ(record->motion_unit_mm, 0.125f);
    EXPECT_EQ(record->compressed_raster, want.compressed);
    EXPECT_EQ(record->unit, row->unit);
    EXPECT_EQ(destroy_capability_record(record), 0);
  }
}

TEST(CapabilityRecord, UnitColumnIsKeptApartFromFineMotionUnit) {
  CapabilityRecord* record = nullptr;
  ASSERT_EQ(create_capability_record(0x1006, &record), 0);
  EXPECT_EQ(record->unit, 0.125f);
  EXPECT_EQ(record->fine_motion_unit_mm, 0.0625f);
  destroy_capability_record(record);
}

TEST(CapabilityRecord, UnknownIdentifierAndNullRecord) {
  CapabilityRecord* record = nullptr;
  EXPECT_EQ(create_capability_record(0x1234, &record), -8);
  EXPECT_EQ(record, nullptr);
  EXPECT_EQ(destroy_capability_record(nullptr), -6);
}

// Applications of the 32-bit library see this exact layout.
static_assert(sizeof(void*) != 4 || sizeof(CapabilityRecord) == 88);

}  // namespace
}  // namespace vorn::printer
