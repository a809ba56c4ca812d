#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "platform/socket.h"

namespace vorn::platform {
namespace {

int fd_of(SocketHandle socket) {
  return static_cast<int>(socket);
}

// The socket library needs no start on POSIX systems.
int32_t startup() {
  return 0;
}
void cleanup() {}

int32_t parse_ipv4(const char* text, uint32_t* address) {
  // inet_aton takes the same numeric forms as the classic inet_addr and
  // never consults a name service. An unusable text is reported the way
  // connect reports an address it cannot reach.
  in_addr parsed{};
  if (text == nullptr || inet_aton(text, &parsed) == 0) return EADDRNOTAVAIL;
  *address = ntohl(parsed.s_addr);
  return 0;
}

int32_t open_tcp(SocketHandle* out) {
  int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
  if (fd < 0) return errno;
  *out = fd;
  return 0;
}

int32_t set_int(int fd, int level, int name, int value) {
  return setsockopt(fd, level, name, &value, sizeof value) == 0 ? 0 : errno;
}

int32_t set_time(int fd, int name, uint32_t ms) {
  timeval value{static_cast<time_t>(ms / 1000), static_cast<suseconds_t>(ms % 1000) * 1000};
  return setsockopt(fd, SOL_SOCKET, name, &value, sizeof value) == 0 ? 0 : errno;
}

int32_t set_option(SocketHandle socket, SocketOption option, uint32_t value) {
  const int fd = fd_of(socket);
  switch (option) {
    case SocketOption::kNoDelay:
      return set_int(fd, IPPROTO_TCP, TCP_NODELAY, value != 0 ? 1 : 0);
    case SocketOption::kDontLinger: {
      // There is no SO_DONTLINGER here: lingering switched off is the same.
      linger off{value != 0 ? 0 : 1, 0};
      return setsockopt(fd, SOL_SOCKET, SO_LINGER, &off, sizeof off) == 0 ? 0 : errno;
    }
    case SocketOption::kSendBufferSize:
      return set_int(fd, SOL_SOCKET, SO_SNDBUF,
                     value > INT_MAX ? INT_MAX : static_cast<int>(value));
    case SocketOption::kReceiveTimeout:
      return set_time(fd, SO_RCVTIMEO, value);
    case SocketOption::kSendTimeout:
      return set_time(fd, SO_SNDTIMEO, value);
  }
  return EINVAL;
}

sockaddr_in to_sockaddr(const Ipv4Endpoint& endpoint) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(endpoint.port);
  address.sin_addr.s_addr = htonl(endpoint.address);
  return address;
}

int32_t bind_socket(SocketHandle socket, const Ipv4Endpoint& local) {
  sockaddr_in address = to_sockaddr(local);
  if (::bind(fd_of(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return errno;
  }
  return 0;
}

uint64_t monotonic_ms() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u;
}

// poll() for one descriptor, resumed after signals with the time that is
// left. Errors and hang-ups count as ready: the call that follows reports
// them, as select() does.
SocketWait poll_one(int fd, short events, uint32_t limit_ms) {
  SocketWait result;
  if (fd < 0) {
    // poll() would silently skip a negative descriptor and just sleep.
    result.error = EBADF;
    return result;
  }
  const bool forever = limit_ms == kWaitForever;
  const uint64_t deadline = monotonic_ms() + limit_ms;
  for (;;) {
    int timeout = -1;
    if (!forever) {
      const uint64_t now = monotonic_ms();
      const uint64_t left = deadline > now ? deadline - now : 0;
      timeout = left > static_cast<uint64_t>(INT_MAX) ? INT_MAX : static_cast<int>(left);
    }
    pollfd p{fd, events, 0};
    const int n = ::poll(&p, 1, timeout);
    if (n > 0) {
      if (p.revents & POLLNVAL) {
        result.error = EBADF;
        return result;
      }
      // An exception wait is only ended by an error; a plain hang-up is
      // left for the readability check to find.
      const short wanted = events == 0 ? POLLERR : (events | POLLERR | POLLHUP);
      result.ready = (p.revents & wanted) != 0;
      return result;
    }
    if (n == 0) {
      if (monotonic_ms() >= deadline) return result;
      continue;  // a limit longer than poll() can take in one call
    }
    if (errno != EINTR) {
      result.error = errno;
      return result;
    }
  }
}

SocketWait wait(SocketHandle socket, WaitFor what, uint32_t limit_ms) {
  short events = 0;
  switch (what) {
    case WaitFor::kReadable:
      events = POLLIN;
      break;
    case WaitFor::kWritable:
      events = POLLOUT;
      break;
    case WaitFor::kException:
      events = 0;  // POLLERR is always reported
      break;
  }
  return poll_one(fd_of(socket), events, limit_ms);
}

int32_t set_blocking(int fd, bool blocking) {
  const int flags = fcntl(fd, F_GETFL);
  if (flags < 0) return errno;
  const int wanted = blocking ? (flags & ~O_NONBLOCK) : (flags | O_NONBLOCK);
  return fcntl(fd, F_SETFL, wanted) == 0 ? 0 : errno;
}

int32_t pending_error(SocketHandle socket, int32_t* value) {
  int error = 0;
  socklen_t size = sizeof error;
  if (getsockopt(fd_of(socket), SOL_SOCKET, SO_ERROR, &error, &size) != 0) return errno;
  *value = error;
  return 0;
}

SocketConnect connect_socket(SocketHandle socket, const Ipv4Endpoint& remote, uint32_t limit_ms) {
  SocketConnect result;
  const int fd = fd_of(socket);
  result.error = set_blocking(fd, false);
  if (result.error != 0) return result;
  sockaddr_in address = to_sockaddr(remote);
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    if (errno == EINPROGRESS || errno == EINTR) {
      // A connect interrupted by a signal goes on in the background, just
      // like one in progress: both end in writability.
      SocketWait ready = poll_one(fd, POLLOUT, limit_ms);
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
      result.error = errno;
    }
  }
  set_blocking(fd, true);
  return result;
}

SocketTransfer send_socket(SocketHandle socket, const uint8_t* data, uint32_t length) {
  SocketTransfer result;
  const int fd = fd_of(socket);
  // First take only what there is room for, so the caller's budget decides
  // how long to wait; only with no room at all fall back to a blocking send,
  // bounded by the socket's send timeout.
  int flags = MSG_NOSIGNAL | MSG_DONTWAIT;
  for (;;) {
    const ssize_t n = ::send(fd, data, length, flags);
    if (n >= 0) {
      result.count = static_cast<uint32_t>(n);
      return result;
    }
    if (errno == EINTR) continue;
    if ((errno == EAGAIN || errno == EWOULDBLOCK) && (flags & MSG_DONTWAIT)) {
      flags = MSG_NOSIGNAL;
      continue;
    }
    result.error = errno;
    return result;
  }
}

SocketTransfer receive(SocketHandle socket, uint8_t* buffer, uint32_t length, int flags) {
  SocketTransfer result;
  for (;;) {
    const ssize_t n = ::recv(fd_of(socket), buffer, length, flags);
    if (n >= 0) {
      result.count = static_cast<uint32_t>(n);
      return result;
    }
    if (errno == EINTR) continue;
    result.error = errno;
    return result;
  }
}

SocketTransfer recv_socket(SocketHandle socket, uint8_t* buffer, uint32_t length) {
  return receive(socket, buffer, length, 0);
}

SocketTransfer peek(SocketHandle socket) {
  uint8_t byte = 0;
  return receive(socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
}

void shutdown_socket(SocketHandle socket, ShutdownHow how) {
  int mode = SHUT_RDWR;
  if (how == ShutdownHow::kReceive) mode = SHUT_RD;
  if (how == ShutdownHow::kSend) mode = SHUT_WR;
  ::shutdown(fd_of(socket), mode);
}

void close_socket(SocketHandle socket) {
  if (socket != kNoSocket) ::close(fd_of(socket));
}

// ECONNRESET comes with the first call after the peer's reset; once that
// has been reported, the socket is shut down and sends fail with EPIPE.
bool is_connection_reset(int32_t error) {
  return error == ECONNRESET || error == EPIPE;
}

constexpr SocketOps kPosixSockets = {
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
  return kPosixSockets;
}

}  // namespace vorn::platform
