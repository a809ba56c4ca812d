/*
 * vorn: ESC/POS printer library.
 *
 * Every function returns a result code: 0 on success, a negative library
 * code (see enum vorn_result below; vorn_io_format_error and FormatError give
 * its text), or a positive operating-system error number (errno on Linux,
 * GetLastError on Windows) passed through unchanged.
 *
 * A printing call appends ESC/POS bytes to the printer handle's command
 * buffer and writes the whole buffer to the port in one piece. The buffer is
 * emptied only by a successful write: when a write fails, its bytes go out
 * ahead of the next call's bytes once the port works again.
 *
 * Note: PrinterInitialize sends ESC @ but does not leave page mode on the
 * library's side; a handle in page mode stays there until
 * PrintAndReturnStandardMode or SelectStandardMode.
 *
 * This header is plain C (C99 or later) and C++.
 */
#ifndef VORN_VORN_H
#define VORN_VORN_H

#include <stdint.h>

#if defined(_WIN32)
#include <wchar.h>
#if defined(VORN_BUILDING_LIBRARY)
#define VORN_API __declspec(dllexport)
#else
#define VORN_API __declspec(dllimport)
#endif
#define VORN_CALL __cdecl
typedef wchar_t VORN_WCHAR;
#else
#define VORN_API __attribute__((visibility("default")))
#define VORN_CALL
#if defined(__cplusplus)
typedef char16_t VORN_WCHAR;
#else
typedef uint_least16_t VORN_WCHAR; /* the type behind C11's char16_t */
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Result codes ------------------------------------------------------ */

enum vorn_result {
  VORN_OK = 0,
  VORN_ERR_PARAMETER = -1,
  VORN_ERR_BUFFER_TOO_SMALL = -2,
  VORN_ERR_COMMAND_NOT_SUPPORTED = -3,
  VORN_ERR_PRINTER_NOT_SUPPORTED = -4,
  VORN_ERR_INVALID_HANDLE = -6,
  VORN_ERR_NOT_IMPLEMENTED = -7,
  VORN_ERR_UNKNOWN_MODEL = -8,
  VORN_ERR_NO_MEMORY = -9,
  VORN_ERR_NOT_TARGET_PRINTER = -10,
  VORN_ERR_ENVIRONMENT = -11,
  VORN_ERR_IMAGE_LOAD = -21,
  VORN_ERR_IMAGE_SIZE = -25,
  VORN_ERR_BAD_ANSWER = -30,
  VORN_ERR_PRINT = -100,
  VORN_ERR_DRIVER_DATA = -101,
  VORN_ERR_DRIVER_STATE = -102,
  VORN_ERR_IO = -300,
  VORN_ERR_IO_INVALID_SETTING = -301,
  VORN_ERR_IO_NAME_TOO_LONG = -302,
  VORN_ERR_IO_OS_TOO_OLD = -304,
  VORN_ERR_IO_INVALID_HANDLE = -308,
  VORN_ERR_IO_NOT_OPEN = -309,
  VORN_ERR_IO_ALREADY_OPEN = -310,
  VORN_ERR_IO_OPEN_FAILED = -311,
  VORN_ERR_IO_GET_ATTRIBUTES = -312,
  VORN_ERR_IO_SET_ATTRIBUTES = -313,
  VORN_ERR_IO_WRITE = -321,
  VORN_ERR_IO_WRITE_TIMEOUT = -322,
  VORN_ERR_IO_READ = -331,
  VORN_ERR_IO_READ_TIMEOUT = -332,
  VORN_ERR_IO_FLUSH = -341,
  VORN_ERR_IO_BAUDRATE = -351,
  VORN_ERR_IO_NETWORK_CONNECT = -352,
  VORN_ERR_IO_HANDSHAKE = -361,
  VORN_ERR_IO_USB_PATH = -371,
  VORN_ERR_IO_USB_NOT_FOUND = -372,
  VORN_ERR_IO_USB_BUSY = -373
};

/* ---- Handles ------------------------------------------------------------
 * Every call looks its handle up among the live ones first: a null,
 * destroyed or foreign handle gives VORN_ERR_INVALID_HANDLE and is never
 * followed. */

/* A printer handle: one catalogue model, one port, one command buffer.
 * Used by one thread at a time. */
typedef struct vorn_printer_object* VORN_PRINTER;

/* A port handle, created from a port URI or a comma form such as "COM1,9600",
 * "NET,192.168.1.100", "USB" or "LPT1"; an existing file is written as a
 * parallel port named by its path: "vorn:/dev/bus/LPT//path/to/file". */
typedef struct vorn_port_object* VORN_PORT;

