#include "platform/posix/PosixSubprocesses.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

#include "platform/foundation/Exception.h"
#include "platform/linux/SpawnedProgram.h"
#include "platform/posix/PosixMainThread.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

const char* const kProbe = SUBPROCESS_PROBE;

/// How many entries a folder of /proc has.
std::size_t countEntries(const std::string& folder) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

/// The states of this process's children, "Z" for a zombie.
std::string childStates() {
  std::string states;
  std::ifstream children("/proc/self/task/" + std::to_string(::getpid()) + "/children");
  for (pid_t child = 0; children >> child;) {
    std::ifstream status("/proc/" + std::to_string(child) + "/stat");
    std::string ignored;
    std::string state;
    status >> ignored >> ignored >> state;
    states += state;
  }
  return states;
}

/// Whether a condition comes true within ten seconds.
template <typename Condition>
bool eventually(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + 10s;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(1ms);
  }
  return true;
}

std::vector<std::string> linesOf(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

/// How this system keeps descriptors from a child.
foundation::Result<pid_t> startOnThisSystem(const ChildToStart& child) {
  return spawnProgram({.command = child.command,
                       .environment = currentEnvironment(),
                       .standardInput = child.standardInput,
                       .standardOutput = child.standardOutput,
                       .standardError = child.standardError,
                       .executable = child.executable,
                       .session = ChildSession::own});
}

class PosixSubprocessesTest : public ::testing::Test {
 protected:
  std::shared_ptr<Subprocess> make(const std::string& path, std::vector<std::string> arguments = {}) {
    SubprocessOptions options;
    options.launchPath = path;
    options.arguments = std::move(arguments);
    options.standardInput = Stream::nullDevice;
    options.standardOutput = Stream::pipe;
    options.standardError = Stream::pipe;
    return subprocesses.create(std::move(options));
  }
  std::shared_ptr<Subprocess> shell(const std::string& script) { return make("/bin/sh", {"-c", script}); }

  static std::string outputOf(Subprocess& child) {
    std::string output;
    for (std::string piece = child.availableOutput(); !piece.empty(); piece = child.availableOutput()) {
      output += piece;
    }
    return output;
  }
  std::string run(const std::string& path, std::vector<std::string> arguments) {
    const auto child = make(path, std::move(arguments));
    child->launch();
    std::string output = outputOf(*child);
    child->waitUntilExit();
    return output;
  }

  PosixMainThread mainThread;
  PosixSubprocesses subprocesses{mainThread, startOnThisSystem};
};

TEST_F(PosixSubprocessesTest, AnswersTheExitStatus) {
  const auto child = shell("exit 3");
  child->launch();
  child->waitUntilExit();
  EXPECT_EQ(child->terminationStatus(), 3);
  EXPECT_FALSE(child->isRunning());
}

TEST_F(PosixSubprocessesTest, AnswersTheNumberOfTheSignalThatEndedTheChild) {
  const auto child = shell("kill -KILL $$");
  child->launch();
  child->waitUntilExit();
  EXPECT_EQ(child->terminationStatus(), SIGKILL);
}

TEST_F(PosixSubprocessesTest, AStatusIsNotToBeHadFromARunningChild) {
  const auto child = make("/bin/sleep", {"60"});
  child->launch();
  EXPECT_TRUE(child->isRunning());
  EXPECT_THROW(static_cast<void>(child->terminationStatus()), foundation::Exception);
  child->terminate();
  child->waitUntilExit();
  EXPECT_EQ(child->terminationStatus(), SIGTERM);
}

TEST_F(PosixSubprocessesTest, AChildThatIsNotLaunchedDoesNotRun) {
  const auto child = shell("exit 0");
  EXPECT_FALSE(child->isRunning());
  child->terminate();
  child->waitUntilExit();
  EXPECT_EQ(child->launchPath(), "/bin/sh");
}

TEST_F(PosixSubprocessesTest, PassesEveryByteOfTheArguments) {
  EXPECT_EQ(
      run(kProbe, {"arguments", "", "trailing ", "\"double\" 'single'", "line\nbreak", "\xFF\xFE", "-x"}),
      "0:\n9:trailing \n17:\"double\" 'single'\n10:line\nbreak\n2:\xFF\xFE\n2:-x\n");
}

TEST_F(PosixSubprocessesTest, RefusesAnArgumentThatWouldBeCut) {
  const auto child = make(kProbe, {"arguments", std::string("a\0b", 3)});
  EXPECT_THROW(child->launch(), foundation::Exception);
}

TEST_F(PosixSubprocessesTest, AChildSeesOnlyItsThreeStreams) {
  const int leaked = ::open("/dev/null", O_RDONLY);
  ASSERT_GT(leaked, 2);
  EXPECT_THAT(linesOf(run(kProbe, {"descriptors"})), ::testing::UnorderedElementsAre("0", "1", "2"));
  ::close(leaked);
}

TEST_F(PosixSubprocessesTest, InheritedStreamsPassEvenWhenTheyAreMarkedCloseOnExec) {
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

TEST_F(PosixSubprocessesTest, ASignalThatThisProcessIgnoresOrBlocksReachesTheChild) {
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

TEST_F(PosixSubprocessesTest, AChildHasASessionOfItsOwn) {
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

TEST_F(PosixSubprocessesTest, APathThatCannotBeExecutedThrowsWithPathAndReason) {
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

TEST_F(PosixSubprocessesTest, AFailedLaunchLeavesNoDescriptorAndNoChild) {
  const std::size_t before = countEntries("/proc/self/fd");
  {
    const auto child = make("/nonexistent/tool");
    EXPECT_THROW(child->launch(), foundation::Exception);
    EXPECT_FALSE(child->isRunning());
  }
  EXPECT_EQ(countEntries("/proc/self/fd"), before);
  EXPECT_EQ(childStates(), "");
}

TEST_F(PosixSubprocessesTest, ReadsOutputAndErrorApart) {
  const auto child = shell("echo output; echo error >&2");
  child->launch();
  EXPECT_EQ(outputOf(*child), "output\n");
  EXPECT_EQ(child->availableError(), "error\n");
  EXPECT_EQ(child->availableError(), "");
  child->closeOutput();
  child->closeOutput();
  EXPECT_EQ(child->availableOutput(), "");
}

TEST_F(PosixSubprocessesTest, HandsOutAtMost64KiBAtATime) {
  const auto child = make(kProbe, {"fill", "200000", "0"});
  child->launch();
  child->waitUntilExit();
  EXPECT_EQ(child->availableOutput().size(), 65536U);
  EXPECT_EQ(outputOf(*child).size(), 200000U - 65536U);
}

TEST_F(PosixSubprocessesTest, AToolThatWritesMuchErrorTextFirstDoesNotGetStuck) {
  const auto child = make(kProbe, {"fill", "10", "900000"});
  child->launch();
  EXPECT_EQ(outputOf(*child), "oooooooooo");
  EXPECT_EQ(child->availableError().size(), 65536U);
}

TEST_F(PosixSubprocessesTest, APipeAtStandardInputIsAtItsEnd) {
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

TEST_F(PosixSubprocessesTest, AWaitOnTheMainThreadServesWorkThatEndsTheChild) {
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

TEST_F(PosixSubprocessesTest, AReadOnTheMainThreadServesWorkThatEndsTheChild) {
  const auto child = make("/bin/sleep", {"60"});
  child->launch();
  std::thread timer([&] { mainThread.perform([&] { child->terminate(); }, Wait::yes); });
  EXPECT_EQ(child->availableOutput(), "");
  timer.join();
}

TEST_F(PosixSubprocessesTest, WaitsAndReadsOnAnotherThread) {
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

TEST_F(PosixSubprocessesTest, AChildThatIgnoresTerminationRunsOn) {
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

TEST_F(PosixSubprocessesTest, AChildNobodyWaitsForLeavesNoZombie) {
  const std::size_t before = countEntries("/proc/self/fd");
  for (int count = 0; count < 20; ++count) {
    SubprocessOptions options;
    options.launchPath = "/bin/sleep";
    options.arguments = {"0.05"};
    subprocesses.create(options)->launch();
  }
  EXPECT_TRUE(eventually([] { return childStates().empty(); }));
  EXPECT_TRUE(eventually([&] { return countEntries("/proc/self/fd") <= before; }));
}

TEST_F(PosixSubprocessesTest, AForeignChildIsLeftToWhoeverWaitsForIt) {
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

TEST_F(PosixSubprocessesTest, StatusesArriveWithChildSignalsIgnored) {
  const auto previous = std::signal(SIGCHLD, SIG_IGN);
  const auto child = shell("exit 6");
  child->launch();
  child->waitUntilExit();
  static_cast<void>(std::signal(SIGCHLD, previous));
  EXPECT_EQ(child->terminationStatus(), 6);
}

TEST_F(PosixSubprocessesTest, AStreamThatIsClosedHereIsTheNullDeviceInTheChild) {
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

TEST_F(PosixSubprocessesTest, ExecutableFilesAreRegularFilesAndFolders) {
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

TEST_F(PosixSubprocessesTest, AThousandRunsLeaveNoZombieAndNoDescriptor) {
  run("/bin/true", {});
  const std::size_t before = countEntries("/proc/self/fd");
  for (int count = 0; count < 1000; ++count) {
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
  EXPECT_TRUE(eventually([&] { return countEntries("/proc/self/fd") <= before; }));
}

}  // namespace
}  // namespace platform
