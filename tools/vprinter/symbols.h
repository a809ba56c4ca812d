// Barcodes and two-dimensional symbols, encoded by libzint and drawn with
// the module sizes the commands give.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "bitmap.h"

namespace vorn::vprinter {

using Data = std::span<const uint8_t>;

struct Barcode {
  Bitmap bars;      // module_width dots a module, `height` dots high
  std::string hri;  // the characters printed under or over the bars
};

// GS k type `m` (0 to 6 or 65 to 73) with its data as sent. Nothing when the
// data does not fit the symbology; `problem` then says why.
std::optional<Barcode> encode_barcode(unsigned m, Data data, int module_width, int height,
                                      std::string* problem);

// QR Code at error correction level 0 to 3 (L to H), `module` dots a module.
std::optional<Bitmap> encode_qr(Data data, int level, int module, std::string* problem);

struct Pdf417Settings {
  int columns = 0;       // 0: automatic
  int rows = 0;          // 0: automatic
  int module_width = 3;  // dots
  int row_height = 3;    // in module widths
  int level = -1;        // error correction level 0 to 8, -1 automatic
  bool truncated = false;
};

std::optional<Bitmap> encode_pdf417(Data data, const Pdf417Settings& settings,
                                    std::string* problem);

// The characters a CODE128 barcode's data (code set selectors {A {B {C and
// digit pairs packed into single bytes in code set C) stands for.
std::string code128_characters(Data data);

}  // namespace vorn::vprinter
