// One image command in a process of its own, for bench/peak-memory:
//   vorn_peak_memory MODEL PORT_FILE [PICTURE]
// creates a printer of MODEL on a file port, runs DefineNVImage on PICTURE
// (none: the command is left out, which gives the process's own share) and
// prints the process's peak resident set in KiB (Linux: VmHWM in
// /proc/self/status).
#include <vorn/vorn.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

namespace {

std::u16string wide(const std::string& s) {
  return {s.begin(), s.end()};
}

long peak_kib() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stol(line.substr(6));
  }
  return -1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 && argc != 4) {
    std::fprintf(stderr, "usage: %s MODEL PORT_FILE [PICTURE]\n", argv[0]);
    return 2;
  }
  VORN_PRINTER printer = nullptr;
  if (PrinterCreator(&printer, wide(argv[1]).c_str()) != 0) {
    return std::fprintf(stderr, "no printer\n"), 1;
  }
  std::ofstream(argv[2], std::ios::trunc).close();
  if (PortOpen(printer, (u"vorn:/dev/bus/LPT/" + wide(argv[2])).c_str()) != 0) {
    return std::fprintf(stderr, "no file port\n"), 1;
  }
  if (argc == 4) {
    const int32_t result = DefineNVImage(printer, wide(argv[3]).c_str(), 0x30, 0x31);
    if (result != 0) return std::fprintf(stderr, "DefineNVImage: %d\n", result), 1;
  }
  PrinterDestroy(printer);
  std::printf("%ld\n", peak_kib());
  return 0;
}
