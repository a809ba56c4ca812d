// A scripted set of USB devices behind the USB family. Transfers on an
// opened device go to the device-file family in force (a FakeDevice), so the
// same write and read scripts drive USB ports.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vorn::test {

struct FakeUsbDevice {
  std::string path;
  std::optional<std::string> hardware_id;  // nullopt: the system cannot give it
  std::optional<std::string> location;
  std::optional<std::string> service;
};

class FakeUsb {
 public:
  FakeUsb();
  ~FakeUsb();
  FakeUsb(const FakeUsb&) = delete;
  FakeUsb& operator=(const FakeUsb&) = delete;

  // Script.
  std::vector<FakeUsbDevice> devices;  // in enumeration order
  int32_t enumerate_error = 0;         // returned after visiting the devices

  // Record.
  int cancels = 0;

  static FakeUsb* active();
};

}  // namespace vorn::test
