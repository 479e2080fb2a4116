#pragma once

#include "platform/UserInterfaceEvents.h"
#include "platform/posix/PosixMainThread.h"

namespace platform {

/// The events of the window's loop while there is one. Without a window an event is the work that is queued
/// for the main thread: the first of it ends the wait.
class PosixUserInterfaceEvents : public UserInterfaceEvents {
 public:
  explicit PosixUserInterfaceEvents(PosixMainThread& mainThread) : mainThread_(mainThread) {}
  bool dispatchNext(std::chrono::nanoseconds longestWait) override {
    return mainThread_.serveNext(longestWait);
  }

 private:
  PosixMainThread& mainThread_;
};

}  // namespace platform
