#include "platform/linux/LinuxSubprocesses.h"

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
#include "platform/linux/LinuxMainThread.h"
#include "platform/posix/ChildEnvironment.h"
#include "tests/support/EnvironmentVariable.h"
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

class FixedBundle : public MainBundle {
 public:
  std::string path() override { return folder; }
  std::string executablePath() override { return folder + "/Contents/MacOS/Quillmend"; }
  foundation::PropertyList infoDictionary() override { return {}; }
  std::optional<std::string> pathForIdentifier(const std::string&) override { return {}; }
  std::optional<std::string> pathForResource(const std::string&, const std::string&) override { return {}; }
  std::string localizedString(const std::string& key) override { return key; }

  std::string folder;
};

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

class LinuxSubprocessesTest : public ::testing::Test {
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

  LinuxMainThread mainThread;
  FixedBundle bundle;
  LinuxSubprocesses subprocesses{mainThread, bundle};
};

TEST_F(LinuxSubprocessesTest, AnswersTheExitStatus) {
  const auto child = shell("exit 3");
  child->launch();
  child->waitUntilExit();
  EXPECT_EQ(child->terminationStatus(), 3);
  EXPECT_FALSE(child->isRunning());
}

TEST_F(LinuxSubprocessesTest, AnswersTheNumberOfTheSignalThatEndedTheChild) {
  const auto child = shell("kill -KILL $$");
  child->launch();
  child->waitUntilExit();
  EXPECT_EQ(child->terminationStatus(), SIGKILL);
}

TEST_F(LinuxSubprocessesTest, AStatusIsNotToBeHadFromARunningChild) {
  const auto child = make("/bin/sleep", {"60"});
  child->launch();
  EXPECT_TRUE(child->isRunning());
  EXPECT_THROW(static_cast<void>(child->terminationStatus()), foundation::Exception);
  child->terminate();
  child->waitUntilExit();
  EXPECT_EQ(child->terminationStatus(), SIGTERM);
}

TEST_F(LinuxSubprocessesTest, AChildThatIsNotLaunchedDoesNotRun) {
  const auto child = shell("exit 0");
  EXPECT_FALSE(child->isRunning());
  child->terminate();
  child->waitUntilExit();
  EXPECT_EQ(child->launchPath(), "/bin/sh");
}

TEST_F(LinuxSubprocessesTest, PassesEveryByteOfTheArguments) {
  EXPECT_EQ(
      run(kProbe, {"arguments", "", "trailing ", "\"double\" 'single'", "line\nbreak", "\xFF\xFE", "-x"}),
      "0:\n9:trailing \n17:\"double\" 'single'\n10:line\nbreak\n2:\xFF\xFE\n2:-x\n");
}

TEST_F(LinuxSubprocessesTest, RefusesAnArgumentThatWouldBeCut) {
  const auto child = make(kProbe, {"arguments", std::string("a\0b", 3)});
  EXPECT_THROW(child->launch(), foundation::Exception);
}

TEST_F(LinuxSubprocessesTest, AChildSeesOnlyItsThreeStreams) {
  const int leaked = ::open("/dev/null", O_RDONLY);
  ASSERT_GT(leaked, 2);
  EXPECT_THAT(linesOf(run(kProbe, {"descriptors"})), ::testing::UnorderedElementsAre("0", "1", "2"));
  ::close(leaked);
}

