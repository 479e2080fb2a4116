// The log's files under faults: each system call of a rotation fails, or is the last of its process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tests/hardening/services/LogHome.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using hardening::Home;
using support::TemporaryFolder;
using testing::HasSubstr;
using Lines = std::vector<std::string>;

constexpr const char* kStrace = "/usr/bin/strace";
/// The calls that reach a file system. Memory, locks and signals are left out: they say nothing of the log.
constexpr const char* kFileCalls =
    "openat,newfstatat,fstat,statx,read,write,lseek,fcntl,ftruncate,fsync,fchmod,fchown,close,mkdirat,"
    "renameat,renameat2,linkat,unlinkat,getdents64,readlinkat,faccessat2,openat2,getrandom";

/// A system call of the rotation: which of its name it is in the whole run.
struct Call {
  std::string name;
  int number = 0;
  bool isInjected = false;  ///< strace has seen to its result
};

support::ProgramRun run(const Home& home, const Lines& strace, const Lines& what) {
  // A leak checker cannot look at a process that is being traced.
  Lines command = {kStrace, "-qq", "-E", "ASAN_OPTIONS=detect_leaks=0"};
  command.insert(command.end(), strace.begin(), strace.end());
  command.insert(command.end(), {LOG_PROGRAM, home.path(), "first", "1"});
  command.insert(command.end(), what.begin(), what.end());
  return support::runProgram(command);
}

/// The calls between the two marks in what strace has written.
std::vector<Call> callsBetweenMarks(const std::string& trace) {
  std::vector<Call> calls;
  std::map<std::string, int> counts;
  int marks = 0;
  std::istringstream lines(trace);
  for (std::string line; std::getline(lines, line);) {
    const std::string name = line.substr(0, line.find('('));
    if (name == "getppid") ++marks;
    const int number = ++counts[name];
    const bool isInjected = line.ends_with(" (INJECTED)");
    if (marks == 1 && name != "getppid") calls.push_back({name, number, isInjected});
  }
  return calls;
}

/// What a rotation of a full set calls, found out once.
const std::vector<Call>& callsOfRotation() {
  static const std::vector<Call> calls = [] {
    const Home home;
    const TemporaryFolder folder;
    const std::string trace = folder / "trace";
    const auto whole = run(home, {"-o", trace, "-e", std::string("trace=getppid,") + kFileCalls}, {"new"});
    EXPECT_EQ(whole.status, 0) << whole.output;
    return callsBetweenMarks(support::contentOf(trace));
  }();
  return calls;
}

/// Something that strace does to a call of the program's main thread, and where it writes what it has seen.
class Injection {
 public:
  Injection(Call call, const std::string& what) : call_(std::move(call)), what_(what) {}

  [[nodiscard]] Lines options() const {
    return {"-o", trace(),
            "-e", "trace=getppid," + call_.name,
            "-e", "inject=" + call_.name + ":" + what_ + ":when=" + std::to_string(call_.number)};
  }
  /// Whether it has befallen that very call, within the rotation.
  [[nodiscard]] bool wasMade() const {
    const auto calls = callsBetweenMarks(support::contentOf(trace()));
    return std::any_of(calls.begin(), calls.end(), [this](const Call& call) {
      return call.name == call_.name && call.number == call_.number && call.isInjected;
    });
  }
  [[nodiscard]] std::string seen() const { return support::contentOf(trace()); }

 private:
  [[nodiscard]] std::string trace() const { return folder_ / "trace"; }

  Call call_;
  std::string what_;
  TemporaryFolder folder_;
};

class LogFaultsTest : public testing::TestWithParam<const char*> {
 protected:
  static void expectNothingLost(const Home& home) {
    for (int number = 1; number <= 4; ++number) {
      EXPECT_TRUE(home.has("was generation " + std::to_string(number))) << home.everything();
    }
  }
  /// Whether a fault of that kind can befall a call: only what changes a volume is short of room or refused
  /// on one that cannot be written to.
  static bool isApt(const std::string& fault, const std::string& call) {
    const bool onlyLooks = call == "newfstatat" || call == "fstat" || call == "statx" || call == "lseek" ||
                           call == "read" || call == "close" || call == "fcntl" || call == "getdents64";
    // A sanitizer finds out by write(2) to a pipe whether there is memory, and gives up where that fails.
    const bool isSanitizers = support::kIsSanitized && (call == "write" || call == "close");
    return !isSanitizers && (fault == "EIO" || !onlyLooks);
  }
};

}  // namespace

