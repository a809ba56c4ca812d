// Pictures stored in the printer and printed later by key code or number:
// NV and download graphics and the print buffer's graphic (GS ( L, GS 8 L,
// raster layout), and the older NV and downloaded bit images (FS q, FS p,
// GS *, GS /, column layout in units of 8 dots).
//
// The library keeps no record of what was stored; each definition reads its
// file twice (size, then dots) and appends one command, so a failing one
// leaves the command buffer as it was.
#include <vorn/vorn.h>

#include <array>
#include <cstdint>
#include <span>

#include "escpos/encoder.h"
#include "image/conversion.h"
#include "image/image_source.h"
#include "image/raster.h"
#include "printer/session.h"

namespace vorn::image {
namespace {

using escpos::high_byte;
using escpos::low_byte;
using escpos::Target;
using printer::CommandContext;

// The function byte of each GS ( L / GS 8 L command.
constexpr uint8_t kDefineNvGraphic = 0x43;
constexpr uint8_t kDefineDownloadGraphic = 0x53;
constexpr uint8_t kStoreInPrintBuffer = 0x70;
constexpr uint8_t kPrintNvGraphic = 0x45;
constexpr uint8_t kPrintDownloadGraphic = 0x55;

constexpr int32_t kWidestGraphic = 8192;
constexpr int32_t kTallestGraphic = 2304;
constexpr int32_t kWidestBufferedGraphic = 2047;
// At vertical scale 1.
constexpr int32_t kTallestBufferedGraphic = 1662;
// Entries of the image table of one FS q.
constexpr int32_t kMostNvBitImages = 10;

bool is_key_code(uint8_t kc) {
  return kc >= 32 && kc <= 126;
}

bool within(int32_t value, int32_t low, int32_t high) {
  return value >= low && value <= high;
}

// GS ( L with a two-byte parameter count while it fits, else GS 8 L with a
// four-byte one.
class GraphicsHead {
 public:
  explicit GraphicsHead(uint64_t parameter_count) {
    const auto p = static_cast<uint32_t>(parameter_count);
    if (escpos::fits_u16(static_cast<int64_t>(parameter_count))) {
      bytes_ = {0x1D, 0x28, 0x4C, low_byte(p), high_byte(p)};
      size_ = 5;
    } else {
      bytes_ = {0x1D, 0x38, 0x4C, low_byte(p), high_byte(p), low_byte(p >> 16), high_byte(p >> 16)};
      size_ = 7;
    }
  }
  std::span<const uint8_t> bytes() const { return {bytes_.data(), size_}; }

