// PNG files of the common kinds without libpng: 8 bits per sample, gray,
// RGB, palette, gray with alpha or RGBA, not interlaced. The image data is
// inflated whole by libdeflate (much faster than zlib's streaming inflate)
// into the filtered rows, which are then unfiltered and turned into the
// store's rows in the same buffer where the sizes allow.
//
// The reader takes only files it is sure libpng decodes, and decodes them to
// the same pixels: well-formed chunks with good CRCs, nothing libpng would
// warn about or ignore, and image data that inflates to exactly the rows
// and ends with the last IDAT chunk. Anything else (other depths,
// interlacing, damage of any kind, odd chunks) goes to libpng, so that a
// damaged file fails as it always did.
#include <libdeflate.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "platform/posix/image_store_posix.h"

namespace vorn::platform {
namespace {

constexpr uint8_t kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
// libpng refuses larger sizes by default, and larger chunks other than the
// image data (at 8 000 000 bytes); staying well below keeps its verdict.
constexpr uint32_t kMaxSide = 1000000;
constexpr uint32_t kMaxChunkBytes = 1 << 20;
// libdeflate inflates the image data in one call, so the reader holds the
// whole file and all the inflated rows at once. A file for which the two
// together come to more than this is left to libpng, which inflates it from
// the file in pieces, holding only the rows: for a photo as large as a
// printer takes (1680 x 2303, 11 MiB of rows from a 6 MiB file) that is
// 11 MiB rather than 17, at zlib's speed instead of libdeflate's.
constexpr uint64_t kMaxWholeBytes = uint64_t{12} << 20;

constexpr uint32_t chunk_type(const char (&name)[5]) {
  return (uint32_t{static_cast<uint8_t>(name[0])} << 24) |
         (uint32_t{static_cast<uint8_t>(name[1])} << 16) |
         (uint32_t{static_cast<uint8_t>(name[2])} << 8) | uint32_t{static_cast<uint8_t>(name[3])};
}
constexpr uint32_t kIhdr = chunk_type("IHDR");
constexpr uint32_t kPlte = chunk_type("PLTE");
constexpr uint32_t kTrns = chunk_type("tRNS");
constexpr uint32_t kIdat = chunk_type("IDAT");

enum ColourType : uint8_t { kGray = 0, kRgb = 2, kPalette = 3, kGrayAlpha = 4, kRgba = 6 };

uint32_t be32(const uint8_t* p) {
  return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}
uint32_t be16(const uint8_t* p) {
  return (uint32_t{p[0]} << 8) | p[1];
}

bool is_letter(uint8_t c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

struct Layout {
  uint32_t width = 0;
  uint32_t height = 0;
  uint8_t colour_type = 0;
  uint32_t channels = 0;
  const uint8_t* palette = nullptr;  // 3 bytes per entry
  uint32_t palette_entries = 0;
  const uint8_t* trns = nullptr;
  uint32_t trns_bytes = 0;
  // The IDAT chunks: the first one's start and the end of the last one.
  size_t idat_begin = 0;
  size_t idat_end = 0;
  uint32_t idat_chunks = 0;
  uint64_t compressed_bytes = 0;
  uint64_t row_bytes = 0;  // filter byte included
};

// Samples per pixel; 0 for a colour type PNG does not have.
uint32_t channels_of(uint8_t colour_type) {
  switch (colour_type) {
    case kGray:
    case kPalette:
      return 1;
    case kGrayAlpha:
      return 2;
    case kRgb:
      return 3;
    case kRgba:
      return 4;
    default:
      return 0;
  }
}

bool read_ihdr(const uint8_t* data, uint32_t length, Layout* layout) {
  if (length != 13) return false;
  layout->width = be32(data);
  layout->height = be32(data + 4);
  layout->colour_type = data[9];
  // Depth 8, deflate, adaptive filtering, no interlacing.
  if (data[8] != 8 || data[10] != 0 || data[11] != 0 || data[12] != 0) return false;
  if (layout->width < 1 || layout->height < 1 || layout->width > kMaxSide ||
      layout->height > kMaxSide) {
    return false;
  }
  layout->channels = channels_of(layout->colour_type);
  if (layout->channels == 0) return false;
  layout->row_bytes = uint64_t{layout->width} * layout->channels + 1;
  return true;
}

// A transparency chunk libpng takes as it is: of the right length and with
// sample values an 8-bit image can have.
bool read_trns(const uint8_t* data, uint32_t length, Layout* layout) {
  if (layout->trns != nullptr) return false;
  switch (layout->colour_type) {
    case kGray:
      if (length != 2 || be16(data) > 255) return false;
      break;
    case kRgb:
      if (length != 6 || be16(data) > 255 || be16(data + 2) > 255 || be16(data + 4) > 255) {
        return false;
      }
      break;
    case kPalette:
      if (layout->palette == nullptr || length < 1 || length > layout->palette_entries) {
        return false;
      }
      break;
    default:
      return false;
  }
  layout->trns = data;
  layout->trns_bytes = length;
  return true;
}

// Walks the chunks up to the end of the image data.
bool read_layout(const uint8_t* data, size_t size, Layout* layout) {
  if (size < sizeof kSignature || std::memcmp(data, kSignature, sizeof kSignature) != 0) {
    return false;
  }
  size_t at = sizeof kSignature;
  bool have_header = false;
  for (;;) {
    if (size - at < 12) break;
    const uint32_t length = be32(data + at);
    const uint8_t* type_bytes = data + at + 4;
    const uint32_t type = be32(type_bytes);
    if (length > size - at - 12) break;
    const uint8_t* body = data + at + 8;
    const size_t next = at + 12 + length;
    if (type == kIdat) {
      if (!have_header || (layout->colour_type == kPalette && layout->palette == nullptr)) {
        return false;
      }
      if (layout->idat_chunks > 0 && layout->idat_end != at) return false;
      if (layout->idat_chunks == 0) layout->idat_begin = at;
    } else if (layout->idat_chunks > 0) {
      break;  // the image data has ended; libpng reads no further
    } else if (length > kMaxChunkBytes) {
      return false;
    }
    for (int i = 0; i < 4; ++i) {
      if (!is_letter(type_bytes[i])) return false;
    }
    if (libdeflate_crc32(0, type_bytes, length + 4) != be32(body + length)) return false;
    if (!have_header) {
      if (type != kIhdr || !read_ihdr(body, length, layout)) return false;
      have_header = true;
    } else if (type == kIdat) {
      ++layout->idat_chunks;
      layout->compressed_bytes += length;
      layout->idat_end = next;
      // libpng refuses IDAT chunks somewhat longer than the rows they hold.
      if (length > layout->row_bytes * layout->height) return false;
    } else if (type == kPlte) {
      if (layout->colour_type != kPalette || layout->palette != nullptr || length % 3 != 0 ||
          length == 0 || length > 256 * 3) {
        return false;
      }
      layout->palette = body;
      layout->palette_entries = length / 3;
    } else if (type == kTrns) {
      if (!read_trns(body, length, layout)) return false;
    } else if ((type_bytes[0] & 0x20) == 0) {
      return false;  // IHDR again, IEND before the image data, or unknown and critical
    }
    at = next;
  }
  return layout->idat_chunks > 0;
}

// One IDAT chunk's data moved down in the file's bytes to join the data
// before it, with the 12 bytes it covered (the CRC before, the length and
// type of its own chunk), so that the move can be undone.
struct MovedData {
  size_t from;
  size_t to;
  uint32_t length;
  uint8_t covered[12];
};

// The image data in one piece: in place when it is one chunk or when the
// file's bytes may be changed (`writable`; the moves are noted in `moved`),
// else copied into `joined`.
const uint8_t* compressed_data(const uint8_t* data, uint8_t* writable, const Layout& layout,
                               std::unique_ptr<uint8_t[]>* joined, std::vector<MovedData>* moved) {
  size_t at = layout.idat_begin;
  if (layout.idat_chunks == 1) return data + at + 8;
  const uint8_t* start = nullptr;
  uint8_t* out = nullptr;
  if (writable != nullptr) {
    // The first chunk's data stays; the others move down behind it.
    moved->reserve(layout.idat_chunks - 1);
    const uint32_t first_length = be32(data + at);
    start = data + at + 8;
    out = writable + at + 8 + first_length;
    at += 12 + size_t{first_length};
  } else {
    joined->reset(new (std::nothrow) uint8_t[layout.compressed_bytes]);
    if (!*joined) return nullptr;
    start = out = joined->get();
  }
  while (at < layout.idat_end) {
    const uint32_t length = be32(data + at);
    if (writable != nullptr) {
      MovedData move{at + 8, static_cast<size_t>(out - writable), length, {}};
      std::memcpy(move.covered, data + at - 4, 12);
      moved->push_back(move);
    }
    std::memmove(out, data + at + 8, length);
    out += length;
    at += 12 + size_t{length};
  }
  return start;
}

// Puts the file's bytes back as they were before compressed_data.
void undo_moves(uint8_t* writable, const std::vector<MovedData>& moved) {
  for (auto move = moved.rbegin(); move != moved.rend(); ++move) {
    std::memmove(writable + move->from, writable + move->to, move->length);
    std::memcpy(writable + move->from - 12, move->covered, 12);
  }
}

struct Deflater {
  libdeflate_decompressor* d = libdeflate_alloc_decompressor();
  ~Deflater() { libdeflate_free_decompressor(d); }
  Deflater() = default;
  Deflater(const Deflater&) = delete;
  Deflater& operator=(const Deflater&) = delete;
};

bool inflate_all(const uint8_t* in, size_t in_bytes, uint8_t* out, size_t out_bytes) {
  Deflater deflater;
  if (deflater.d == nullptr) return false;
  size_t read = 0;
  size_t written = 0;
  return libdeflate_zlib_decompress_ex(deflater.d, in, in_bytes, out, out_bytes, &read, &written) ==
             LIBDEFLATE_SUCCESS &&
         read == in_bytes && written == out_bytes;
}

uint8_t paeth(uint8_t a, uint8_t b, uint8_t c) {
  const int pa = std::abs(int{b} - int{c});
  const int pb = std::abs(int{a} - int{c});
  const int pc = std::abs(int{a} + int{b} - 2 * int{c});
  const uint8_t pick = pb <= pc ? b : c;
  return pa <= pb && pa <= pc ? a : pick;
}

// Undoes one row's filter. `prior` is the row above, unfiltered (zeros for
// the first row); `row` has `bytes` bytes after its filter byte. Templated
// on the pixel size so that each loop handles whole pixels.
template <uint32_t kBpp>
bool unfilter(uint8_t* row, const uint8_t* prior, size_t bytes) {
  uint8_t* cur = row + 1;
  switch (row[0]) {
    case 0:
      return true;
    case 1:
      for (size_t i = kBpp; i < bytes; ++i) cur[i] = static_cast<uint8_t>(cur[i] + cur[i - kBpp]);
      return true;
    case 2:
      for (size_t i = 0; i < bytes; ++i) cur[i] = static_cast<uint8_t>(cur[i] + prior[i]);
      return true;
    case 3:
      for (size_t i = 0; i < kBpp; ++i) cur[i] = static_cast<uint8_t>(cur[i] + (prior[i] >> 1));
      for (size_t i = kBpp; i < bytes; ++i) {
        cur[i] = static_cast<uint8_t>(cur[i] + ((cur[i - kBpp] + prior[i]) >> 1));
      }
      return true;
    case 4:
      for (size_t i = 0; i < kBpp; ++i) cur[i] = static_cast<uint8_t>(cur[i] + prior[i]);
      for (size_t i = kBpp; i < bytes; i += kBpp) {
        for (size_t k = 0; k < kBpp; ++k) {
          cur[i + k] = static_cast<uint8_t>(
              cur[i + k] + paeth(cur[i + k - kBpp], prior[i + k], prior[i + k - kBpp]));
        }
      }
      return true;
    default:
      return false;  // libpng stops at a filter it does not know
  }
}

bool unfilter_row(uint32_t bpp, uint8_t* row, const uint8_t* prior, size_t bytes) {
  switch (bpp) {
    case 1:
      return unfilter<1>(row, prior, bytes);
    case 2:
      return unfilter<2>(row, prior, bytes);
    case 3:
      return unfilter<3>(row, prior, bytes);
    default:
      return unfilter<4>(row, prior, bytes);
  }
}

// Colours of one-channel pixels (gray or palette index), transparency on
// white; a palette index past the palette is black, as libpng gives it.
struct ColourTable {
  uint8_t rgb[256][3] = {};
};

void fill_table(const Layout& layout, ColourTable* table) {
  for (uint32_t i = 0; i < 256; ++i) {
    uint8_t colour[3] = {0, 0, 0};
    uint32_t alpha = 255;
    if (layout.colour_type == kGray) {
      colour[0] = colour[1] = colour[2] = static_cast<uint8_t>(i);
      if (layout.trns != nullptr && be16(layout.trns) == i) alpha = 0;
    } else {
      if (i < layout.palette_entries) std::memcpy(colour, layout.palette + i * 3, 3);
      if (i < layout.trns_bytes) alpha = layout.trns[i];
    }
    for (int c = 0; c < 3; ++c) table->rgb[i][c] = on_white(colour[c], alpha);
  }
}

// One unfiltered row of the file (`in`, `width` pixels) as store pixels.
// `out` may be `in` itself or lie before it for pixels of 3 bytes or more.
void convert_row(const Layout& layout, const ColourTable& table, const uint8_t* in, uint8_t* out) {
  const uint32_t width = layout.width;
  switch (layout.colour_type) {
    case kGray:
    case kPalette:
      for (uint32_t x = 0; x < width; ++x, out += 3) std::memcpy(out, table.rgb[in[x]], 3);
      return;
    case kGrayAlpha:
      for (uint32_t x = 0; x < width; ++x, in += 2, out += 3) {
        out[0] = out[1] = out[2] = on_white(in[0], in[1]);
      }
      return;
    case kRgb: {
      const uint8_t* key = layout.trns;
      for (uint32_t x = 0; x < width; ++x, in += 3, out += 3) {
        const uint8_t r = in[0], g = in[1], b = in[2];
        const bool clear = key != nullptr && r == key[1] && g == key[3] && b == key[5];
        out[0] = clear ? 255 : r;
        out[1] = clear ? 255 : g;
        out[2] = clear ? 255 : b;
      }
      return;
    }
    default:
      for (uint32_t x = 0; x < width; ++x, in += 4, out += 3) {
        const uint8_t r = in[0], g = in[1], b = in[2], a = in[3];
        if (a == 255) {
          out[0] = r, out[1] = g, out[2] = b;
        } else {
          out[0] = on_white(r, a), out[1] = on_white(g, a), out[2] = on_white(b, a);
        }
      }
      return;
  }
}

int32_t reported_depth(const Layout& layout) {
  switch (layout.colour_type) {
    case kPalette:
      return 8;
    case kGray:
      return layout.trns != nullptr ? 32 : 8;
    case kRgb:
      return layout.trns != nullptr ? 32 : 24;
    default:
      return 32;
  }
}

// Unfilters the inflated rows and fills the store. RGB rows without
// transparency stay where they are; other pixels of 3 or 4 bytes are turned
// into store rows in the same buffer, each row once the row below it is
// unfiltered (which needs it); smaller ones go to a bitmap of their own.
bool build_rows(const Layout& layout, std::unique_ptr<uint8_t[]> rows, ImageStore* store) {
  const size_t row_bytes = static_cast<size_t>(layout.row_bytes);
  const size_t bytes = row_bytes - 1;
  const uint32_t height = layout.height;
  std::unique_ptr<uint8_t[]> zeros(new (std::nothrow) uint8_t[bytes]());
  if (!zeros) return false;
  uint8_t* base = rows.get();
  const bool keep_as_is = layout.colour_type == kRgb && layout.trns == nullptr;
  const bool in_place = !keep_as_is && layout.channels >= 3;
  ColourTable table;
  if (layout.channels == 1) fill_table(layout, &table);
  if (!keep_as_is && !in_place && store->allocate(layout.width, height, false) != 0) return false;
  const size_t out_stride = size_t{layout.width} * 3;
  for (uint32_t y = 0; y < height; ++y) {
    uint8_t* row = base + y * row_bytes;
    const uint8_t* prior = y == 0 ? zeros.get() : row - row_bytes + 1;
    if (!unfilter_row(layout.channels, row, prior, bytes)) return false;
    if (keep_as_is) continue;
    if (!in_place) {
      convert_row(layout, table, row + 1, store->row(static_cast<int32_t>(y)));
    } else if (y > 0) {
      convert_row(layout, table, prior, base + (y - 1) * out_stride);
    }
  }
  if (keep_as_is) {
    store->keep(std::move(rows), base + 1, static_cast<ptrdiff_t>(row_bytes));
  } else if (in_place) {
    convert_row(layout, table, base + (height - 1) * row_bytes + 1,
                base + (height - 1) * out_stride);
    store->keep(std::move(rows), base, static_cast<ptrdiff_t>(out_stride));
  }
  return true;
}

bool decode_direct(const uint8_t* data, uint8_t* writable, size_t size, ImageStore* store) {
  Layout layout;
  if (!read_layout(data, size, &layout)) return false;
  if (store->check_size(layout.width, layout.height, false) != 0) return false;
  const size_t inflated_bytes = static_cast<size_t>(layout.row_bytes * layout.height);
  std::unique_ptr<uint8_t[]> rows(new (std::nothrow) uint8_t[inflated_bytes]);
  if (!rows) return false;
  std::unique_ptr<uint8_t[]> joined;
  std::vector<MovedData> moved;
  const uint8_t* compressed = compressed_data(data, writable, layout, &joined, &moved);
  const bool inflated =
      compressed != nullptr && inflate_all(compressed, static_cast<size_t>(layout.compressed_bytes),
                                           rows.get(), inflated_bytes);
  // libpng is to see the file as it came.
  if (!inflated) {
    undo_moves(writable, moved);
    return false;
  }
  joined.reset();
  store->bits_per_pixel = reported_depth(layout);
  return build_rows(layout, std::move(rows), store);
}

}  // namespace

bool decode_png_direct(const uint8_t* data, size_t size, ImageStore* store) {
  return decode_direct(data, nullptr, size, store);
}

namespace {

int32_t decode_png_bytes(const uint8_t* data, uint8_t* writable, size_t size, ImageStore* store) {
  if (!store->size_only) {
    ImageStore direct;
    if (decode_direct(data, writable, size, &direct)) {
      *store = std::move(direct);
      return 0;
    }
  }
  return decode_png_general(data, size, store);
}

}  // namespace

int32_t decode_png(const uint8_t* data, size_t size, ImageStore* store) {
  return decode_png_bytes(data, nullptr, size, store);
}

int32_t decode_png_file(std::unique_ptr<uint8_t[]>* file, size_t size, ImageStore* store) {
  return decode_png_bytes(file->get(), file->get(), size, store);
}

bool decode_png_on_demand(FileInput* file, ImageStore* store, int32_t* result) {
  // Signature, then the header chunk's length, type and 13 bytes of data.
  uint8_t head[29];
  const bool whole_head = file->read(head, sizeof head) == sizeof head;
  file->restart();
  if (!whole_head || std::memcmp(head, kSignature, sizeof kSignature) != 0 ||
      be32(head + 8) != 13 || be32(head + 12) != kIhdr) {
    return false;
  }
  const uint64_t width = be32(head + 16);
  const uint64_t height = be32(head + 20);
  const uint32_t depth = head[24];
  const uint32_t channels = channels_of(head[25]);
  // Headers libpng refuses anyway are left to the whole-file path.
  if (width > kMaxSide || height > kMaxSide || depth > 16 || channels == 0) return false;
  const uint64_t inflated_bytes = ((width * channels * depth + 7) / 8 + 1) * height;
  if (file->size() + inflated_bytes <= kMaxWholeBytes) return false;
  *result = decode_png_general(file, store);
  return true;
}

}  // namespace vorn::platform
