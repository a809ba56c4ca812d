// ESC/POS bytes explained one command at a time: what `vorn annotate` prints
// and the way to read what the library sent to a printer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "escpos_commands.h"

namespace vorn::cli {

struct AnnotatedCommand {
  size_t offset;  // of the command's first byte
  size_t length;  // bytes the command takes, at least 1
  std::string description;
};

// Splits `bytes` into commands, runs of text and unknown bytes, in order and
// without gaps. A command cut short by the end of the bytes becomes one
// entry ending in "truncated after N bytes". The bytes are read as the models
// of `model_id` (a catalogue model identifier) take them: a model's own form
// of a command takes the place of the standard one.
std::vector<AnnotatedCommand> annotate_escpos(std::span<const uint8_t> bytes,
                                              uint32_t model_id = kAnyModel);

// "1B 61 01"; beyond 12 bytes the first 8 and then "… (N bytes)".
std::string hex_summary(std::span<const uint8_t> bytes);

// One line per entry: hexadecimal offset, the bytes (hex_summary) and the
// description, each line ended by a line feed.
std::string format_annotation(std::span<const uint8_t> bytes,
                              const std::vector<AnnotatedCommand>& commands);

}  // namespace vorn::cli
