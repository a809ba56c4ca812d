#include "io/serial_port.h"

#include <vorn/vorn.h>

#include <cstring>
#include <new>

#include "platform/serial_line.h"

namespace vorn::io {
namespace {

// The rates a serial port can be given, compared as exact texts: "09600" or
// "9600 " is not a rate.
constexpr struct {
  const char* text;
  uint32_t rate;
} kBaudRates[] = {
    {"1200", 1200},   {"2400", 2400},   {"4800", 4800},   {"9600", 9600},
    {"19200", 19200}, {"38400", 38400}, {"57600", 57600}, {"115200", 115200},
};

// A write constant below this is too short for a printer that pauses to
// print; faster lines still get it.
constexpr uint32_t kMinimumWriteConstant = 2000;

// While a quick read runs, the line gives up after a few milliseconds of
// silence instead of the port's read budget.
constexpr platform::LineTimeouts kQuickReadTimeouts = {
    .read_interval = 5,
    .read_multiplier = 1,
    .read_constant = 10,
    .write_multiplier = 10,
    .write_constant = 10,
};

SerialState* as_serial(void* state) {
  return static_cast<SerialState*>(state);
}

platform::LineTimeouts line_timeouts(const HandlePortState& core) {
  return {
      .read_interval = core.timeouts[kReadInterval],
      .read_multiplier = core.timeouts[kReadMultiplier],
      .read_constant = core.timeouts[kReadConstant],
      .write_multiplier = core.timeouts[kWriteMultiplier],
      .write_constant = core.timeouts[kWriteConstant],
  };
}

int32_t set_uri(void* raw, const char* uri) {
  SerialState* state = as_serial(raw);
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  vorn_uri record;
  int32_t result = vorn_io_uri_from_str(&record, uri);
  if (result != VORN_OK) return result;
  const char* baud_text = vorn_io_uri_get_option(&record, "baudrate");
  if (baud_text == nullptr) return VORN_ERR_IO_INVALID_SETTING;
  const uint32_t baud_rate = baud_rate_from_text(baud_text);
  if (baud_rate == 0) return VORN_ERR_IO_BAUDRATE;
  char normalised[VORN_URI_MAX_TEXT + 1] = {};
  result = vorn_io_uri_to_str(&record, normalised, sizeof normalised);
  if (result != VORN_OK) return result;
  state->baud_rate = baud_rate;
  store_uri(&state->core, normalised);
  return VORN_OK;
}

// 8N1 without flow control, the port's timeouts as the line's own, queues of
// one transfer unit, and nothing left over from before the open. Each step
// ends the open with its own code; the device then stays open for the caller
// to close.
int32_t set_up_line(SerialState* state) {
  const platform::SerialLineOps& line = platform::serial_line();
  const platform::DeviceHandle handle = state->core.handle;
  switch (line.configure(handle, state->baud_rate)) {
    case platform::LineSetup::kReadFailed:
      return VORN_ERR_IO_GET_ATTRIBUTES;
    case platform::LineSetup::kWriteFailed:
      return VORN_ERR_IO_SET_ATTRIBUTES;
    case platform::LineSetup::kDone:
      break;
  }
  platform::LineTimeouts timeouts;
  if (!line.get_timeouts(handle, &timeouts)) return VORN_ERR_IO_GET_ATTRIBUTES;
  timeouts = line_timeouts(state->core);
  if (!line.set_timeouts(handle, timeouts)) return VORN_ERR_IO_SET_ATTRIBUTES;
  const uint32_t queue = state->core.transfer_unit;
  if (!line.set_queue_sizes(handle, queue, queue)) return VORN_ERR_IO_SET_ATTRIBUTES;
  return line.purge(handle);
}

int32_t open(void* raw) {
  SerialState* state = as_serial(raw);
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  if (!state->core.has_uri) return VORN_ERR_IO_INVALID_SETTING;
  if (state->automatic_write_timeout) {
    state->core.timeouts[kWriteConstant] =
        automatic_write_constant(state->core.transfer_unit, state->baud_rate);
  }
  int32_t result = handle_port_open_named(&state->core, platform::serial_device_path);
  if (result != VORN_OK) return result;
  return set_up_line(state);
}

int32_t set_timeout(void* raw, const uint32_t values[kTimeoutCount]) {
  int32_t result = handle_port_set_timeout(raw, values);
  if (result == VORN_OK) as_serial(raw)->automatic_write_timeout = 0;
  return result;
}

int32_t write(void* raw, const uint8_t* data, uint32_t offset, uint32_t length,
              uint32_t* transferred) {
  SerialState* state = as_serial(raw);
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  return chunked_write(&state->core, data, offset, length, transferred);
}

// One read bounded by the line timeouts. When they end it early the result
// is still 0: the count tells how much arrived.
int32_t read(void* raw, uint8_t* buffer, uint32_t offset, uint32_t length, uint32_t* transferred) {
  SerialState* state = as_serial(raw);
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  return timed_read(&state->core, buffer, offset, length, transferred);
}

// Reads what is there under short line timeouts, then gives the line the
// port's timeouts back. The line calls may fail without spoiling the read.
int32_t readexist(void* raw, uint8_t* buffer, uint32_t offset, uint32_t size,
                  uint32_t* transferred) {
  SerialState* state = as_serial(raw);
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  const platform::SerialLineOps& line = platform::serial_line();
  const platform::DeviceHandle handle = state->core.handle;
  const bool line_open = handle != platform::kNoDevice;
  platform::LineTimeouts current;
  if (line_open && line.get_timeouts(handle, &current))
    line.set_timeouts(handle, kQuickReadTimeouts);
  int32_t result = quick_read(&state->core, buffer, offset, size, transferred);
  if (line_open && line.get_timeouts(handle, &current)) {
    line.set_timeouts(handle, line_timeouts(state->core));
  }
  return result;
}

int32_t control(void*, uint32_t, uint32_t, const void*, uint32_t, void*, uint32_t, uint32_t*) {
  return VORN_ERR_NOT_IMPLEMENTED;
}

void destroy(void* raw) {
  delete as_serial(raw);
}

}  // namespace

uint32_t baud_rate_from_text(const char* text) {
  if (text == nullptr) return 0;
  for (const auto& entry : kBaudRates) {
    if (std::strcmp(entry.text, text) == 0) return entry.rate;
  }
  return 0;
}

uint32_t automatic_write_constant(uint32_t transfer_unit, uint32_t baud_rate) {
  if (baud_rate == 0) return kMinimumWriteConstant;
  // The time one unit takes on the line, in whole seconds rounded down
  // before scaling: 1200 baud gives 16200 ms, 2400 baud 7800 ms. Printers'
  // setups are tuned to exactly these values, so the rounding stays.
  const uint32_t constant = (transfer_unit * 8 / baud_rate) * 600;
  return constant < kMinimumWriteConstant ? kMinimumWriteConstant : constant;
}

const DriverOps kSerialDriverOps = {
    .set_uri = set_uri,
    .get_uri = handle_port_get_uri,
    .open = open,
    .close = handle_port_close,
    .kill = handle_port_kill,
    .flush = handle_port_flush,
    .set_timeout = set_timeout,
    .get_timeout = handle_port_get_timeout,
    .write = write,
    .read = read,
    .readexist = readexist,
    .control = control,
    .destroy = destroy,
};

void* new_serial_state() {
  auto* state = new (std::nothrow) SerialState{};
  if (state == nullptr) return nullptr;
  init_handle_port_state(&state->core, VORN_PORT_SERIAL, false);
  state->core.device = platform::serial_device_file;
  state->automatic_write_timeout = 1;
  return state;
}

}  // namespace vorn::io
