#pragma once

namespace hardening {

/// While it lives each look that this process takes at the wall clock finds it set forty years ahead or back:
/// the program that links WallClock.cpp has its clock_gettime(2), gettimeofday(2) and time(2) do so. The
/// kernel's clock stays as it is.
class UnsteadyWallClock {
 public:
  UnsteadyWallClock();
  ~UnsteadyWallClock();
  UnsteadyWallClock(const UnsteadyWallClock&) = delete;
  UnsteadyWallClock& operator=(const UnsteadyWallClock&) = delete;
};

}  // namespace hardening
