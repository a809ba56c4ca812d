// The Windows image decoder: GDI+ reads every format it knows (BMP, PNG,
// JPEG, GIF, TIFF, ...). A 1-bit indexed file keeps its packed rows and its
// two colour table entries; every other file is taken as 32-bit ARGB and
// kept as red, green, blue bytes with transparency composited on white.
//
// Failures: the thread's last error when GDI+ left one (a missing file
// gives ERROR_FILE_NOT_FOUND); otherwise the file's own open error when it
// cannot be reached, ERROR_NOT_ENOUGH_MEMORY, or ERROR_INVALID_DATA for a
// file that exists but cannot be decoded. A failed load never gives 0.
#include <windows.h>
// GDI+ headers come after windows.h and need its min and max.
#include <algorithm>
namespace Gdiplus {
using std::max;
using std::min;
}  // namespace Gdiplus
#include <gdiplus.h>

#include <cstring>
#include <memory>
#include <new>

#include "platform/decoded_picture.h"
#include "platform/image_decoder.h"
#include "platform/win32/win32_error.h"

namespace vorn::platform {
namespace {

using namespace Gdiplus;
using namespace Gdiplus::DllExports;

// The largest bitmap kept. Far above anything a printer takes (the widest
// print line is under 2048 dots), it keeps a crafted header from asking for
// gigabytes.
constexpr uint64_t kMaxImagePixels = uint64_t{1} << 27;

using Picture = DecodedPicture;

ULONG_PTR gdiplus_token = 0;

int32_t start() {
  GdiplusStartupInput input;
  SetLastError(0);
  const Status status = GdiplusStartup(&gdiplus_token, &input, nullptr);
  return status == Ok ? 0 : last_error_or(ERROR_DLL_INIT_FAILED);
}

void stop() {
  GdiplusShutdown(gdiplus_token);
  gdiplus_token = 0;
}

// Releases a GDI+ image when it goes out of scope.
struct BitmapHolder {
  GpBitmap* bitmap = nullptr;
  ~BitmapHolder() {
    if (bitmap != nullptr) GdipDisposeImage(bitmap);
  }
};

int32_t status_error(Status status, const char16_t* path) {
  const DWORD recorded = GetLastError();
  if (recorded != 0) return static_cast<int32_t>(recorded);
  if (status == OutOfMemory) return ERROR_NOT_ENOUGH_MEMORY;
  // GDI+ says only "generic error" for a file it could not open: ask the
  // file system why.
  SetLastError(0);
  if (GetFileAttributesW(reinterpret_cast<const wchar_t*>(path)) == INVALID_FILE_ATTRIBUTES) {
    return last_error_or(ERROR_FILE_NOT_FOUND);
  }
  return ERROR_INVALID_DATA;
}

int32_t open_bitmap(const char16_t* path, BitmapHolder* holder) {
  if (path == nullptr) return ERROR_INVALID_PARAMETER;
  SetLastError(0);
  const Status status =
      GdipCreateBitmapFromFile(reinterpret_cast<const WCHAR*>(path), &holder->bitmap);
  if (status != Ok || holder->bitmap == nullptr) return status_error(status, path);
  return 0;
}

int32_t read_size(GpBitmap* bitmap, int32_t* width, int32_t* height) {
  UINT w = 0;
  UINT h = 0;
  if (GdipGetImageWidth(bitmap, &w) != Ok || GdipGetImageHeight(bitmap, &h) != Ok || w == 0 ||
      h == 0 || w > INT32_MAX || h > INT32_MAX) {
    return ERROR_INVALID_DATA;
  }
  *width = static_cast<int32_t>(w);
  *height = static_cast<int32_t>(h);
  return 0;
}

// A channel seen through `alpha` (0 transparent, 255 opaque) on white.
uint8_t on_white(uint32_t channel, uint32_t alpha) {
  return static_cast<uint8_t>((channel * alpha + 255 * (255 - alpha) + 127) / 255);
}

ColourEntry entry_of(ARGB colour) {
  const uint32_t alpha = (colour >> 24) & 0xFF;
  ColourEntry entry;
  entry.red = on_white((colour >> 16) & 0xFF, alpha);
  entry.green = on_white((colour >> 8) & 0xFF, alpha);
  entry.blue = on_white(colour & 0xFF, alpha);
  return entry;
}

// The two colours of a 1-bit image; a file without a palette is black on
// white.
int32_t read_palette(GpBitmap* bitmap, Picture* picture) {
  picture->palette[0] = ColourEntry{0, 0, 0, 0};
  picture->palette[1] = ColourEntry{255, 255, 255, 0};
  INT size = 0;
  if (GdipGetImagePaletteSize(bitmap, &size) != Ok ||
      size < static_cast<INT>(sizeof(ColorPalette))) {
    return 0;
  }
  std::unique_ptr<uint8_t[]> storage(new (std::nothrow) uint8_t[static_cast<size_t>(size)]);
  if (!storage) return ERROR_NOT_ENOUGH_MEMORY;
  auto* palette = reinterpret_cast<ColorPalette*>(storage.get());
  if (GdipGetImagePalette(bitmap, palette, size) != Ok) return 0;
  const UINT usable = (static_cast<UINT>(size) - offsetof(ColorPalette, Entries)) / sizeof(ARGB);
  for (UINT i = 0; i < 2 && i < palette->Count && i < usable; ++i) {
    picture->palette[i] = entry_of(palette->Entries[i]);
  }
  return 0;
}

// Copies the bitmap's rows, converted to `format`, row by row through `copy`.
template <typename CopyRow>
int32_t lock_rows(GpBitmap* bitmap, const Picture& picture, PixelFormat format, CopyRow copy) {
  GpRect area{0, 0, picture.width, picture.height};
  BitmapData data{};
  const Status status = GdipBitmapLockBits(bitmap, &area, ImageLockModeRead, format, &data);
  if (status != Ok) return status == OutOfMemory ? ERROR_NOT_ENOUGH_MEMORY : ERROR_INVALID_DATA;
  const auto* top = static_cast<const uint8_t*>(data.Scan0);
  for (int32_t y = 0; y < picture.height; ++y)
    copy(y, top + static_cast<ptrdiff_t>(y) * data.Stride);
  GdipBitmapUnlockBits(bitmap, &data);
  return 0;
}

int32_t decode(GpBitmap* bitmap, Picture* picture) {
  int32_t result = read_size(bitmap, &picture->width, &picture->height);
  if (result != 0) return result;
  PixelFormat format = 0;
  if (GdipGetImagePixelFormat(bitmap, &format) != Ok) return ERROR_INVALID_DATA;
  picture->one_bit = format == PixelFormat1bppIndexed;
  picture->bits_per_pixel =
      picture->one_bit ? 1 : std::clamp<int32_t>(GetPixelFormatSize(format), 4, 32);
  const uint64_t count =
      static_cast<uint64_t>(picture->width) * static_cast<uint64_t>(picture->height);
  if (count > kMaxImagePixels) return ERROR_NOT_ENOUGH_MEMORY;
  const size_t width = static_cast<size_t>(picture->width);
  picture->stride = picture->one_bit ? (width + 7) / 8 : width * 3;
  picture->pixels.reset(new (std::nothrow)
                            uint8_t[picture->stride * static_cast<size_t>(picture->height)]);
  if (!picture->pixels) return ERROR_NOT_ENOUGH_MEMORY;
  uint8_t* const pixels = picture->pixels.get();
  picture->top = pixels;
  picture->step = static_cast<ptrdiff_t>(picture->stride);
  const size_t stride = picture->stride;

  if (picture->one_bit) {
    result = read_palette(bitmap, picture);
    if (result != 0) return result;
    return lock_rows(bitmap, *picture, PixelFormat1bppIndexed, [&](int32_t y, const uint8_t* row) {
      std::memcpy(pixels + static_cast<size_t>(y) * stride, row, stride);
    });
  }
  return lock_rows(bitmap, *picture, PixelFormat32bppARGB, [&](int32_t y, const uint8_t* row) {
    uint8_t* out = pixels + static_cast<size_t>(y) * stride;
    for (size_t x = 0; x < width; ++x, row += 4, out += 3) {
      // Little-endian ARGB: blue, green, red, alpha in memory.
      out[0] = on_white(row[2], row[3]);
      out[1] = on_white(row[1], row[3]);
      out[2] = on_white(row[0], row[3]);
    }
  });
}

int32_t load(const char16_t* path, DecodedImage* out) {
  *out = nullptr;
  BitmapHolder holder;
  int32_t result = open_bitmap(path, &holder);
  if (result != 0) return result;
  std::unique_ptr<Picture> picture(new (std::nothrow) Picture);
  if (!picture) return ERROR_NOT_ENOUGH_MEMORY;
  result = decode(holder.bitmap, picture.get());
  if (result == 0) *out = image_of(picture.release());
  return result;
}

// GDI+ reads a file's headers when it opens it and its pixels only when
// they are asked for.
int32_t measure(const char16_t* path, int32_t* width, int32_t* height) {
  BitmapHolder holder;
  const int32_t result = open_bitmap(path, &holder);
  if (result != 0) return result;
  return read_size(holder.bitmap, width, height);
}

void release(DecodedImage image) {
  delete static_cast<Picture*>(image);
}

constexpr ImageDecoderOps kGdiplusDecoder{
    .start = start,
    .stop = stop,
    .load = load,
    .measure = measure,
    .width = picture_width,
    .height = picture_height,
    .bits_per_pixel = picture_bits_per_pixel,
    .colour_table = picture_colour_table,
    .bit_rows = picture_bit_rows,
    .pixel = picture_pixel,
    .pixel_row = picture_pixel_row,
    .release = release,
    .colour_rows = picture_colour_rows,
};

}  // namespace

const ImageDecoderOps& native_image_decoder() {
  return kGdiplusDecoder;
}

}  // namespace vorn::platform
