#include "image/loaded_image.h"

#include <mutex>

#include "image/conversion.h"

namespace vorn::image {
namespace {

static_assert(sizeof(VORN_WCHAR) == sizeof(char16_t), "image paths are UTF-16");

// The decoder's users: loads in progress and live loaded images. The decoder
// runs while there is at least one. When the library is unloaded with the
// decoder still running (an image command interrupted by the unload), the
// destructor stops it.
class DecoderUsers {
 public:
  ~DecoderUsers() {
    std::lock_guard<std::mutex> hold(lock_);
    stop_decoder();
  }

  // Starts `ops` when no decoder runs; returns 0 or the start's error number.
  int32_t enter(const platform::ImageDecoderOps& ops) {
    std::lock_guard<std::mutex> hold(lock_);
    if (running_ == nullptr) {
      if (ops.start != nullptr) {
        const int32_t result = ops.start();
        if (result != 0) return result;
      }
      running_ = &ops;
    }
    ++users_;
    return 0;
  }

  void leave() {
    std::lock_guard<std::mutex> hold(lock_);
    if (users_ > 0 && --users_ == 0) stop_decoder();
  }

 private:
  void stop_decoder() {
    // The decoder that was started is the one stopped, even if another table
    // was installed meanwhile.
    if (running_ != nullptr && running_->stop != nullptr) running_->stop();
    running_ = nullptr;
  }

  std::mutex lock_;
  uint32_t users_ = 0;
  const platform::ImageDecoderOps* running_ = nullptr;
};

DecoderUsers& decoder_users() {
  static DecoderUsers users;
  return users;
}

}  // namespace

int32_t LoadedImage::load(const VORN_WCHAR* path) {
  release();
  const platform::ImageDecoderOps& ops = platform::image_decoder();
  const int32_t started = decoder_users().enter(ops);
  if (started != 0) return started;
  platform::DecodedImage image = nullptr;
  const int32_t result = ops.load(reinterpret_cast<const char16_t*>(path), &image);
  if (image == nullptr) {
    decoder_users().leave();
    return result;
  }
  ops_ = &ops;
  image_ = image;
  return 0;
}

void LoadedImage::release() {
  if (image_ == nullptr) return;
  ops_->release(image_);
  image_ = nullptr;
  ops_ = nullptr;
  decoder_users().leave();
}

platform::ColourEntry LoadedImage::colour_entry(uint32_t index) const {
  platform::ColourEntry entry;
  if (ops_->colour_table(image_, index, 1, &entry) != 1) return {};
  return entry;
}

const uint8_t* LoadedImage::bit_row(int32_t y) const {
  const uint8_t* top = nullptr;
  ptrdiff_t step = 0;
  ops_->bit_rows(image_, &top, &step);
  return top + static_cast<ptrdiff_t>(y) * step;
}

void LoadedImage::pixel_row(int32_t y, platform::Rgb* out) const {
  if (ops_->pixel_row != nullptr) {
    ops_->pixel_row(image_, y, out);
    return;
  }
  const int32_t columns = width();
  for (int32_t x = 0; x < columns; ++x) out[x] = ops_->pixel(image_, x, y);
}

// The size probe. A decoder that can read a file's size from its headers is
// asked for that; the pixels are decoded once, by the conversion, which
// reports any damage in them. Otherwise the file is loaded to learn its
// size. A failure reports no size (0 x 0), so that a failure without an
// error number still ends in the commands' size check.
int32_t probe_size(const VORN_WCHAR* path, int32_t* width, int32_t* height) {
  *width = 0;
  *height = 0;
  const platform::ImageDecoderOps& ops = platform::image_decoder();
  if (ops.measure != nullptr) {
    const int32_t started = decoder_users().enter(ops);
    if (started != 0) return started;
    int32_t measured_width = 0;
    int32_t measured_height = 0;
    const int32_t result =
        ops.measure(reinterpret_cast<const char16_t*>(path), &measured_width, &measured_height);
    decoder_users().leave();
    if (result != 0) return result;
    *width = measured_width;
    *height = measured_height;
    return 0;
  }
  LoadedImage image;
  const int32_t result = image.load(path);
  if (!image.loaded()) return result;
  *width = image.width();
  *height = image.height();
  return 0;
}

}  // namespace vorn::image
