// Port creation from any text: a port is handed out only for a text that
// names one, its URI parses and normalises to itself, and destroying it
// leaves no count or lock behind.
#include <vorn/vorn.h>

#include <cstring>
#include <string>

#include "fuzz_support.h"
#include "io/port_lock.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  VORN_PORT port = nullptr;
  const int32_t result = vorn_io_port_creator(&port, text.c_str());
  if (result != VORN_OK) {
    FUZZ_CHECK(port == nullptr);
    FUZZ_CHECK(vorn::io::port_count() == 0);
    return 0;
  }
  char uri[VORN_URI_MAX_TEXT + 1];
  uint32_t length = 0;
  FUZZ_CHECK(vorn_io_get_uri(port, uri, sizeof uri, &length) == VORN_OK);
  vorn_uri record;
  FUZZ_CHECK(vorn_io_uri_from_str(&record, uri) == VORN_OK);

  // The stored text is taken back unchanged, and creates the same port.
  FUZZ_CHECK(vorn_io_set_uri(port, uri) == VORN_OK);
  char again[VORN_URI_MAX_TEXT + 1];
  FUZZ_CHECK(vorn_io_get_uri(port, again, sizeof again, &length) == VORN_OK);
  FUZZ_CHECK(std::strcmp(uri, again) == 0);
  VORN_PORT twin = nullptr;
  FUZZ_CHECK(vorn_io_port_creator(&twin, uri) == VORN_OK);
  FUZZ_CHECK(vorn_io_get_uri(twin, again, sizeof again, &length) == VORN_OK);
  FUZZ_CHECK(std::strcmp(uri, again) == 0);

  uint32_t timeouts[6];
  FUZZ_CHECK(vorn_io_get_timeout(port, timeouts) == VORN_OK);
  FUZZ_CHECK(vorn_io_port_destroy(twin) == VORN_OK);
  FUZZ_CHECK(vorn_io_port_destroy(port) == VORN_OK);
  FUZZ_CHECK(vorn::io::port_count() == 0 && !vorn::io::port_lock_exists());
  return 0;
}
