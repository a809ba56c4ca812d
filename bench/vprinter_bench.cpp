// The virtual printer's cost: drawing a long receipt (the demo receipt with
// its logo, printed over and over without a cut until the paper is at least
// 2000 dots long) and writing its PNG picture, against the time an 80 mm
// printer at 250 mm/s and 8 dots a millimetre needs to print it.
#include <benchmark/benchmark.h>
#include <vorn/vorn.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "call_report.h"
#include "engine.h"
#include "png_file.h"
#include "receipt.h"

namespace {

namespace fs = std::filesystem;

constexpr int kMinRows = 2000;
constexpr double kPrinterDotsPerSecond = 250.0 * 8;  // mm/s x dots/mm

// The demo receipt's bytes, as the library sends them, without the final cut.
std::vector<uint8_t> receipt_bytes() {
  const fs::path file = fs::temp_directory_path() / "vorn-bench-receipt.prn";
  std::ofstream(file).close();
  VORN_PRINTER printer = PrinterCreatorS("VR-T80A");
  const std::string uri = "vorn:/dev/bus/LPT/" + file.string();
  const std::u16string port(uri.begin(), uri.end());
  std::FILE* quiet = std::fopen("/dev/null", "w");
  vorn::cli::CallReport report(quiet);
  vorn::cli::ReceiptOptions options;
  options.logo_path = VORN_SOURCE_DIR "/tools/demo/logo.png";
  if (PortOpen(printer, port.c_str()) == 0) vorn::cli::print_receipt(printer, options, report);
  PrinterDestroy(printer);
  std::fclose(quiet);
  std::ifstream in(file, std::ios::binary);
  std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                             std::istreambuf_iterator<char>());
  fs::remove(file);
  if (bytes.size() > 4) bytes.resize(bytes.size() - 4);  // GS V 66 3
  return bytes;
}

vorn::vprinter::Bitmap draw(vorn::vprinter::Fonts& fonts, const std::vector<uint8_t>& once,
                            int copies) {
  vorn::vprinter::Bitmap drawn;
  vorn::vprinter::Engine engine(
      fonts, {},
      {[&](const vorn::vprinter::Bitmap& b, const char*) { drawn = b; }, nullptr, nullptr});
  for (int i = 0; i < copies; ++i) engine.feed(once);
  engine.finish();
  return drawn;
}

void BM_DrawLongReceipt(benchmark::State& state) {
  const std::vector<uint8_t> once = receipt_bytes();
  vorn::vprinter::Fonts fonts;
  const int rows_once = std::max(draw(fonts, once, 1).height, 1);
  const int copies = (kMinRows + rows_once - 1) / rows_once;
  const fs::path png = fs::temp_directory_path() / "vorn-bench-receipt.png";
  int rows = 0;
  for (auto _ : state) {
    const vorn::vprinter::Bitmap drawn = draw(fonts, once, copies);
    std::string problem;
    vorn::vprinter::write_png(png.string(), drawn, &problem);
    rows = drawn.height;
  }
  fs::remove(png);
  state.counters["rows"] = rows;
  state.counters["printer_ms"] = rows / kPrinterDotsPerSecond * 1000;
}
BENCHMARK(BM_DrawLongReceipt)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
