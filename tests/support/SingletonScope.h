#pragma once

#include <mutex>
#include <utility>
#include <vector>

#include "platform/foundation/ImmortalSingleton.h"

namespace foundation {

/// Gives a test a process without the singleton; what the test made is left to itself, as in the real
/// program (but stays known, so that a leak checker does not take it for lost).
template <typename T>
struct SingletonScope {
  SingletonScope() : previous_(exchange(nullptr)) {}
  ~SingletonScope() { leftAlone().push_back(exchange(previous_)); }
  SingletonScope(const SingletonScope&) = delete;
  SingletonScope& operator=(const SingletonScope&) = delete;

 private:
  static T* exchange(T* object) {
    const std::scoped_lock lock(ImmortalSingleton<T>::monitor());
    T* const replaced = std::exchange(ImmortalSingleton<T>::instance(), object);
    left().push_back(replaced);
    return replaced;
  }
  /// All that scopes have set aside, within the reach of leak checkers.
  static std::vector<T*>& left() {
    static auto* const objects = new std::vector<T*>();
    return *objects;
  }
  static std::vector<T*>& leftAlone() {
    static auto& objects = *new std::vector<T*>;
    return objects;
  }
  T* previous_;
};

}  // namespace foundation
