// The one ESC/POS command reader: it cuts a byte stream into commands, runs
// of text and bytes it does not know. `vorn annotate` describes what it
// reads; the virtual printer executes it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "escpos_commands.h"

namespace vorn::cli {

struct EscposItem {
  enum Kind { kText, kCommand, kTruncated, kUnknown } kind;
  // Bytes the item takes from the input, at least 1. A truncated item takes
  // all that is present.
  size_t length;
  // A truncated command's whole length as far as its bytes tell; 0 when even
  // its prefix is incomplete.
  uint64_t needed;
  // The command read (kCommand) or cut short (kTruncated), when known.
  const CommandShape* shape;
  // "ESC", "GS", ... for an unknown command or a lone introducer, else null.
  const char* introducer;
};

// Printable ASCII and the upper half (code page characters) are text.
inline bool is_text_byte(uint8_t b) {
  return b >= 0x20 && b != 0x7F;
}

// Reads the item at the start of `rest` (not empty) as the models of
// `model_id` take it: a model's own form of a command wins over the
// standard one with the same prefix.
EscposItem read_escpos_item(Bytes rest, uint32_t model_id);

}  // namespace vorn::cli
