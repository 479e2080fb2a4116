#pragma once

#include <functional>
#include <future>

/// Holds work up until the test lets it go on; opened by destruction at the latest, so that a failing test
/// does not hang.
class Gate {
 public:
  Gate() = default;
  ~Gate() { open(); }
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;

  /// Work that lasts until the gate is open.
  [[nodiscard]] std::function<void()> wait() const {
    return [opened = opened_] { opened.wait(); };
  }
  void open() {
    if (isOpen_) return;
    isOpen_ = true;
    promise_.set_value();
  }

 private:
  bool isOpen_ = false;
  std::promise<void> promise_;
  std::shared_future<void> opened_ = promise_.get_future().share();
};
