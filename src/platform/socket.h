// TCP sockets for the network port: one IPv4 stream socket per port, moved
// one bounded step at a time. The network driver keeps every loop, budget
// and retry; this family only performs single socket calls, each reporting
// its own error number right away (the system's "last error" is never left
// for the caller to fetch later, so nothing can overwrite it in between).
#pragma once

#include <cstdint>

namespace vorn::platform {

// An open socket; kNoSocket when none.
using SocketHandle = intptr_t;
inline constexpr SocketHandle kNoSocket = -1;

// A wait limit meaning "until the socket is ready, however long that takes".
inline constexpr uint32_t kWaitForever = UINT32_MAX;

// An IPv4 endpoint in host byte order; address 0 and port 0 mean any local
// interface and any local port.
struct Ipv4Endpoint {
  uint32_t address = 0;
  uint16_t port = 0;
};

enum class SocketOption {
  kNoDelay,         // TCP_NODELAY: small writes are not held back
  kDontLinger,      // closing does not wait for unsent data to drain
  kSendBufferSize,  // SO_SNDBUF, in bytes
  kReceiveTimeout,  // SO_RCVTIMEO, in milliseconds (0: none)
  kSendTimeout,     // SO_SNDTIMEO, in milliseconds (0: none)
};

// What a wait is for, as the three sets of select().
enum class WaitFor {
  kReadable,   // data, or the peer's end of stream, can be received
  kWritable,   // send has room (or will report the connection's failure)
  kException,  // an error is pending on the socket
};

enum class ShutdownHow { kReceive, kSend, kBoth };

struct SocketWait {
  int32_t error = 0;   // 0, or the positive system error number of the wait
  bool ready = false;  // false with error 0: the limit ran out
};

struct SocketConnect {
  int32_t error = 0;       // 0 connected, else the positive system error number
  bool timed_out = false;  // the limit ran out before the connection completed
};

struct SocketTransfer {
  int32_t error = 0;   // 0, or the positive system error number of the call
  uint32_t count = 0;  // bytes moved; 0 without error: nothing taken, or the peer closed
};

struct SocketOps {
  // Starts and releases the system's socket library; each open starts it
  // once and each close releases it once. startup returns 0 or an error.
  int32_t (*startup)();
  void (*cleanup)();
  // Reads an IPv4 address in the numbers-and-dots notation (never looked up
  // as a host name). 0 and the address in host byte order, or the positive
  // number the system gives for an address that cannot be used.
  int32_t (*parse_ipv4)(const char* text, uint32_t* address);
  // A new TCP stream socket in blocking mode; 0 or an error.
  int32_t (*open_tcp)(SocketHandle* out);
  // Sets one option; 0 or an error.
  int32_t (*set_option)(SocketHandle socket, SocketOption option, uint32_t value);
  int32_t (*bind)(SocketHandle socket, const Ipv4Endpoint& local);
  // Connects within `limit_ms` milliseconds without blocking longer: the
  // socket is switched to non-blocking mode for the attempt and back after.
  SocketConnect (*connect)(SocketHandle socket, const Ipv4Endpoint& remote, uint32_t limit_ms);
  // Waits at most `limit_ms` (kWaitForever: no limit; 0: just looks) for the
  // socket to become ready. No socket gives an error, never a wait.
  SocketWait (*wait)(SocketHandle socket, WaitFor what, uint32_t limit_ms);
  // The error pending on the socket (SO_ERROR), which reading clears.
  // Returns 0 and the value, or the error of the query itself.
  int32_t (*pending_error)(SocketHandle socket, int32_t* value);
  // One send of up to `length` bytes. Never raises a signal when the peer
  // has gone. Takes what there is room for; waits (within the socket's send
  // timeout) only when there is no room at all.
  SocketTransfer (*send)(SocketHandle socket, const uint8_t* data, uint32_t length);
  // One receive of up to `length` bytes; count 0 without error: the peer
  // closed its end.
  SocketTransfer (*recv)(SocketHandle socket, uint8_t* buffer, uint32_t length);
  // Looks at one waiting byte without taking it; count 0 without error:
  // the peer closed its end.
  SocketTransfer (*peek)(SocketHandle socket);
  // Both ignore failures: they are only called on the way out.
  void (*shutdown)(SocketHandle socket, ShutdownHow how);
  void (*close)(SocketHandle socket);
  // True for the errors that mean the peer reset the connection, after
  // which a new connection may be tried.
  bool (*is_connection_reset)(int32_t error);
};

// The operations in force (the native ones unless a test installed others).
const SocketOps& socket_ops();
// Installs `ops` (null: back to the native sockets); returns what was in force.
const SocketOps* install_socket_ops(const SocketOps* ops);
// The platform's own sockets, defined by the platform directory.
const SocketOps& native_socket_ops();

}  // namespace vorn::platform
