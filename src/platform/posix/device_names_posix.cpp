// Port names as applications write them, mapped onto Linux device nodes.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/device_file.h"

namespace vorn::platform {
namespace {

// "LPT1" and the like: the prefix followed by a number from 1 on.
bool numbered(const char* name, const char* prefix, unsigned long* number) {
  size_t n = std::strlen(prefix);
  if (std::strncmp(name, prefix, n) != 0) return false;
  const char* digits = name + n;
  if (digits[0] < '1' || digits[0] > '9') return false;
  if (std::strspn(digits, "0123456789") != std::strlen(digits)) return false;
  *number = std::strtoul(digits, nullptr, 10);
  return true;
}

}  // namespace

void parallel_device_path(const char* name, char* out, size_t size) {
  if (name == nullptr) name = "";
  unsigned long number = 0;
  if (name[0] == '/') {
    std::snprintf(out, size, "%s", name);
  } else if (numbered(name, "LPT", &number)) {
    std::snprintf(out, size, "/dev/lp%lu", number - 1);
  } else {
    std::snprintf(out, size, "/dev/%s", name);
  }
}

}  // namespace vorn::platform
