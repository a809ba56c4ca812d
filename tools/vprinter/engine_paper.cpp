// The paper and page mode: the receipt grows line by line until a cut ends
// its picture; a page is composed in its print area, in the direction ESC T
// gives, and printed as a picture of its own.
#include <algorithm>

#include "engine.h"

namespace vorn::vprinter {
namespace {

using cli::choice;
using cli::u16_at;

constexpr int kDefaultPageRows = 1662;

bool blank_row(const Bitmap& b, int y) {
  const uint8_t* row = &b.dots[static_cast<size_t>(y) * b.width];
  return std::all_of(row, row + b.width, [](uint8_t dot) { return dot == 0; });
}

}  // namespace

void Engine::draw_on_paper(const Bitmap& dots, int x, int advance) {
  const int height = std::max(dots.height, advance);
  if (paper_y_ + height > kMaxPictureRows) {
    log("picture reached " + std::to_string(kMaxPictureRows) + " rows; it goes on in the next");
    finish_picture("receipt");
  }
  const int bottom = std::min(paper_y_ + dots.height, kMaxPictureRows);
  if (bottom > paper_.height) {
    paper_.dots.resize(static_cast<size_t>(bottom) * paper_.width, 0);
    paper_.height = bottom;
  }
  draw(paper_, dots, x, paper_y_);
  paper_y_ = std::min(paper_y_ + advance, kMaxPictureRows);
  paper_used_ = true;
}

void Engine::finish_picture(const char* kind) {
  if (!paper_used_) return;
  const int rows = std::clamp(std::max(paper_y_, paper_.height), 1, kMaxPictureRows);
  paper_.dots.resize(static_cast<size_t>(rows) * paper_.width, 0);
  paper_.height = rows;
  if (output_.picture) output_.picture(paper_, kind);
  paper_ = Bitmap(options_.dots_per_line, 0);
  paper_y_ = 0;
  paper_used_ = false;
}

Bitmap& Engine::page_dots() {
  const bool turned = page_.direction % 2 != 0;
  const int width = turned ? page_.height : page_.width;
  const int height = turned ? page_.width : page_.height;
  if (page_.dots.width != width || page_.dots.height != height) page_.dots = Bitmap(width, height);
  return page_.dots;
}

void Engine::clear_page() {
  line_.clear();
  line_x_ = 0;
  page_.dots = Bitmap();
  page_.pos_y = 0;
}

void Engine::print_page() {
  print_line(false);
  if (page_.dots.empty()) {
    clear_page();
    return;
  }
  // ESC T's directions: 1 runs bottom to top, 3 top to bottom.
  static constexpr int kQuarterTurns[] = {0, 3, 2, 1};
  Bitmap turned = rotated(page_.dots, kQuarterTurns[page_.direction & 3]);
  int rows = turned.height;
  if (!page_.area_set) {
    while (rows > 1 && blank_row(turned, rows - 1)) --rows;
  }
  Bitmap picture(options_.dots_per_line, page_.y + rows);
  turned.dots.resize(static_cast<size_t>(rows) * turned.width);
  turned.height = rows;
  draw(picture, turned, page_.x, page_.y);
  finish_picture("receipt");
  if (output_.picture) output_.picture(picture, "page");
  clear_page();
}

void Engine::page_mode(Bytes) {
  if (!page_.active) print_line(false);
  page_.active = true;
  if (page_.width == 0) {
    page_.x = page_.y = 0;
    page_.width = options_.dots_per_line;
    page_.height = kDefaultPageRows;
    page_.area_set = false;
  }
  clear_page();
}

void Engine::standard_mode(Bytes) {
  if (!page_.active) return;
  clear_page();
  page_.active = false;
}

void Engine::print_area(Bytes c) {
  // The 0x1102 models' form has a 0x00 byte before the fields.
  const size_t at = c.size() == 11 ? 3 : 2;
  const int x = static_cast<int>(u16_at(c, at));
  const int per_dot = std::max(1, options_.vertical_units_per_dot);
  const int y = static_cast<int>(u16_at(c, at + 2)) / per_dot;
  const int width = std::min(static_cast<int>(u16_at(c, at + 4)), options_.dots_per_line - x);
  const int height = std::min(static_cast<int>(u16_at(c, at + 6)) / per_dot,
                              kMaxPageRows - std::min(y, kMaxPageRows));
  if (x >= options_.dots_per_line || width <= 0 || height <= 0) {
    log("print area outside the paper, ignored");
    return;
  }
  page_.x = x;
  page_.y = std::min(y, kMaxPageRows);
  page_.width = width;
  page_.height = height;
  page_.area_set = true;
  if (page_.active) clear_page();
}

void Engine::print_direction(Bytes c) {
  const int direction = choice(c[2]);
  if (direction < 0) return;
  if (page_.active && page_.direction != direction && !page_.dots.empty()) {
    log("print direction changed: the page drawn so far is dropped");
    clear_page();
  }
  page_.direction = direction;
}

void Engine::print_page_data(Bytes) {
  if (page_.active) print_page();
}

void Engine::vertical_position(Bytes c) {
  if (!page_.active) return;
  const int x = line_x_;
  print_line(false);
  line_x_ = x;
  page_.pos_y = static_cast<int>(u16_at(c, 2)) / std::max(1, options_.vertical_units_per_dot);
}

}  // namespace vorn::vprinter
