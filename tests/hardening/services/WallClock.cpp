#include "tests/hardening/services/WallClock.h"

#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <ctime>

namespace {

constexpr std::time_t kFortyYears = 40L * 31'557'600;

std::atomic<bool> isUnsteady = false;
std::atomic<unsigned> looks = 0;

/// Without a period: what looks several times a turn must not find the same each turn.
void setAheadOrBack(std::time_t& seconds) {
  constexpr unsigned kGoldenRatio = 0x9E3779B9U;
  if (isUnsteady) seconds += (++looks * kGoldenRatio) >> 31U == 0 ? kFortyYears : -kFortyYears;
}

bool isWallClock(clockid_t clock) {
  return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE || clock == CLOCK_TAI;
}

}  // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* now) noexcept {
  const auto result = static_cast<int>(::syscall(SYS_clock_gettime, clock, now));
  if (result == 0 && isWallClock(clock)) setAheadOrBack(now->tv_sec);
  return result;
}

int gettimeofday(timeval* now, void* /*zone*/) noexcept {
  timespec exact{};
  const int result = ::clock_gettime(CLOCK_REALTIME, &exact);
  *now = {exact.tv_sec, exact.tv_nsec / 1000};
  return result;
}

std::time_t time(std::time_t* seconds) noexcept {
  timespec exact{};
  ::clock_gettime(CLOCK_REALTIME, &exact);
  if (seconds != nullptr) *seconds = exact.tv_sec;
  return exact.tv_sec;
}
}

namespace hardening {

UnsteadyWallClock::UnsteadyWallClock() {
  isUnsteady = true;
}

UnsteadyWallClock::~UnsteadyWallClock() {
  isUnsteady = false;
}

}  // namespace hardening
