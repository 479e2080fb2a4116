#include "helpers/Turn.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <fstream>
#include <thread>

#include "platform/posix/UniqueDescriptor.h"
#include "tests/helpers/TestVolume.h"
#include "tests/helpers/ToolProcess.h"
#include "tests/support/FailingCall.h"
#include "tests/support/WaitingLocks.h"

namespace helpers {
namespace {

using namespace std::chrono_literals;
using platform::UniqueDescriptor;
using ::testing::HasSubstr;

class TurnTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root: a folder of root's alone";
    volume_.makeFolder("/var/root");
    volume_.own("/var/root", 0);
    openTo(0700);
  }

  void openTo(mode_t mode) const { ASSERT_EQ(::chmod(home().c_str(), mode), 0); }
  [[nodiscard]] std::string home() const { return volume_.path("/var/root"); }

  /// As another tool has it.
  [[nodiscard]] UniqueDescriptor takenByAnother() const {
    UniqueDescriptor folder(::open(home().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    EXPECT_EQ(::flock(folder.get(), LOCK_EX | LOCK_NB), 0);
    return folder;
  }

  TestVolume volume_;
  RecordedReport report_;
};

TEST_F(TurnTest, IsOnesAtOnceWhereNobodyHasItAndEndsWithTheObject) {
  for (int time = 0; time < 2; ++time) EXPECT_TRUE(Turn(volume_.surroundings(), report_).isHeld());
  EXPECT_EQ(report_.text(), "");
}

TEST_F(TurnTest, IsWaitedForWhileAnotherHasIt) {
  UniqueDescriptor another = takenByAnother();
  bool isHeld = false;
  std::thread waiting([&] { isHeld = Turn(volume_.surroundings(), report_).isHeld(); });
  EXPECT_TRUE(support::waitUntilLockIsWaitedFor(home()));
  another.reset();
  waiting.join();
  EXPECT_TRUE(isHeld);
  EXPECT_EQ(report_.text(), "");
}

TEST_F(TurnTest, IsNotWaitedForWithoutEndAndTheReportSaysSo) {
  const UniqueDescriptor another = takenByAnother();
  EXPECT_FALSE(Turn(volume_.surroundings(), report_, 20ms).isHeld());
  EXPECT_EQ(report_.text(),
            "tool: another change of owners or permissions does not end, going on beside it\n");
  EXPECT_FALSE(static_cast<Report&>(report_).anyFailure());
}

TEST_F(TurnTest, LeavesSignalsAndTimersAsTheyWere) {
  const UniqueDescriptor another = takenByAnother();
  const Turn turn(volume_.surroundings(), report_, 20ms);
  struct sigaction alarm {};
  ::sigaction(SIGALRM, nullptr, &alarm);
  EXPECT_EQ(alarm.sa_handler, SIG_DFL);
  EXPECT_EQ(::alarm(0), 0U);
}

TEST_F(TurnTest, DoesNotExistWhereOthersCouldHoldIt) {
  const UniqueDescriptor another = takenByAnother();
  for (const mode_t mode : {0755U, 0704U}) {
    openTo(mode);
    EXPECT_FALSE(Turn(volume_.surroundings(), report_).isHeld());
  }
  openTo(0750);
  ASSERT_EQ(::chown(home().c_str(), 0, 4711), 0);
  EXPECT_FALSE(Turn(volume_.surroundings(), report_).isHeld());
  openTo(0700);
  volume_.own("/var/root", TestVolume::kAlice);
  EXPECT_FALSE(Turn(volume_.surroundings(), report_).isHeld());
  EXPECT_EQ(report_.text(), "");
}

TEST_F(TurnTest, DoesNotExistWhereRootHasNoHome) {
  ASSERT_EQ(::rmdir(home().c_str()), 0);
  EXPECT_FALSE(Turn(volume_.surroundings(), report_).isHeld());
  EXPECT_EQ(report_.text(), "");
}

TEST_F(TurnTest, IsGoneOnBesideWhereTheSystemHasNoLocksLeft) {
  support::FailingCall::run(SYS_flock, ENOLCK, [this] {
    EXPECT_FALSE(Turn(volume_.surroundings(), report_).isHeld());
    EXPECT_THAT(report_.text(), HasSubstr("going on beside it"));
  });
}

TEST_F(TurnTest, IsNotWaitedForAnyMoreWhenTheToolIsAskedToStop) {
  const UniqueDescriptor another = takenByAnother();
  ToolProcess::run([this] {
    RecordedReport report;
    const Surroundings surroundings = volume_.surroundings();
    const pid_t waiting = getpid();
    std::thread asking([&] {
      EXPECT_TRUE(support::waitUntilLockIsWaitedFor(home()));
      ::kill(waiting, SIGTERM);
    });
    EXPECT_FALSE(Turn(surroundings, report).isHeld());
    asking.join();
    EXPECT_EQ(report.text(), "") << "who is asked to stop goes on beside nobody";
  });
}

/// Ends this process at a time when it should long be done: by a signal that cannot be blocked.
void endIn(std::chrono::seconds time) {
  sigevent event{};
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = SIGKILL;
  timer_t timer{};
  ASSERT_EQ(::timer_create(CLOCK_MONOTONIC, &event, &timer), 0);
  const itimerspec once{{0, 0}, {time.count(), 0}};
  ASSERT_EQ(::timer_settime(timer, 0, &once, nullptr), 0);
}

TEST_F(TurnTest, IsNotWaitedForWithoutEndWhereWhoeverStartedTheToolBlockedAllSignals) {
  const UniqueDescriptor another = takenByAnother();
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &all, &before), 0);
  ToolProcess::run([this] {
    endIn(10s);
    RecordedReport report;
    EXPECT_FALSE(Turn(volume_.surroundings(), report, 20ms).isHeld());
    EXPECT_THAT(report.text(), HasSubstr("going on beside it"));
  });
  ASSERT_EQ(::pthread_sigmask(SIG_SETMASK, &before, nullptr), 0);
}

}  // namespace
}  // namespace helpers
