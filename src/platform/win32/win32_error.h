// The thread's last error as a result code: positive, even where a failing
// call forgot to record why.
#pragma once

#include <windows.h>

#include <cstdint>

namespace vorn::platform {

inline int32_t last_error_or(DWORD fallback) {
  const DWORD error = GetLastError();
  return static_cast<int32_t>(error != 0 ? error : fallback);
}

}  // namespace vorn::platform
