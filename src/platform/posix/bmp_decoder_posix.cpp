// Windows bitmaps: uncompressed 1, 4, 8, 16, 24 and 32 bits per pixel
// (bit-field masks for 16 and 32), rows stored bottom-up or top-down, with
// the core (12-byte) or any later info header. Compressed bitmaps (RLE and
// embedded JPEG/PNG) are refused. Every offset is checked against the file's
// size before it is read.
#include <algorithm>
#include <bit>
#include <cstring>

#include "platform/posix/image_store_posix.h"

namespace vorn::platform {
namespace {

constexpr size_t kFileHeaderBytes = 14;
constexpr uint32_t kCoreHeaderBytes = 12;
constexpr uint32_t kInfoHeaderBytes = 40;
constexpr uint32_t kCompressionNone = 0;
constexpr uint32_t kCompressionBitFields = 3;
constexpr uint32_t kCompressionAlphaBitFields = 6;

uint32_t le16(const uint8_t* p) {
  return p[0] | (uint32_t{p[1]} << 8);
}
uint32_t le32(const uint8_t* p) {
  return p[0] | (uint32_t{p[1]} << 8) | (uint32_t{p[2]} << 16) | (uint32_t{p[3]} << 24);
}

// True when [offset, offset + length) lies within the file.
bool within(size_t size, uint64_t offset, uint64_t length) {
  return offset <= size && length <= size - offset;
}

// One colour channel of a bit-field pixel, scaled to 0..255.
struct Channel {
  uint32_t mask = 0;
  int shift = 0;
  uint64_t max = 0;

