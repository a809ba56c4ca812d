// Every PNG through libpng (the common kinds usually take the direct reader,
// png_direct_decoder_posix.cpp). 1-bit images (palette or gray) keep their packed rows
// and two colour table entries; everything else becomes 8-bit RGBA, which is
// composited on white into the store.
//
// libpng reports errors by longjmp back to the setjmp of the function that
// called it. The functions that call setjmp below therefore hold no C++
// object with a destructor, change no local they read after the jump, and
// call only C code and plain helpers between setjmp and return; everything
// that owns memory lives in the caller.
#include <png.h>

#include <csetjmp>
#include <cstring>
#include <memory>
#include <new>

#include "platform/posix/image_store_posix.h"

namespace vorn::platform {
namespace {

// The file in memory, or (`file` set) read on demand. Trivially
// destructible: it crosses longjmp.
struct PngInput {
  const uint8_t* data;
  size_t size;
  size_t position;
  FileInput* file;
};

struct PngHeader {
  png_uint_32 width;
  png_uint_32 height;
  int bit_depth;
  int colour_type;
  int interlace;
};

void read_bytes(png_structp png, png_bytep out, size_t count) {
  auto* input = static_cast<PngInput*>(png_get_io_ptr(png));
  if (input->file != nullptr) {
    if (input->file->read(out, count) != count) png_error(png, "file ends early");
    return;
  }
  if (count > input->size - input->position) png_error(png, "file ends early");
  std::memcpy(out, input->data + input->position, count);
  input->position += count;
}

// Errors end the decoding silently: the caller turns them into one error
// number, and the application's standard error is none of the library's
// business. Warnings (unknown chunks, odd but harmless values) are no
// failures at all.
[[noreturn]] void fail(png_structp png, png_const_charp) {
  png_longjmp(png, 1);
}
void ignore_warning(png_structp, png_const_charp) {}

bool read_header(png_structp png, png_infop info, PngHeader* header) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_read_info(png, info);
  png_get_IHDR(png, info, &header->width, &header->height, &header->bit_depth, &header->colour_type,
               &header->interlace, nullptr, nullptr);
  return true;
}

void composite_row(const uint8_t* rgba, uint8_t* rgb, png_uint_32 width) {
  for (png_uint_32 x = 0; x < width; ++x, rgba += 4, rgb += 3) {
    const uint32_t alpha = rgba[3];
    if (alpha == 255) {
      rgb[0] = rgba[0];
      rgb[1] = rgba[1];
      rgb[2] = rgba[2];
    } else {
      rgb[0] = on_white(rgba[0], alpha);
      rgb[1] = on_white(rgba[1], alpha);
      rgb[2] = on_white(rgba[2], alpha);
    }
  }
}

// Packed 1-bit rows as the file has them, most significant bit leftmost.
bool read_one_bit_rows(png_structp png, png_infop info, ImageStore* store) {
  if (setjmp(png_jmpbuf(png))) return false;
  const int passes = png_set_interlace_handling(png);
  png_read_update_info(png, info);
  for (int pass = 0; pass < passes; ++pass) {
    for (int32_t y = 0; y < store->height; ++y) png_read_row(png, store->row(y), nullptr);
  }
  return true;
}

// Where colour rows go. Without transparency libpng delivers RGB straight
// into the store; with it, RGBA rows that are then composited on white.
struct ColourRows {
  bool with_alpha;
  uint8_t* rgba_row;  // non-interlaced with alpha: one row of work
  png_bytepp rows;    // interlaced: the rows the passes fill (store or RGBA work)
};

void ask_for_colours(png_structp png, const PngHeader& header, bool with_alpha) {
  png_set_expand(png);  // palette and low-depth gray to 8 bits, tRNS to alpha
  png_set_scale_16(png);
  if (header.colour_type == PNG_COLOR_TYPE_GRAY ||
      header.colour_type == PNG_COLOR_TYPE_GRAY_ALPHA) {
    png_set_gray_to_rgb(png);
  }
  if (with_alpha) png_set_add_alpha(png, 0xFF, PNG_FILLER_AFTER);
}

bool read_colour_rows(png_structp png, png_infop info, const PngHeader* header,
                      const ColourRows* target, ImageStore* store) {
  if (setjmp(png_jmpbuf(png))) return false;
  ask_for_colours(png, *header, target->with_alpha);
  png_set_interlace_handling(png);
  png_read_update_info(png, info);
  const size_t channels = target->with_alpha ? 4 : 3;
  if (png_get_rowbytes(png, info) != static_cast<size_t>(header->width) * channels) {
    png_error(png, "unexpected row layout");
  }
  if (target->rows != nullptr) {
    png_read_image(png, target->rows);
    if (target->with_alpha) {
      for (int32_t y = 0; y < store->height; ++y) {
        composite_row(target->rows[y], store->row(y), header->width);
      }
    }
    return true;
  }
  for (int32_t y = 0; y < store->height; ++y) {
    if (target->with_alpha) {
      png_read_row(png, target->rgba_row, nullptr);
      composite_row(target->rgba_row, store->row(y), header->width);
    } else {
      png_read_row(png, store->row(y), nullptr);
    }
  }
  return true;
}

class PngReadStruct {
 public:
  PngReadStruct() {
    png_ = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, fail, ignore_warning);
    if (png_ != nullptr) info_ = png_create_info_struct(png_);
  }
  ~PngReadStruct() {
    if (png_ != nullptr)
      png_destroy_read_struct(&png_, info_ != nullptr ? &info_ : nullptr, nullptr);
  }
  PngReadStruct(const PngReadStruct&) = delete;
  PngReadStruct& operator=(const PngReadStruct&) = delete;
  bool ready() const { return png_ != nullptr && info_ != nullptr; }
  png_structp png() const { return png_; }
  png_infop info() const { return info_; }

