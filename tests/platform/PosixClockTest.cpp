#include "platform/posix/PosixClock.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <csignal>
#include <thread>

#include "platform/posix/PosixMainThread.h"

namespace platform {
namespace {

using namespace std::chrono_literals;

TEST(PosixClock, NowIsTheWallClock) {
  PosixMainThread mainThread;
  PosixClock clock(mainThread);
  const auto before = std::chrono::system_clock::now();
  const auto now = clock.now().moment();
  EXPECT_LE(before - 1ms, now);
  EXPECT_LE(now, std::chrono::system_clock::now() + 1ms);
}

TEST(PosixClock, UptimeNeverRunsBackwards) {
  PosixMainThread mainThread;
  PosixClock clock(mainThread);
  auto last = clock.uptime();
  for (int count = 0; count < 1000; ++count) {
    const auto next = clock.uptime();
    ASSERT_LE(last, next);
    last = next;
  }
}

TEST(PosixClock, ADurationOfZeroOrLessReturnsAtOnce) {
  PosixMainThread mainThread;
  PosixClock clock(mainThread);
  const auto start = clock.uptime();
  clock.sleep(0ns);
  clock.sleep(-1h);
  EXPECT_LT(clock.uptime() - start, 5s);
}

TEST(PosixClock, SleepsTheWholeDurationWhateverSignalsArrive) {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  struct sigaction previous {};
  ::sigaction(SIGUSR1, &action, &previous);
  PosixMainThread mainThread;
  PosixClock clock(mainThread);
  std::atomic<bool> awake = false;
  std::thread alarm([&awake, sleeper = ::pthread_self()] {
    while (!awake) {
      ::pthread_kill(sleeper, SIGUSR1);
      std::this_thread::sleep_for(1ms);
    }
  });
  const auto start = clock.uptime();
  clock.sleep(50ms);
  const auto slept = clock.uptime() - start;
  awake = true;
  alarm.join();
  ::sigaction(SIGUSR1, &previous, nullptr);
  EXPECT_GE(slept, 50ms);
}

}  // namespace
}  // namespace platform
