// Text services on Windows: the system's ANSI code page and message table.
#include <windows.h>

#include <climits>

#include "platform/text.h"
#include "platform/win32/win32_error.h"

namespace vorn::platform {
namespace {

static_assert(sizeof(wchar_t) == sizeof(char16_t), "Windows wide text is UTF-16");

const wchar_t* as_wide(const char16_t* text) {
  return reinterpret_cast<const wchar_t*>(text);
}

int clamp_int(size_t value) {
  return value > static_cast<size_t>(INT_MAX) ? INT_MAX : static_cast<int>(value);
}

// FormatMessage writes at most 64 KB.
DWORD clamp_message_room(size_t units, size_t unit_size) {
  const size_t most = 0xFFFFu / unit_size;
  return static_cast<DWORD>(units > most ? most : units);
}

int32_t to_narrow(const char16_t* text, size_t units, char* out, size_t size, size_t* written) {
  *written = 0;
  // The system refuses an empty text as an invalid parameter; so does this.
  if (units == 0 || units > static_cast<size_t>(INT_MAX)) return ERROR_INVALID_PARAMETER;
  const int n = WideCharToMultiByte(CP_ACP, 0, as_wide(text), static_cast<int>(units), out,
                                    out == nullptr ? 0 : clamp_int(size), nullptr, nullptr);
  if (n <= 0) return last_error_or(ERROR_INVALID_PARAMETER);
  *written = static_cast<size_t>(n);
  return 0;
}

int32_t to_wide(const char* text, size_t bytes, char16_t* out, size_t units, size_t* written) {
  *written = 0;
  if (bytes == 0 || bytes > static_cast<size_t>(INT_MAX)) return ERROR_INVALID_PARAMETER;
  const int n =
      MultiByteToWideChar(CP_ACP, 0, text, static_cast<int>(bytes), reinterpret_cast<wchar_t*>(out),
                          out == nullptr ? 0 : clamp_int(units));
  if (n <= 0) return last_error_or(ERROR_INVALID_PARAMETER);
  *written = static_cast<size_t>(n);
  return 0;
}

// The given primary language with its default sublanguage; 0 (no language
// given) becomes 0x400, the user's default.
DWORD language_id(uint32_t language) {
  return (language & 0xFFFFu) | 0x400u;
}

constexpr DWORD kFromSystem = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;

int32_t system_message(int32_t code, uint32_t language, char* out, size_t size) {
  SetLastError(0);
  const DWORD n = FormatMessageA(kFromSystem, nullptr, static_cast<DWORD>(code),
                                 language_id(language), out, clamp_message_room(size, 1), nullptr);
  return n > 0 ? 0 : last_error_or(ERROR_MR_MID_NOT_FOUND);
}

int32_t system_message_wide(int32_t code, uint32_t language, char16_t* out, size_t units) {
  SetLastError(0);
  const DWORD n =
      FormatMessageW(kFromSystem, nullptr, static_cast<DWORD>(code), language_id(language),
                     reinterpret_cast<wchar_t*>(out), clamp_message_room(units, 2), nullptr);
  return n > 0 ? 0 : last_error_or(ERROR_MR_MID_NOT_FOUND);
}

uint32_t user_language() {
  return PRIMARYLANGID(GetUserDefaultLangID());
}

constexpr TextOps kWin32Text{
    .to_narrow = to_narrow,
    .to_wide = to_wide,
    .system_message = system_message,
    .system_message_wide = system_message_wide,
    .user_language = user_language,
    .invalid_parameter = ERROR_INVALID_PARAMETER,
};

}  // namespace

const TextOps& native_text() {
  return kWin32Text;
}

}  // namespace vorn::platform
