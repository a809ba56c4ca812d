#include "platform/posix/exclusive_open_posix.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

namespace vorn::platform {

int32_t open_exclusive(const char* path, int* fd) {
  const int opened = ::open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (opened < 0) return errno;
  if (flock(opened, LOCK_EX | LOCK_NB) != 0) {
    const int32_t error = errno == EWOULDBLOCK ? EBUSY : errno;
    ::close(opened);
    return error;
  }
  *fd = opened;
  return 0;
}

}  // namespace vorn::platform
