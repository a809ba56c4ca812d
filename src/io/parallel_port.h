// The parallel driver: ports of type "LPT". The port name is opened exactly
// as written, so a parallel device or an existing file can be the printer.
#pragma once

#include "io/driver.h"
#include "io/handle_port.h"

namespace vorn::io {

struct ParallelState {
  HandlePortState core;  // first, so the shared operations can take the state
  uint8_t read_enabled;  // read and readexist are refused while 0
};

extern const DriverOps kParallelDriverOps;
// A new state with the defaults; null when memory runs out.
void* new_parallel_state();

}  // namespace vorn::io
