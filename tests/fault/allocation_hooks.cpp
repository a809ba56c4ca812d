#include "allocation_hooks.h"

#include <cstdlib>
#include <new>

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* block, size_t size);
}

namespace vorn::test {
namespace {

bool armed = false;
int64_t counted = 0;
int64_t fail_index = -1;
bool fail_reached = false;
thread_local int paused = 0;

// True when this allocation is the one to fail.
bool fail_now() {
  if (!armed || paused > 0) return false;
  const bool fail = counted++ == fail_index;
  fail_reached = fail_reached || fail;
  return fail;
}

void* allocate(size_t size) {
  return __real_malloc(size == 0 ? 1 : size);
}

}  // namespace

void AllocationFaults::arm(int64_t fail_at) {
  counted = 0;
  fail_index = fail_at;
  fail_reached = false;
  armed = true;
}

int64_t AllocationFaults::disarm() {
  armed = false;
  return counted;
}

bool AllocationFaults::failed() {
  return fail_reached;
}

void AllocationFaults::hold(bool on) {
  paused += on ? 1 : -1;
}

AllocationFaults::Pause::Pause() {
  ++paused;
}
AllocationFaults::Pause::~Pause() {
  --paused;
}

}  // namespace vorn::test

using vorn::test::allocate;
using vorn::test::fail_now;

extern "C" {
void* __wrap_malloc(size_t size) {
  return fail_now() ? nullptr : __real_malloc(size);
}
void* __wrap_calloc(size_t count, size_t size) {
  return fail_now() ? nullptr : __real_calloc(count, size);
}
void* __wrap_realloc(void* block, size_t size) {
  return fail_now() ? nullptr : __real_realloc(block, size);
}
}

void* operator new(size_t size) {
  void* block = fail_now() ? nullptr : allocate(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void* operator new[](size_t size) {
  return operator new(size);
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return fail_now() ? nullptr : allocate(size);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
  return operator new(size, std::nothrow);
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete[](void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, size_t) noexcept {
  std::free(block);
}
void operator delete[](void* block, size_t) noexcept {
  std::free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  std::free(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
  std::free(block);
}