 private:
  std::array<uint8_t, 7> bytes_{};
  size_t size_;
};

// The whole GS ( L / GS 8 L command: head, `fields` bytes, `k` data bytes.
uint64_t graphics_size(uint64_t fields, uint64_t k) {
  return GraphicsHead(fields + k).bytes().size() + fields + k;
}

// The encoders' rules that the key code and the picture's size decide; the
// data must then hold B x h bytes.
bool takes_graphic(uint8_t kc1, uint8_t kc2, int32_t width, int32_t height) {
  return is_key_code(kc1) && is_key_code(kc2) && within(width, 1, kWidestGraphic) &&
         within(height, 1, kTallestGraphic);
}
bool takes_buffered_graphic(int32_t width, int32_t height) {
  return within(height, 1, kTallestBufferedGraphic) && within(width, 1, kWidestBufferedGraphic);
}

constexpr uint64_t kGraphicFields = 11;          // functions 67 and 83
constexpr uint64_t kBufferedGraphicFields = 10;  // function 112

// Functions 67 and 83: define an NV or download graphic under a key code.
int32_t encode_define_graphic(const Target& t, uint8_t function, uint8_t kc1, uint8_t kc2,
                              int32_t width, int32_t height, std::span<const uint8_t> data) {
  const GraphicsHead head(data.size() + kGraphicFields);
  const bool valid = !data.empty() && takes_graphic(kc1, kc2, width, height) &&
                     data.size() == raster_bytes(width, height);
  const int32_t result = escpos::check(t, graphics_size(kGraphicFields, data.size()), valid);
  if (result != VORN_OK) return result;
  const auto w = static_cast<uint32_t>(width);
  const auto h = static_cast<uint32_t>(height);
  escpos::put(t, head.bytes());
  escpos::put(t, {0x30, function, 0x30, kc1, kc2, 0x01, low_byte(w), high_byte(w), low_byte(h),
                  high_byte(h), 0x31});
  escpos::put(t, data);
  return VORN_OK;
}

// Function 112: place a graphic in the print buffer, at scale 1 x 1.
int32_t encode_store_in_print_buffer(const Target& t, int32_t width, int32_t height,
                                     std::span<const uint8_t> data) {
  const GraphicsHead head(data.size() + kBufferedGraphicFields);
  const bool valid = !data.empty() && takes_buffered_graphic(width, height) &&
                     data.size() == raster_bytes(width, height);
  const int32_t result =
      escpos::check(t, graphics_size(kBufferedGraphicFields, data.size()), valid);
  if (result != VORN_OK) return result;
  const auto w = static_cast<uint32_t>(width);
  const auto h = static_cast<uint32_t>(height);
  escpos::put(t, head.bytes());
  escpos::put(t, {0x30, kStoreInPrintBuffer, 0x30, 0x01, 0x01, 0x31, low_byte(w), high_byte(w),
                  low_byte(h), high_byte(h)});
  escpos::put(t, data);
  return VORN_OK;
}

int32_t encode_print_graphic(const Target& t, uint8_t function, uint8_t kc1, uint8_t kc2) {
  return escpos::emit(t, is_key_code(kc1) && is_key_code(kc2),
                      {0x1D, 0x28, 0x4C, 0x06, 0x00, 0x30, function, kc1, kc2, 0x01, 0x01});
}

// FS q n, then each picture's xL xH yL yH and data, all in `pictures`.
int32_t encode_define_nv_bit_images(const Target& t, uint8_t n, std::span<const uint8_t> pictures) {
  return escpos::emit(t, n != 0, {0x1C, 0x71, n}, pictures);
}

// GS * x y and x * 8 * y bytes of columns.
int32_t encode_define_downloaded_bit_image(const Target& t, uint8_t x, uint8_t y,
                                           std::span<const uint8_t> data) {
  const bool valid = x != 0 && y != 0 && data.size() == static_cast<uint64_t>(x) * 8 * y;
  return escpos::emit(t, valid, {0x1D, 0x2A, x, y}, data);
}

// The raster layout of the file at `path`, room for it, then `encode`. A
// picture that `takes` (the encoder's rules on the size) refuses is never
// decoded; `fields` says how long the command is besides its data.
template <typename Takes, typename Encoder>
int32_t define_from_file(CommandContext& context, const VORN_WCHAR* path, uint64_t fields,
                         Takes&& takes, Encoder&& encode) {
  int32_t width = 0;
  int32_t height = 0;
  int32_t result = probe_picture(context, path, kNoHeightLimit, &width, &height);
  if (result != VORN_OK) return result;
  const uint64_t size = raster_bytes(width, height);
  result = check_before_decoding(context, graphics_size(fields, size), takes(width, height));
  if (result != VORN_OK) return result;
  ImageData dots = allocate_image_data(size);
  if (!dots) return VORN_ERR_NO_MEMORY;
  result = image_source().raster(path, width, height, dots.get());
  if (result != VORN_OK) return result;
  result = printer::ensure_room(&context, static_cast<uint32_t>(size + printer::kCommandRoom));
  if (result != VORN_OK) return result;
  return encode(escpos::target_of(context), width, height,
                std::span<const uint8_t>(dots.get(), size));
}

int32_t define_graphic(CommandContext& context, const VORN_WCHAR* path, uint8_t function,
                       int32_t kc1, int32_t kc2) {
  const uint8_t key1 = escpos::byte_of(kc1);
  const uint8_t key2 = escpos::byte_of(kc2);
  return define_from_file(
      context, path, kGraphicFields,
      [&](int32_t w, int32_t h) { return takes_graphic(key1, key2, w, h); },
      [&](const Target& t, int32_t w, int32_t h, std::span<const uint8_t> d) {
        return encode_define_graphic(t, function, key1, key2, w, h, d);
      });
}

int32_t define_buffered_graphic(CommandContext& context, const VORN_WCHAR* path) {
  return define_from_file(context, path, kBufferedGraphicFields, takes_buffered_graphic,
                          encode_store_in_print_buffer);
}

// Units of 8 dots that cover `dots`.
uint64_t units_of(int32_t dots) {
  return (static_cast<uint64_t>(dots) + 7) / 8;
}

struct EachImageInfo {
  uint64_t x;  // width in units of 8 dots
  uint64_t y;  // height in units of 8 dots
  uint64_t data_size;
  int32_t width;
  int32_t height;
};

int32_t build_define_nv_bit_images(CommandContext& context, const VORN_WCHAR* const* paths,
                                   int32_t count) {
  // The image table has room for ten pictures; a negative count has none.
  if (count < 0 || count > kMostNvBitImages) return VORN_ERR_PARAMETER;
  if (count > 0 && paths == nullptr) return VORN_ERR_PARAMETER;

  std::array<EachImageInfo, kMostNvBitImages> table{};
  uint64_t total = 0;
  for (int32_t i = 0; i < count; ++i) {
    EachImageInfo& info = table[i];
    const int32_t result =
        probe_picture(context, paths[i], kNoHeightLimit, &info.width, &info.height);
    if (result != VORN_OK) return result;
    info.x = units_of(info.width);
    info.y = units_of(info.height);
    info.data_size = info.x * info.y * 8;
    total += info.data_size + 4;
  }
  constexpr uint64_t kFsQHead = 3;
  int32_t result = check_before_decoding(context, kFsQHead + total, count != 0);
  if (result != VORN_OK) return result;

  ImageData pictures = allocate_image_data(total);
  if (!pictures) return VORN_ERR_NO_MEMORY;
  uint8_t* position = pictures.get();
  for (int32_t i = 0; i < count; ++i) {
    const EachImageInfo& info = table[i];
    const auto x = static_cast<uint32_t>(info.x);
    const auto y = static_cast<uint32_t>(info.y);
    position[0] = low_byte(x);
    position[1] = high_byte(x);
    position[2] = low_byte(y);
    position[3] = high_byte(y);
    position += 4;
    result = image_source().columns(paths[i], info.width, info.height, position);
    if (result != VORN_OK) return result;
    position += info.data_size;
  }

  result = printer::ensure_room(&context, static_cast<uint32_t>(total + printer::kCommandRoom));
  if (result != VORN_OK) return result;
  return encode_define_nv_bit_images(escpos::target_of(context), escpos::byte_of(count),
                                     std::span<const uint8_t>(pictures.get(), total));
}

int32_t build_define_downloaded_bit_image(CommandContext& context, const VORN_WCHAR* path) {
  int32_t width = 0;
  int32_t height = 0;
  int32_t result = probe_picture(context, path, kNoHeightLimit, &width, &height);
  if (result != VORN_OK) return result;
  const uint64_t x = units_of(width);
  const uint64_t y = units_of(height);
  const uint64_t size = x * y * 8;
  // Pictures over 2040 dots have 256 units or more, which the bytes sent
  // cannot describe: the encoder would refuse them.
  constexpr uint64_t kGsStarHead = 4;
  constexpr uint64_t kMostUnits = 255;
  result = check_before_decoding(context, kGsStarHead + size, x <= kMostUnits && y <= kMostUnits);
  if (result != VORN_OK) return result;
  ImageData columns = allocate_image_data(size);
  if (!columns) return VORN_ERR_NO_MEMORY;
  result = image_source().columns(path, width, height, columns.get());
  if (result != VORN_OK) return result;
  result = printer::ensure_room(&context, static_cast<uint32_t>(size + printer::kCommandRoom));
  if (result != VORN_OK) return result;
  return encode_define_downloaded_bit_image(
      escpos::target_of(context), static_cast<uint8_t>(x & 0xFF), static_cast<uint8_t>(y & 0xFF),
      std::span<const uint8_t>(columns.get(), size));
}

}  // namespace
}  // namespace vorn::image

