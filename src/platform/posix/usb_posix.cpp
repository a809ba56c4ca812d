// USB printers through libusb and usbfs. A device's path is its usbfs node,
// its location the kernel's port path ("1-1.4": bus, then the ports from
// the root hub), as lsusb -t, udev rules and sysfs show it. A device with a
// printer-class interface gets the service name of the printer class
// ("usbprint"); others are named after their class, never a text that could
// pass for it.
#include <libusb.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "platform/usb.h"

namespace vorn::platform {
namespace {

constexpr uint8_t kPrinterClass = LIBUSB_CLASS_PRINTER;
constexpr int32_t kDeviceNotFound = -372;

// libusb's failures as errno values, which is what positive result codes are
// on this system.
int32_t system_error(int code) {
  switch (code) {
    case LIBUSB_ERROR_INVALID_PARAM:
      return EINVAL;
    case LIBUSB_ERROR_ACCESS:
      return EACCES;
    case LIBUSB_ERROR_NO_DEVICE:
      return ENODEV;
    case LIBUSB_ERROR_NOT_FOUND:
      return ENOENT;
    case LIBUSB_ERROR_BUSY:
      return EBUSY;
    case LIBUSB_ERROR_TIMEOUT:
      return ETIMEDOUT;
    case LIBUSB_ERROR_OVERFLOW:
      return EOVERFLOW;
    case LIBUSB_ERROR_PIPE:
      return EPIPE;
    case LIBUSB_ERROR_INTERRUPTED:
      return EINTR;
    case LIBUSB_ERROR_NO_MEM:
      return ENOMEM;
    case LIBUSB_ERROR_NOT_SUPPORTED:
      return ENOTSUP;
    default:
      return EIO;
  }
}

struct ClassName {
  uint8_t code;
  const char* name;
};
constexpr ClassName kClassNames[] = {
    {LIBUSB_CLASS_AUDIO, "audio"},
    {LIBUSB_CLASS_COMM, "comm"},
    {LIBUSB_CLASS_HID, "hid"},
    {LIBUSB_CLASS_IMAGE, "image"},
    {LIBUSB_CLASS_MASS_STORAGE, "storage"},
    {LIBUSB_CLASS_HUB, "hub"},
    {LIBUSB_CLASS_DATA, "cdc-data"},
    {LIBUSB_CLASS_SMART_CARD, "smartcard"},
    {LIBUSB_CLASS_VIDEO, "video"},
    {LIBUSB_CLASS_WIRELESS, "wireless"},
    {LIBUSB_CLASS_MISCELLANEOUS, "misc"},
    {LIBUSB_CLASS_APPLICATION, "app"},
    {LIBUSB_CLASS_VENDOR_SPEC, "vendor"},
};

std::string class_name(uint8_t code) {
  for (const ClassName& entry : kClassNames) {
    if (entry.code == code) return entry.name;
  }
  char text[16];
  std::snprintf(text, sizeof text, "class-%02x", code);
  return text;
}

// The configuration in use, else the first one; null when neither can be read.
libusb_config_descriptor* configuration(libusb_device* device) {
  libusb_config_descriptor* config = nullptr;
  if (libusb_get_active_config_descriptor(device, &config) == 0) return config;
  if (libusb_get_config_descriptor(device, 0, &config) == 0) return config;
  return nullptr;
}

std::string service_of(libusb_device* device, const libusb_device_descriptor& descriptor) {
  uint8_t first_class = descriptor.bDeviceClass;
  if (libusb_config_descriptor* config = configuration(device)) {
    bool printer = false;
    for (int i = 0; i < config->bNumInterfaces; ++i) {
      const libusb_interface& interface = config->interface[i];
      for (int a = 0; a < interface.num_altsetting; ++a) {
        const uint8_t code = interface.altsetting[a].bInterfaceClass;
        if (code == kPrinterClass) printer = true;
        if (i == 0 && a == 0 && first_class == LIBUSB_CLASS_PER_INTERFACE) first_class = code;
      }
    }
    libusb_free_config_descriptor(config);
    if (printer) return "usbprint";
  }
  return class_name(first_class);
}

struct Present {
  uint8_t bus;
  uint8_t address;
  std::vector<uint8_t> ports;
  std::string path, hardware_id, location, service;
};

std::vector<Present> describe(libusb_device** list, ssize_t count) {
  std::vector<Present> devices;
  for (ssize_t i = 0; i < count; ++i) {
    libusb_device* device = list[i];
    Present p;
    p.bus = libusb_get_bus_number(device);
    p.address = libusb_get_device_address(device);
    uint8_t ports[8];
    const int depth = libusb_get_port_numbers(device, ports, sizeof ports);
    if (depth > 0) p.ports.assign(ports, ports + depth);
    char text[64];
    std::snprintf(text, sizeof text, "/dev/bus/usb/%03u/%03u", p.bus, p.address);
    p.path = text;
    int used = std::snprintf(text, sizeof text, depth > 0 ? "%u-" : "usb%u", p.bus);
    for (size_t k = 0; k < p.ports.size(); ++k) {
      used += std::snprintf(text + used, sizeof text - static_cast<size_t>(used),
                            k == 0 ? "%u" : ".%u", p.ports[k]);
    }
    p.location = text;
    libusb_device_descriptor descriptor;
    if (libusb_get_device_descriptor(device, &descriptor) == 0) {
      std::snprintf(text, sizeof text, "USB\\VID_%04X&PID_%04X&REV_%04X", descriptor.idVendor,
                    descriptor.idProduct, descriptor.bcdDevice);
      p.hardware_id = text;
      p.service = service_of(device, descriptor);
    }
    devices.push_back(std::move(p));
  }
  // The kernel's listing order is that of its directory; by bus and ports is
  // the order a user sees in lsusb -t, and the same at every open.
  std::sort(devices.begin(), devices.end(), [](const Present& a, const Present& b) {
    return a.bus != b.bus ? a.bus < b.bus : a.ports < b.ports;
  });
  return devices;
}

// A libusb context and its device list, released together.
class DeviceList {
 public:
  DeviceList() {
    error_ = libusb_init(&context_);
    if (error_ != 0) {
      context_ = nullptr;
      return;
    }
    count_ = libusb_get_device_list(context_, &list_);
    if (count_ < 0) {
      error_ = static_cast<int>(count_);
      count_ = 0;
      list_ = nullptr;
    }
  }
  ~DeviceList() {
    if (list_ != nullptr) libusb_free_device_list(list_, 1);
    if (context_ != nullptr) libusb_exit(context_);
  }
  DeviceList(const DeviceList&) = delete;
  DeviceList& operator=(const DeviceList&) = delete;

