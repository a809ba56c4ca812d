#include "platform/posix/utf8_posix.h"

#include <cstdint>

namespace vorn::platform {
namespace {

bool is_high_surrogate(char32_t unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}
bool is_low_surrogate(char32_t unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

void append_utf8(char32_t c, std::string* out) {
  if (c < 0x80) {
    out->push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out->push_back(static_cast<char>(0xC0 | (c >> 6)));
    out->push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out->push_back(static_cast<char>(0xE0 | (c >> 12)));
    out->push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out->push_back(static_cast<char>(0xF0 | (c >> 18)));
    out->push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

}  // namespace

bool utf16_to_utf8(const char16_t* text, std::string* out) {
  out->clear();
  for (size_t i = 0; text[i] != u'\0'; ++i) {
    char32_t c = text[i];
    if (is_high_surrogate(c)) {
      const char32_t next = text[i + 1];
      if (!is_low_surrogate(next)) return false;
      c = 0x10000 + ((c - 0xD800) << 10) + (next - 0xDC00);
      ++i;
    } else if (is_low_surrogate(c)) {
      return false;
    }
    append_utf8(c, out);
  }
  return true;
}

}  // namespace vorn::platform
