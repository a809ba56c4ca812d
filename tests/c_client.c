/* A C application linked against the shared library: the exported names
 * resolve and the basic calls work from C. */
#include <stdio.h>
#include <string.h>
#include <vorn/vorn.h>

int main(void) {
  char text[256];
  VORN_PRINTER printer;
  VORN_PORT port = 0;
  if (vorn_io_format_error(VORN_ERR_IO_NOT_OPEN, text, 0, sizeof text) != VORN_OK) return 1;
  if (strcmp(text, "IO port not open.\nPlease open the IO port.") != 0) return 2;
  printer = PrinterCreatorS("unknown");
  if (printer == 0) return 3;
  if (WriteData(printer, (const uint8_t*)"x", 1) != VORN_ERR_IO_NOT_OPEN) return 4;
  if (PrinterDestroy(printer) != VORN_OK) return 5;
  if (vorn_io_port_creator(&port, "vorn:/dev/bus/FILE/DEVICE?filename=x") !=
      VORN_ERR_PRINTER_NOT_SUPPORTED) return 6;
  puts("c client ok");
  return 0;
}
