// The older comma-separated port descriptions, turned into port URI text so
// that the rest of the port layer only ever sees URIs.
#include "io/comma_form.h"

#include <vorn/vorn.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace vorn::io {
namespace {

constexpr std::size_t kMaxFields = 10;
constexpr std::size_t kMinFirstFieldLength = 3;

struct Fields {
  // A private, always terminated copy of the text; the fields point into it.
  std::array<char, VORN_URI_MAX_TEXT + 1> text{};
  std::array<char*, kMaxFields> field{};
  std::size_t count = 0;
};

void to_upper_ascii(char* text) {
  for (; *text; ++text) {
    if (*text >= 'a' && *text <= 'z') *text = static_cast<char>(*text - 'a' + 'A');
  }
}

bool begins_with(const char* text, const char* prefix) {
  return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

char* trim_blanks(char* field) {
  while (*field == ' ') ++field;
  std::size_t length = std::strlen(field);
  while (length > 0 && field[length - 1] == ' ') field[--length] = '\0';
  return field;
}

// Splits at ",". The port creator hands in at most 255 bytes; anything longer
// is cut there as well, so the copy can never overrun. A "," that ends the
// text opens no further field, so "NET,10.0.0.5," still means port 9100.
void split(const char* text, Fields& out) {
  std::size_t length = 0;
  while (length < VORN_URI_MAX_TEXT && text[length] != '\0') ++length;
  std::memcpy(out.text.data(), text, length);
  out.text[length] = '\0';

  char* cursor = out.text.data();
  if (*cursor == ',') ++cursor;
  while (*cursor != '\0' && out.count < kMaxFields) {
    char* comma = std::strchr(cursor, ',');
    if (comma) *comma = '\0';
    out.field[out.count++] = trim_blanks(cursor);
    if (!comma) break;
    cursor = comma + 1;
  }
}

// What one comma form says, ready for the URI builder.
struct Description {
  std::array<char, 5> type{};
  const char* name = nullptr;  // null: "DEVICE"
  std::array<const char*, 2> keys{};
  std::array<const char*, 2> values{};  // a null value leaves its option out
};

bool describe_serial(const Fields& fields, Description& out) {
  if (fields.count < 2) return false;
  out.name = fields.field[0];
  char* rate = fields.field[1];
  to_upper_ascii(rate);
  static constexpr char kRatePrefix[] = "BAUDRATE_";
  if (char* found = std::strstr(rate, kRatePrefix)) rate = found + std::strlen(kRatePrefix);
  out.keys[0] = "baudrate";
  out.values[0] = rate;
  return true;
}

bool describe_network(const Fields& fields, Description& out) {
  if (fields.count < 2) return false;
  out.keys = {"ip", "port"};
  out.values = {fields.field[1], fields.count >= 3 ? fields.field[2] : "9100"};
  return true;
}

// Fields 2 to 4 may come in any order; each is recognised by how it begins.
bool describe_usb(const Fields& fields, Description& out) {
  const char* location = nullptr;
  const char* portnum = nullptr;
  for (std::size_t i = 1; i < fields.count && i < 4; ++i) {
    char* field = fields.field[i];
    to_upper_ascii(field);
    if (begins_with(field, "USB")) {
      portnum = field;
    } else if (begins_with(field, "PORT")) {
      location = field;
    } else {
      out.name = field;
    }
  }
  out.keys = {"location", "portnum"};
  out.values = {location, portnum};
  return true;
}

bool describe_file(const Fields& fields, Description& out) {
  if (fields.count < 2) return false;
  out.keys[0] = "filename";
  out.values[0] = fields.field[1];
  return true;
}

bool describe(const Fields& fields, Description& out) {
  if (fields.count == 0) return false;
  const char* first = fields.field[0];
  if (std::strlen(first) < kMinFirstFieldLength) return false;

  std::memcpy(out.type.data(), first, 3);
  to_upper_ascii(out.type.data());
  // "F" alone cannot tell the type apart in three letters: "fil" means FILE.
  if (out.type[0] == 'F') out.type[3] = 'E';

  const std::string_view type(out.type.data());
  if (type == "COM" || type == "BSP") return describe_serial(fields, out);
  if (type == "NET") return describe_network(fields, out);
  if (type == "USB") return describe_usb(fields, out);
  if (type == "FILE") return describe_file(fields, out);
  if (type == "LPT") {
    out.name = fields.field[0];
    return true;
  }
  return false;
}

}  // namespace

int32_t comma_form_to_uri(const char* text, char* out, uint32_t size) {
  if (!text || !out) return VORN_ERR_IO_INVALID_SETTING;
  Fields fields;
  split(text, fields);
  Description description;
  if (!describe(fields, description)) return VORN_ERR_IO_INVALID_SETTING;
  const int32_t built = vorn_io_uri_get_str(out, size, description.type.data(), description.name,
                                            description.keys.data(), description.values.data(),
                                            static_cast<int32_t>(description.keys.size()));
  return built == VORN_OK ? VORN_OK : VORN_ERR_IO_INVALID_SETTING;
}

}  // namespace vorn::io
