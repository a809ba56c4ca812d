// Two-dimensional symbols (PDF417 and QR Code) through the GS ( k command
// family: the sequence of PrintSymbol, the shorter one PrintBarCode sends for
// the same symbol types, and the QR Code size query of the two-QR layout.
//
// Every builder here makes room for its whole sequence first and takes back
// everything it appended when a later command fails.
#pragma once

#include <vorn/vorn.h>

#include <cstdint>
#include <span>

#include "printer/session.h"

namespace vorn::escpos {

// Symbol types of PrintSymbol and PrintBarCode; the two values of each pair
// produce the same bytes.
inline constexpr int32_t kSymbolPdf417 = 101;
inline constexpr int32_t kSymbolPdf417Alternate = 102;
inline constexpr int32_t kSymbolQrCode = 103;
inline constexpr int32_t kSymbolQrCodeAlternate = 104;

// The QR Code model byte the library always selects (model 1).
inline constexpr uint8_t kQrModel = 0x31;
// Models of this identifier refuse the select-model command in the barcode
// path, so it is left out for them there.
inline constexpr uint32_t kModelWithoutQrModelCommand = 0x1562;

// PrintSymbol's builder: ESC a `alignment` unless the page-mode flag is set,
// then the whole PDF417 or QR Code sequence. -1 for a type outside 101 to 104
// before anything is appended.
int32_t build_symbol(printer::CommandContext& context, int32_t symbol_type,
                     std::span<const uint8_t> data, uint8_t error_correction, uint8_t module_size,
                     uint8_t row_height, uint8_t alignment);

// The two-dimensional branch of PrintBarCode, for types 101 and above (above
// 104: -1). PDF417: options, module width `width`, row height `height`, store,
// print. QR Code: select model (not on 0x1562), module size `width`, store,
// print.
int32_t build_barcode_symbol(printer::CommandContext& context, int32_t symbol_type,
                             std::span<const uint8_t> data, uint8_t width, uint8_t height);

// Module size, store data, transmit size information: the printer encodes
// the symbol and answers with its size in dots.
int32_t build_qr_size_query(printer::CommandContext& context, std::span<const uint8_t> data,
                            uint8_t module_size);

}  // namespace vorn::escpos
