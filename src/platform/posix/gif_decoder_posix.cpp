// GIF through giflib: the first frame, placed on the logical screen. Screen
// areas the frame leaves uncovered, and its transparent colour, are paper
// (white). Animation frames after the first are never read.
#include <gif_lib.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <span>

#include "platform/posix/image_store_posix.h"

namespace vorn::platform {
namespace {

// The file in memory, or (`file` set) read on demand.
struct GifInput {
  const uint8_t* data;
  size_t size;
  size_t position;
  FileInput* file;
};

int read_bytes(GifFileType* gif, GifByteType* out, int count) {
  auto* input = static_cast<GifInput*>(gif->UserData);
  if (count <= 0) return 0;
  if (input->file != nullptr)
    return static_cast<int>(input->file->read(out, static_cast<size_t>(count)));
  const size_t n = std::min(static_cast<size_t>(count), input->size - input->position);
  std::memcpy(out, input->data + input->position, n);
  input->position += n;
  return static_cast<int>(n);
}

class GifFile {
 public:
  explicit GifFile(GifInput* input) { gif_ = DGifOpen(input, read_bytes, &open_error_); }
  ~GifFile() {
    int error = 0;
    if (gif_ != nullptr) DGifCloseFile(gif_, &error);
  }
  GifFile(const GifFile&) = delete;
  GifFile& operator=(const GifFile&) = delete;
  GifFileType* get() const { return gif_; }
  // Why the file could not be opened: no memory, or anything else.
  int32_t open_failure() const {
    return open_error_ == D_GIF_ERR_NOT_ENOUGH_MEM ? ENOMEM : kUndecodableImage;
  }

 private:
  GifFileType* gif_ = nullptr;
  int open_error_ = 0;
};

constexpr int kNoTransparency = -1;

// Reads one extension through its last sub-block; notes the transparent
// index of a graphic control extension.
bool read_extension(GifFileType* gif, int* transparent) {
  int code = 0;
  GifByteType* block = nullptr;
  if (DGifGetExtension(gif, &code, &block) != GIF_OK) return false;
  if (code == GRAPHICS_EXT_FUNC_CODE && block != nullptr && block[0] >= 4) {
    *transparent = (block[1] & 0x01) != 0 ? block[4] : kNoTransparency;
  }
  while (block != nullptr) {
    if (DGifGetExtensionNext(gif, &block) != GIF_OK) return false;
  }
  return true;
}

// The rows of an interlaced frame arrive in four passes.
struct Pass {
  int first;
  int step;
};
constexpr Pass kInterlacePasses[] = {{0, 8}, {4, 8}, {2, 4}, {1, 2}};
constexpr Pass kSequential[] = {{0, 1}};

int32_t read_frame(GifFileType* gif, int transparent, ImageStore* store) {
  const GifImageDesc& frame = gif->Image;
  const ColorMapObject* map = frame.ColorMap != nullptr ? frame.ColorMap : gif->SColorMap;
  if (map == nullptr || map->Colors == nullptr || frame.Width < 1 || frame.Height < 1 ||
      frame.Left < 0 || frame.Top < 0) {
    return kUndecodableImage;
  }
  // A frame reaching past a (possibly zero) logical screen enlarges it.
  const int64_t width = std::max<int64_t>(gif->SWidth, int64_t{frame.Left} + frame.Width);
  const int64_t height = std::max<int64_t>(gif->SHeight, int64_t{frame.Top} + frame.Height);
  int32_t result = store->allocate(width, height, false);
  if (result != 0 || store->size_only) return result;
  store->bits_per_pixel = 8;
  std::memset(store->pixels.get(), 0xFF, store->stride * static_cast<size_t>(store->height));

  std::unique_ptr<GifPixelType[]> line(new (std::nothrow) GifPixelType[frame.Width]);
  if (!line) return ENOMEM;
  const auto passes = frame.Interlace ? std::span<const Pass>(kInterlacePasses)
                                      : std::span<const Pass>(kSequential);
  for (const Pass& pass : passes) {
    for (int y = pass.first; y < frame.Height; y += pass.step) {
      if (DGifGetLine(gif, line.get(), frame.Width) != GIF_OK) return kUndecodableImage;
      uint8_t* out = store->row(frame.Top + y) + static_cast<size_t>(frame.Left) * 3;
      for (int x = 0; x < frame.Width; ++x, out += 3) {
        const int index = line[x];
        if (index == transparent) continue;
        // An index past the colour table has no colour: black.
        const GifColorType colour =
            index < map->ColorCount ? map->Colors[index] : GifColorType{0, 0, 0};
        out[0] = colour.Red;
        out[1] = colour.Green;
        out[2] = colour.Blue;
      }
    }
  }
  return 0;
}

}  // namespace

namespace {

int32_t decode_gif_input(GifInput* input, ImageStore* store) {
  GifFile file(input);
  GifFileType* gif = file.get();
  if (gif == nullptr) return file.open_failure();
  int transparent = kNoTransparency;
  for (;;) {
    GifRecordType type = UNDEFINED_RECORD_TYPE;
    if (DGifGetRecordType(gif, &type) != GIF_OK) return kUndecodableImage;
    switch (type) {
      case IMAGE_DESC_RECORD_TYPE:
        if (DGifGetImageDesc(gif) != GIF_OK) return kUndecodableImage;
        return read_frame(gif, transparent, store);
      case EXTENSION_RECORD_TYPE:
        if (!read_extension(gif, &transparent)) return kUndecodableImage;
        break;
      default:  // the trailer, or anything else, before any frame
        return kUndecodableImage;
    }
  }
}

}  // namespace

int32_t decode_gif(const uint8_t* data, size_t size, ImageStore* store) {
  GifInput input{data, size, 0, nullptr};
  return decode_gif_input(&input, store);
}

// read_frame stops after the frame's descriptor when only the size is wanted.
int32_t measure_gif(FileInput* file, ImageStore* store) {
  GifInput input{nullptr, 0, 0, file};
  return decode_gif_input(&input, store);
}

}  // namespace vorn::platform
