#pragma once

#include <chrono>

#include "platform/foundation/Date.h"

namespace platform {

/// Time. Every pause of the program goes through here, so that a test sees each one and waits for none.
class Clock {
 public:
  virtual ~Clock() = default;

  /// The wall clock; can jump. clock_gettime(2) CLOCK_REALTIME.
  [[nodiscard]] virtual foundation::Date now() = 0;

  /// Time since an arbitrary moment; never jumps and never runs backwards. CLOCK_MONOTONIC.
  [[nodiscard]] virtual std::chrono::nanoseconds uptime() = 0;

  /// Blocks the calling thread for the whole duration, however many signals arrive meanwhile; a duration of
  /// zero or less returns at once.
  virtual void sleep(std::chrono::nanoseconds duration) = 0;
};

}  // namespace platform