/* Port kinds, chosen from the URI type. */
enum vorn_port_kind {
  VORN_PORT_SERIAL = 0,   /* "COM", "BSP" */
  VORN_PORT_PARALLEL = 1, /* "LPT": a parallel device or an existing file */
  VORN_PORT_USB = 2,      /* "USB" */
  VORN_PORT_NETWORK = 3,  /* "NET": raw TCP, port 9100 by default */
  VORN_PORT_FILE = 4      /* "FILE": known to the URI layer, no driver */
};

/* ---- Port URIs ------------------------------------------------------------
 * "vorn:/dev/bus/" type "/" name ["?" key "=" value {"+" key "=" value}],
 * at most 255 bytes and at most 8 options; no value is empty. A parsed
 * record points into its own text; it lives wherever the caller puts it
 * (usually the stack), and formats back to a text that parses to it again. */

#define VORN_URI_MAX_TEXT 255
#define VORN_URI_MAX_OPTIONS 8

typedef struct vorn_uri_option {
  const char* key;
  const char* value;
} vorn_uri_option;

typedef struct vorn_uri {
  char text[VORN_URI_MAX_TEXT + 1];
  const char* name;
  const char* type;
  vorn_uri_option options[VORN_URI_MAX_OPTIONS];
  int32_t option_count;
} vorn_uri;

VORN_API int32_t VORN_CALL vorn_io_uri_from_str(vorn_uri* record, const char* text);
VORN_API int32_t VORN_CALL vorn_io_uri_to_str(const vorn_uri* record, char* buffer, uint32_t size);
VORN_API int32_t VORN_CALL vorn_io_uri_get_str(char* buffer, uint32_t size, const char* type,
                                               const char* name, const char* const* keys,
                                               const char* const* values, int32_t count);
VORN_API const char* VORN_CALL vorn_io_uri_get_option(const vorn_uri* record, const char* key);
VORN_API void VORN_CALL vorn_io_uri_clear(vorn_uri* record);

/* ---- Ports ----------------------------------------------------------------
 * Timeouts, in milliseconds and in this order everywhere: read interval,
 * read multiplier (per byte), read constant, write multiplier (per byte),
 * write constant, connect timeout. Write and read report the bytes moved
 * through `transferred`, also when they fail. */

VORN_API int32_t VORN_CALL vorn_io_port_creator(VORN_PORT* port, const char* uri);
VORN_API int32_t VORN_CALL vorn_io_port_creator2(VORN_PORT* port, int32_t kind);
VORN_API int32_t VORN_CALL vorn_io_port_destroy(VORN_PORT port);
VORN_API int32_t VORN_CALL vorn_io_set_uri(VORN_PORT port, const char* uri);
/* buffer must hold at least 255 bytes. */
VORN_API int32_t VORN_CALL vorn_io_get_uri(VORN_PORT port, char* buffer, uint32_t size,
                                           uint32_t* length);
VORN_API int32_t VORN_CALL vorn_io_open(VORN_PORT port);
VORN_API int32_t VORN_CALL vorn_io_close(VORN_PORT port);
/* May be called from another thread: stops a running write or read. A killed
 * port stays killed until it is destroyed. */
VORN_API int32_t VORN_CALL vorn_io_kill(VORN_PORT port);
VORN_API int32_t VORN_CALL vorn_io_flush(VORN_PORT port);
VORN_API int32_t VORN_CALL vorn_io_set_timeout(VORN_PORT port, uint32_t read_interval,
                                               uint32_t read_multiplier, uint32_t read_constant,
                                               uint32_t write_multiplier, uint32_t write_constant,
                                               uint32_t connect_timeout);
VORN_API int32_t VORN_CALL vorn_io_get_timeout(VORN_PORT port, uint32_t values[6]);
VORN_API int32_t VORN_CALL vorn_io_write(VORN_PORT port, const uint8_t* data, uint32_t offset,
                                         uint32_t length, uint32_t* transferred);
VORN_API int32_t VORN_CALL vorn_io_read(VORN_PORT port, uint8_t* buffer, uint32_t offset,
                                        uint32_t length, uint32_t* transferred);
/* Reads what is already waiting, at most size - offset bytes. */
VORN_API int32_t VORN_CALL vorn_io_readexist(VORN_PORT port, uint8_t* buffer, uint32_t offset,
                                             uint32_t size, uint32_t* transferred);
VORN_API int32_t VORN_CALL vorn_io_control(VORN_PORT port, uint32_t code, uint32_t argument,
                                           const void* input, uint32_t input_length, void* output,
                                           uint32_t output_length, uint32_t* output_count);
/* Location texts of attached supported USB printers, "|"-separated. */
VORN_API int32_t VORN_CALL vorn_io_list_usb(char* buffer, int32_t size, uint32_t* used,
                                            int32_t flag);
