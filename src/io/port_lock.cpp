#include "io/port_lock.h"

#include <mutex>

namespace vorn::io {
namespace {

// A std::mutex cannot fail to be created, so "creating" the lock is marking it
// as existing; the flag keeps the lifetime rule observable. The count and the
// flag are kept under the lock as well: ports may be created and destroyed on
// several threads at once, and a lost update would end the lock's life while
// ports still use it, or keep it forever.
std::mutex port_mutex;
bool lock_exists = false;
uint32_t live_ports = 0;

}  // namespace

void port_lock_register_port() {
  std::lock_guard<std::mutex> guard(port_mutex);
  lock_exists = true;
  ++live_ports;
}

void port_lock_unregister_port() {
  std::lock_guard<std::mutex> guard(port_mutex);
  if (live_ports > 0 && --live_ports == 0) lock_exists = false;
}

bool port_lock_exists() {
  std::lock_guard<std::mutex> guard(port_mutex);
  return lock_exists;
}
uint32_t port_count() {
  std::lock_guard<std::mutex> guard(port_mutex);
  return live_ports;
}

bool kill_marked(const uint8_t& mark) {
  std::lock_guard<std::mutex> guard(port_mutex);
  return mark != 0;
}

void set_kill_mark(uint8_t& mark) {
  std::lock_guard<std::mutex> guard(port_mutex);
  mark = 1;
}

void under_port_lock(void (*action)(void* context), void* context) {
  std::lock_guard<std::mutex> guard(port_mutex);
  action(context);
}

}  // namespace vorn::io
