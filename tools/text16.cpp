#include "text16.h"

namespace vorn::cli {

WideString to_utf16(std::string_view utf8) {
  WideString out;
  size_t i = 0;
  while (i < utf8.size()) {
    const auto lead = static_cast<unsigned char>(utf8[i]);
    int extra = lead < 0x80           ? 0
                : (lead >> 5) == 0x6  ? 1
                : (lead >> 4) == 0xE  ? 2
                : (lead >> 3) == 0x1E ? 3
                                      : -1;
    char32_t code = extra == 0   ? lead
                    : extra == 1 ? lead & 0x1F
                    : extra == 2 ? lead & 0x0F
                                 : lead & 0x07;
    bool valid = extra >= 0;
    for (int k = 1; valid && k <= extra; ++k) {
      if (i + k >= utf8.size()) {
        valid = false;
        break;
      }
      const auto next = static_cast<unsigned char>(utf8[i + k]);
      valid = (next & 0xC0) == 0x80;
      code = (code << 6) | (next & 0x3F);
    }
    if (!valid) {
      out.push_back(static_cast<VORN_WCHAR>(0xFFFD));
      ++i;
      continue;
    }
    i += extra + 1;
    if (code >= 0x10000) {
      code -= 0x10000;
      out.push_back(static_cast<VORN_WCHAR>(0xD800 + (code >> 10)));
      out.push_back(static_cast<VORN_WCHAR>(0xDC00 + (code & 0x3FF)));
    } else {
      out.push_back(static_cast<VORN_WCHAR>(code));
    }
  }
  return out;
}

}  // namespace vorn::cli
