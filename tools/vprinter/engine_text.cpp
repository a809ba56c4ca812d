// Characters and lines: each character becomes a cell of dots with the print
// modes in force; a line is drawn when it ends, its items sharing one bottom
// edge, justified within the print area.
#include <algorithm>

#include "engine.h"

namespace vorn::vprinter {

int Engine::area_width() const {
  if (page_.active) return page_.direction % 2 == 0 ? page_.width : page_.height;
  const int room = options_.dots_per_line - left_margin_;
  return area_width_ > 0 ? std::min(area_width_, room) : room;
}

void Engine::character(const Bitmap& glyph, bool wide_glyph) {
  const int spacing = wide_glyph ? 0 : mode_.spacing;
  Bitmap cell(glyph.width + spacing, glyph.height);
  draw(cell, glyph, 0, 0);
  if (mode_.double_strike) draw(cell, glyph, 1, 0);
  for (int row = cell.height - mode_.underline; row < cell.height; ++row) {
    std::fill_n(&cell.at(0, row), cell.width, 1);
  }
  if (mode_.reverse) {
    for (uint8_t& dot : cell.dots) dot ^= 1;
  }
  Bitmap dots = scaled(cell, mode_.width, mode_.height);
  if (line_x_ + dots.width > area_width()) {
    print_line(true);
    if (dots.width > area_width()) return;
  }
  const int x = line_x_;
  line_x_ += dots.width;
  line_.push_back({std::move(dots), x});
}

void Engine::print_line(bool feed) {
  if (line_.empty()) {
    line_x_ = 0;
    if (feed) feed_dots(line_spacing_);
    return;
  }
  int tallest = 0;
  int right = 0;
  for (const LineItem& item : line_) {
    tallest = std::max(tallest, item.dots.height);
    right = std::max(right, item.x + item.dots.width);
  }
  const int advance = feed ? std::max(tallest, line_spacing_) : tallest;
  if (page_.active) {
    Bitmap& page = page_dots();
    for (const LineItem& item : line_) {
      draw(page, item.dots, item.x, page_.pos_y + tallest - item.dots.height);
    }
    page_.pos_y += advance;
  } else {
    Bitmap line(std::max(right, 1), tallest);
    for (const LineItem& item : line_) draw(line, item.dots, item.x, tallest - item.dots.height);
    const int free = std::max(0, area_width() - right);
    const int shift = justification_ == 1 ? free / 2 : justification_ == 2 ? free : 0;
    draw_on_paper(line, left_margin_ + shift, advance);
  }
  line_.clear();
  line_x_ = 0;
}

void Engine::feed_dots(int dots) {
  if (page_.active) {
    page_.pos_y += dots;
    return;
  }
  paper_y_ += dots;
  paper_used_ = paper_used_ || dots > 0;
}

// Images, barcodes and symbols: in standard mode each is a block of its own
// under the line before it, justified; in page mode it goes where the
// position points and the position moves past it.
void Engine::place_block(const Bitmap& block) {
  if (page_.active) {
    draw(page_dots(), block, line_x_, page_.pos_y);
    line_x_ += block.width;
    return;
  }
  print_line(false);
  const int free = std::max(0, area_width() - block.width);
  const int shift = justification_ == 1 ? free / 2 : justification_ == 2 ? free : 0;
  draw_on_paper(block, left_margin_ + shift, block.height);
}

}  // namespace vorn::vprinter
