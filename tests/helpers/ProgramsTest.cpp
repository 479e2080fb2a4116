// The programs themselves, as a repair starts them.
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "tests/helpers/LogSocket.h"
#include "tests/helpers/SystemCallCount.h"
#include "tests/helpers/TestVolume.h"

namespace helpers {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

struct Finished {
  int exitStatus = -1;
  std::string standardError;
};

/// Runs a program; `inChild` prepares the process that becomes it.
Finished run(std::vector<std::string> command, const std::function<void()>& inChild = nullptr) {
  std::vector<char*> values;
  for (std::string& value : command) values.push_back(value.data());
  values.push_back(nullptr);
  int errors[2];
  if (pipe(errors) != 0) return {};
  const pid_t child = fork();
  if (child == 0) {
    dup2(errors[1], 2);
    close(errors[0]);
    close(errors[1]);
    if (inChild) inChild();
    execv(values[0], values.data());
    _exit(127);
  }
  close(errors[1]);
  Finished finished;
  char block[4096];
  for (ssize_t count = 0; (count = read(errors[0], block, sizeof block)) > 0;) {
    finished.standardError.append(block, static_cast<std::size_t>(count));
  }
  close(errors[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFEXITED(status)) finished.exitStatus = WEXITSTATUS(status);
  return finished;
}

/// The test's folder under its real path, with a volume of its own: what is trashed there stays there.
/// One of the places that a spool folder may be at, whosever it is.
constexpr const char* kSpool = "Application Support/Apple Qmaster/Storage";

class ProgramsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    QUILLMEND_NEEDS_ROOT();
    volume_.mountVolume("disk");
  }
  std::string path(const std::string& place) { return volume_.path("disk/" + place); }

  /// What is in the trash of the volume, whoever's it is: that depends on who is at this computer's console.
  std::vector<std::string> trashed() {
    const auto users = volume_.names("disk/.Trashes");
    return users.size() == 1 ? volume_.names("disk/.Trashes/" + users[0]) : std::vector<std::string>();
  }

  TestVolume volume_;
};

TEST_F(ProgramsTest, TrashtoolMovesAFile) {
  volume_.makeFile("disk/file");
  const Finished finished = run({TRASHTOOL, path("file")});
  EXPECT_EQ(finished.exitStatus, 0) << finished.standardError;
  EXPECT_THAT(trashed(), ::testing::ElementsAre("file"));
}

TEST_F(ProgramsTest, ChowntoolGivesToRootAndWheel) {
  volume_.makeFile("disk/tree/file");
  volume_.own("disk/tree/file", TestVolume::kBob);
  EXPECT_EQ(run({CHOWNTOOL, "-R", "root:wheel", path("tree")}).exitStatus, 0);
  EXPECT_EQ(volume_.status("disk/tree/file").st_uid, 0U);
  EXPECT_EQ(volume_.status("disk/tree/file").st_gid, 0U);
}

TEST_F(ProgramsTest, ChmodtoolChangesWithAndWithoutTheTree) {
  volume_.makeFile("disk/tree/file", "x", 0600);
  EXPECT_EQ(run({CHMODTOOL, "700", path("tree")}).exitStatus, 0);
  EXPECT_EQ(run({CHMODTOOL, "-R", "ugo+r", path("tree")}).exitStatus, 0);
  EXPECT_EQ(volume_.mode("disk/tree"), 0744U);
  EXPECT_EQ(volume_.mode("disk/tree/file"), 0644U);
}

TEST_F(ProgramsTest, RefusalsHaveTheirStatusAndAMessage) {
  const std::vector<std::pair<std::vector<std::string>, int>> refused = {
      {{TRASHTOOL, "StartupItems/Qmaster/.disabled"}, 64},
      {{TRASHTOOL}, 64},
      {{TRASHTOOL, "/"}, 77},
      {{TRASHTOOL, "-dircontents", "/usr/.."}, 77},
      {{TRASHTOOL, "/usr"}, 77},
      {{TRASHTOOL, "-spooldir", "/var/"}, 77},
      {{CHOWNTOOL, "-R", "root", "//"}, 77},
      {{CHOWNTOOL}, 64},
      {{CHMODTOOL, "-R", "755", "/etc"}, 77},
      {{CHMODTOOL, "755", "/dev/null"}, 77},
      {{CHMODTOOL}, 64},
      {{KILLTOOL, "-9"}, 64}};
  for (const auto& [command, status] : refused) {
    const Finished finished = run(command);
    EXPECT_EQ(finished.exitStatus, status) << command.back();
    EXPECT_THAT(finished.standardError, ::testing::EndsWith("\n"));
  }
}

