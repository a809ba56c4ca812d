// UTF-16 to UTF-8 for the names POSIX calls take (file paths): Linux file
// names are bytes, and UTF-8 is what every other program uses for them.
#pragma once

#include <string>

namespace vorn::platform {

// Converts zero-terminated UTF-16 text to UTF-8 in `out`. False when the text
// holds an unpaired surrogate, which no UTF-8 name can stand for.
bool utf16_to_utf8(const char16_t* text, std::string* out);

}  // namespace vorn::platform
