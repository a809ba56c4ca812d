#include "escpos_annotate.h"

#include <algorithm>
#include <cstdio>

#include "escpos_commands.h"

namespace vorn::cli {
namespace {

// Commands up to 12 bytes are shown whole; longer ones by their first 8,
// which hold the header of every command with data.
constexpr size_t kHexWhole = 12;
constexpr size_t kHexShown = 8;
// Wide enough for 12 bytes or an abbreviation of up to 999 bytes, so the
// descriptions line up.
constexpr size_t kHexColumn = 37;
constexpr const char* kEllipsis = "\xE2\x80\xA6";

// Printable ASCII and the upper half (code page characters) print as text.
bool is_text(uint8_t b) {
  return b >= 0x20 && b != 0x7F;
}

const char* introducer_name(uint8_t b) {
  switch (b) {
    case 0x10:
      return "DLE";
    case 0x12:
      return "DC2";
    case 0x1B:
      return "ESC";
    case 0x1C:
      return "FS";
    case 0x1D:
      return "GS";
    default:
      return nullptr;
  }
}

bool starts_with(Bytes bytes, std::string_view prefix) {
  if (bytes.size() < prefix.size()) return false;
  return std::equal(prefix.begin(), prefix.end(), bytes.begin(),
                    [](char p, uint8_t b) { return static_cast<uint8_t>(p) == b; });
}

// The shape with the longest prefix that `rest` begins with; the model's own
// form wins over the standard one with the same prefix.
const CommandShape* whole_prefix_match(Bytes rest, uint32_t model_id) {
  const CommandShape* best = nullptr;
  for (auto shapes : {model_shapes(model_id), command_shapes()}) {
    for (const CommandShape& shape : shapes) {
      if (starts_with(rest, shape.prefix) &&
          (best == nullptr || shape.prefix.size() > best->prefix.size())) {
        best = &shape;
      }
    }
  }
  return best;
}

// A shape whose prefix goes on past the end of `rest`, which begins it.
const CommandShape* cut_prefix_match(Bytes rest, uint32_t model_id) {
  for (auto shapes : {model_shapes(model_id), command_shapes()}) {
    for (const CommandShape& shape : shapes) {
      if (shape.prefix.size() > rest.size() &&
          std::equal(rest.begin(), rest.end(), shape.prefix.begin(),
                     [](uint8_t b, char p) { return static_cast<uint8_t>(p) == b; })) {
        return &shape;
      }
    }
  }
  return nullptr;
}

std::string truncated(std::string_view name, size_t present) {
  return std::string(name) + ", truncated after " + std::to_string(present) +
         (present == 1 ? " byte" : " bytes");
}

AnnotatedCommand next_command(Bytes rest, size_t offset, uint32_t model_id) {
  if (is_text(rest[0])) {
    size_t n = 1;
    while (n < rest.size() && is_text(rest[n])) ++n;
    return {offset, n, "text " + quoted(rest.first(n))};
  }
  if (const CommandShape* shape = whole_prefix_match(rest, model_id)) {
    uint64_t needed = shape->length != nullptr ? shape->length(rest) : shape->fixed_length;
    needed = std::max<uint64_t>(needed, shape->prefix.size());
    if (needed > rest.size()) return {offset, rest.size(), truncated(shape->name, rest.size())};
    return {offset, static_cast<size_t>(needed), shape->describe(rest.first(needed))};
  }
  const char* introducer = introducer_name(rest[0]);
  if (rest.size() >= 2) {
    if (const CommandShape* shape = cut_prefix_match(rest, model_id)) {
      return {offset, rest.size(), truncated(shape->name, rest.size())};
    }
  }
  if (introducer == nullptr) {
    char text[32];
    std::snprintf(text, sizeof text, "unknown byte 0x%02X", rest[0]);
    return {offset, 1, text};
  }
  if (rest.size() == 1) return {offset, 1, truncated(introducer, 1)};
  return {offset, 2, std::string(introducer) + " " + command_byte(rest[1]) + " unknown command"};
}

bool shown_abbreviated(const std::string& hex) {
  return hex.find(kEllipsis) != std::string::npos;
}

}  // namespace

std::vector<AnnotatedCommand> annotate_escpos(std::span<const uint8_t> bytes, uint32_t model_id) {
  std::vector<AnnotatedCommand> commands;
  size_t offset = 0;
  while (offset < bytes.size()) {
    commands.push_back(next_command(bytes.subspan(offset), offset, model_id));
    offset += commands.back().length;
  }
  return commands;
}

std::string hex_summary(std::span<const uint8_t> bytes) {
  std::string text;
  char pair[4];
  const size_t shown = bytes.size() <= kHexWhole ? bytes.size() : kHexShown;
  for (size_t i = 0; i < shown; ++i) {
    std::snprintf(pair, sizeof pair, i == 0 ? "%02X" : " %02X", bytes[i]);
    text += pair;
  }
  if (shown < bytes.size()) {
    text += std::string(" ") + kEllipsis + " (" + std::to_string(bytes.size()) + " bytes)";
  }
  return text;
}

std::string format_annotation(std::span<const uint8_t> bytes,
                              const std::vector<AnnotatedCommand>& commands) {
  std::string out;
  for (const AnnotatedCommand& command : commands) {
    char offset[24];
    std::snprintf(offset, sizeof offset, "%04zX  ", command.offset);
    std::string hex = hex_summary(bytes.subspan(command.offset, command.length));
    // The ellipsis is three bytes but one column.
    size_t columns = hex.size() - (shown_abbreviated(hex) ? 2 : 0);
    if (columns < kHexColumn) hex.append(kHexColumn - columns, ' ');
    out += offset + hex + "  " + command.description + "\n";
  }
  return out;
}

}  // namespace vorn::cli