extern "C" {

using vorn::printer::CommandContext;
namespace escpos = vorn::escpos;
namespace image = vorn::image;

VORN_API int32_t VORN_CALL DefineNVImage(VORN_PRINTER handle, const VORN_WCHAR* filePath,
                                         int32_t kc1, int32_t kc2) {
  return vorn::printer::run_printing_call(handle, [&](CommandContext& c) {
    return image::define_graphic(c, filePath, image::kDefineNvGraphic, kc1, kc2);
  });
}

VORN_API int32_t VORN_CALL DefineDownloadedImage(VORN_PRINTER handle, const VORN_WCHAR* filePath,
                                                 int32_t kc1, int32_t kc2) {
  return vorn::printer::run_printing_call(handle, [&](CommandContext& c) {
    return image::define_graphic(c, filePath, image::kDefineDownloadGraphic, kc1, kc2);
  });
}

VORN_API int32_t VORN_CALL DefineBufferedImage(VORN_PRINTER handle, const VORN_WCHAR* filePath) {
  return vorn::printer::run_printing_call(
      handle, [&](CommandContext& c) { return image::define_buffered_graphic(c, filePath); });
}

// The print and delete commands go into the buffer as it stands.
VORN_API int32_t VORN_CALL PrintNVImage(VORN_PRINTER handle, int32_t kc1, int32_t kc2) {
  return vorn::printer::run_printing_call(handle, [&](CommandContext& c) {
    return image::encode_print_graphic(escpos::target_of(c), image::kPrintNvGraphic,
                                       escpos::byte_of(kc1), escpos::byte_of(kc2));
  });
}

VORN_API int32_t VORN_CALL PrintDownloadedImage(VORN_PRINTER handle, int32_t kc1, int32_t kc2) {
  return vorn::printer::run_printing_call(handle, [&](CommandContext& c) {
    return image::encode_print_graphic(escpos::target_of(c), image::kPrintDownloadGraphic,
                                       escpos::byte_of(kc1), escpos::byte_of(kc2));
  });
}

VORN_API int32_t VORN_CALL PrintBufferedImage(VORN_PRINTER handle) {
  return vorn::printer::run_printing_call(handle, [](CommandContext& c) {
    return escpos::emit(escpos::target_of(c), true, {0x1D, 0x28, 0x4C, 0x02, 0x00, 0x30, 0x32});
  });
}

VORN_API int32_t VORN_CALL DeleteAllNVImages(VORN_PRINTER handle) {
  return vorn::printer::run_printing_call(handle, [](CommandContext& c) {
    return escpos::emit(escpos::target_of(c), true,
                        {0x1D, 0x28, 0x4C, 0x05, 0x00, 0x30, 0x41, 0x43, 0x4C, 0x52});
  });
}

VORN_API int32_t VORN_CALL DefineNVImageCompatible(VORN_PRINTER handle,
                                                   const VORN_WCHAR* const* filePaths,
                                                   int32_t count) {
  return vorn::printer::run_printing_call(handle, [&](CommandContext& c) {
    return image::build_define_nv_bit_images(c, filePaths, count);
  });
}

VORN_API int32_t VORN_CALL PrintNVImageCompatible(VORN_PRINTER handle, int32_t n, int32_t m) {
  const uint8_t number = escpos::byte_of(n);
  const uint8_t scale = escpos::byte_of(m);
  return vorn::printer::run_printing_call(handle, [&](CommandContext& c) {
    return escpos::emit(escpos::target_of(c), number != 0 && image::is_scale(scale),
                        {0x1C, 0x70, number, scale});
  });
}

VORN_API int32_t VORN_CALL DefineDownloadedImageCompatible(VORN_PRINTER handle,
                                                           const VORN_WCHAR* filePath) {
  return vorn::printer::run_printing_call(handle, [&](CommandContext& c) {
    return image::build_define_downloaded_bit_image(c, filePath);
  });
}

// Unlike the other print commands, this one first makes room for 32 bytes.
VORN_API int32_t VORN_CALL PrintDownloadedImageCompatible(VORN_PRINTER handle, int32_t m) {
  const uint8_t scale = escpos::byte_of(m);
  return vorn::printer::run_printing_call(handle, [&](CommandContext& c) {
    return escpos::with_room(c, [&](const escpos::Target& t) {
      return escpos::emit(t, image::is_scale(scale), {0x1D, 0x2F, scale});
    });
  });
}

}  // extern "C"
