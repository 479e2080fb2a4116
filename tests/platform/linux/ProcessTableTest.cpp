#include "platform/posix/ProcessTable.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

using std::chrono::milliseconds;
using support::TemporaryFolder;

/// A copy of sleep(1) at a place of the test's own, running.
class Sleeper {
 public:
  explicit Sleeper(const std::string& place) {
    std::filesystem::copy_file("/bin/sleep", place);
    pid_ = fork();
    if (pid_ == 0) {
      execl(place.c_str(), place.c_str(), "600", nullptr);
      _exit(127);
    }
    while (std::filesystem::read_symlink("/proc/" + std::to_string(pid_) + "/exe") != place) usleep(1000);
  }
  ~Sleeper() { end(); }
  Sleeper(const Sleeper&) = delete;
  Sleeper& operator=(const Sleeper&) = delete;

  void end() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }
  [[nodiscard]] pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
};

TEST(ProcessTable, KnowsThisProcess) {
  const auto self = ProcessTable().process(getpid());
  ASSERT_TRUE(self);
  EXPECT_EQ(self->parent, getppid());
  EXPECT_EQ(self->realUser, getuid());
  EXPECT_EQ(self->executable, std::filesystem::read_symlink("/proc/self/exe"));
  EXPECT_FALSE(self->executableDeleted);
  EXPECT_GT(self->startTime, 0U);
}

TEST(ProcessTable, ListsAllProcessesWithThisOne) {
  const auto all = ProcessTable().processes();
  EXPECT_TRUE(
      std::any_of(all.begin(), all.end(), [](const auto& process) { return process.pid == getpid(); }));
  EXPECT_TRUE(std::any_of(all.begin(), all.end(), [](const auto& process) { return process.pid == 1; }));
}

TEST(ProcessTable, ADeletedProgramKeepsItsPath) {
  const TemporaryFolder folder;
  const Sleeper sleeper(folder / "program");
  std::filesystem::remove(folder / "program");
  const auto seen = ProcessTable().process(sleeper.pid());
  ASSERT_TRUE(seen);
  EXPECT_EQ(seen->executable, folder / "program");
  EXPECT_TRUE(seen->executableDeleted);
}

TEST(ProcessTable, AProgramWhoseNameEndsLikeTheKernelsMarkKeepsItsName) {
  const TemporaryFolder folder;
  const Sleeper sleeper(folder / "program (deleted)");
  const auto seen = ProcessTable().process(sleeper.pid());
  ASSERT_TRUE(seen);
  EXPECT_EQ(seen->executable, folder / "program (deleted)");
  EXPECT_FALSE(seen->executableDeleted);
}

TEST(ProcessTable, ANameThatLooksLikeTheRestOfTheLineDoesNotConfuseIt) {
  const TemporaryFolder folder;
  const Sleeper sleeper(folder / ") R 1 1\n (x");
  const auto seen = ProcessTable().process(sleeper.pid());
  ASSERT_TRUE(seen);
  EXPECT_EQ(seen->parent, getpid());
  EXPECT_EQ(seen->executable, folder / ") R 1 1\n (x");
}

TEST(ProcessTable, HalfWrittenAndVanishedEntriesAreLeftOut) {
  const TemporaryFolder folder;
  std::filesystem::create_directories(folder / "10");
  std::filesystem::create_directories(folder / "11");
  std::filesystem::create_directories(folder / "self");
  std::ofstream(folder / "11/stat") << "11 (x";
  EXPECT_TRUE(ProcessTable(folder / "").processes().empty());
  EXPECT_TRUE(ProcessTable(folder / "missing").processes().empty());
}

TEST(ProcessTable, AnEndedProcessHasNoExecutable) {
  const pid_t child = fork();
  if (child == 0) _exit(0);
  siginfo_t info{};
  waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT);
  const auto seen = ProcessTable().process(child);
  waitpid(child, nullptr, 0);
  ASSERT_TRUE(seen);
  EXPECT_EQ(seen->state, 'Z');
  EXPECT_EQ(seen->executable, "");
  EXPECT_FALSE(ProcessTable().process(child));
}

TEST(ProcessHandle, SignalsAndWaitsForTheProcessThatWasSeen) {
  const TemporaryFolder folder;
  const Sleeper sleeper(folder / "program");
  const ProcessTable table;
  const auto handle = ProcessHandle::open(table, *table.process(sleeper.pid()));
  ASSERT_TRUE(handle);
  EXPECT_FALSE(handle.value().waitForExit(milliseconds(1)));
  EXPECT_TRUE(handle.value().signal(SIGTERM));
  EXPECT_TRUE(handle.value().waitForExit(milliseconds(5000)));
}

TEST(ProcessHandle, AProcessOfAnotherStartTimeOrProgramIsAStranger) {
  const TemporaryFolder folder;
  const Sleeper sleeper(folder / "program");
  const ProcessTable table;
  ProcessInfo earlier = *table.process(sleeper.pid());
  --earlier.startTime;
  ProcessInfo other = *table.process(sleeper.pid());
  other.executable += "x";
  ProcessInfo sameName = *table.process(sleeper.pid());
  ++sameName.executableInode;
  for (const ProcessInfo& seen : {earlier, other, sameName}) {
    const auto handle = ProcessHandle::open(table, seen);
    ASSERT_FALSE(handle);
    EXPECT_EQ(handle.error().code, ESRCH);
  }
}

TEST(ProcessHandle, AfterTheEndASignalReachesNobody) {
  const TemporaryFolder folder;
  Sleeper sleeper(folder / "program");
  const ProcessTable table;
  const ProcessInfo seen = *table.process(sleeper.pid());
  const auto handle = ProcessHandle::open(table, seen);
  ASSERT_TRUE(handle);
  sleeper.end();
  const auto sent = handle.value().signal(SIGTERM);
  ASSERT_FALSE(sent);
  EXPECT_EQ(sent.error().code, ESRCH);
  EXPECT_EQ(ProcessHandle::open(table, seen).error().code, ESRCH);
}

}  // namespace
}  // namespace platform
