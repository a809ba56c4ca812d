#include "escpos/encoder.h"

#include <algorithm>
#include <cstring>

namespace vorn::escpos {

Target target_of(printer::CommandContext& context) {
  return Target{context.capability_word, context.buffer, context.capacity, &context.length};
}

int32_t check(const Target& target, uint64_t size, bool valid) {
  if ((target.capability & printer::kFlagEscPos) == 0) return VORN_ERR_COMMAND_NOT_SUPPORTED;
  // Free space compared unsigned: a length past the capacity leaves no room.
  const uint64_t free_space =
      target.capacity >= *target.length ? target.capacity - *target.length : 0;
  if (target.buffer == nullptr || free_space < size) return VORN_ERR_BUFFER_TOO_SMALL;
  if (!valid) return VORN_ERR_PARAMETER;
  return VORN_OK;
}

void put(const Target& target, std::span<const uint8_t> bytes) {
  if (bytes.empty()) return;
  std::memcpy(target.buffer + *target.length, bytes.data(), bytes.size());
  *target.length += static_cast<uint32_t>(bytes.size());
}

void put(const Target& target, std::initializer_list<uint8_t> bytes) {
  put(target, std::span<const uint8_t>(bytes.begin(), bytes.size()));
}

int32_t emit(const Target& target, bool valid, std::initializer_list<uint8_t> bytes) {
  int32_t result = check(target, bytes.size(), valid);
  if (result == VORN_OK) put(target, bytes);
  return result;
}

int32_t emit(const Target& target, bool valid, std::initializer_list<uint8_t> head,
             std::span<const uint8_t> data) {
  int32_t result = check(target, static_cast<uint64_t>(head.size()) + data.size(), valid);
  if (result != VORN_OK) return result;
  put(target, head);
  put(target, data);
  return VORN_OK;
}

Rollback::Rollback(printer::CommandContext& context) : context_(context), start_(context.length) {}

Rollback::~Rollback() {
  if (committed_ || context_.length <= start_) return;
  std::memset(context_.buffer + start_, 0, context_.length - start_);
  context_.length = start_;
}

int32_t Rollback::finish(int32_t result) {
  committed_ = result == VORN_OK;
  return result;
}

}  // namespace vorn::escpos
