#pragma once

#include <functional>
#include <utility>

namespace platform {

/// Does the work when the process is ended by exit(3), unless it is gone by then: a thread's objects are
/// destroyed before all that other threads may still use, as the functions of atexit(3) are not. One a
/// thread.
class ExitWatch {
 public:
  explicit ExitWatch(std::function<void()> work) { current() = std::move(work); }
  ~ExitWatch() { current() = nullptr; }
  ExitWatch(const ExitWatch&) = delete;
  ExitWatch& operator=(const ExitWatch&) = delete;

 private:
  struct Work {
    std::function<void()> work;
    ~Work() {
      if (work) work();
    }
  };
  static std::function<void()>& current() {
    static thread_local Work instance;
    return instance.work;
  }
};

}  // namespace platform
