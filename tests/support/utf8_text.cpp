#include "support/utf8_text.h"

#include <cstring>

namespace vorn::test {
namespace {

// UTF-16 to UTF-8; an unpaired surrogate becomes '?'. Sizing and room as
// the platform's conversion: `out` null measures, too little room fails.
int32_t to_utf8(const char16_t* text, size_t units, char* out, size_t size, size_t* written) {
  *written = 0;
  if (units == 0) return platform::native_text().invalid_parameter;
  char bytes[4];
  size_t total = 0;
  for (size_t i = 0; i < units; ++i) {
    uint32_t c = text[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < units && text[i + 1] >= 0xDC00 &&
        text[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      c = '?';
    }
    size_t n = 0;
    if (c < 0x80) {
      bytes[n++] = static_cast<char>(c);
    } else if (c < 0x800) {
      bytes[n++] = static_cast<char>(0xC0 | (c >> 6));
      bytes[n++] = static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      bytes[n++] = static_cast<char>(0xE0 | (c >> 12));
      bytes[n++] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      bytes[n++] = static_cast<char>(0x80 | (c & 0x3F));
    } else {
      bytes[n++] = static_cast<char>(0xF0 | (c >> 18));
      bytes[n++] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      bytes[n++] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      bytes[n++] = static_cast<char>(0x80 | (c & 0x3F));
    }
    if (out != nullptr) {
      if (total + n > size) return 7;  // E2BIG: the platform's own number does not matter here
      std::memcpy(out + total, bytes, n);
    }
    total += n;
  }
  *written = total;
  return 0;
}

platform::TextOps utf8_ops;

}  // namespace

Utf8NarrowText::Utf8NarrowText() {
  utf8_ops = platform::native_text();
  utf8_ops.to_narrow = to_utf8;
  previous_ = platform::install_text(&utf8_ops);
}

Utf8NarrowText::~Utf8NarrowText() {
  platform::install_text(previous_);
}

}  // namespace vorn::test
