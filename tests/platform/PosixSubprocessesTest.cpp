#include "platform/posix/PosixSubprocesses.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

#include "platform/foundation/Exception.h"
#include "platform/linux/LinuxChildren.h"
#include "tests/platform/SubprocessRuns.h"
#include "tests/support/FewDescriptors.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

/// How children are seen to their end, and what their pipes hold.
struct Way {
  const char* name;
  WatchChild* watch;
  PosixSubprocesses::Extras extras;
  std::size_t staying;  ///< descriptors that stay open: the set that the reaping thread watches
};

class PosixSubprocessesTest : public SubprocessRuns, public ::testing::WithParamInterface<Way> {
 protected:
  Subprocesses& maker() override { return subprocesses; }

  PosixSubprocesses subprocesses{mainThread, GetParam().watch, GetParam().extras};
};

INSTANTIATE_TEST_SUITE_P(
    EachWay, PosixSubprocessesTest,
    ::testing::Values(Way{"ByDescriptorWithLargePipes", watchByDescriptor, {makePipeHold, useLargePages}, 1},
                      Way{"ByThreadWithSmallPipes", watchByThread, {}, 0}),
    [](const auto& way) { return way.param.name; });

TEST_P(PosixSubprocessesTest, AnswersTheExitStatus) {
  const auto child = shell("exit 3");
  child->launch();
  child->waitUntilExit();
  EXPECT_EQ(child->terminationStatus(), 3);
  EXPECT_FALSE(child->isRunning());
}

TEST_P(PosixSubprocessesTest, AnswersTheNumberOfTheSignalThatEndedTheChild) {
  const auto child = shell("kill -KILL $$");
  child->launch();
  child->waitUntilExit();
  EXPECT_EQ(child->terminationStatus(), SIGKILL);
}

TEST_P(PosixSubprocessesTest, AStatusIsNotToBeHadFromARunningChild) {
  const auto child = make("/bin/sleep", {"60"});
  child->launch();
  EXPECT_TRUE(child->isRunning());
  EXPECT_THROW(static_cast<void>(child->terminationStatus()), foundation::Exception);
  child->terminate();
  child->waitUntilExit();
  EXPECT_EQ(child->terminationStatus(), SIGTERM);
}

TEST_P(PosixSubprocessesTest, AChildThatIsNotLaunchedDoesNotRun) {
  const auto child = shell("exit 0");
  EXPECT_FALSE(child->isRunning());
  child->terminate();
  child->waitUntilExit();
  EXPECT_EQ(child->launchPath(), "/bin/sh");
}

TEST_P(PosixSubprocessesTest, PassesEveryByteOfTheArguments) {
  EXPECT_EQ(
      run(kProbe, {"arguments", "", "trailing ", "\"double\" 'single'", "line\nbreak", "\xFF\xFE", "-x"}),
      "0:\n9:trailing \n17:\"double\" 'single'\n10:line\nbreak\n2:\xFF\xFE\n2:-x\n");
}

TEST_P(PosixSubprocessesTest, RefusesAnArgumentThatWouldBeCut) {
  const auto child = make(kProbe, {"arguments", std::string("a\0b", 3)});
  EXPECT_THROW(child->launch(), foundation::Exception);
}

TEST_P(PosixSubprocessesTest, AChildSeesOnlyItsThreeStreams) {
  const int leaked = ::open("/dev/null", O_RDONLY);
  ASSERT_GT(leaked, 2);
  EXPECT_THAT(linesOf(run(kProbe, {"descriptors"})), ::testing::UnorderedElementsAre("0", "1", "2"));
  ::close(leaked);
}

TEST_P(PosixSubprocessesTest, InheritedStreamsPassEvenWhenTheyAreMarkedCloseOnExec) {
  const support::TemporaryFolder folder;
  const std::string file = folder.file("output");
  const int saved = ::dup(STDOUT_FILENO);
  const int output = ::open(file.c_str(), O_WRONLY | O_CLOEXEC);
  ::dup3(output, STDOUT_FILENO, O_CLOEXEC);
  SubprocessOptions options;
  options.launchPath = "/bin/echo";
  options.arguments = {"inherited"};
  const auto child = subprocesses.create(options);
  child->launch();
  child->waitUntilExit();
  ::dup2(saved, STDOUT_FILENO);
  ::close(saved);
  ::close(output);
  EXPECT_EQ(folder.content("output"), "inherited\n");
}

