// The POSIX image decoder: PNG (libpng), JPEG (libjpeg-turbo), GIF (giflib,
// first frame) and BMP (our own reader), told apart by their first bytes.
//
// Failures: a file that cannot be opened or read gives the errno of that
// call (ENOENT for a missing file); a file that was read but cannot be
// decoded gives kUndecodableImage (EILSEQ); memory that cannot be had gives
// ENOMEM. A failed load never gives 0.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include "platform/image_decoder.h"
#include "platform/posix/image_store_posix.h"
#include "platform/posix/utf8_posix.h"

namespace vorn::platform {

int32_t ImageStore::allocate(int64_t new_width, int64_t new_height, bool packed_one_bit) {
  if (new_width < 1 || new_height < 1 || new_width > INT32_MAX || new_height > INT32_MAX) {
    return kUndecodableImage;
  }
  const uint64_t pixel_count = static_cast<uint64_t>(new_width) * static_cast<uint64_t>(new_height);
  if (pixel_count > kMaxImagePixels) return ENOMEM;
  const size_t new_stride = packed_one_bit ? (static_cast<size_t>(new_width) + 7) / 8
                                           : static_cast<size_t>(new_width) * 3;
  if (!size_only) {
    pixels.reset(new (std::nothrow) uint8_t[new_stride * static_cast<size_t>(new_height)]);
    if (!pixels) return ENOMEM;
  }
  width = static_cast<int32_t>(new_width);
  height = static_cast<int32_t>(new_height);
  one_bit = packed_one_bit;
  stride = new_stride;
  return 0;
}

namespace {

static_assert(sizeof(Rgb) == 3, "pixel rows are copied as packed red, green, blue bytes");

// Image files are read whole: every reader then works on memory and checks
// its bounds against one size. Larger files than this are no printable image.
constexpr off_t kMaxFileBytes = off_t{1} << 30;

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

// Reads the whole file; 0 or an errno.
int32_t read_file(const std::string& path, std::unique_ptr<uint8_t[]>* bytes, size_t* size) {
  FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.get() < 0) return errno;
  struct stat info {};
  if (::fstat(file.get(), &info) != 0) return errno;
  if (S_ISDIR(info.st_mode)) return EISDIR;
  if (info.st_size > kMaxFileBytes) return EFBIG;
  // A file that grows while it is read is taken as it was when measured; one
  // that shrinks is taken as far as it goes.
  const size_t capacity = static_cast<size_t>(info.st_size);
  bytes->reset(new (std::nothrow) uint8_t[capacity == 0 ? 1 : capacity]);
  if (!*bytes) return ENOMEM;
  size_t done = 0;
  while (done < capacity) {
    const ssize_t n = ::read(file.get(), bytes->get() + done, capacity - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    if (n == 0) break;
    done += static_cast<size_t>(n);
  }
  *size = done;
  return 0;
}

bool starts_with(const uint8_t* data, size_t size, const char* magic, size_t length) {
  return size >= length && std::memcmp(data, magic, length) == 0;
}

int32_t decode(const uint8_t* data, size_t size, ImageStore* store) {
  if (starts_with(data, size, "\x89PNG\r\n\x1a\n", 8)) return decode_png(data, size, store);
  if (starts_with(data, size, "\xFF\xD8\xFF", 3)) return decode_jpeg(data, size, store);
  if (starts_with(data, size, "GIF87a", 6) || starts_with(data, size, "GIF89a", 6)) {
    return decode_gif(data, size, store);
  }
  if (starts_with(data, size, "BM", 2)) return decode_bmp(data, size, store);
  return kUndecodableImage;
}

// Reads and decodes the file into `store` (only its size when the store
// says so); 0 or an error number.
int32_t decode_file(const char16_t* path, ImageStore* store) {
  if (path == nullptr) return EINVAL;
  std::string name;
  // No UTF-8 name can hold an unpaired surrogate, so no such file exists.
  if (!utf16_to_utf8(path, &name)) return ENOENT;
  std::unique_ptr<uint8_t[]> bytes;
  size_t size = 0;
  const int32_t result = read_file(name, &bytes, &size);
  if (result != 0) return result;
  return decode(bytes.get(), size, store);
}

int32_t load(const char16_t* path, DecodedImage* out) {
  *out = nullptr;
  try {
    std::unique_ptr<ImageStore> store(new (std::nothrow) ImageStore);
    if (!store) return ENOMEM;
    const int32_t result = decode_file(path, store.get());
    if (result == 0) *out = store.release();
    return result;
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
}

int32_t measure(const char16_t* path, int32_t* width, int32_t* height) {
  try {
    ImageStore store;
    store.size_only = true;
    const int32_t result = decode_file(path, &store);
    if (result != 0) return result;
    *width = store.width;
    *height = store.height;
    return 0;
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
}

const ImageStore& store_of(DecodedImage image) {
  return *static_cast<const ImageStore*>(image);
}

int32_t width(DecodedImage image) {
  return store_of(image).width;
}
int32_t height(DecodedImage image) {
  return store_of(image).height;
}
int32_t bits_per_pixel(DecodedImage image) {
  return store_of(image).bits_per_pixel;
}

uint32_t colour_table(DecodedImage image, uint32_t first, uint32_t count, ColourEntry* out) {
  const ImageStore& store = store_of(image);
  const uint32_t entries = store.one_bit ? 2 : 0;
  uint32_t copied = 0;
  for (uint32_t index = first; index < entries && copied < count; ++index) {
    out[copied++] = store.palette[index];
  }
  return copied;
}

void bit_rows(DecodedImage image, const uint8_t** top_row, ptrdiff_t* step) {
  const ImageStore& store = store_of(image);
  *top_row = store.pixels.get();
  *step = static_cast<ptrdiff_t>(store.stride);
}

Rgb palette_colour(const ImageStore& store, const uint8_t* row, int32_t x) {
  const ColourEntry& entry = store.palette[(row[x >> 3] >> (7 - (x & 7))) & 1];
  return {entry.red, entry.green, entry.blue};
}

Rgb pixel(DecodedImage image, int32_t x, int32_t y) {
  const ImageStore& store = store_of(image);
  // Outside the bitmap there is only paper.
  if (x < 0 || y < 0 || x >= store.width || y >= store.height) return {255, 255, 255};
  const uint8_t* row = store.row(y);
  if (store.one_bit) return palette_colour(store, row, x);
  const uint8_t* p = row + static_cast<size_t>(x) * 3;
  return {p[0], p[1], p[2]};
}

void pixel_row(DecodedImage image, int32_t y, Rgb* out) {
  const ImageStore& store = store_of(image);
  if (y < 0 || y >= store.height) return;
  const uint8_t* row = store.row(y);
  if (!store.one_bit) {
    std::memcpy(out, row, static_cast<size_t>(store.width) * 3);
    return;
  }
  for (int32_t x = 0; x < store.width; ++x) out[x] = palette_colour(store, row, x);
}

void release(DecodedImage image) {
  delete static_cast<ImageStore*>(image);
}

// libpng, libjpeg and giflib keep no process-wide state to set up, so the
// decoder needs no start or stop.
constexpr ImageDecoderOps kPosixImageDecoder{
    .start = nullptr,
    .stop = nullptr,
    .load = load,
    .measure = measure,
    .width = width,
    .height = height,
    .bits_per_pixel = bits_per_pixel,
    .colour_table = colour_table,
    .bit_rows = bit_rows,
    .pixel = pixel,
    .pixel_row = pixel_row,
    .release = release,
};

}  // namespace

const ImageDecoderOps& native_image_decoder() {
  return kPosixImageDecoder;
}

}  // namespace vorn::platform
