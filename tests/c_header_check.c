/* Compiled as C99 with -pedantic: the public header must not need C++. */
#include <vorn/vorn.h>

int vorn_c_header_check(void) {
  vorn_uri record;
  VORN_WCHAR text[2] = {'A', 0};
  (void)text;
  record.option_count = 0;
  return record.option_count + VORN_OK;
}
