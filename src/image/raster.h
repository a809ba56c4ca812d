// Printing a picture at once with the raster bit image command (GS v 0), plain
// or with PackBits-coded rows, and the picture rules every image command that
// reads a file shares: the size probe with its limits, and the image data.
#pragma once

#include <vorn/vorn.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>

#include "escpos/encoder.h"
#include "printer/session.h"

namespace vorn::image {

// The widest picture when the session has no capability record.
inline constexpr int32_t kDefaultDotsPerLine = 576;
// The model whose pictures may be at most 900 dots high.
inline constexpr uint32_t kModelWithShortPictures = 0x1721;
inline constexpr int32_t kShortPictureHeight = 900;
// PrintImage's own height limit on every other model.
inline constexpr int32_t kTallestPrintedPicture = 65535;
inline constexpr int32_t kNoHeightLimit = INT32_MAX;

// Loads `path` for its size and applies the size checks: 0 with the size, the
// load failure code, -1 for a null path, or -25 when the width is below 1 or
// above the session's dots per line, or the height below 1 or above the limit
// (900 on model 0x1721, else `tallest`).
int32_t probe_picture(const printer::CommandContext& context, const VORN_WCHAR* path,
                      int32_t tallest, int32_t* width, int32_t* height);

// What the command's encoder will answer a picture of the probed size, found
// before any pixel is decoded: 0 when it will take the command, else -3 (no
// ESC/POS), -2 (a buffer that cannot grow has less than `command_size` bytes
// free) or -1 (`accepted` false: the encoder's rules on the size and the
// parameters refuse it). A buffer that can grow is given room later.
int32_t check_before_decoding(printer::CommandContext& context, uint64_t command_size,
                              bool accepted);

// Zero-filled bytes owned by one call; null when they cannot be had (also for
// sizes no command buffer could ever carry).
struct FreeBytes {
  void operator()(uint8_t* bytes) const { std::free(bytes); }
};
using ImageData = std::unique_ptr<uint8_t[], FreeBytes>;
ImageData allocate_image_data(uint64_t size);

// The scale byte of GS v 0, FS p and GS /: 0-3 or 48-51.
constexpr bool is_scale(uint8_t m) {
  return m <= 3 || (m >= 48 && m <= 51);
}

// GS v 0 m: 8 header bytes and the data, which carries bytes_per_row x height
// bytes. Room for 8 + data bytes; m, bytes_per_row (1-128), height (1-2303)
// and the data size checked.
int32_t encode_raster_image(const escpos::Target& target, uint8_t m, int64_t bytes_per_row,
                            int64_t height, std::span<const uint8_t> data);
// The 8 header bytes of the compressed raster (mode 0x20) alone.
int32_t encode_compressed_raster_header(const escpos::Target& target, int64_t bytes_per_row,
                                        int64_t height);

// PrintImage: the picture from a file, compressed when the capability record
// says the model takes compressed raster.
int32_t build_print_image(printer::CommandContext& context, const VORN_WCHAR* path, int32_t m);
// PrintBitMapData: the caller's rows, where 1 means blank paper.
int32_t build_print_bitmap(printer::CommandContext& context, int32_t m, int32_t width,
                           int32_t height, const uint8_t* data);

}  // namespace vorn::image
