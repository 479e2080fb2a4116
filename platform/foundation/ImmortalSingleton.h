#pragma once

#include <cstdint>
#include <limits>
#include <mutex>

namespace foundation {

/// Gives tests a fresh singleton for the length of a scope; defined with the tests.
template <typename T>
struct SingletonScope;

/// A class with one object for the whole process that is never freed, as a Mac developer writes it: the
/// object is made under the class's monitor, a second allocation yields nothing, and the retain-count
/// operations do not count.
///
/// T derives from ImmortalSingleton<T>, befriends it, and keeps its default constructor private.
template <typename T>
class ImmortalSingleton {
 public:
  ImmortalSingleton(const ImmortalSingleton&) = delete;
  ImmortalSingleton& operator=(const ImmortalSingleton&) = delete;

  /// Makes the object and records it as the shared one; nullptr when there is one already.
  [[nodiscard]] static T* alloc() {
    const std::scoped_lock lock(monitor());
    if (instance() != nullptr) return nullptr;
    instance() = new T();
    return instance();
  }

  T* copy() { return self(); }
  T* retain() { return self(); }
  T* autorelease() { return self(); }
  void release() {}
  /// The largest unsigned 32-bit number, also in a 64-bit build.
  [[nodiscard]] static std::uint32_t retainCount() { return std::numeric_limits<std::uint32_t>::max(); }

 protected:
  ImmortalSingleton() = default;
  ~ImmortalSingleton() = default;

  /// The class's monitor; recursive, so that creation can call alloc() while it holds it.
  static std::recursive_mutex& monitor() {
    static std::recursive_mutex mutex;
    return mutex;
  }
  /// The shared object or nullptr; read and write it under the monitor.
  static T*& instance() {
    static T* object = nullptr;
    return object;
  }

 private:
  friend struct SingletonScope<T>;
  T* self() { return static_cast<T*>(this); }
};

}  // namespace foundation
