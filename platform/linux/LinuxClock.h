#pragma once

#include "platform/Clock.h"

namespace platform {

/// The kernel's clocks; clock_gettime(2), clock_nanosleep(2).
class LinuxClock : public Clock {
 public:
  foundation::Date now() override;
  std::chrono::nanoseconds uptime() override;
  void sleep(std::chrono::nanoseconds duration) override;
};

}  // namespace platform
