#include "io/parallel_port.h"

#include <vorn/vorn.h>

#include <new>

namespace vorn::io {
namespace {

ParallelState* as_parallel(void* state) {
  return static_cast<ParallelState*>(state);
}

int32_t set_uri(void* raw, const char* uri) {
  ParallelState* state = as_parallel(raw);
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  vorn_uri record;
  int32_t result = vorn_io_uri_from_str(&record, uri);
  if (result != VORN_OK) return result;
  char normalised[VORN_URI_MAX_TEXT + 1] = {};
  result = vorn_io_uri_to_str(&record, normalised, sizeof normalised);
  if (result != VORN_OK) return result;
  store_uri(&state->core, normalised);
  return VORN_OK;
}

int32_t open(void* raw) {
  ParallelState* state = as_parallel(raw);
  if (state == nullptr || !state->core.has_uri) return VORN_ERR_IO_INVALID_SETTING;
  return handle_port_open_named(&state->core, platform::parallel_device_path);
}

int32_t write(void* raw, const uint8_t* data, uint32_t offset, uint32_t length,
              uint32_t* transferred) {
  return chunked_write(&as_parallel(raw)->core, data, offset, length, transferred);
}

int32_t read(void* raw, uint8_t* buffer, uint32_t offset, uint32_t length, uint32_t* transferred) {
  ParallelState* state = as_parallel(raw);
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  if (!state->read_enabled) return VORN_ERR_NOT_IMPLEMENTED;
  return timed_read(&state->core, buffer, offset, length, transferred);
}

int32_t readexist(void* raw, uint8_t* buffer, uint32_t offset, uint32_t size,
                  uint32_t* transferred) {
  ParallelState* state = as_parallel(raw);
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  if (!state->read_enabled) return VORN_ERR_NOT_IMPLEMENTED;
  return quick_read(&state->core, buffer, offset, size, transferred);
}

int32_t control(void* raw, uint32_t code, uint32_t /*argument*/, const void* input,
                uint32_t input_length, void* output, uint32_t output_length,
                uint32_t* output_count) {
  ParallelState* state = as_parallel(raw);
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  switch (code) {
    case VORN_CONTROL_LPT_SET_READ:
      if (input == nullptr || input_length == 0) return VORN_ERR_PARAMETER;
      state->read_enabled = *static_cast<const uint8_t*>(input);
      return VORN_OK;
    case VORN_CONTROL_LPT_GET_READ:
      return report_byte(state->read_enabled, output, output_length, output_count);
    default:
      return VORN_ERR_NOT_IMPLEMENTED;
  }
}

void destroy(void* raw) {
  delete as_parallel(raw);
}

}  // namespace

const DriverOps kParallelDriverOps = {
    .set_uri = set_uri,
    .get_uri = handle_port_get_uri,
    .open = open,
    .close = handle_port_close,
    .kill = handle_port_kill,
    .flush = handle_port_flush,
    .set_timeout = handle_port_set_timeout,
    .get_timeout = handle_port_get_timeout,
    .write = write,
    .read = read,
    .readexist = readexist,
    .control = control,
    .destroy = destroy,
};

void* new_parallel_state() {
  auto* state = new (std::nothrow) ParallelState{};
  if (state == nullptr) return nullptr;
  init_handle_port_state(&state->core, VORN_PORT_PARALLEL, false);
  state->read_enabled = 1;
  return state;
}

}  // namespace vorn::io
