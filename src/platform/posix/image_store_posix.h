// The decoded bitmap behind every POSIX image decoder, and the per-format
// readers that fill it from a file's bytes.
//
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/decoded_picture.h"
#include "platform/image_decoder.h"

namespace vorn::platform {

// The one number every reader gives for a file that exists and was read but
// cannot be decoded: corrupt, truncated, or of a format no reader takes.
// POSIX has no "bad image" errno; EILSEQ ("invalid or incomplete multibyte or
// wide character", an illegal byte sequence) is the closest in meaning and is
// never produced by opening or reading a file, so it cannot be mistaken for
// an I/O failure.
inline constexpr int32_t kUndecodableImage = EILSEQ;

// The largest bitmap a reader builds. Far above anything a printer takes
// (the widest print line is under 2048 dots), it keeps a crafted header from
// asking for gigabytes; a larger image fails with ENOMEM.
inline constexpr uint64_t kMaxImagePixels = uint64_t{1} << 27;

// A decoded picture as the POSIX readers fill it.
struct ImageStore : DecodedPicture {
  // Set before decoding when only the size is wanted: `allocate` then records
  // the size without making room, and the readers stop there.
  bool size_only = false;

  // Makes room for `width` x `height` pixels of the given kind, rows next to
  // each other; the pixels are left undefined. Returns 0, ENOMEM, or
  // kUndecodableImage for a size below 1. With `size_only` it checks and
  // records the size but makes no room.
  int32_t allocate(int64_t new_width, int64_t new_height, bool packed_one_bit);
  // Checks and records the size as `allocate` does, without making room: the
  // reader then hands over rows it has already (`keep`).
  int32_t check_size(int64_t new_width, int64_t new_height, bool packed_one_bit);
  void keep(std::unique_ptr<uint8_t[]> memory, uint8_t* top_row, ptrdiff_t row_step);
};

// A channel seen through `alpha` (0 transparent, 255 opaque) on white.
inline uint8_t on_white(uint32_t channel, uint32_t alpha) {
  return static_cast<uint8_t>((channel * alpha + 255 * (255 - alpha) + 127) / 255);
}

// An image file read from its start on demand: the size probe takes only a
// file's headers, however large the file. Reads stop at the size the file
// had when it was opened.
class FileInput {
 public:
  FileInput(int fd, uint64_t size) : fd_(fd), size_(size) {}
  uint64_t size() const { return size_; }
  uint64_t position() const { return position_; }
  // Copies up to `count` bytes from the reading position into `out` and
  // moves past them; returns how many, fewer only at the end of the file or
  // when reading fails.
  size_t read(uint8_t* out, size_t count);
  // Moves `count` bytes on without reading them (at most to the end).
  void skip(uint64_t count) { position_ = count > size_ - position_ ? size_ : position_ + count; }
  void restart() { position_ = 0; }
  // The errno of a failed read, else 0.
  int32_t error() const { return error_; }

 private:
  int fd_;
  uint64_t size_;
  uint64_t position_ = 0;
  int32_t error_ = 0;
};

// The readers. Each returns 0 with the store filled, kUndecodableImage, or
// ENOMEM. None reads outside [data, data + size).
int32_t decode_png(const uint8_t* data, size_t size, ImageStore* store);
int32_t decode_jpeg(const uint8_t* data, size_t size, ImageStore* store);
int32_t decode_gif(const uint8_t* data, size_t size, ImageStore* store);
int32_t decode_bmp(const uint8_t* data, size_t size, ImageStore* store);

// The common kinds of PNG without libpng: true with the store filled, false
// (the store left to be thrown away) for a file it leaves to libpng.
bool decode_png_direct(const uint8_t* data, size_t size, ImageStore* store);
// Every PNG through libpng; decode_png takes the common kinds itself and
// passes the others here.
int32_t decode_png_general(const uint8_t* data, size_t size, ImageStore* store);
// The same, reading from `file` on demand.
int32_t decode_png_general(FileInput* file, ImageStore* store);

// The same for the file's bytes in `*file`, which the reader may take over
// into the store, to keep rows that are already there, or use as work space.
int32_t decode_bmp_file(std::unique_ptr<uint8_t[]>* file, size_t size, ImageStore* store);
int32_t decode_png_file(std::unique_ptr<uint8_t[]>* file, size_t size, ImageStore* store);
// For a PNG too large to hold whole beside its inflated rows: decodes it
// from `file` on demand, sets `*result` and returns true. Returns false,
// `file` back at its start, for any other file, which is then read whole.
bool decode_png_on_demand(FileInput* file, ImageStore* store, int32_t* result);

// The size probe's readers: the same checks and results as the readers
// above with `size_only` set, reading only as far into `file` as the
// headers go.
int32_t measure_png(FileInput* file, ImageStore* store);
int32_t measure_jpeg(FileInput* file, ImageStore* store);
int32_t measure_gif(FileInput* file, ImageStore* store);
int32_t measure_bmp(FileInput* file, ImageStore* store);

}  // namespace vorn::platform
