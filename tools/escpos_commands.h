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

std::span<const CommandShape> command_shapes();

// Text bytes as a quoted string: `"Total  12.50"`, with \" \\ and \xNN for
// bytes outside printable ASCII; more than `limit` bytes end in "…".
std::string quoted(Bytes text, size_t limit = 60);

}  // namespace vorn::cli
