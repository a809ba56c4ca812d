// The tables of operations in force. Each starts as the native table; tests
// install fakes. Reads and installs are atomic so that a port killed from
// another thread sees a consistent table.
#include <atomic>

#include "platform/clock.h"
#include "platform/device_file.h"
#include "platform/image_decoder.h"
#include "platform/serial_line.h"
#include "platform/socket.h"
#include "platform/text.h"
#include "platform/usb.h"

namespace vorn::platform {
namespace {

template <typename Ops>
class Slot {
 public:
  const Ops& get(const Ops& native) const {
    const Ops* ops = current_.load(std::memory_order_acquire);
    return ops != nullptr ? *ops : native;
  }
  const Ops* install(const Ops* ops) { return current_.exchange(ops, std::memory_order_acq_rel); }

 private:
  std::atomic<const Ops*> current_{nullptr};
};

Slot<ClockOps> clock_slot;
Slot<DeviceFileOps> device_file_slot;
Slot<ImageDecoderOps> image_decoder_slot;
Slot<SerialLineOps> serial_line_slot;
Slot<SocketOps> socket_slot;
Slot<TextOps> text_slot;
Slot<UsbOps> usb_slot;

}  // namespace

const ClockOps& clock() {
  return clock_slot.get(native_clock());
}
const ClockOps* install_clock(const ClockOps* ops) {
  return clock_slot.install(ops);
}

const DeviceFileOps& device_file() {
  return device_file_slot.get(native_device_file());
}
const DeviceFileOps* install_device_file(const DeviceFileOps* ops) {
  return device_file_slot.install(ops);
}

const ImageDecoderOps& image_decoder() {
  return image_decoder_slot.get(native_image_decoder());
}
const ImageDecoderOps* install_image_decoder(const ImageDecoderOps* ops) {
  return image_decoder_slot.install(ops);
}

const SerialLineOps& serial_line() {
  return serial_line_slot.get(native_serial_line());
}
const SerialLineOps* install_serial_line(const SerialLineOps* ops) {
  return serial_line_slot.install(ops);
}

const SocketOps& socket_ops() {
  return socket_slot.get(native_socket_ops());
}
const SocketOps* install_socket_ops(const SocketOps* ops) {
  return socket_slot.install(ops);
}

const TextOps& text() {
  return text_slot.get(native_text());
}
const TextOps* install_text(const TextOps* ops) {
  return text_slot.install(ops);
}

const UsbOps& usb() {
  return usb_slot.get(native_usb());
}
const UsbOps* install_usb(const UsbOps* ops) {
  return usb_slot.install(ops);
}

}  // namespace vorn::platform