TEST_P(PosixSubprocessesTest, ASignalThatThisProcessIgnoresOrBlocksReachesTheChild) {
  const auto previous = std::signal(SIGTERM, SIG_IGN);
  sigset_t blocked;
  sigset_t before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGINT);
  ::pthread_sigmask(SIG_BLOCK, &blocked, &before);
  const auto lines = linesOf(run(kProbe, {"status", "SigIgn", "SigBlk"}));
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  static_cast<void>(std::signal(SIGTERM, previous));
  // 32 and 33 are the C library's own; its posix_spawn leaves them ignored.
  EXPECT_THAT(lines, ElementsAre("SigBlk:\t0000000000000000", "SigIgn:\t0000000180000000"));
}

TEST_P(PosixSubprocessesTest, AChildHasASessionOfItsOwn) {
  const std::string statistics = run("/bin/sh", {"-c", "cat /proc/$$/stat"});
  std::istringstream fields(statistics.substr(statistics.rfind(')') + 2));
  std::string state;
  pid_t parent = 0;
  pid_t group = 0;
  pid_t session = 0;
  fields >> state >> parent >> group >> session;
  EXPECT_EQ(std::to_string(session), statistics.substr(0, statistics.find(' ')));
  EXPECT_NE(session, ::getsid(0));
}

TEST_P(PosixSubprocessesTest, APathThatCannotBeExecutedThrowsWithPathAndReason) {
  const support::TemporaryFolder folder;
  const auto reasonFor = [this](const std::string& path) -> std::string {
    try {
      make(path)->launch();
    } catch (const foundation::Exception& exception) {
      EXPECT_EQ(exception.name(), foundation::kInvalidArgumentException);
      return exception.reason();
    }
    return "launched";
  };
  EXPECT_EQ(reasonFor(folder / "absent"), folder / "absent" + ": No such file or directory");
  EXPECT_EQ(reasonFor(folder.path()), folder.path() + ": Permission denied");
  EXPECT_EQ(reasonFor(folder.file("plain", "text")), folder / "plain" + ": Permission denied");
  std::filesystem::permissions(folder.file("script", "exit 0\n"), std::filesystem::perms::all);
  EXPECT_EQ(reasonFor(folder / "script"), folder / "script" + ": Exec format error");
}

TEST_P(PosixSubprocessesTest, AFailedLaunchLeavesNoDescriptorAndNoChild) {
  const std::size_t before = countEntries("/proc/self/fd");
  {
    const auto child = make("/nonexistent/tool");
    EXPECT_THROW(child->launch(), foundation::Exception);
    EXPECT_FALSE(child->isRunning());
  }
  EXPECT_EQ(countEntries("/proc/self/fd"), before);
  EXPECT_EQ(childStates(), "");
}

TEST_P(PosixSubprocessesTest, ReadsOutputAndErrorApart) {
  const auto child = shell("echo output; echo error >&2");
  child->launch();
  EXPECT_EQ(outputOf(*child), "output\n");
  EXPECT_EQ(child->availableError(), "error\n");
  EXPECT_EQ(child->availableError(), "");
  child->closeOutput();
  child->closeOutput();
  EXPECT_EQ(child->availableOutput(), "");
}

TEST_P(PosixSubprocessesTest, HandsOutAtMost64KiBAtATime) {
  const auto child = make(kProbe, {"fill", "200000", "0"});
  child->launch();
  child->waitUntilExit();
  EXPECT_EQ(child->availableOutput().size(), 65536U);
  EXPECT_EQ(outputOf(*child).size(), 200000U - 65536U);
}

TEST_P(PosixSubprocessesTest, AToolThatWritesMuchErrorTextFirstDoesNotGetStuck) {
  const auto child = make(kProbe, {"fill", "10", "900000"});
  child->launch();
  EXPECT_EQ(outputOf(*child), "oooooooooo");
  EXPECT_EQ(child->availableError().size(), 65536U);
}

TEST_P(PosixSubprocessesTest, AddsOutputToATextUntilItsEnd) {
  const auto child = make(kProbe, {"fill", "5000000", "3"});
  child->launch();
  std::string text = "before ";
  std::size_t added = 0;
  while (const std::size_t bytes = child->appendAvailableOutput(text)) added += bytes;
  EXPECT_EQ(added, 5'000'000U);
  EXPECT_EQ(text, "before " + std::string(5'000'000, 'o'));
  EXPECT_EQ(child->appendAvailableError(text), 3U);
  EXPECT_EQ(child->appendAvailableError(text), 0U);
  EXPECT_TRUE(text.ends_with("oeee"));
  child->waitUntilExit();
}

/// While it lives this process can get so many bytes of memory more; without a limit under a sanitizer, which
/// has taken all that there is.
class LittleMemory {
 public:
  explicit LittleMemory(rlim_t more) {
    ::getrlimit(RLIMIT_AS, &before_);
    rlim_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlimit little{pages * static_cast<rlim_t>(::sysconf(_SC_PAGESIZE)) + more, before_.rlim_max};
    if (!support::kIsSanitized) ::setrlimit(RLIMIT_AS, &little);
  }
  ~LittleMemory() { ::setrlimit(RLIMIT_AS, &before_); }
  LittleMemory(const LittleMemory&) = delete;
  LittleMemory& operator=(const LittleMemory&) = delete;

