// The two exported functions that turn a result code into a readable text:
// the library's own table for zero and negative codes, the system's message
// table for positive ones (operating-system error numbers).
#include <vorn/vorn.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>

#include "platform/text.h"
#include "printer/messages.h"

namespace vorn::printer {
namespace {

// The wide path formats a table text through this many bytes; every table
// text fits with its terminator.
constexpr uint32_t kIntermediateBytes = 255;
// Room for a system text on the wide path. System texts are far shorter; a
// longer one would be refused as if the caller's region were too small.
constexpr size_t kSystemTextUnits = 1024;

// Zero asks for the user's default language. The library's own texts resolve
// it here; for system texts zero is passed on, and the system picks.
uint32_t choose_language(int32_t code, uint32_t language) {
  if (language != 0) return language;
  return code <= 0 ? platform::text().user_language() : 0;
}

// The wide region may begin at an odd byte offset into the caller's buffer,
// so wide text is built in an aligned local buffer and copied in bytewise.
void copy_units(char* region, const char16_t* units, size_t count) {
  std::memcpy(region, units, count * sizeof(char16_t));
}

int32_t format_system_wide(int32_t code, uint32_t language, char* region, uint32_t capacity) {
  char16_t text[kSystemTextUnits] = {};
  const size_t room = std::min<size_t>(capacity, std::size(text));
  const int32_t result = platform::text().system_message_wide(code, language, text, room);
  if (result != 0) return result;
  // The text with its terminator, which the system placed within `room`.
  const size_t length = std::find(text, text + room, u'\0') - text;
  copy_units(region, text, std::min(length + 1, room));
  return VORN_OK;
}

int32_t format_table_wide(int32_t code, uint32_t language, char* region, uint32_t capacity) {
  char narrow[kIntermediateBytes] = {};
  uint32_t length = 0;
  int32_t result = lookup_message(code, language, narrow, kIntermediateBytes, &length);
  if (result != VORN_OK) return result;

  const platform::TextOps& text = platform::text();
  size_t needed = 0;
  result = text.to_wide(narrow, length, nullptr, 0, &needed);
  if (result != 0) return result;
  if (needed > capacity) return VORN_ERR_BUFFER_TOO_SMALL;

  // No terminator is converted: the zeroed region ends the text when there
  // is room left, and a text that fills the region exactly goes without one.
  char16_t wide[kIntermediateBytes];
  size_t written = 0;
  result =
      text.to_wide(narrow, length, wide, std::min<size_t>(capacity, std::size(wide)), &written);
  if (result != 0) return result;
  copy_units(region, wide, written);
  return VORN_OK;
}

}  // namespace
}  // namespace vorn::printer

extern "C" {

VORN_API int32_t VORN_CALL vorn_io_format_error(int32_t code, char* buffer, uint32_t position,
                                                uint32_t size) {
  // A region that lies outside the caller's buffer is never written.
  if (buffer == nullptr || position > size) return VORN_ERR_PARAMETER;
  char* region = buffer + position;
  const uint32_t capacity = size - position;
  std::memset(region, 0, capacity);
  const uint32_t language = vorn::printer::choose_language(code, 0);
  if (code > 0) {
    return vorn::platform::text().system_message(code, language, region, capacity);
  }
  return vorn::printer::lookup_message(code, language, region, capacity, nullptr);
}

VORN_API int32_t VORN_CALL FormatError(int32_t code, int32_t language, VORN_WCHAR* buffer,
                                       uint32_t position, uint32_t size) {
  if (buffer == nullptr || position > size) return VORN_ERR_PARAMETER;
  // Counted in bytes like the narrow function; an odd byte left over is not
  // used.
  char* region = reinterpret_cast<char*>(buffer) + position;
  const uint32_t capacity = (size - position) / 2;
  std::memset(region, 0, static_cast<size_t>(capacity) * 2);
  const uint32_t chosen = vorn::printer::choose_language(code, static_cast<uint32_t>(language));
  if (code > 0) return vorn::printer::format_system_wide(code, chosen, region, capacity);
  return vorn::printer::format_table_wide(code, chosen, region, capacity);
}

}  // extern "C"
