// The row coder of the compressed raster command: PackBits, the TIFF
// run-length scheme. A literal of n bytes (1 to 128) is the header n - 1 and
// the bytes; a repeat of n equal bytes (2 to 128) is the header 257 - n and the
// byte once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vorn::image {

// Codes one row into `out` and returns the number of bytes written, never
// more than twice the row's length. Two equal neighbours always form a repeat
// of their own, except as the last two bytes of a row after literal bytes,
// where they widen the literal; a row that ends in a run followed by one
// different byte ends with that byte as a one-byte literal. Runs longer than
// 128 bytes are split (a picture row of the raster command never has one).
size_t pack_row(std::span<const uint8_t> row, uint8_t* out);

}  // namespace vorn::image
