// The one process-wide port lock. It guards the kill marks of all ports and
// lives from the first port's creation until the last port is destroyed.
#pragma once

#include <cstdint>

namespace vorn::io {

// Makes sure the lock exists and counts one more port.
void port_lock_register_port();
// Counts one port less; the lock goes away with the last one.
void port_lock_unregister_port();

bool port_lock_exists();
uint32_t port_count();

// The kill mark of a port, read and set under the port lock so that a kill
// from another thread is seen by the running transfer's next attempt.
bool kill_marked(const uint8_t& mark);
void set_kill_mark(uint8_t& mark);

}  // namespace vorn::io
