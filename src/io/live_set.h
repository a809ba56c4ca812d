// The live objects of one kind, by address. A handle that an application
// passes in is looked up here before it is followed, so a null, destroyed or
// foreign pointer is refused without its memory ever being read.
#pragma once

#include <mutex>
#include <unordered_set>

namespace vorn::io {

class LiveSet {
 public:
  // False when memory runs out; the object is then not live.
  bool add(const void* object) noexcept {
    std::lock_guard<std::mutex> guard(mutex_);
    try {
      objects_.insert(object);
      return true;
    } catch (...) {
      return false;
    }
  }

  // True when the object was live; from now on it is not.
  bool take(const void* object) noexcept {
    std::lock_guard<std::mutex> guard(mutex_);
    return objects_.erase(object) != 0;
  }

  bool contains(const void* object) const noexcept {
    std::lock_guard<std::mutex> guard(mutex_);
    return objects_.count(object) != 0;
  }

  // Runs `use` while the object is known to be live and cannot be taken out
  // by another thread; false without running it when the object is not live.
  template <typename Use>
  bool while_live(const void* object, Use&& use) const {
    std::lock_guard<std::mutex> guard(mutex_);
    if (objects_.count(object) == 0) return false;
    use();
    return true;
  }

 private:
  mutable std::mutex mutex_;
  std::unordered_set<const void*> objects_;
};

}  // namespace vorn::io
