// The POSIX image decoder: PNG (our own reader for the common kinds,
// libpng for the others), JPEG (libjpeg-turbo), GIF (giflib,
// first frame) and BMP (our own reader), told apart by their first bytes.
//
// Failures: a file that cannot be opened or read gives the errno of that
// call (ENOENT for a missing file); a file that was read but cannot be
// decoded gives kUndecodableImage (EILSEQ); memory that cannot be had gives
// ENOMEM. A failed load never gives 0.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include "platform/image_decoder.h"
#include "platform/posix/image_store_posix.h"
#include "platform/posix/utf8_posix.h"

namespace vorn::platform {

int32_t ImageStore::check_size(int64_t new_width, int64_t new_height, bool packed_one_bit) {
  if (new_width < 1 || new_height < 1 || new_width > INT32_MAX || new_height > INT32_MAX) {
    return kUndecodableImage;
  }
  const uint64_t pixel_count = static_cast<uint64_t>(new_width) * static_cast<uint64_t>(new_height);
  if (pixel_count > kMaxImagePixels) return ENOMEM;
  width = static_cast<int32_t>(new_width);
  height = static_cast<int32_t>(new_height);
  one_bit = packed_one_bit;
  stride = packed_one_bit ? (static_cast<size_t>(new_width) + 7) / 8
                          : static_cast<size_t>(new_width) * 3;
  return 0;
}

int32_t ImageStore::allocate(int64_t new_width, int64_t new_height, bool packed_one_bit) {
  const int32_t result = check_size(new_width, new_height, packed_one_bit);
  if (result != 0 || size_only) return result;
  pixels.reset(new (std::nothrow) uint8_t[stride * static_cast<size_t>(height)]);
  if (!pixels) return ENOMEM;
  top = pixels.get();
  step = static_cast<ptrdiff_t>(stride);
  return 0;
}

void ImageStore::keep(std::unique_ptr<uint8_t[]> memory, uint8_t* top_row, ptrdiff_t row_step) {
  pixels = std::move(memory);
  top = top_row;
  step = row_step;
}

size_t FileInput::read(uint8_t* out, size_t count) {
  size_t done = 0;
  while (done < count && position_ < size_) {
    const size_t wanted = static_cast<size_t>(std::min<uint64_t>(count - done, size_ - position_));
    const ssize_t n = ::pread(fd_, out + done, wanted, static_cast<off_t>(position_));
    if (n < 0) {
      if (errno == EINTR) continue;
      error_ = errno;
      break;
    }
    if (n == 0) break;
    done += static_cast<size_t>(n);
    position_ += static_cast<uint64_t>(n);
  }
  return done;
}

namespace {

static_assert(sizeof(Rgb) == 3, "pixel rows are copied as packed red, green, blue bytes");

// Image files are read whole (all but a PNG too large to be held beside its
// inflated rows): every reader then works on memory and checks its bounds
// against one size. Larger files than this are no printable image.
constexpr off_t kMaxFileBytes = off_t{1} << 30;

class FileDescriptor {
 public:
  FileDescriptor() = default;
  ~FileDescriptor() { reset(-1); }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }
  void reset(int fd) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

// Opens the file and learns its size; 0 or an errno.
int32_t open_file(const char16_t* path, FileDescriptor* file, size_t* size) {
  if (path == nullptr) return EINVAL;
  std::string name;
  // No UTF-8 name can hold an unpaired surrogate, so no such file exists.
  if (!utf16_to_utf8(path, &name)) return ENOENT;
  file->reset(::open(name.c_str(), O_RDONLY | O_CLOEXEC));
  if (file->get() < 0) return errno;
  struct stat info {};
  if (::fstat(file->get(), &info) != 0) return errno;
  if (S_ISDIR(info.st_mode)) return EISDIR;
  if (info.st_size > kMaxFileBytes) return EFBIG;
  *size = static_cast<size_t>(info.st_size);
  return 0;
}

// Reads the whole file, as far as it went when measured; 0 or an errno. A
// file that grows while it is read is taken as it was when measured; one
// that shrinks is taken as far as it goes.
int32_t read_file(const FileDescriptor& file, size_t capacity, std::unique_ptr<uint8_t[]>* bytes,
                  size_t* size) {
  bytes->reset(new (std::nothrow) uint8_t[capacity == 0 ? 1 : capacity]);
  if (!*bytes) return ENOMEM;
  FileInput input(file.get(), capacity);
  *size = input.read(bytes->get(), capacity);
  return input.error();
}

bool starts_with(const uint8_t* data, size_t size, const char* magic, size_t length) {
  return size >= length && std::memcmp(data, magic, length) == 0;
}

enum class Format { kPng, kJpeg, kGif, kBmp, kUnknown };

Format format_of(const uint8_t* data, size_t size) {
  if (starts_with(data, size, "\x89PNG\r\n\x1a\n", 8)) return Format::kPng;
  if (starts_with(data, size, "\xFF\xD8\xFF", 3)) return Format::kJpeg;
  if (starts_with(data, size, "GIF87a", 6) || starts_with(data, size, "GIF89a", 6)) {
    return Format::kGif;
  }
  if (starts_with(data, size, "BM", 2)) return Format::kBmp;
  return Format::kUnknown;
}

int32_t decode(std::unique_ptr<uint8_t[]>* file, size_t size, ImageStore* store) {
  const uint8_t* data = file->get();
  switch (format_of(data, size)) {
    case Format::kPng:
      return decode_png_file(file, size, store);
    case Format::kJpeg:
      return decode_jpeg(data, size, store);
    case Format::kGif:
      return decode_gif(data, size, store);
    case Format::kBmp:
      return decode_bmp_file(file, size, store);
    case Format::kUnknown:
      break;
  }
  return kUndecodableImage;
}

int32_t load(const char16_t* path, DecodedImage* out) {
  *out = nullptr;
  try {
    FileDescriptor file;
    size_t capacity = 0;
    int32_t result = open_file(path, &file, &capacity);
    if (result != 0) return result;
    std::unique_ptr<ImageStore> store(new (std::nothrow) ImageStore);
    if (!store) return ENOMEM;
    FileInput input(file.get(), capacity);
    const bool decoded = decode_png_on_demand(&input, store.get(), &result);
    // A file that cannot be read is no damaged image.
    if (input.error() != 0) return input.error();
    if (!decoded) {
      std::unique_ptr<uint8_t[]> bytes;
      size_t size = 0;
      result = read_file(file, capacity, &bytes, &size);
      if (result != 0) return result;
      result = decode(&bytes, size, store.get());
    }
    if (result == 0) *out = image_of(store.release());
    return result;
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
}

// Only the headers are read: the pixels are decoded once, by the load.
int32_t measure(const char16_t* path, int32_t* width, int32_t* height) {
  try {
    FileDescriptor file;
    size_t size = 0;
    int32_t result = open_file(path, &file, &size);
    if (result != 0) return result;
    FileInput input(file.get(), size);
    uint8_t magic[8];
    const size_t magic_size = input.read(magic, sizeof magic);
    input.restart();
    ImageStore store;
    store.size_only = true;
    switch (format_of(magic, magic_size)) {
      case Format::kPng:
        result = measure_png(&input, &store);
        break;
      case Format::kJpeg:
        result = measure_jpeg(&input, &store);
        break;
      case Format::kGif:
        result = measure_gif(&input, &store);
        break;
      case Format::kBmp:
        result = measure_bmp(&input, &store);
        break;
      case Format::kUnknown:
        result = kUndecodableImage;
        break;
    }
    // A file that cannot be read is no damaged image.
    if (input.error() != 0) return input.error();
    if (result != 0) return result;
    *width = store.width;
    *height = store.height;
    return 0;
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
}

void release(DecodedImage image) {
  delete static_cast<ImageStore*>(static_cast<DecodedPicture*>(image));
}

// libpng, libjpeg and giflib keep no process-wide state to set up, so the
// decoder needs no start or stop.
constexpr ImageDecoderOps kPosixImageDecoder{
    .start = nullptr,
    .stop = nullptr,
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
  return kPosixImageDecoder;
}

}  // namespace vorn::platform
