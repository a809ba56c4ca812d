// Wide text of the public API's character type. VORN_WCHAR is wchar_t on
// Windows and char16_t elsewhere, and a string literal has to match it
// exactly: tests write VW("text") where the API takes VORN_WCHAR text.
#pragma once

#include <vorn/vorn.h>

#include <string>

#if defined(_WIN32)
#define VW(literal) L##literal
#else
#define VW(literal) u##literal
#endif

using WideString = std::basic_string<VORN_WCHAR>;

// The same UTF-16 units as the platform layer sees them (char16_t), and
// back: both types are 16 bits wide wherever the library runs.
inline const VORN_WCHAR* as_api_text(const char16_t* units) {
  static_assert(sizeof(VORN_WCHAR) == sizeof(char16_t));
  return reinterpret_cast<const VORN_WCHAR*>(units);
}
