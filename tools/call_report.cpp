#include "call_report.h"

#include "text16.h"

namespace vorn::cli {

std::string message_of(int32_t code) {
  char text[512] = {};
  if (vorn_io_format_error(code, text, 0, sizeof text) != VORN_OK) return "(no message)";
  std::string message = text;
  // Some texts carry a line break; a report is one line per call.
  for (char& c : message) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  return message;
}

bool CallReport::operator()(const char* name, int32_t result) {
  if (out_ != nullptr) std::fprintf(out_, "%s: %d %s\n", name, result, message_of(result).c_str());
  if (result != VORN_OK) ++failures_;
  return result == VORN_OK;
}

OpenPrinter::OpenPrinter(const std::string& model, const std::string& port, CallReport& report) {
  WideString wide_model = to_utf16(model);
  int32_t result = PrinterCreator(&printer_, wide_model.c_str());
  if (result != VORN_OK) {
    printer_ = nullptr;
    report("PrinterCreator", result);
    return;
  }
  WideString wide_port = to_utf16(port);
  result = PortOpen(printer_, wide_port.c_str());
  if (result != VORN_OK) {
    report("PortOpen", result);
    return;
  }
  open_ = true;
}

OpenPrinter::~OpenPrinter() {
  if (printer_ == nullptr) return;
  if (open_) PortClose(printer_);
  PrinterDestroy(printer_);
}

}  // namespace vorn::cli
