#include "support/api_calls.h"

#include <algorithm>
#include <iterator>

#include "support/wide_text.h"

namespace vorn::test {
namespace {

class ValueScope {
 public:
  ValueScope() {
    if (Args::value_guard) Args::value_guard(true);
  }
  ~ValueScope() {
    if (Args::value_guard) Args::value_guard(false);
  }
  ValueScope(const ValueScope&) = delete;
  ValueScope& operator=(const ValueScope&) = delete;
};

}  // namespace

uint64_t Args::take(size_t count) {
  uint64_t value = 0;
  for (size_t i = 0; i < count && !bytes_.empty(); ++i) {
    value = value << 8 | bytes_.front();
    bytes_ = bytes_.subspan(1);
  }
  return value;
}

uint8_t Args::byte() {
  return static_cast<uint8_t>(take(1));
}

int32_t Args::number(int32_t typical) {
  if (bytes_.empty()) return typical;
  // Mostly values near the boundaries the commands check, now and then
  // anything at all.
  switch (byte() % 4) {
    case 1:
      return static_cast<int8_t>(byte());
    case 2:
      return static_cast<int32_t>(take(2));
    case 3:
      return static_cast<int32_t>(static_cast<uint32_t>(take(4)));
    default:
      return typical;
  }
}

WideString Args::text(std::basic_string_view<VORN_WCHAR> typical) {
  ValueScope scope;
  if (bytes_.empty()) return WideString(typical);
  const uint8_t head = byte();
  if (head == 0) return WideString(typical);
  // Narrow units keep most texts short and printable; wide ones reach every
  // code unit, surrogates included.
  const bool wide = (head & 0x80) != 0;
  WideString text;
  for (int i = 0; i < (head & 0x7F) && !bytes_.empty(); ++i) {
    text.push_back(static_cast<VORN_WCHAR>(take(wide ? 2 : 1)));
  }
  return text;
}

std::vector<uint8_t> Args::bytes(std::initializer_list<uint8_t> typical) {
  ValueScope scope;
  if (bytes_.empty()) return std::vector<uint8_t>(typical);
  const uint8_t head = byte();
  if (head == 0) return std::vector<uint8_t>(typical);
  const size_t length = std::min<size_t>(head == 0xFF ? 0 : head, bytes_.size());
  std::vector<uint8_t> out(bytes_.begin(), bytes_.begin() + static_cast<ptrdiff_t>(length));
  bytes_ = bytes_.subspan(length);
  return out;
}

namespace {

// A 2 x 2 24-bit picture: every decoder reads it, every model that prints
// images takes it.
constexpr uint8_t kSampleBmp[] = {
    0x42, 0x4D, 0x46, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x36, 0x00, 0x00, 0x00,  // file
    0x28, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x01, 0x00,  // info
    0x18, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x00, 0x00, 0x13, 0x0B, 0x00, 0x00,
    0x13, 0x0B, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x00, 0xFF, 0xFF, 0xFF, 0x00, 0x00,              // bottom row: black, white
    0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00, 0x00,  // top row: white, black
};

WideString& image_path() {
  static WideString path;
  return path;
}

WideString& printer_port() {
  static WideString name = VW("LPT1");
  return name;
}

std::string narrow(const WideString& text) {
  ValueScope scope;
  return std::string(text.begin(), text.end());
}

// Room for reads that the answers may fill.
constexpr uint32_t kReadRoom = 64;

// The handle's raw and reading calls.
constexpr PrinterCall kPrinterCalls[] = {
    {"PortOpen",
     [](VORN_PRINTER h, Args& a) { return PortOpen(h, a.text(printer_port()).c_str()); }},
    {"PortClose", [](VORN_PRINTER h, Args&) { return PortClose(h); }},
    {"DirectIO",
     [](VORN_PRINTER h, Args& a) {
       const std::vector<uint8_t> data = a.bytes({0x10, 0x04, 0x01});
       uint8_t answer[kReadRoom] = {};
       uint32_t count = 0;
       const uint32_t length = static_cast<uint32_t>(a.number(1)) % (kReadRoom + 1);
       return DirectIO(h, data.data(), static_cast<uint32_t>(data.size()), answer, length, &count);
     }},
    {"WriteData",
     [](VORN_PRINTER h, Args& a) {
       const std::vector<uint8_t> data = a.bytes({0x1B, 0x40});
       return WriteData(h, data.data(), static_cast<uint32_t>(data.size()));
     }},
    {"ReadData",
     [](VORN_PRINTER h, Args& a) {
       uint8_t buffer[kReadRoom] = {};
       uint32_t count = 0;
       return ReadData(h, buffer, static_cast<uint32_t>(a.number(1)) % (kReadRoom + 1), &count);
     }},
    {"ReadDataEOF",
     [](VORN_PRINTER h, Args& a) {
       uint8_t buffer[kReadRoom] = {};
       uint32_t count = 0;
       const uint32_t start = static_cast<uint32_t>(a.number(0)) % (kReadRoom + 1);
       const uint32_t end = static_cast<uint32_t>(a.number(8)) % (kReadRoom + 1);
       return ReadDataEOF(h, buffer, start, end, static_cast<uint8_t>(a.number(0)),
                          static_cast<uint8_t>(a.number(0)), &count);
     }},
    {"PrinterInitialize", [](VORN_PRINTER h, Args&) { return PrinterInitialize(h); }},
    {"FeedLine", [](VORN_PRINTER h, Args& a) { return FeedLine(h, a.number(2)); }},
    {"SetAlign", [](VORN_PRINTER h, Args& a) { return SetAlign(h, a.number(1)); }},
    {"CutPaper", [](VORN_PRINTER h, Args& a) { return CutPaper(h, a.number(1), a.number(3)); }},
    {"OpenCashDrawer",
     [](VORN_PRINTER h, Args& a) {
       return OpenCashDrawer(h, a.number(0), a.number(50), a.number(250));
     }},
    {"SelectStandardMode", [](VORN_PRINTER h, Args&) { return SelectStandardMode(h); }},
    {"SetTextLineSpace", [](VORN_PRINTER h, Args& a) { return SetTextLineSpace(h, a.number(30)); }},
    {"SetTextBold", [](VORN_PRINTER h, Args& a) { return SetTextBold(h, a.number(1)); }},
    {"SetTextFont", [](VORN_PRINTER h, Args& a) { return SetTextFont(h, a.number(1)); }},
    {"SetAbsolutePrintPosition",
     [](VORN_PRINTER h, Args& a) { return SetAbsolutePrintPosition(h, a.number(100)); }},
    {"SetCodePage",
     [](VORN_PRINTER h, Args& a) { return SetCodePage(h, a.number(0), a.number(0)); }},
    {"SetBuzzer", [](VORN_PRINTER h, Args& a) { return SetBuzzer(h, a.number(1)); }},
    {"SetInternationalCharacter",
     [](VORN_PRINTER h, Args& a) { return SetInternationalCharacter(h, a.number(0)); }},
    {"ClearBuffer", [](VORN_PRINTER h, Args&) { return ClearBuffer(h); }},
    {"SetHorizontalAndVerticalMotionUnits",
     [](VORN_PRINTER h, Args& a) {
       return SetHorizontalAndVerticalMotionUnits(h, a.number(180), a.number(360));
     }},
    {"SetPrintSpeed", [](VORN_PRINTER h, Args& a) { return SetPrintSpeed(h, a.number(2)); }},
    {"PrintText",
     [](VORN_PRINTER h, Args& a) {
       const WideString text = a.text(VW("Total 12,50\n"));
       return PrintText(h, text.c_str(), a.number(1), a.number(8), a.number(0x11));
     }},
    {"PrintTextS",
     [](VORN_PRINTER h, Args& a) { return PrintTextS(h, a.text(VW("Thank you\n")).c_str()); }},
    {"PrintBarCode",
     [](VORN_PRINTER h, Args& a) {
       const WideString data = a.text(VW("{BNo.{C123456"));
       return PrintBarCode(h, a.number(73), data.c_str(), a.number(2), a.number(80), a.number(1),
                           a.number(2));
     }},
    {"PrintSymbol",
     [](VORN_PRINTER h, Args& a) {
       const WideString data = a.text(VW("https://example.com/r/42"));
       return PrintSymbol(h, a.number(103), data.c_str(), a.number(0x31), a.number(4), a.number(0),
                          a.number(1));
     }},
    {"PrintTwoQRCode",
     [](VORN_PRINTER h, Args& a) {
       const WideString first = a.text(VW("first"));
       const int32_t module1 = a.number(3), x1 = a.number(0), y1 = a.number(0);
       const WideString second = a.text(VW("second"));
       return PrintTwoQRCode(h, first.c_str(), module1, x1, y1, second.c_str(), a.number(3),
                             a.number(200), a.number(0));
     }},
    {"SelectPageMode", [](VORN_PRINTER h, Args&) { return SelectPageMode(h); }},
    {"SetPrintAreaInPageMode",
     [](VORN_PRINTER h, Args& a) {
       return SetPrintAreaInPageMode(h, a.number(0), a.number(0), a.number(384), a.number(200));
     }},
    {"CancelPrintDataInPageMode",
     [](VORN_PRINTER h, Args&) { return CancelPrintDataInPageMode(h); }},
    {"SelectPrintDirectionInPageMode",
     [](VORN_PRINTER h, Args& a) { return SelectPrintDirectionInPageMode(h, a.number(1)); }},
    {"SetAbsoluteVerticalPrintPositionInPageMode",
     [](VORN_PRINTER h, Args& a) {
       return SetAbsoluteVerticalPrintPositionInPageMode(h, a.number(40));
     }},
    {"PrintAndReturnStandardMode",
     [](VORN_PRINTER h, Args&) { return PrintAndReturnStandardMode(h); }},
    {"PositionNextLabel", [](VORN_PRINTER h, Args&) { return PositionNextLabel(h); }},
    {"PrintDataInPageMode", [](VORN_PRINTER h, Args&) { return PrintDataInPageMode(h); }},
    {"GetPrinterState",
     [](VORN_PRINTER h, Args&) {
       uint32_t state = 0;
       return GetPrinterState(h, &state);
     }},
    {"GetCashDrawerState",
     [](VORN_PRINTER h, Args&) {
       uint32_t state = 0;
       return GetCashDrawerState(h, &state);
     }},
    {"GetFirmwareVersion",
     [](VORN_PRINTER h, Args& a) {
       int32_t version[4] = {};
       return GetFirmwareVersion(h, version, std::clamp(a.number(3), -1, 3));
     }},
    {"PrintImage",
     [](VORN_PRINTER h, Args& a) { return PrintImage(h, sample_image(), a.number(0)); }},
    {"PrintBitMapData",
     [](VORN_PRINTER h, Args& a) {
       const int32_t width = a.number(16), height = a.number(4);
       std::vector<uint8_t> data = a.bytes({0xF0, 0x0F, 0xAA, 0x55, 0xFF, 0x00, 0x81, 0x18});
       // The caller's promise: (width + 7) / 8 * height bytes.
       const int64_t needed = width > 0 && height > 0 ? (int64_t{width} + 7) / 8 * height : 0;
       if (needed > 1 << 16) return static_cast<int32_t>(VORN_ERR_PARAMETER);
       {
         ValueScope scope;
         data.resize(std::max<size_t>(data.size(), static_cast<size_t>(needed)));
       }
       return PrintBitMapData(h, a.number(0), width, height, data.data());
     }},
    {"DefineNVImage",
     [](VORN_PRINTER h, Args& a) {
       return DefineNVImage(h, sample_image(), a.number(0x41), a.number(0x42));
     }},
    {"PrintNVImage",
     [](VORN_PRINTER h, Args& a) { return PrintNVImage(h, a.number(0x41), a.number(0x42)); }},
    {"DefineDownloadedImage",
     [](VORN_PRINTER h, Args& a) {
       return DefineDownloadedImage(h, sample_image(), a.number(0x41), a.number(0x42));
     }},
    {"PrintDownloadedImage",
     [](VORN_PRINTER h, Args& a) {
       return PrintDownloadedImage(h, a.number(0x41), a.number(0x42));
     }},
    {"DefineBufferedImage",
     [](VORN_PRINTER h, Args&) { return DefineBufferedImage(h, sample_image()); }},
    {"PrintBufferedImage", [](VORN_PRINTER h, Args&) { return PrintBufferedImage(h); }},
    {"DeleteAllNVImages", [](VORN_PRINTER h, Args&) { return DeleteAllNVImages(h); }},
    {"DefineNVImageCompatible",
     [](VORN_PRINTER h, Args& a) {
       const VORN_WCHAR* paths[] = {sample_image(), sample_image()};
       return DefineNVImageCompatible(h, paths, std::clamp(a.number(2), -1, 2));
     }},
    {"PrintNVImageCompatible",
     [](VORN_PRINTER h, Args& a) { return PrintNVImageCompatible(h, a.number(1), a.number(0)); }},
    {"DefineDownloadedImageCompatible",
     [](VORN_PRINTER h, Args&) { return DefineDownloadedImageCompatible(h, sample_image()); }},
    {"PrintDownloadedImageCompatible",
     [](VORN_PRINTER h, Args& a) { return PrintDownloadedImageCompatible(h, a.number(0)); }},
};

constexpr PortCall kPortCalls[] = {
    {"vorn_io_set_uri",
     [](VORN_PORT p, Args& a) {
       const WideString uri = a.text(VW("vorn:/dev/bus/LPT/LPT2"));
       return vorn_io_set_uri(p, narrow(uri).c_str());
     }},
    {"vorn_io_get_uri",
     [](VORN_PORT p, Args&) {
       char buffer[VORN_URI_MAX_TEXT + 1];
       uint32_t length = 0;
       return vorn_io_get_uri(p, buffer, sizeof buffer, &length);
     }},
    {"vorn_io_open", [](VORN_PORT p, Args&) { return vorn_io_open(p); }},
    {"vorn_io_close", [](VORN_PORT p, Args&) { return vorn_io_close(p); }},
    {"vorn_io_kill", [](VORN_PORT p, Args&) { return vorn_io_kill(p); }},
    {"vorn_io_flush", [](VORN_PORT p, Args&) { return vorn_io_flush(p); }},
    {"vorn_io_set_timeout",
     [](VORN_PORT p, Args& a) {
       return vorn_io_set_timeout(p, a.number(10), a.number(0), a.number(200), a.number(0),
                                  a.number(200), a.number(200));
     }},
    {"vorn_io_get_timeout",
     [](VORN_PORT p, Args&) {
       uint32_t values[6];
       return vorn_io_get_timeout(p, values);
     }},
    {"vorn_io_write",
     [](VORN_PORT p, Args& a) {
       const std::vector<uint8_t> data = a.bytes({0x1B, 0x40, 0x0A});
       uint32_t done = 0;
       return vorn_io_write(p, data.data(), 0, static_cast<uint32_t>(data.size()), &done);
     }},
    {"vorn_io_read",
     [](VORN_PORT p, Args& a) {
       uint8_t buffer[kReadRoom];
       uint32_t done = 0;
       return vorn_io_read(p, buffer, 0, static_cast<uint32_t>(a.number(4)) % kReadRoom, &done);
     }},
    {"vorn_io_readexist",
     [](VORN_PORT p, Args& a) {
       uint8_t buffer[kReadRoom];
       uint32_t done = 0;
       return vorn_io_readexist(p, buffer, 0, static_cast<uint32_t>(a.number(8)) % kReadRoom,
                                &done);
     }},
    {"vorn_io_control",
     [](VORN_PORT p, Args& a) {
       uint8_t out[4] = {};
       uint32_t count = 0;
       return vorn_io_control(p, static_cast<uint32_t>(a.number(VORN_CONTROL_LPT_GET_READ)),
                              static_cast<uint32_t>(a.number(0)), nullptr, 0, out, sizeof out,
                              &count);
     }},
};

constexpr FreeCall kFreeCalls[] = {
    {"PrinterCreator+PrinterDestroy",
     [](Args& a) {
       VORN_PRINTER printer = nullptr;
       const int32_t result = PrinterCreator(&printer, a.text(VW("VR-T80A")).c_str());
       if (result == VORN_OK) PrinterDestroy(printer);
       return result;
     }},
    {"PrinterCreatorS+PrinterDestroy",
     [](Args& a) {
       VORN_PRINTER printer = PrinterCreatorS(narrow(a.text(VW("VR-M60A"))).c_str());
       return printer != nullptr ? PrinterDestroy(printer) : kNullHandle;
     }},
    {"FormatError",
     [](Args& a) {
       VORN_WCHAR text[128];
       return FormatError(a.number(-300), a.number(0), text, 0, sizeof text);
     }},
    {"FormatError(system)",
     [](Args& a) {
       VORN_WCHAR text[128];
       return FormatError(a.number(2), a.number(4), text, 0, sizeof text);
     }},
    {"vorn_io_format_error",
     [](Args& a) {
       char text[128];
       return vorn_io_format_error(a.number(2), text, 0, sizeof text);
     }},
    {"vorn_io_port_creator+vorn_io_port_destroy",
     [](Args& a) {
       VORN_PORT port = nullptr;
       const int32_t result = vorn_io_port_creator(&port, narrow(a.text(VW("COM2,9600"))).c_str());
       if (result == VORN_OK) vorn_io_port_destroy(port);
       return result;
     }},
    {"vorn_io_port_creator(NET)+vorn_io_port_destroy",
     [](Args& a) {
       VORN_PORT port = nullptr;
       const int32_t result =
           vorn_io_port_creator(&port, narrow(a.text(VW("NET,192.168.1.100"))).c_str());
       if (result == VORN_OK) vorn_io_port_destroy(port);
       return result;
     }},
    {"vorn_io_list_usb",
     [](Args& a) {
       char text[64];
       uint32_t used = 0;
       return vorn_io_list_usb(text, std::clamp(a.number(64), 0, 64), &used, a.number(0));
     }},
    {"vorn_io_uri_*",
     [](Args& a) {
       vorn_uri record;
       int32_t result = vorn_io_uri_from_str(
           &record, narrow(a.text(VW("vorn:/dev/bus/COM/COM1?baudrate=9600"))).c_str());
       char text[VORN_URI_MAX_TEXT + 1];
       if (result == VORN_OK) result = vorn_io_uri_to_str(&record, text, sizeof text);
       if (result == VORN_OK && vorn_io_uri_get_option(&record, "baudrate") == nullptr) {
         result = VORN_ERR_PARAMETER;
       }
       vorn_io_uri_clear(&record);
       const char* keys[] = {"ip"};
       const char* values[] = {"10.0.0.5"};
       if (result == VORN_OK) {
         result = vorn_io_uri_get_str(text, sizeof text, "NET", "DEVICE", keys, values, 1);
       }
       return result;
     }},
};

}  // namespace

std::span<const uint8_t> sample_image_file() {
  return kSampleBmp;
}

void set_sample_image(WideString path) {
  image_path() = std::move(path);
}

void set_printer_port(WideString name) {
  printer_port() = std::move(name);
}

const VORN_WCHAR* sample_image() {
  return reinterpret_cast<const VORN_WCHAR*>(image_path().c_str());
}

std::span<const PrinterCall> printer_calls() {
  return kPrinterCalls;
}
std::span<const PortCall> port_calls() {
  return kPortCalls;
}
std::span<const FreeCall> free_calls() {
  return kFreeCalls;
}

}  // namespace vorn::test
