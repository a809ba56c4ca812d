#include "test_printer.h"

#include <linux/ioctl.h>
#include <linux/usbdevice_fs.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace vorn::test {
namespace {

using Bytes = std::vector<uint8_t>;

void put16(Bytes& out, uint16_t value) {
  out.push_back(static_cast<uint8_t>(value & 0xFF));
  out.push_back(static_cast<uint8_t>(value >> 8));
}

// Device descriptor, one configuration, one interface of the given class and
// its endpoints: bulk OUT 0x01 and bulk IN 0x81 for printers, an interrupt
// IN 0x81 for the rest.
Bytes descriptors(const EmulatedDevice& d) {
  const bool bulk = d.interface_class == 7 || d.interface_class == 0xFF;
  const uint8_t device_class = d.interface_class == 9 ? 9 : 0;
  Bytes out = {18, 1, 0x00, 0x02, device_class, 0, 0, 64};
  put16(out, d.vendor);
  put16(out, d.product);
  put16(out, d.revision);
  out.insert(out.end(), {0, 0, 0, 1});
  const uint8_t endpoints = bulk ? 2 : 1;
  const uint16_t total = static_cast<uint16_t>(9 + 9 + 7 * endpoints);
  out.insert(out.end(), {9, 2});
  put16(out, total);
  out.insert(out.end(), {1, 1, 0, 0xC0, 50});
  const uint8_t protocol = d.interface_class == 7 ? 2 : 0;
  const uint8_t subclass = d.interface_class == 7 ? 1 : 0;
  out.insert(out.end(), {9, 4, 0, 0, endpoints, d.interface_class, subclass, protocol, 0});
  if (bulk) {
    out.insert(out.end(), {7, 5, 0x01, 2, 64, 0, 0});
    out.insert(out.end(), {7, 5, 0x81, 2, 64, 0, 0});
  } else {
    out.insert(out.end(), {7, 5, 0x81, 3, 8, 0, 12});
  }
  return out;
}

// "1-1.4" lives under its parent "1-1", which lives under "usb1".
std::string sysfs_path(const std::string& port_path) {
  std::string path = "/devices/usb1";
  if (port_path == "usb1") return path;
  for (std::string::size_type dot = port_path.find('.'); dot != std::string::npos;
       dot = port_path.find('.', dot + 1)) {
    path.append("/").append(port_path, 0, dot);
  }
  return path.append("/").append(port_path);
}

std::string describe(const EmulatedDevice& d) {
  std::string hex;
  for (uint8_t b : descriptors(d)) {
    char two[3];
    std::snprintf(two, sizeof two, "%02x", b);
    hex.append(two);
  }
  char text[1024];
  std::snprintf(text, sizeof text,
                "P: %s\nN: bus/usb/001/%03u\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\n"
                "E: DRIVER=usb\nE: BUSNUM=001\nE: DEVNUM=%03u\nE: DEVNAME=/dev/bus/usb/001/%03u\n"
                "A: busnum=1\\n\nA: devnum=%u\\n\nA: bConfigurationValue=1\\n\n"
                "A: speed=480\\n\nA: idVendor=%04x\\n\nA: idProduct=%04x\\n\n"
                "A: bcdDevice=%04x\\n\nH: descriptors=%s\n",
                sysfs_path(d.port_path).c_str(), d.address, d.address, d.address, d.address,
                d.vendor, d.product, d.revision, hex.c_str());
  return text;
}

}  // namespace

// Completes an IN request from what there is to send; false when there is
// nothing.
bool TestPrinter::fill(Urb urb) {
  if (to_send_.empty()) return false;
  auto* u = reinterpret_cast<usbdevfs_urb*>(urb->data);
  const size_t n = std::min<size_t>(to_send_.size(), static_cast<size_t>(u->buffer_length));
  // The handler shares the test's address space: the buffer is libusb's.
  std::memcpy(u->buffer, to_send_.data(), n);
  to_send_.erase(to_send_.begin(), to_send_.begin() + static_cast<long>(n));
  u->actual_length = static_cast<int>(n);
  u->status = 0;
  done_.push_back(urb);
  return true;
}

