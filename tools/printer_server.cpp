#include "printer_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

namespace vorn::cli {
namespace {

volatile sig_atomic_t g_signalled = 0;

void on_signal(int) {
  g_signalled = 1;
}

// How often a waiting server looks whether it should stop.
constexpr int kStopCheckMs = 100;

void send_all(int connection, const std::vector<uint8_t>& bytes) {
  size_t sent = 0;
  while (sent < bytes.size()) {
    ssize_t n = ::send(connection, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;  // the client went away; the printer does not mind
    sent += static_cast<size_t>(n);
  }
}

}  // namespace

PrinterServer::~PrinterServer() {
  if (listener_ >= 0) ::close(listener_);
}

bool PrinterServer::listen(const std::string& host, uint16_t port, std::string* problem) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  if (::inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) {
    *problem = "not an IPv4 address: " + host;
    return false;
  }
  listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  int on = 1;
  if (listener_ < 0 || ::setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      ::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listener_, 4) != 0) {
    *problem = std::strerror(errno);
    return false;
  }
  socklen_t length = sizeof address;
  ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
  port_ = ntohs(address.sin_port);
  return true;
}

void PrinterServer::stop_on_signals() {
  struct sigaction action {};
  action.sa_handler = on_signal;
  sigemptyset(&action.sa_mask);
  ::sigaction(SIGINT, &action, nullptr);
  ::sigaction(SIGTERM, &action, nullptr);
}

bool PrinterServer::stopped() const {
  return stopping_ || g_signalled != 0;
}

void PrinterServer::run(vprinter::Engine& engine, int delay_ms, void (*log)(const std::string&)) {
  while (!stopped()) {
    pollfd waiting{listener_, POLLIN, 0};
    if (::poll(&waiting, 1, kStopCheckMs) <= 0) continue;
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    int connection =
        ::accept4(listener_, reinterpret_cast<sockaddr*>(&peer), &length, SOCK_CLOEXEC);
    if (connection < 0) continue;
    char name[INET_ADDRSTRLEN] = "?";
    ::inet_ntop(AF_INET, &peer.sin_addr, name, sizeof name);
    if (log != nullptr)
      log(std::string("connection from ") + name + ":" + std::to_string(ntohs(peer.sin_port)));
    serve(connection, engine, delay_ms);
    ::close(connection);
    if (log != nullptr) log("connection closed");
  }
}

void PrinterServer::serve(int connection, vprinter::Engine& engine, int delay_ms) {
  std::vector<uint8_t> buffer(16384);
  while (!stopped()) {
    pollfd waiting{connection, POLLIN, 0};
    if (::poll(&waiting, 1, kStopCheckMs) <= 0) continue;
    ssize_t n = ::recv(connection, buffer.data(), buffer.size(), 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    engine.feed({buffer.data(), static_cast<size_t>(n)});
    if (answers_.empty()) continue;
    if (delay_ms > 0) std::this_thread::sleep_for(std::chrono::milliseconds(delay_ms));
    for (const std::vector<uint8_t>& answer : answers_) send_all(connection, answer);
    answers_.clear();
  }
  engine.end_of_stream();
  answers_.clear();
}

}  // namespace vorn::cli
