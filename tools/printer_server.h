// The network side of `vorn printer`: a raw TCP listener that takes one
// connection after another, as a network printer does, and hands what
// arrives to the engine.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "engine.h"

namespace vorn::cli {

class PrinterServer {
 public:
  PrinterServer() = default;
  ~PrinterServer();
  PrinterServer(const PrinterServer&) = delete;
  PrinterServer& operator=(const PrinterServer&) = delete;

  // Listens on an IPv4 address; port 0 takes any free port. False, with the
  // reason in `problem`, when it cannot.
  bool listen(const std::string& host, uint16_t port, std::string* problem);
  uint16_t port() const { return port_; }

  // Where the engine's answers go; they are sent `delay_ms` after the
  // command that asked for them was read.
  void answer(std::vector<uint8_t> bytes) { answers_.push_back(std::move(bytes)); }

  // Serves connections until stop() is called or, once stop_on_signals()
  // ran, SIGINT or SIGTERM arrives. Reports connections through `log`.
  void run(vprinter::Engine& engine, int delay_ms, void (*log)(const std::string&));
  void stop() { stopping_ = true; }

  // SIGINT and SIGTERM end run() instead of the process.
  static void stop_on_signals();

 private:
  void serve(int connection, vprinter::Engine& engine, int delay_ms);
  bool stopped() const;

  int listener_ = -1;
  uint16_t port_ = 0;
  std::atomic<bool> stopping_{false};
  std::vector<std::vector<uint8_t>> answers_;
};

}  // namespace vorn::cli