 private:
  rlimit before_{};
};

TEST_P(PosixSubprocessesTest, MuchIsAddedAlsoWhereThereIsNoRoomForManyTimesAsMuch) {
  const auto child = make(kProbe, {"fill", "5000000", "0"});
  child->launch();
  std::string text;
  {
    const LittleMemory limit(256UL << 20);
    while (child->appendAvailableOutput(text) > 0) continue;
  }
  EXPECT_EQ(text, std::string(5'000'000, 'o'));
  EXPECT_TRUE(support::kIsSanitized || text.capacity() < (256UL << 20)) << text.capacity();
  child->waitUntilExit();
}

TEST_P(PosixSubprocessesTest, AddsNothingAfterTheReadingEndIsClosed) {
  const auto child = make(kProbe, {"fill", "200000", "0"});
  child->launch();
  std::string text;
  EXPECT_GT(child->appendAvailableOutput(text), 0U);
  const std::size_t size = text.size();
  child->closeOutput();
  EXPECT_EQ(child->appendAvailableOutput(text), 0U);
  EXPECT_EQ(text.size(), size);
  child->waitUntilExit();
}

TEST_P(PosixSubprocessesTest, AnAddingReadServesTheMainThreadsWorkToo) {
  const auto child = make("/bin/sleep", {"60"});
  child->launch();
  std::thread timer([&] { mainThread.perform([&] { child->terminate(); }, Wait::yes); });
  std::string text;
  EXPECT_EQ(child->appendAvailableOutput(text), 0U);
  timer.join();
  child->waitUntilExit();
}

TEST_P(PosixSubprocessesTest, APipeAtStandardInputIsAtItsEnd) {
  SubprocessOptions options;
  options.launchPath = "/bin/cat";
  options.standardInput = Stream::pipe;
  options.standardOutput = Stream::pipe;
  const auto child = subprocesses.create(options);
  child->launch();
  EXPECT_EQ(child->availableOutput(), "");
  child->waitUntilExit();
  EXPECT_EQ(child->terminationStatus(), 0);
}

TEST_P(PosixSubprocessesTest, AWaitOnTheMainThreadServesWorkThatEndsTheChild) {
  const auto child = make("/bin/sleep", {"60"});
  child->launch();
  bool servedOnMainThread = false;
  std::thread timer([&] {
    mainThread.perform(
        [&] {
          servedOnMainThread = mainThread.isCurrent();
          child->terminate();
        },
        Wait::yes);
  });
  child->waitUntilExit();
  timer.join();
  EXPECT_TRUE(servedOnMainThread);
  EXPECT_EQ(child->terminationStatus(), SIGTERM);
}

TEST_P(PosixSubprocessesTest, AReadOnTheMainThreadServesWorkThatEndsTheChild) {
  const auto child = make("/bin/sleep", {"60"});
  child->launch();
  std::thread timer([&] { mainThread.perform([&] { child->terminate(); }, Wait::yes); });
  EXPECT_EQ(child->availableOutput(), "");
  timer.join();
}

TEST_P(PosixSubprocessesTest, AReadOfWhatIsThereAlreadyServesTheMainThreadsWorkToo) {
  const auto child = make(kProbe, {"fill", "200000", "0"});
  child->launch();
  int served = 0;
  mainThread.perform([&] { ++served; }, Wait::no);
  // A child that never stops writing must not keep the work from being done.
  EXPECT_NE(child->availableOutput(), "");
  EXPECT_EQ(served, 1);
  child->waitUntilExit();  // by now the rest has been written
  mainThread.perform([&] { ++served; }, Wait::no);
  EXPECT_NE(child->availableOutput(), "");
  EXPECT_EQ(served, 2);
}

TEST_P(PosixSubprocessesTest, WaitsAndReadsOnAnotherThread) {
  const auto child = shell("echo output; exit 4");
  std::string output;
  std::thread worker([&] {
    child->launch();
    output = outputOf(*child);
    child->waitUntilExit();
  });
  worker.join();
  EXPECT_EQ(output, "output\n");
  EXPECT_EQ(child->terminationStatus(), 4);
}

TEST_P(PosixSubprocessesTest, AChildThatIgnoresTerminationRunsOn) {
  const auto child = make(kProbe, {"ignore-termination", "60"});
  child->launch();
  ASSERT_EQ(child->availableOutput(), "ready\n");
  child->terminate();
  EXPECT_FALSE(mainThread.serveUntilReadable(-1, 50ms));
  EXPECT_TRUE(child->isRunning());
  std::ifstream children("/proc/self/task/" + std::to_string(::getpid()) + "/children");
  pid_t pid = 0;
  children >> pid;
  ASSERT_EQ(::kill(pid, SIGKILL), 0);
  child->waitUntilExit();
  EXPECT_EQ(child->terminationStatus(), SIGKILL);
}

