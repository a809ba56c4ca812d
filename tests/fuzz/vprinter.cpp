// The virtual printer's engine on any byte stream, as any catalogue model
// reads it: nothing crashes, every picture is whole (as many dots as its
// size says, no wider than the paper, no taller than a picture may be) and
// can be saved, and the stream cut into pieces, as a connection delivers it,
// prints and answers exactly what it prints and answers in one piece.
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "engine.h"
#include "fuzz_support.h"
#include "png_file.h"
#include "printer_commands.h"

namespace {

using vorn::vprinter::Bitmap;

struct Printed {
  std::vector<std::string> pictures;  // kind, size and a digest of the dots
  std::vector<std::vector<uint8_t>> answers;
};

std::string digest(const Bitmap& picture, const char* kind) {
  const std::string_view dots(reinterpret_cast<const char*>(picture.dots.data()),
                              picture.dots.size());
  return std::string(kind) + " " + std::to_string(picture.width) + "x" +
         std::to_string(picture.height) + " " + std::to_string(std::hash<std::string_view>{}(dots));
}

Printed print(vorn::vprinter::Fonts& fonts, const vorn::vprinter::EngineOptions& options,
              std::span<const uint8_t> stream, size_t piece, bool save) {
  Printed out;
  auto picture = [&](const Bitmap& b, const char* kind) {
    FUZZ_CHECK(b.width > 0 && b.width <= options.dots_per_line);
    FUZZ_CHECK(b.height > 0 && b.height <= vorn::vprinter::kMaxPictureRows);
    FUZZ_CHECK(b.dots.size() == static_cast<size_t>(b.width) * b.height);
    out.pictures.push_back(digest(b, kind));
    if (save) {
      std::string problem;
      FUZZ_CHECK(vorn::vprinter::write_png(vorn::fuzz::scratch_path("picture.png"), b, &problem));
    }
  };
  auto answer = [&](std::vector<uint8_t> bytes) { out.answers.push_back(std::move(bytes)); };
  vorn::vprinter::Engine engine(fonts, options, {picture, answer, nullptr});
  for (size_t at = 0; at < stream.size(); at += piece) {
    engine.feed(stream.subspan(at, std::min(piece, stream.size() - at)));
  }
  engine.finish();
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static vorn::vprinter::Fonts fonts;
  if (size < 2) return 0;
  auto options = vorn::cli::printer_model(vorn::fuzz::model_name(data[0]));
  FUZZ_CHECK(options.has_value());
  const uint8_t settings = data[1];
  options->conditions = {.paper_near_end = (settings & 0x01) != 0,
                         .paper_out = (settings & 0x02) != 0,
                         .cover_open = (settings & 0x04) != 0,
                         .drawer_open = (settings & 0x08) != 0,
                         .offline = (settings & 0x10) != 0};
  // Pieces of 1 to 8 bytes: every boundary a command can be cut at.
  const size_t piece = (settings >> 5) + 1;
  const std::span<const uint8_t> stream(data + 2, size - 2);
  const Printed whole = print(fonts, *options, stream, stream.size() + 1, true);
  const Printed pieces = print(fonts, *options, stream, piece, false);
  FUZZ_CHECK(pieces.pictures == whole.pictures);
  FUZZ_CHECK(pieces.answers == whole.answers);
  return 0;
}
