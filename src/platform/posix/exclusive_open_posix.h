// Opening a port's device file for one user at a time.
#pragma once

#include <cstdint>

namespace vorn::platform {

// Opens an existing device file for reading and writing, non-blocking (every
// transfer is bounded by poll()), without becoming the process's controlling
// terminal, and locked so that a second opener is refused with EBUSY, as an
// exclusive open would be. Returns 0 with the descriptor in `*fd`, or an
// errno. No O_CREAT: a port names something that must already exist.
int32_t open_exclusive(const char* path, int* fd);

}  // namespace vorn::platform