void TestPrinter::take(Urb urb, UMockdevIoctlData* buffer) {
  auto* u = reinterpret_cast<usbdevfs_urb*>(urb->data);
  const auto* bytes = static_cast<const uint8_t*>(buffer->data);
  received_.insert(received_.end(), bytes, bytes + u->buffer_length);
  for (const auto& [query, answer] : answers_) {
    if (received_.size() >= query.size() &&
        std::equal(query.begin(), query.end(), received_.end() - static_cast<long>(query.size()))) {
      to_send_.insert(to_send_.end(), answer.begin(), answer.end());
    }
  }
  u->actual_length = u->buffer_length;
  u->status = 0;
  done_.push_back(urb);
  while (!pending_in_.empty() && fill(pending_in_.front())) pending_in_.pop_front();
}

void TestPrinter::reap(UMockdevIoctlClient* client, UMockdevIoctlData* argument) {
  std::deque<Urb>& from = !discarded_.empty() ? discarded_ : done_;
  if (from.empty()) {
    umockdev_ioctl_client_complete(client, -1, EAGAIN);
    return;
  }
  Urb urb = from.front();
  from.pop_front();
  if (&from == &discarded_) reinterpret_cast<usbdevfs_urb*>(urb->data)->status = -ENOENT;
  UMockdevIoctlData* pointer = umockdev_ioctl_data_resolve(argument, 0, sizeof(void*), nullptr);
  umockdev_ioctl_data_set_ptr(pointer, 0, urb);
  umockdev_ioctl_client_complete(client, 0, 0);
  umockdev_ioctl_data_unref(pointer);
  umockdev_ioctl_data_unref(urb);
}

bool TestPrinter::discard(gulong address) {
  for (std::deque<Urb>* list : {&pending_out_, &pending_in_}) {
    for (auto it = list->begin(); it != list->end(); ++it) {
      if ((*it)->client_addr != address) continue;
      discarded_.push_back(*it);
      list->erase(it);
      return true;
    }
  }
  return false;
}

gboolean TestPrinter::handle(UMockdevIoctlClient* client) {
  std::lock_guard<std::mutex> guard(lock_);
  const gulong request = umockdev_ioctl_client_get_request(client);
  UMockdevIoctlData* argument = umockdev_ioctl_client_get_arg(client);
  switch (request) {
    case USBDEVFS_GET_CAPABILITIES: {
      UMockdevIoctlData* caps = umockdev_ioctl_data_resolve(argument, 0, sizeof(guint32), nullptr);
      *reinterpret_cast<guint32*>(caps->data) = USBDEVFS_CAP_BULK_CONTINUATION |
                                                USBDEVFS_CAP_NO_PACKET_SIZE_LIM |
                                                USBDEVFS_CAP_REAP_AFTER_DISCONNECT;
      umockdev_ioctl_client_complete(client, 0, 0);
      umockdev_ioctl_data_unref(caps);
      return TRUE;
    }
    case USBDEVFS_DISCONNECT_CLAIM:
      driver_bound_ = false;
      claimed_ = true;
      break;
    case USBDEVFS_CLAIMINTERFACE:
    case USBDEVFS_RELEASEINTERFACE:
      claimed_ = request == USBDEVFS_CLAIMINTERFACE;
      break;
    case USBDEVFS_IOCTL: {
      UMockdevIoctlData* call =
          umockdev_ioctl_data_resolve(argument, 0, sizeof(usbdevfs_ioctl), nullptr);
      const int code = reinterpret_cast<usbdevfs_ioctl*>(call->data)->ioctl_code;
      umockdev_ioctl_data_unref(call);
      if (code == static_cast<int>(USBDEVFS_CONNECT)) driver_bound_ = true;
      if (code == static_cast<int>(USBDEVFS_DISCONNECT)) driver_bound_ = false;
      break;
    }
    case USBDEVFS_CLEAR_HALT:
    case USBDEVFS_RESETEP:
    case USBDEVFS_SETINTERFACE:
      break;
    case USBDEVFS_SUBMITURB: {
      Urb urb = umockdev_ioctl_data_resolve(argument, 0, sizeof(usbdevfs_urb), nullptr);
      auto* u = reinterpret_cast<usbdevfs_urb*>(urb->data);
      if (u->type != USBDEVFS_URB_TYPE_BULK) {
        umockdev_ioctl_data_unref(urb);
        umockdev_ioctl_client_complete(client, -1, EINVAL);
        return TRUE;
      }
      if ((u->endpoint & 0x80) == 0) {
        UMockdevIoctlData* buffer = umockdev_ioctl_data_resolve(
            urb, G_STRUCT_OFFSET(usbdevfs_urb, buffer), u->buffer_length, nullptr);
        if (stalled_) {
          pending_out_.push_back(urb);
        } else {
          take(urb, buffer);
        }
        umockdev_ioctl_data_unref(buffer);
      } else if (!fill(urb)) {
        pending_in_.push_back(urb);
      }
      break;
    }
    case USBDEVFS_REAPURB:
    case USBDEVFS_REAPURBNDELAY:
      reap(client, argument);
      return TRUE;
    case USBDEVFS_DISCARDURB:
      if (!discard(*reinterpret_cast<gulong*>(argument->data))) {
        umockdev_ioctl_client_complete(client, -1, EINVAL);
        return TRUE;
      }
      break;
    default:
      return FALSE;
  }
  umockdev_ioctl_client_complete(client, 0, 0);
  return TRUE;
}

