#include "io/port_lock.h"

#include <mutex>

namespace vorn::io {
namespace {

// A std::mutex cannot fail to be created, so "creating" the lock is marking it
// as existing; the flag keeps the lifetime rule observable.
std::mutex port_mutex;
bool lock_exists = false;
uint32_t live_ports = 0;

}  // namespace

void port_lock_register_port() {
  lock_exists = true;
  ++live_ports;
}

void port_lock_unregister_port() {
  if (live_ports > 0 && --live_ports == 0) lock_exists = false;
}

bool port_lock_exists() {
  return lock_exists;
}
uint32_t port_count() {
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

}  // namespace vorn::io
