#include "printer_commands.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "png_file.h"
#include "printer/catalogue.h"
#include "printer_server.h"

namespace vorn::cli {
namespace {

constexpr int kUsageError = 2;
constexpr int kFallbackDots = 576;  // 80 mm paper at 203 dpi
constexpr int kDefaultAnswerDelayMs = 10;

void print_line(const std::string& text) {
  std::printf("%s\n", text.c_str());
  std::fflush(stdout);
}

// Pictures go to `dir` as receipt-0001.png, page-0002.png, ... in the order
// they are printed.
class PictureFiles {
 public:
  explicit PictureFiles(std::string dir) : dir_(std::move(dir)) {}
  void operator()(const vprinter::Bitmap& picture, const char* kind) {
    char name[64];
    std::snprintf(name, sizeof name, "%s-%04d.png", kind, ++count_);
    const std::string path = (std::filesystem::path(dir_) / name).string();
    std::string problem;
    if (vprinter::write_png(path, picture, &problem)) {
      print_line("wrote " + path + " (" + std::to_string(picture.width) + " x " +
                 std::to_string(picture.height) + " dots)");
    } else {
      std::fprintf(stderr, "vorn: %s\n", problem.c_str());
      ok_ = false;
    }
  }
  bool ok() const { return ok_; }

 private:
  std::string dir_;
  int count_ = 0;
  bool ok_ = true;
};

bool make_dir(const std::string& dir) {
  std::error_code error;
  std::filesystem::create_directories(dir, error);
  if (!std::filesystem::is_directory(dir)) {
    std::fprintf(stderr, "vorn: cannot create %s\n", dir.c_str());
    return false;
  }
  return true;
}

struct Setup {
  vprinter::EngineOptions options;
  std::string out;
};

std::optional<Setup> common_setup(const CommandLine& line) {
  const std::string model = line.text("--model", "unknown");
  std::optional<vprinter::EngineOptions> options = printer_model(model);
  if (!options) {
    std::fprintf(stderr, "vorn: unknown model %s, see vorn list-models\n", model.c_str());
    return std::nullopt;
  }
  Setup setup{*options, line.text("--out", ".")};
  if (!make_dir(setup.out)) return std::nullopt;
  return setup;
}

}  // namespace

std::optional<vprinter::EngineOptions> printer_model(const std::string& name) {
  const printer::CatalogueRow* row = printer::find_model_by_name(name.c_str());
  if (row == nullptr) return std::nullopt;
  vprinter::EngineOptions options;
  options.dots_per_line =
      row->dots_per_line > 0 ? static_cast<int>(row->dots_per_line) : kFallbackDots;
  options.model_id = row->model_id;
  options.type_flags = row->type_flags;
  printer::CapabilityRecord* record = nullptr;
  if (printer::create_capability_record(row->model_id, &record) == 0) {
    const double dot_mm = 25.4 / record->resolution_dpi;
    if (record->fine_motion_unit_mm > 0 && record->fine_motion_unit_mm < dot_mm * 0.75) {
      options.vertical_units_per_dot = 2;
    }
    printer::destroy_capability_record(record);
  }
  return options;
}

std::optional<vprinter::Conditions> parse_conditions(const std::string& list,
                                                     std::string* problem) {
  vprinter::Conditions conditions;
  std::stringstream words(list);
  std::string word;
  while (std::getline(words, word, ',')) {
    if (word == "paper-near-end") {
      conditions.paper_near_end = true;
    } else if (word == "paper-out") {
      conditions.paper_out = true;
    } else if (word == "cover-open") {
      conditions.cover_open = true;
    } else if (word == "drawer-open") {
      conditions.drawer_open = true;
    } else if (word == "offline") {
      conditions.offline = true;
    } else if (!word.empty()) {
      *problem = word;
      return std::nullopt;
    }
  }
  return conditions;
}

int run_render(const CommandLine& line) {
  std::optional<Setup> setup = common_setup(line);
  if (!setup) return kUsageError;
  std::ifstream in(line.arguments[0], std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "vorn: cannot read %s\n", line.arguments[0].c_str());
    return kUsageError;
  }
  std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                             std::istreambuf_iterator<char>());
  vprinter::Fonts fonts;
  if (!fonts.problems().empty()) std::fprintf(stderr, "vorn: %s\n", fonts.problems().c_str());
  PictureFiles files(setup->out);
  vprinter::Engine engine(fonts, setup->options, {std::ref(files), nullptr, print_line});
  engine.feed(bytes);
  engine.finish();
  return files.ok() ? 0 : 1;
}

int run_printer(const CommandLine& line) {
  std::optional<Setup> setup = common_setup(line);
  if (!setup) return kUsageError;
  std::string problem;
  std::optional<vprinter::Conditions> conditions =
      parse_conditions(line.text("--state", ""), &problem);
  if (!conditions) {
    std::fprintf(stderr,
                 "vorn: --state takes paper-near-end, paper-out, cover-open, drawer-open, offline; "
                 "not %s\n",
                 problem.c_str());
    return kUsageError;
  }
  setup->options.conditions = *conditions;
  const std::string listen = line.text("--listen", "127.0.0.1:9100");
  const size_t colon = listen.rfind(':');
  std::optional<int32_t> port =
      colon == std::string::npos ? std::nullopt : parse_number(listen.substr(colon + 1));
  if (!port || *port < 0 || *port > 65535) {
    std::fprintf(stderr, "vorn: --listen takes HOST:PORT, for example 127.0.0.1:9100\n");
    return kUsageError;
  }
  std::string delay_problem;
  std::optional<int32_t> delay =
      line.number("--answer-delay", kDefaultAnswerDelayMs, &delay_problem);
  if (!delay || *delay < 0) {
    std::fprintf(stderr, "vorn: --answer-delay takes milliseconds\n");
    return kUsageError;
  }
  PrinterServer server;
  const std::string host = listen.substr(0, colon);
  if (!server.listen(host, static_cast<uint16_t>(*port), &problem)) {
    std::fprintf(stderr, "vorn: cannot listen on %s: %s\n", listen.c_str(), problem.c_str());
    return 1;
  }
  print_line("listening on " + host + ":" + std::to_string(server.port()));
  vprinter::Fonts fonts;
  if (!fonts.problems().empty()) std::fprintf(stderr, "vorn: %s\n", fonts.problems().c_str());
  PictureFiles files(setup->out);
  vprinter::Engine engine(
      fonts, setup->options,
      {std::ref(files), [&](std::vector<uint8_t> b) { server.answer(std::move(b)); }, print_line});
  PrinterServer::stop_on_signals();
  server.run(engine, *delay, print_line);
  // Stopped: whatever the printer holds is drawn, as if it were cut.
  engine.finish();
  return files.ok() ? 0 : 1;
}

}  // namespace vorn::cli
