// The model catalogue and the capability record derived from it.
#include "printer/catalogue.h"

#include <gtest/gtest.h>

#include <string>

namespace vorn::printer {
namespace {

struct RowColumns {
  size_t row;
  uint32_t model_id, type_flags, dots_per_line, vendor_id, product_id;
  float unit;
};

// A sample of rows, among them the unusual values.
constexpr RowColumns kRows[] = {{0, 0x1001, 0x201, 576, 0x5A3C, 0x7008, 0.0625f},
                                {22, 0x1006, 0x201, 576, 0x5A3C, 0x7007, 0.125f},
                                {51, 0x1103, 0x401, 384, 0x5A3D, 0xA2101, 0.125f},
                                {56, 0x1562, 0x1101, 384, 0x5A3C, 0x7008, 0.125f},
                                {108, 0xFFFFFFFF, 0xFFFFFFFF, 0, 0, 0, 0.0f}};

TEST(Catalogue, NumericColumns) {
  const auto rows = catalogue();
  ASSERT_EQ(rows.size(), 109u);
  for (const RowColumns& want : kRows) {
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

TEST(Catalogue, LookupsAreExactAndTakeTheFirstRow) {
  const auto rows = catalogue();
  EXPECT_EQ(find_model_by_name("unknown"), &rows[108]);
  EXPECT_STREQ(rows[108].brand, "Unknown");
  EXPECT_STREQ(rows[108].display_name, "");
  EXPECT_STREQ(rows[108].description, "");
  // Rows 48 and 49 are one model entered twice.
  EXPECT_STREQ(rows[49].model_name, rows[48].model_name);
  EXPECT_EQ(find_model_by_name(rows[49].model_name), &rows[48]);
  for (const char* name : {"vr-t80a", "VR-T80", "VR-T80A ", "UNKNOWN", "Unknown", ""}) {
    EXPECT_EQ(find_model_by_name(name), nullptr) << name;
  }
  EXPECT_EQ(find_model_by_name(nullptr), nullptr);
  EXPECT_EQ(find_model_by_id(0x1011), &rows[23]);
  EXPECT_EQ(find_model_by_id(0x3103), &rows[64]);
  EXPECT_EQ(find_model_by_id(0x1234), nullptr);
}

TEST(Catalogue, CapabilityWordKeepsLowSixteenBitsOfIdentifier) {
  EXPECT_EQ(capability_word(0x1102, 0x401), 0x11020401u);
  EXPECT_EQ(capability_word(0xABCD1955, 0x1), 0x19550001u);
  EXPECT_EQ(capability_word(0xFFFFFFFF, 0xFFFFFFFF), 0xFFFFFFFFu);
}

constexpr const char* kPlainBarcodes =
    "UPC-A,UPC-E,EAN8,EAN13,CODE39,ITF,CODEBAR,CODE128,CODE93,QRCODE";
constexpr const char* kPdf417Barcodes =
    "UPC-A,UPC-E,EAN8,EAN13,CODE39,ITF,CODEBAR,CODE128,CODE93,QRCODE,PDF417";

struct RecordCase {
  uint32_t model_id, packed_flags;
  uint8_t a[5];
  uint8_t page_mode;
  const char* numbers;
  const char* barcodes;
  float fine_unit;
  uint8_t compressed;
};

// One identifier of every rule, and identifiers without one.
constexpr RecordCase kRecordCases[] = {
    {0x1001, 0x00010201, {1, 23, 2, 3, 1}, 1, "576,936", kPdf417Barcodes, 0.0625f, 0},
    {0x1003, 0x00030201, {1, 24, 2, 3, 1}, 1, "576,936", kPdf417Barcodes, 0.0625f, 0},
    {0x1006, 0x00060201, {1, 22, 2, 3, 1}, 1, "576,936", kPdf417Barcodes, 0.0625f, 0},
    {0x1021, 0x00210401, {0, 0, 2, 3, 0}, 0, "", kPlainBarcodes, 0.125f, 0},
    {0x1101, 0x00010401, {0, 0, 2, 0, 0}, 0, "", kPlainBarcodes, 0.125f, 1},
    {0x3220, 0x00200401, {0, 0, 2, 0, 0}, 1, "", kPlainBarcodes, 0.125f, 0},
    {0x1541, 0x00411101, {0, 0, 5, 0, 0}, 1, "", kPlainBarcodes, 0.125f, 0},
    {0x1955, 0x00550001, {1, 5, 5, 3, 0}, 0, "", kPlainBarcodes, 0.0625f, 0},
    {0xFFFFFFFF, 0xFFFFFFFF, {0, 0, 2, 0, 0}, 0, "", kPlainBarcodes, 0.125f, 0},
};

TEST(CapabilityRecord, DerivedByIdentifierRules) {
  for (const RecordCase& want : kRecordCases) {
    SCOPED_TRACE(::testing::Message() << std::hex << "id 0x" << want.model_id);
    CapabilityRecord* record = nullptr;
    ASSERT_EQ(create_capability_record(want.model_id, &record), 0);
    const CatalogueRow* row = find_model_by_id(want.model_id);
    EXPECT_EQ(record->record_size, 88u);
    EXPECT_EQ(record->model_id, want.model_id);
    // The record shares the catalogue's texts rather than copying them.
    EXPECT_EQ(record->model_name, row->model_name);
    EXPECT_EQ(record->packed_flags, want.packed_flags);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(record->attributes_a[i], want.a[i]) << "A" << i + 1;
    EXPECT_EQ(record->page_mode_support, want.page_mode);
    EXPECT_STREQ(record->number_list, want.numbers);
    EXPECT_STREQ(record->barcode_list, want.barcodes);
    EXPECT_EQ(record->spare_list, nullptr);
    EXPECT_STREQ(record->font_list,
                 "A,12,24,242,311,318,437,720,850,860,863,865,866,852,858;"
                 "B,9,17,242,311,318,437,850,860,863,865,866,852,858,1252;");
    EXPECT_EQ(record->attributes_b[2], 8);
    EXPECT_EQ(record->resolution_dpi, 203u);
    EXPECT_EQ(record->fine_motion_unit_mm, want.fine_unit);
    EXPECT_EQ(record->motion_unit_mm, 0.125f);
    EXPECT_EQ(record->compressed_raster, want.compressed);
    // Kept apart from the fine motion unit: 0x1006 has 0.125 here.
    EXPECT_EQ(record->unit, row->unit);
    EXPECT_EQ(destroy_capability_record(record), 0);
  }
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
