// No USB backend yet: no device is ever present.
#include "platform/usb.h"

namespace vorn::platform {
namespace {

int32_t enumerate(UsbVisitor, void*) {
  return 0;
}
int32_t open(const char*, DeviceHandle*) {
  return -372;
}
void close(DeviceHandle) {}
Attempt transfer(DeviceHandle, const uint8_t*, uint32_t, uint32_t) {
  return Attempt{};
}
Attempt receive(DeviceHandle, uint8_t*, uint32_t, uint32_t) {
  return Attempt{};
}
void cancel(DeviceHandle) {}

constexpr UsbOps kNoUsb = {
    .enumerate = enumerate,
    .open = open,
    .close = close,
    .write = transfer,
    .read = receive,
    .cancel = cancel,
};

}  // namespace

const UsbOps& native_usb() {
  return kNoUsb;
}

}  // namespace vorn::platform
