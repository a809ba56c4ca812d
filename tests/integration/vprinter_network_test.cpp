// The virtual printer as the library's printer on a real loopback socket:
// the status functions decode what each --state makes it answer, and the
// two-QR layout gets its symbol sizes from it.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <string>
#include <thread>
#include <vector>

#include "printer_commands.h"
#include "printer_server.h"
#include "support/wide_text.h"

namespace vorn::cli {
namespace {

// A virtual printer serving on a free port in a thread of its own, playing
// the model the test's printer handle is made for.
class RunningPrinter {
 public:
  explicit RunningPrinter(const std::string& states) {
    std::string problem;
    vprinter::EngineOptions options = *printer_model(kModel);
    options.conditions = *parse_conditions(states, &problem);
    engine_ = std::make_unique<vprinter::Engine>(
        fonts_, options,
        vprinter::EngineOutput{
            [this](const vprinter::Bitmap& b, const char* kind) { pictures.emplace_back(kind, b); },
            [this](std::vector<uint8_t> a) { server_.answer(std::move(a)); }, nullptr});
    EXPECT_TRUE(server_.listen("127.0.0.1", 0, &problem)) << problem;
    thread_ = std::thread([this] { server_.run(*engine_, 0, nullptr); });
  }
  ~RunningPrinter() { stop(); }
  void stop() {
    if (!thread_.joinable()) return;
    server_.stop();
    thread_.join();
    engine_->finish();
  }
  WideString port() const { return VW("NET,127.0.0.1,") + to_u16(std::to_string(server_.port())); }

  static constexpr const char* kModel = "VR-T80A";  // four DLE EOT queries
  std::vector<std::pair<std::string, vprinter::Bitmap>> pictures;

 private:
  static WideString to_u16(const std::string& s) { return {s.begin(), s.end()}; }
  vprinter::Fonts fonts_;
  PrinterServer server_;
  std::unique_ptr<vprinter::Engine> engine_;
  std::thread thread_;
};

struct Handle {
  explicit Handle(const RunningPrinter& printer) : handle(PrinterCreatorS(RunningPrinter::kModel)) {
    EXPECT_EQ(PortOpen(handle, printer.port().c_str()), 0);
  }
  ~Handle() { PrinterDestroy(handle); }
  VORN_PRINTER handle;
};

TEST(VirtualPrinterOverNetwork, StatusFunctionsDecodeEachState) {
  struct Case {
    const char* states;
    uint32_t printer_state;
    uint32_t drawer;
  };
  const Case cases[] = {
      {"", 0x00, 0},
      {"paper-near-end", 0x04, 0},
      {"paper-out", 0x01, 0},
      {"cover-open", 0x02, 0},
      {"offline", 0x80, 0},
      {"drawer-open", 0x00, 1},
      {"paper-out,cover-open,drawer-open", 0x02, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.states);
    RunningPrinter printer(c.states);
    Handle session(printer);
    uint32_t state = 0xFFFF;
    uint32_t drawer = 0xFFFF;
    EXPECT_EQ(GetPrinterState(session.handle, &state), 0);
    EXPECT_EQ(state, c.printer_state);
    EXPECT_EQ(GetCashDrawerState(session.handle, &drawer), 0);
    EXPECT_EQ(drawer, c.drawer);
  }
}

TEST(VirtualPrinterOverNetwork, AnswersFirmwareAndSymbolSizeQueries) {
  RunningPrinter printer("");
  {
    Handle session(printer);
    int32_t version[3] = {-1, -1, -1};
    EXPECT_EQ(GetFirmwareVersion(session.handle, version, 2), 0);
    EXPECT_EQ(std::vector<int32_t>(version, version + 3), (std::vector<int32_t>{1, 2, 3}));
    // Two version 1 symbols (21 modules) of 4 dots a module, 84 dots square.
    // This model counts vertical units in half dots: the library asks for
    // a print area of 2 x 84 + 8 units, 88 dots.
    EXPECT_EQ(PrintTwoQRCode(session.handle, VW("ABC"), 4, 0, 0, VW("XYZ"), 4, 2, 0), 0);
  }
  printer.stop();
  ASSERT_EQ(printer.pictures.size(), 1u);
  EXPECT_EQ(printer.pictures[0].first, "page");
  const vprinter::Bitmap& page = printer.pictures[0].second;
  EXPECT_EQ(page.height, 88);
  // Symbol 1 at the left edge (dot 1), symbol 2 at the right (384 - 84 - 1).
  EXPECT_EQ(page.at(1, 0) + page.at(0, 0) + page.at(298, 0), 1);
  EXPECT_EQ(page.at(299, 0) + page.at(382, 0) + page.at(383, 0), 2);
}

}  // namespace
}  // namespace vorn::cli
