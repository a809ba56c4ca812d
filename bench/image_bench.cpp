// Image command costs: a whole PrintImage / DefineNVImage (size probe, decode,
// error diffusion, encoding and the write to a file port), the conversion on
// its own, decoding on its own, and the error diffusion against a plain pass
// over the same decoded pixels.
//
// Two photo-like pictures (bench/photo.h) are generated at start in the
// temporary directory as 24-bit PNG and BMP files: 576 x 2000 (a full 80 mm
// receipt line) and 1680 x 2303 (the widest label line, as tall as a raster
// command allows).
#include <benchmark/benchmark.h>
#include <vorn/vorn.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "image/conversion.h"
#include "image/dither.h"
#include "image/loaded_image.h"
#include "photo.h"

namespace {

namespace fs = std::filesystem;

struct Picture {
  int width;
  int height;
  fs::path path;      // PNG
  fs::path bmp_path;  // the same pixels as a 24-bit BMP
};

Picture g_receipt{576, 2000, {}, {}};
Picture g_label{1680, 2303, {}, {}};

bool write_picture(Picture* picture) {
  const std::string name =
      "vorn-bench-" + std::to_string(picture->width) + "x" + std::to_string(picture->height);
  picture->path = fs::temp_directory_path() / (name + ".png");
  picture->bmp_path = fs::temp_directory_path() / (name + ".bmp");
  const std::vector<uint8_t> pixels = vorn::bench::photo(picture->width, picture->height);
  return vorn::bench::write_png(picture->path, picture->width, picture->height, pixels) &&
         vorn::bench::write_bmp(picture->bmp_path, picture->width, picture->height, pixels);
}

std::u16string wide(const fs::path& path) {
  const std::string s = path.string();
  return {s.begin(), s.end()};
}

Picture& picture_for(const benchmark::State& state) {
  return state.range(0) == 0 ? g_receipt : g_label;
}

void set_label(benchmark::State& state, const Picture& picture) {
  state.SetLabel(std::to_string(picture.width) + "x" + std::to_string(picture.height));
  state.SetItemsProcessed(state.iterations() * int64_t{picture.width} * picture.height);
}

// A printer whose port is an existing file, as an application would drive it.
class FilePrinter {
 public:
  explicit FilePrinter(const char16_t* model) {
    out_ = fs::temp_directory_path() / "vorn-bench-port.prn";
    std::ofstream(out_, std::ios::trunc).close();
    if (PrinterCreator(&printer_, model) != 0) return;
    const std::u16string port = u"vorn:/dev/bus/LPT/" + wide(out_);
    ready_ = PortOpen(printer_, port.c_str()) == 0;
  }
  ~FilePrinter() {
    if (printer_ != nullptr) PrinterDestroy(printer_);
    std::error_code ignored;
    fs::remove(out_, ignored);
  }
  bool ready() const { return ready_; }
  VORN_PRINTER get() const { return printer_; }

