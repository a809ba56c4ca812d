// Text services on POSIX systems. The narrow code page is chosen from the
// environment (narrow_charset_posix.h) and converted with iconv. The process
// locale is neither consulted nor changed: a library must not depend on what
// the application did with setlocale, nor disturb it.
#include <errno.h>
#include <iconv.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <initializer_list>
#include <string_view>

#include "platform/posix/narrow_charset_posix.h"
#include "platform/text.h"

namespace vorn::platform {
namespace {

constexpr uint32_t kLanguageChinese = 4;
constexpr uint32_t kLanguageEnglish = 9;

// char16_t units in the host's byte order, as iconv names them.
constexpr const char* kUtf16 = std::endian::native == std::endian::little ? "UTF-16LE" : "UTF-16BE";
// Stands for text without a charset of its own ("C", "POSIX").
constexpr const char* kAscii = "ASCII";
// What iconv_open returns when it fails.
const iconv_t kClosed = reinterpret_cast<iconv_t>(-1);

// errno after a failed call, never 0 even if the call forgot to set it.
int32_t last_error() {
  return errno != 0 ? errno : EINVAL;
}

// Owns one iconv conversion descriptor.
class Converter {
 public:
  explicit Converter(iconv_t handle) : handle_(handle) {}
  ~Converter() {
    if (is_open()) iconv_close(handle_);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  bool is_open() const { return handle_ != kClosed; }
  iconv_t handle() const { return handle_; }

 private:
  iconv_t handle_;
};

// A conversion between UTF-16 and the narrow code page. A charset from the
// locale that the system's iconv does not know is treated like no charset at
// all, so that an odd locale name degrades to ASCII instead of failing every
// conversion; one the application named outright fails with EINVAL.
int32_t open_narrow(bool from_utf16, iconv_t* out) {
  const NarrowCharset charset = narrow_charset();
  auto open = [from_utf16](const char* name) {
    return from_utf16 ? iconv_open(name, kUtf16) : iconv_open(kUtf16, name);
  };
  // An empty name would make iconv pick the process locale's charset.
  *out = charset.name[0] != '\0' ? open(charset.name) : kClosed;
  if (*out != kClosed) return 0;
  if (charset.named_outright) return EINVAL;
  *out = open(kAscii);
  return *out != kClosed ? 0 : last_error();
}

// What a conversion puts in place of input that the target cannot represent
// or that is not valid in the source, and how much input that covers.
struct Replacement {
  const char* bytes;
  size_t length;
  size_t (*input_to_skip)(const char* input, size_t left);
};

// One UTF-16 unit, or both units of a surrogate pair: a character outside
// the basic plane becomes one replacement, not two.
size_t utf16_character_at(const char* input, size_t left) {
  if (left < 2) return left;
  char16_t first;
  std::memcpy(&first, input, sizeof first);
  if (first < 0xD800 || first > 0xDBFF || left < 4) return 2;
  char16_t second;
  std::memcpy(&second, input + 2, sizeof second);
  return second >= 0xDC00 && second <= 0xDFFF ? 4 : 2;
}

// An invalid byte of a multibyte charset: replaced alone, so that the bytes
// after it get their own chance to start a character.
size_t one_byte(const char*, size_t left) {
  return std::min<size_t>(left, 1);
}

constexpr char kQuestionMark[] = {'?'};
constexpr Replacement kToNarrow{kQuestionMark, 1, utf16_character_at};

// U+FFFD in the host's byte order.
constexpr char kReplacementCharacter[] = {
    std::endian::native == std::endian::little ? '\xFD' : '\xFF',
    std::endian::native == std::endian::little ? '\xFF' : '\xFD'};
constexpr Replacement kToWide{kReplacementCharacter, sizeof kReplacementCharacter, one_byte};

// Converts all of `input`. With `out` null only counts: the output goes to a
// scratch buffer that is emptied whenever it fills. Returns 0 or an errno
// value; E2BIG when `out` is too small.
int32_t convert(iconv_t handle, const char* input, size_t input_bytes, char* out, size_t out_size,
                size_t* produced, const Replacement& replacement) {
  char scratch[256];
  const bool counting = out == nullptr;
  char* cursor = counting ? scratch : out;
  size_t room = counting ? sizeof scratch : out_size;
  size_t counted = 0;
  // Makes room in counting mode; in writing mode the caller's buffer is full.
  auto out_of_room = [&]() {
    if (!counting) return false;
    counted += sizeof scratch - room;
    cursor = scratch;
    room = sizeof scratch;
    return true;
  };

  char* in = const_cast<char*>(input);  // iconv's signature, never written
  size_t left = input_bytes;
  while (left > 0) {
    if (iconv(handle, &in, &left, &cursor, &room) != static_cast<size_t>(-1)) continue;
    const int error = errno;
    if (error == E2BIG) {
      if (!out_of_room()) return E2BIG;
      continue;
    }
    if (error != EILSEQ && error != EINVAL) return error;
    // EILSEQ: invalid or unrepresentable; EINVAL: cut off at the end.
    if (room < replacement.length && !out_of_room()) return E2BIG;
    std::memcpy(cursor, replacement.bytes, replacement.length);
    cursor += replacement.length;
    room -= replacement.length;
    const size_t skip = replacement.input_to_skip(in, left);
    in += skip;
    left -= skip;
  }
  // A stateful charset may need bytes to return to its initial shift state.
  while (iconv(handle, nullptr, nullptr, &cursor, &room) == static_cast<size_t>(-1)) {
    const int error = errno;
    if (error != E2BIG || !out_of_room()) return error;
  }
  *produced = counting ? counted + (sizeof scratch - room) : out_size - room;
  return 0;
}

int32_t to_narrow(const char16_t* text, size_t units, char* out, size_t size, size_t* written) {
  *written = 0;
  // As the Windows conversion does, an empty text is an invalid parameter.
  if (units == 0) return EINVAL;
  iconv_t handle;
  const int32_t opened = open_narrow(true, &handle);
  if (opened != 0) return opened;
  Converter converter(handle);
  return convert(converter.handle(), reinterpret_cast<const char*>(text), units * sizeof(char16_t),
                 out, size, written, kToNarrow);
}

int32_t to_wide(const char* text, size_t bytes, char16_t* out, size_t units, size_t* written) {
  *written = 0;
  if (bytes == 0) return EINVAL;
  iconv_t handle;
  const int32_t opened = open_narrow(false, &handle);
  if (opened != 0) return opened;
  Converter converter(handle);
  size_t produced = 0;
  const int32_t result = convert(converter.handle(), text, bytes, reinterpret_cast<char*>(out),
                                 units * sizeof(char16_t), &produced, kToWide);
  if (result == 0) *written = produced / sizeof(char16_t);
  return result;
}

// GNU strerror_r returns the text (maybe static); the XSI one fills the buffer
// and refuses a code it has no text for. Null: no text.
[[maybe_unused]] const char* strerror_text(const char* text, const char*) {
  return text;
}
[[maybe_unused]] const char* strerror_text(int result, const char* buffer) {
  return result == 0 ? buffer : nullptr;
}

// GNU strerror_r makes up "Unknown error N" for a code it does not know;
// glibc's table of error names tells such codes apart.
bool has_text(int32_t code) {
#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 32))
  return strerrorname_np(code) != nullptr;
#else
  return code > 0;
#endif
}

// The system's error texts come in one language only, so `language` changes
// nothing. Like the Windows message call, a region too small for the whole
// text and its terminator gets nothing and the system's "result too large"
// number, ERANGE; a code the system has no text for gets nothing and EINVAL.
int32_t system_message(int32_t code, uint32_t /*language*/, char* out, size_t size) {
  char buffer[256];
  if (!has_text(code)) return EINVAL;
  const char* message = strerror_text(strerror_r(code, buffer, sizeof buffer), buffer);
  if (message == nullptr) return EINVAL;
  const size_t length = std::strlen(message);
  if (length + 1 > size) return ERANGE;
  std::memcpy(out, message, length + 1);
  return 0;
}

int32_t system_message_wide(int32_t code, uint32_t language, char16_t* out, size_t units) {
  char message[256];
  int32_t result = system_message(code, language, message, sizeof message);
  if (result != 0) return result;
  Converter converter(iconv_open(kUtf16, "UTF-8"));
  if (!converter.is_open()) return last_error();
  const size_t length = std::strlen(message);
  size_t needed = 0;
  result = convert(converter.handle(), message, length, nullptr, 0, &needed, kToWide);
  if (result != 0) return result;
  if (needed / sizeof(char16_t) + 1 > units) return ERANGE;
  result = convert(converter.handle(), message, length, reinterpret_cast<char*>(out), needed,
                   &needed, kToWide);
  if (result != 0) return result;
  out[needed / sizeof(char16_t)] = u'\0';
  return 0;
}

uint32_t user_language() {
  const char* value = locale_variable({"LC_ALL", "LC_MESSAGES", "LANG"});
  const bool chinese = value != nullptr && std::string_view(value).starts_with("zh");
  return chinese ? kLanguageChinese : kLanguageEnglish;
}

constexpr TextOps kNativeText{
    to_narrow, to_wide, system_message, system_message_wide, user_language, EINVAL,
};

}  // namespace

const TextOps& native_text() {
  return kNativeText;
}

}  // namespace vorn::platform
