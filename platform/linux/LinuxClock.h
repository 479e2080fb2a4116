#pragma once

#include "platform/Clock.h"
#include "platform/WindowModule.h"

namespace platform {

/// The kernel's clocks; clock_gettime(2), clock_nanosleep(2).
class LinuxClock : public Clock {
 public:
  foundation::Date now() override;
  std::chrono::nanoseconds uptime() override;
  void sleep(std::chrono::nanoseconds duration) override;

  /// From now on pauses of the main thread handle the loop's events, so that a window does not freeze;
  /// nullptr: no longer. REQUIRES the main thread.
  void setEventLoop(EventLoop* eventLoop) { eventLoop_ = eventLoop; }

 private:
  EventLoop* eventLoop_ = nullptr;  ///< the main thread's alone
};

}  // namespace platform
