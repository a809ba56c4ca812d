// The two layers every printing command is made of.
//
// An encoder appends one ESC/POS command to the command buffer after its
// checks, always in this order: capability bit 0 (-3), room (-2), parameter
// range (-1). A failing encoder writes nothing. Encoders never allocate.
//
// A builder prepares the command context (its own checks, room) and calls one
// or more encoders. A builder that appends several commands takes back all it
// appended when a later step fails (see Rollback).
#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>

#include "printer/session.h"

namespace vorn::escpos {

// What an encoder works on: the capability word and the command buffer.
struct Target {
  uint32_t capability;
  uint8_t* buffer;
  uint32_t capacity;
  uint32_t* length;
};

Target target_of(printer::CommandContext& context);

// The encoder contract for a command of `size` bytes whose parameters are
// `valid`: 0 when the command may be written, else -3, -2 or -1.
int32_t check(const Target& target, uint64_t size, bool valid);

// Checks, then appends the pieces back to back as one command.
int32_t emit(const Target& target, bool valid, std::initializer_list<uint8_t> bytes);
int32_t emit(const Target& target, bool valid, std::initializer_list<uint8_t> head,
             std::span<const uint8_t> data);

// Appends bytes without checks; for encoders that checked the whole size.
void put(const Target& target, std::span<const uint8_t> bytes);
void put(const Target& target, std::initializer_list<uint8_t> bytes);

// Little-endian fields. Callers range-check with fits_u16 first: a value that
// does not fit its field is a parameter error, never silently cut.
constexpr bool fits_u16(int64_t value) {
  return value >= 0 && value <= 0xFFFF;
}
constexpr uint8_t low_byte(uint32_t value) {
  return static_cast<uint8_t>(value & 0xFF);
}
constexpr uint8_t high_byte(uint32_t value) {
  return static_cast<uint8_t>((value >> 8) & 0xFF);
}

// The builder step of the simple commands: make room for 32 bytes (-9 when
// the buffer cannot grow), then run the encoder on the context's target.
template <typename Encoder>
int32_t with_room(printer::CommandContext& context, Encoder&& encoder) {
  if (printer::ensure_room(&context, printer::kCommandRoom) != VORN_OK) return VORN_ERR_NO_MEMORY;
  return encoder(target_of(context));
}

// Takes back everything appended since construction unless commit() was
// called: the length returns to where it was and the freed bytes are zeroed,
// so a failed builder leaves the buffer exactly as it found it.
class Rollback {
 public:
  explicit Rollback(printer::CommandContext& context);
  ~Rollback();
  Rollback(const Rollback&) = delete;
  Rollback& operator=(const Rollback&) = delete;

  // Passes `result` through, committing when it is 0.
  int32_t finish(int32_t result);

 private:
  printer::CommandContext& context_;
  uint32_t start_;
  bool committed_ = false;
};

// The cut of an exported 32-bit argument to the byte a command sends.
constexpr uint8_t byte_of(int32_t value) {
  return static_cast<uint8_t>(value & 0xFF);
}

}  // namespace vorn::escpos