/* Text of a result code written at buffer + position, size - position bytes;
 * -1 without writing when buffer is null or position is beyond size. */
VORN_API int32_t VORN_CALL vorn_io_format_error(int32_t code, char* buffer, uint32_t position,
                                                uint32_t size);

/* Controls of the parallel driver (vorn_io_control codes). */
#define VORN_CONTROL_LPT_SET_READ 1
#define VORN_CONTROL_LPT_GET_READ 2
/* Controls of the USB driver. */
#define VORN_CONTROL_USB_GET_RESTRICTED 5
#define VORN_CONTROL_USB_SET_READ 6
#define VORN_CONTROL_USB_GET_READ 7

/* ---- Printer handles, session and raw data ------------------------------ */

/* language: 0 the user's default, 4 Chinese, anything else English.
 * position and size count bytes. */
VORN_API int32_t VORN_CALL FormatError(int32_t code, int32_t language, VORN_WCHAR* buffer,
                                       uint32_t position, uint32_t size);
VORN_API int32_t VORN_CALL PrinterCreator(VORN_PRINTER* handle, const VORN_WCHAR* model);
/* Returns null on any failure. */
VORN_API VORN_PRINTER VORN_CALL PrinterCreatorS(const char* model);
VORN_API int32_t VORN_CALL PrinterDestroy(VORN_PRINTER handle);
/* port: a port URI or a comma form. */
VORN_API int32_t VORN_CALL PortOpen(VORN_PRINTER handle, const VORN_WCHAR* port);
VORN_API int32_t VORN_CALL PortClose(VORN_PRINTER handle);
VORN_API int32_t VORN_CALL DirectIO(VORN_PRINTER handle, const uint8_t* writeData,
                                    uint32_t writeLength, uint8_t* readBuffer, uint32_t readLength,
                                    uint32_t* readCount);
VORN_API int32_t VORN_CALL WriteData(VORN_PRINTER handle, const uint8_t* data, uint32_t length);
VORN_API int32_t VORN_CALL ReadData(VORN_PRINTER handle, uint8_t* buffer, uint32_t length,
                                    uint32_t* count);
/* Stores bytes from buffer[start] on, after beginByte (0: at once) up to and
 * including endByte; at most end - start bytes. */
VORN_API int32_t VORN_CALL ReadDataEOF(VORN_PRINTER handle, uint8_t* buffer, uint32_t start,
                                       uint32_t end, uint8_t beginByte, uint8_t endByte,
                                       uint32_t* count);

/* ---- Simple commands ---------------------------------------------------- */

VORN_API int32_t VORN_CALL PrinterInitialize(VORN_PRINTER handle);
VORN_API int32_t VORN_CALL FeedLine(VORN_PRINTER handle, int32_t lines);
VORN_API int32_t VORN_CALL SetAlign(VORN_PRINTER handle, int32_t alignment);
VORN_API int32_t VORN_CALL CutPaper(VORN_PRINTER handle, int32_t mode, int32_t feed);
VORN_API int32_t VORN_CALL OpenCashDrawer(VORN_PRINTER handle, int32_t pin, int32_t onTime,
                                          int32_t offTime);
VORN_API int32_t VORN_CALL SelectStandardMode(VORN_PRINTER handle);
VORN_API int32_t VORN_CALL SetTextLineSpace(VORN_PRINTER handle, int32_t spacing);
VORN_API int32_t VORN_CALL SetTextBold(VORN_PRINTER handle, int32_t bold);
VORN_API int32_t VORN_CALL SetTextFont(VORN_PRINTER handle, int32_t font);
VORN_API int32_t VORN_CALL SetAbsolutePrintPosition(VORN_PRINTER handle, int32_t position);
VORN_API int32_t VORN_CALL SetCodePage(VORN_PRINTER handle, int32_t codePage, int32_t mode);
VORN_API int32_t VORN_CALL SetBuzzer(VORN_PRINTER handle, int32_t mode);
VORN_API int32_t VORN_CALL SetInternationalCharacter(VORN_PRINTER handle, int32_t characterSet);
VORN_API int32_t VORN_CALL ClearBuffer(VORN_PRINTER handle);
VORN_API int32_t VORN_CALL SetHorizontalAndVerticalMotionUnits(VORN_PRINTER handle,
                                                               int32_t horizontal,
                                                               int32_t vertical);
VORN_API int32_t VORN_CALL SetPrintSpeed(VORN_PRINTER handle, int32_t speed);

/* ---- Text, barcodes, symbols -------------------------------------------- */

VORN_API int32_t VORN_CALL PrintText(VORN_PRINTER handle, const VORN_WCHAR* text,
                                     int32_t alignment, int32_t attributes, int32_t textSize);