TEST_F(ProgramsTest, EachFailureIsOneLineWithTheNameOfTheTool) {
  volume_.makeFile("disk/tree/a\nb");
  volume_.makeFile("disk/outside");
  ASSERT_EQ(link(path("outside").c_str(), path("tree/c\nd").c_str()), 0);
  const Finished finished = run({CHOWNTOOL, "-R", "4301", path("tree")});
  EXPECT_EQ(finished.exitStatus, 1);
  EXPECT_EQ(finished.standardError,
            "chowntool: " + path("tree/") + "c\\nd: has further hard links, left as it is\n");
}

/// Makes a socket this process's system log, in a mount namespace of its own.
void becomeTheSystemLog(const std::string& socket) {
  const bool done = unshare(CLONE_NEWNS) == 0 &&
                    mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                    mount("tmpfs", "/dev", "tmpfs", 0, nullptr) == 0 &&
                    close(open("/dev/log", O_CREAT | O_WRONLY, 0600)) == 0 &&
                    mount(socket.c_str(), "/dev/log", nullptr, MS_BIND, nullptr) == 0;
  if (!done) _exit(126);
}

TEST_F(ProgramsTest, EachToolTellsTheSystemLogWhatItCouldNotDo) {
  const LogSocket log(path("log"));
  const auto logged = [this] { becomeTheSystemLog(path("log")); };
  const std::vector<std::vector<std::string>> refused = {
      {TRASHTOOL, "/usr"}, {CHOWNTOOL, "-R", "root", "/usr"}, {CHMODTOOL, "-R", "755", "/usr"}};
  for (const auto& command : refused) {
    const Finished finished = run(command, logged);
    EXPECT_EQ(finished.exitStatus, 77);
    EXPECT_THAT(log.receive(), HasSubstr("tool["));
  }
  EXPECT_EQ(log.receive(), "nothing");
}

TEST_F(ProgramsTest, TrashtoolTellsTheSystemLogWhereItMovedThingsTo) {
  const LogSocket log(path("log"));
  const auto logged = [this] { becomeTheSystemLog(path("log")); };
  volume_.makeFile("disk/file");
  volume_.makeFile("disk/history/entry");
  volume_.makeFile(std::string("disk/") + kSpool + "/segment");
  EXPECT_EQ(run({TRASHTOOL, path("file")}, logged).exitStatus, 0);
  EXPECT_THAT(log.receive(),
              ::testing::MatchesRegex(".*: " + path("file") + ": moved to " + path(".Trashes/[0-9]+/file")));
  EXPECT_EQ(run({TRASHTOOL, "-dircontents", path("history")}, logged).exitStatus, 0);
  EXPECT_THAT(log.receive(), ::testing::MatchesRegex(".*: " + path("history") + "/[*]: moving to " +
                                                     path(".Trashes/[0-9]+")));
  EXPECT_EQ(run({TRASHTOOL, "-spooldir", path(kSpool)}, logged).exitStatus, 0);
  EXPECT_THAT(log.receive(), ::testing::MatchesRegex(".*: " + path(kSpool) + ": moved to " +
                                                     path(".Trashes/[0-9]+/Storage [-0-9. ]+")));
  EXPECT_EQ(log.receive(), "nothing");
}

TEST_F(ProgramsTest, ClosedDescriptorsDoNoHarm) {
  volume_.makeFile("disk/tree/file", "untouched", 0600);
  volume_.makeFile("disk/outside");
  ASSERT_EQ(link(path("outside").c_str(), path("tree/linked").c_str()), 0);
  const auto closeAll = [] {
    for (int number = 0; number <= 2; ++number) close(number);
  };
  EXPECT_EQ(run({CHMODTOOL, "-R", "640", path("tree")}, closeAll).exitStatus, 1);
  EXPECT_EQ(volume_.mode("disk/tree/file"), 0640U);
  EXPECT_EQ(volume_.read("disk/tree/file"), "untouched");
  EXPECT_EQ(volume_.read("disk/outside"), "text");
}

TEST_F(ProgramsTest, ABrokenStandardErrorDoesNotStopTheWork) {
  volume_.makeFile("disk/outside");
  for (const char* name : {"a", "b", "y", "z"}) volume_.makeFile(std::string("disk/tree/") + name, "x", 0600);
  ASSERT_EQ(link(path("outside").c_str(), path("tree/linked").c_str()), 0);
  const auto breakErrors = [] {
    int broken[2];
    if (pipe(broken) != 0) _exit(1);
    close(broken[0]);
    dup2(broken[1], 2);
    std::signal(SIGPIPE, SIG_DFL);
  };
  EXPECT_EQ(run({CHMODTOOL, "-R", "644", path("tree")}, breakErrors).exitStatus, 0);  // outside has that mode
  EXPECT_EQ(run({CHMODTOOL, "-R", "600", path("tree")}, breakErrors).exitStatus, 1);
  for (const char* name : {"a", "b", "y", "z"})
    EXPECT_EQ(volume_.mode(std::string("disk/tree/") + name), 0600U);
}

