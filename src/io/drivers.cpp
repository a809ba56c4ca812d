// The drivers by port kind. A kind whose driver is not part of this build
// (and the "FILE" kind, which never has one) is refused with -4.
#include <vorn/vorn.h>

#include <new>

#include "io/driver.h"
#include "io/network_port.h"
#include "io/parallel_port.h"
#include "io/serial_port.h"
#include "io/usb_port.h"

namespace vorn::io {
namespace {

struct DriverEntry {
  int32_t kind;
  const DriverOps* ops;
  void* (*new_state)();  // null when memory runs out
};

const DriverEntry kDrivers[] = {
    {VORN_PORT_SERIAL, &kSerialDriverOps, new_serial_state},
    {VORN_PORT_PARALLEL, &kParallelDriverOps, new_parallel_state},
    {VORN_PORT_USB, &kUsbDriverOps, new_usb_state},
    {VORN_PORT_NETWORK, &kNetworkDriverOps, new_network_state},
};

}  // namespace

int32_t create_driver(int32_t kind, Driver** out) {
  for (const DriverEntry& entry : kDrivers) {
    if (entry.kind != kind) continue;
    auto* driver = new (std::nothrow) Driver{};
    if (driver == nullptr) return VORN_ERR_BUFFER_TOO_SMALL;
    driver->state = entry.new_state();
    if (driver->state == nullptr) {
      delete driver;
      return VORN_ERR_BUFFER_TOO_SMALL;
    }
    driver->ops = entry.ops;
    *out = driver;
    return VORN_OK;
  }
  return VORN_ERR_PRINTER_NOT_SUPPORTED;
}

void destroy_driver(Driver* driver) {
  if (driver == nullptr) return;
  driver->ops->destroy(driver->state);
  delete driver;
}

}  // namespace vorn::io
