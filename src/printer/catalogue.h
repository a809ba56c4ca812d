// The model catalogue and the capability record derived from it. Both are
// constant data shared by all printer handles.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vorn::printer {

// Type flag bits of a catalogue row.
inline constexpr uint32_t kFlagEscPos = 0x0001;
inline constexpr uint32_t kFlagVersionText = 0x0002;    // answers "ZZZGETVERSION"
inline constexpr uint32_t kFlagVersionEscHash = 0x0004;  // answers ESC # * LF NUL
inline constexpr uint32_t kFlagStatusDleEot1 = 0x0100;
inline constexpr uint32_t kFlagStatusDleEot4 = 0x0200;
inline constexpr uint32_t kFlagStatusEscV = 0x0400;

struct CatalogueRow {
  uint32_t model_id;
  const char* brand;
  const char* model_name;    // at most 13 bytes; what applications pass to PrinterCreator
  const char* display_name;  // at most 19 bytes
  const char* description;   // at most 41 bytes
  uint32_t type_flags;
  uint32_t dots_per_line;
  uint32_t usb_vendor_id;
  uint32_t usb_product_id;
  float unit;
};

inline constexpr size_t kCatalogueRows = 109;

// All rows in catalogue order; the last is the catch-all row "unknown".
std::span<const CatalogueRow> catalogue();

// First row whose model name equals `name` byte for byte, or null.
const CatalogueRow* find_model_by_name(const char* name);
// First row with `model_id`, or null.
const CatalogueRow* find_model_by_id(uint32_t model_id);

// model identifier x 65536 OR type flags, in 32-bit arithmetic.
uint32_t capability_word(uint32_t model_id, uint32_t type_flags);

struct CapabilityRecord {
  uint32_t record_size;  // 88
  uint32_t model_id;
  const char* brand;
  const char* model_name;
  const char* display_name;
  const char* description;
  uint32_t packed_flags;  // (model id AND 0xFF) x 65536 OR type flags
  uint32_t dots_per_line;
  uint32_t usb_vendor_id;
  uint32_t usb_product_id;
  uint8_t attributes_a[5];
  uint8_t page_mode_support;
  const char* number_list;
  const char* barcode_list;
  const char* spare_list;  // always null
  const char* font_list;
  uint8_t attributes_b[3];
  uint32_t resolution_dpi;
  float fine_motion_unit_mm;
  float motion_unit_mm;
  uint8_t compressed_raster;
  float unit;
};

// -8 when no row has `model_id`, -9 without memory, else 0 and a new record.
int32_t create_capability_record(uint32_t model_id, CapabilityRecord** out);
// -6 for null, else frees the record and returns 0.
int32_t destroy_capability_record(CapabilityRecord* record);

}  // namespace vorn::printer