TEST_F(LinuxSubprocessesTest, InheritedStreamsPassEvenWhenTheyAreMarkedCloseOnExec) {
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

TEST_F(LinuxSubprocessesTest, ASignalThatThisProcessIgnoresOrBlocksReachesTheChild) {
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

TEST_F(LinuxSubprocessesTest, AChildHasASessionOfItsOwn) {
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

TEST_F(LinuxSubprocessesTest, APathThatCannotBeExecutedThrowsWithPathAndReason) {
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

TEST_F(LinuxSubprocessesTest, AFailedLaunchLeavesNoDescriptorAndNoChild) {
  const std::size_t before = countEntries("/proc/self/fd");
  {
    const auto child = make("/nonexistent/tool");
    EXPECT_THROW(child->launch(), foundation::Exception);
    EXPECT_FALSE(child->isRunning());
  }
  EXPECT_EQ(countEntries("/proc/self/fd"), before);
  EXPECT_EQ(childStates(), "");
}

TEST_F(LinuxSubprocessesTest, ReadsOutputAndErrorApart) {
  const auto child = shell("echo output; echo error >&2");
  child->launch();
  EXPECT_EQ(outputOf(*child), "output\n");
  EXPECT_EQ(child->availableError(), "error\n");
  EXPECT_EQ(child->availableError(), "");
  child->closeOutput();
  child->closeOutput();
  EXPECT_EQ(child->availableOutput(), "");
}

TEST_F(LinuxSubprocessesTest, HandsOutAtMost64KiBAtATime) {
  const auto child = make(kProbe, {"fill", "200000", "0"});
  child->launch();
  child->waitUntilExit();
  EXPECT_EQ(child->availableOutput().size(), 65536U);
  EXPECT_EQ(outputOf(*child).size(), 200000U - 65536U);
}

TEST_F(LinuxSubprocessesTest, AToolThatWritesMuchErrorTextFirstDoesNotGetStuck) {
  const auto child = make(kProbe, {"fill", "10", "900000"});
  child->launch();
  EXPECT_EQ(outputOf(*child), "oooooooooo");
  EXPECT_EQ(child->availableError().size(), 65536U);
}

TEST_F(LinuxSubprocessesTest, APipeAtStandardInputIsAtItsEnd) {
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

TEST_F(LinuxSubprocessesTest, AWaitOnTheMainThreadServesWorkThatEndsTheChild) {
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

TEST_F(LinuxSubprocessesTest, AReadOnTheMainThreadServesWorkThatEndsTheChild) {
  const auto child = make("/bin/sleep", {"60"});
  child->launch();
  std::thread timer([&] { mainThread.perform([&] { child->terminate(); }, Wait::yes); });
  EXPECT_EQ(child->availableOutput(), "");
  timer.join();
}

TEST_F(LinuxSubprocessesTest, WaitsAndReadsOnAnotherThread) {
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

TEST_F(LinuxSubprocessesTest, AChildThatIgnoresTerminationRunsOn) {
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

TEST_F(LinuxSubprocessesTest, AChildNobodyWaitsForLeavesNoZombie) {
  const std::size_t before = countEntries("/proc/self/fd");
  for (int count = 0; count < 20; ++count) {
    SubprocessOptions options;
    options.launchPath = "/bin/sleep";
    options.arguments = {"0.05"};
    subprocesses.create(options)->launch();
  }
  EXPECT_TRUE(eventually([] { return childStates().empty(); }));
  // One descriptor may stay: the set that the reaping thread watches.
  EXPECT_TRUE(eventually([&] { return countEntries("/proc/self/fd") <= before + 1; }));
}

TEST_F(LinuxSubprocessesTest, AForeignChildIsLeftToWhoeverWaitsForIt) {
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

TEST_F(LinuxSubprocessesTest, StatusesArriveWithChildSignalsIgnored) {
  const auto previous = std::signal(SIGCHLD, SIG_IGN);
  const auto child = shell("exit 6");
  child->launch();
  child->waitUntilExit();
  static_cast<void>(std::signal(SIGCHLD, previous));
  EXPECT_EQ(child->terminationStatus(), 6);
}

TEST_F(LinuxSubprocessesTest, AChildOutlivesTheProgramThatLaunchedIt) {
  const support::TemporaryFolder folder;
  run(kProbe, {"leave-child", folder / "sign"});
  EXPECT_FALSE(std::filesystem::exists(folder / "sign"));
  folder.file("sign.go");
  EXPECT_TRUE(eventually([&] { return folder.content("sign") == "outlived\n"; }));
}

TEST_F(LinuxSubprocessesTest, WorksWithItsOwnStandardStreamsClosed) {
  for (const std::string closed : {"0", "1", "2", "01", "012"}) {
    const support::TemporaryFolder folder;
    run(kProbe, {"capture-closed", closed, folder / "result"});
    EXPECT_EQ(folder.content("result"), "output\nerror\n0") << closed;
  }
}

TEST_F(LinuxSubprocessesTest, AStreamThatIsClosedHereIsTheNullDeviceInTheChild) {
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

TEST_F(LinuxSubprocessesTest, ExecutableFilesAreRegularFilesAndFolders) {
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

TEST_F(LinuxSubprocessesTest, AToolThatTheSystemLacksIsTheBundlesEquivalent) {
  if (std::filesystem::exists("/usr/sbin/scutil")) GTEST_SKIP() << "this system has a scutil of its own";
  const support::TemporaryFolder folder;
  bundle.folder = folder.path();
  EXPECT_FALSE(subprocesses.isExecutableFile("/usr/sbin/scutil"));
  const std::string equivalent =
      folder.file("Contents/SharedSupport/scutil", "#!/bin/sh\necho \"equivalent $*\"\n");
  std::filesystem::permissions(equivalent, std::filesystem::perms::all);
  EXPECT_TRUE(subprocesses.isExecutableFile("/usr/sbin/scutil"));
  EXPECT_EQ(run("/usr/sbin/scutil", {"--get", "ComputerName"}), "equivalent --get ComputerName\n");
  EXPECT_FALSE(subprocesses.isExecutableFile("/elsewhere/scutil"));
}

TEST_F(LinuxSubprocessesTest, AnArchiverThatTheSystemLacksIsTheBundlesToo) {
  const support::TemporaryFolder folder;
  bundle.folder = folder.path();
  LinuxSubprocesses rooted(mainThread, bundle, folder / "root");
  EXPECT_FALSE(rooted.isExecutableFile("/usr/bin/ditto"));
  for (const std::string tool : {"Contents/SharedSupport/ditto", "root/usr/bin/ditto"}) {
    const std::string path = folder.file(tool, "#!/bin/sh\necho \"$0\"\n");
    std::filesystem::permissions(path, std::filesystem::perms::all);
    const auto child = rooted.create({.launchPath = "/usr/bin/ditto", .standardOutput = Stream::pipe});
    child->launch();
    child->waitUntilExit();
    EXPECT_EQ(child->availableOutput(), path + "\n");
  }
}

TEST_F(LinuxSubprocessesTest, AnOpenerThatIsALinkToAnotherProgramIsPassedOver) {
  const support::TemporaryFolder folder;
  bundle.folder = folder.path();
  const auto makeTool = [&folder](const std::string& name, const std::string& says) {
    const std::string tool = folder.file(name, "#!/bin/sh\necho \"" + says + " $*\"\n");
    std::filesystem::permissions(tool, std::filesystem::perms::all);
    return tool;
  };
  makeTool("Contents/SharedSupport/open", "equivalent");
  const std::string another = makeTool("root/usr/bin/another-open", "another");
  const std::string link = folder / "root/usr/bin/open";
  std::filesystem::create_symlink(another, link);
  LinuxSubprocesses rooted(mainThread, bundle, folder / "root");
  const auto opening = [&rooted] {
    const auto child = rooted.create(
        {.launchPath = "/usr/bin/open", .arguments = {"-a", "Menu"}, .standardOutput = Stream::pipe});
    child->launch();
    child->waitUntilExit();
    return child->availableOutput();
  };
  EXPECT_EQ(opening(), "equivalent -a Menu\n");
  std::filesystem::remove(link);
  makeTool("root/usr/bin/open", "own");
  EXPECT_EQ(opening(), "own -a Menu\n");
}

TEST_F(LinuxSubprocessesTest, TheOwnerChangerIsAlwaysTheBundles) {
  const support::TemporaryFolder folder;
  bundle.folder = folder.path();
  const auto makeTool = [&folder](const std::string& name, const std::string& says) {
    std::filesystem::permissions(folder.file(name, "#!/bin/sh\necho \"" + says + " $*\"\n"),
                                 std::filesystem::perms::all);
  };
  makeTool("root/usr/sbin/chown", "general");
  LinuxSubprocesses rooted(mainThread, bundle, folder / "root");
  EXPECT_FALSE(rooted.isExecutableFile("/usr/sbin/chown")) << "the general one follows planted links";
  makeTool("Contents/SharedSupport/chown", "guarded");
  EXPECT_TRUE(rooted.isExecutableFile("/usr/sbin/chown"));
  const auto child = rooted.create(
      {.launchPath = "/usr/sbin/chown", .arguments = {"alice", "file"}, .standardOutput = Stream::pipe});
  child->launch();
  child->waitUntilExit();
  EXPECT_EQ(child->availableOutput(), "guarded alice file\n");
}

TEST(ChildEnvironment, AnUsersChildGetsItUnchanged) {
  const std::vector<const char*> environment = {"LD_PRELOAD=x.so", "PATH=/home/alice/bin", "A=b", nullptr};
  EXPECT_THAT(childEnvironment(environment.data(), false),
              ElementsAre("LD_PRELOAD=x.so", "PATH=/home/alice/bin", "A=b"));
}

TEST(ChildEnvironment, RootsChildGetsWhatItNeedsAndNothingElse) {
  const std::vector<const char*> environment = {"LD_PRELOAD=x.so",
                                                "LD_LIBRARY_PATH=/x",
                                                "IFS=/",
                                                "BASH_ENV=/x",
                                                "ENV=/x",
                                                "PERL5LIB=/x",
                                                "LOCPATH=/x",
                                                "TMPDIR=/x",
                                                "EDITOR=/x",
                                                "BASH_FUNC_ls%%=() { x; }",
                                                "PATH=/x",
                                                "HOMES=x",
                                                "DISPLAY=:0",
                                                "HOME=/root",
                                                "USER=root",
                                                "LOGNAME=root",
                                                "TERM=xterm",
                                                "LANG=C",
                                                "LC_TIME=de",
                                                "LANGUAGE=de:en",
                                                "TZ=Europe/Paris",
                                                "HOME",
                                                nullptr};
  EXPECT_THAT(childEnvironment(environment.data(), true),
              ElementsAre("HOME=/root", "USER=root", "LOGNAME=root", "TERM=xterm", "LANG=C", "LC_TIME=de",
                          "LANGUAGE=de:en", "TZ=Europe/Paris", "PATH=/usr/bin:/bin:/usr/sbin:/sbin"));
}

TEST(ChildEnvironment, RootsChildGetsNoLanguageTerminalOrTimeZoneThatIsAPath) {
  const std::vector<const char*> environment = {"LANG=../x", "LC_ALL=/x",   "LC_TIME=%n",
                                                "TERM=/x",   "LANGUAGE=/x", "TZ=/x",
                                                "TZ=:/x",    "TZ=../x",     nullptr};
  EXPECT_THAT(childEnvironment(environment.data(), true), ElementsAre("PATH=/usr/bin:/bin:/usr/sbin:/sbin"));
}

TEST(ChildEnvironment, RootsChildThatOpensOnTheDesktopIsToldTheDisplay) {
  const std::vector<const char*> environment = {"DISPLAY=:7", "WAYLAND_DISPLAY=wayland-1", "XAUTHORITY=/x",
                                                nullptr};
  EXPECT_THAT(childEnvironment(environment.data(), true, OpensOnDesktop::yes),
              ElementsAre("DISPLAY=:7", "WAYLAND_DISPLAY=wayland-1", "PATH=/usr/bin:/bin:/usr/sbin:/sbin"));
}

TEST_F(LinuxSubprocessesTest, RootsChildrenGetARootsEnvironment) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  const support::EnvironmentVariable library("LD_LIBRARY_PATH", "/nowhere");
  const support::EnvironmentVariable display("DISPLAY", ":7");
  const auto lines = linesOf(run(kProbe, {"environment"}));
  EXPECT_THAT(lines, AllOf(Contains("PATH=/usr/bin:/bin:/usr/sbin:/sbin"),
                           Not(Contains(StartsWith("LD_LIBRARY_PATH"))), Not(Contains("DISPLAY=:7"))));
}

TEST_F(LinuxSubprocessesTest, TheToolsThatOpenOnTheDesktopAreToldTheDisplay) {
  const support::TemporaryFolder folder;
  const support::EnvironmentVariable display("DISPLAY", ":7");
  for (const char* const name : {"open", "asuser"}) {
    std::filesystem::copy_file(kProbe, folder / name);
    EXPECT_THAT(linesOf(run(folder / name, {"environment"})), Contains("DISPLAY=:7")) << name;
  }
}

TEST_F(LinuxSubprocessesTest, TenThousandRunsLeaveNoZombieAndNoDescriptor) {
  run("/bin/true", {});
  const std::size_t before = countEntries("/proc/self/fd");
  for (int count = 0; count < 10000; ++count) {
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
  EXPECT_TRUE(eventually([&] { return countEntries("/proc/self/fd") <= before + 1; }));
}

}  // namespace
}  // namespace platform
