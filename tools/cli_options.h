// Command-line words to options: the command's fixed arguments, options
// with a value (--align 1 or --align=1) and switches (--bold).
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace vorn::cli {

// What one command accepts.
struct OptionSyntax {
  size_t arguments = 0;                     // exactly this many fixed arguments
  std::vector<std::string> value_options;   // "--align", ...
  std::vector<std::string> switch_options;  // "--bold", ...
};

class CommandLine {
 public:
  std::vector<std::string> arguments;
  std::map<std::string, std::string, std::less<>> values;
  std::set<std::string, std::less<>> switches;

  bool has_switch(std::string_view flag) const { return switches.contains(flag); }
  // The option's text, or `fallback` when it was not given.
  std::string text(std::string_view flag, std::string_view fallback) const;
  // The option as a number, `fallback` when it was not given; an error text
  // in `error` (and nullopt) when it is given but is not a number.
  std::optional<int32_t> number(std::string_view flag, int32_t fallback, std::string* error) const;
};

// Reads `words` (the words after the command name). Returns an error text,
// empty on success. A word "--" ends the options: everything after it is a
// fixed argument, so a text may begin with "--".
std::string parse_command_line(const std::vector<std::string>& words, const OptionSyntax& syntax,
                               CommandLine* out);

// Decimal with an optional sign, or hexadecimal with a 0x prefix; the whole
// text must be the number and it must fit a signed 32-bit value.
std::optional<int32_t> parse_number(std::string_view text);

// The port description to open for a --port text. A USB comma form whose
// second field is a place the printer is plugged in ("USB,1-1.4") becomes a
// URI with that location, upper-cased as the comma form would; the comma form
// itself takes only a Windows-style "PORT..." text as a location. Every other
// text is passed on unchanged.
std::string port_description(std::string_view port);

// Pairs of hexadecimal digits, separated or not by blanks, commas or colons.
bool parse_hex(std::string_view text, std::vector<uint8_t>* out);

}  // namespace vorn::cli
