// JPEG through libjpeg-turbo, delivered as RGB; CMYK and YCCK files (as
// written by Adobe applications, with inverted inks) are converted here.
//
// libjpeg reports errors through its error manager, which here jumps back to
// the setjmp of the function that called the library. Those functions hold no
// C++ object with a destructor and read no local changed after setjmp; what
// owns memory lives in the caller. A file that ends early is refused rather
// than printed with the gray filler libjpeg would supply.
// jpeglib.h uses FILE and size_t without including their headers.
// clang-format off
#include <cstddef>
#include <cstdio>
#include <jerror.h>
#include <jpeglib.h>
// clang-format on

#include <csetjmp>
#include <memory>
#include <new>

#include "platform/posix/image_store_posix.h"

namespace vorn::platform {
namespace {

// The size probe's source: the file read on demand, a block at a time.
struct FileSource {
  jpeg_source_mgr manager;
  FileInput* file;
  JOCTET block[4096];
};

// Trivially destructible: it crosses longjmp.
struct JpegReader {
  jpeg_decompress_struct info;
  jpeg_error_mgr errors;
  std::jmp_buf failed;
  FileSource source;
};

[[noreturn]] void jump_out(j_common_ptr info) {
  std::longjmp(static_cast<JpegReader*>(info->client_data)->failed, 1);
}

void on_message(j_common_ptr info, int level) {
  if (level < 0 && info->err->msg_code == JWRN_JPEG_EOF) jump_out(info);
  // Other warnings describe damage libjpeg has recovered from.
}

void no_output(j_common_ptr) {}

// More than a bitmap of the largest accepted size needs, even for the
// coefficient buffers of a progressive file; libjpeg fails cleanly beyond it.
constexpr long kMaxDecoderMemory = 1L << 30;

bool create_reader(JpegReader* reader) {
  reader->info.err = jpeg_std_error(&reader->errors);
  reader->errors.error_exit = jump_out;
  reader->errors.emit_message = on_message;
  reader->errors.output_message = no_output;
  reader->info.client_data = reader;
  if (setjmp(reader->failed)) return false;
  jpeg_create_decompress(&reader->info);
  reader->info.mem->max_memory_to_use = kMaxDecoderMemory;
  return true;
}

void no_start(j_decompress_ptr) {}

// At the end of the file, as libjpeg's memory source does: a warning (which
// ends the reading, see on_message) and an end-of-image marker.
boolean fill_block(j_decompress_ptr info) {
  FileSource& source = static_cast<JpegReader*>(info->client_data)->source;
  size_t got = source.file->read(source.block, sizeof source.block);
  if (got == 0) {
    WARNMS(info, JWRN_JPEG_EOF);
    source.block[0] = 0xFF;
    source.block[1] = JPEG_EOI;
    got = 2;
  }
  source.manager.next_input_byte = source.block;
  source.manager.bytes_in_buffer = got;
  return TRUE;
}

void skip_bytes(j_decompress_ptr info, long count) {
  if (count <= 0) return;
  FileSource& source = static_cast<JpegReader*>(info->client_data)->source;
  const auto wanted = static_cast<size_t>(count);
  if (wanted <= source.manager.bytes_in_buffer) {
    source.manager.next_input_byte += wanted;
    source.manager.bytes_in_buffer -= wanted;
    return;
  }
  source.file->skip(wanted - source.manager.bytes_in_buffer);
  source.manager.bytes_in_buffer = 0;
}

void set_file_source(JpegReader* reader, FileInput* file) {
  FileSource& source = reader->source;
  source.file = file;
  source.manager.init_source = no_start;
  source.manager.fill_input_buffer = fill_block;
  source.manager.skip_input_data = skip_bytes;
  source.manager.resync_to_restart = jpeg_resync_to_restart;
  source.manager.term_source = no_start;
  source.manager.next_input_byte = nullptr;
  source.manager.bytes_in_buffer = 0;
  reader->info.src = &source.manager;
}

// Reads the headers from memory, or from `file` when it is set.
bool read_header(JpegReader* reader, const uint8_t* data, size_t size, FileInput* file) {
  if (setjmp(reader->failed)) return false;
  if (file != nullptr) {
    set_file_source(reader, file);
  } else {
    jpeg_mem_src(&reader->info, data, static_cast<unsigned long>(size));
  }
  jpeg_read_header(&reader->info, TRUE);
  const J_COLOR_SPACE source = reader->info.jpeg_color_space;
  reader->info.out_color_space = source == JCS_CMYK || source == JCS_YCCK ? JCS_CMYK : JCS_RGB;
  jpeg_calc_output_dimensions(&reader->info);
  return true;
}

void cmyk_to_rgb(const uint8_t* cmyk, uint8_t* rgb, JDIMENSION width) {
  // Adobe files store the inks inverted: 255 is no ink.
  for (JDIMENSION x = 0; x < width; ++x, cmyk += 4, rgb += 3) {
    const uint32_t k = cmyk[3];
    rgb[0] = static_cast<uint8_t>((cmyk[0] * k + 127) / 255);
    rgb[1] = static_cast<uint8_t>((cmyk[1] * k + 127) / 255);
    rgb[2] = static_cast<uint8_t>((cmyk[2] * k + 127) / 255);
  }
}

// `cmyk_row` holds one row of 4-byte pixels when the output is CMYK.
bool read_rows(JpegReader* reader, uint8_t* cmyk_row, ImageStore* store) {
  if (setjmp(reader->failed)) return false;
  jpeg_start_decompress(&reader->info);
  while (reader->info.output_scanline < reader->info.output_height) {
    const int32_t y = static_cast<int32_t>(reader->info.output_scanline);
    JSAMPROW row = cmyk_row != nullptr ? cmyk_row : store->row(y);
    if (jpeg_read_scanlines(&reader->info, &row, 1) != 1) ERREXIT(&reader->info, JERR_BAD_LENGTH);
    if (cmyk_row != nullptr) cmyk_to_rgb(cmyk_row, store->row(y), reader->info.output_width);
  }
  return true;
}

class JpegReaderOwner {
 public:
  JpegReaderOwner() : reader_(new (std::nothrow) JpegReader{}) {}
  ~JpegReaderOwner() {
    if (created_) jpeg_destroy_decompress(&reader_->info);
  }
  JpegReaderOwner(const JpegReaderOwner&) = delete;
  JpegReaderOwner& operator=(const JpegReaderOwner&) = delete;
  // False when the reader could not be had.
  bool create() {
    created_ = reader_ != nullptr && create_reader(reader_.get());
    return created_;
  }
  JpegReader* get() const { return reader_.get(); }

