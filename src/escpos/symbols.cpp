#include "escpos/symbols.h"

#include "escpos/common_encoders.h"
#include "escpos/encoder.h"

namespace vorn::escpos {
namespace {

constexpr uint8_t kPdf417 = 0x30;
constexpr uint8_t kQrCode = 0x31;

// Fixed lengths of the GS ( k commands; a store command adds its data.
constexpr uint32_t kShortCommand = 8;  // pL = 3
constexpr uint32_t kLongCommand = 9;   // pL = 4
constexpr uint32_t kJustification = 3;

// The largest data the PDF417 store command accepts.
constexpr uint32_t kPdf417MaxData = 65532;

bool in_range(uint8_t n, uint8_t low, uint8_t high) {
  return n >= low && n <= high;
}

// GS ( k pL pH cn fn n: every command of the family with one parameter.
int32_t encode_one_parameter(const Target& t, bool valid, uint8_t cn, uint8_t fn, uint8_t n) {
  return emit(t, valid, {0x1D, 0x28, 0x6B, 0x03, 0x00, cn, fn, n});
}

// Store data: pL pH count cn, fn, the byte 0x30 and the data.
int32_t encode_store(const Target& t, bool valid, uint8_t cn, std::span<const uint8_t> data) {
  const auto counted = static_cast<uint32_t>(data.size() + 3);
  return emit(t, valid, {0x1D, 0x28, 0x6B, low_byte(counted), high_byte(counted), cn, 0x50, 0x30},
              data);
}

int32_t encode_pdf417_columns(const Target& t, uint8_t n) {
  return encode_one_parameter(t, n <= 30, kPdf417, 0x41, n);
}
int32_t encode_pdf417_rows(const Target& t, uint8_t n) {
  return encode_one_parameter(t, n == 0 || in_range(n, 3, 90), kPdf417, 0x42, n);
}
int32_t encode_pdf417_module_width(const Target& t, uint8_t n) {
  return encode_one_parameter(t, in_range(n, 2, 8), kPdf417, 0x43, n);
}
int32_t encode_pdf417_row_height(const Target& t, uint8_t n) {
  return encode_one_parameter(t, in_range(n, 2, 8), kPdf417, 0x44, n);
}
int32_t encode_pdf417_error_correction(const Target& t, uint8_t m, uint8_t n) {
  // m 0x30 chooses a level (0x30 to 0x38), m 0x31 a ratio (1 to 40).
  const bool valid = (m == 0x30 && in_range(n, 0x30, 0x38)) || (m == 0x31 && in_range(n, 1, 40));
  return emit(t, valid, {0x1D, 0x28, 0x6B, 0x04, 0x00, kPdf417, 0x45, m, n});
}
int32_t encode_pdf417_options(const Target& t, uint8_t n) {
  return encode_one_parameter(t, n <= 1, kPdf417, 0x46, n);
}
int32_t encode_pdf417_store(const Target& t, std::span<const uint8_t> data) {
  return encode_store(t, !data.empty() && data.size() <= kPdf417MaxData, kPdf417, data);
}
int32_t encode_pdf417_print(const Target& t) {
  return encode_one_parameter(t, true, kPdf417, 0x51, 0x30);
}

int32_t encode_qr_model(const Target& t, uint8_t m) {
  return emit(t, m == 0x31 || m == 0x32, {0x1D, 0x28, 0x6B, 0x04, 0x00, kQrCode, 0x41, m, 0x00});
}
int32_t encode_qr_module_size(const Target& t, uint8_t n) {
  return encode_one_parameter(t, in_range(n, 1, 16), kQrCode, 0x43, n);
}
int32_t encode_qr_error_correction(const Target& t, uint8_t n) {
  // The level is the character '0' to '3' (L, M, Q, H), not 0 to 3.
  return encode_one_parameter(t, in_range(n, 0x30, 0x33), kQrCode, 0x45, n);
}
int32_t encode_qr_store(const Target& t, std::span<const uint8_t> data) {
  // No range of its own beyond present data, but a length that does not fit
  // pL and pH would announce the wrong number of bytes to the printer.
  return encode_store(t, !data.empty() && fits_u16(static_cast<int64_t>(data.size()) + 3), kQrCode,
                      data);
}
int32_t encode_qr_print(const Target& t) {
  return encode_one_parameter(t, true, kQrCode, 0x51, 0x30);
}
int32_t encode_qr_transmit_size(const Target& t) {
  return encode_one_parameter(t, true, kQrCode, 0x52, 0x30);
}

// Room for a whole sequence: its fixed commands plus the data.
int32_t make_room(printer::CommandContext& context, uint32_t fixed, size_t data) {
  const uint64_t needed = static_cast<uint64_t>(fixed) + data;
  if (needed > UINT32_MAX) return VORN_ERR_NO_MEMORY;
  return printer::ensure_room(&context, static_cast<uint32_t>(needed));
}

bool is_pdf417(int32_t type) {
  return type == kSymbolPdf417 || type == kSymbolPdf417Alternate;
}

// Runs the steps in order on a fresh target (room was made beforehand, so the
// buffer no longer moves) and stops at the first failure.
template <typename... Steps>
int32_t run_steps(printer::CommandContext& context, Steps&&... steps) {
  const Target t = target_of(context);
  int32_t result = VORN_OK;
  ((result = result == VORN_OK ? steps(t) : result), ...);
  return result;
}

}  // namespace

int32_t build_symbol(printer::CommandContext& context, int32_t symbol_type,
                     std::span<const uint8_t> data, uint8_t error_correction, uint8_t module_size,
                     uint8_t row_height, uint8_t alignment) {
  if (symbol_type < kSymbolPdf417 || symbol_type > kSymbolQrCodeAlternate) {
    return VORN_ERR_PARAMETER;
  }
  const bool pdf417 = is_pdf417(symbol_type);
  const uint32_t fixed = kJustification + (pdf417 ? 7 * kShortCommand + kLongCommand
                                                  : 4 * kShortCommand + kLongCommand);
  if (make_room(context, fixed, data.size()) != VORN_OK) return VORN_ERR_NO_MEMORY;

  Rollback rollback(context);
  const Target t = target_of(context);
  // In page mode the position comes from the page commands; a justification
  // command there would move the symbol, so none is sent (and none checked).
  if (!context.page_mode) {
    const int32_t result = encode_justification(t, alignment);
    if (result != VORN_OK) return result;
  }
  if (pdf417) {
    return rollback.finish(run_steps(
        context, [](const Target& u) { return encode_pdf417_columns(u, 0); },
        [](const Target& u) { return encode_pdf417_rows(u, 0); },
        [&](const Target& u) { return encode_pdf417_module_width(u, module_size); },
        [&](const Target& u) { return encode_pdf417_row_height(u, row_height); },
        [&](const Target& u) { return encode_pdf417_error_correction(u, 0x30, error_correction); },
        [](const Target& u) { return encode_pdf417_options(u, 0); },
        [&](const Target& u) { return encode_pdf417_store(u, data); },
        [](const Target& u) { return encode_pdf417_print(u); }));
  }
  return rollback.finish(run_steps(
      context, [](const Target& u) { return encode_qr_model(u, kQrModel); },
      [&](const Target& u) { return encode_qr_module_size(u, module_size); },
      [&](const Target& u) { return encode_qr_error_correction(u, error_correction); },
      [&](const Target& u) { return encode_qr_store(u, data); },
      [](const Target& u) { return encode_qr_print(u); }));
}

int32_t build_barcode_symbol(printer::CommandContext& context, int32_t symbol_type,
                             std::span<const uint8_t> data, uint8_t width, uint8_t height) {
  if (symbol_type < kSymbolPdf417 || symbol_type > kSymbolQrCodeAlternate) {
    return VORN_ERR_PARAMETER;
  }
  const bool pdf417 = is_pdf417(symbol_type);
  const uint32_t fixed = pdf417 ? 5 * kShortCommand : 3 * kShortCommand + kLongCommand;
  if (make_room(context, fixed, data.size()) != VORN_OK) return VORN_ERR_NO_MEMORY;

  Rollback rollback(context);
  if (pdf417) {
    return rollback.finish(run_steps(
        context, [](const Target& u) { return encode_pdf417_options(u, 0); },
        [&](const Target& u) { return encode_pdf417_module_width(u, width); },
        [&](const Target& u) { return encode_pdf417_row_height(u, height); },
        [&](const Target& u) { return encode_pdf417_store(u, data); },
        [](const Target& u) { return encode_pdf417_print(u); }));
  }
  const bool select_model = context.model_id != kModelWithoutQrModelCommand;
  return rollback.finish(run_steps(
      context,
      [&](const Target& u) { return select_model ? encode_qr_model(u, kQrModel) : VORN_OK; },
      [&](const Target& u) { return encode_qr_module_size(u, width); },
      [&](const Target& u) { return encode_qr_store(u, data); },
      [](const Target& u) { return encode_qr_print(u); }));
}

int32_t build_qr_size_query(printer::CommandContext& context, std::span<const uint8_t> data,
                            uint8_t module_size) {
  if (make_room(context, 3 * kShortCommand, data.size()) != VORN_OK) return VORN_ERR_NO_MEMORY;
  Rollback rollback(context);
  return rollback.finish(run_steps(
      context, [&](const Target& u) { return encode_qr_module_size(u, module_size); },
      [&](const Target& u) { return encode_qr_store(u, data); },
      [](const Target& u) { return encode_qr_transmit_size(u); }));
}

}  // namespace vorn::escpos

extern "C" {

VORN_API int32_t VORN_CALL PrintSymbol(VORN_PRINTER handle, int32_t symbolType,
                                       const VORN_WCHAR* data, int32_t errorCorrection,
                                       int32_t moduleSize, int32_t rowHeight, int32_t alignment) {
  using namespace vorn::escpos;
  return vorn::printer::run_printing_call(handle, [&](vorn::printer::CommandContext& c) {
    vorn::printer::NarrowText bytes;
    const int32_t result = vorn::printer::to_narrow_owned(data, &bytes);
    if (result != VORN_OK) return result;
    return build_symbol(c, symbolType, bytes.view(), byte_of(errorCorrection), byte_of(moduleSize),
                        byte_of(rowHeight), byte_of(alignment));
  });
}

}  // extern "C"
