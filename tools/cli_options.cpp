#include "cli_options.h"

#include <algorithm>
#include <charconv>

namespace vorn::cli {
namespace {

bool listed(const std::vector<std::string>& names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

std::string CommandLine::text(std::string_view flag, std::string_view fallback) const {
  auto found = values.find(flag);
  return found == values.end() ? std::string(fallback) : found->second;
}

std::optional<int32_t> CommandLine::number(std::string_view flag, int32_t fallback,
                                           std::string* error) const {
  auto found = values.find(flag);
  if (found == values.end()) return fallback;
  std::optional<int32_t> value = parse_number(found->second);
  if (!value) *error = std::string(flag) + " takes a number, not \"" + found->second + "\"";
  return value;
}

std::string parse_command_line(const std::vector<std::string>& words, const OptionSyntax& syntax,
                               CommandLine* out) {
  bool options_ended = false;
  for (size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (options_ended || word.size() < 2 || word.compare(0, 2, "--") != 0) {
      out->arguments.push_back(word);
      continue;
    }
    if (word == "--") {
      options_ended = true;
      continue;
    }
    size_t equals = word.find('=');
    std::string flag = word.substr(0, equals);
    if (listed(syntax.switch_options, flag) && equals == std::string::npos) {
      out->switches.insert(flag);
    } else if (listed(syntax.value_options, flag)) {
      if (equals != std::string::npos) {
        out->values[flag] = word.substr(equals + 1);
      } else if (i + 1 < words.size()) {
        out->values[flag] = words[++i];
      } else {
        return flag + " needs a value";
      }
    } else {
      return "unknown option " + flag;
    }
  }
  if (out->arguments.size() != syntax.arguments) {
    return "expected " + std::to_string(syntax.arguments) + " argument(s), got " +
           std::to_string(out->arguments.size());
  }
  return {};
}

std::optional<int32_t> parse_number(std::string_view text) {
  bool negative = false;
  if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    base = 16;
    text.remove_prefix(2);
  }
  if (text.empty() || text.front() == '-' || text.front() == '+') return std::nullopt;
  int64_t magnitude = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), magnitude, base);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  int64_t value = negative ? -magnitude : magnitude;
  if (value < INT32_MIN || value > INT32_MAX) return std::nullopt;
  return static_cast<int32_t>(value);
}

bool parse_hex(std::string_view text, std::vector<uint8_t>* out) {
  int high = -1;
  for (char c : text) {
    int digit = c >= '0' && c <= '9'   ? c - '0'
                : c >= 'a' && c <= 'f' ? c - 'a' + 10
                : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                       : -1;
    if (digit < 0) {
      if (c == ' ' || c == ',' || c == ':' || c == '\n' || c == '\t') continue;
      return false;
    }
    if (high < 0) {
      high = digit;
    } else {
      out->push_back(static_cast<uint8_t>(high * 16 + digit));
      high = -1;
    }
  }
  return high < 0;
}

std::string port_description(std::string_view port) {
  auto trim = [](std::string_view text) {
    while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
    while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
    return text;
  };
  auto upper = [](std::string_view text) {
    std::string out(text);
    for (char& c : out) {
      if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return out;
  };
  const std::string_view::size_type comma = port.find(',');
  if (comma == std::string_view::npos) return std::string(port);
  if (upper(trim(port.substr(0, comma))).rfind("USB", 0) != 0) return std::string(port);
  const std::string_view rest = port.substr(comma + 1);
  if (rest.find(',') != std::string_view::npos) return std::string(port);
  const std::string location = upper(trim(rest));
  if (location.empty() || location.rfind("USB", 0) == 0 || location.rfind("PORT", 0) == 0) {
    return std::string(port);
  }
  return "vorn:/dev/bus/USB/DEVICE?location=" + location;
}

}  // namespace vorn::cli
