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
