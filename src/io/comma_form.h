// The older comma-separated port descriptions ("COM1,9600", "NET,10.0.0.5",
// "USB,USB001", "LPT1", "FILE,out.prn") turned into port URI text.
#pragma once

#include <cstdint>

namespace vorn::io {

// Converts `text` into URI text in `out` (`size` bytes including the
// terminator; the port creator passes a 256-byte area with size 255).
// Returns 0, or -301 for anything that is not a usable comma form.
int32_t comma_form_to_uri(const char* text, char* out, uint32_t size);

}  // namespace vorn::io
