// TCP sockets on Winsock 2.
#include <winsock2.h>
#include <ws2tcpip.h>

#include <cstring>

#include "platform/socket.h"

namespace vorn::platform {
namespace {

SOCKET socket_of(SocketHandle handle) {
  return static_cast<SOCKET>(handle);
}

int32_t last_socket_error() {
  const int error = WSAGetLastError();
  return error != 0 ? error : WSAEINVAL;
}

// Each open starts Winsock once and each close releases it once; Winsock
// counts the starts itself and unloads after the last cleanup.
int32_t startup() {
  WSADATA data{};
  return WSAStartup(MAKEWORD(2, 2), &data);
}

void cleanup() {
  WSACleanup();
}

int32_t parse_ipv4(const char* text, uint32_t* address) {
  // inet_addr takes the classic numeric forms and never asks a name
  // service. It answers INADDR_NONE for text it cannot read, which is also
  // the broadcast address written out.
  if (text == nullptr) return WSAEADDRNOTAVAIL;
  const unsigned long parsed = inet_addr(text);
  if (parsed == INADDR_NONE && std::strcmp(text, "255.255.255.255") != 0) {
    return WSAEADDRNOTAVAIL;
  }
  *address = ntohl(parsed);
  return 0;
}

int32_t open_tcp(SocketHandle* out) {
  const SOCKET s = WSASocketA(AF_INET, SOCK_STREAM, IPPROTO_TCP, nullptr, 0, WSA_FLAG_OVERLAPPED);
  if (s == INVALID_SOCKET) return last_socket_error();
  *out = static_cast<SocketHandle>(s);
  return 0;
}

int32_t set_value(SocketHandle socket, int level, int name, DWORD value) {
  const int result = setsockopt(socket_of(socket), level, name,
                                reinterpret_cast<const char*>(&value), sizeof value);
  return result == 0 ? 0 : last_socket_error();
}

int32_t set_option(SocketHandle socket, SocketOption option, uint32_t value) {
  switch (option) {
    case SocketOption::kNoDelay:
      return set_value(socket, IPPROTO_TCP, TCP_NODELAY, value != 0 ? TRUE : FALSE);
    case SocketOption::kDontLinger:
      return set_value(socket, SOL_SOCKET, SO_DONTLINGER, value != 0 ? TRUE : FALSE);
    case SocketOption::kSendBufferSize:
      return set_value(socket, SOL_SOCKET, SO_SNDBUF, value);
    case SocketOption::kReceiveTimeout:
      return set_value(socket, SOL_SOCKET, SO_RCVTIMEO, value);
    case SocketOption::kSendTimeout:
      return set_value(socket, SOL_SOCKET, SO_SNDTIMEO, value);
  }
  return WSAEINVAL;
}

sockaddr_in to_sockaddr(const Ipv4Endpoint& endpoint) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(endpoint.port);
  address.sin_addr.s_addr = htonl(endpoint.address);
  return address;
}

int32_t bind_socket(SocketHandle socket, const Ipv4Endpoint& local) {
  const sockaddr_in address = to_sockaddr(local);
  if (bind(socket_of(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return last_socket_error();
  }
  return 0;
}

// select() on one socket for one or two of its sets.
SocketWait select_one(SocketHandle socket, bool readable, bool writable, bool exception,
                      uint32_t limit_ms) {
  SocketWait result;
  if (socket == kNoSocket) {
    result.error = WSAENOTSOCK;
    return result;
  }
  fd_set sets[3];
  for (fd_set& set : sets) FD_ZERO(&set);
  if (readable) FD_SET(socket_of(socket), &sets[0]);
  if (writable) FD_SET(socket_of(socket), &sets[1]);
  if (exception) FD_SET(socket_of(socket), &sets[2]);
  timeval limit{static_cast<long>(limit_ms / 1000), static_cast<long>(limit_ms % 1000) * 1000};
  // The first argument is ignored by Winsock.
  const int n = select(0, readable ? &sets[0] : nullptr, writable ? &sets[1] : nullptr,
                       exception ? &sets[2] : nullptr, limit_ms == kWaitForever ? nullptr : &limit);
  if (n == SOCKET_ERROR) {
    result.error = last_socket_error();
  } else {
    result.ready = n > 0;
  }
  return result;
}

SocketWait wait(SocketHandle socket, WaitFor what, uint32_t limit_ms) {
  return select_one(socket, what == WaitFor::kReadable, what == WaitFor::kWritable,
                    what == WaitFor::kException, limit_ms);
}

int32_t set_blocking(SocketHandle socket, bool blocking) {
  u_long non_blocking = blocking ? 0 : 1;
  return ioctlsocket(socket_of(socket), FIONBIO, &non_blocking) == 0 ? 0 : last_socket_error();
}

int32_t pending_error(SocketHandle socket, int32_t* value) {
  int error = 0;
  int size = sizeof error;
  if (getsockopt(socket_of(socket), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size) !=
      0) {
    return last_socket_error();
  }
  *value = error;
  return 0;
}

SocketConnect connect_socket(SocketHandle socket, const Ipv4Endpoint& remote, uint32_t limit_ms) {
  SocketConnect result;
  result.error = set_blocking(socket, false);
  if (result.error != 0) return result;
  const sockaddr_in address = to_sockaddr(remote);
  if (connect(socket_of(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
      0) {
    const int error = WSAGetLastError();
    if (error == WSAEWOULDBLOCK) {
      // Winsock reports a completed connect as writable and a failed one
      // (refused, unreachable) in the exception set; waiting on both ends a
      // refused attempt at once instead of at the limit.
      const SocketWait ready = select_one(socket, false, true, true, limit_ms);
      if (ready.error != 0) {
        result.error = ready.error;
      } else if (!ready.ready) {
        result.timed_out = true;
      } else {
        int32_t value = 0;
        result.error = pending_error(socket, &value);
        if (result.error == 0) result.error = value;
      }
    } else {
      result.error = error != 0 ? error : WSAEINVAL;
    }
  }
  set_blocking(socket, true);
  return result;
}

SocketTransfer send_socket(SocketHandle socket, const uint8_t* data, uint32_t length) {
  SocketTransfer result;
  const int n = send(socket_of(socket), reinterpret_cast<const char*>(data),
                     static_cast<int>(length > INT32_MAX ? INT32_MAX : length), 0);
  if (n == SOCKET_ERROR) {
    result.error = last_socket_error();
  } else {
    result.count = static_cast<uint32_t>(n);
  }
  return result;
}

SocketTransfer receive(SocketHandle socket, uint8_t* buffer, uint32_t length, int flags) {
  SocketTransfer result;
  const int n = recv(socket_of(socket), reinterpret_cast<char*>(buffer),
                     static_cast<int>(length > INT32_MAX ? INT32_MAX : length), flags);
  if (n == SOCKET_ERROR) {
    result.error = last_socket_error();
  } else {
    result.count = static_cast<uint32_t>(n);
  }
  return result;
}

SocketTransfer recv_socket(SocketHandle socket, uint8_t* buffer, uint32_t length) {
  return receive(socket, buffer, length, 0);
}

// Called only after a wait found the socket readable, so it does not block.
SocketTransfer peek(SocketHandle socket) {
  uint8_t byte = 0;
  return receive(socket, &byte, 1, MSG_PEEK);
}

void shutdown_socket(SocketHandle socket, ShutdownHow how) {
  int mode = SD_BOTH;
  if (how == ShutdownHow::kReceive) mode = SD_RECEIVE;
  if (how == ShutdownHow::kSend) mode = SD_SEND;
  shutdown(socket_of(socket), mode);
}

void close_socket(SocketHandle socket) {
  if (socket != kNoSocket) closesocket(socket_of(socket));
}

bool is_connection_reset(int32_t error) {
  return error == WSAECONNRESET;
}

constexpr SocketOps kWinsockSockets = {
    .startup = startup,
    .cleanup = cleanup,
    .parse_ipv4 = parse_ipv4,
    .open_tcp = open_tcp,
    .set_option = set_option,
    .bind = bind_socket,
    .connect = connect_socket,
    .wait = wait,
    .pending_error = pending_error,
    .send = send_socket,
    .recv = recv_socket,
    .peek = peek,
    .shutdown = shutdown_socket,
    .close = close_socket,
    .is_connection_reset = is_connection_reset,
};

}  // namespace

const SocketOps& native_socket_ops() {
  return kWinsockSockets;
}

}  // namespace vorn::platform
