// The C library's converter knows GBK; it is asked once per character the
// font cache has not seen.
#include "gbk.h"

#include <iconv.h>

namespace vorn::vprinter {

char32_t gbk_character(uint16_t code) {
  iconv_t converter = iconv_open("UTF-32LE", "GBK");
  if (converter == reinterpret_cast<iconv_t>(-1)) return 0;
  char in[2] = {static_cast<char>(code >> 8), static_cast<char>(code & 0xFF)};
  unsigned char out[4] = {};
  char* in_at = in;
  char* out_at = reinterpret_cast<char*>(out);
  size_t in_left = sizeof in;
  size_t out_left = sizeof out;
  const size_t done = iconv(converter, &in_at, &in_left, &out_at, &out_left);
  iconv_close(converter);
  if (done == static_cast<size_t>(-1) || out_left != 0) return 0;
  return out[0] | out[1] << 8 | out[2] << 16 | static_cast<char32_t>(out[3]) << 24;
}

}  // namespace vorn::vprinter
