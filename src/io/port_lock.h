// The one process-wide port lock. It guards the kill marks of all ports and
// lives from the first port's creation until the last port is destroyed.
#pragma once

#include <cstdint>
#include <type_traits>

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

// Runs `action` under the port lock, for the few steps that must not
// interleave with a kill: handing a port's device handle in or out, and the
// kill itself. The action is short and does not take the lock again.
void under_port_lock(void (*action)(void* context), void* context);
template <typename Action>
void under_port_lock(Action&& action) {
  under_port_lock(
      [](void* context) { (*static_cast<std::remove_reference_t<Action>*>(context))(); }, &action);
}

}  // namespace vorn::io
