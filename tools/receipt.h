// A sample shop receipt, printed through the library's exported calls: the
// `vorn receipt` command and a way to see every kind of command at work.
#pragma once

#include <vorn/vorn.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "call_report.h"

namespace vorn::cli {

struct ReceiptOptions {
  size_t columns = 48;    // characters of font A on one line
  std::string logo_path;  // printed at the top when not empty
};

// Amount in cents as text with two decimals: 1250 -> "12.50".
std::string money(int64_t cents);

// `left` and `right` on one line of `width` columns with blanks between,
// `right` ending in the last column. `left` is cut so at least one blank
// stays between the two.
std::string two_columns(std::string_view left, std::string_view right, size_t width);

// Font A characters per line for a catalogue model (12 dots each), 48 when
// the catalogue gives no width.
size_t receipt_columns(const std::string& model);

// Prints the sample receipt, stopping at the first call that fails. Every
// call goes through `report`; true when all succeeded.
bool print_receipt(VORN_PRINTER printer, const ReceiptOptions& options, CallReport& report);

}  // namespace vorn::cli
