// Root begins a new log in a user's home while the user exchanges what lies on the way for links, at each of
// the program's system calls in turn.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>

#include "tests/hardening/AttackedComputer.h"
#include "tests/hardening/Swap.h"

namespace hardening {
namespace {

constexpr const char* kLogs = "/Library/Logs/Vordenworks";

std::string generation(int number) {
  return "Quillmend." + std::to_string(number) + ".log";
}

std::vector<Target> targetsOfALog() {
  const std::string home = "/Users/alice";
  const std::string outside = "/outside/alice";
  return {{"/Users", "alice", outside},
          {home, "Library", outside + "/Library"},
          {home + "/Library/Logs", "Vordenworks", outside + kLogs},
          {home + kLogs, generation(1), outside + kLogs + "/" + generation(1)},
          {home + kLogs, generation(5), "/outside/secret"}};
}

class LogSwapTest : public ::testing::TestWithParam<Target> {
 protected:
  void SetUp() override {
    QUILLMEND_NEEDS_ROOT_HERE();
    std::filesystem::copy_file(LOG_PROGRAM, computer_.path("/log_program"));
    makeLogs("/outside/alice", 0);
  }

  void makeLogs(const std::string& home, uid_t user) const {
    for (const char* folder : {"/Library", "/Library/Logs", kLogs}) {
      computer_.makeFolder(home + folder);
      computer_.own(home + folder, user);
    }
    for (int number = 1; number <= 5; ++number) {
      const std::string log = home + kLogs + "/" + generation(number);
      computer_.makeFile(log);
      computer_.own(log, user);
    }
  }

  static void beSilent() { ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO); }

  /// Answers whether there was such a call while the new log was begun and its first line was written.
  bool swapAt(Stays stays, int call) const {
    computer_.restore();
    makeLogs("/Users/alice", AttackedComputer::kAlice);
    const Snapshot outside = computer_.outside();
    Swap swap(computer_, GetParam());
    bool isBegun = false;
    int calls = 0;
    const auto exchange = [&](const Call& now) {
      isBegun = isBegun || now.number == SYS_getppid;
      if (!isBegun || !resolvesNames(now.number)) return kProceed;
      if (++calls == call) swap.make();
      if (calls == call + 1 && stays == Stays::no) swap.undo();
      return kProceed;
    };
    const Finished finished =
        computer_.run({"/log_program", "/Users/alice", "root", "1", "new", "append"}, exchange, beSilent);
    EXPECT_EQ(finished.exitStatus, 0) << finished.errors;
    EXPECT_THAT(differences(outside, computer_.outside()), ::testing::IsEmpty());
    return calls >= call;
  }

  AttackedComputer computer_;
};

TEST_P(LogSwapTest, WhatIsExchangedForALinkLeadsNowhere) {
  for (const Stays stays : {Stays::yes, Stays::no}) {
    int call = 1;
    while (swapAt(stays, call) && !HasFailure()) ++call;
    EXPECT_GT(call, 20) << "stopped at that call";
  }
}

std::string nameOfTarget(const ::testing::TestParamInfo<Target>& target) {
  std::string name = target.param.name;
  std::erase(name, '.');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Log, LogSwapTest, ::testing::ValuesIn(targetsOfALog()), nameOfTarget);

}  // namespace
}  // namespace hardening
