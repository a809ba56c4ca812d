// The image commands through the public API on a fake session, with
// pictures handed in through the image source instead of files.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

#include "image/conversion.h"
#include "image/image_source.h"
#include "support/fake_session.h"
#include "support/wide_text.h"

namespace vorn::test {
namespace {

// What the fake source reports for one path; the dots start either layout.
struct Picture {
  int32_t width = 0;
  int32_t height = 0;
  std::vector<uint8_t> dots;
  int32_t probe_result = 0;  // non-zero: the size probe fails with this code
  bool reports_size = true;  // false: a probe that failed without a code
  int32_t convert_result = 0;
};

// The image source in force for its lifetime.
class FakeImages {
 public:
  FakeImages() : previous_(image::install_image_source(&kSource)) { active_ = this; }
  ~FakeImages() { image::install_image_source(previous_), active_ = nullptr; }
  void add(const WideString& path, Picture picture) { pictures_[path] = std::move(picture); }

  int probes = 0;
  std::vector<std::string> conversions;  // "raster" or "columns", in order

 private:
  static int32_t probe(const VORN_WCHAR* path, int32_t* width, int32_t* height) {
    ++active_->probes;
    const Picture& p = active_->pictures_.at(path);
    if (p.probe_result == 0 && p.reports_size) *width = p.width, *height = p.height;
    return p.probe_result;
  }
  static int32_t convert(const char* layout, uint64_t size, const VORN_WCHAR* path, int32_t width,
                         int32_t height, uint8_t* out) {
    const Picture& p = active_->pictures_.at(path);
    active_->conversions.push_back(layout);
    EXPECT_EQ(std::pair(width, height), std::pair(p.width, p.height)) << "not the probed size";
    if (p.convert_result == 0 && !p.dots.empty()) {
      std::memcpy(out, p.dots.data(), std::min(size, p.dots.size()));
    }
    return p.convert_result;
  }
  static int32_t raster(const VORN_WCHAR* path, int32_t w, int32_t h, uint8_t* out) {
    return convert("raster", image::raster_bytes(w, h), path, w, h, out);
  }
  static int32_t columns(const VORN_WCHAR* path, int32_t w, int32_t h, uint8_t* out) {
    return convert("columns", image::column_bytes(w, h), path, w, h, out);
  }
  static constexpr image::ImageSource kSource{probe, raster, columns};
  static inline FakeImages* active_ = nullptr;
  const image::ImageSource* previous_;
  std::map<WideString, Picture> pictures_;
};

// Leaves `bytes` waiting in the command buffer, as a failed write would.
void leave_pending(FakeSession& session, const std::vector<uint8_t>& bytes) {
  printer::CommandContext& c = session.context();
  std::memcpy(c.buffer + c.length, bytes.data(), bytes.size());
  c.length += static_cast<uint32_t>(bytes.size());
}

std::vector<uint8_t> head_of(const std::vector<uint8_t>& bytes, size_t count) {
  return {bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(std::min(count, bytes.size()))};
}

// Keeps the command buffer from growing for its lifetime.
struct FixedBuffer {
  explicit FixedBuffer(FakeSession& session) : context(session.context()) { context.growable = 0; }
  ~FixedBuffer() { context.growable = 1; }
  printer::CommandContext& context;
};

std::vector<uint8_t> operator+(std::vector<uint8_t> a, const std::vector<uint8_t>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

using Call = std::function<int32_t(VORN_PRINTER)>;

// `command` with the handle and then `args`.
template <typename... Args>
Call with(int32_t (*command)(VORN_PRINTER, Args...), std::type_identity_t<Args>... args) {
  return [=](VORN_PRINTER h) { return command(h, args...); };
}

const VORN_WCHAR* const kPath = VW("p.png");
const Call nv = with(DefineNVImage, kPath, 32, 32);
const Call download = with(DefineDownloadedImage, kPath, 32, 32);
const Call buffered = with(DefineBufferedImage, kPath);
const Call bit_image = with(DefineDownloadedImageCompatible, kPath);
const Call nv_bit_image = with(DefineNVImageCompatible, &kPath, 1);
const auto print_image = [](int32_t m) { return with(PrintImage, kPath, m); };

// Dots per line: T82B 576, W210A 1680, K80A 576 (model 0x1721); M58A takes
// compressed raster, L80A lacks the ESC/POS bit, "unknown" has 0 dots.
const char *const kT82 = "VR-T82B", *const kW210 = "VR-W210A", *const kK80 = "VR-K80A";
const char *const kM58 = "VR-M58A", *const kL80 = "VR-L80A";

struct Outcome {
  int32_t result;
  std::vector<uint8_t> command;  // sent after the waiting bytes
  size_t conversions;
};

// Runs `call` on a new session of `model` that has 1B 40 waiting, with
// `picture` at kPath. A failure must leave 1B 40 waiting and send nothing.
Outcome run_command(const char* model, const Picture& picture, const Call& call,
                    bool without_record = false) {
  FakeSession session(model);
  FakeImages images;
  images.add(kPath, picture);
  if (without_record) {
    printer::destroy_capability_record(session.context().record);
    session.context().record = nullptr;
  }
  leave_pending(session, hex("1B 40"));
  Outcome run{call(session.handle()), session.take_written()};
  run.conversions = images.conversions.size();
  if (run.result != VORN_OK) {
    EXPECT_TRUE(run.command.empty()) << "a failed command sends nothing";
    EXPECT_EQ(session.pending(), hex("1B 40")) << "a failed command leaves the buffer as it was";
  } else {
    EXPECT_EQ(head_of(run.command, 2), hex("1B 40")) << "the waiting bytes go out first";
    run.command.erase(run.command.begin(),
                      run.command.begin() + std::min<size_t>(2, run.command.size()));
  }
  return run;
}

// The picture's size against the model and the encoder, the command form
// and where the dots go. Its first data byte is C3, the rest 0. A picture
// the command refuses is never decoded.
TEST(ImageCommands, SizesFormsAndLayouts) {
  const struct {
    const char* model;
    int32_t width, height;
    Call call;
    int32_t result;
    const char* start;  // the command's first bytes
    size_t size;        // of the whole command
    bool without_record = false;
  } cases[] = {
      {kT82, 576, 1, print_image(0), 0, "1D 76 30 00 48 00 01 00 C3", 8 + 72},
      {kT82, 8, 1, print_image(257), 0, "1D 76 30 01 01 00 01 00 C3", 9},  // m's low byte
      {kT82, 8, 1, print_image(4), VORN_ERR_PARAMETER},
      {kT82, 8, 1, print_image(48), 0, "1D 76 30 30 01 00 01 00 C3", 9},
      {kT82, 8, 1, print_image(52), VORN_ERR_PARAMETER},
      {kT82, 577, 1, print_image(0), VORN_ERR_IMAGE_SIZE},
      {kT82, 0, 1, print_image(0), VORN_ERR_IMAGE_SIZE},
      {"unknown", 1, 1, nv, VORN_ERR_IMAGE_SIZE},
      {kT82, 8, 1, with(PrintImage, nullptr, 0), VORN_ERR_PARAMETER},
      // Without a record: 576 dots, and plain raster even on VR-M58A.
      {kM58, 576, 1, print_image(2), 0, "1D 76 30 02 48 00 01 00 C3", 8 + 72, true},
      {kW210, 577, 1, download, VORN_ERR_IMAGE_SIZE, "", 0, true},
      // The encoder's limits, past the size checks: -1.
      {kW210, 1024, 1, print_image(0), 0, "1D 76 30 00 80 00 01 00 C3", 8 + 128},
      {kW210, 1025, 1, print_image(0), VORN_ERR_PARAMETER},
      {kT82, 8, 2303, print_image(0), 0, "1D 76 30 00 01 00 FF 08 C3", 8 + 2303},
      {kT82, 8, 2304, print_image(0), VORN_ERR_PARAMETER},
      {kT82, 576, 233016, nv, VORN_ERR_PARAMETER},
      {kT82, 8, 65536, print_image(0), VORN_ERR_IMAGE_SIZE},
      {kK80, 8, 901, print_image(0), VORN_ERR_IMAGE_SIZE},
      {kL80, 8, 1, nv, VORN_ERR_COMMAND_NOT_SUPPORTED},
      {kL80, 577, 1, print_image(0), VORN_ERR_IMAGE_SIZE},  // the size check comes first
      // Compressed: mode 0x20 whatever m; rows C3 00 00 00 and 00 00 00 00.
      {kM58, 32, 2, print_image(4), 0, "1D 76 30 20 04 00 02 00  00 C3 FE 00  FD 00", 14},
      {kM58, 16, 2303, print_image(0), 0, "1D 76 30 20 02 00 FF 08  01 C3 00  FF 00",
       8 + 3 + 2 * 2302},
      {kM58, 16, 2304, print_image(0), VORN_ERR_PARAMETER},
      // Rows of one byte code into two: room is made for the coded rows.
      {kM58, 8, 1000, print_image(0), 0, "1D 76 30 20 01 00 E8 03  00 C3  00 00", 8 + 2000},
      // Graphics: the short form while p = k + 11 (k + 10) fits 16 bits.
      {kT82, 8, 1, with(DefineNVImage, kPath, 0x120, 0x17E), 0,
       "1D 28 4C 0C 00 30 43 30 20 7E 01 08 00 01 00 31 C3", 17},
      {kT82, 8, 1, with(DefineNVImage, kPath, 31, 32), VORN_ERR_PARAMETER},
      {kT82, 576, 910, nv, 0, "1D 28 4C FB FF 30 43 30 20 20 01 40 02 8E 03 31 C3", 16 + 65520},
      {kT82, 576, 911, nv, 0, "1D 38 4C 43 00 01 00 30 43 30 20 20 01 40 02 8F 03 31 C3",
       18 + 65592},
      {kT82, 576, 911, buffered, 0, "1D 38 4C 42 00 01 00 30 70 30 01 01 31 40 02 8F 03 C3",
       17 + 65592},
      {kT82, 8, 1663, buffered, VORN_ERR_PARAMETER},
      {kT82, 8, 2304, nv, 0, "1D 28 4C 0B 09 30 43 30 20 20 01 08 00 00 09 31 C3", 16 + 2304},
      {kT82, 8, 2305, nv, VORN_ERR_PARAMETER},
      {kK80, 8, 900, download, 0, "1D 28 4C 8F 03 30 53 30 20 20 01 08 00 84 03 31 C3", 16 + 900},
      // Downloaded bit image: whole units of 8 dots, in columns.
      {kT82, 10, 10, bit_image, 0, "1D 2A 02 02 C3", 4 + 32},
      {kT82, 8, 2040, bit_image, 0, "1D 2A 01 FF C3", 4 + 2040},
      {kT82, 8, 2041, bit_image, VORN_ERR_PARAMETER},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    const auto& c = cases[i];
    const Outcome run = run_command(c.model, {c.width, c.height, {0xC3}}, c.call, c.without_record);
    EXPECT_EQ(run.result, c.result) << "row " << i;
    EXPECT_EQ(run.conversions, c.result == VORN_OK ? 1u : 0u) << "row " << i;
    if (c.result != VORN_OK) continue;
    EXPECT_EQ(head_of(run.command, hex(c.start).size()), hex(c.start)) << "row " << i;
    EXPECT_EQ(run.command.size(), c.size) << "row " << i;
  }
}

TEST(ImageCommands, FailuresPassThroughAndLeaveTheBufferAlone) {
  const struct {
    Picture picture;
    int32_t result;
  } failures[] = {
      {{.probe_result = 2}, 2},  // a missing file: its code
      {{.width = 8, .height = 8, .reports_size = false}, VORN_ERR_IMAGE_SIZE},  // no code, no size
      {{.width = 8, .height = 8, .convert_result = VORN_ERR_NO_MEMORY}, VORN_ERR_NO_MEMORY},
  };
  for (const auto& f : failures) {
    for (const Call& call : {print_image(0), nv, bit_image, nv_bit_image}) {
      EXPECT_EQ(run_command(kM58, f.picture, call).result, f.result);
    }
  }
  // No room and no growth.
  const uint8_t data[8 * 64] = {};
  for (const Call& call :
       {print_image(0), nv, bit_image, nv_bit_image, with(PrintBitMapData, 0, 64, 64, data)}) {
    FakeSession session(kT82);
    FakeImages images;
    images.add(kPath, {64, 64});  // 512 data bytes in either layout
    const FixedBuffer fixed(session);
    EXPECT_EQ(call(session.handle()), VORN_ERR_BUFFER_TOO_SMALL);
    EXPECT_TRUE(session.pending().empty());
    EXPECT_TRUE(images.conversions.empty()) << "decoded only to find no room";
  }
}

TEST(PrintImage, CompressedRowsThatDoNotFitTakeBackTheHeader) {
  FakeSession session(kM58);
  FakeImages images;
  // Rows coded into 4 + 5 bytes; the buffer cannot grow and keeps 12 bytes
  // free: the header fits, the rows do not.
  images.add(kPath, {32, 2, hex("41 41 41 42  41 42 43 43")});
  printer::CommandContext& context = session.context();
  const FixedBuffer fixed(session);
  const std::vector<uint8_t> before(context.capacity - 12, 0x0A);
  leave_pending(session, before);
  EXPECT_EQ(PrintImage(session.handle(), kPath, 0), VORN_ERR_BUFFER_TOO_SMALL);
  EXPECT_EQ(session.pending(), before);
  EXPECT_EQ(
      std::vector<uint8_t>(context.buffer + context.length, context.buffer + context.capacity),
      std::vector<uint8_t>(12, 0))
      << "the taken-back header is zeroed";
}

// The caller's 1 is blank paper; nothing is read from the capability record
// ("unknown" has 0 dots per line).
TEST(PrintBitMapData, InvertsTheDataAndChecksTheEncoderRanges) {
  const struct {
    const char* model;
    int32_t m, width, height;
    uint8_t fill;  // every data byte
    int32_t result;
    const char* header;
    uint8_t sent;  // every data byte sent
  } cases[] = {
      {kT82, 0, 9, 2, 0xFF, 0, "1D 76 30 00 02 00 02 00", 0x00},
      {kM58, 3, 8, 1, 0x5A, 0, "1D 76 30 03 01 00 01 00", 0xA5},
      {"unknown", 0, 1024, 1, 0xF0, 0, "1D 76 30 00 80 00 01 00", 0x0F},
      {kT82, 0, 0, 1, 0, VORN_ERR_PARAMETER},
      {kT82, 0, INT32_MAX, 1, 0, VORN_ERR_PARAMETER},
      {kT82, 4, 8, 1, 0, VORN_ERR_PARAMETER},
      {kL80, 0, 0, 1, 0, VORN_ERR_COMMAND_NOT_SUPPORTED},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    const auto& c = cases[i];
    // Sizes the command refuses are never read.
    const int64_t size = c.result == VORN_OK ? (int64_t{c.width} + 7) / 8 * c.height : 1;
    const std::vector<uint8_t> data(size, c.fill);
    const Outcome run =
        run_command(c.model, {}, with(PrintBitMapData, c.m, c.width, c.height, data.data()));
    EXPECT_EQ(run.result, c.result) << "row " << i;
    std::vector<uint8_t> expected = c.result == VORN_OK ? hex(c.header) : std::vector<uint8_t>{};
    if (c.result == VORN_OK) expected.resize(expected.size() + data.size(), c.sent);
    EXPECT_EQ(run.command, expected) << "row " << i;
  }
  const uint8_t* no_data = nullptr;
  EXPECT_EQ(run_command(kT82, {}, with(PrintBitMapData, 0, 8, 1, no_data)).result,
            VORN_ERR_PARAMETER);
}

TEST(StoredImages, CommandsWithoutAFile) {
  const struct {
    Call call;
    int32_t result;
    const char* command;
  } cases[] = {
      {with(PrintNVImage, 0x120, 0x17E), 0, "1D 28 4C 06 00 30 45 20 7E 01 01"},
      {with(PrintNVImage, 31, 32), VORN_ERR_PARAMETER},
      {with(PrintDownloadedImage, 32, 127), VORN_ERR_PARAMETER},
      {with(PrintDownloadedImage, 65, 66), 0, "1D 28 4C 06 00 30 55 41 42 01 01"},
      {PrintBufferedImage, 0, "1D 28 4C 02 00 30 32"},
      {DeleteAllNVImages, 0, "1D 28 4C 05 00 30 41 43 4C 52"},
      {with(PrintNVImageCompatible, 257, 307), 0, "1C 70 01 33"},
      {with(PrintNVImageCompatible, 256, 0), VORN_ERR_PARAMETER},
      {with(PrintNVImageCompatible, 1, 4), VORN_ERR_PARAMETER},
      {with(PrintDownloadedImageCompatible, 3), 0, "1D 2F 03"},
  };
  for (const auto& c : cases) {
    const Outcome run = run_command(kT82, {}, c.call);
    EXPECT_EQ(run.result, c.result) << c.command;
    EXPECT_EQ(run.command, c.result == VORN_OK ? hex(c.command) : std::vector<uint8_t>{});
  }
  // With two bytes free, the print commands encode into the buffer as it
  // stands and find no room; only GS / grows the buffer first.
  const std::pair<Call, int32_t> room_cases[] = {
      {PrintBufferedImage, VORN_ERR_BUFFER_TOO_SMALL},
      {with(PrintNVImageCompatible, 1, 0), VORN_ERR_BUFFER_TOO_SMALL},
      {with(PrintDownloadedImageCompatible, 0), VORN_OK},
  };
  for (const auto& [call, result] : room_cases) {
    FakeSession session(kT82);
    const std::vector<uint8_t> before(session.context().capacity - 2, 0x0A);
    leave_pending(session, before);
    EXPECT_EQ(call(session.handle()), result);
    EXPECT_EQ(result == VORN_OK ? session.take_written() : session.pending(),
              result == VORN_OK ? before + hex("1D 2F 00") : before);
  }
}

TEST(DefineNVImageCompatible, PicturesFollowEachOtherWithTheirSizes) {
  FakeSession session(kT82);
  FakeImages images;
  // 10 x 10: two units each way, 10 columns of 2 bytes from the conversion,
  // then 6 blank columns. 16 x 20: two units across, three down.
  const std::vector<uint8_t> first(20, 0x81), second(48, 0x12);
  images.add(VW("a.png"), {10, 10, first});
  images.add(VW("b.png"), {16, 20, second});
  images.add(VW("tall.png"), {8, 2048});  // 256 units down
  const VORN_WCHAR* paths[] = {VW("a.png"), VW("b.png"), VW("tall.png")};
  ASSERT_EQ(DefineNVImageCompatible(session.handle(), paths, 2), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("1C 71 02  02 00 02 00") + first +
                                        std::vector<uint8_t>(12, 0) + hex("02 00 03 00") + second);
  EXPECT_EQ(images.conversions, (std::vector<std::string>{"columns", "columns"}));
  ASSERT_EQ(DefineNVImageCompatible(session.handle(), paths + 2, 1), VORN_OK);
  const std::vector<uint8_t> written = session.take_written();
  EXPECT_EQ(head_of(written, 7), hex("1C 71 01 01 00 00 01"));
  EXPECT_EQ(written.size(), 7u + 2048);
}

TEST(DefineNVImageCompatible, CountRulesAndSizesBeforeAnyConversion) {
  FakeSession session(kK80);
  FakeImages images;
  images.add(kPath, {8, 8});
  images.add(VW("tall.png"), {8, 901});
  images.add(VW("gone.png"), {.probe_result = 2});
  const VORN_WCHAR* eleven[11];
  std::fill(std::begin(eleven), std::end(eleven), kPath);
  // Zero pictures reach the encoder; more than ten, a negative count or no
  // paths are refused before any file is read.
  for (int32_t count : {0, 11, -1}) {
    EXPECT_EQ(DefineNVImageCompatible(session.handle(), eleven, count), VORN_ERR_PARAMETER);
  }
  EXPECT_EQ(DefineNVImageCompatible(session.handle(), nullptr, 1), VORN_ERR_PARAMETER);
  EXPECT_EQ(images.probes, 0);
  // Every size is learnt before any picture is converted.
  const VORN_WCHAR* tall[] = {kPath, VW("tall.png"), kPath};
  const VORN_WCHAR* gone[] = {kPath, VW("gone.png"), kPath};
  EXPECT_EQ(DefineNVImageCompatible(session.handle(), tall, 3), VORN_ERR_IMAGE_SIZE);
  EXPECT_EQ(images.probes, 2);
  EXPECT_EQ(DefineNVImageCompatible(session.handle(), gone, 3), 2);
  EXPECT_TRUE(images.conversions.empty());
  EXPECT_TRUE(session.pending().empty());
  EXPECT_EQ(DefineNVImageCompatible(session.handle(), eleven, 10), VORN_OK);
}

}  // namespace
}  // namespace vorn::test
