// The character code tables of ESC t: which character a byte of text is.
#pragma once

#include <cstdint>

namespace vorn::vprinter {

// The character for `byte` in table `table` (ESC t n); tables the printer
// does not have read as table 0 (PC437).
char16_t code_page_character(uint8_t table, uint8_t byte);
bool code_page_known(uint8_t table);

}  // namespace vorn::vprinter
