// The printer's character fonts, drawn from bitmap and outline fonts through
// FreeType: font A in a 12 x 24 cell, font B in 9 x 17, Chinese characters
// in 24 x 24 (17 x 17 with font B).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "bitmap.h"

namespace vorn::vprinter {

struct CellSize {
  int width;
  int height;
};

inline constexpr CellSize kFontA{12, 24};
inline constexpr CellSize kFontB{9, 17};
inline constexpr CellSize kChineseA{24, 24};
inline constexpr CellSize kChineseB{17, 17};

class Fonts {
 public:
  Fonts();
  ~Fonts();
  Fonts(const Fonts&) = delete;
  Fonts& operator=(const Fonts&) = delete;

  // The glyph of a character in its cell (blank when no font has it).
  const Bitmap& latin(char16_t character, bool font_b, bool bold);
  // A GBK character, lead byte in the high half of `code`.
  const Bitmap& chinese(uint16_t code, bool font_b);

  // The fonts that could not be loaded, empty when all were.
  const std::string& problems() const { return problems_; }

 private:
  struct Faces;
  std::unique_ptr<Faces> faces_;
  std::unordered_map<uint32_t, Bitmap> cache_;
  std::string problems_;
};

}  // namespace vorn::vprinter
