#include "platform/posix/PosixClock.h"

#include <ctime>

namespace platform {

using std::chrono::nanoseconds;
using std::chrono::steady_clock;

foundation::Date PosixClock::now() {
  return foundation::Date(std::chrono::time_point_cast<nanoseconds>(std::chrono::system_clock::now()));
}

nanoseconds PosixClock::uptime() {
  return steady_clock::now().time_since_epoch();
}

void PosixClock::sleep(nanoseconds duration) {
  if (duration.count() <= 0) return;
  const auto start = steady_clock::now();
  // What the loop leaves of the time, as it does when the application is about to end, is slept.
  if (mainThread_.isCurrent() && loop_ != nullptr) loop_->runUntilReadable(-1, duration);
  // Measured afresh each time, so that signals that arrive meanwhile do not add up to another pause.
  for (nanoseconds passed = steady_clock::now() - start; passed < duration;
       passed = steady_clock::now() - start) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(duration - passed);
    const timespec rest{static_cast<std::time_t>(seconds.count()),
                        static_cast<long>((duration - passed - seconds).count())};
    ::nanosleep(&rest, nullptr);
  }
}

}  // namespace platform
