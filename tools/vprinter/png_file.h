// Pictures saved as PNG files of one bit per dot, black where a dot is
// printed, so a picture is as large as the paper's dots.
#pragma once

#include <string>

#include "bitmap.h"

namespace vorn::vprinter {

// False when the file cannot be written; `problem` then says why.
bool write_png(const std::string& path, const Bitmap& picture, std::string* problem);

}  // namespace vorn::vprinter