TEST_F(ProgramsTest, TheCallersEnvironmentMaskAndSignalsDoNotMatter) {
  volume_.makeFile("disk/file");
  volume_.makeFolder(std::string("disk/") + kSpool);
  volume_.makeFile(std::string("disk/") + kSpool + "/x");
  chmod(path(kSpool).c_str(), 0777);
  const auto odd = [] {
    setenv("HOME", "/nowhere", 1);
    setenv("TMPDIR", "/nowhere", 1);
    setenv("PATH", "", 1);
    setenv("IFS", "/", 1);
    setenv("LC_ALL", "xx_XX.bogus", 1);
    umask(0777);
    std::signal(SIGCHLD, SIG_IGN);
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
    if (chdir("/proc") != 0) _exit(1);
  };
  EXPECT_EQ(run({TRASHTOOL, path("file")}, odd).exitStatus, 0);
  EXPECT_EQ(run({TRASHTOOL, "-spooldir", path(kSpool)}, odd).exitStatus, 0);
  EXPECT_THAT(trashed(), SizeIs(2));
  EXPECT_EQ(volume_.mode(std::string("disk/") + kSpool), 0777U);
}

TEST_F(ProgramsTest, WithoutAnyArgumentVectorNothingHappens) {
  for (const char* program : {TRASHTOOL, CHOWNTOOL, CHMODTOOL}) {
    const pid_t child = fork();
    if (child == 0) {
      char* const none[] = {nullptr};
      execv(program, none);
      _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 64);
  }
}

TEST_F(ProgramsTest, TerminatedInTheMiddleEachEntryIsEitherHereOrInTheTrash) {
  constexpr int kFiles = 3000;
  for (int i = 0; i < kFiles; ++i) volume_.makeFile("disk/full/" + std::to_string(i), "");
  const pid_t child = fork();
  if (child == 0) {
    execl(TRASHTOOL, TRASHTOOL, "-dircontents", path("full").c_str(), nullptr);
    _exit(127);
  }
  while (trashed().empty()) usleep(100);
  kill(child, SIGTERM);
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  const std::size_t left = volume_.names("disk/full").size();
  EXPECT_EQ(WEXITSTATUS(status), left == 0 ? 0 : 1);
  EXPECT_EQ(left + trashed().size(), static_cast<std::size_t>(kFiles));
}

TEST_F(ProgramsTest, EmptyingASpoolFolderTakesAsManySystemCallsForTenEntriesAsForAHundredThousand) {
  std::vector<long> calls;
  for (const int entries : {10, 100'000}) {
    volume_.makeFolder(std::string("disk/") + kSpool);
    const int folder = open(path(kSpool).c_str(), O_PATH | O_DIRECTORY);
    for (int i = 0; i < entries; ++i)
      close(openat(folder, std::to_string(i).c_str(), O_CREAT | O_WRONLY, 0600));
    close(folder);
    const CountedRun counted = countSystemCalls({TRASHTOOL, "-spooldir", path(kSpool)});
    ASSERT_EQ(counted.exitStatus, 0);
    EXPECT_THAT(volume_.names(std::string("disk/") + kSpool), IsEmpty());
    calls.push_back(counted.systemCalls);
  }
  EXPECT_GT(calls[0], 10);
  EXPECT_NEAR(static_cast<double>(calls[0]), static_cast<double>(calls[1]), 30);
  EXPECT_THAT(trashed(), SizeIs(2));
}

/// Of each further entry; its owner and mode are `right` where the tool has nothing to change.
long callsOfAnEntry(const TestVolume& volume, const std::string& folder, bool areRight,
                    const std::vector<std::string>& command) {
  constexpr int kFew = 10;
  constexpr int kMany = 1010;
  std::vector<long> calls;
  for (const int entries : {kFew, kMany}) {
    for (int i = 0; i < entries; ++i) volume.makeFile(folder + std::to_string(i), "", areRight ? 0644 : 0600);
    const CountedRun counted = countSystemCalls(command);
    EXPECT_EQ(counted.exitStatus, 0);
    calls.push_back(counted.systemCalls);
  }
  return std::lround(static_cast<double>(calls[1] - calls[0]) / (kMany - kFew));
}

TEST_F(ProgramsTest, AnEntryCostsNoMoreSystemCallsThanItNeeds) {
  constexpr long kOldKernel = 1;  // before 6.6 there are two ways of setting a mode, of which one fails
  const std::vector<std::string> command = {CHMODTOOL, "-R", "a+r", path("tree")};
  EXPECT_EQ(callsOfAnEntry(volume_, "disk/tree/right/", true, command), 1) << "a look";
  std::filesystem::remove_all(path("tree"));
  EXPECT_LE(callsOfAnEntry(volume_, "disk/tree/wrong/", false, command), 6 + kOldKernel)
      << "a look, opening, a look again, its name, the change, closing";
}

}  // namespace
}  // namespace helpers
