// The ESC/POS commands the annotator knows: how each is recognised, how long
// it is and how it reads in words.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "escpos_lengths.h"

namespace vorn::cli {

struct CommandShape {
  std::string_view prefix;  // the bytes that name the command
  std::string_view name;    // what a cut-short command is called
  size_t fixed_length;      // used when `length` is null
  // The whole command's length, judged from the bytes present (which begin
  // with the prefix). May exceed what is present: the command is cut short.
  uint64_t (*length)(Bytes present);
  // Words for a complete command of exactly the length above.
  std::string (*describe)(Bytes command);
};

// The standard forms, which every model takes.
std::span<const CommandShape> command_shapes();

// Stands for no model in particular: only the standard forms apply.
inline constexpr uint32_t kAnyModel = 0;

// The forms of their own that the models of `model_id` (a catalogue model
// identifier) take in place of a standard one with the same prefix, such as
// ESC W with a 0x00 byte before its fields on 0x1102; empty for most models.
std::span<const CommandShape> model_shapes(uint32_t model_id);

// A command's byte as its name shows it: the character when it is printable
// ASCII, else 0xNN, so no control byte reaches the terminal.
std::string command_byte(uint8_t b);

// Text bytes as a quoted string: `"Total  12.50"`, with \" \\ and \xNN for
// bytes outside printable ASCII; more than `limit` bytes end in "…".
std::string quoted(Bytes text, size_t limit = 60);

}  // namespace vorn::cli
