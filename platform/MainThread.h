#pragma once

#include <chrono>
#include <functional>
#include <optional>

namespace platform {

enum class Wait { no, yes };

/// Hands work to the main thread: the one that called the entry point.
class MainThread {
 public:
  virtual ~MainThread() = default;

  /// Whether the caller runs on the main thread.
  [[nodiscard]] virtual bool isCurrent() = 0;

  /// Runs the work on the main thread, in the order handed over. With Wait::yes it returns when the work is
  /// done; called on the main thread it then runs the work at once, before anything queued earlier. With
  /// Wait::no it always queues. Work that is waited for and throws a foundation::Exception throws it here.
  virtual void perform(std::function<void()> work, Wait wait) = 0;

  /// REQUIRES isCurrent(). Serves queued work until `descriptor` can be read (or is at its end), or until the
  /// interval has passed; without an interval only the descriptor ends it. -1 stands for no descriptor.
  /// Answers whether the descriptor is readable. This is how a wait on the main thread keeps the program
  /// alive meanwhile.
  virtual bool serveUntilReadable(int descriptor, std::optional<std::chrono::nanoseconds> interval) = 0;
};

}  // namespace platform