 private:
  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
};

ColourEntry entry_on_white(uint8_t red, uint8_t green, uint8_t blue, uint8_t alpha) {
  return {on_white(blue, alpha), on_white(green, alpha), on_white(red, alpha), 0};
}

// The two colour table entries of a 1-bit image, transparency composited on
// white. An index the palette lacks reads as black.
void one_bit_palette(png_structp png, png_infop info, const PngHeader& header, ImageStore* store) {
  png_bytep trans_alpha = nullptr;
  int trans_count = 0;
  png_color_16p trans_colour = nullptr;
  const bool has_trns =
      png_get_tRNS(png, info, &trans_alpha, &trans_count, &trans_colour) & PNG_INFO_tRNS;
  if (header.colour_type == PNG_COLOR_TYPE_PALETTE) {
    png_colorp palette = nullptr;
    int count = 0;
    if (!(png_get_PLTE(png, info, &palette, &count) & PNG_INFO_PLTE)) count = 0;
    for (int i = 0; i < 2; ++i) {
      const png_color colour = i < count ? palette[i] : png_color{0, 0, 0};
      const uint8_t alpha =
          has_trns && trans_alpha != nullptr && i < trans_count ? trans_alpha[i] : uint8_t{255};
      store->palette[i] = entry_on_white(colour.red, colour.green, colour.blue, alpha);
    }
    store->bits_per_pixel = 1;
    return;
  }
  for (int i = 0; i < 2; ++i) {
    const uint8_t level = i == 0 ? 0 : 255;
    const bool transparent = has_trns && trans_colour != nullptr && (trans_colour->gray & 1) == i;
    store->palette[i] = entry_on_white(level, level, level, transparent ? 0 : 255);
  }
  store->bits_per_pixel = 1;
}

