#include "image/raster.h"

#include "image/conversion.h"
#include "image/image_source.h"
#include "image/packbits.h"

namespace vorn::image {
namespace {

using escpos::Target;

constexpr uint64_t kRasterHeaderSize = 8;
constexpr int64_t kWidestRasterRow = 128;  // bytes, so 1024 dots
constexpr int64_t kTallestRasterImage = 2303;
constexpr uint8_t kCompressedMode = 0x20;
// Image data, coding buffer and the room asked for must stay within what a
// 32-bit command buffer can hold.
constexpr uint64_t kLargestImageData = 0x7FFF0000;

bool fits_raster(int64_t bytes_per_row, int64_t height) {
  return bytes_per_row >= 1 && bytes_per_row <= kWidestRasterRow && height >= 1 &&
         height <= kTallestRasterImage;
}

uint32_t room_for(uint64_t data_size) {
  return static_cast<uint32_t>(data_size + printer::kCommandRoom);
}

bool compresses_raster(const printer::CommandContext& context) {
  return context.record != nullptr && context.record->compressed_raster != 0;
}

// Header, then the coded rows. Once the header is in, every failure is taken
// back by the caller's Rollback.
int32_t append_compressed(printer::CommandContext& context, int64_t bytes_per_row, int32_t height,
                          std::span<const uint8_t> data) {
  // A coded row never exceeds twice its length.
  ImageData coded = allocate_image_data(2 * data.size());
  if (!coded) return VORN_ERR_NO_MEMORY;
  const auto row_size = static_cast<size_t>(bytes_per_row);
  size_t coded_length = 0;
  for (size_t row = 0; row < static_cast<size_t>(height); ++row) {
    coded_length += pack_row(data.subspan(row * row_size, row_size), coded.get() + coded_length);
  }

  int32_t result =
      encode_compressed_raster_header(escpos::target_of(context), bytes_per_row, height);
  if (result != VORN_OK) return result;
  // Room for the rows as coded: noisy rows code longer than they are.
  result = printer::ensure_room(&context, room_for(coded_length));
  if (result != VORN_OK) return result;
  // Only a buffer that cannot grow may still be short.
  const int64_t free_space = static_cast<int64_t>(context.capacity) - context.length;
  if (context.buffer == nullptr || free_space < static_cast<int64_t>(coded_length)) {
    return VORN_ERR_BUFFER_TOO_SMALL;
  }
  escpos::put(escpos::target_of(context), std::span<const uint8_t>(coded.get(), coded_length));
  return VORN_OK;
}

}  // namespace

int32_t probe_picture(const printer::CommandContext& context, const VORN_WCHAR* path,
                      int32_t tallest, int32_t* width, int32_t* height) {
  // A load that fails without an error number reports no size: 0 x 0.
  *width = 0;
  *height = 0;
  if (path == nullptr) return VORN_ERR_PARAMETER;
  const int32_t result = image_source().probe(path, width, height);
  if (result != VORN_OK) return result;
  const int64_t widest =
      context.record != nullptr ? context.record->dots_per_line : kDefaultDotsPerLine;
  if (context.model_id == kModelWithShortPictures) tallest = kShortPictureHeight;
  if (*width < 1 || *width > widest || *height < 1 || *height > tallest) {
    return VORN_ERR_IMAGE_SIZE;
  }
  return VORN_OK;
}

int32_t check_before_decoding(printer::CommandContext& context, uint64_t command_size,
                              bool accepted) {
  return escpos::check(escpos::target_of(context), context.growable != 0 ? 0 : command_size,
                       accepted);
}

ImageData allocate_image_data(uint64_t size) {
  if (size > kLargestImageData) return nullptr;
  // calloc: large pictures get zeroed pages without touching them first.
  return ImageData(static_cast<uint8_t*>(std::calloc(size == 0 ? 1 : size, 1)));
}

int32_t encode_raster_image(const Target& target, uint8_t m, int64_t bytes_per_row, int64_t height,
                            std::span<const uint8_t> data) {
  const bool valid = is_scale(m) && fits_raster(bytes_per_row, height) &&
                     data.size() == static_cast<uint64_t>(bytes_per_row * height);
  const int32_t result = escpos::check(target, kRasterHeaderSize + data.size(), valid);
  if (result != VORN_OK) return result;
  const auto b = static_cast<uint32_t>(bytes_per_row);
  const auto h = static_cast<uint32_t>(height);
  escpos::put(target, {0x1D, 0x76, 0x30, m, escpos::low_byte(b), 0x00, escpos::low_byte(h),
                       escpos::high_byte(h)});
  escpos::put(target, data);
  return VORN_OK;
}

int32_t encode_compressed_raster_header(const Target& target, int64_t bytes_per_row,
                                        int64_t height) {
  const auto b = static_cast<uint32_t>(bytes_per_row);
  const auto h = static_cast<uint32_t>(height);
  return escpos::emit(target, fits_raster(bytes_per_row, height),
                      {0x1D, 0x76, 0x30, kCompressedMode, escpos::low_byte(b), 0x00,
                       escpos::low_byte(h), escpos::high_byte(h)});
}

int32_t build_print_image(printer::CommandContext& context, const VORN_WCHAR* path, int32_t m) {
  int32_t width = 0;
  int32_t height = 0;
  int32_t result = probe_picture(context, path, kTallestPrintedPicture, &width, &height);
  if (result != VORN_OK) return result;

  // Pictures the command cannot carry (wider than 1024 dots, 2304 dots high
  // or more) pass the size checks and are refused here, undecoded. The
  // compressed raster ignores m, and its rows' length is known only once
  // they are coded: its header is what must fit.
  const int64_t bytes_per_row = (static_cast<int64_t>(width) + 7) / 8;
  const uint64_t size = raster_bytes(width, height);
  const bool compressed = compresses_raster(context);
  result = compressed ? check_before_decoding(context, kRasterHeaderSize,
                                              fits_raster(bytes_per_row, height))
                      : check_before_decoding(
                            context, kRasterHeaderSize + size,
                            is_scale(escpos::byte_of(m)) && fits_raster(bytes_per_row, height));
  if (result != VORN_OK) return result;
  ImageData dots = allocate_image_data(size);
  if (!dots) return VORN_ERR_NO_MEMORY;

  escpos::Rollback rollback(context);
  result = image_source().raster(path, width, height, dots.get());
  if (result != VORN_OK) return result;
  const std::span<const uint8_t> data(dots.get(), size);

  // The mode of the compressed raster is fixed: the caller's m plays no part.
  if (compressed) {
    return rollback.finish(append_compressed(context, bytes_per_row, height, data));
  }
  result = printer::ensure_room(&context, room_for(size));
  if (result != VORN_OK) return result;
  return rollback.finish(encode_raster_image(escpos::target_of(context), escpos::byte_of(m),
                                             bytes_per_row, height, data));
}

int32_t build_print_bitmap(printer::CommandContext& context, int32_t m, int32_t width,
                           int32_t height, const uint8_t* data) {
  const int64_t bytes_per_row = (static_cast<int64_t>(width) + 7) / 8;
  // Sizes the command cannot carry are refused by the encoder; their data is
  // neither read nor given room.
  const bool carried = data != nullptr && fits_raster(bytes_per_row, height);
  const uint64_t size = carried ? static_cast<uint64_t>(bytes_per_row * height) : 0;
  ImageData copy = allocate_image_data(size);
  if (!copy) return VORN_ERR_NO_MEMORY;
  // The caller's 1 is blank paper; the printer's 1 is a dot.
  for (uint64_t i = 0; i < size; ++i) copy[i] = static_cast<uint8_t>(~data[i]);

  escpos::Rollback rollback(context);
  const int32_t result = printer::ensure_room(&context, room_for(size));
  if (result != VORN_OK) return result;
  return rollback.finish(encode_raster_image(escpos::target_of(context), escpos::byte_of(m),
                                             bytes_per_row, height,
                                             std::span<const uint8_t>(copy.get(), size)));
}

}  // namespace vorn::image

extern "C" {

using vorn::printer::CommandContext;

VORN_API int32_t VORN_CALL PrintImage(VORN_PRINTER handle, const VORN_WCHAR* filePath, int32_t m) {
  return vorn::printer::run_printing_call(
      handle, [&](CommandContext& c) { return vorn::image::build_print_image(c, filePath, m); });
}

VORN_API int32_t VORN_CALL PrintBitMapData(VORN_PRINTER handle, int32_t m, int32_t width,
                                           int32_t height, const uint8_t* data) {
  return vorn::printer::run_printing_call(handle, [&](CommandContext& c) {
    return vorn::image::build_print_bitmap(c, m, width, height, data);
  });
}

}  // extern "C"