gboolean TestPrinter::on_ioctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
  return static_cast<TestPrinter*>(self)->handle(client);
}

TestPrinter::~TestPrinter() {
  for (std::deque<Urb>* list : {&pending_out_, &pending_in_, &done_, &discarded_}) {
    for (Urb urb : *list) umockdev_ioctl_data_unref(urb);
  }
  if (handler_ != nullptr) g_object_unref(handler_);
}

std::vector<uint8_t> TestPrinter::received() {
  std::lock_guard<std::mutex> guard(lock_);
  return received_;
}

void TestPrinter::set_stalled(bool stalled) {
  std::lock_guard<std::mutex> guard(lock_);
  stalled_ = stalled;
}

void TestPrinter::answer(std::vector<uint8_t> query, std::vector<uint8_t> answer) {
  std::lock_guard<std::mutex> guard(lock_);
  answers_.emplace_back(std::move(query), std::move(answer));
}

bool TestPrinter::kernel_driver_bound() {
  std::lock_guard<std::mutex> guard(lock_);
  return driver_bound_;
}

bool TestPrinter::interface_claimed() {
  std::lock_guard<std::mutex> guard(lock_);
  return claimed_;
}

EmulatedUsb::EmulatedUsb() : testbed_(umockdev_testbed_new()) {
  for (const EmulatedDevice& hub : {EmulatedDevice{"usb1", 1, 0x1D6B, 0x0002, 0x0601, 9},
                                    EmulatedDevice{"1-1", 2, 0x05E3, 0x0608, 0x8537, 9}}) {
    umockdev_testbed_add_from_string(testbed_, describe(hub).c_str(), nullptr);
  }
}

EmulatedUsb::~EmulatedUsb() {
  // The handlers go before the testbed that serves them.
  printers_.clear();
  g_object_unref(testbed_);
}

TestPrinter& EmulatedUsb::add(const EmulatedDevice& device) {
  auto printer = std::make_unique<TestPrinter>();
  if (device.interface_class != 3) {
    printer->handler_ = umockdev_ioctl_base_new();
    g_signal_connect_after(printer->handler_, "handle-ioctl", G_CALLBACK(TestPrinter::on_ioctl),
                           printer.get());
    char node[32];
    std::snprintf(node, sizeof node, "/dev/bus/usb/001/%03u", device.address);
    umockdev_testbed_attach_ioctl(testbed_, node, printer->handler_, nullptr);
  }
  umockdev_testbed_add_from_string(testbed_, describe(device).c_str(), nullptr);
  printers_.push_back(std::move(printer));
  return *printers_.back();
}

bool EmulatedUsb::available() {
  const char* preload = std::getenv("LD_PRELOAD");
  return preload != nullptr && std::strstr(preload, "umockdev-preload") != nullptr;
}

}  // namespace vorn::test
