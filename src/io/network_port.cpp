#include "io/network_port.h"

#include <vorn/vorn.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

#include "io/port_lock.h"
#include "platform/clock.h"

namespace vorn::io {
namespace {

using platform::kNoSocket;
using platform::kWaitForever;
using platform::SocketHandle;
using platform::WaitFor;

// Waits are cut into slices this long, with the kill mark read before each,
// so that a kill from another thread ends a transfer soon even while the
// peer keeps the socket from becoming ready.
constexpr uint32_t kKillCheckMs = 50;

NetworkState* as_network(void* state) {
  return static_cast<NetworkState*>(state);
}
const platform::SocketOps& sockets() {
  return platform::socket_ops();
}
uint32_t now() {
  return platform::clock().now_ms();
}

SocketHandle socket_of(const NetworkState* state) {
  return state->socket.load(std::memory_order_relaxed);
}

// A wait limit from a budget computed in 64 bits; never "forever" by accident.
uint32_t limit_of(uint64_t ms) {
  return static_cast<uint32_t>(std::min<uint64_t>(ms, kWaitForever - 1));
}

// Reads a TCP port number the way "%i" does: optional blanks and sign, then
// decimal, octal with a leading 0, or hexadecimal with 0x. False when no
// number is there. Out-of-range values are cut, never undefined.
bool parse_port_number(const char* text, uint32_t* out) {
  char* end = nullptr;
  const long long value = std::strtoll(text, &end, 0);
  if (end == text) return false;
  *out = static_cast<uint32_t>(value);
  return true;
}

void create_socket_options(SocketHandle socket, const NetworkState* state) {
  // Failures are ignored: every option only tunes a working socket.
  const platform::SocketOps& ops = sockets();
  ops.set_option(socket, platform::SocketOption::kNoDelay, 1);
  ops.set_option(socket, platform::SocketOption::kDontLinger, 1);
  ops.set_option(socket, platform::SocketOption::kSendBufferSize, state->send_piece);
  ops.set_option(socket, platform::SocketOption::kReceiveTimeout, state->timeouts[kReadConstant]);
  ops.set_option(socket, platform::SocketOption::kSendTimeout, state->timeouts[kWriteConstant]);
}

int32_t create_socket(NetworkState* state) {
  SocketHandle socket = kNoSocket;
  int32_t error = sockets().open_tcp(&socket);
  if (error != 0) return error;
  create_socket_options(socket, state);
  state->socket.store(socket, std::memory_order_relaxed);
  return VORN_OK;
}

void discard_socket(NetworkState* state, platform::ShutdownHow how) {
  const SocketHandle socket = socket_of(state);
  if (socket == kNoSocket) return;
  sockets().shutdown(socket, how);
  sockets().close(socket);
  state->socket.store(kNoSocket, std::memory_order_relaxed);
}

// Bind to any local address and port, then connect within the connect
// timeout.
int32_t connect_attempt(NetworkState* state) {
  const platform::SocketOps& ops = sockets();
  const SocketHandle socket = socket_of(state);
  int32_t error = ops.bind(socket, state->local);
  if (error != 0) return error;
  platform::SocketConnect connected =
      ops.connect(socket, state->remote, state->timeouts[kConnectTimeout]);
  if (connected.timed_out) return VORN_ERR_IO_OPEN_FAILED;
  return connected.error;
}

// Used by open and to reconnect. The first attempt uses the socket there is;
// a socket that was connected before cannot be bound again, so when a write
// reconnects, the fresh socket of the second attempt is what connects.
int32_t connect_procedure(NetworkState* state) {
  if (socket_of(state) == kNoSocket) {
    int32_t error = create_socket(state);
    if (error != 0) return error;
  }
  if (connect_attempt(state) == VORN_OK) return VORN_OK;
  discard_socket(state, platform::ShutdownHow::kBoth);
  int32_t error = create_socket(state);
  if (error != 0) return error;
  int32_t result = connect_attempt(state);
  if (result != VORN_OK) discard_socket(state, platform::ShutdownHow::kBoth);
  return result;
}

// 0 while the connection looks alive; else the pending socket error, the
// error of the check itself, or -361 when the peer has closed.
int32_t check_connection(const NetworkState* state) {
  const platform::SocketOps& ops = sockets();
  const SocketHandle socket = socket_of(state);
  platform::SocketWait exception = ops.wait(socket, WaitFor::kException, 0);
  if (exception.error != 0) return exception.error;
  if (exception.ready) {
    int32_t pending = 0;
    int32_t error = ops.pending_error(socket, &pending);
    if (error != 0) return error;
    return pending != 0 ? pending : VORN_ERR_IO_HANDSHAKE;
  }
  platform::SocketWait readable = ops.wait(socket, WaitFor::kReadable, 0);
  if (readable.error != 0) return readable.error;
  if (!readable.ready) return VORN_OK;
  // Readable on a printer that rarely talks back: an end of stream here
  // means the printer has closed the connection.
  platform::SocketTransfer peeked = ops.peek(socket);
  if (peeked.error != 0 || peeked.count == 0) return VORN_ERR_IO_HANDSHAKE;
  return VORN_OK;
}

enum class WaitEnd { kReady, kTimedOut, kKilled, kFailed };

// Waits up to `limit_ms` (kWaitForever: no limit) for the socket, in slices
// so that a kill is seen within one slice.
WaitEnd wait_unless_killed(NetworkState* state, WaitFor what, uint32_t limit_ms, int32_t* error) {
  const bool forever = limit_ms == kWaitForever;
  uint32_t left = limit_ms;
  for (;;) {
    const uint32_t slice = forever ? kKillCheckMs : std::min(left, kKillCheckMs);
    platform::SocketWait waited = sockets().wait(socket_of(state), what, slice);
    if (waited.error != 0) {
      *error = waited.error;
      return WaitEnd::kFailed;
    }
    if (waited.ready) return WaitEnd::kReady;
    if (!forever) {
      left -= slice;
      if (left == 0) return WaitEnd::kTimedOut;
    }
    if (kill_marked(state->kill_mark)) return WaitEnd::kKilled;
  }
}

int32_t set_uri(void* raw, const char* uri) {
  NetworkState* state = as_network(raw);
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  uint32_t port_number = kDefaultNetworkPort;
  vorn_uri record;
  int32_t result = vorn_io_uri_from_str(&record, uri);
  if (result != VORN_OK) return result;
  const char* ip = vorn_io_uri_get_option(&record, "ip");
  if (ip == nullptr) return VORN_ERR_IO_INVALID_SETTING;
  char normalised[VORN_URI_MAX_TEXT + 1] = {};
  result = vorn_io_uri_to_str(&record, normalised, sizeof normalised);
  if (result != VORN_OK) return result;

  const size_t ip_length = std::strlen(ip);
  char* ip_text = new (std::nothrow) char[ip_length + 1]();
  if (ip_text == nullptr) return VORN_ERR_NO_MEMORY;
  std::memcpy(ip_text, ip, ip_length);
  delete[] state->ip_text;
  state->ip_text = ip_text;

  // A port text that holds no number leaves the default.
  if (const char* port = vorn_io_uri_get_option(&record, "port")) {
    parse_port_number(port, &port_number);
  }
  state->port_number = port_number;
  std::memset(state->port_name, 0, sizeof state->port_name);
  if (record.name != nullptr) {
    std::strncpy(state->port_name, record.name, sizeof state->port_name - 1);
  }
  std::memset(state->uri, 0, sizeof state->uri);
  std::memcpy(state->uri, normalised, sizeof state->uri - 1);
  state->has_uri = 1;
  return VORN_OK;
}

int32_t get_uri(void* raw, char* buffer, uint32_t size, uint32_t* length) {
  NetworkState* state = as_network(raw);
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  if (buffer == nullptr || length == nullptr || size == 0) return VORN_ERR_PARAMETER;
  if (!state->has_uri) {
    *length = 0;
    buffer[0] = '\0';
    return VORN_OK;
  }
  const size_t text_length = strnlen(state->uri, sizeof state->uri - 1);
  // Never copy past a caller's buffer, even one smaller than it should be.
  if (size < text_length + 1) return VORN_ERR_BUFFER_TOO_SMALL;
  std::memcpy(buffer, state->uri, text_length + 1);
  *length = static_cast<uint32_t>(text_length);
  return VORN_OK;
}

int32_t open(void* raw) {
  NetworkState* state = as_network(raw);
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  if (!state->has_uri || state->ip_text == nullptr) return VORN_ERR_IO_INVALID_SETTING;
  if (state->open) return VORN_ERR_IO_ALREADY_OPEN;
  int32_t error = sockets().startup();
  if (error != 0) return error;

  // The IP text is a numeric address and nothing else: it is never looked
  // up as a host name, so an unusable text fails here, before any traffic.
  uint32_t address = 0;
  error = sockets().parse_ipv4(state->ip_text, &address);
  if (error != 0) {
    state->open = 0;
    return error;
  }
  state->local = platform::Ipv4Endpoint{};
  state->remote = platform::Ipv4Endpoint{address, static_cast<uint16_t>(state->port_number)};

  discard_socket(state, platform::ShutdownHow::kBoth);
  error = create_socket(state);
  if (error == VORN_OK) error = connect_procedure(state);
  if (error != VORN_OK) {
    state->open = 0;
    return error;
  }
  state->open = 1;
  return VORN_OK;
}

int32_t close(void* raw) {
  NetworkState* state = as_network(raw);
  if (state == nullptr) return VORN_OK;
  discard_socket(state, platform::ShutdownHow::kReceive);
  state->open = 0;
  sockets().cleanup();
  return VORN_OK;
}

int32_t kill(void* raw) {
  NetworkState* state = as_network(raw);
  if (state != nullptr && socket_of(state) != kNoSocket) set_kill_mark(state->kill_mark);
  return VORN_OK;
}

int32_t flush(void* /*state*/) {
  return VORN_OK;
}

int32_t set_timeout(void* raw, const uint32_t values[kTimeoutCount]) {
  NetworkState* state = as_network(raw);
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  std::copy(values, values + kTimeoutCount, state->timeouts);
  const SocketHandle socket = socket_of(state);
  if (socket != kNoSocket) {
    sockets().set_option(socket, platform::SocketOption::kReceiveTimeout,
                         state->timeouts[kReadConstant]);
    sockets().set_option(socket, platform::SocketOption::kSendTimeout,
                         state->timeouts[kWriteConstant]);
  }
  return VORN_OK;
}

int32_t get_timeout(void* raw, uint32_t values[kTimeoutCount]) {
  NetworkState* state = as_network(raw);
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  std::copy(state->timeouts, state->timeouts + kTimeoutCount, values);
  return VORN_OK;
}

// Checks shared by the transfers. A port that was never opened or has been
// closed is refused rather than connected behind the caller's back.
int32_t check_open(const NetworkState* state) {
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  if (!state->open) return VORN_ERR_IO_NOT_OPEN;
  return VORN_OK;
}

int32_t write(void* raw, const uint8_t* data, uint32_t offset, uint32_t length,
              uint32_t* transferred) {
  NetworkState* state = as_network(raw);
  int32_t result = check_open(state);
  if (result != VORN_OK) return result;
  const platform::SocketOps& ops = sockets();
  const uint8_t* p = data + offset;
  uint32_t remaining = length;
  uint32_t sent = 0;
  uint32_t mark = now();
  bool may_reconnect = true;

  if (check_connection(state) != VORN_OK) {
    result = connect_procedure(state);
    if (result != VORN_OK) return result;
  }
  // Zero multiplier and constant: wait for the printer however long it takes.
  uint64_t budget = static_cast<uint64_t>(state->timeouts[kWriteMultiplier]) * length +
                    state->timeouts[kWriteConstant];
  const bool unlimited = budget == 0;

  for (;;) {
    if (kill_marked(state->kill_mark) || remaining == 0) break;
    uint32_t limit = kWaitForever;
    if (!unlimited) {
      const uint32_t moment = now();
      const uint32_t elapsed = moment - mark;
      mark = moment;
      if (elapsed >= budget) {
        result = VORN_ERR_IO_WRITE_TIMEOUT;
        break;
      }
      budget -= elapsed;
      limit = limit_of(budget);
    }
    int32_t error = 0;
    const WaitEnd end = wait_unless_killed(state, WaitFor::kWritable, limit, &error);
    if (end == WaitEnd::kKilled) break;
    if (end == WaitEnd::kFailed) {
      result = error;
      break;
    }
    if (end == WaitEnd::kTimedOut) {
      result = VORN_ERR_IO_WRITE_TIMEOUT;
      break;
    }
    platform::SocketTransfer piece =
        ops.send(socket_of(state), p, std::min(state->send_piece, remaining));
    if (piece.error == 0 && piece.count > 0) {
      p += piece.count;
      remaining -= piece.count;
      sent += piece.count;
      continue;
    }
    // A reset, or a send that took nothing: one new connection, then the
    // bytes this send did not take go out on it.
    const bool reset = piece.error == 0 || ops.is_connection_reset(piece.error);
    if (!reset || !may_reconnect) {
      result = piece.error;
      break;
    }
    may_reconnect = false;
    result = connect_procedure(state);
    if (result != VORN_OK) break;
  }
  *transferred = sent;
  return result;
}

int32_t read(void* raw, uint8_t* buffer, uint32_t offset, uint32_t length, uint32_t* transferred) {
  NetworkState* state = as_network(raw);
  int32_t result = check_open(state);
  if (result != VORN_OK) return result;
  uint8_t* p = buffer + offset;
  uint32_t remaining = length;
  uint32_t received = 0;
  bool first = true;
  const uint64_t budget = static_cast<uint64_t>(state->timeouts[kReadMultiplier]) * length +
                          state->timeouts[kReadConstant];
  const uint32_t interval = limit_of(state->timeouts[kReadInterval]);

  for (;;) {
    if (kill_marked(state->kill_mark) || remaining == 0) break;
    // The budget bounds the wait for the first data; after that every
    // further piece must follow within the read interval.
    uint32_t limit = kWaitForever;
    if (budget != 0) limit = first ? limit_of(budget) : interval;
    int32_t error = 0;
    const WaitEnd end = wait_unless_killed(state, WaitFor::kReadable, limit, &error);
    if (end == WaitEnd::kKilled) break;
    if (end == WaitEnd::kFailed) {
      result = error;
      break;
    }
    if (end == WaitEnd::kTimedOut) {
      result = VORN_ERR_IO_READ_TIMEOUT;
      break;
    }
    platform::SocketTransfer piece = sockets().recv(socket_of(state), p, remaining);
    if (piece.error != 0) {
      result = piece.error;
      break;
    }
    if (piece.count == 0) {
      // The printer closed its end: be connected again for the next call.
      result = connect_procedure(state);
      break;
    }
    p += piece.count;
    remaining -= piece.count;
    received += piece.count;
    first = false;
    if (budget != 0 && limit > budget) {
      result = VORN_ERR_IO_READ_TIMEOUT;
      break;
    }
  }
  *transferred = received;
  return result;
}

int32_t readexist(void* raw, uint8_t* buffer, uint32_t offset, uint32_t size,
                  uint32_t* transferred) {
  NetworkState* state = as_network(raw);
  int32_t result = check_open(state);
  if (result != VORN_OK) return result;
  const SocketHandle socket = socket_of(state);
  platform::SocketWait readable = sockets().wait(socket, WaitFor::kReadable, 0);
  if (readable.error != 0) return readable.error;
  if (!readable.ready) return VORN_OK;
  platform::SocketTransfer piece = sockets().recv(socket, buffer + offset, size - offset);
  if (piece.error != 0) return piece.error;
  *transferred = piece.count;
  return VORN_OK;
}

int32_t control(void* /*state*/, uint32_t /*code*/, uint32_t /*argument*/, const void* /*input*/,
                uint32_t /*input_length*/, void* /*output*/, uint32_t /*output_length*/,
                uint32_t* /*output_count*/) {
  return VORN_ERR_NOT_IMPLEMENTED;
}

void destroy(void* raw) {
  NetworkState* state = as_network(raw);
  if (state == nullptr) return;
  delete[] state->ip_text;
  delete state;
}

}  // namespace

const DriverOps kNetworkDriverOps = {
    .set_uri = set_uri,
    .get_uri = get_uri,
    .open = open,
    .close = close,
    .kill = kill,
    .flush = flush,
    .set_timeout = set_timeout,
    .get_timeout = get_timeout,
    .write = write,
    .read = read,
    .readexist = readexist,
    .control = control,
    .destroy = destroy,
};

void* new_network_state() {
  auto* state = new (std::nothrow) NetworkState{};
  if (state == nullptr) return nullptr;
  std::copy(std::begin(kDefaultNetworkTimeouts), std::end(kDefaultNetworkTimeouts),
            state->timeouts);
  state->socket.store(kNoSocket, std::memory_order_relaxed);
  state->port_number = kDefaultNetworkPort;
  state->send_piece = kNetworkSendPiece;
  return state;
}

}  // namespace vorn::io
