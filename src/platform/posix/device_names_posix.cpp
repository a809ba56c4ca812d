// Port names as applications write them, mapped onto Linux device nodes.
#include <sys/stat.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/device_file.h"
#include "platform/serial_line.h"

namespace vorn::platform {
namespace {

// "LPT1", "com3" and the like: the prefix in any case, as Windows reads these
// reserved names, followed by a number from 1 on.
bool numbered(const char* name, const char* prefix, unsigned long* number) {
  const size_t n = std::strlen(prefix);
  for (size_t i = 0; i < n; ++i) {
    if (std::toupper(static_cast<unsigned char>(name[i])) != prefix[i]) return false;
  }
  const char* digits = name + n;
  if (digits[0] < '1' || digits[0] > '9') return false;
  if (std::strspn(digits, "0123456789") != std::strlen(digits)) return false;
  *number = std::strtoul(digits, nullptr, 10);
  return true;
}

// A port name is opened as written when it names something that exists, an
// absolute path or one relative to the working directory, so that a file
// beside the application gets the output and not a device node of the same
// name. Otherwise the n-th numbered port is the node `numbered_node` n-1
// (LPT1 is /dev/lp0), and any other name is a node under /dev (ttyUSB0,
// usb/lp0). An absolute path is never moved: if it does not exist, the open
// reports that for the path the application gave.
void device_path(const char* name, const char* prefix, const char* numbered_node, char* out,
                 size_t size) {
  if (name == nullptr) name = "";
  struct stat info;
  unsigned long number = 0;
  if (name[0] == '/' || stat(name, &info) == 0) {
    std::snprintf(out, size, "%s", name);
  } else if (numbered(name, prefix, &number)) {
    std::snprintf(out, size, "%s%lu", numbered_node, number - 1);
  } else {
    std::snprintf(out, size, "/dev/%s", name);
  }
}

}  // namespace

void parallel_device_path(const char* name, char* out, size_t size) {
  device_path(name, "LPT", "/dev/lp", out, size);
}

void serial_device_path(const char* name, char* out, size_t size) {
  device_path(name, "COM", "/dev/ttyS", out, size);
}

}  // namespace vorn::platform