 private:
  std::unique_ptr<JpegReader> reader_;
  bool created_ = false;
};

}  // namespace

int32_t decode_jpeg(const uint8_t* data, size_t size, ImageStore* store) {
  JpegReaderOwner owner;
  if (!owner.create()) return ENOMEM;
  JpegReader* reader = owner.get();
  if (!read_header(reader, data, size, nullptr)) return kUndecodableImage;
  const jpeg_decompress_struct& info = reader->info;
  const bool cmyk = info.out_color_space == JCS_CMYK;
  const int32_t result = store->allocate(info.output_width, info.output_height, false);
  if (result != 0 || store->size_only) return result;
  store->bits_per_pixel = cmyk ? 32 : info.num_components == 1 ? 8 : 24;
  std::unique_ptr<uint8_t[]> cmyk_row;
  if (cmyk) {
    cmyk_row.reset(new (std::nothrow) uint8_t[static_cast<size_t>(info.output_width) * 4]);
    if (!cmyk_row) return ENOMEM;
  }
  return read_rows(reader, cmyk_row.get(), store) ? 0 : kUndecodableImage;
}

int32_t measure_jpeg(FileInput* file, ImageStore* store) {
  JpegReaderOwner owner;
  if (!owner.create()) return ENOMEM;
  JpegReader* reader = owner.get();
  if (!read_header(reader, nullptr, 0, file)) return kUndecodableImage;
  return store->check_size(reader->info.output_width, reader->info.output_height, false);
}

}  // namespace vorn::platform
