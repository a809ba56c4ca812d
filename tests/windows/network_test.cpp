// The network driver over Winsock against a loopback server in the test.
#include <winsock2.h>
#include <ws2tcpip.h>
// winsock2.h before anything that pulls in windows.h.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace vorn::test {
namespace {

// A listening socket on 127.0.0.1 and an ephemeral port (or only bound to
// it: a port nobody listens on that no other test can take meanwhile).
class Server {
 public:
  explicit Server(bool listening = true) {
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
    listener_ = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address);
    int size = sizeof address;
    getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
    port_ = ntohs(address.sin_port);
    if (listening) listen(listener_, 4);
  }
  ~Server() {
    if (peer_ != INVALID_SOCKET) closesocket(peer_);
    closesocket(listener_);
    WSACleanup();
  }
  std::string uri() const {
    return "vorn:/dev/bus/NET/DEVICE?ip=127.0.0.1+port=" + std::to_string(port_);
  }
  void accept_peer() { peer_ = accept(listener_, nullptr, nullptr); }
  // Everything the peer sends until `count` bytes arrived.
  std::vector<uint8_t> receive(size_t count) {
    std::vector<uint8_t> bytes(count);
    size_t done = 0;
    while (done < count) {
      const int n = recv(peer_, reinterpret_cast<char*>(bytes.data() + done),
                         static_cast<int>(count - done), 0);
      if (n <= 0) break;
      done += static_cast<size_t>(n);
    }
    bytes.resize(done);
    return bytes;
  }
  void send_bytes(const std::string& bytes) {
    send(peer_, bytes.data(), static_cast<int>(bytes.size()), 0);
  }
  uint16_t port() const { return port_; }

 private:
  SOCKET listener_ = INVALID_SOCKET;
  SOCKET peer_ = INVALID_SOCKET;
  uint16_t port_ = 0;
};

TEST(Network, WritesReachThePeerAndAnswersComeBack) {
  Server server;
  VORN_PORT port = nullptr;
  ASSERT_EQ(vorn_io_port_creator(&port, server.uri().c_str()), VORN_OK);
  ASSERT_EQ(vorn_io_open(port), VORN_OK);
  server.accept_peer();
  EXPECT_EQ(vorn_io_open(port), VORN_ERR_IO_ALREADY_OPEN);

  std::vector<uint8_t> data(10000);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 13 + 1);
  uint32_t transferred = 0;
  EXPECT_EQ(vorn_io_write(port, data.data(), 0, 10000, &transferred), VORN_OK);
  EXPECT_EQ(transferred, 10000u);
  EXPECT_EQ(server.receive(10000), data);

  // Nothing waiting: readexist returns at once with nothing.
  uint8_t buffer[16] = {};
  EXPECT_EQ(vorn_io_readexist(port, buffer, 0, 16, &transferred), VORN_OK);
  EXPECT_EQ(transferred, 0u);
  // Four bytes of ten, then silence: the read ends after the read interval
  // with what came.
  server.send_bytes("ABCD");
  EXPECT_EQ(vorn_io_read(port, buffer, 2, 10, &transferred), VORN_ERR_IO_READ_TIMEOUT);
  EXPECT_EQ(transferred, 4u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer) + 2, 4), "ABCD");
  EXPECT_EQ(vorn_io_close(port), VORN_OK);
  EXPECT_EQ(vorn_io_port_destroy(port), VORN_OK);
}

// A refused connection is reported by the system's number, at once rather
// than at the end of the connect timeout.
TEST(Network, ClosedPortIsRefusedWithTheWinsockNumber) {
  const Server closed(false);
  VORN_PORT port = nullptr;
  ASSERT_EQ(vorn_io_port_creator(&port, closed.uri().c_str()), VORN_OK);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(vorn_io_open(port), WSAECONNREFUSED);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1500));
  EXPECT_EQ(vorn_io_port_destroy(port), VORN_OK);
}

}  // namespace
}  // namespace vorn::test
