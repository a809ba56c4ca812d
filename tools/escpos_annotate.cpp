#include "escpos_annotate.h"

#include <algorithm>
#include <cstdio>

#include "escpos_commands.h"
#include "escpos_reader.h"

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

std::string truncated(std::string_view name, size_t present) {
  return std::string(name) + ", truncated after " + std::to_string(present) +
         (present == 1 ? " byte" : " bytes");
}

AnnotatedCommand next_command(Bytes rest, size_t offset, uint32_t model_id) {
  const EscposItem item = read_escpos_item(rest, model_id);
  Bytes bytes = rest.first(item.length);
  switch (item.kind) {
    case EscposItem::kText:
      return {offset, item.length, "text " + quoted(bytes)};
    case EscposItem::kCommand:
      return {offset, item.length, item.shape->describe(bytes)};
    case EscposItem::kTruncated:
      return {offset, item.length,
              truncated(item.shape != nullptr ? item.shape->name : item.introducer, item.length)};
    case EscposItem::kUnknown:
      break;
  }
  if (item.introducer == nullptr) {
    char text[32];
    std::snprintf(text, sizeof text, "unknown byte 0x%02X", rest[0]);
    return {offset, 1, text};
  }
  return {offset, 2,
          std::string(item.introducer) + " " + command_byte(rest[1]) + " unknown command"};
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
