#pragma once

#include <mutex>
#include <utility>

#include "platform/foundation/ImmortalSingleton.h"

namespace foundation {

/// Gives a test a process without the singleton; what the test made is left to itself, as in the real
/// program.
template <typename T>
struct SingletonScope {
  SingletonScope() : previous_(exchange(nullptr)) {}
  ~SingletonScope() { exchange(previous_); }
  SingletonScope(const SingletonScope&) = delete;
  SingletonScope& operator=(const SingletonScope&) = delete;

 private:
  static T* exchange(T* object) {
    const std::scoped_lock lock(ImmortalSingleton<T>::monitor());
    return std::exchange(ImmortalSingleton<T>::instance(), object);
  }
  T* previous_;
};

}  // namespace foundation