  // Frees the list and gives up the context, which outlives the list in an
  // open handle (the handle keeps its device).
  libusb_context* take_context() {
    if (list_ != nullptr) libusb_free_device_list(list_, 1);
    list_ = nullptr;
    count_ = 0;
    return std::exchange(context_, nullptr);
  }

  int error_ = 0;
  libusb_context* context_ = nullptr;
  libusb_device** list_ = nullptr;
  ssize_t count_ = 0;
};

int32_t enumerate(UsbVisitor visit, void* context) {
  DeviceList list;
  if (list.error_ != 0) return system_error(list.error_);
  for (const Present& device : describe(list.list_, list.count_)) {
    const UsbDevice shown{
        device.path.c_str(), device.hardware_id.empty() ? nullptr : device.hardware_id.c_str(),
        device.location.c_str(), device.service.empty() ? nullptr : device.service.c_str()};
    if (!visit(shown, context)) break;
  }
  return 0;
}

// An open printer: its own libusb context, so that the thread moving bytes
// is the only one handling its events.
struct Printer {
  libusb_context* context = nullptr;
  libusb_device_handle* device = nullptr;
  int interface = -1;
  uint8_t out_endpoint = 0;
  uint8_t in_endpoint = 0;  // 0: the printer sends nothing back
  std::mutex lock;          // guards `running` against a cancel from another thread
  libusb_transfer* running = nullptr;
  std::atomic<bool> cancelled{false};
};

Printer* as_printer(DeviceHandle handle) {
  return reinterpret_cast<Printer*>(handle);
}

struct Endpoints {
  int interface = -1;
  int altsetting = 0;
  uint8_t out = 0;
  uint8_t in = 0;
};

Endpoints bulk_endpoints(const libusb_interface_descriptor& setting) {
  Endpoints found;
  for (int e = 0; e < setting.bNumEndpoints; ++e) {
    const libusb_endpoint_descriptor& endpoint = setting.endpoint[e];
    if ((endpoint.bmAttributes & LIBUSB_TRANSFER_TYPE_MASK) != LIBUSB_TRANSFER_TYPE_BULK) continue;
    const bool in = (endpoint.bEndpointAddress & LIBUSB_ENDPOINT_DIR_MASK) == LIBUSB_ENDPOINT_IN;
    uint8_t& slot = in ? found.in : found.out;
    if (slot == 0) slot = endpoint.bEndpointAddress;
  }
  return found;
}

// The printer-class interface, else the first one with a bulk OUT endpoint.
Endpoints printer_interface(const libusb_config_descriptor& config) {
  Endpoints fallback;
  for (int i = 0; i < config.bNumInterfaces; ++i) {
    const libusb_interface& interface = config.interface[i];
    for (int a = 0; a < interface.num_altsetting; ++a) {
      const libusb_interface_descriptor& setting = interface.altsetting[a];
      Endpoints found = bulk_endpoints(setting);
      if (found.out == 0) continue;
      found.interface = setting.bInterfaceNumber;
      found.altsetting = setting.bAlternateSetting;
      if (setting.bInterfaceClass == kPrinterClass) return found;
      if (fallback.interface < 0) fallback = found;
    }
  }
  return fallback;
}

void release(Printer* printer) {
  if (printer->device != nullptr) {
    // With automatic detaching, releasing gives the interface back to the
    // kernel driver (usblp) that held it before open.
    if (printer->interface >= 0) libusb_release_interface(printer->device, printer->interface);
    libusb_close(printer->device);
  }
  if (printer->context != nullptr) libusb_exit(printer->context);
  delete printer;
}

int32_t open(const char* path, DeviceHandle* out) {
  unsigned bus = 0, address = 0;
  char rest = 0;
  if (std::sscanf(path, "/dev/bus/usb/%u/%u%c", &bus, &address, &rest) != 2) {
    return kDeviceNotFound;
  }
  DeviceList list;
  if (list.error_ != 0) return system_error(list.error_);
  libusb_device* device = nullptr;
  for (ssize_t i = 0; i < list.count_; ++i) {
    if (libusb_get_bus_number(list.list_[i]) == bus &&
        libusb_get_device_address(list.list_[i]) == address) {
      device = list.list_[i];
    }
  }
  if (device == nullptr) return kDeviceNotFound;

  libusb_config_descriptor* config = configuration(device);
  if (config == nullptr) return ENODEV;
  const Endpoints endpoints = printer_interface(*config);
  libusb_free_config_descriptor(config);
  if (endpoints.interface < 0) return ENODEV;

  auto* printer = new (std::nothrow) Printer;
  if (printer == nullptr) return ENOMEM;
  int error = libusb_open(device, &printer->device);
  printer->context = list.take_context();
  if (error != 0) {
    printer->device = nullptr;
    release(printer);
    return system_error(error);
  }
  // usblp binds to printer-class interfaces; it is detached while the port
  // is open and bound again at close.
  libusb_set_auto_detach_kernel_driver(printer->device, 1);
  error = libusb_claim_interface(printer->device, endpoints.interface);
  if (error != 0) {
    release(printer);
    return system_error(error);
  }
  printer->interface = endpoints.interface;
  if (endpoints.altsetting != 0) {
    error = libusb_set_interface_alt_setting(printer->device, endpoints.interface,
                                             endpoints.altsetting);
    if (error != 0) {
      release(printer);
      return system_error(error);
    }
  }
  printer->out_endpoint = endpoints.out;
  printer->in_endpoint = endpoints.in;
  *out = reinterpret_cast<DeviceHandle>(printer);
  return 0;
}

void close(DeviceHandle handle) {
  if (handle != kNoDevice) release(as_printer(handle));
}

void LIBUSB_CALL transfer_done(libusb_transfer* transfer) {
  *static_cast<int*>(transfer->user_data) = 1;
}

// One bulk transfer, run to its end by this thread's event handling.
Attempt transfer(Printer* printer, uint8_t endpoint, uint8_t* data, uint32_t length,
                 uint32_t wait_ms) {
  Attempt attempt;
  if (printer->cancelled.load()) return attempt;
  libusb_transfer* transfer = libusb_alloc_transfer(0);
  if (transfer == nullptr) {
    attempt.error = ENOMEM;
    return attempt;
  }
  int completed = 0;
  // libusb reads a timeout of 0 as "no limit".
  libusb_fill_bulk_transfer(transfer, printer->device, endpoint, data, static_cast<int>(length),
                            transfer_done, &completed, std::max<uint32_t>(wait_ms, 1));
  {
    std::lock_guard<std::mutex> guard(printer->lock);
    if (printer->cancelled.load()) {
      libusb_free_transfer(transfer);
      return attempt;
    }
    const int error = libusb_submit_transfer(transfer);
    if (error != 0) {
      libusb_free_transfer(transfer);
      attempt.error = system_error(error);
      return attempt;
    }
    printer->running = transfer;
  }
  while (completed == 0) {
    const int error = libusb_handle_events_completed(printer->context, &completed);
    if (error != 0 && error != LIBUSB_ERROR_INTERRUPTED && completed == 0) {
      libusb_cancel_transfer(transfer);
    }
  }
  {
    std::lock_guard<std::mutex> guard(printer->lock);
    printer->running = nullptr;
  }
  attempt.done = static_cast<uint32_t>(std::max(transfer->actual_length, 0));
  switch (transfer->status) {
    case LIBUSB_TRANSFER_COMPLETED:
    case LIBUSB_TRANSFER_CANCELLED:
      break;
    case LIBUSB_TRANSFER_TIMED_OUT:
      attempt.timed_out = true;
      break;
    case LIBUSB_TRANSFER_STALL:
      // The endpoint halted; clear it so that the next attempt can go on.
      libusb_clear_halt(printer->device, endpoint);
      attempt.error = EPIPE;
      break;
    case LIBUSB_TRANSFER_NO_DEVICE:
      attempt.error = ENODEV;
      break;
    case LIBUSB_TRANSFER_OVERFLOW:
      attempt.error = EOVERFLOW;
      break;
    default:
      attempt.error = EIO;
      break;
  }
  libusb_free_transfer(transfer);
  return attempt;
}

Attempt write(DeviceHandle handle, const uint8_t* data, uint32_t length, uint32_t wait_ms) {
  Printer* printer = as_printer(handle);
  return transfer(printer, printer->out_endpoint, const_cast<uint8_t*>(data), length, wait_ms);
}

Attempt read(DeviceHandle handle, uint8_t* buffer, uint32_t length, uint32_t wait_ms) {
  Printer* printer = as_printer(handle);
  if (printer->in_endpoint == 0) {
    // A printer without a way back: nothing ever arrives.
    Attempt attempt;
    attempt.timed_out = true;
    return attempt;
  }
  Attempt attempt = transfer(printer, printer->in_endpoint, buffer, length, wait_ms);
  // Bytes that came before the wait ran out are an answer, not a timeout.
  if (attempt.done > 0) attempt.timed_out = false;
  return attempt;
}

void cancel(DeviceHandle handle) {
  if (handle == kNoDevice) return;
  Printer* printer = as_printer(handle);
  std::lock_guard<std::mutex> guard(printer->lock);
  printer->cancelled.store(true);
  if (printer->running != nullptr) libusb_cancel_transfer(printer->running);
}

constexpr UsbOps kLibusb = {
    .enumerate = enumerate,
    .open = open,
    .close = close,
    .write = write,
    .read = read,
    .cancel = cancel,
};

}  // namespace

const UsbOps& native_usb() {
  return kLibusb;
}

}  // namespace vorn::platform
