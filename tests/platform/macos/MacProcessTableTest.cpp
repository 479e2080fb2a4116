#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <limits>

#include "platform/posix/InheritedState.h"
#include "platform/posix/ProcessTable.h"
#include "tests/macsdk/fakes/FakeProcesses.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

using ::testing::SizeIs;
using namespace std::chrono_literals;

constexpr pid_t kProcess = std::numeric_limits<pid_t>::max();  // nobody's number on this system

class MacProcessTableTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ::fakes::processes() = {};
    ::fakes::processes().processes[kProcess] = {
        .parent = 7, .group = 8, .user = 501, .seconds = 12, .microseconds = 34, .path = program};
  }
  ::fakes::FakeProcess& process() { return ::fakes::processes().processes.at(kProcess); }

  support::TemporaryFolder folder;
  const std::string program = folder.file("program");
  ProcessTable table;
};

TEST_F(MacProcessTableTest, AProcessIsToldWithItsProgramAndTheMomentOfItsStart) {
  const auto info = table.process(kProcess);
  ASSERT_TRUE(info);
  EXPECT_EQ(info->pid, kProcess);
  EXPECT_EQ(info->parent, 7);
  EXPECT_EQ(info->processGroup, 8);
  EXPECT_EQ(info->realUser, 501U);
  EXPECT_EQ(info->startTime, 12'000'034U);
  EXPECT_EQ(info->state, 'R');
  EXPECT_EQ(info->executable, program);
  EXPECT_FALSE(info->executableDeleted);
  EXPECT_NE(info->executableInode, 0U);
}

TEST_F(MacProcessTableTest, StoppedAndEndedProcessesAreToldApart) {
  process().status = 4;
  EXPECT_EQ(table.process(kProcess)->state, 'T');
  process().status = 5;
  EXPECT_EQ(table.process(kProcess)->state, 'Z');
}

TEST_F(MacProcessTableTest, AProgramThatIsGoneIsMarked) {
  process().path = folder / "missing";
  const auto info = table.process(kProcess);
  EXPECT_TRUE(info->executableDeleted);
  EXPECT_EQ(info->executable, folder / "missing");
}

TEST_F(MacProcessTableTest, AProcessWithoutAProgramHasNone) {
  process().path = "";
  EXPECT_EQ(table.process(kProcess)->executable, "");
}

TEST_F(MacProcessTableTest, AllProcessesAreListed) {
  ::fakes::processes().processes[5] = {};
  EXPECT_THAT(table.processes(), SizeIs(2));
  EXPECT_FALSE(table.process(6));
}

TEST_F(MacProcessTableTest, AHeldProcessIsWaitedForToItsEnd) {
  const auto handle = ProcessHandle::open(table, *table.process(kProcess));
  ASSERT_TRUE(handle) << handle.error().description;
  EXPECT_FALSE(handle.value().waitForExit(0ms));
  ::fakes::endProcess(kProcess);
  EXPECT_TRUE(handle.value().waitForExit(0ms));
}

TEST_F(MacProcessTableTest, NobodyIsSignalledWhenItHasEnded) {
  const auto handle = ProcessHandle::open(table, *table.process(kProcess));
  ASSERT_TRUE(handle);
  ::fakes::endProcess(kProcess);
  EXPECT_EQ(handle.value().signal(SIGKILL).error().code, ESRCH);
}

TEST_F(MacProcessTableTest, WhatIsGoneIsNotHeld) {
  const auto seen = table.process(kProcess);
  ::fakes::endProcess(kProcess);
  EXPECT_EQ(ProcessHandle::open(table, *seen).error().code, ESRCH);
}

TEST_F(MacProcessTableTest, ANumberThatHasChangedHandsIsNotHeld) {
  const auto seen = table.process(kProcess);
  ::fakes::processes().whenQueued = [this] { ++process().microseconds; };
  EXPECT_EQ(ProcessHandle::open(table, *seen).error().code, ESRCH);
}

TEST_F(MacProcessTableTest, AProcessThatRunsAnotherProgramByNowIsNotHeld) {
  const auto seen = table.process(kProcess);
  ::fakes::processes().whenQueued = [this] { process().path = folder.file("another"); };
  EXPECT_EQ(ProcessHandle::open(table, *seen).error().code, ESRCH);
}

TEST_F(MacProcessTableTest, ASignalReachesTheProcess) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::pause();
    ::_exit(1);
  }
  ::fakes::processes().processes[child] = {.path = program};
  const auto handle = ProcessHandle::open(table, *table.process(child));
  ASSERT_TRUE(handle);
  EXPECT_TRUE(handle.value().signal(SIGKILL));
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status));
}

TEST(MacInheritedStateTest, DescriptorsFromANumberOnAreClosedAndNoOthers) {
  const int kept = ::open("/dev/null", O_RDONLY);
  const int closed = ::fcntl(kept, F_DUPFD, 100);
  ::fakes::processes().openDescriptors = {0, kept, closed};
  closeDescriptorsFrom(100);
  EXPECT_GE(::fcntl(kept, F_GETFD), 0);
  EXPECT_LT(::fcntl(closed, F_GETFD), 0);
  ::close(kept);
}

TEST(MacInheritedStateTest, NothingOfTheEnvironmentIsLeft) {
  char** const before = environ;
  forgetEnvironment();
  EXPECT_EQ(::getenv("PATH"), nullptr);
  environ = before;
}

}  // namespace
}  // namespace platform
