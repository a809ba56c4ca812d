// GBK, the double-byte text of Chinese character mode, to Unicode.
#pragma once

#include <cstdint>

namespace vorn::vprinter {

// The character of the GBK pair `code` (lead byte in the high half), or 0
// when it names none.
char32_t gbk_character(uint16_t code);

}  // namespace vorn::vprinter