TEST_P(LogFaultsTest, AFailingCallOfARotationLosesNothingAndTheLogGoesOn) {
  const std::string fault = GetParam();
  ASSERT_GE(callsOfRotation().size(), 15U) << "the rotation was not seen";
  for (const Call& call : callsOfRotation()) {
    if (!isApt(fault, call.name)) continue;
    SCOPED_TRACE(call.name + " number " + std::to_string(call.number) + " fails with " + fault);
    const Home home;
    const Injection injection(call, "error=" + fault);
    const auto faulty = run(home, injection.options(), {"new", "append"});
    EXPECT_EQ(faulty.status, 0) << faulty.output;
    EXPECT_TRUE(injection.wasMade()) << injection.seen();
    expectNothingLost(home);
    EXPECT_THAT(home.content(1), HasSubstr(" - first line 0\n")) << faulty.output;
  }
}

/// Every entry behind a rotation waits for it.
TEST_F(LogFaultsTest, ARotationDoesNotWaitForTheDisk) {
  ASSERT_GE(callsOfRotation().size(), 15U) << "the rotation was not seen";
  for (const Call& call : callsOfRotation()) EXPECT_NE(call.name, "fsync");
}

namespace {

/// Under sanitizers, where each run takes many times as long, that which can befall any call.
std::vector<const char*> faults() {
  if (support::kIsSanitized) return {"EIO"};
  return {"ENOSPC", "EIO", "EROFS"};
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Faults, LogFaultsTest, testing::ValuesIn(faults()),
                         [](const auto& fault) { return std::string(fault.param); });

TEST_F(LogFaultsTest, AProcessKilledBeforeAnyCallOfARotationLosesNothingAndTheNextGoesOn) {
  const std::vector<Call>& calls = callsOfRotation();
  ASSERT_GE(calls.size(), 15U) << "the rotation was not seen";
  for (std::size_t at = 0; at < calls.size(); at += support::kIsSanitized ? 5 : 1) {
    const Call& call = calls[at];
    SCOPED_TRACE("killed before " + call.name + " number " + std::to_string(call.number));
    const Home home;
    const Injection injection(call, "signal=KILL");
    const auto killed = run(home, injection.options(), {"new", "append"});
    EXPECT_EQ(killed.status, 128 + SIGKILL) << killed.output << injection.seen();
    expectNothingLost(home);
    const auto next = support::runProgram({LOG_PROGRAM, home.path(), "second", "1", "new", "append"});
    EXPECT_EQ(next.status, 0) << next.output;
    EXPECT_THAT(home.content(1), testing::StartsWith("Log started: "));
    EXPECT_THAT(home.content(1), HasSubstr(" - second line 0\n"));
    // A second rotation may drop the one that had become the fifth.
    for (int number = 1; number <= 3; ++number) {
      EXPECT_TRUE(home.has("was generation " + std::to_string(number))) << home.everything();
    }
  }
}

/// RLIMIT_FSIZE stands for a volume that fills up within a line and has room again later.
TEST_F(LogFaultsTest, ALineThatOnlyHalfFitsIsTakenBackAndTheLogGoesOnWhenThereIsRoom) {
  const Home home;
  const rlimit unlimited{RLIM_INFINITY, RLIM_INFINITY};
  const rlimit little{2000, RLIM_INFINITY};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &little), 0);
  const auto full = support::runProgram({LOG_PROGRAM, home.path(), "a", "100", "new", "append", "room"});
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &unlimited), 0);
  EXPECT_EQ(full.status, 0);
  EXPECT_THAT(full.output, HasSubstr("Exception writing to log: "));
  const std::string log = home.content(1);
  EXPECT_LT(log.size(), 2100U);
  std::istringstream lines(log.substr(log.find(" - a line 0") - 25));
  std::string line;
  std::getline(lines, line);
  int number = 0;
  for (; line.find(" - a line " + std::to_string(number)) == 25; std::getline(lines, line)) ++number;
  EXPECT_GT(number, 20);
  EXPECT_THAT(line, testing::MatchesRegex("[-0-9]+ [0-9:]+ [+]0000 - a has room"))
      << "and no half one before it";
}

TEST_F(LogFaultsTest, ANewLogThatFoundNoRoomIsBegunByTheFirstEntryThatDoes) {
  const Home home;
  const rlimit unlimited{RLIM_INFINITY, RLIM_INFINITY};
  const rlimit little{10, RLIM_INFINITY};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &little), 0);
  const auto full = support::runProgram({LOG_PROGRAM, home.path(), "a", "1", "new", "append", "room"});
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &unlimited), 0);
  EXPECT_EQ(full.status, 0);
  EXPECT_THAT(full.output, HasSubstr("Unable to create log file "));
  EXPECT_THAT(full.output, HasSubstr("Unable to log the following information: a line 0\n"));
  expectNothingLost(home);
  EXPECT_THAT(home.content(1), testing::StartsWith("Log started: "));
  EXPECT_THAT(home.content(1), testing::EndsWith(" - a has room\n"));
}
