#include "escpos_commands.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace vorn::cli {
namespace {

using namespace std::string_view_literals;

[[gnu::format(printf, 1, 2)]] std::string text_of(const char* format, ...) {
  char text[256];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return text;
}

const char* on_off(unsigned n) {
  return (n & 1) != 0 ? "on" : "off";
}

const char* scale_words(unsigned m) {
  switch (choice(m)) {
    case 0:
      return "";
    case 1:
      return ", double width";
    case 2:
      return ", double height";
    case 3:
      return ", double width and height";
    default:
      return ", unknown scale";
  }
}

std::string key_words(unsigned kc1, unsigned kc2) {
  bool printable = kc1 >= 0x20 && kc1 < 0x7F && kc2 >= 0x20 && kc2 < 0x7F;
  return printable ? text_of("key \"%c%c\"", kc1, kc2) : text_of("key 0x%02X 0x%02X", kc1, kc2);
}

// Barcode and symbol data is quoted when it is text without control bytes
// (packed CODE128 digits are not); long data is cut by quoted().
std::string data_words(Bytes data) {
  for (uint8_t b : data) {
    if (b < 0x20 || b == 0x7F) return "";
  }
  if (data.empty()) return "";
  std::string words = " ";
  words += quoted(data, 40);
  return words;
}

std::string print_mode(Bytes c) {
  unsigned n = c[2];
  std::string words;
  auto add = [&](unsigned bit, const char* word) {
    if ((n & bit) == 0) return;
    words += words.empty() ? " " : ", ";
    words += word;
  };
  add(0x01, "font B");
  add(0x08, "bold");
  add(0x10, "double height");
  add(0x20, "double width");
  add(0x80, "underline");
  return text_of("ESC ! 0x%02X print mode%s", n, words.empty() ? " normal" : words.c_str());
}

std::string font(Bytes c) {
  static constexpr const char* kFonts[] = {"font A", "font B", "font C", "unknown font"};
  int n = choice(c[2]);
  return text_of("ESC M %u %s", c[2], kFonts[n < 0 || n > 2 ? 3 : n]);
}

std::string underline(Bytes c) {
  static constexpr const char* kUnderlines[] = {"underline off", "underline one dot",
                                                "underline two dots", "unknown underline"};
  int n = choice(c[2]);
  return text_of("ESC - %u %s", c[2], kUnderlines[n < 0 || n > 2 ? 3 : n]);
}

std::string justification(Bytes c) {
  static constexpr const char* kSides[] = {"left", "centre", "right", "unknown justification"};
  int n = choice(c[2]);
  return text_of("ESC a %u %s", c[2], kSides[n < 0 || n > 2 ? 3 : n]);
}

std::string drawer_pulse(Bytes c) {
  int pin = choice(c[2]);
  const char* connector = pin == 0 ? "pin 2" : pin == 1 ? "pin 5" : "unknown pin";
  return text_of("ESC p %u %u %u drawer pulse %s, on %u ms, off %u ms", c[2], c[3], c[4], connector,
                 c[3] * 2, c[4] * 2);
}

// ESC W with its four fields from `at`.
std::string print_area(Bytes c, size_t at) {
  return text_of("ESC W print area x %u y %u width %u height %u", u16_at(c, at), u16_at(c, at + 2),
                 u16_at(c, at + 4), u16_at(c, at + 6));
}

std::string print_direction(Bytes c) {
  static constexpr const char* kDirections[] = {"left to right", "bottom to top", "right to left",
                                                "top to bottom", "unknown direction"};
  int n = choice(c[2]);
  return text_of("ESC T %u print direction %s", c[2], kDirections[n < 0 ? 4 : n]);
}

std::string bit_image(Bytes c) {
  return text_of("ESC * %u bit image, %u columns of %u dots", c[2], u16_at(c, 3),
                 c[2] >= 32 ? 24 : 8);
}

std::string character_size(Bytes c) {
  unsigned n = c[2];
  unsigned width = (n >> 4 & 7) + 1;
  unsigned height = (n & 7) + 1;
  if ((n & 0x88) != 0) return text_of("GS ! 0x%02X invalid character size", n);
  if (width == 1 && height == 1) return text_of("GS ! 0x%02X normal size", n);
  if (width == 2 && height == 2) return text_of("GS ! 0x%02X double width and height", n);
  if (width == 2 && height == 1) return text_of("GS ! 0x%02X double width", n);
  if (width == 1 && height == 2) return text_of("GS ! 0x%02X double height", n);
  return text_of("GS ! 0x%02X width x%u, height x%u", n, width, height);
}

std::string cut(Bytes c) {
  switch (c[2]) {
    case 0:
    case 48:
      return text_of("GS V %u full cut", c[2]);
    case 1:
    case 49:
      return text_of("GS V %u partial cut", c[2]);
    case 65:
      return text_of("GS V 65 %u full cut after feeding %u", c[3], c[3]);
    case 66:
      return text_of("GS V 66 %u partial cut after feeding %u", c[3], c[3]);
    case 97:
    case 103:
      return text_of("GS V %u %u full cut, feed %u", c[2], c[3], c[3]);
    case 98:
    case 104:
      return text_of("GS V %u %u partial cut, feed %u", c[2], c[3], c[3]);
    default:
      return text_of("GS V %u unknown cut mode", c[2]);
  }
}

std::string hri_position(Bytes c) {
  static constexpr const char* kPlaces[] = {"none", "above", "below", "above and below"};
  int n = choice(c[2]);
  return text_of("GS H %u HRI %s", c[2], n < 0 ? "unknown position" : kPlaces[n]);
}

const char* symbology(unsigned m) {
  static constexpr const char* kNames[] = {"UPC-A", "UPC-E",   "EAN13",  "EAN8",   "CODE39",
                                           "ITF",   "CODABAR", "CODE93", "CODE128"};
  if (m <= 6) return kNames[m];
  if (m >= 65 && m <= 73) return kNames[m - 65];
  return nullptr;
}

std::string barcode(Bytes c) {
  unsigned m = c[2];
  const char* name = symbology(m);
  if (name == nullptr) return text_of("GS k %u unknown barcode type", m);
  // Form A ends in NUL, form B counts its data in the fourth byte.
  Bytes data = m <= 6 ? c.subspan(3, c.size() - 4) : c.subspan(4);
  return text_of("GS k barcode %s, %zu bytes", name, data.size()) + data_words(data);
}

std::string symbol(Bytes c) {
  if (c.size() < 7) return text_of("GS ( k, %zu parameter bytes", c.size() - 5);
  unsigned kind = c[5];
  unsigned function = c[6];
  unsigned n = byte_at(c, 7);
  if (kind == 0x31) {
    switch (function) {
      case 0x41:
        return n == 0x33 ? std::string("GS ( k QR select micro QR")
                         : text_of("GS ( k QR select model %u", n - 0x30);
      case 0x43:
        return text_of("GS ( k QR module size %u", n);
      case 0x45: {
        static constexpr char kLevels[] = "LMQH";
        return n >= 0x30 && n <= 0x33 ? text_of("GS ( k QR error correction %c", kLevels[n - 0x30])
                                      : text_of("GS ( k QR error correction 0x%02X", n);
      }
      case 0x50: {
        Bytes data = c.subspan(std::min<size_t>(8, c.size()));
        return text_of("GS ( k QR store data (%zu bytes)", data.size()) + data_words(data);
      }
      case 0x51:
        return "GS ( k QR print symbol";
      case 0x52:
        return "GS ( k QR transmit size information";
      default:
        break;
    }
  } else if (kind == 0x30) {
    switch (function) {
      case 0x41:
        return text_of("GS ( k PDF417 columns %u", n);
      case 0x42:
        return text_of("GS ( k PDF417 rows %u", n);
      case 0x43:
        return text_of("GS ( k PDF417 module width %u", n);
      case 0x44:
        return text_of("GS ( k PDF417 row height %u", n);
      case 0x45:
        return n == 0x30 ? text_of("GS ( k PDF417 error correction level %u", byte_at(c, 8) - 0x30)
                         : text_of("GS ( k PDF417 error correction ratio %u", byte_at(c, 8));
      case 0x46:
        return text_of("GS ( k PDF417 options %s", n == 0 ? "standard" : "truncated");
      case 0x50: {
        Bytes data = c.subspan(std::min<size_t>(8, c.size()));
        return text_of("GS ( k PDF417 store data (%zu bytes)", data.size()) + data_words(data);
      }
      case 0x51:
        return "GS ( k PDF417 print symbol";
      case 0x52:
        return "GS ( k PDF417 transmit size information";
      default:
        break;
    }
  }
  return text_of("GS ( k symbol 0x%02X function 0x%02X", kind, function);
}

// GS ( L and GS 8 L share their functions; `base` is the index of m.
std::string graphics(Bytes c, const char* label, size_t base) {
  unsigned function = byte_at(c, base + 1);
  switch (function) {
    case 0x43:
    case 0x53:
      return text_of("%s define %s graphic %s %ux%u", label, function == 0x43 ? "NV" : "download",
                     key_words(byte_at(c, base + 3), byte_at(c, base + 4)).c_str(),
                     u16_at(c, base + 6), u16_at(c, base + 8));
    case 0x70:
      return text_of("%s store graphic in print buffer %ux%u", label, u16_at(c, base + 6),
                     u16_at(c, base + 8));
    case 0x45:
    case 0x55:
      return text_of("%s print %s graphic %s", label, function == 0x45 ? "NV" : "download",
                     key_words(byte_at(c, base + 2), byte_at(c, base + 3)).c_str());
    case 0x32:
      return text_of("%s print graphic in print buffer", label);
    case 0x41:
      return text_of("%s delete all NV graphics", label);
    default:
      return text_of("%s function %u, %zu bytes", label, function, c.size());
  }
}

std::string user_setting(Bytes c) {
  unsigned function = byte_at(c, 5);
  switch (function) {
    case 1:
      return "GS ( E 1 enter user setting mode";
    case 2:
      return "GS ( E 2 end user setting mode";
    case 5:
      return text_of("GS ( E 5 set customised value %u to %u", byte_at(c, 6), u16_at(c, 7));
    default:
      return text_of("GS ( E %u user setting function", function);
  }
}

std::string raster(Bytes c) {
  unsigned row_bytes = u16_at(c, 4);
  unsigned rows = u16_at(c, 6);
  if (c[3] == kCompressedRaster) {
    return text_of("GS v 0 compressed raster image %ux%u (%zu bytes)", row_bytes * 8, rows,
                   c.size());
  }
  return text_of("GS v 0 raster image %ux%u", row_bytes * 8, rows) + scale_words(c[3]);
}

std::string nv_bit_images(Bytes c) {
  std::string sizes;
  size_t at_byte = 3;
  for (unsigned image = 0; image < c[2]; ++image) {
    unsigned x = u16_at(c, at_byte);
    unsigned y = u16_at(c, at_byte + 2);
    sizes += text_of("%s%ux%u", image == 0 ? " " : ", ", x * 8, y * 8);
    at_byte += 4 + 8ull * x * y;
  }
  return text_of("FS q define %u NV bit image%s", c[2], c[2] == 1 ? "" : "s") + sizes;
}

std::string status_query(Bytes c) {
  switch (c[2]) {
    case 1:
      return "DLE EOT 1 printer status query";
    case 2:
      return "DLE EOT 2 off-line cause query";
    case 3:
      return "DLE EOT 3 error cause query";
    case 4:
      return "DLE EOT 4 paper sensor query";
    default:
      return text_of("DLE EOT %u status query", c[2]);
  }
}

std::string dle_dc4(Bytes c) {
  switch (c[2]) {
    case 1:
      return text_of("DLE DC4 1 drawer pulse pin %s, %u ms", c[3] == 0 ? "2" : "5", c[4] * 100);
    case 2:
      return "DLE DC4 2 power off";
    case 8:
      return "DLE DC4 8 clear buffers";
    default:
      return text_of("DLE DC4 %u unknown function", c[2]);
  }
}

// clang-format off
const CommandShape kShapes[] = {
    {"\x00"sv, "NUL", 1, nullptr, [](Bytes) { return std::string("NUL"); }},
    {"\x09"sv, "HT", 1, nullptr, [](Bytes) { return std::string("HT horizontal tab"); }},
    {"\x0a"sv, "LF", 1, nullptr, [](Bytes) { return std::string("LF"); }},
    {"\x0c"sv, "FF", 1, nullptr, [](Bytes) { return std::string("FF print and return to standard mode"); }},
    {"\x0d"sv, "CR", 1, nullptr, [](Bytes) { return std::string("CR"); }},
    {"\x18"sv, "CAN", 1, nullptr, [](Bytes) { return std::string("CAN cancel page data"); }},

    {"\x1b" "@"sv, "ESC @", 2, nullptr, [](Bytes) { return std::string("ESC @ initialise"); }},
    {"\x1b" "!"sv, "ESC ! print mode", 3, nullptr, print_mode},
    {"\x1b" " "sv, "ESC SP right-side spacing", 3, nullptr, [](Bytes c) { return text_of("ESC SP %u right-side character spacing %u", c[2], c[2]); }},
    {"\x1b" "E"sv, "ESC E bold", 3, nullptr, [](Bytes c) { return text_of("ESC E %u bold %s", c[2], on_off(c[2])); }},
    {"\x1b" "G"sv, "ESC G double-strike", 3, nullptr, [](Bytes c) { return text_of("ESC G %u double-strike %s", c[2], on_off(c[2])); }},
    {"\x1b" "M"sv, "ESC M font", 3, nullptr, font},
    {"\x1b" "-"sv, "ESC - underline", 3, nullptr, underline},
    {"\x1b" "a"sv, "ESC a justification", 3, nullptr, justification},
    {"\x1b" "$"sv, "ESC $ absolute position", 4, nullptr, [](Bytes c) { return text_of("ESC $ absolute position %u", u16_at(c, 2)); }},
    {"\x1b" "2"sv, "ESC 2", 2, nullptr, [](Bytes) { return std::string("ESC 2 default line spacing"); }},
    {"\x1b" "3"sv, "ESC 3 line spacing", 3, nullptr, [](Bytes c) { return text_of("ESC 3 %u line spacing %u", c[2], c[2]); }},
    {"\x1b" "d"sv, "ESC d feed lines", 3, nullptr, [](Bytes c) { return text_of("ESC d %u feed %u lines", c[2], c[2]); }},
    {"\x1b" "J"sv, "ESC J feed", 3, nullptr, [](Bytes c) { return text_of("ESC J %u feed %u units", c[2], c[2]); }},
    {"\x1b" "p"sv, "ESC p drawer pulse", 5, nullptr, drawer_pulse},
    {"\x1b" "t"sv, "ESC t code table", 3, nullptr, [](Bytes c) { return text_of("ESC t %u character code table %u", c[2], c[2]); }},
    {"\x1b" "R"sv, "ESC R character set", 3, nullptr, [](Bytes c) { return text_of("ESC R %u international character set %u", c[2], c[2]); }},
    {"\x1b" "{"sv, "ESC { upside-down", 3, nullptr, [](Bytes c) { return text_of("ESC { %u upside-down %s", c[2], on_off(c[2])); }},
    {"\x1b" "L"sv, "ESC L", 2, nullptr, [](Bytes) { return std::string("ESC L select page mode"); }},
    {"\x1b" "S"sv, "ESC S", 2, nullptr, [](Bytes) { return std::string("ESC S select standard mode"); }},
    {"\x1b" "W"sv, "ESC W print area", 10, nullptr, [](Bytes c) { return print_area(c, 2); }},
    {"\x1b" "T"sv, "ESC T print direction", 3, nullptr, print_direction},
    {"\x1b\x0c"sv, "ESC FF", 2, nullptr, [](Bytes) { return std::string("ESC FF print page data"); }},
    {"\x1b" "v"sv, "ESC v", 2, nullptr, [](Bytes) { return std::string("ESC v paper sensor status query"); }},
    {"\x1b" "#*\x0a\x00"sv, "ESC # * firmware query", 5, nullptr, [](Bytes) { return std::string("ESC # * firmware version query"); }},
    {"\x1b" "*"sv, "ESC * bit image", 0, esc_star_length, bit_image},

    {"\x1d" "!"sv, "GS ! character size", 3, nullptr, character_size},
    {"\x1d" "B"sv, "GS B reverse", 3, nullptr, [](Bytes c) { return text_of("GS B %u reverse %s", c[2], on_off(c[2])); }},
    {"\x1d" "V"sv, "GS V cut", 0, gs_cut_length, cut},
    {"\x1d" "w"sv, "GS w module width", 3, nullptr, [](Bytes c) { return text_of("GS w %u barcode module width %u", c[2], c[2]); }},
    {"\x1d" "h"sv, "GS h barcode height", 3, nullptr, [](Bytes c) { return text_of("GS h %u barcode height %u dots", c[2], c[2]); }},
    {"\x1d" "H"sv, "GS H HRI position", 3, nullptr, hri_position},
    {"\x1d" "f"sv, "GS f HRI font", 3, nullptr, [](Bytes c) { return text_of("GS f %u HRI font %u", c[2], c[2]); }},
    {"\x1d" "k"sv, "GS k barcode", 0, gs_k_length, barcode},
    {"\x1d" "(k"sv, "GS ( k symbol", 0, gs_paren_length, symbol},
    {"\x1d" "(L"sv, "GS ( L graphics", 0, gs_paren_length, [](Bytes c) { return graphics(c, "GS ( L", 5); }},
    {"\x1d" "8L"sv, "GS 8 L graphics", 0, gs_8l_length, [](Bytes c) { return graphics(c, "GS 8 L", 7); }},
    {"\x1d" "(E"sv, "GS ( E user setting", 0, gs_paren_length, user_setting},
    {"\x1d" "("sv, "GS ( command", 0, gs_paren_length, [](Bytes c) { return text_of("GS ( %s function %u, %zu bytes", command_byte(c[2]).c_str(), byte_at(c, 5), c.size()); }},
    {"\x1d" "v0"sv, "GS v 0 raster image", 0, raster_length, raster},
    {"\x1d" "*"sv, "GS * downloaded bit image", 0, gs_star_length, [](Bytes c) { return text_of("GS * define downloaded bit image %ux%u", c[2] * 8u, c[3] * 8u); }},
    {"\x1d" "/"sv, "GS / print downloaded bit image", 3, nullptr, [](Bytes c) { return text_of("GS / %u print downloaded bit image", c[2]) + scale_words(c[2]); }},
    {"\x1d" "P"sv, "GS P motion units", 4, nullptr, [](Bytes c) { return text_of("GS P %u %u motion units", c[2], c[3]); }},
    {"\x1d" "E"sv, "GS E print speed", 3, nullptr, [](Bytes c) { return text_of("GS E %u print speed %u", c[2], c[2]); }},
    {"\x1d" "$"sv, "GS $ vertical position", 4, nullptr, [](Bytes c) { return text_of("GS $ vertical position %u", u16_at(c, 2)); }},
    {"\x1d\x0c"sv, "GS FF", 2, nullptr, [](Bytes) { return std::string("GS FF next label"); }},
    {"\x1d" "I"sv, "GS I printer ID query", 3, nullptr, [](Bytes c) { return c[2] == 0x41 ? std::string("GS I 65 firmware version query") : text_of("GS I %u printer ID query", c[2]); }},
    {"\x1d" "r"sv, "GS r status query", 3, nullptr, [](Bytes c) { return text_of("GS r %u %s status query", c[2], choice(c[2]) == 2 ? "drawer" : choice(c[2]) == 1 ? "paper sensor" : "unknown"); }},
    {"\x1d" "L"sv, "GS L left margin", 4, nullptr, [](Bytes c) { return text_of("GS L left margin %u", u16_at(c, 2)); }},
    {"\x1d" "W"sv, "GS W print area width", 4, nullptr, [](Bytes c) { return text_of("GS W print area width %u", u16_at(c, 2)); }},

    {"\x10\x04"sv, "DLE EOT status query", 3, nullptr, status_query},
    {"\x10\x14"sv, "DLE DC4 real-time command", 0, dle_dc4_length, dle_dc4},

    {"\x1c" "q"sv, "FS q NV bit images", 0, fs_q_length, nv_bit_images},
    {"\x1c" "&"sv, "FS &", 2, nullptr, [](Bytes) { return std::string("FS & Chinese character mode on"); }},
    {"\x1c" "."sv, "FS .", 2, nullptr, [](Bytes) { return std::string("FS . Chinese character mode off"); }},
    {"\x1c" "p"sv, "FS p print NV bit image", 4, nullptr, [](Bytes c) { return text_of("FS p %u %u print NV bit image %u", c[2], c[3], c[2]) + scale_words(c[3]); }},

    {"\x12" "'w\x10"sv, "DC2 buzzer", 7, nullptr, [](Bytes c) { return text_of("DC2 ' w buzzer mode %u", c[4]); }},
};
// The 0x1102 models' ESC W carries a 0x00 byte between W and its fields.
const CommandShape k1102Shapes[] = {
    {"\x1b" "W"sv, "ESC W print area", 11, nullptr, [](Bytes c) { return print_area(c, 3); }},
};
// clang-format on

struct ModelForms {
  uint32_t model_id;
  std::span<const CommandShape> shapes;
};

const ModelForms kModelForms[] = {
    {0x1102, k1102Shapes},
};

}  // namespace

std::span<const CommandShape> command_shapes() {
  return kShapes;
}

std::span<const CommandShape> model_shapes(uint32_t model_id) {
  for (const ModelForms& forms : kModelForms) {
    if (forms.model_id == model_id) return forms.shapes;
  }
  return {};
}

std::string command_byte(uint8_t b) {
  return b > 0x20 && b < 0x7F ? std::string(1, static_cast<char>(b)) : text_of("0x%02X", b);
}

std::string quoted(Bytes text, size_t limit) {
  std::string out = "\"";
  for (size_t i = 0; i < text.size() && i < limit; ++i) {
    uint8_t b = text[i];
    if (b == '"' || b == '\\') {
      out += '\\';
      out += static_cast<char>(b);
    } else if (b >= 0x20 && b < 0x7F) {
      out += static_cast<char>(b);
    } else {
      out += text_of("\\x%02X", b);
    }
  }
  out += '"';
  if (text.size() > limit) out += "\xE2\x80\xA6";  // …
  return out;
}

}  // namespace vorn::cli
