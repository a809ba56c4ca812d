// Reports library calls: one line per call with its result code and the
// library's text for it, so a failure can be read without the code table.
#pragma once

#include <vorn/vorn.h>

#include <cstdio>
#include <string>

namespace vorn::cli {

// The library's text for a result code, on one line.
std::string message_of(int32_t code);

class CallReport {
 public:
  // Lines go to `out`; null keeps the report quiet (tests).
  explicit CallReport(std::FILE* out) : out_(out) {}

  // Prints "name: code text"; true when the call succeeded.
  bool operator()(const char* name, int32_t result);

  bool all_succeeded() const { return failures_ == 0; }
  // 0 when every call succeeded, else 1.
  int exit_status() const { return failures_ == 0 ? 0 : 1; }

 private:
  std::FILE* out_;
  int failures_ = 0;
};

// A printer handle for a catalogue model with its port open. Creation and
// opening are reported only when they fail; the port is closed and the
// handle destroyed with the object.
class OpenPrinter {
 public:
  OpenPrinter(const std::string& model, const std::string& port, CallReport& report);
  ~OpenPrinter();
  OpenPrinter(const OpenPrinter&) = delete;
  OpenPrinter& operator=(const OpenPrinter&) = delete;

  bool is_open() const { return open_; }
  VORN_PRINTER handle() const { return printer_; }

 private:
  VORN_PRINTER printer_ = nullptr;
  bool open_ = false;
};

}  // namespace vorn::cli