  // False for a mask whose bits are not contiguous.
  bool set(uint32_t new_mask) {
    mask = new_mask;
    if (mask == 0) return true;
    shift = std::countr_zero(mask);
    max = mask >> shift;
    return ((max + 1) & max) == 0;
  }
  uint8_t of(uint32_t pixel, uint8_t absent) const {
    if (mask == 0) return absent;
    return static_cast<uint8_t>(((pixel & mask) >> shift) * 255 / max);
  }
};

struct BmpLayout {
  int64_t width = 0;
  int64_t height = 0;  // rows, always positive
  bool top_down = false;
  uint32_t bits = 0;
  uint32_t compression = kCompressionNone;
  uint64_t palette_offset = 0;
  uint32_t palette_entries = 0;
  uint32_t palette_entry_bytes = 4;
  uint64_t pixel_offset = 0;
  uint64_t stride = 0;
  Channel red, green, blue, alpha;
};

bool default_masks(BmpLayout* layout) {
  if (layout->bits == 16) {
    return layout->red.set(0x7C00) && layout->green.set(0x03E0) && layout->blue.set(0x001F);
  }
  // 32 bits without masks: the fourth byte is unused, not alpha.
  return layout->red.set(0xFF0000) && layout->green.set(0x00FF00) && layout->blue.set(0x0000FF);
}

// read_layout looks at no byte past this many: the file header, an info
// header's fields and the bit-field masks after it. Bytes further on are
// only checked to lie within the file.
constexpr size_t kLayoutBytes = kFileHeaderBytes + kInfoHeaderBytes + 16;

// `data` holds the file's first min(size, kLayoutBytes) bytes at least.
bool read_layout(const uint8_t* data, size_t size, BmpLayout* layout) {
  if (!within(size, 0, kFileHeaderBytes + 4)) return false;
  layout->pixel_offset = le32(data + 10);
  const uint8_t* header = data + kFileHeaderBytes;
  const uint32_t header_bytes = le32(header);
  if (header_bytes != kCoreHeaderBytes && header_bytes < kInfoHeaderBytes) return false;
  if (!within(size, kFileHeaderBytes, header_bytes)) return false;

  uint64_t after_header = kFileHeaderBytes + uint64_t{header_bytes};
  if (header_bytes == kCoreHeaderBytes) {
    layout->width = le16(header + 4);
    layout->height = le16(header + 6);
    if (le16(header + 8) != 1) return false;
    layout->bits = le16(header + 10);
    layout->palette_entry_bytes = 3;
    if (layout->bits == 16 || layout->bits == 32) return false;
  } else {
    layout->width = static_cast<int32_t>(le32(header + 4));
    const int64_t height = static_cast<int32_t>(le32(header + 8));
    layout->top_down = height < 0;
    layout->height = height < 0 ? -height : height;
    if (le16(header + 12) != 1) return false;
    layout->bits = le16(header + 14);
    layout->compression = le32(header + 16);
    layout->palette_entries = le32(header + 32);
    if (layout->compression == kCompressionBitFields ||
        layout->compression == kCompressionAlphaBitFields) {
      if (layout->bits != 16 && layout->bits != 32) return false;
      // An info header of 40 bytes has the masks after it; later headers
      // carry them inside.
      const bool with_alpha = layout->compression == kCompressionAlphaBitFields;
      const uint64_t masks_at =
          header_bytes == kInfoHeaderBytes ? after_header : kFileHeaderBytes + 40;
      const uint64_t mask_bytes = with_alpha || header_bytes >= 56 ? 16 : 12;
      if (!within(size, masks_at, mask_bytes)) return false;
      if (header_bytes == kInfoHeaderBytes) after_header += mask_bytes;
      const uint8_t* masks = data + masks_at;
      if (!layout->red.set(le32(masks)) || !layout->green.set(le32(masks + 4)) ||
          !layout->blue.set(le32(masks + 8))) {
        return false;
      }
      if (mask_bytes == 16 && !layout->alpha.set(le32(masks + 12))) return false;
    } else if (layout->compression != kCompressionNone) {
      return false;
    } else if ((layout->bits == 16 || layout->bits == 32) && !default_masks(layout)) {
      return false;
    }
  }
  switch (layout->bits) {
    case 1:
    case 4:
    case 8:
    case 16:
    case 24:
    case 32:
      break;
    default:
      return false;
  }
  if (layout->width < 1 || layout->height < 1 || layout->height > INT32_MAX) return false;

  if (layout->bits <= 8) {
    const uint32_t full = uint32_t{1} << layout->bits;
    if (layout->palette_entries == 0 || layout->palette_entries > full) {
      layout->palette_entries = full;
    }
    layout->palette_offset = after_header;
    if (!within(size, layout->palette_offset,
                uint64_t{layout->palette_entries} * layout->palette_entry_bytes)) {
      return false;
    }
  }
  layout->stride = (static_cast<uint64_t>(layout->width) * layout->bits + 31) / 32 * 4;
  return within(size, layout->pixel_offset, layout->stride * static_cast<uint64_t>(layout->height));
}

// Palette entry `index`, black for an index the palette lacks.
ColourEntry palette_entry(const uint8_t* data, const BmpLayout& layout, uint32_t index) {
  if (index >= layout.palette_entries) return {};
  const uint8_t* p = data + layout.palette_offset + uint64_t{index} * layout.palette_entry_bytes;
  return {p[0], p[1], p[2], 0};
}

uint32_t index_at(const uint8_t* row, uint32_t bits, int64_t x) {
  if (bits == 8) return row[x];
  if (bits == 4) return (row[x >> 1] >> ((x & 1) != 0 ? 0 : 4)) & 0x0F;
  return (row[x >> 3] >> (7 - (x & 7))) & 1;
}

void decode_row(const uint8_t* data, const BmpLayout& layout, const uint8_t* in, uint8_t* out) {
  for (int64_t x = 0; x < layout.width; ++x, out += 3) {
    switch (layout.bits) {
      case 24:
        out[0] = in[x * 3 + 2];
        out[1] = in[x * 3 + 1];
        out[2] = in[x * 3];
        break;
      case 16:
      case 32: {
        const uint32_t pixel = layout.bits == 16 ? le16(in + x * 2) : le32(in + x * 4);
        const uint8_t alpha = layout.alpha.of(pixel, 255);
        out[0] = on_white(layout.red.of(pixel, 0), alpha);
        out[1] = on_white(layout.green.of(pixel, 0), alpha);
        out[2] = on_white(layout.blue.of(pixel, 0), alpha);
        break;
      }
      default: {
        const ColourEntry entry = palette_entry(data, layout, index_at(in, layout.bits, x));
        out[0] = entry.red;
        out[1] = entry.green;
        out[2] = entry.blue;
        break;
      }
    }
  }
}

}  // namespace

int32_t decode_bmp(const uint8_t* data, size_t size, ImageStore* store) {
  BmpLayout layout;
  if (!read_layout(data, size, &layout)) return kUndecodableImage;
  const bool one_bit = layout.bits == 1;
  const int32_t result = store->allocate(layout.width, layout.height, one_bit);
  if (result != 0 || store->size_only) return result;
  store->bits_per_pixel = static_cast<int32_t>(layout.bits);
  if (one_bit) {
    store->palette[0] = palette_entry(data, layout, 0);
    store->palette[1] = palette_entry(data, layout, 1);
  }
  for (int32_t y = 0; y < store->height; ++y) {
    const int64_t file_row = layout.top_down ? y : layout.height - 1 - y;
    const uint8_t* in =
        data + layout.pixel_offset + static_cast<uint64_t>(file_row) * layout.stride;
    if (one_bit) {
      std::memcpy(store->row(y), in, store->stride);
    } else {
      decode_row(data, layout, in, store->row(y));
    }
  }
  return 0;
}

// 24-bit and 1-bit rows are used where they lie in the file: a printed
// picture is then read from disk into one buffer and never copied.
int32_t decode_bmp_file(std::unique_ptr<uint8_t[]>* file, size_t size, ImageStore* store) {
  uint8_t* data = file->get();
  BmpLayout layout;
  if (!read_layout(data, size, &layout)) return kUndecodableImage;
  if (layout.bits != 24 && layout.bits != 1) return decode_bmp(data, size, store);
  const bool one_bit = layout.bits == 1;
  const int32_t result = store->check_size(layout.width, layout.height, one_bit);
  if (result != 0) return result;
  store->bits_per_pixel = static_cast<int32_t>(layout.bits);
  if (one_bit) {
    store->palette[0] = palette_entry(data, layout, 0);
    store->palette[1] = palette_entry(data, layout, 1);
  }
  store->blue_first = !one_bit;
  const auto stride = static_cast<ptrdiff_t>(layout.stride);
  uint8_t* first_row = data + layout.pixel_offset;
  uint8_t* top = layout.top_down ? first_row : first_row + (store->height - 1) * stride;
  store->keep(std::move(*file), top, layout.top_down ? stride : -stride);
  return 0;
}

int32_t measure_bmp(FileInput* file, ImageStore* store) {
  uint8_t head[kLayoutBytes];
  const size_t got = file->read(head, sizeof head);
  BmpLayout layout;
  // A file shorter than kLayoutBytes is read whole, and read_layout checks
  // every offset against its size; a longer one has all kLayoutBytes here.
  if (got != std::min<uint64_t>(file->size(), sizeof head) ||
      !read_layout(head, static_cast<size_t>(file->size()), &layout)) {
    return kUndecodableImage;
  }
  return store->check_size(layout.width, layout.height, layout.bits == 1);
}

}  // namespace vorn::platform
