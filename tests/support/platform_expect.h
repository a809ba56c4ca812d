// What the platform layer of the build answers where unit tests meet it
// through the core: the device a port name opens and the system's error
// numbers. Both spellings are written out; the build picks its own.
#pragma once

#include <cerrno>
#include <cstdint>

namespace vorn::test {

#if defined(_WIN32)
inline constexpr bool kWindows = true;
#else
inline constexpr bool kWindows = false;
#endif

constexpr const char* on_platform(const char* posix, const char* windows) {
  return kWindows ? windows : posix;
}
constexpr int32_t on_platform(int32_t posix, int32_t windows) {
  return kWindows ? windows : posix;
}

// ERROR_INVALID_PARAMETER and WSAEADDRNOTAVAIL on Windows.
inline constexpr int32_t kInvalidParameter = on_platform(EINVAL, 87);
inline constexpr int32_t kAddressNotAvailable = on_platform(EADDRNOTAVAIL, 10049);

}  // namespace vorn::test
