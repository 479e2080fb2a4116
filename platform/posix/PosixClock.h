#pragma once

#include "platform/Clock.h"
#include "platform/MainThread.h"
#include "platform/WindowModule.h"

namespace platform {

/// The system's clocks by the C++ library, pauses by nanosleep(2), for any system. While a window is open, a
/// pause of the main thread is handed to its event loop.
class PosixClock : public Clock {
 public:
  explicit PosixClock(MainThread& mainThread) : mainThread_(mainThread) {}
  foundation::Date now() override;
  std::chrono::nanoseconds uptime() override;
  void sleep(std::chrono::nanoseconds duration) override;

  /// REQUIRES the main thread. nullptr for none.
  void setEventLoop(EventLoop* loop) { loop_ = loop; }

 private:
  MainThread& mainThread_;
  EventLoop* loop_ = nullptr;
};

}  // namespace platform
