#pragma once

#include <dlfcn.h>

namespace platform {

/// A library that is loaded at run time, and stays loaded. Looks functions up; one that is missing spoils the
/// whole.
class LoadedLibrary {
 public:
  /// `name` as dlopen(3) takes it.
  explicit LoadedLibrary(const char* name) : library_(::dlopen(name, RTLD_NOW | RTLD_LOCAL)) {}

  /// Puts the function of that name there, or nullptr.
  template <typename Function>
  void find(Function& function, const char* name) {
    function = library_ == nullptr ? nullptr : reinterpret_cast<Function>(::dlsym(library_, name));
    isComplete_ = isComplete_ && function != nullptr;
  }
  /// Whether the library and all that was looked for is there.
  [[nodiscard]] bool isComplete() const { return isComplete_; }

 private:
  void* library_;
  bool isComplete_ = true;
};

}  // namespace platform
