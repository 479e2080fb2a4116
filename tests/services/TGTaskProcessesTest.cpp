// TGTask with real processes, a real clock and a real main thread.
#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

#include "platform/linux/LinuxSubprocesses.h"
#include "platform/posix/PosixClock.h"
#include "platform/posix/PosixMainThread.h"
#include "services/TGTask.h"
#include "tests/services/ServicesTest.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Optional;
using namespace std::chrono_literals;

constexpr const char* kShell = "/bin/sh";

TGTask::Arguments script(const std::string& text, std::vector<std::string> arguments = {}) {
  arguments.insert(arguments.begin(), {"-c", text});
  return arguments;
}

/// The fakes, with real processes and what they need in place of theirs.
class TGTaskProcessesTest : public ServicesTest {
 protected:
  /// Serves the main thread's work until a condition comes true, for at most ten seconds.
  template <typename Condition>
  bool eventually(Condition condition) {
    const auto end = clock_.uptime() + 10s;
    while (!condition()) {
      if (clock_.uptime() > end) return false;
      mainThread_.serveUntilReadable(-1, 1ms);
    }
    return true;
  }

  /// Lets go of an instance and waits until its threads have ended.
  void waitForThreadsOf(std::shared_ptr<TGTask>& task) {
    const std::weak_ptr<TGTask> left = task;
    task.reset();
    EXPECT_TRUE(eventually([&] { return left.expired(); }));
  }

  std::chrono::nanoseconds elapsed() { return clock_.uptime() - start_; }

  [[nodiscard]] std::string path(const std::string& name) const { return fakes_.files.root() + "/" + name; }

  platform::PosixMainThread mainThread_;
  platform::PosixClock clock_{mainThread_};

 private:
  platform::LinuxSubprocesses subprocesses_{mainThread_, fakes_.mainBundle};
  platform::Platform& fake_ = platform::current();
  platform::Platform platform_{clock_,
                               mainThread_,
                               fake_.userInterfaceEvents,
                               fake_.usersAndFolders,
                               fake_.fileQueries,
                               fake_.fileChanges,
                               fake_.fileLocks,
                               fake_.fileAttributes,
                               fake_.folderQueries,
                               fake_.fileReferences,
                               fake_.fileOperations,
                               fake_.fileBrowser,
                               subprocesses_,
                               fake_.applications,
                               fake_.workspace,
                               fake_.authorization,
                               fake_.distributedNotifications,
                               fake_.localNotifications,
                               fake_.desktopNotifications,
                               fake_.clientConnections,
                               fake_.propertyLists,
                               fake_.preferences,
                               fake_.gathering,
                               fake_.alerts,
                               fake_.systemConsole,
                               fake_.mainBundle,
                               fake_.processInformation,
                               fake_.keyboardLayout,
                               fake_.interruption,
                               fake_.desktopApplication};
  platform::PlatformScope scope_{platform_};
  std::chrono::nanoseconds start_ = clock_.uptime();
};

TEST_F(TGTaskProcessesTest, TheTerminationCodeIsTheStatusOrTheSignal) {
  EXPECT_EQ(TGTask::terminationCodeFromTask(kShell, script("exit 3")), 3);
  EXPECT_EQ(TGTask::terminationCodeFromTask(kShell, script("kill -9 $$")), SIGKILL);
  EXPECT_TRUE(TGTask::runTask(kShell, script("exit 3")));
}

TEST_F(TGTaskProcessesTest, ArgumentsArriveByteForByte) {
  const auto arguments =
      script("printf '<%s>' \"$0\" \"$@\"", {"", "a b ", "\"'$x", "line\nbreak", "%@", "\xFF"});
  EXPECT_THAT(TGTask::dataFromTask(kShell, arguments, nullptr),
              Optional(std::string("<><a b ><\"'$x><line\nbreak><%@><\xFF>")));
}

TEST_F(TGTaskProcessesTest, MuchOutputIsCapturedWhole) {
  const auto data = TGTask::dataFromTask(kShell, script("head -c 3000000 /dev/zero"), nullptr);
  ASSERT_TRUE(data);
  EXPECT_EQ(*data, std::string(3000000, '\0'));
}

TEST_F(TGTaskProcessesTest, AWarningReplacesMuchOutput) {
  EXPECT_THAT(TGTask::stringFromTask(kShell, script("echo warning >&2; head -c 300000 /dev/zero")),
              Optional(std::string("warning\n")));
}

TEST_F(TGTaskProcessesTest, AToolThatReadsItsInputFindsTheEnd) {
  EXPECT_THAT(TGTask::stringFromTask("/bin/cat", std::nullopt), Optional(std::string()));
}

