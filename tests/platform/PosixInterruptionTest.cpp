#include "platform/posix/PosixInterruption.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <csignal>

#include "tests/support/FewDescriptors.h"

namespace platform {
namespace {

class PosixInterruptionTest : public ::testing::Test {
 protected:
  /// A signal's handling is the process's: the next test finds it as this one did.
  void TearDown() override {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) static_cast<void>(std::signal(signal, SIG_IGN));
    interruption.deliver();
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) static_cast<void>(std::signal(signal, SIG_DFL));
  }
  [[nodiscard]] bool isRequestReadable() const {
    pollfd watched{interruption.requestDescriptor(), POLLIN, 0};
    return ::poll(&watched, 1, 0) == 1;
  }

  PosixInterruption interruption;
};

TEST_F(PosixInterruptionTest, BeforeItIsDeferredNothingIsNoted) {
  EXPECT_EQ(interruption.requested(), std::nullopt);
  interruption.deliver();
}

class PosixInterruptionSignalTest : public PosixInterruptionTest,
                                    public ::testing::WithParamInterface<int> {};

TEST_P(PosixInterruptionSignalTest, ASignalIsNotedAndEndsTheProcessWhenDelivered) {
  interruption.defer();
  EXPECT_FALSE(isRequestReadable());
  ASSERT_EQ(::raise(GetParam()), 0);
  EXPECT_EQ(interruption.requested(), GetParam());
  EXPECT_TRUE(isRequestReadable());
  EXPECT_EXIT(interruption.deliver(), ::testing::KilledBySignal(GetParam()), "");
}

INSTANTIATE_TEST_SUITE_P(Signals, PosixInterruptionSignalTest, ::testing::Values(SIGTERM, SIGINT, SIGHUP));

TEST_F(PosixInterruptionTest, TheFirstSignalCounts) {
  interruption.defer();
  ASSERT_EQ(::raise(SIGHUP), 0);
  ASSERT_EQ(::raise(SIGTERM), 0);
  EXPECT_EQ(interruption.requested(), SIGHUP);
}

TEST_F(PosixInterruptionTest, ASignalThatWasIgnoredStaysIgnored) {
  static_cast<void>(std::signal(SIGTERM, SIG_IGN));
  interruption.defer();
  ASSERT_EQ(::raise(SIGTERM), 0);
  EXPECT_EQ(interruption.requested(), std::nullopt);
}

TEST_F(PosixInterruptionTest, ASignalThatWasBlockedIsHeard) {
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGHUP);
  ::pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
  ASSERT_EQ(::raise(SIGHUP), 0);
  interruption.defer();
  EXPECT_EQ(interruption.requested(), SIGHUP);
}

TEST_F(PosixInterruptionTest, ASignalIsNotedAlsoWhereThereIsNoDescriptorToTellOfIt) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process that has not deferred yet
  const auto interrupted = [this] {
    const support::FewDescriptors none(0);
    interruption.defer();
    static_cast<void>(::raise(SIGHUP));
    if (interruption.requestDescriptor() == -1 && interruption.requested() == SIGHUP) interruption.deliver();
  };
  EXPECT_EXIT(interrupted(), ::testing::KilledBySignal(SIGHUP), "");
}

TEST_F(PosixInterruptionTest, AfterDeliveryTheRequestIsGone) {
  interruption.defer();
  ASSERT_EQ(::raise(SIGHUP), 0);
  static_cast<void>(std::signal(SIGHUP, SIG_IGN));  // so that this process goes on
  interruption.deliver();
  EXPECT_EQ(interruption.requested(), std::nullopt);
  EXPECT_FALSE(isRequestReadable());
}

}  // namespace
}  // namespace platform
