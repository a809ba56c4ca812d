// UTF-8 command-line text to the library's UTF-16 strings.
#pragma once

#include <vorn/vorn.h>

#include <string>
#include <string_view>

namespace vorn::cli {

using WideString = std::basic_string<VORN_WCHAR>;

// Invalid UTF-8 sequences become U+FFFD.
WideString to_utf16(std::string_view utf8);

}  // namespace vorn::cli
