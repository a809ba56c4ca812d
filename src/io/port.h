// The port object behind a VORN_PORT handle.
#pragma once

#include <vorn/vorn.h>

#include <cstdint>

#include "io/driver.h"

// The twelve references let a holder of the port call the port API through
// the object itself, with the port as first argument.
struct vorn_port_object {
  uint32_t marker;  // kPortMarker once the port is fully created
  vorn::io::Driver* driver;
  int32_t(VORN_CALL* set_uri)(VORN_PORT port, const char* uri);
  int32_t(VORN_CALL* get_uri)(VORN_PORT port, char* buffer, uint32_t size, uint32_t* length);
  int32_t(VORN_CALL* open)(VORN_PORT port);
  int32_t(VORN_CALL* close)(VORN_PORT port);
  int32_t(VORN_CALL* kill)(VORN_PORT port);
  int32_t(VORN_CALL* flush)(VORN_PORT port);
  int32_t(VORN_CALL* set_timeout)(VORN_PORT port, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t,
                                  uint32_t);
  int32_t(VORN_CALL* get_timeout)(VORN_PORT port, uint32_t values[6]);
  int32_t(VORN_CALL* write)(VORN_PORT port, const uint8_t* data, uint32_t offset, uint32_t length,
                            uint32_t* transferred);
  int32_t(VORN_CALL* read)(VORN_PORT port, uint8_t* buffer, uint32_t offset, uint32_t length,
                           uint32_t* transferred);
  int32_t(VORN_CALL* readexist)(VORN_PORT port, uint8_t* buffer, uint32_t offset, uint32_t size,
                                uint32_t* transferred);
  int32_t(VORN_CALL* control)(VORN_PORT port, uint32_t code, uint32_t argument, const void* input,
                              uint32_t input_length, void* output, uint32_t output_length,
                              uint32_t* output_count);
  int32_t kind;
};

namespace vorn::io {

inline constexpr uint32_t kPortMarker = 60;

// Port kinds by URI type ("COM", "BSP", "LPT", "USB", "NET", "FILE"); -1 for
// any other text. Compared exactly and case-sensitively.
int32_t port_kind_from_type(const char* type);

}  // namespace vorn::io
