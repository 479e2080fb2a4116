#include "platform/linux/LinuxClock.h"

#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace platform {
namespace {

std::chrono::nanoseconds read(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// A moment on the monotonic clock; a duration that reaches beyond the clock's range ends at its last moment.
timespec momentAfter(std::chrono::nanoseconds now, std::chrono::nanoseconds duration) {
  const auto farthest = std::chrono::nanoseconds::max();
  const auto moment = duration > farthest - now ? farthest : now + duration;
  const auto seconds = std::chrono::floor<std::chrono::seconds>(moment);
  return {static_cast<std::time_t>(seconds.count()), static_cast<long>((moment - seconds).count())};
}

}  // namespace

foundation::Date LinuxClock::now() {
  return foundation::Date(foundation::Date::TimePoint(read(CLOCK_REALTIME)));
}

std::chrono::nanoseconds LinuxClock::uptime() {
  return read(CLOCK_MONOTONIC);
}

void LinuxClock::sleep(std::chrono::nanoseconds duration) {
  if (duration.count() <= 0) return;
  // An absolute end, so that signals that arrive meanwhile do not add up to a longer or shorter pause.
  const timespec end = momentAfter(uptime(), duration);
  // What the loop leaves of the time, as it does when the application is about to end, is slept.
  if (::gettid() == ::getpid() && eventLoop_ != nullptr) eventLoop_->runUntilReadable(-1, duration);
  while (::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {
  }
}

}  // namespace platform
