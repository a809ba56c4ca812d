#include "commands.h"

#include <vorn/vorn.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>

#include "call_report.h"
#include "cli_options.h"
#include "escpos_annotate.h"
#include "io/usb_port.h"
#include "platform/usb.h"
#include "printer/catalogue.h"
#include "printer_commands.h"
#include "receipt.h"
#include "text16.h"

namespace vorn::cli {
namespace {

constexpr int kUsageError = 2;

constexpr const char* kUsage =
    "usage: vorn COMMAND [options]\n"
    "  vorn help\n"
    "  vorn list-models\n"
    "      one line per catalogue model: index, model id, type flags, dots per line,\n"
    "      model name, description (tab-separated)\n"
    "  vorn list-usb [--all]\n"
    "      the locations of the supported USB printers present, one a line; with\n"
    "      --all every USB device: path, identifier, location, service, and what\n"
    "      the printer search makes of it\n"
    "  vorn annotate FILE [--model NAME]\n"
    "      the ESC/POS commands in FILE, one line each: offset, bytes, meaning;\n"
    "      with --model, read as that model takes them\n"
    "  vorn printer [--listen 127.0.0.1:9100] [--model NAME] [--out DIR] [--state LIST]\n"
    "               [--answer-delay 10]\n"
    "      a virtual network printer: draws each receipt into DIR as a PNG and answers\n"
    "      status queries; LIST: paper-near-end,paper-out,cover-open,drawer-open,offline\n"
    "  vorn render FILE [-o DIR] [--model NAME]   draws captured ESC/POS bytes as PNGs\n"
    "printer commands, each with --model NAME (default unknown) and --port PORT;\n"
    "PORT is a port URI (vorn:/dev/bus/LPT//tmp/out.prn) or a comma form\n"
    "(COM1,9600  NET,127.0.0.1  USB  USB,1-1.4  LPT1):\n"
    "  vorn send (--hex \"1b 40 ...\" | --file PATH)      raw bytes\n"
    "  vorn text TEXT [--align 0|1|2] [--bold] [--size 0x11]\n"
    "      a line feed is added unless TEXT ends with one\n"
    "  vorn barcode DATA [--type 73] [--width 2] [--height 80] [--hri 2] [--align 1]\n"
    "      CODE128 (73) data without a code set ({A {B {C}) gets {B in front\n"
    "  vorn qr DATA [--module 6] [--ecc L|M|Q|H] [--align 1]\n"
    "  vorn cut [--mode 0|1] [--feed 0]          0 full cut, 1 partial cut\n"
    "  vorn drawer [--pin 0|1] [--on 50] [--off 250]   times in 2 ms units\n"
    "  vorn status                                paper, cover and drawer state\n"
    "  vorn version                               firmware version\n"
    "  vorn receipt [--logo IMAGE]                a sample receipt\n"
    "  vorn image IMAGE [--scale 0]               prints an image file\n"
    "  vorn logo IMAGE [--key AB]                 stores an image in the printer, prints it\n";

int usage_error(const std::string& problem) {
  std::fprintf(stderr, "vorn: %s (vorn help lists the commands and their options)\n",
               problem.c_str());
  return kUsageError;
}

// Reads number options, keeping the first problem for the usage message.
class Numbers {
 public:
  explicit Numbers(const CommandLine& line) : line_(line) {}
  int32_t get(std::string_view flag, int32_t fallback) {
    std::string problem;
    std::optional<int32_t> value = line_.number(flag, fallback, &problem);
    if (!value && problem_.empty()) problem_ = problem;
    return value.value_or(fallback);
  }
  const std::string& problem() const { return problem_; }

