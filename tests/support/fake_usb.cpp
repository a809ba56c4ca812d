#include "support/fake_usb.h"

#include "platform/usb.h"

namespace vorn::test {
namespace {

FakeUsb* current = nullptr;

const char* text(const std::optional<std::string>& value) {
  return value ? value->c_str() : nullptr;
}

int32_t enumerate(platform::UsbVisitor visit, void* context) {
  for (const FakeUsbDevice& device : current->devices) {
    const platform::UsbDevice shown{device.path.c_str(), text(device.hardware_id),
                                    text(device.location), text(device.service)};
    if (!visit(shown, context)) break;
  }
  return current->enumerate_error;
}

int32_t open(const char* path, platform::DeviceHandle* out) {
  return platform::device_file().open_existing(path, true, out);
}
void close(platform::DeviceHandle handle) {
  platform::device_file().close(handle);
}
platform::Attempt write(platform::DeviceHandle handle, const uint8_t* data, uint32_t length,
                        uint32_t wait_ms) {
  return platform::device_file().write(handle, data, length, wait_ms);
}
platform::Attempt read(platform::DeviceHandle handle, uint8_t* buffer, uint32_t length,
                       uint32_t wait_ms) {
  return platform::device_file().read(handle, buffer, length, wait_ms);
}
void cancel(platform::DeviceHandle) {
  ++current->cancels;
}

constexpr platform::UsbOps kFakeUsbOps = {
    .enumerate = enumerate,
    .open = open,
    .close = close,
    .write = write,
    .read = read,
    .cancel = cancel,
};

}  // namespace

FakeUsb::FakeUsb() {
  current = this;
  platform::install_usb(&kFakeUsbOps);
}

FakeUsb::~FakeUsb() {
  platform::install_usb(nullptr);
  current = nullptr;
}

FakeUsb* FakeUsb::active() {
  return current;
}

}  // namespace vorn::test
