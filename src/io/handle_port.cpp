#include "io/handle_port.h"

#include <vorn/vorn.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "io/port_lock.h"
#include "platform/clock.h"

namespace vorn::io {
namespace {

// Budgets are computed in 64 bits: a large multiplier times a large length
// must not wrap into a short budget.
uint64_t budget(uint32_t multiplier, uint32_t length, uint32_t constant) {
  return static_cast<uint64_t>(multiplier) * length + constant;
}

uint32_t clamp_wait(uint64_t ms) {
  return static_cast<uint32_t>(std::min<uint64_t>(ms, UINT32_MAX));
}

// How long a quick read of an overlapped device waits for its one attempt.
constexpr uint32_t kQuickReadWaitMs = 100;

HandlePortState* as_state(void* state) {
  return static_cast<HandlePortState*>(state);
}

// The checks every transfer starts with, in this order.
int32_t check_ready(const HandlePortState* state) {
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  if (!state->has_uri) return VORN_ERR_IO_INVALID_SETTING;
  if (!state->open) return VORN_ERR_IO_NOT_OPEN;
  return VORN_OK;
}

uint32_t now() {
  return platform::clock().now_ms();
}

// A silent device gets this many naps before its polls are only paced.
constexpr int kNaps = 5;
// After its naps a silent device is still polled until the budget runs out,
// but at most once per this many milliseconds.
constexpr uint32_t kPollPauseMs = 10;

// One single-byte attempt once the naps are used up: it waits up to `pause`
// for the byte where the device can signal data, and where it answers at once
// without one (a regular file, a port without a reverse channel) the rest of
// the pause is slept, so that a silent device never costs a whole core.
platform::Attempt paced_read(HandlePortState* state, uint8_t* target, uint32_t pause) {
  const uint32_t start = now();
  platform::Attempt attempt = state->device().read(state->handle, target, 1, pause);
  const uint32_t spent = now() - start;
  if (attempt.done == 0 && spent < pause) platform::clock().sleep_ms(pause - spent);
  return attempt;
}

int32_t parallel_timed_read(HandlePortState* state, uint8_t* target, uint32_t length,
                            uint32_t* transferred) {
  const platform::DeviceFileOps& device = state->device();
  const uint64_t read_budget =
      budget(state->timeouts[kReadMultiplier], length, state->timeouts[kReadConstant]);
  const uint32_t nap = static_cast<uint32_t>(std::clamp<uint64_t>(read_budget, 10, 100));
  uint64_t elapsed = 0;
  int sleeps = 0;
  uint32_t mark = now();
  int32_t error = VORN_OK;

  platform::Attempt last = device.read(state->handle, target, 1, 0);
  uint32_t total = last.done;
  while (total < length) {
    target += last.done;
    if (last.error != 0 && !device.is_no_data_error(last.error)) {
      error = last.error;
      break;
    }
    uint32_t moment = now();
    uint32_t d = moment - mark;
    mark = moment;
    elapsed += d;
    if (elapsed > read_budget) {
      error = VORN_ERR_IO_READ_TIMEOUT;
      break;
    }
    // A device that has just gone silent gets a few naps; after them it is
    // polled with short pauses, never more than the budget has left.
    if (d < 100 && last.done == 0 && sleeps < kNaps) {
      platform::clock().sleep_ms(nap);
      ++sleeps;
    }
    if (sleeps < kNaps) {
      last = device.read(state->handle, target, 1, 0);
    } else {
      const uint64_t left = read_budget - elapsed + 1;
      last =
          paced_read(state, target, static_cast<uint32_t>(std::min<uint64_t>(kPollPauseMs, left)));
    }
    total += last.done;
  }
  *transferred = total;
  return error;
}

int32_t parallel_quick_read(HandlePortState* state, uint8_t* target, uint32_t want,
                            uint32_t* transferred) {
  const platform::DeviceFileOps& device = state->device();
  uint32_t total = 0;
  int32_t error = VORN_OK;
  for (uint32_t i = 0; i < want; ++i) {
    platform::Attempt attempt = device.read(state->handle, target + total, 1, 0);
    if (attempt.error != 0) {
      if (!device.is_no_data_error(attempt.error)) error = attempt.error;
      break;
    }
    total += attempt.done;
    if (total == 0) break;
  }
  *transferred = total;
  return error;
}

// Overlapped reads of a USB port land in a scratch buffer when the caller
// asks for little: the device may answer with a whole packet, and a transfer
// shorter than what the device sends fails instead of returning the bytes.
// The buffers belong to the call, so ports read from several threads do not
// share them; their sizes and the rule of keeping the last bytes stay.
constexpr uint32_t kTimedReadScratch = 255;
constexpr uint32_t kQuickReadScratch = 64;

// Copies what a scratch buffer received to the caller: the last `want`
// bytes when more arrived.
void deliver_last(const uint8_t* scratch, uint32_t received, uint8_t* target, uint32_t want) {
  const uint32_t n = std::min(received, want);
  std::memcpy(target, scratch + (received - n), n);
}

// At most five attempts: the first waits for what is left of the budget,
// and once data flows each later one waits only the read interval.
int32_t overlapped_timed_read(HandlePortState* state, uint8_t* buffer, uint32_t length,
                              uint32_t* transferred) {
  const platform::DeviceFileOps& device = state->device();
  const uint64_t total_budget =
      budget(state->timeouts[kReadMultiplier], length, state->timeouts[kReadConstant]);
  const uint32_t interval = state->timeouts[kReadInterval];
  uint8_t scratch[kTimedReadScratch] = {};
  const bool use_scratch = state->kind == VORN_PORT_USB && length < kTimedReadScratch;
  uint8_t* target = use_scratch ? scratch : buffer;
  uint32_t read_size = use_scratch ? kTimedReadScratch : length;

  uint64_t wait_left = total_budget;
  uint64_t elapsed = 0;
  bool waiting_for_first = true;
  int tries_left = 5;
  int reads = 0;
  uint32_t total = 0;
  int32_t error = VORN_OK;
  uint32_t mark = now();
  for (;;) {
    if (kill_marked(state->kill_mark) || tries_left == 0) break;
    --tries_left;
    ++reads;
    platform::Attempt attempt =
        device.read(state->handle, target + total, read_size, clamp_wait(wait_left));
    if (attempt.error != 0) {
      error = attempt.error;
      break;
    }
    const uint32_t n = attempt.timed_out ? 0 : attempt.done;
    if (n > 0) {
      total += n;
      read_size -= n;
      if (total >= length) break;
    }
    const uint32_t moment = now();
    const uint32_t d = moment - mark;
    mark = moment;
    wait_left = uint64_t{d} + 10 > wait_left ? 0 : wait_left - d;
    elapsed += d;
    if ((n == 0 && wait_left == 0) || elapsed > total_budget ||
        (!waiting_for_first && d > interval)) {
      error = VORN_ERR_IO_READ_TIMEOUT;
      break;
    }
    if (d < 100 && n == 0 && waiting_for_first && reads < 5) {
      platform::clock().sleep_ms(clamp_wait(std::min<uint64_t>(wait_left / tries_left, 100)));
    }
    if (n > 0 && waiting_for_first) {
      waiting_for_first = false;
      wait_left = interval;
    }
  }
  if (reads == 5 && total < length) error = VORN_ERR_IO_READ_TIMEOUT;
  if (use_scratch) deliver_last(scratch, total, buffer, length);
  *transferred = total;
  return error;
}

// One attempt with a short wait; whatever it reports, the result is 0.
int32_t overlapped_quick_read(HandlePortState* state, uint8_t* buffer, uint32_t want,
                              uint32_t* transferred) {
  uint8_t scratch[kQuickReadScratch] = {};
  const bool use_scratch = state->kind == VORN_PORT_USB && want < kQuickReadScratch;
  platform::Attempt attempt =
      state->device().read(state->handle, use_scratch ? scratch : buffer,
                           use_scratch ? kQuickReadScratch : want, kQuickReadWaitMs);
  const uint32_t received = attempt.timed_out ? 0 : attempt.done;
  if (use_scratch) deliver_last(scratch, received, buffer, want);
  *transferred = received;
  return VORN_OK;
}

}  // namespace

void init_handle_port_state(HandlePortState* state, uint8_t kind, bool overlapped) {
  std::memset(state, 0, sizeof *state);
  std::copy(std::begin(kDefaultTimeouts), std::end(kDefaultTimeouts), state->timeouts);
  state->transfer_unit = kTransferUnit;
  state->handle = platform::kNoDevice;
  state->kind = kind;
  state->overlapped = overlapped ? 1 : 0;
  state->device = platform::device_file;
}

void store_uri(HandlePortState* state, const char* uri) {
  std::memset(state->uri, 0, sizeof state->uri);
  std::strncpy(state->uri, uri, sizeof state->uri - 1);
  state->has_uri = 1;
}

int32_t handle_port_get_uri(void* raw, char* buffer, uint32_t size, uint32_t* length) {
  HandlePortState* state = as_state(raw);
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  if (buffer == nullptr || length == nullptr || size == 0) return VORN_ERR_PARAMETER;
  if (state->kind == VORN_PORT_USB) std::memset(buffer, 0, size);
  if (!state->has_uri) {
    *length = 0;
    buffer[0] = '\0';
    return VORN_OK;
  }
  // The text is at most 255 bytes; never copy past the caller's buffer even
  // when it is smaller than the 255 bytes it should hold.
  size_t text_length = strnlen(state->uri, sizeof state->uri - 1);
  if (size < text_length + 1) return VORN_ERR_BUFFER_TOO_SMALL;
  std::memcpy(buffer, state->uri, text_length + 1);
  *length = static_cast<uint32_t>(text_length);
  return VORN_OK;
}

int32_t report_byte(uint8_t value, void* output, uint32_t output_length, uint32_t* output_count) {
  if (output == nullptr || output_length == 0) return VORN_ERR_BUFFER_TOO_SMALL;
  *static_cast<uint8_t*>(output) = value;
  if (output_count != nullptr) *output_count = 1;
  return VORN_OK;
}

// The open flag and the handle change under the port lock, as the kill mark
// does: a kill from another thread then cancels either the open handle or
// none, never one that is being closed.
int32_t handle_port_close(void* raw) {
  HandlePortState* state = as_state(raw);
  if (state == nullptr) return VORN_OK;
  platform::DeviceHandle handle = platform::kNoDevice;
  under_port_lock([&] {
    handle = state->handle;
    state->handle = platform::kNoDevice;
    state->open = 0;
  });
  if (handle != platform::kNoDevice) state->device().close(handle);
  return VORN_OK;
}

// The mark stops the transfer before its next attempt; the device family's
// cancel, where it has one, also cuts short the attempt that is waiting now.
int32_t handle_port_kill(void* raw) {
  HandlePortState* state = as_state(raw);
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  if (!state->has_uri) return VORN_ERR_IO_INVALID_SETTING;
  int32_t result = VORN_OK;
  under_port_lock([&] {
    if (!state->open) {
      result = VORN_ERR_IO_NOT_OPEN;
      return;
    }
    state->kill_mark = 1;
    const auto cancel = state->device().cancel;
    if (cancel != nullptr && state->handle != platform::kNoDevice) cancel(state->handle);
  });
  return result;
}

int32_t handle_port_flush(void* raw) {
  // Nothing is held back by the library, so there is nothing to push out.
  return check_ready(as_state(raw));
}

int32_t handle_port_set_timeout(void* raw, const uint32_t values[kTimeoutCount]) {
  HandlePortState* state = as_state(raw);
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  std::copy(values, values + kTimeoutCount, state->timeouts);
  return VORN_OK;
}

int32_t handle_port_get_timeout(void* raw, uint32_t values[kTimeoutCount]) {
  HandlePortState* state = as_state(raw);
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  std::copy(state->timeouts, state->timeouts + kTimeoutCount, values);
  return VORN_OK;
}

int32_t handle_port_open_device(HandlePortState* state) {
  platform::DeviceHandle handle = platform::kNoDevice;
  int32_t error =
      state->device().open_existing(state->device_path, state->overlapped != 0, &handle);
  if (error != 0) return error;
  under_port_lock([&] {
    state->handle = handle;
    state->open = 1;
  });
  return VORN_OK;
}

int32_t handle_port_open_named(HandlePortState* state,
                               void (*device_path_for)(const char* name, char* out, size_t size)) {
  // The stored URI is one that parsed before and parses again.
  vorn_uri record;
  const int32_t result = vorn_io_uri_from_str(&record, state->uri);
  if (result != VORN_OK) return result;
  device_path_for(record.name, state->device_path, sizeof state->device_path);
  return handle_port_open_device(state);
}

int32_t chunked_write(HandlePortState* state, const uint8_t* data, uint32_t offset, uint32_t length,
                      uint32_t* transferred) {
  int32_t error = check_ready(state);
  if (error != VORN_OK) return error;
  const platform::DeviceFileOps& device = state->device();
  const uint32_t m = state->timeouts[kWriteMultiplier];
  const uint32_t c = state->timeouts[kWriteConstant];
  const uint8_t* p = data + offset;
  uint32_t remaining = length;
  uint32_t total = 0;
  uint64_t elapsed = 0;
  const uint64_t total_budget = budget(m, length, c);
  uint64_t wait_left = total_budget;

  for (;;) {
    if (kill_marked(state->kill_mark) || remaining == 0) break;
    const uint32_t chunk = std::min(state->transfer_unit, remaining);
    const uint64_t chunk_budget = budget(m, chunk, c);
    uint32_t chunk_done = 0;
    for (;;) {
      if (kill_marked(state->kill_mark)) break;
      const uint32_t mark = now();
      platform::Attempt attempt =
          device.write(state->handle, p, chunk - chunk_done, clamp_wait(wait_left));
      error = attempt.error;
      // An overlapped attempt whose wait ran out was cancelled: that is a
      // write timeout, whatever part of it went through.
      if (error == 0 && attempt.timed_out && state->overlapped) error = VORN_ERR_IO_WRITE_TIMEOUT;
      total += attempt.done;
      chunk_done += attempt.done;
      p += attempt.done;
      remaining -= attempt.done;
      if (chunk_done >= chunk || error != 0) break;
      // An attempt that a kill cut short did not run out of time.
      if (kill_marked(state->kill_mark)) break;
      const uint32_t d = now() - mark;
      elapsed += d;
      wait_left = wait_left > d ? wait_left - d : 0;
      if (elapsed > chunk_budget || elapsed > total_budget) {
        error = VORN_ERR_IO_WRITE_TIMEOUT;
        break;
      }
    }
    if (total >= length) {
      error = VORN_OK;
      break;
    }
    if (error != 0) break;
  }
  *transferred = total;
  return error;
}

int32_t timed_read(HandlePortState* state, uint8_t* buffer, uint32_t offset, uint32_t length,
                   uint32_t* transferred) {
  int32_t error = check_ready(state);
  if (error != VORN_OK) return error;
  // A read of nothing stores nothing: every path below would otherwise make
  // an attempt of at least one byte (the parallel poll, the USB scratch
  // buffer) and wait out its budget for it.
  if (length == 0) return VORN_OK;
  if (state->overlapped) return overlapped_timed_read(state, buffer + offset, length, transferred);
  if (state->kind == VORN_PORT_PARALLEL) {
    return parallel_timed_read(state, buffer + offset, length, transferred);
  }
  // One read bounded by the line's own timeouts.
  const uint64_t read_budget =
      budget(state->timeouts[kReadMultiplier], length, state->timeouts[kReadConstant]);
  platform::Attempt attempt =
      state->device().read(state->handle, buffer + offset, length, clamp_wait(read_budget));
  *transferred = attempt.done;
  return attempt.error;
}

int32_t quick_read(HandlePortState* state, uint8_t* buffer, uint32_t offset, uint32_t size,
                   uint32_t* transferred) {
  int32_t error = check_ready(state);
  if (error != VORN_OK) return error;
  const uint32_t want = size - offset;
  if (state->overlapped) return overlapped_quick_read(state, buffer + offset, want, transferred);
  if (state->kind == VORN_PORT_PARALLEL) {
    return parallel_quick_read(state, buffer + offset, want, transferred);
  }
  platform::Attempt attempt = state->device().read(state->handle, buffer + offset, want, 0);
  *transferred = attempt.done;
  return attempt.error;
}

}  // namespace vorn::io