TEST_P(PosixSubprocessesTest, AChildNobodyWaitsForLeavesNoZombie) {
  const std::size_t before = countEntries("/proc/self/fd");
  for (int count = 0; count < 20; ++count) {
    SubprocessOptions options;
    options.launchPath = "/bin/sleep";
    options.arguments = {"0.05"};
    subprocesses.create(options)->launch();
  }
  EXPECT_TRUE(eventually([] { return childStates().empty(); }));
  EXPECT_TRUE(eventually([&] { return countEntries("/proc/self/fd") <= before + GetParam().staying; }));
}

TEST_P(PosixSubprocessesTest, AForeignChildIsLeftToWhoeverWaitsForIt) {
  const pid_t foreign = ::fork();
  if (foreign == 0) ::_exit(5);
  {
    SubprocessOptions options;
    options.launchPath = "/bin/sleep";
    options.arguments = {"0.05"};
    subprocesses.create(options)->launch();
  }
  EXPECT_TRUE(eventually([] { return childStates() == "Z"; }));
  int status = 0;
  ASSERT_EQ(::waitpid(foreign, &status, 0), foreign);
  EXPECT_EQ(WEXITSTATUS(status), 5);
}

TEST_P(PosixSubprocessesTest, StatusesArriveWithChildSignalsIgnored) {
  const auto previous = std::signal(SIGCHLD, SIG_IGN);
  const auto child = shell("exit 6");
  child->launch();
  child->waitUntilExit();
  static_cast<void>(std::signal(SIGCHLD, previous));
  EXPECT_EQ(child->terminationStatus(), 6);
}

TEST_P(PosixSubprocessesTest, AStreamThatIsClosedHereIsTheNullDeviceInTheChild) {
  const int saved = ::dup(STDIN_FILENO);
  ::close(STDIN_FILENO);
  SubprocessOptions options;
  options.launchPath = "/usr/bin/readlink";
  options.arguments = {"/proc/self/fd/0"};
  options.standardOutput = Stream::pipe;
  const auto child = subprocesses.create(options);
  child->launch();
  const std::string target = outputOf(*child);
  if (saved >= 0) {
    ::dup2(saved, STDIN_FILENO);
    ::close(saved);
  }
  EXPECT_EQ(target, "/dev/null\n");
}

TEST_P(PosixSubprocessesTest, AChildThatCannotBeWatchedDoesNotRunOnUnseen) {
  const auto child = subprocesses.create({.launchPath = "/bin/sleep", .arguments = {"60"}});
  std::string reason;
  try {
    const support::FewDescriptors none(0);
    child->launch();
  } catch (const foundation::Exception& exception) {
    reason = exception.reason();
  }
  EXPECT_EQ(reason, "/bin/sleep: Too many open files");
  EXPECT_EQ(childStates(), "");
  EXPECT_FALSE(child->isRunning());
}

TEST_P(PosixSubprocessesTest, ExecutableFilesAreRegularFilesAndFolders) {
  const support::TemporaryFolder folder;
  const std::string plain = folder.file("plain");
  const std::string tool = folder.file("tool");
  std::filesystem::permissions(tool, std::filesystem::perms::all);
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0777), 0);
  EXPECT_TRUE(subprocesses.isExecutableFile(tool));
  EXPECT_TRUE(subprocesses.isExecutableFile(folder.path()));
  EXPECT_FALSE(subprocesses.isExecutableFile(plain));
  EXPECT_FALSE(subprocesses.isExecutableFile(folder / "fifo"));
  EXPECT_FALSE(subprocesses.isExecutableFile(folder / "absent"));
}

TEST_P(PosixSubprocessesTest, ThousandsOfRunsLeaveNoZombieAndNoDescriptor) {
  run("/bin/true", {});
  const std::size_t before = countEntries("/proc/self/fd");
  for (int count = 0; count < 5000; ++count) {
    SubprocessOptions options;
    options.launchPath = "/bin/true";
    options.standardOutput = count % 2 == 0 ? Stream::pipe : Stream::nullDevice;
    const auto child = subprocesses.create(options);
    child->launch();
    if (count % 3 == 0) continue;
    child->waitUntilExit();
    ASSERT_EQ(child->terminationStatus(), 0);
  }
  EXPECT_TRUE(eventually([] { return childStates().empty(); }));
  EXPECT_TRUE(eventually([&] { return countEntries("/proc/self/fd") <= before + GetParam().staying; }));
}

}  // namespace
}  // namespace platform
