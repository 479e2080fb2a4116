#pragma once

#include <chrono>

namespace platform {

/// The queue of user-interface events.
class UserInterfaceEvents {
 public:
  virtual ~UserInterfaceEvents() = default;

  /// REQUIRES the main thread. Takes the next event of any kind in the modal-panel mode, waiting for it at
  /// most that long, and dispatches it; answers whether one came. Work queued for the main thread is served
  /// meanwhile. This is how a wait keeps the interface alive.
  virtual bool dispatchNext(std::chrono::nanoseconds longestWait) = 0;
};

}  // namespace platform
