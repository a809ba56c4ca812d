// Port names as applications write them. Windows opens LPT1, COM1 and file
// paths (absolute or relative to the working directory) by name itself.
#include <cstdio>
#include <cstring>

#include "platform/device_file.h"
#include "platform/serial_line.h"

namespace vorn::platform {

// Opened exactly as written: LPT1, a printer share, or an existing file.
void parallel_device_path(const char* name, char* out, size_t size) {
  std::snprintf(out, size, "%s", name != nullptr ? name : "");
}

// Serial ports are opened in the device namespace, "\\.\COM12", which is
// the only way to reach ports above COM9. A name already in a namespace
// ("\\.\COM3", "\\?\...") is taken as it stands.
void serial_device_path(const char* name, char* out, size_t size) {
  if (name == nullptr) name = "";
  if (std::strncmp(name, "\\\\", 2) == 0) {
    std::snprintf(out, size, "%s", name);
  } else {
    std::snprintf(out, size, "\\\\.\\%s", name);
  }
}

}  // namespace vorn::platform
