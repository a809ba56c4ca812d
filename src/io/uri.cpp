// Port URIs: "vorn:/dev/bus/" type "/" name ["?" key "=" value {"+" key "=" value}].
//
// A parsed record is cut in place: its private copy of the text has every
// separator overwritten by a zero byte, and the type, name, keys and values
// point into that copy. That keeps parsing free of allocation and lets a
// caller keep the record on its stack.
//
// Null arguments: these functions sit on the exported C surface, so a null
// record, text, buffer or piece array is answered with -1 (bad parameter)
// rather than a crash. Formatting treats a null type, name, key or value in a
// record as an empty text, so a cleared record still formats.
#include <vorn/vorn.h>

#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <string_view>

namespace {

constexpr std::string_view kPrefix = "vorn:/dev/bus/";

// Appends whole pieces to a caller's buffer. A piece that does not fit with
// its terminator is not written at all, so the buffer always ends at a piece
// boundary and stays terminated.
class PieceWriter {
 public:
  PieceWriter(char* buffer, uint32_t size) : buffer_(buffer), size_(size) {
    if (size_ > 0) buffer_[0] = '\0';
  }

  bool append(std::initializer_list<std::string_view> parts) {
    std::size_t piece_length = 0;
    for (std::string_view part : parts) piece_length += part.size();
    if (piece_length + 1 > size_ - length_) return false;
    for (std::string_view part : parts) {
      std::memcpy(buffer_ + length_, part.data(), part.size());
      length_ += part.size();
    }
    buffer_[length_] = '\0';
    return true;
  }

 private:
  char* buffer_;
  std::size_t size_;
  std::size_t length_ = 0;
};

// Length of `text`, looking at no more than `limit` + 1 bytes: whatever lies
// beyond that is never read, terminated or not.
std::size_t bounded_length(const char* text, std::size_t limit) {
  std::size_t length = 0;
  while (length <= limit && text[length] != '\0') ++length;
  return length;
}

std::string_view text_or_empty(const char* text) {
  return text ? std::string_view(text) : "";
}

bool valid_option_count(int32_t count) {
  return count >= 0 && count <= VORN_URI_MAX_OPTIONS;
}

// Finds `separator` at or after `cursor`, overwrites it with a terminator and
// returns the byte after it; null when there is none.
char* cut_at(char* cursor, char separator) {
  char* found = std::strchr(cursor, separator);
  if (!found) return nullptr;
  *found = '\0';
  return found + 1;
}

}  // namespace

extern "C" {

VORN_API int32_t VORN_CALL vorn_io_uri_from_str(vorn_uri* record, const char* text) {
  if (!record) return VORN_ERR_PARAMETER;
  std::memset(record, 0, sizeof *record);
  if (!text) return VORN_ERR_PARAMETER;

  const std::size_t length = bounded_length(text, VORN_URI_MAX_TEXT);
  if (length > VORN_URI_MAX_TEXT) return VORN_ERR_IO_INVALID_SETTING;
  std::memcpy(record->text, text, length + 1);
  if (length == 0) return VORN_ERR_PARAMETER;

  char* cursor = record->text;
  if (std::strncmp(cursor, kPrefix.data(), kPrefix.size()) != 0) return VORN_ERR_PARAMETER;
  cursor += kPrefix.size();
  if (*cursor == '\0') return VORN_ERR_PARAMETER;

  char* after_type = cut_at(cursor, '/');
  if (!after_type) return VORN_ERR_PARAMETER;
  record->type = cursor;
  cursor = after_type;
  if (*cursor == '\0') return VORN_ERR_PARAMETER;

  char* after_name = cut_at(cursor, '?');
  record->name = cursor;
  if (!after_name) return VORN_OK;
  cursor = after_name;
  if (*cursor == '\0') return VORN_ERR_PARAMETER;

  for (;;) {
    // A trailing word without "=" names no option; it is dropped. Dropping it
    // must leave a text that parses again: with an empty name and no option
    // stored, the text would end right after the type's "/".
    char* equals = std::strchr(cursor, '=');
    if (!equals) {
      const bool nothing_left = *record->name == '\0' && record->option_count == 0;
      return nothing_left ? VORN_ERR_PARAMETER : VORN_OK;
    }
    if (record->option_count == VORN_URI_MAX_OPTIONS) return VORN_ERR_PARAMETER;
    *equals = '\0';
    vorn_uri_option& option = record->options[record->option_count];
    option.key = cursor;
    cursor = equals + 1;
    // An empty value is refused wherever it stands: written back as the last
    // option, it would end the text in "=".
    if (*cursor == '\0' || *cursor == '+') return VORN_ERR_PARAMETER;

    char* after_value = cut_at(cursor, '+');
    option.value = cursor;
    record->option_count++;
    if (!after_value) return VORN_OK;
    cursor = after_value;
    if (*cursor == '\0') return VORN_ERR_PARAMETER;
  }
}

VORN_API int32_t VORN_CALL vorn_io_uri_to_str(const vorn_uri* record, char* buffer, uint32_t size) {
  if (!record || !valid_option_count(record->option_count)) return VORN_ERR_PARAMETER;
  if (!buffer) return size == 0 ? VORN_ERR_BUFFER_TOO_SMALL : VORN_ERR_PARAMETER;

  PieceWriter writer(buffer, size);
  if (!writer.append({kPrefix, text_or_empty(record->type), "/", text_or_empty(record->name)})) {
    return VORN_ERR_BUFFER_TOO_SMALL;
  }
  for (int32_t i = 0; i < record->option_count; ++i) {
    const vorn_uri_option& option = record->options[i];
    if (!writer.append(
            {i == 0 ? "?" : "+", text_or_empty(option.key), "=", text_or_empty(option.value)})) {
      return VORN_ERR_BUFFER_TOO_SMALL;
    }
  }
  return VORN_OK;
}

VORN_API int32_t VORN_CALL vorn_io_uri_get_str(char* buffer, uint32_t size, const char* type,
                                               const char* name, const char* const* keys,
                                               const char* const* values, int32_t count) {
  if (!type || count < 0) return VORN_ERR_PARAMETER;
  if (count > 0 && (!keys || !values)) return VORN_ERR_PARAMETER;
  for (int32_t i = 0; i < count; ++i) {
    if (values[i] && !keys[i]) return VORN_ERR_PARAMETER;
  }
  if (!buffer) return size == 0 ? VORN_ERR_BUFFER_TOO_SMALL : VORN_ERR_PARAMETER;

  PieceWriter writer(buffer, size);
  if (!writer.append({kPrefix, type, "/", name ? name : "DEVICE"})) {
    return VORN_ERR_BUFFER_TOO_SMALL;
  }
  bool first_option = true;
  for (int32_t i = 0; i < count; ++i) {
    if (!values[i]) continue;  // a missing value means "leave this option out"
    if (!writer.append({first_option ? "?" : "+", keys[i], "=", values[i]})) {
      return VORN_ERR_BUFFER_TOO_SMALL;
    }
    first_option = false;
  }
  return VORN_OK;
}

VORN_API const char* VORN_CALL vorn_io_uri_get_option(const vorn_uri* record, const char* key) {
  if (!record || !key || !valid_option_count(record->option_count)) return nullptr;
  for (int32_t i = 0; i < record->option_count; ++i) {
    const vorn_uri_option& option = record->options[i];
    if (option.key && std::strcmp(option.key, key) == 0) return option.value;
  }
  return nullptr;
}

VORN_API void VORN_CALL vorn_io_uri_clear(vorn_uri* record) {
  if (record) std::memset(record, 0, sizeof *record);
}

}  // extern "C"
