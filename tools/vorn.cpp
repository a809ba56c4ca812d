// vorn: a command-line front end to the library. It opens a port for a
// catalogue model and sends bytes, so a printer (or a file standing in for
// one) can be driven without writing a program.
#include <vorn/vorn.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "printer/catalogue.h"
#include "text16.h"

namespace {

constexpr const char* kUsage =
    "usage:\n"
    "  vorn list-models\n"
    "      one line per catalogue model: index, model id, type flags, dots per line,\n"
    "      model name, description (tab-separated)\n"
    "  vorn send --model NAME --port PORT (--hex \"1b 40 ...\" | --file PATH)\n"
    "      sends raw bytes; PORT is a port URI (vorn:/dev/bus/LPT//tmp/out.prn)\n"
    "      or a comma form (COM1,9600  NET,192.168.1.100  USB  LPT1)\n";

struct Options {
  std::string model = "unknown";
  std::string port;
  std::optional<std::string> hex;
  std::optional<std::string> file;
};

std::string message_of(int32_t code) {
  char text[512] = {};
  if (vorn_io_format_error(code, text, 0, sizeof text) != VORN_OK) return "(no message)";
  return text;
}

int report(const char* what, int32_t code) {
  std::printf("%s: %d %s\n", what, code, message_of(code).c_str());
  return code == VORN_OK ? 0 : 1;
}

bool parse_hex(const std::string& text, std::vector<uint8_t>* out) {
  int high = -1;
  for (char c : text) {
    int digit = c >= '0' && c <= '9'   ? c - '0'
                : c >= 'a' && c <= 'f' ? c - 'a' + 10
                : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                       : -1;
    if (digit < 0) {
      if (c == ' ' || c == ',' || c == ':' || c == '\n' || c == '\t') continue;
      return false;
    }
    if (high < 0) {
      high = digit;
    } else {
      out->push_back(static_cast<uint8_t>(high * 16 + digit));
      high = -1;
    }
  }
  return high < 0;
}

bool parse_options(int argc, char** argv, int first, Options* options) {
  for (int i = first; i < argc; ++i) {
    std::string flag = argv[i];
    if (i + 1 >= argc) return false;
    std::string value = argv[++i];
    if (flag == "--model") {
      options->model = value;
    } else if (flag == "--port") {
      options->port = value;
    } else if (flag == "--hex") {
      options->hex = value;
    } else if (flag == "--file") {
      options->file = value;
    } else {
      return false;
    }
  }
  return true;
}

int list_models() {
  int index = 0;
  for (const auto& row : vorn::printer::catalogue()) {
    std::printf("%d\t0x%X\t0x%X\t%u\t%s\t%s\n", index++, row.model_id, row.type_flags,
                row.dots_per_line, row.model_name, row.description);
  }
  return 0;
}

int send(const Options& options) {
  std::vector<uint8_t> bytes;
  if (options.hex) {
    if (!parse_hex(*options.hex, &bytes)) {
      std::fprintf(stderr, "vorn: --hex takes pairs of hexadecimal digits\n");
      return 2;
    }
  } else if (options.file) {
    std::ifstream in(*options.file, std::ios::binary);
    if (!in) {
      std::fprintf(stderr, "vorn: cannot read %s\n", options.file->c_str());
      return 2;
    }
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  } else {
    std::fprintf(stderr, "vorn: send needs --hex or --file\n");
    return 2;
  }
  if (options.port.empty()) {
    std::fprintf(stderr, "vorn: send needs --port\n");
    return 2;
  }

  VORN_PRINTER printer = nullptr;
  vorn::cli::WideString model = vorn::cli::to_utf16(options.model);
  int32_t result = PrinterCreator(&printer, model.c_str());
  if (result != VORN_OK) return report("PrinterCreator", result);
  vorn::cli::WideString port = vorn::cli::to_utf16(options.port);
  result = PortOpen(printer, port.c_str());
  if (result != VORN_OK) {
    PrinterDestroy(printer);
    return report("PortOpen", result);
  }
  result = WriteData(printer, bytes.data(), static_cast<uint32_t>(bytes.size()));
  std::printf("sent %zu bytes\n", bytes.size());
  int status = report("WriteData", result);
  PortClose(printer);
  PrinterDestroy(printer);
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  std::string command = argv[1];
  if (command == "list-models") return list_models();
  Options options;
  if (!parse_options(argc, argv, 2, &options)) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  if (command == "send") return send(options);
  std::fputs(kUsage, stderr);
  return 2;
}
