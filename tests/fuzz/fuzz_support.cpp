#include "fuzz_support.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

#include "printer/catalogue.h"
#include "printer/session.h"
#include "support/wide_text.h"

namespace vorn::fuzz {

void fail(const char* file, int line, const char* condition) {
  std::fprintf(stderr, "%s:%d: property failed: %s\n", file, line, condition);
  std::abort();
}

Session::Session(const char* model) {
  printer_ = PrinterCreatorS(model);
  FUZZ_CHECK(printer_ != nullptr);
  FUZZ_CHECK(PortOpen(printer_, VW("LPT1")) == VORN_OK);
}

Session::~Session() {
  FUZZ_CHECK(PrinterDestroy(printer_) == VORN_OK);
}

std::vector<uint8_t> Session::pending() const {
  const printer::CommandContext& context = *printer_->context;
  FUZZ_CHECK(context.length <= context.capacity);
  return {context.buffer, context.buffer + context.length};
}

const char* model_name(uint32_t index) {
  const auto rows = printer::catalogue();
  return rows[index % rows.size()].model_name;
}

std::string scratch_path(const char* name) {
  // One folder per process, removed when the process ends.
  static const struct Folder {
    Folder() { std::filesystem::create_directories(path); }
    ~Folder() {
      std::error_code ignored;
      std::filesystem::remove_all(path, ignored);
    }
    std::filesystem::path path = std::filesystem::temp_directory_path() /
                                 ("vorn-fuzz-" + std::to_string(std::random_device{}()));
  } folder;
  return (folder.path / name).string();
}

WideString scratch_file(const char* name, std::span<const uint8_t> bytes) {
  const std::string path = scratch_path(name);
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  return WideString(path.begin(), path.end());
}

}  // namespace vorn::fuzz
