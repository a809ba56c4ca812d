#include "printer/session.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "io/live_set.h"
#include "io/port.h"
#include "platform/clock.h"
#include "platform/text.h"

namespace vorn::printer {

int32_t ensure_room(CommandContext* context, uint32_t n) {
  if (!context->growable) return VORN_OK;
  // Compared as signed numbers, as the builders always have.
  if (static_cast<int64_t>(context->capacity) - context->length >= static_cast<int64_t>(n)) {
    return VORN_OK;
  }
  const uint64_t step = (static_cast<uint64_t>(n) + kGrowthStep - 1) / kGrowthStep * kGrowthStep;
  const uint64_t new_capacity = context->capacity + step;
  if (new_capacity > UINT32_MAX) return VORN_ERR_NO_MEMORY;
  void* grown = std::realloc(context->buffer, static_cast<size_t>(new_capacity));
  if (grown == nullptr) return VORN_ERR_NO_MEMORY;
  context->buffer = static_cast<uint8_t*>(grown);
  std::memset(context->buffer + context->capacity, 0, static_cast<size_t>(step));
  context->capacity = static_cast<uint32_t>(new_capacity);
  return VORN_OK;
}

int32_t bind_model(CommandContext* context, uint32_t model_id) {
  context->model_id = model_id;
  const CatalogueRow* row = find_model_by_id(model_id);
  if (row == nullptr) {
    std::memset(context->model_name, 0, sizeof context->model_name);
    std::strcpy(context->model_name, "DEMO");
    context->capability_word = 0;
    return VORN_OK;
  }
  std::memset(context->model_name, 0, sizeof context->model_name);
  std::strncpy(context->model_name, row->model_name, sizeof context->model_name - 1);
  context->capability_word = capability_word(row->model_id, row->type_flags);
  if (context->record != nullptr) {
    destroy_capability_record(context->record);
    context->record = nullptr;
  }
  return create_capability_record(model_id, &context->record);
}

namespace {

// Never destroyed, so that a handle used during the process's exit still
// finds it.
io::LiveSet& live_printers() {
  static io::LiveSet* printers = new io::LiveSet;
  return *printers;
}

}  // namespace

bool add_live_printer(VORN_PRINTER handle) {
  return live_printers().add(handle);
}

bool take_live_printer(VORN_PRINTER handle) {
  return live_printers().take(handle);
}

bool is_live_printer(VORN_PRINTER handle) {
  return live_printers().contains(handle) && handle->tag == kPrinterTag;
}

int32_t check_session(VORN_PRINTER handle) {
  if (!is_live_printer(handle)) return VORN_ERR_INVALID_HANDLE;
  if (!handle->port_open) return VORN_ERR_IO_NOT_OPEN;
  return VORN_OK;
}

int32_t send(VORN_PRINTER handle) {
  CommandContext& context = *handle->context;
  uint32_t written = 0;
  int32_t result = handle->port->write(handle->port, context.buffer, 0, context.length, &written);
  // Only a complete write empties the buffer: a failed one leaves every byte
  // to go out ahead of the next call's bytes.
  if (result == VORN_OK) context.length = 0;
  return result;
}

int32_t delimited_read(VORN_PRINTER handle, uint8_t* buffer, uint32_t start, uint32_t end,
                       uint8_t begin_byte, uint8_t end_byte, uint32_t* count) {
  constexpr int kPolls = 11;
  constexpr uint32_t kPollGapMs = 20;
  if (end < start || buffer == nullptr || count == nullptr) return VORN_ERR_PARAMETER;
  const uint32_t room = end - start;
  std::unique_ptr<uint8_t[]> scratch(new (std::nothrow) uint8_t[room == 0 ? 1 : room]);
  if (!scratch) return VORN_ERR_NO_MEMORY;

  bool collecting = begin_byte == 0;
  bool complete = false;
  uint32_t stored = 0;
  int32_t result = VORN_OK;
  for (int poll = 1; poll <= kPolls && !complete; ++poll) {
    uint32_t got = 0;
    result = handle->port->readexist(handle->port, scratch.get(), 0, room, &got);
    if (result != VORN_OK) break;
    for (uint32_t i = 0; i < got && !complete; ++i) {
      const uint8_t byte = scratch[i];
      if (!collecting) {
        collecting = byte == begin_byte;
        continue;
      }
      // The room is full without the end byte: the read cannot complete, but
      // the remaining polls still run so that a slow answer is drained.
      if (stored == room) break;
      buffer[start + stored++] = byte;
      complete = byte == end_byte;
    }
    if (!complete) platform::clock().sleep_ms(kPollGapMs);
  }
  *count = stored;
  if (complete) return VORN_OK;
  return result != VORN_OK ? result : VORN_ERR_IO_READ_TIMEOUT;
}

int32_t raw_read(VORN_PRINTER handle, uint8_t* buffer, uint32_t length) {
  uint32_t count = 0;
  return handle->port->read(handle->port, buffer, 0, length, &count);
}

namespace {

// Counts the text's units and asks how many bytes the narrow code page needs
// for them. An empty or null text, or one that converts to nothing, is an
// invalid parameter.
int32_t measure_narrow(const VORN_WCHAR* text, size_t* units, size_t* needed) {
  const platform::TextOps& ops = platform::text();
  *units = 0;
  if (text != nullptr) {
    while (text[*units] != 0) ++*units;
  }
  if (*units == 0) return ops.invalid_parameter;
  const int32_t error =
      ops.to_narrow(reinterpret_cast<const char16_t*>(text), *units, nullptr, 0, needed);
  if (error != 0) return error;
  return *needed == 0 ? ops.invalid_parameter : 0;
}

}  // namespace

int32_t to_narrow_text(const VORN_WCHAR* text, char* out, uint32_t size, uint32_t* written) {
  std::memset(out, 0, size);
  *written = 0;
  size_t units = 0;
  size_t needed = 0;
  int32_t error = measure_narrow(text, &units, &needed);
  if (error != 0) return error;
  if (needed > size - 1) return VORN_ERR_BUFFER_TOO_SMALL;
  size_t done = 0;
  error = platform::text().to_narrow(reinterpret_cast<const char16_t*>(text), units, out, size - 1,
                                     &done);
  if (error != 0) return error;
  *written = static_cast<uint32_t>(done);
  return VORN_OK;
}

int32_t to_narrow_owned(const VORN_WCHAR* text, NarrowText* out) {
  size_t units = 0;
  size_t needed = 0;
  int32_t error = measure_narrow(text, &units, &needed);
  if (error != 0) return error;
  // One byte more than the text takes, so that the zero fill terminates it.
  if (needed >= UINT32_MAX) return VORN_ERR_NO_MEMORY;
  std::unique_ptr<uint8_t[]> bytes(new (std::nothrow) uint8_t[needed + 1]());
  if (!bytes) return VORN_ERR_NO_MEMORY;
  size_t done = 0;
  error = platform::text().to_narrow(reinterpret_cast<const char16_t*>(text), units,
                                     reinterpret_cast<char*>(bytes.get()), needed, &done);
  if (error != 0) return error;
  out->length = static_cast<uint32_t>(std::find(bytes.get(), bytes.get() + done, 0) - bytes.get());
  out->bytes = std::move(bytes);
  return VORN_OK;
}

}  // namespace vorn::printer
