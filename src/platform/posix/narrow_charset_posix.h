// Which charset narrow text is in. Linux locales are nearly always UTF-8,
// which no receipt printer prints, so the charset is the code page a Windows
// system with the same locale would use: the same call sends the same bytes
// on both systems.
#pragma once

#include <initializer_list>

namespace vorn::platform {

struct NarrowCharset {
  // A name iconv may know, zero-terminated.
  char name[64];
  // Named by the application itself (VORN_CODEPAGE): a name iconv does not
  // know is then an error, not a reason to fall back to ASCII.
  bool named_outright;
};

// Reads the environment at each call:
// - VORN_CODEPAGE, when set and not empty, names the charset outright;
// - else the locale (LC_ALL, else LC_CTYPE, else LANG): a charset after the
//   dot other than UTF-8 is taken as named ("zh_CN.GBK" gives GBK);
// - a UTF-8 locale, or one without a charset, gives the Windows ANSI code page
//   of its language and territory ("zh_TW.UTF-8" gives CP950, "C.UTF-8"
//   CP1252);
// - "C", "POSIX" or no locale at all give ASCII.
// Never calls setlocale and needs no locale installed.
NarrowCharset narrow_charset();

// The first of `names` that is set to something; POSIX treats a variable set
// to the empty string as unset. Null when none is.
const char* locale_variable(std::initializer_list<const char*> names);

}  // namespace vorn::platform
