// The log at each moment of its beginning: before each system call another program begins the same log, the
// call fails, or the process ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/hardening/SupervisedRun.h"
#include "tests/hardening/services/LogHome.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/Sanitizers.h"

namespace {

using hardening::Call;
using hardening::Home;
using hardening::kKill;
using hardening::kProceed;
using testing::HasSubstr;
using testing::Not;
using Words = std::vector<std::string>;

/// The calls that reach a file system, and the mark.
const std::vector<unsigned> kTold = {
    SYS_getppid,  SYS_openat, SYS_openat2,   SYS_newfstatat, SYS_fstat,      SYS_statx,      SYS_faccessat2,
    SYS_write,    SYS_lseek,  SYS_fcntl,     SYS_ftruncate,  SYS_fchmod,     SYS_fchown,     SYS_mkdirat,
    SYS_renameat, SYS_linkat, SYS_renameat2, SYS_unlinkat,   SYS_getdents64, SYS_readlinkat, SYS_getrandom};

/// Only looks: no lack of room, and no volume that cannot be written to, makes it fail.
bool onlyLooks(int call) {
  constexpr auto kLooks = std::to_array<int>({SYS_newfstatat, SYS_fstat, SYS_statx, SYS_faccessat2, SYS_lseek,
                                              SYS_fcntl, SYS_getdents64, SYS_readlinkat});
  return std::find(kLooks.begin(), kLooks.end(), call) != kLooks.end();
}

enum class Until { mark, end };

/// Lets something happen before one call behind the first mark, up to the next one or to the end.
class Moment {
 public:
  Moment(int at, Until until, std::function<int(const Call&)> action)
      : at_(at), until_(until), action_(std::move(action)) {}

  int operator()(const Call& call) {
    if (call.number == SYS_getppid) ++marks_;
    const bool isCounted =
        call.number != SYS_getppid && (marks_ == 1 || (marks_ > 1 && until_ == Until::end));
    return isCounted && ++count_ == at_ ? action_(call) : kProceed;
  }
  [[nodiscard]] bool hasCome() const { return count_ >= at_; }

 private:
  int at_;
  Until until_;
  std::function<int(const Call&)> action_;
  int marks_ = 0;
  int count_ = 0;
};

/// What it says on the system console is among its errors.
hardening::Finished runSupervised(const Home& home, const Words& what, Moment& moment) {
  Words command = {LOG_PROGRAM, home.path(), "first", "2"};
  command.insert(command.end(), what.begin(), what.end());
  return hardening::run(
      command, [] { ::dup2(STDERR_FILENO, STDOUT_FILENO); }, std::ref(moment), kTold);
}

class LogMomentsTest : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  }

  static void expectGenerations(const Home& home, int last) {
    for (int number = 1; number <= last; ++number) {
      EXPECT_TRUE(home.has("was generation " + std::to_string(number))) << home.everything();
    }
  }
  static void expectLines(const Home& home, const std::string& writer) {
    for (const char* const number : {"0", "1"}) {
      EXPECT_TRUE(home.has(" - " + writer + " line " + number)) << home.everything();
    }
  }
};

/// What lies there when two programs begin.
struct Found {
  const char* name;
  bool hasLogs;
  bool hasFolder;
};

class TwoBeginningsTest : public LogMomentsTest, public testing::WithParamInterface<Found> {
 protected:
  static void prepare(const Home& home) {
    if (!GetParam().hasLogs) std::filesystem::remove_all(home.logs());
    if (GetParam().hasFolder) std::filesystem::create_directories(home.logs());
  }

  /// Whether there was such a moment.
  static bool beginAt(int at) {
    const Home home;
    prepare(home);
    support::ProgramRun other;
    Moment moment(at, Until::end, [&](const Call&) {
      other = support::runProgram({LOG_PROGRAM, home.path(), "other", "2", "new", "append"});
      return kProceed;
    });
    const auto first = runSupervised(home, {"new", "append"}, moment);
    if (!moment.hasCome()) return false;
    EXPECT_EQ(first.exitStatus, 0) << first.errors;
    EXPECT_EQ(other.status, 0) << other.output;
    expectLines(home, "first");
    expectLines(home, "other");
    EXPECT_THAT(home.content(1), testing::StartsWith("Log started: "));
    // Two beginnings drop the fifth and the fourth.
    if (GetParam().hasLogs) expectGenerations(home, 3);
    return true;
  }
};

}  // namespace

TEST_P(TwoBeginningsTest, NeitherLosesALineWheneverTheOtherBegins) {
  int at = 1;
  for (bool hasCome = true; hasCome; at += support::kIsSanitized ? 5 : 1) {
    SCOPED_TRACE("the other begins before call " + std::to_string(at));
    hasCome = beginAt(at);
  }
  EXPECT_GE(at, 15) << "the beginning was not seen";
}

INSTANTIATE_TEST_SUITE_P(Places, TwoBeginningsTest,
                         testing::Values(Found{"FullSet", true, true}, Found{"EmptyFolder", false, true},
                                         Found{"NoFolder", false, false}),
                         [](const auto& found) { return std::string(found.param.name); });

namespace {

struct Fault {
  const char* name;
  int result;  ///< of the call: an errno value, or kKill
};

/// The rotation of a full log, which the writes' own thread makes.
class QueuedRotationTest : public LogMomentsTest, public testing::WithParamInterface<Fault> {
 protected:
  static bool isApt(const Call& call) {
    const int result = GetParam().result;
    // A sanitizer finds out by write(2) to a pipe whether there is memory, and gives up where that fails.
    if (support::kIsSanitized && call.number == SYS_write) return result == kKill;
    return result == kKill || result == EIO || !onlyLooks(call.number);
  }

  /// Whether there was such a moment.
  static bool failAt(int at) {
    const Home home;
    bool isKilled = false;
    Moment moment(at, Until::mark, [&](const Call& call) {
      isKilled = GetParam().result == kKill;
      return isApt(call) ? GetParam().result : kProceed;
    });
    const auto first = runSupervised(home, {"append", "full", "room"}, moment);
    if (!moment.hasCome()) return false;
    expectGenerations(home, 4);
    expectLines(home, "first");
    EXPECT_EQ(first.signal, isKilled ? SIGKILL : 0) << first.errors;
    if (!isKilled) {
      EXPECT_TRUE(home.has(" - first has room")) << first.errors << home.everything();
    }
    expectNextGoesOn(home);
    return true;
  }

  static void expectNextGoesOn(const Home& home) {
    const auto next = support::runProgram({LOG_PROGRAM, home.path(), "next", "2", "new", "append"});
    EXPECT_EQ(next.status, 0) << next.output;
    EXPECT_THAT(next.output, Not(HasSubstr("Unable")));
    EXPECT_THAT(home.content(1), HasSubstr(" - next line 1\n"));
    expectGenerations(home, 3);
    expectLines(home, "first");
  }
};

}  // namespace

TEST_P(QueuedRotationTest, LosesNothingAndTheLogGoesOn) {
  int at = 1;
  for (bool hasCome = true; hasCome; at += support::kIsSanitized ? 5 : 1) {
    SCOPED_TRACE(std::string(GetParam().name) + " at call " + std::to_string(at));
    hasCome = failAt(at);
  }
  EXPECT_GE(at, 15) << "the rotation was not seen";
}

INSTANTIATE_TEST_SUITE_P(Faults, QueuedRotationTest,
                         testing::Values(Fault{"Kill", kKill}, Fault{"ENOSPC", ENOSPC}, Fault{"EIO", EIO},
                                         Fault{"EROFS", EROFS}),
                         [](const auto& fault) { return std::string(fault.param.name); });