VORN_API int32_t VORN_CALL PrintTextS(VORN_PRINTER handle, const VORN_WCHAR* text);
VORN_API int32_t VORN_CALL PrintBarCode(VORN_PRINTER handle, int32_t barcodeType,
                                        const VORN_WCHAR* data, int32_t width, int32_t height,
                                        int32_t alignment, int32_t hriPosition);
VORN_API int32_t VORN_CALL PrintSymbol(VORN_PRINTER handle, int32_t symbolType,
                                       const VORN_WCHAR* data, int32_t errorCorrection,
                                       int32_t moduleSize, int32_t rowHeight, int32_t alignment);
VORN_API int32_t VORN_CALL PrintTwoQRCode(VORN_PRINTER handle, const VORN_WCHAR* data1,
                                          int32_t moduleSize1, int32_t xPosition1,
                                          int32_t yPosition1, const VORN_WCHAR* data2,
                                          int32_t moduleSize2, int32_t xPosition2,
                                          int32_t yPosition2);

/* ---- Page mode ---------------------------------------------------------- */

VORN_API int32_t VORN_CALL SelectPageMode(VORN_PRINTER handle);
VORN_API int32_t VORN_CALL SetPrintAreaInPageMode(VORN_PRINTER handle, int32_t originX,
                                                  int32_t originY, int32_t areaWidth,
                                                  int32_t areaHeight);
VORN_API int32_t VORN_CALL CancelPrintDataInPageMode(VORN_PRINTER handle);
VORN_API int32_t VORN_CALL SelectPrintDirectionInPageMode(VORN_PRINTER handle, int32_t direction);
VORN_API int32_t VORN_CALL SetAbsoluteVerticalPrintPositionInPageMode(VORN_PRINTER handle,
                                                                      int32_t position);
VORN_API int32_t VORN_CALL PrintAndReturnStandardMode(VORN_PRINTER handle);
VORN_API int32_t VORN_CALL PositionNextLabel(VORN_PRINTER handle);
VORN_API int32_t VORN_CALL PrintDataInPageMode(VORN_PRINTER handle);

/* ---- Status ------------------------------------------------------------- */

/* state bits: 0x01 paper end, 0x02 cover open, 0x04 paper near end,
 * 0x20 the query failed, 0x80 off line. */
VORN_API int32_t VORN_CALL GetPrinterState(VORN_PRINTER handle, uint32_t* state);
VORN_API int32_t VORN_CALL GetCashDrawerState(VORN_PRINTER handle, uint32_t* state);
/* version needs room for count + 1 entries (at most 3), one when count < 1. */
VORN_API int32_t VORN_CALL GetFirmwareVersion(VORN_PRINTER handle, int32_t* version,
                                              int32_t count);

/* ---- Images ------------------------------------------------------------- */

VORN_API int32_t VORN_CALL PrintImage(VORN_PRINTER handle, const VORN_WCHAR* filePath, int32_t m);
/* data holds (width + 7) / 8 * height bytes, 1 = printed dot. */
VORN_API int32_t VORN_CALL PrintBitMapData(VORN_PRINTER handle, int32_t m, int32_t width,
                                           int32_t height, const uint8_t* data);
VORN_API int32_t VORN_CALL DefineNVImage(VORN_PRINTER handle, const VORN_WCHAR* filePath,
                                         int32_t kc1, int32_t kc2);
VORN_API int32_t VORN_CALL PrintNVImage(VORN_PRINTER handle, int32_t kc1, int32_t kc2);
VORN_API int32_t VORN_CALL DefineDownloadedImage(VORN_PRINTER handle, const VORN_WCHAR* filePath,
                                                 int32_t kc1, int32_t kc2);
VORN_API int32_t VORN_CALL PrintDownloadedImage(VORN_PRINTER handle, int32_t kc1, int32_t kc2);
VORN_API int32_t VORN_CALL DefineBufferedImage(VORN_PRINTER handle, const VORN_WCHAR* filePath);
VORN_API int32_t VORN_CALL PrintBufferedImage(VORN_PRINTER handle);
VORN_API int32_t VORN_CALL DeleteAllNVImages(VORN_PRINTER handle);
VORN_API int32_t VORN_CALL DefineNVImageCompatible(VORN_PRINTER handle,
                                                   const VORN_WCHAR* const* filePaths,
                                                   int32_t count);
VORN_API int32_t VORN_CALL PrintNVImageCompatible(VORN_PRINTER handle, int32_t n, int32_t m);
VORN_API int32_t VORN_CALL DefineDownloadedImageCompatible(VORN_PRINTER handle,
                                                           const VORN_WCHAR* filePath);
VORN_API int32_t VORN_CALL PrintDownloadedImageCompatible(VORN_PRINTER handle, int32_t m);

#ifdef __cplusplus
}
#endif

#endif /* VORN_VORN_H */
