// Time-outs and pauses of this computer's own while its wall clock is set ahead and back all the time.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <ctime>

#include "services/TGTask.h"
#include "tests/hardening/services/HomePlatform.h"
#include "tests/hardening/services/WallClock.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using std::chrono::system_clock;

class WallClockTest : public testing::Test {
 protected:
  [[nodiscard]] steady_clock::duration passed() const { return steady_clock::now() - start_; }

 private:
  support::TemporaryFolder home_;
  /// Never freed, as the program's own: the timer of a run that ends in time sleeps on.
  hardening::HomePlatform& platform_ = *new hardening::HomePlatform(home_.path());
  hardening::UnsteadyWallClock unsteady_;
  steady_clock::time_point start_ = steady_clock::now();
};

}  // namespace

/// Otherwise the others would prove nothing.
TEST_F(WallClockTest, IsSetAheadAndBack) {
  constexpr auto kYear = 365 * 24h;
  bool wasAhead = false;
  bool wasBack = false;
  auto last = platform::current().clock.now().moment();
  for (int look = 0; look < 8; ++look) {
    const auto now = platform::current().clock.now().moment();
    wasAhead = wasAhead || now - last > kYear;
    wasBack = wasBack || last - now > kYear;
    last = now;
  }
  EXPECT_TRUE(wasAhead);
  EXPECT_TRUE(wasBack);
}

TEST_F(WallClockTest, ATimeoutIsNeitherShorterNorLonger) {
  EXPECT_EQ(TGTask::terminationCodeFromTask("/bin/sleep", {{"60"}}, 1.0s), SIGTERM);
  EXPECT_GE(passed(), 1s);
  EXPECT_LT(passed(), 30s);
}

TEST_F(WallClockTest, AToolThatEndsInTimeIsNotTerminated) {
  EXPECT_EQ(TGTask::terminationCodeFromTask("/bin/sh", {{"-c", "sleep 0.3; exit 3"}}, 60.0s), 3);
  EXPECT_LT(passed(), 30s);
}

TEST_F(WallClockTest, PausesAreNeitherShorterNorLonger) {
  platform::Platform& platform = platform::current();
  steady_clock::duration least = 0ms;
  for (int pause = 0; pause < 10; ++pause) {
    platform.clock.sleep(2ms);
    EXPECT_FALSE(platform.mainThread.serveUntilReadable(-1, 2ms));
    least += 4ms;
    EXPECT_GE(passed(), least);
  }
  EXPECT_LT(passed(), 30s);
}
