// USB printers emulated by umockdev: a made-up sysfs and usbfs that libusb
// reads and talks to without privileges. Each printer answers usbfs requests
// like the kernel would: it records every byte sent to its bulk OUT
// endpoint, answers bulk IN requests from the answers its queries earned,
// and can stop taking data. Only usable in a process run by umockdev-wrapper.
#pragma once

#include <umockdev.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace vorn::test {

struct EmulatedDevice {
  std::string port_path;  // "1-1.4": bus, then the ports from the root hub
  uint8_t address;        // device number on bus 1
  uint16_t vendor, product, revision;
  uint8_t interface_class;  // 7 printer, 0xFF vendor, 3 HID (not a printer)
};

class TestPrinter {
 public:
  TestPrinter() = default;
  ~TestPrinter();
  TestPrinter(const TestPrinter&) = delete;
  TestPrinter& operator=(const TestPrinter&) = delete;

  // Bytes the printer took, in order.
  std::vector<uint8_t> received();
  // The printer stops taking data (its OUT requests stay pending) or takes
  // it again.
  void set_stalled(bool stalled);
  // Once the bytes `query` have arrived, `answer` is what it sends back.
  void answer(std::vector<uint8_t> query, std::vector<uint8_t> answer);
  // A kernel driver (usblp) holds the printer interface.
  bool kernel_driver_bound();
  bool interface_claimed();

 private:
  friend class EmulatedUsb;
  using Urb = UMockdevIoctlData*;  // a usbdevfs_urb libusb submitted, referenced

  bool fill(Urb urb);
  void take(Urb urb, UMockdevIoctlData* buffer);
  void reap(UMockdevIoctlClient* client, UMockdevIoctlData* argument);
  bool discard(gulong address);
  gboolean handle(UMockdevIoctlClient* client);
  static gboolean on_ioctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self);

  std::mutex lock_;  // the ioctl handler runs on umockdev's thread
  UMockdevIoctlBase* handler_ = nullptr;
  std::vector<uint8_t> received_, to_send_;
  std::vector<std::pair<std::vector<uint8_t>, std::vector<uint8_t>>> answers_;
  bool stalled_ = false, driver_bound_ = true, claimed_ = false;
  std::deque<Urb> pending_out_, pending_in_, done_, discarded_;
};

class EmulatedUsb {
 public:
  // A testbed with bus 1's root hub (usb1) and a hub on its port 1 (1-1).
  EmulatedUsb();
  ~EmulatedUsb();
  EmulatedUsb(const EmulatedUsb&) = delete;
  EmulatedUsb& operator=(const EmulatedUsb&) = delete;

  // A device on the bus; those with bulk endpoints (all but HID) answer
  // usbfs requests. Add devices before libusb looks at the bus.
  TestPrinter& add(const EmulatedDevice& device);

  static bool available();

 private:
  UMockdevTestbed* testbed_;
  std::vector<std::unique_ptr<TestPrinter>> printers_;
};

}  // namespace vorn::test
