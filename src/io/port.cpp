// The exported port API: creation from a URI or comma form, destruction, and
// the twelve operations, each checking its port and handing over to the
// port's driver.
#include "io/port.h"

#include <cstring>
#include <new>

#include "io/comma_form.h"
#include "io/live_set.h"
#include "io/port_lock.h"

namespace vorn::io {

int32_t port_kind_from_type(const char* type) {
  static constexpr struct {
    const char* type;
    int32_t kind;
  } kKinds[] = {
      {"COM", VORN_PORT_SERIAL}, {"BSP", VORN_PORT_SERIAL},  {"LPT", VORN_PORT_PARALLEL},
      {"USB", VORN_PORT_USB},    {"NET", VORN_PORT_NETWORK}, {"FILE", VORN_PORT_FILE},
  };
  if (type == nullptr) return -1;
  for (const auto& entry : kKinds) {
    if (std::strcmp(entry.type, type) == 0) return entry.kind;
  }
  return -1;
}

namespace {

// Fully created ports only: one made by the second creator alone never
// enters the set, so it is refused like a destroyed one. Never destroyed, so
// that a port used during the process's exit still finds it.
LiveSet& live_ports() {
  static LiveSet* ports = new LiveSet;
  return *ports;
}

bool usable(VORN_PORT port) {
  return live_ports().contains(port) && port->marker == kPortMarker;
}

void free_port(VORN_PORT port) {
  destroy_driver(port->driver);
  delete port;
}

}  // namespace
}  // namespace vorn::io

using vorn::io::usable;

