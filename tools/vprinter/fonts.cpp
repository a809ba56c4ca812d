#include "fonts.h"

#include <ft2build.h>

#include "gbk.h"
#include FT_FREETYPE_H

namespace vorn::vprinter {
namespace {

// Debian's fonts-terminus-otb (bitmap strikes of 12 x 24 and 8 x 16 dots)
// and fonts-wqy-zenhei's outlines for Chinese characters.
constexpr const char* kLatinRegular = "/usr/share/fonts/opentype/terminus/terminus-normal.otb";
constexpr const char* kLatinBold = "/usr/share/fonts/opentype/terminus/terminus-bold.otb";
constexpr const char* kChinese = "/usr/share/fonts/truetype/wqy/wqy-zenhei.ttc";

constexpr int kStrikeA = 24;  // pixel size of the 12 x 24 strike
constexpr int kStrikeB = 16;  // 8 x 16, centred in the 9 x 17 cell

enum Kind : uint32_t { kLatinA, kLatinB, kLatinBoldA, kLatinBoldB, kGbA, kGbB };

uint32_t key(Kind kind, uint32_t code) {
  return kind << 24 | code;
}

// Sets the face to the strike of `pixels`, or scales its outlines to it.
void select_pixels(FT_Face face, int pixels) {
  for (int i = 0; i < face->num_fixed_sizes; ++i) {
    if (face->available_sizes[i].height == pixels) {
      FT_Select_Size(face, i);
      return;
    }
  }
  FT_Set_Pixel_Sizes(face, 0, pixels);
}

// The glyph of `index` in a cell, its baseline at the face's ascender,
// moved by (dx, dy); dots outside the cell are dropped.
Bitmap render(FT_Face face, FT_UInt index, CellSize cell, int dx, int dy) {
  Bitmap out(cell.width, cell.height);
  if (index == 0 || FT_Load_Glyph(face, index, FT_LOAD_RENDER | FT_LOAD_TARGET_MONO) != 0) {
    return out;
  }
  const FT_Bitmap& b = face->glyph->bitmap;
  const int ascender = static_cast<int>(face->size->metrics.ascender >> 6);
  const int left = face->glyph->bitmap_left + dx;
  const int top = ascender - face->glyph->bitmap_top + dy;
  for (unsigned row = 0; row < b.rows; ++row) {
    const unsigned char* line = b.buffer + static_cast<long>(row) * b.pitch;
    for (unsigned col = 0; col < b.width; ++col) {
      const bool set = b.pixel_mode == FT_PIXEL_MODE_MONO ? (line[col / 8] >> (7 - col % 8) & 1)
                                                          : line[col] >= 128;
      const int x = left + static_cast<int>(col);
      const int y = top + static_cast<int>(row);
      if (set && x >= 0 && x < cell.width && y >= 0 && y < cell.height) out.at(x, y) = 1;
    }
  }
  return out;
}

}  // namespace

struct Fonts::Faces {
  FT_Library library = nullptr;
  FT_Face regular = nullptr;
  FT_Face bold = nullptr;
  FT_Face chinese = nullptr;
};

Fonts::Fonts() : faces_(std::make_unique<Faces>()) {
  if (FT_Init_FreeType(&faces_->library) != 0) {
    problems_ = "FreeType cannot start";
    return;
  }
  auto open = [&](const char* path, FT_Face* face) {
    if (FT_New_Face(faces_->library, path, 0, face) != 0) {
      *face = nullptr;
      problems_ += problems_.empty() ? "" : ", ";
      problems_ += path;
    }
  };
  open(kLatinRegular, &faces_->regular);
  open(kLatinBold, &faces_->bold);
  open(kChinese, &faces_->chinese);
  if (!problems_.empty()) problems_ = "fonts missing: " + problems_;
}

Fonts::~Fonts() {
  for (FT_Face face : {faces_->regular, faces_->bold, faces_->chinese}) {
    if (face != nullptr) FT_Done_Face(face);
  }
  if (faces_->library != nullptr) FT_Done_FreeType(faces_->library);
}

const Bitmap& Fonts::latin(char16_t character, bool font_b, bool bold) {
  const Kind kind = bold ? (font_b ? kLatinBoldB : kLatinBoldA) : (font_b ? kLatinB : kLatinA);
  auto [entry, added] = cache_.try_emplace(key(kind, character));
  if (!added) return entry->second;
  const CellSize cell = font_b ? kFontB : kFontA;
  FT_Face face = bold && faces_->bold != nullptr ? faces_->bold : faces_->regular;
  if (face == nullptr) {
    entry->second = Bitmap(cell.width, cell.height);
    return entry->second;
  }
  select_pixels(face, font_b ? kStrikeB : kStrikeA);
  const int inset = font_b ? 1 : 0;
  entry->second = render(face, FT_Get_Char_Index(face, character), cell, inset, inset);
  return entry->second;
}

const Bitmap& Fonts::chinese(uint16_t code, bool font_b) {
  auto [entry, added] = cache_.try_emplace(key(font_b ? kGbB : kGbA, code));
  if (!added) return entry->second;
  const CellSize cell = font_b ? kChineseB : kChineseA;
  FT_Face face = faces_->chinese;
  if (face == nullptr) {
    entry->second = Bitmap(cell.width, cell.height);
    return entry->second;
  }
  select_pixels(face, font_b ? kChineseB.height - 1 : kChineseA.height - 2);
  entry->second = render(face, FT_Get_Char_Index(face, gbk_character(code)), cell, 1, 0);
  return entry->second;
}

}  // namespace vorn::vprinter
