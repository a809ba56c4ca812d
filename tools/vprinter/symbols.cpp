#include "symbols.h"

#include <zint.h>

#include <memory>

namespace vorn::vprinter {
namespace {

// Dots beyond which nothing is worth drawing: no paper is wider, and a
// symbol's size stays bounded whatever the commands ask for.
constexpr int kMaxDots = 4096;

struct SymbolDeleter {
  void operator()(zint_symbol* symbol) const { ZBarcode_Delete(symbol); }
};
using Symbol = std::unique_ptr<zint_symbol, SymbolDeleter>;

bool module_set(const zint_symbol& s, int row, int column) {
  return (s.encoded_data[row][column >> 3] >> (column & 7) & 1) != 0;
}

// Runs zint for `symbology`, and for `fallback` (the form with a check
// digit) when the first refuses the data.
Symbol encode(int symbology, int fallback, const std::string& data, std::string* problem,
              void (*options)(zint_symbol*, const void*) = nullptr, const void* context = nullptr) {
  for (int kind : {symbology, fallback}) {
    if (kind == 0) continue;
    Symbol symbol(ZBarcode_Create());
    if (!symbol) break;
    symbol->symbology = kind;
    symbol->input_mode = DATA_MODE;
    if (options != nullptr) options(symbol.get(), context);
    int rc = ZBarcode_Encode(symbol.get(), reinterpret_cast<const unsigned char*>(data.data()),
                             static_cast<int>(data.size()));
    if (rc < ZINT_ERROR) return symbol;
    *problem = symbol->errtxt;
  }
  return nullptr;
}

// Each module becomes module_width by module_height dots; false when the
// picture would be larger than any paper.
std::optional<Bitmap> modules_to_dots(const zint_symbol& s, int module_width, int module_height,
                                      std::string* problem) {
  if (s.width * module_width > kMaxDots || s.rows * module_height > kMaxDots) {
    *problem = "symbol too large";
    return std::nullopt;
  }
  Bitmap modules(s.width, s.rows);
  for (int row = 0; row < s.rows; ++row) {
    for (int column = 0; column < s.width; ++column)
      modules.at(column, row) = module_set(s, row, column);
  }
  return scaled(modules, module_width, module_height);
}

struct Symbology {
  int plain;
  int with_check;  // when the data carries its check digit
};

Symbology symbology_of(unsigned m) {
  switch (m >= 65 ? m - 65 : m) {
    case 0:
      return {BARCODE_UPCA, BARCODE_UPCA_CHK};
    case 1:
      return {BARCODE_UPCE, BARCODE_UPCE_CHK};
    case 2:
    case 3:
      return {BARCODE_EANX, BARCODE_EANX_CHK};
    case 4:
      return {BARCODE_CODE39, 0};
    case 5:
      return {BARCODE_C25INTER, 0};
    case 6:
      return {BARCODE_CODABAR, 0};
    case 7:
      return {BARCODE_CODE93, 0};
    case 8:
      return {BARCODE_CODE128, 0};
    default:
      return {0, 0};
  }
}

}  // namespace

std::string code128_characters(Data data) {
  std::string out;
  bool set_c = false;
  for (size_t i = 0; i < data.size(); ++i) {
    if (data[i] == '{' && i + 1 < data.size()) {
      const uint8_t code = data[++i];
      if (code == 'A' || code == 'B') set_c = false;
      if (code == 'C') set_c = true;
      if (code == '{') out += '{';
      continue;  // shifts and function characters carry no character
    }
    if (set_c) {
      out += static_cast<char>('0' + data[i] / 10 % 10);
      out += static_cast<char>('0' + data[i] % 10);
    } else {
      out += static_cast<char>(data[i]);
    }
  }
  return out;
}

std::optional<Barcode> encode_barcode(unsigned m, Data data, int module_width, int height,
                                      std::string* problem) {
  const Symbology symbology = symbology_of(m);
  if (symbology.plain == 0 || data.empty()) {
    *problem = "no such barcode type";
    return std::nullopt;
  }
  std::string characters =
      m == 73 ? code128_characters(data) : std::string(data.begin(), data.end());
  if (characters.empty()) {
    *problem = "no data";
    return std::nullopt;
  }
  Symbol symbol = encode(symbology.plain, symbology.with_check, characters, problem);
  if (!symbol) return std::nullopt;
  Barcode out;
  std::optional<Bitmap> row = modules_to_dots(*symbol, module_width, 1, problem);
  if (!row) return std::nullopt;
  out.bars = Bitmap(row->width, height);
  for (int y = 0; y < height; ++y) draw(out.bars, *row, 0, y);
  out.hri = reinterpret_cast<const char*>(symbol->text);
  if (m == 73 || m == 72) out.hri = characters;  // the data, without check characters
  return out;
}

std::optional<Bitmap> encode_qr(Data data, int level, int module, std::string* problem) {
  if (data.empty()) {
    *problem = "no data stored";
    return std::nullopt;
  }
  Symbol symbol = encode(
      BARCODE_QRCODE, 0, std::string(data.begin(), data.end()), problem,
      [](zint_symbol* s, const void* l) { s->option_1 = *static_cast<const int*>(l) + 1; }, &level);
  if (!symbol) return std::nullopt;
  return modules_to_dots(*symbol, module, module, problem);
}

std::optional<Bitmap> encode_pdf417(Data data, const Pdf417Settings& settings,
                                    std::string* problem) {
  if (data.empty()) {
    *problem = "no data stored";
    return std::nullopt;
  }
  Symbol symbol = encode(
      settings.truncated ? BARCODE_PDF417COMP : BARCODE_PDF417, 0,
      std::string(data.begin(), data.end()), problem,
      [](zint_symbol* s, const void* c) {
        const auto& p = *static_cast<const Pdf417Settings*>(c);
        s->option_1 = p.level;
        s->option_2 = p.columns;
        s->option_3 = p.rows;
      },
      &settings);
  if (!symbol) return std::nullopt;
  return modules_to_dots(*symbol, settings.module_width,
                         settings.module_width * settings.row_height, problem);
}

}  // namespace vorn::vprinter
