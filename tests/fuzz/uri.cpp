// Port URIs and comma forms: whatever parses formats back to a text that
// parses to the same record and formats to the same text again.
#include <vorn/vorn.h>

#include <cstring>
#include <string>

#include "fuzz_support.h"
#include "io/comma_form.h"

namespace {

bool same_text(const char* a, const char* b) {
  return std::strcmp(a ? a : "", b ? b : "") == 0;
}

void check_round_trip(const char* text) {
  vorn_uri record;
  if (vorn_io_uri_from_str(&record, text) != VORN_OK) return;
  char formatted[VORN_URI_MAX_TEXT + 1];
  FUZZ_CHECK(vorn_io_uri_to_str(&record, formatted, sizeof formatted) == VORN_OK);
  vorn_uri again;
  FUZZ_CHECK(vorn_io_uri_from_str(&again, formatted) == VORN_OK);
  FUZZ_CHECK(same_text(record.type, again.type));
  FUZZ_CHECK(same_text(record.name, again.name));
  FUZZ_CHECK(record.option_count == again.option_count);
  for (int32_t i = 0; i < record.option_count; ++i) {
    FUZZ_CHECK(same_text(record.options[i].key, again.options[i].key));
    FUZZ_CHECK(same_text(record.options[i].value, again.options[i].value));
    // The first option of a key is the one the lookup finds.
    const char* found = vorn_io_uri_get_option(&again, again.options[i].key);
    FUZZ_CHECK(found != nullptr);
  }
  char twice[VORN_URI_MAX_TEXT + 1];
  FUZZ_CHECK(vorn_io_uri_to_str(&again, twice, sizeof twice) == VORN_OK);
  FUZZ_CHECK(std::strcmp(formatted, twice) == 0);
  // A buffer one byte short gets nothing but a terminated prefix.
  const size_t length = std::strlen(formatted);
  std::string short_buffer(length, 'x');
  FUZZ_CHECK(vorn_io_uri_to_str(&record, short_buffer.data(), static_cast<uint32_t>(length)) ==
             VORN_ERR_BUFFER_TOO_SMALL);
  FUZZ_CHECK(std::memchr(short_buffer.data(), 0, length) != nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  check_round_trip(text.c_str());

  // The port creator hands the comma form a 256-byte area and 255 as size.
  char converted[VORN_URI_MAX_TEXT + 1];
  std::memset(converted, 0x55, sizeof converted);
  if (vorn::io::comma_form_to_uri(text.c_str(), converted, VORN_URI_MAX_TEXT) == VORN_OK) {
    FUZZ_CHECK(std::memchr(converted, 0, VORN_URI_MAX_TEXT) != nullptr);
    check_round_trip(converted);
  }

  // The builder from pieces: the zero bytes of the input separate type, name,
  // keys and values. What it writes stays inside the buffer and terminated.
  std::string pieces[2 + 2 * VORN_URI_MAX_OPTIONS];
  size_t count = 0;
  for (char ch : text) {
    if (ch == '\0') {
      if (++count == std::size(pieces)) break;
    } else {
      pieces[count] += ch;
    }
  }
  const char* keys[VORN_URI_MAX_OPTIONS];
  const char* values[VORN_URI_MAX_OPTIONS];
  for (int i = 0; i < VORN_URI_MAX_OPTIONS; ++i) {
    keys[i] = pieces[2 + 2 * i].c_str();
    values[i] = pieces[3 + 2 * i].empty() ? nullptr : pieces[3 + 2 * i].c_str();
  }
  const int32_t options = count > 2 ? static_cast<int32_t>((count - 1) / 2) : 0;
  const uint32_t room = size % (VORN_URI_MAX_TEXT + 1);
  std::string buffer(room, 'x');
  const int32_t result =
      vorn_io_uri_get_str(room ? buffer.data() : nullptr, room, pieces[0].c_str(),
                          pieces[1].c_str(), keys, values, options);
  if (room > 0) FUZZ_CHECK(std::memchr(buffer.data(), 0, room) != nullptr);
  if (result == VORN_OK) check_round_trip(buffer.c_str());
  return 0;
}