TEST_F(TGTaskProcessesTest, AFileThatIsNoProgramThrows) {
  fakes_.files.makeFile("/program", "\x01 not a program");
  ASSERT_EQ(::chmod(path("program").c_str(), 0755), 0);
  EXPECT_THROW(TGTask::runTask(path("program"), std::nullopt), foundation::Exception);
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGTaskProcessesTest, ATimeoutOfNearlyTwoSecondsIsEnforcedAsOne) {
  auto task = TGTask::create();
  EXPECT_EQ(task->terminationCodeFromTimedTask("/bin/sleep", {{"5"}}, 1.9s), SIGTERM);
  EXPECT_GE(elapsed(), 1s);
  EXPECT_LT(elapsed(), 1900ms);
  waitForThreadsOf(task);
  EXPECT_THAT(messages(), ElementsAre("Task timed out. Terminating..."));
  EXPECT_THAT(logEntries(), ElementsAre("Task /bin/sleep timed out. Terminating..."));
}

TEST_F(TGTaskProcessesTest, ACaptureThatTimesOutYieldsWhatWasRead) {
  auto task = TGTask::create();
  EXPECT_THAT(task->dataFromTimedTask(kShell, script("echo first; exec sleep 5"), 1s),
              Optional(std::string("first\n")));
  EXPECT_LT(elapsed(), 4s);
  waitForThreadsOf(task);
}

TEST_F(TGTaskProcessesTest, AToolThatEndsBeforeItsTimeoutLeavesNoMessage) {
  auto task = TGTask::create();
  EXPECT_EQ(task->terminationCodeFromTimedTask(kShell, script("exit 7"), 1s), 7);
  EXPECT_LT(elapsed(), 1s);
  waitForThreadsOf(task);
  EXPECT_GE(elapsed(), 1s);
  EXPECT_THAT(messages(), IsEmpty());
  EXPECT_THAT(logEntries(), IsEmpty());
}

TEST_F(TGTaskProcessesTest, ATimeoutTakesEffectForARunOnAnotherThreadWhileTheMainThreadServes) {
  auto task = TGTask::create();
  std::atomic<int> code = -1;
  std::thread worker([&] { code = task->terminationCodeFromTimedTask("/bin/sleep", {{"5"}}, 1s); });
  EXPECT_TRUE(eventually([&] { return code != -1; }));
  worker.join();
  EXPECT_EQ(code, SIGTERM);
  waitForThreadsOf(task);
}

TEST_F(TGTaskProcessesTest, AToolThatIsNotWaitedForRunsOn) {
  TGTask::runTaskAndReturn(kShell, script("sleep 0.5; echo done > \"$0\"", {path("done")}));
  EXPECT_FALSE(std::filesystem::exists(path("done")));
  EXPECT_TRUE(eventually([&] { return std::filesystem::exists(path("done")); }));
}

TEST_F(TGTaskProcessesTest, AsynchronousOutputArrivesPieceByPiece) {
  std::mutex mutex;
  std::vector<std::string> pieces;
  const auto collect = [&](const std::string& data, TGTask&, const std::any*) {
    const std::scoped_lock lock(mutex);
    pieces.push_back(data);
  };
  // The second piece is not written before the first has arrived.
  auto task = TGTask::create();
  task->asyncDataFromTask(
      kShell, script("printf one; until [ -e \"$0\" ]; do sleep 0.01; done; printf two", {path("go on")}),
      collect);
  EXPECT_TRUE(eventually([&] {
    const std::scoped_lock lock(mutex);
    return !pieces.empty();
  }));
  fakes_.files.makeFile("/go on");
  waitForThreadsOf(task);
  const std::scoped_lock lock(mutex);
  EXPECT_THAT(pieces, ElementsAre("one", "two", ""));
}

TEST_F(TGTaskProcessesTest, AnAsynchronousToolThatClosesItsOutputWithoutEndingIsTerminated) {
  auto task = TGTask::create();
  task->asyncDataFromTask(
      kShell,
      script("trap 'echo terminated > \"$0\"; exit' TERM; exec >&-; while :; do sleep 0.05; done",
             {path("end")}),
      nullptr);
  waitForThreadsOf(task);
  EXPECT_TRUE(eventually([&] { return std::filesystem::exists(path("end")); }));
}

TEST_F(TGTaskProcessesTest, AProgramEndsWellWhileATimerSleeps) {
  EXPECT_EQ(TGTask::terminationCodeFromTask(SLEEPING_TIMER_PROBE, {{"3600", "0"}}), 42);
  EXPECT_LT(elapsed(), 30s);
}

TEST_F(TGTaskProcessesTest, AProgramEndsWellJustAsATimerWakes) {
  std::vector<std::shared_ptr<platform::Subprocess>> probes;
  for (int milliseconds = 990; milliseconds <= 1004; ++milliseconds) {
    probes.push_back(platform::current().subprocesses.create(
        {.launchPath = SLEEPING_TIMER_PROBE, .arguments = {"1", std::to_string(milliseconds)}}));
    probes.back()->launch();
  }
  for (const auto& probe : probes) {
    probe->waitUntilExit();
    EXPECT_EQ(probe->terminationStatus(), 42);
  }
}

}  // namespace