int32_t reported_depth(const PngHeader& header, bool has_trns) {
  switch (header.colour_type) {
    case PNG_COLOR_TYPE_PALETTE:
      return header.bit_depth == 8 ? 8 : 4;
    case PNG_COLOR_TYPE_GRAY:
      return has_trns ? 32 : (header.bit_depth == 16 ? 16 : 8);
    case PNG_COLOR_TYPE_RGB:
      return has_trns ? 32 : 24;
    default:  // gray or colour with alpha
      return 32;
  }
}

int32_t decode_general(PngInput* input, ImageStore* store) {
  PngReadStruct reader;
  if (!reader.ready()) return ENOMEM;
  png_structp png = reader.png();
  png_infop info = reader.info();
  png_set_read_fn(png, input, read_bytes);

  PngHeader header{};
  if (!read_header(png, info, &header)) return kUndecodableImage;
  const bool one_bit = header.bit_depth == 1 && (header.colour_type == PNG_COLOR_TYPE_PALETTE ||
                                                 header.colour_type == PNG_COLOR_TYPE_GRAY);
  const int32_t result = store->allocate(header.width, header.height, one_bit);
  if (result != 0 || store->size_only) return result;

  if (one_bit) {
    one_bit_palette(png, info, header, store);
    // libpng leaves the bits beyond the last pixel of a row as it finds them,
    // and interlaced passes combine with what is there.
    std::memset(store->pixels.get(), 0, store->stride * header.height);
    return read_one_bit_rows(png, info, store) ? 0 : kUndecodableImage;
  }
  const bool has_trns = png_get_valid(png, info, PNG_INFO_tRNS) != 0;
  store->bits_per_pixel = reported_depth(header, has_trns);
  ColourRows target{has_trns || (header.colour_type & PNG_COLOR_MASK_ALPHA) != 0, nullptr, nullptr};
  const size_t rgba_row_bytes = static_cast<size_t>(header.width) * 4;
  std::unique_ptr<uint8_t[]> rgba;
  std::unique_ptr<png_bytep[]> rows;
  if (header.interlace == PNG_INTERLACE_NONE) {
    if (target.with_alpha) {
      rgba.reset(new (std::nothrow) uint8_t[rgba_row_bytes]);
      if (!rgba) return ENOMEM;
      target.rgba_row = rgba.get();
    }
  } else {
    // Passes after the first combine with what earlier passes left.
    rows.reset(new (std::nothrow) png_bytep[header.height]);
    if (!rows) return ENOMEM;
    if (target.with_alpha) {
      rgba.reset(new (std::nothrow) uint8_t[rgba_row_bytes * header.height]());
      if (!rgba) return ENOMEM;
    }
    for (png_uint_32 y = 0; y < header.height; ++y) {
      rows[y] = target.with_alpha ? rgba.get() + y * rgba_row_bytes : store->row(y);
    }
    target.rows = rows.get();
  }
  return read_colour_rows(png, info, &header, &target, store) ? 0 : kUndecodableImage;
}

}  // namespace

int32_t decode_png_general(const uint8_t* data, size_t size, ImageStore* store) {
  PngInput input{data, size, 0, nullptr};
  return decode_general(&input, store);
}

int32_t decode_png_general(FileInput* file, ImageStore* store) {
  PngInput input{nullptr, 0, 0, file};
  return decode_general(&input, store);
}

int32_t measure_png(FileInput* file, ImageStore* store) {
  PngReadStruct reader;
  if (!reader.ready()) return ENOMEM;
  PngInput input{nullptr, 0, 0, file};
  png_set_read_fn(reader.png(), &input, read_bytes);
  PngHeader header{};
  if (!read_header(reader.png(), reader.info(), &header)) return kUndecodableImage;
  const bool one_bit = header.bit_depth == 1 && (header.colour_type == PNG_COLOR_TYPE_PALETTE ||
                                                 header.colour_type == PNG_COLOR_TYPE_GRAY);
  return store->check_size(header.width, header.height, one_bit);
}

}  // namespace vorn::platform
