#include "image/packbits.h"

#include <algorithm>
#include <cstring>

namespace vorn::image {
namespace {

constexpr size_t kLongestRun = 128;

class RunWriter {
 public:
  explicit RunWriter(uint8_t* out) : out_(out) {}

  void literal(const uint8_t* bytes, size_t count) {
    while (count > 0) {
      const size_t piece = std::min(count, kLongestRun);
      out_[written_++] = static_cast<uint8_t>(piece - 1);
      std::memcpy(out_ + written_, bytes, piece);
      written_ += piece;
      bytes += piece;
      count -= piece;
    }
  }

  void repeat(uint8_t byte, size_t count) {
    while (count >= 2) {
      const size_t piece = std::min(count, kLongestRun);
      out_[written_++] = static_cast<uint8_t>(257 - piece);
      out_[written_++] = byte;
      count -= piece;
    }
    // A lone byte left over from splitting cannot be a repeat.
    if (count == 1) literal(&byte, 1);
  }

  size_t written() const { return written_; }

 private:
  uint8_t* out_;
  size_t written_ = 0;
};

}  // namespace

size_t pack_row(std::span<const uint8_t> row, uint8_t* out) {
  RunWriter writer(out);
  if (row.empty()) return 0;
  if (row.size() == 1) {
    writer.literal(row.data(), 1);
    return writer.written();
  }

  const size_t last = row.size() - 1;
  size_t start = 0;  // first byte not yet coded
  uint8_t reference = row[0];
  bool repeat_open = false;
  for (size_t i = 1; i <= last; ++i) {
    // What falls due in this step, as end positions (exclusive) from `start`.
    size_t literal_end = 0;
    size_t repeat_end = 0;
    bool lone_last_byte = false;

    if (row[i] == reference && !repeat_open) {
      // A pair begins a repeat at i - 1; any bytes before it go out first.
      if (i - start >= 2) literal_end = i - 1;
      repeat_open = true;
    } else if (row[i] != reference && repeat_open) {
      repeat_end = i;
      repeat_open = false;
    }

    if (i == last) {
      if (literal_end == 0 && repeat_end == 0) {
        (repeat_open ? repeat_end : literal_end) = i + 1;
      } else if (literal_end != 0) {
        // A closing pair after literal bytes joins the literal: a repeat of
        // two would cost as much and the row ends anyway.
        literal_end = i + 1;
        repeat_open = false;
      } else {
        lone_last_byte = true;
      }
    }

    if (literal_end != 0) {
      writer.literal(&row[start], literal_end - start);
      start = literal_end;
    }
    if (repeat_end != 0) {
      writer.repeat(row[start], repeat_end - start);
      start = repeat_end;
    }
    if (lone_last_byte) {
      writer.literal(&row[start], 1);
      start = i + 1;
    }
    if (!repeat_open) reference = row[i];
  }
  return writer.written();
}

}  // namespace vorn::image
