#include "escpos_reader.h"

#include <algorithm>
#include <string_view>

namespace vorn::cli {
namespace {

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

}  // namespace

EscposItem read_escpos_item(Bytes rest, uint32_t model_id) {
  if (is_text_byte(rest[0])) {
    size_t n = 1;
    while (n < rest.size() && is_text_byte(rest[n])) ++n;
    return {EscposItem::kText, n, 0, nullptr, nullptr};
  }
  if (const CommandShape* shape = whole_prefix_match(rest, model_id)) {
    uint64_t needed = shape->length != nullptr ? shape->length(rest) : shape->fixed_length;
    needed = std::max<uint64_t>(needed, shape->prefix.size());
    if (needed > rest.size()) return {EscposItem::kTruncated, rest.size(), needed, shape, nullptr};
    return {EscposItem::kCommand, static_cast<size_t>(needed), needed, shape, nullptr};
  }
  const char* introducer = introducer_name(rest[0]);
  if (rest.size() >= 2) {
    if (const CommandShape* shape = cut_prefix_match(rest, model_id)) {
      return {EscposItem::kTruncated, rest.size(), 0, shape, nullptr};
    }
  }
  if (introducer == nullptr) return {EscposItem::kUnknown, 1, 0, nullptr, nullptr};
  if (rest.size() == 1) return {EscposItem::kTruncated, 1, 0, nullptr, introducer};
  return {EscposItem::kUnknown, 2, 0, nullptr, introducer};
}

}  // namespace vorn::cli
