#include "platform/posix/narrow_charset_posix.h"

#include <stdlib.h>

#include <cctype>
#include <cstring>
#include <initializer_list>
#include <string_view>

namespace vorn::platform {
namespace {

// The parts of a locale name, language[_territory][.charset][@modifier].
struct LocaleName {
  std::string_view language, territory, charset, modifier;
};

LocaleName split(std::string_view name) {
  LocaleName parts;
  if (const size_t at = name.find('@'); at != std::string_view::npos) {
    parts.modifier = name.substr(at + 1);
    name = name.substr(0, at);
  }
  if (const size_t dot = name.find('.'); dot != std::string_view::npos) {
    parts.charset = name.substr(dot + 1);
    name = name.substr(0, dot);
  }
  const size_t underscore = name.find('_');
  parts.language = name.substr(0, underscore);
  if (underscore != std::string_view::npos) parts.territory = name.substr(underscore + 1);
  return parts;
}

bool same_text(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) !=
        std::tolower(static_cast<unsigned char>(b[i]))) {
      return false;
    }
  }
  return true;
}

// True when `word` is one of the blank-separated words of `list`.
bool listed(std::string_view list, std::string_view word) {
  while (!list.empty()) {
    const size_t blank = list.find(' ');
    if (same_text(list.substr(0, blank), word)) return true;
    if (blank == std::string_view::npos) break;
    list = list.substr(blank + 1);
  }
  return false;
}

// The ANSI code pages of Windows by language; every language not listed here
// uses CP1252. Serbian is written in Cyrillic unless its locale says @latin.
struct LanguagePage {
  const char* languages;
  const char* charset;
};
constexpr LanguagePage kLanguagePages[] = {
    {"ja", "CP932"},
    {"ko", "CP949"},
    {"th", "CP874"},
    {"cs hu pl ro sk sl hr sq bs", "CP1250"},
    {"ru uk be bg mk sr kk ky tt mn", "CP1251"},
    {"el", "CP1253"},
    {"tr az", "CP1254"},
    {"he yi", "CP1255"},
    {"ar fa ur", "CP1256"},
    {"et lv lt", "CP1257"},
    {"vi", "CP1258"},
};

const char* windows_code_page(const LocaleName& locale) {
  if (same_text(locale.language, "zh")) {
    return listed("TW HK MO", locale.territory) ? "CP950" : "CP936";
  }
  if (same_text(locale.modifier, "cyrillic")) return "CP1251";
  if (same_text(locale.language, "sr") && same_text(locale.modifier, "latin")) return "CP1250";
  for (const LanguagePage& page : kLanguagePages) {
    if (listed(page.languages, locale.language)) return page.charset;
  }
  return "CP1252";
}

// The charset for a locale name; ASCII for C and POSIX without a charset.
std::string_view locale_charset(std::string_view name) {
  const LocaleName locale = split(name);
  const bool utf8 = same_text(locale.charset, "UTF-8") || same_text(locale.charset, "UTF8");
  if (!locale.charset.empty() && !utf8) return locale.charset;
  const bool plain = locale.language == "C" || locale.language == "POSIX";
  if (plain && locale.territory.empty()) return utf8 ? "CP1252" : "ASCII";
  return windows_code_page(locale);
}

}  // namespace

const char* locale_variable(std::initializer_list<const char*> names) {
  for (const char* name : names) {
    const char* value = getenv(name);
    if (value != nullptr && *value != '\0') return value;
  }
  return nullptr;
}

NarrowCharset narrow_charset() {
  NarrowCharset result{};
  std::string_view name = "ASCII";
  if (const char* outright = locale_variable({"VORN_CODEPAGE"})) {
    name = outright;
    result.named_outright = true;
  } else if (const char* locale = locale_variable({"LC_ALL", "LC_CTYPE", "LANG"})) {
    name = locale_charset(locale);
  }
  // A name too long to be real is left empty: not a charset iconv knows.
  if (name.size() < sizeof result.name) std::memcpy(result.name, name.data(), name.size());
  return result;
}

}  // namespace vorn::platform
