// vorn's half of the side-by-side run (bench/side-by-side):
//   vorn_side_by_side write DIR WIDTH HEIGHT
//     writes the generated photo as DIR/photo.bmp, DIR/photo.png and, for
//     the other encoder, its decoded pixels as DIR/photo.rgba (red, green,
//     blue, alpha bytes, top row first);
//   vorn_side_by_side time DIR RUNS
//     prints the median time of RUNS PrintImage calls on each file, as
//     "bmp <ms>" and "png <ms>", printing to a file port.
#include <vorn/vorn.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "photo.h"

namespace {

namespace fs = std::filesystem;

std::u16string wide(const std::string& s) {
  return {s.begin(), s.end()};
}

int write_pictures(const fs::path& dir, int width, int height) {
  const std::vector<uint8_t> pixels = vorn::bench::photo(width, height);
  std::vector<uint8_t> rgba;
  rgba.reserve(static_cast<size_t>(width) * height * 4);
  for (size_t i = 0; i < pixels.size(); i += 3) {
    rgba.insert(rgba.end(), {pixels[i], pixels[i + 1], pixels[i + 2], 255});
  }
  std::ofstream raw(dir / "photo.rgba", std::ios::binary);
  raw.write(reinterpret_cast<const char*>(rgba.data()), static_cast<std::streamsize>(rgba.size()));
  raw.close();
  if (!raw || !vorn::bench::write_bmp(dir / "photo.bmp", width, height, pixels) ||
      !vorn::bench::write_png(dir / "photo.png", width, height, pixels)) {
    std::fprintf(stderr, "cannot write the pictures in %s\n", dir.c_str());
    return 1;
  }
  return 0;
}

// Median milliseconds of `runs` PrintImage calls on `picture`.
double time_print(VORN_PRINTER printer, const fs::path& picture, int runs) {
  const std::u16string path = wide(picture.string());
  std::vector<double> ms;
  for (int i = 0; i < runs; ++i) {
    const auto start = std::chrono::steady_clock::now();
    const int32_t result = PrintImage(printer, path.c_str(), 0);
    ms.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                     .count());
    if (result != 0) {
      std::fprintf(stderr, "PrintImage(%s): %d\n", picture.c_str(), result);
      std::exit(1);
    }
  }
  std::sort(ms.begin(), ms.end());
  return ms[ms.size() / 2];
}

int time_pictures(const fs::path& dir, int runs) {
  const fs::path port_file = dir / "port.prn";
  std::ofstream(port_file, std::ios::trunc).close();
  VORN_PRINTER printer = nullptr;
  if (PrinterCreator(&printer, u"VR-T80A") != 0) return std::fprintf(stderr, "no printer\n"), 1;
  const std::u16string port = u"vorn:/dev/bus/LPT/" + wide(port_file.string());
  if (PortOpen(printer, port.c_str()) != 0) return std::fprintf(stderr, "no file port\n"), 1;
  for (const char* kind : {"bmp", "png"}) {
    const fs::path picture = dir / (std::string("photo.") + kind);
    time_print(printer, picture, 2);  // file in the page cache, code and memory warm
    std::printf("%s %.3f\n", kind, time_print(printer, picture, runs));
  }
  PrinterDestroy(printer);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "write" && argc == 5)
    return write_pictures(argv[2], std::atoi(argv[3]), std::atoi(argv[4]));
  if (mode == "time" && argc == 4) return time_pictures(argv[2], std::atoi(argv[3]));
  std::fprintf(stderr, "usage: %s write DIR WIDTH HEIGHT | time DIR RUNS\n", argv[0]);
  return 2;
}
