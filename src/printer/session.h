// Printer handles, their command context, and the one path every printing
// call takes: check the handle and the port, let a builder append commands,
// write the whole command buffer, empty it only when the write succeeded.
#pragma once

#include <vorn/vorn.h>

#include <cstdint>
#include <memory>
#include <span>

#include "printer/catalogue.h"

namespace vorn::printer {

inline constexpr uint32_t kPrinterTag = 1184;
inline constexpr uint32_t kInitialBufferSize = 256;
inline constexpr uint32_t kGrowthStep = 128;
// Room the simple command builders make sure of before each encoder.
inline constexpr uint32_t kCommandRoom = 32;

struct CommandContext {
  uint32_t model_id;
  char model_name[256];
  uint32_t capability_word;  // first argument of every encoder
  uint8_t* buffer;           // the bytes waiting to be written
  uint32_t capacity;
  uint32_t length;
  uint8_t growable;
  uint8_t page_mode;  // between SelectPageMode and the return to standard mode
  CapabilityRecord* record;
};

// Makes room for `n` more bytes: when fewer are free, the buffer grows by n
// rounded up to a multiple of 128, the new bytes zeroed. -9 when memory runs
// out (the buffer stays as it was), else 0.
int32_t ensure_room(CommandContext* context, uint32_t n);

// Binds a model identifier: name, capability word and a new capability
// record from its first catalogue row. An identifier without row gets the
// name "DEMO" and capability word 0 (every ESC/POS command refused).
int32_t bind_model(CommandContext* context, uint32_t model_id);

}  // namespace vorn::printer

struct vorn_printer_object {
  uint32_t tag;  // kPrinterTag while valid
  vorn::printer::CommandContext* context;
  VORN_PORT port;  // null until the first PortOpen; kept after PortClose
  uint8_t port_open;
};

namespace vorn::printer {

// The set of live printer handles: a handle is followed only when it is in
// it, so a null, destroyed or foreign pointer is refused unread.
bool add_live_printer(VORN_PRINTER handle);   // false when memory runs out
bool take_live_printer(VORN_PRINTER handle);  // false when it was not live
bool is_live_printer(VORN_PRINTER handle);

// -6 for a handle that is not live, -309 when its port is not open, else 0.
int32_t check_session(VORN_PRINTER handle);

// Writes the whole command buffer; empties it when the write succeeded.
int32_t send(VORN_PRINTER handle);

// The frame of a printing call: checks, the builder (which appends to the
// command context or fails having appended nothing), then the send.
template <typename Builder>
int32_t run_printing_call(VORN_PRINTER handle, Builder&& builder) {
  int32_t result = check_session(handle);
  if (result != VORN_OK) return result;
  result = builder(*handle->context);
  if (result != VORN_OK) return result;
  return send(handle);
}

// Polls for bytes up to and including `end_byte` (after `begin_byte` when
// that is not 0), storing at most end - start bytes from buffer[start] on.
// 0 when the end byte arrived, the port's error, or -332.
int32_t delimited_read(VORN_PRINTER handle, uint8_t* buffer, uint32_t start, uint32_t end,
                       uint8_t begin_byte, uint8_t end_byte, uint32_t* count);

// One read of `length` bytes from the handle's port; the count is dropped.
int32_t raw_read(VORN_PRINTER handle, uint8_t* buffer, uint32_t length);

// Converts a zero-terminated UTF-16 text to the system's narrow code page
// into `out` of `size` bytes (zero-filled first, always terminated). Returns
// 0 and the byte count in `*written`; -2 when the text needs more than
// size - 1 bytes (nothing written); an empty or null text fails with the
// system's invalid-parameter number; other conversion failures give the
// system's number.
int32_t to_narrow_text(const VORN_WCHAR* text, char* out, uint32_t size, uint32_t* written);

// Text converted to the system's narrow code page, in a zero-filled buffer
// that terminates it.
struct NarrowText {
  std::unique_ptr<uint8_t[]> bytes;
  uint32_t length = 0;  // up to the first zero byte
  std::span<const uint8_t> view() const { return {bytes.get(), length}; }
};

// Converts a zero-terminated UTF-16 text into a buffer as large as the code
// page needs (UTF-8 takes up to three bytes a unit, more than the 2n + 2 a
// Windows code page can need), so text is never refused for its encoding.
// The same failures as to_narrow_text, and -9 when memory runs out.
int32_t to_narrow_owned(const VORN_WCHAR* text, NarrowText* out);

}  // namespace vorn::printer