 private:
  const CommandLine& line_;
  std::string problem_;
};

// Opens the printer the options name and runs `body` on it; the exit status
// says whether every reported call succeeded.
template <typename Body>
int with_printer(const CommandLine& line, Body body) {
  std::string port = port_description(line.text("--port", ""));
  if (port.empty()) return usage_error("this command needs --port");
  CallReport report(stdout);
  OpenPrinter printer(line.text("--model", "unknown"), port, report);
  if (!printer.is_open()) return 1;
  body(printer.handle(), report);
  return report.exit_status();
}

bool read_file(const std::string& path, std::vector<uint8_t>* bytes) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  bytes->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return !in.bad();
}

int list_models(const CommandLine&) {
  int index = 0;
  for (const auto& row : printer::catalogue()) {
    std::printf("%d\t0x%X\t0x%X\t%u\t%s\t%s\n", index++, row.model_id, row.type_flags,
                row.dots_per_line, row.model_name, row.description);
  }
  return 0;
}

// What the printer search makes of a device.
const char* search_role(const platform::UsbDevice& device) {
  if (device.hardware_id == nullptr) return "no identifier";
  char id[256] = {};
  std::snprintf(id, sizeof id, "%s", device.hardware_id);
  io::usb_upper(id, sizeof id);
  if (io::usb_vendor_table_match(id) != 0) return "supported printer";
  if (io::usb_is_restricted(id)) return "supported printer (restricted)";
  if (io::usb_serves_printers(device.service)) {
    return "printer class: chosen when no supported printer is found";
  }
  return "not a printer";
}

int list_usb(const CommandLine& line) {
  if (line.has_switch("--all")) {
    const int32_t result = platform::usb().enumerate(
        [](const platform::UsbDevice& device, void*) {
          auto text = [](const char* value) { return value != nullptr ? value : "-"; };
          std::printf("%s\t%s\t%s\t%s\t%s\n", text(device.path), text(device.hardware_id),
                      text(device.location), text(device.service), search_role(device));
          return true;
        },
        nullptr);
    if (result != VORN_OK) std::fprintf(stderr, "vorn: USB devices: error %d\n", result);
    return result == VORN_OK ? 0 : 1;
  }
  char list[4096];
  uint32_t used = 0;
  const int32_t result = vorn_io_list_usb(list, sizeof list, &used, 0);
  if (result != VORN_OK) {
    std::fprintf(stderr, "vorn: vorn_io_list_usb: error %d\n", result);
    return 1;
  }
  for (char* entry = list; used > 0;) {
    char* end = std::strchr(entry, '|');
    if (end != nullptr) *end = '\0';
    std::printf("%s\n", entry);
    if (end == nullptr) break;
    entry = end + 1;
  }
  return 0;
}

int annotate(const CommandLine& line) {
  uint32_t model_id = kAnyModel;
  if (line.values.contains("--model")) {
    const std::string name = line.text("--model", "");
    const printer::CatalogueRow* row = printer::find_model_by_name(name.c_str());
    if (row == nullptr) return usage_error("unknown model " + name + ", see vorn list-models");
    model_id = row->model_id;
  }
  std::vector<uint8_t> bytes;
  if (!read_file(line.arguments[0], &bytes)) {
    std::fprintf(stderr, "vorn: cannot read %s\n", line.arguments[0].c_str());
    return kUsageError;
  }
  std::fputs(format_annotation(bytes, annotate_escpos(bytes, model_id)).c_str(), stdout);
  return 0;
}

int send(const CommandLine& line) {
  std::vector<uint8_t> bytes;
  if (line.values.contains("--hex")) {
    if (!parse_hex(line.text("--hex", ""), &bytes)) {
      std::fprintf(stderr, "vorn: --hex takes pairs of hexadecimal digits\n");
      return kUsageError;
    }
  } else if (line.values.contains("--file")) {
    std::string path = line.text("--file", "");
    if (!read_file(path, &bytes)) {
      std::fprintf(stderr, "vorn: cannot read %s\n", path.c_str());
      return kUsageError;
    }
  } else {
    return usage_error("send needs --hex or --file");
  }
  return with_printer(line, [&](VORN_PRINTER printer, CallReport& report) {
    int32_t result = WriteData(printer, bytes.data(), static_cast<uint32_t>(bytes.size()));
    std::printf("sent %zu bytes\n", bytes.size());
    report("WriteData", result);
  });
}

int text(const CommandLine& line) {
  Numbers numbers(line);
  int32_t alignment = numbers.get("--align", 0);
  int32_t size = numbers.get("--size", 0);
  if (!numbers.problem().empty()) return usage_error(numbers.problem());
  std::string content = line.arguments[0];
  // The printer prints a line when it ends.
  if (content.empty() || content.back() != '\n') content += '\n';
  const int32_t attributes = line.has_switch("--bold") ? 2 : 0;
  return with_printer(line, [&](VORN_PRINTER printer, CallReport& report) {
    WideString wide = to_utf16(content);
    report("PrintText", PrintText(printer, wide.c_str(), alignment, attributes, size));
  });
}

constexpr int32_t kCode128 = 73;

int barcode(const CommandLine& line) {
  Numbers numbers(line);
  int32_t type = numbers.get("--type", kCode128);
  int32_t width = numbers.get("--width", 2);
  int32_t height = numbers.get("--height", 80);
  int32_t hri = numbers.get("--hri", 2);
  int32_t alignment = numbers.get("--align", 1);
  if (!numbers.problem().empty()) return usage_error(numbers.problem());
  std::string data = line.arguments[0];
  // CODE128 data begins with its code set; printable text fits code set B.
  if (type == kCode128 && (data.empty() || data.front() != '{')) data = "{B" + data;
  return with_printer(line, [&](VORN_PRINTER printer, CallReport& report) {
    WideString wide = to_utf16(data);
    report("PrintBarCode",
           PrintBarCode(printer, type, wide.c_str(), width, height, alignment, hri));
  });
}

// QR error correction: a letter L, M, Q, H or the level byte itself.
std::optional<int32_t> qr_level(const std::string& text) {
  static constexpr std::string_view kLetters = "LMQH";
  if (text.size() == 1) {
    size_t index =
        kLetters.find(static_cast<char>(std::toupper(static_cast<unsigned char>(text[0]))));
    if (index != std::string_view::npos) return static_cast<int32_t>(0x30 + index);
  }
  return parse_number(text);
}

int qr(const CommandLine& line) {
  Numbers numbers(line);
  int32_t module = numbers.get("--module", 6);
  int32_t alignment = numbers.get("--align", 1);
  if (!numbers.problem().empty()) return usage_error(numbers.problem());
  std::optional<int32_t> level = qr_level(line.text("--ecc", "M"));
  if (!level) return usage_error("--ecc takes L, M, Q, H or a number");
  constexpr int32_t kQrCode = 103;
  return with_printer(line, [&](VORN_PRINTER printer, CallReport& report) {
    WideString wide = to_utf16(line.arguments[0]);
    report("PrintSymbol",
           PrintSymbol(printer, kQrCode, wide.c_str(), *level, module, 0, alignment));
  });
}

int cut(const CommandLine& line) {
  Numbers numbers(line);
  int32_t mode = numbers.get("--mode", 0);
  int32_t feed = numbers.get("--feed", 0);
  if (!numbers.problem().empty()) return usage_error(numbers.problem());
  return with_printer(line, [&](VORN_PRINTER printer, CallReport& report) {
    report("CutPaper", CutPaper(printer, mode, feed));
  });
}

int drawer(const CommandLine& line) {
  Numbers numbers(line);
  int32_t pin = numbers.get("--pin", 0);
  int32_t on = numbers.get("--on", 50);
  int32_t off = numbers.get("--off", 250);
  if (!numbers.problem().empty()) return usage_error(numbers.problem());
  return with_printer(line, [&](VORN_PRINTER printer, CallReport& report) {
    report("OpenCashDrawer", OpenCashDrawer(printer, pin, on, off));
  });
}

std::string printer_state_words(uint32_t state) {
  struct Bit {
    uint32_t mask;
    const char* words;
  };
  static constexpr Bit kBits[] = {{0x01, "paper end"},
                                  {0x02, "cover open"},
                                  {0x04, "paper near end"},
                                  {0x20, "the query failed"},
                                  {0x80, "off line"}};
  std::string words;
  uint32_t known = 0;
  for (const Bit& bit : kBits) {
    known |= bit.mask;
    if ((state & bit.mask) == 0) continue;
    words += words.empty() ? "" : ", ";
    words += bit.words;
  }
  if ((state & ~known) != 0) {
    char text[40];
    std::snprintf(text, sizeof text, "%sunknown bits 0x%X", words.empty() ? "" : ", ",
                  state & ~known);
    words += text;
  }
  return words.empty() ? "no condition reported" : words;
}

int status(const CommandLine& line) {
  return with_printer(line, [&](VORN_PRINTER printer, CallReport& report) {
    uint32_t state = 0;
    report("GetPrinterState", GetPrinterState(printer, &state));
    std::printf("printer state 0x%02X: %s\n", state, printer_state_words(state).c_str());
    uint32_t drawer = 0;
    if (report("GetCashDrawerState", GetCashDrawerState(printer, &drawer))) {
      // The drawer's switch drives connector pin 3; which level means open
      // depends on the drawer.
      std::printf("cash drawer state %u: connector pin 3 %s\n", drawer,
                  drawer == 1 ? "high" : "low");
    }
  });
}

int version(const CommandLine& line) {
  return with_printer(line, [&](VORN_PRINTER printer, CallReport& report) {
    // Entries the answer does not supply keep the value they had.
    constexpr int32_t kUnset = -1;
    int32_t parts[3] = {kUnset, kUnset, kUnset};
    if (!report("GetFirmwareVersion", GetFirmwareVersion(printer, parts, 2))) return;
    std::string text;
    for (int32_t part : parts) {
      if (part == kUnset) break;
      if (!text.empty()) text += '.';
      text += std::to_string(part);
    }
    std::printf("firmware version: %s\n", text.empty() ? "not given by this model" : text.c_str());
  });
}

int receipt(const CommandLine& line) {
  ReceiptOptions options;
  options.columns = receipt_columns(line.text("--model", "unknown"));
  options.logo_path = line.text("--logo", "");
  return with_printer(line, [&](VORN_PRINTER printer, CallReport& report) {
    print_receipt(printer, options, report);
  });
}

int image(const CommandLine& line) {
  Numbers numbers(line);
  int32_t scale = numbers.get("--scale", 0);
  if (!numbers.problem().empty()) return usage_error(numbers.problem());
  return with_printer(line, [&](VORN_PRINTER printer, CallReport& report) {
    WideString path = to_utf16(line.arguments[0]);
    report("PrintImage", PrintImage(printer, path.c_str(), scale));
  });
}

int logo(const CommandLine& line) {
  std::string key = line.text("--key", "AB");
  if (key.size() != 2) return usage_error("--key takes two characters, for example AB");
  const int32_t kc1 = static_cast<unsigned char>(key[0]);
  const int32_t kc2 = static_cast<unsigned char>(key[1]);
  return with_printer(line, [&](VORN_PRINTER printer, CallReport& report) {
    WideString path = to_utf16(line.arguments[0]);
    if (!report("DefineNVImage", DefineNVImage(printer, path.c_str(), kc1, kc2))) return;
    report("PrintNVImage", PrintNVImage(printer, kc1, kc2));
  });
}

struct Command {
  const char* name;
  OptionSyntax syntax;
  int (*run)(const CommandLine&);
};

// Every printer command takes the model and the port.
OptionSyntax printer_syntax(size_t arguments, std::vector<std::string> values,
                            std::vector<std::string> switches = {}) {
  values.push_back("--model");
  values.push_back("--port");
  return {arguments, std::move(values), std::move(switches)};
}

const std::vector<Command>& commands() {
  static const std::vector<Command> kCommands = {
      {"list-models", {}, list_models},
      {"list-usb", {0, {}, {"--all"}}, list_usb},
      {"annotate", {1, {"--model"}, {}}, annotate},
      {"printer",
       {0, {"--listen", "--model", "--out", "--state", "--answer-delay"}, {}},
       run_printer},
      {"render", {1, {"--model", "--out"}, {}}, run_render},
      {"send", printer_syntax(0, {"--hex", "--file"}), send},
      {"text", printer_syntax(1, {"--align", "--size"}, {"--bold"}), text},
      {"barcode", printer_syntax(1, {"--type", "--width", "--height", "--hri", "--align"}),
       barcode},
      {"qr", printer_syntax(1, {"--module", "--ecc", "--align"}), qr},
      {"cut", printer_syntax(0, {"--mode", "--feed"}), cut},
      {"drawer", printer_syntax(0, {"--pin", "--on", "--off"}), drawer},
      {"status", printer_syntax(0, {}), status},
      {"version", printer_syntax(0, {}), version},
      {"receipt", printer_syntax(0, {"--logo"}), receipt},
      {"image", printer_syntax(1, {"--scale"}), image},
      {"logo", printer_syntax(1, {"--key"}), logo},
  };
  return kCommands;
}

}  // namespace

int run_command(const std::vector<std::string>& words) {
  if (words.empty()) {
    std::fputs(kUsage, stderr);
    return kUsageError;
  }
  if (words[0] == "help" || words[0] == "--help" || words[0] == "-h") {
    std::fputs(kUsage, stdout);
    return 0;
  }
  for (const Command& command : commands()) {
    if (words[0] != command.name) continue;
    CommandLine line;
    std::vector<std::string> rest(words.begin() + 1, words.end());
    for (std::string& word : rest) {
      if (word == "-o" && words[0] == "render") word = "--out";  // its one short option
    }
    std::string problem = parse_command_line(rest, command.syntax, &line);
    if (!problem.empty()) return usage_error(words[0] + ": " + problem);
    return command.run(line);
  }
  return usage_error("unknown command " + words[0]);
}

}  // namespace vorn::cli