 private:
  fs::path out_;
  VORN_PRINTER printer_ = nullptr;
  bool ready_ = false;
};

// Arg 0: from the PNG; 1: from the BMP, whose rows are used where they are read.
void BM_PrintImage_Receipt(benchmark::State& state) {
  FilePrinter printer(u"VR-T80A");  // 576 dots per line
  if (!printer.ready()) return state.SkipWithError("no printer on a file port");
  const std::u16string path = wide(state.range(0) == 0 ? g_receipt.path : g_receipt.bmp_path);
  for (auto _ : state) {
    const int32_t result = PrintImage(printer.get(), path.c_str(), 0);
    if (result != 0) return state.SkipWithError(("PrintImage: " + std::to_string(result)).c_str());
  }
  set_label(state, g_receipt);
}
BENCHMARK(BM_PrintImage_Receipt)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_DefineNVImage_Label(benchmark::State& state) {
  FilePrinter printer(u"VR-W210A");  // 1680 dots per line
  if (!printer.ready()) return state.SkipWithError("no printer on a file port");
  const std::u16string path = wide(g_label.path);
  for (auto _ : state) {
    const int32_t result = DefineNVImage(printer.get(), path.c_str(), 0x30, 0x31);
    if (result != 0)
      return state.SkipWithError(("DefineNVImage: " + std::to_string(result)).c_str());
  }
  set_label(state, g_label);
}
BENCHMARK(BM_DefineNVImage_Label)->Unit(benchmark::kMillisecond);

// Decode and error diffusion into a zero-filled buffer, as a command runs it.
void BM_ConvertToRaster(benchmark::State& state) {
  const Picture& picture = picture_for(state);
  const std::u16string path = wide(picture.path);
  std::vector<uint8_t> out(vorn::image::raster_bytes(picture.width, picture.height));
  for (auto _ : state) {
    std::memset(out.data(), 0, out.size());
    const int32_t result =
        vorn::image::convert_to_raster(path.c_str(), picture.width, picture.height, out.data());
    if (result != 0) return state.SkipWithError("conversion failed");
    benchmark::DoNotOptimize(out.data());
  }
  set_label(state, picture);
}
BENCHMARK(BM_ConvertToRaster)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_Decode(benchmark::State& state) {
  const Picture& picture = picture_for(state);
  const std::u16string path = wide(picture.path);
  for (auto _ : state) {
    vorn::image::LoadedImage image;
    if (image.load(path.c_str()) != 0) return state.SkipWithError("load failed");
    benchmark::DoNotOptimize(image.width());
  }
  set_label(state, picture);
}
BENCHMARK(BM_Decode)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// The error diffusion alone, on an image decoded once.
void BM_Dither(benchmark::State& state) {
  const Picture& picture = picture_for(state);
  vorn::image::LoadedImage image;
  if (image.load(wide(picture.path).c_str()) != 0) return state.SkipWithError("load failed");
  std::vector<uint8_t> out(vorn::image::raster_bytes(picture.width, picture.height));
  for (auto _ : state) {
    std::memset(out.data(), 0, out.size());
    if (vorn::image::diffuse_errors(image, out.data()) != 0) return state.SkipWithError("-9");
    benchmark::DoNotOptimize(out.data());
  }
  set_label(state, picture);
}
BENCHMARK(BM_Dither)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// The yardstick for the diffusion: the same rows fetched the same way, each
// pixel read once and written once (its channel sum), nothing else.
void plain_pixel_pass(const vorn::image::LoadedImage& image, std::vector<vorn::platform::Rgb>* row,
                      std::vector<uint16_t>* sums) {
  uint16_t* out = sums->data();
  for (int32_t y = 0; y < image.height(); ++y) {
    image.pixel_row(y, row->data());
    for (const auto& p : *row) *out++ = static_cast<uint16_t>(p.red + p.green + p.blue);
  }
  benchmark::DoNotOptimize(sums->data());
  benchmark::ClobberMemory();
}

void BM_PlainPixelPass(benchmark::State& state) {
  const Picture& picture = picture_for(state);
  vorn::image::LoadedImage image;
  if (image.load(wide(picture.path).c_str()) != 0) return state.SkipWithError("load failed");
  std::vector<vorn::platform::Rgb> row(picture.width);
  std::vector<uint16_t> sums(static_cast<size_t>(picture.width) * picture.height);
  for (auto _ : state) plain_pixel_pass(image, &row, &sums);
  set_label(state, picture);
}
BENCHMARK(BM_PlainPixelPass)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// The diffusion and the plain pass in turns, so that both meet the same
// machine (on a shared virtual machine the speed drifts from one benchmark to
// the next); "ratio" is the diffusion's time over the plain pass's. Each is
// timed on its second run in a row, so that each finds the caches as its own
// previous run left them, as in the benchmarks above.
void BM_DitherOverPlainPass(benchmark::State& state) {
  const Picture& picture = picture_for(state);
  vorn::image::LoadedImage image;
  if (image.load(wide(picture.path).c_str()) != 0) return state.SkipWithError("load failed");
  std::vector<uint8_t> out(vorn::image::raster_bytes(picture.width, picture.height));
  std::vector<vorn::platform::Rgb> row(picture.width);
  std::vector<uint16_t> sums(static_cast<size_t>(picture.width) * picture.height);
  using Clock = std::chrono::steady_clock;
  auto dither = [&] {
    std::memset(out.data(), 0, out.size());
    const int32_t result = vorn::image::diffuse_errors(image, out.data());
    benchmark::DoNotOptimize(out.data());
    return result;
  };
  Clock::duration dithering{};
  Clock::duration plain{};
  for (auto _ : state) {
    if (dither() != 0) return state.SkipWithError("-9");
    const auto dither_start = Clock::now();
    dither();
    dithering += Clock::now() - dither_start;
    plain_pixel_pass(image, &row, &sums);
    const auto plain_start = Clock::now();
    plain_pixel_pass(image, &row, &sums);
    plain += Clock::now() - plain_start;
  }
  state.counters["ratio"] =
      static_cast<double>(dithering.count()) / static_cast<double>(plain.count());
  set_label(state, picture);
}
BENCHMARK(BM_DitherOverPlainPass)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  if (!write_picture(&g_receipt) || !write_picture(&g_label)) {
    std::fprintf(stderr, "cannot write the test pictures\n");
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::error_code ignored;
  for (const Picture* picture : {&g_receipt, &g_label}) {
    fs::remove(picture->path, ignored);
    fs::remove(picture->bmp_path, ignored);
  }
  return 0;
}
