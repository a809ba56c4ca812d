// Text and system messages: conversion between UTF-16 and the system's narrow
// code page, system error texts for positive result codes, and the user's
// default language.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vorn::platform {

struct TextOps {
  // Converts `units` UTF-16 code units (no terminator) to the system's narrow
  // code page. With `out` null, stores the bytes needed in `*written` and
  // writes nothing. Characters the code page lacks become '?'. Returns 0, or
  // a positive system error number (then `*written` is 0). Writes no
  // terminator.
  int32_t (*to_narrow)(const char16_t* text, size_t units, char* out, size_t size, size_t* written);
  // Converts `bytes` bytes of narrow text in the system's code page to UTF-16,
  // with the same `out`-null sizing rule. Bytes that are not valid in the code
  // page become U+FFFD. Returns 0 or a positive system error number.
  int32_t (*to_wide)(const char* text, size_t bytes, char16_t* out, size_t units, size_t* written);
  // The system's text for a positive error code, zero-terminated, in `out`
  // of `size` bytes. `language` 0 means the user's default. Returns 0 when a
  // text was written, else a positive system error number.
  int32_t (*system_message)(int32_t code, uint32_t language, char* out, size_t size);
  // The same as UTF-16, `units` code units of room.
  int32_t (*system_message_wide)(int32_t code, uint32_t language, char16_t* out, size_t units);
  // The primary language of the user's default language (4 is Chinese).
  // Read at each call.
  uint32_t (*user_language)();
  // The system's number for an invalid parameter (87 on Windows, EINVAL).
  int32_t invalid_parameter;
};

const TextOps& text();
const TextOps* install_text(const TextOps* ops);
const TextOps& native_text();

}  // namespace vorn::platform