extern "C" {

VORN_API int32_t VORN_CALL vorn_io_set_uri(VORN_PORT port, const char* uri) {
  if (!usable(port)) return VORN_ERR_INVALID_HANDLE;
  return port->driver->ops->set_uri(port->driver->state, uri);
}

VORN_API int32_t VORN_CALL vorn_io_get_uri(VORN_PORT port, char* buffer, uint32_t size,
                                           uint32_t* length) {
  if (!usable(port)) return VORN_ERR_INVALID_HANDLE;
  return port->driver->ops->get_uri(port->driver->state, buffer, size, length);
}

VORN_API int32_t VORN_CALL vorn_io_open(VORN_PORT port) {
  if (!usable(port)) return VORN_ERR_INVALID_HANDLE;
  return port->driver->ops->open(port->driver->state);
}

VORN_API int32_t VORN_CALL vorn_io_close(VORN_PORT port) {
  if (!usable(port)) return VORN_ERR_INVALID_HANDLE;
  return port->driver->ops->close(port->driver->state);
}

VORN_API int32_t VORN_CALL vorn_io_kill(VORN_PORT port) {
  // Called from another thread to stop a running transfer: the port stays
  // live while its kill mark is set, even if its owner is destroying it.
  int32_t result = VORN_ERR_INVALID_HANDLE;
  vorn::io::live_ports().while_live(port,
                                    [&] { result = port->driver->ops->kill(port->driver->state); });
  return result;
}

VORN_API int32_t VORN_CALL vorn_io_flush(VORN_PORT port) {
  if (!usable(port)) return VORN_ERR_INVALID_HANDLE;
  return port->driver->ops->flush(port->driver->state);
}

VORN_API int32_t VORN_CALL vorn_io_set_timeout(VORN_PORT port, uint32_t read_interval,
                                               uint32_t read_multiplier, uint32_t read_constant,
                                               uint32_t write_multiplier, uint32_t write_constant,
                                               uint32_t connect_timeout) {
  if (!usable(port)) return VORN_ERR_INVALID_HANDLE;
  const uint32_t values[vorn::io::kTimeoutCount] = {read_interval,  read_multiplier,
                                                    read_constant,  write_multiplier,
                                                    write_constant, connect_timeout};
  return port->driver->ops->set_timeout(port->driver->state, values);
}

VORN_API int32_t VORN_CALL vorn_io_get_timeout(VORN_PORT port, uint32_t values[6]) {
  if (!usable(port)) return VORN_ERR_INVALID_HANDLE;
  if (values == nullptr) return VORN_ERR_PARAMETER;
  return port->driver->ops->get_timeout(port->driver->state, values);
}

VORN_API int32_t VORN_CALL vorn_io_write(VORN_PORT port, const uint8_t* data, uint32_t offset,
                                         uint32_t length, uint32_t* transferred) {
  if (!usable(port)) return VORN_ERR_INVALID_HANDLE;
  if (transferred == nullptr) return VORN_ERR_PARAMETER;
  *transferred = 0;
  if (data == nullptr && length != 0) return VORN_ERR_PARAMETER;
  return port->driver->ops->write(port->driver->state, data, offset, length, transferred);
}

VORN_API int32_t VORN_CALL vorn_io_read(VORN_PORT port, uint8_t* buffer, uint32_t offset,
                                        uint32_t length, uint32_t* transferred) {
  if (!usable(port)) return VORN_ERR_INVALID_HANDLE;
  if (transferred == nullptr) return VORN_ERR_PARAMETER;
  *transferred = 0;
  if (buffer == nullptr && length != 0) return VORN_ERR_PARAMETER;
  return port->driver->ops->read(port->driver->state, buffer, offset, length, transferred);
}

VORN_API int32_t VORN_CALL vorn_io_readexist(VORN_PORT port, uint8_t* buffer, uint32_t offset,
                                             uint32_t size, uint32_t* transferred) {
  if (!usable(port)) return VORN_ERR_INVALID_HANDLE;
  if (transferred == nullptr) return VORN_ERR_PARAMETER;
  *transferred = 0;
  if (offset > size || (buffer == nullptr && size != offset)) return VORN_ERR_PARAMETER;
  return port->driver->ops->readexist(port->driver->state, buffer, offset, size, transferred);
}

VORN_API int32_t VORN_CALL vorn_io_control(VORN_PORT port, uint32_t code, uint32_t argument,
                                           const void* input, uint32_t input_length, void* output,
                                           uint32_t output_length, uint32_t* output_count) {
  if (!usable(port)) return VORN_ERR_INVALID_HANDLE;
  if (output_count != nullptr) *output_count = 0;
  return port->driver->ops->control(port->driver->state, code, argument, input, input_length,
                                    output, output_length, output_count);
}

VORN_API int32_t VORN_CALL vorn_io_port_creator2(VORN_PORT* port, int32_t kind) {
  if (port == nullptr) return VORN_ERR_PARAMETER;
  auto* object = new (std::nothrow) vorn_port_object{};
  if (object == nullptr) return VORN_ERR_BUFFER_TOO_SMALL;
  object->kind = kind;
  int32_t result = vorn::io::create_driver(kind, &object->driver);
  if (result != VORN_OK) {
    delete object;
    return result;
  }
  object->set_uri = vorn_io_set_uri;
  object->get_uri = vorn_io_get_uri;
  object->open = vorn_io_open;
  object->close = vorn_io_close;
  object->kill = vorn_io_kill;
  object->flush = vorn_io_flush;
  object->set_timeout = vorn_io_set_timeout;
  object->get_timeout = vorn_io_get_timeout;
  object->write = vorn_io_write;
  object->read = vorn_io_read;
  object->readexist = vorn_io_readexist;
  object->control = vorn_io_control;
  // The marker stays unset: only the URI-based creator hands out usable ports.
  *port = object;
  return VORN_OK;
}

VORN_API int32_t VORN_CALL vorn_io_port_creator(VORN_PORT* port, const char* uri) {
  if (port == nullptr) return VORN_ERR_PARAMETER;
  vorn::io::port_lock_register_port();
  // A failed creation hands back its place in the count, so the lock lives
  // exactly as long as some port does.
  auto fail = [](int32_t code) {
    vorn::io::port_lock_unregister_port();
    return code;
  };
  if (uri == nullptr) return fail(VORN_ERR_IO_INVALID_SETTING);

  // Longer texts are cut to 255 bytes here and parsed as cut.
  char copy[VORN_URI_MAX_TEXT + 1] = {};
  size_t copied = strnlen(uri, VORN_URI_MAX_TEXT);
  std::memcpy(copy, uri, copied);
  if (copied < 3) return fail(VORN_ERR_IO_INVALID_SETTING);

  vorn_uri record;
  if (vorn_io_uri_from_str(&record, copy) != VORN_OK) {
    char converted[VORN_URI_MAX_TEXT + 1] = {};
    if (vorn::io::comma_form_to_uri(copy, converted, VORN_URI_MAX_TEXT) != VORN_OK ||
        vorn_io_uri_from_str(&record, converted) != VORN_OK) {
      return fail(VORN_ERR_IO_INVALID_SETTING);
    }
  }

  int32_t kind = vorn::io::port_kind_from_type(record.type);
  if (kind < 0) return fail(VORN_ERR_PRINTER_NOT_SUPPORTED);

  VORN_PORT object = nullptr;
  int32_t result = vorn_io_port_creator2(&object, kind);
  if (result != VORN_OK) return fail(result);

  char normalised[VORN_URI_MAX_TEXT + 1] = {};
  result = vorn_io_uri_to_str(&record, normalised, sizeof normalised);
  if (result == VORN_OK) {
    result = object->driver->ops->set_uri(object->driver->state, normalised);
  }
  if (result != VORN_OK) {
    vorn::io::free_port(object);
    return fail(result);
  }
  object->marker = vorn::io::kPortMarker;
  if (!vorn::io::live_ports().add(object)) {
    vorn::io::free_port(object);
    return fail(VORN_ERR_BUFFER_TOO_SMALL);
  }
  *port = object;
  return VORN_OK;
}

VORN_API int32_t VORN_CALL vorn_io_port_destroy(VORN_PORT port) {
  // Taken out of the set first: from here on every other call refuses it.
  if (!vorn::io::live_ports().take(port)) return VORN_ERR_INVALID_HANDLE;
  vorn::io::port_lock_unregister_port();
  port->driver->ops->close(port->driver->state);
  port->marker = 0;
  vorn::io::free_port(port);
  return VORN_OK;
}

}  // extern "C"
