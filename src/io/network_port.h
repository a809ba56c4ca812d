// The network driver: ports of type "NET", a raw TCP connection to a
// printer's IPv4 address (TCP port 9100 unless the URI says otherwise).
// Opening connects within the connect timeout; every write first checks the
// connection and reconnects once when it is gone; reads wait for the first
// data within a budget and for the rest within the read interval.
#pragma once

#include <atomic>
#include <cstdint>

#include "io/driver.h"
#include "platform/socket.h"

namespace vorn::io {

inline constexpr uint32_t kDefaultNetworkTimeouts[kTimeoutCount] = {10, 0, 2000, 0, 2000, 2000};
inline constexpr uint32_t kDefaultNetworkPort = 9100;
// The largest piece handed to one send, and the socket's send-buffer size.
inline constexpr uint32_t kNetworkSendPiece = 4096;

struct NetworkState {
  uint8_t has_uri;
  char uri[256];       // normalised URI, zero-terminated
  char port_name[28];  // the URI's port name, cut to 27 bytes
  uint8_t open;
  uint8_t kill_mark;  // only under the port lock
  uint32_t timeouts[kTimeoutCount];
  // Read by kill on another thread while a write may replace it.
  std::atomic<platform::SocketHandle> socket;
  platform::Ipv4Endpoint local;   // any interface, any port
  platform::Ipv4Endpoint remote;  // the printer, filled at open
  char* ip_text;                  // the "ip" option, owned by the state
  uint32_t port_number;           // only the low 16 bits are used
  uint32_t send_piece;
};

extern const DriverOps kNetworkDriverOps;
// A new state with the defaults; null when memory runs out.
void* new_network_state();

}  // namespace vorn::io
