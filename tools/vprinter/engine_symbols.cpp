// Barcodes (GS k) and two-dimensional symbols (GS ( k), with the module
// sizes, heights and HRI position the earlier commands set.
#include <algorithm>

#include "engine.h"

namespace vorn::vprinter {
namespace {

using cli::byte_at;
using cli::choice;

constexpr int kHriGap = 4;  // dots between the bars and their characters

}  // namespace

void Engine::module_width(Bytes c) {
  if (c[2] >= 1 && c[2] <= 6) barcode_module_ = c[2];
}
void Engine::barcode_height(Bytes c) {
  if (c[2] >= 1) barcode_height_ = c[2];
}
void Engine::hri_position(Bytes c) {
  if (choice(c[2]) >= 0) hri_position_ = choice(c[2]);
}
void Engine::hri_font(Bytes c) {
  if (choice(c[2]) >= 0 && choice(c[2]) <= 1) hri_font_b_ = choice(c[2]) == 1;
}

void Engine::barcode(Bytes c) {
  const unsigned m = c[2];
  // Form A ends in NUL, form B counts its data in the fourth byte.
  const Bytes data = m <= 6 ? c.subspan(3, c.size() - 4) : c.size() > 4 ? c.subspan(4) : Bytes();
  std::string problem;
  std::optional<Barcode> code = encode_barcode(m, data, barcode_module_, barcode_height_, &problem);
  if (!code) {
    log("barcode type " + std::to_string(m) + " not printed: " + problem);
    return;
  }
  if (code->bars.width > area_width()) {
    log("barcode wider than the print area, not printed");
    return;
  }
  Bitmap hri;
  if (hri_position_ != 0) {
    const CellSize cell = hri_font_b_ ? kFontB : kFontA;
    hri = Bitmap(static_cast<int>(code->hri.size()) * cell.width, cell.height);
    int x = 0;
    for (unsigned char ch : code->hri) {
      draw(hri, fonts_.latin(ch, hri_font_b_, false), x, 0);
      x += cell.width;
    }
  }
  const bool above = hri_position_ == 1 || hri_position_ == 3;
  const bool below = hri_position_ == 2 || hri_position_ == 3;
  const int text_rows = hri.height + kHriGap;
  Bitmap block(std::max(code->bars.width, hri.width),
               code->bars.height + (above ? text_rows : 0) + (below ? text_rows : 0));
  const int bars_x = (block.width - code->bars.width) / 2;
  const int text_x = (block.width - hri.width) / 2;
  const int bars_y = above ? text_rows : 0;
  draw(block, code->bars, bars_x, bars_y);
  if (above) draw(block, hri, text_x, 0);
  if (below) draw(block, hri, text_x, bars_y + code->bars.height + kHriGap);
  place_block(block);
}

void Engine::symbol(Bytes c) {
  const unsigned kind = byte_at(c, 5);
  const unsigned function = byte_at(c, 6);
  const unsigned n = byte_at(c, 7);
  const Bytes data = c.size() > 8 ? c.subspan(8) : Bytes();
  if (kind == 0x31) {
    switch (function) {
      case 0x43:
        if (n >= 1 && n <= 16) qr_module_ = static_cast<int>(n);
        break;
      case 0x45:
        if (n >= 0x30 && n <= 0x33) qr_level_ = static_cast<int>(n - 0x30);
        break;
      case 0x50:
        qr_data_.assign(data.begin(), data.end());
        break;
      case 0x51:
        print_qr();
        break;
      case 0x52: {
        std::string problem;
        std::optional<Bitmap> qr = encode_qr(qr_data_, qr_level_, qr_module_, &problem);
        // "76", width, US, height, US, "1" (printable), NUL.
        std::string text = "76" + std::to_string(qr ? qr->width : 0) + "\x1f" +
                           std::to_string(qr ? qr->height : 0) + "\x1f" + "1";
        std::vector<uint8_t> answer(text.begin(), text.end());
        answer.push_back(0);
        send(std::move(answer));
        break;
      }
      default:
        break;
    }
  } else if (kind == 0x30) {
    switch (function) {
      case 0x41:
        if (n <= 30) pdf417_.columns = static_cast<int>(n);
        break;
      case 0x42:
        if (n == 0 || (n >= 3 && n <= 90)) pdf417_.rows = static_cast<int>(n);
        break;
      case 0x43:
        if (n >= 2 && n <= 8) pdf417_.module_width = static_cast<int>(n);
        break;
      case 0x44:
        if (n >= 2 && n <= 8) pdf417_.row_height = static_cast<int>(n);
        break;
      case 0x45: {
        const unsigned level = byte_at(c, 8);
        // A ratio leaves the level to the encoder.
        pdf417_.level =
            n == 0x30 && level >= 0x30 && level <= 0x38 ? static_cast<int>(level - 0x30) : -1;
        break;
      }
      case 0x46:
        pdf417_.truncated = n == 1;
        break;
      case 0x50:
        pdf417_data_.assign(data.begin(), data.end());
        break;
      case 0x51:
        print_pdf417();
        break;
      default:
        break;
    }
  }
}

void Engine::print_qr() {
  std::string problem;
  std::optional<Bitmap> qr = encode_qr(qr_data_, qr_level_, qr_module_, &problem);
  if (!qr) {
    log("QR Code not printed: " + problem);
    return;
  }
  place_block(*qr);
}

void Engine::print_pdf417() {
  std::string problem;
  std::optional<Bitmap> symbol = encode_pdf417(pdf417_data_, pdf417_, &problem);
  if (!symbol) {
    log("PDF417 not printed: " + problem);
    return;
  }
  place_block(*symbol);
}

}  // namespace vorn::vprinter
