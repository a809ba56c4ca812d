// `vorn printer` and `vorn render` in builds without the virtual printer:
// the commands are known, so the usage stays the same, but they only say so.
#include <cstdio>

#include "printer_commands.h"

namespace vorn::cli {
namespace {

int absent(const char* command) {
  std::fprintf(stderr, "vorn %s: the virtual printer is not part of this build\n", command);
  return 1;
}

}  // namespace

int run_printer(const CommandLine&) {
  return absent("printer");
}

int run_render(const CommandLine&) {
  return absent("render");
}

}  // namespace vorn::cli
