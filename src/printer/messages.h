// The library's own message texts for zero and negative result codes.
#pragma once

#include <cstdint>

namespace vorn::printer {

// The primary language value that selects the Chinese texts.
inline constexpr uint32_t kLanguageChinese = 4;

// Writes the text of a zero or negative `code` with its terminating zero into
// `out` (`capacity` bytes): the Chinese text (code page 936 bytes) when
// `language` is exactly 4, else the English one; a code without a row of its
// own gets the unknown-error text. Returns 0 and the text's length without
// terminator in `*length`, or -2 when text and terminator do not fit (then
// nothing is written).
int32_t lookup_message(int32_t code, uint32_t language, char* out, uint32_t capacity,
                       uint32_t* length);

}  // namespace vorn::printer
