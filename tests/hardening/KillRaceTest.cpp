// killtool on a computer of the test's own, with processes that only the test sees.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <thread>

#include "tests/hardening/OwnProcesses.h"
#include "tests/hardening/Surroundings.h"
#include "tests/support/RunningProgram.h"
#include "tests/support/Sanitizers.h"

namespace hardening {
namespace {

using support::RunningProgram;

const std::vector<std::string> kKill = {"/helpers/killtool"};

/// A process with a number of its own choosing: clone3(2).
class StrangerOfNumber {
 public:
  StrangerOfNumber(pid_t number, const std::string& program) {
    std::array<int, 2> ready{-1, -1};
    if (::pipe2(ready.data(), O_CLOEXEC) != 0) return;
    clone_args wanted{};
    wanted.exit_signal = SIGCHLD;
    wanted.set_tid = reinterpret_cast<std::uintptr_t>(&number);
    wanted.set_tid_size = 1;
    pid_ = static_cast<pid_t>(::syscall(SYS_clone3, &wanted, sizeof wanted));
    if (pid_ == 0) {
      ::dup2(ready[1], STDOUT_FILENO);
      ::execl(program.c_str(), program.c_str(), "polite", nullptr);
      ::_exit(127);
    }
    ::close(ready[1]);
    char byte = 0;
    isReady_ = ::read(ready[0], &byte, 1) == 1;
    ::close(ready[0]);
  }
  ~StrangerOfNumber() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  StrangerOfNumber(const StrangerOfNumber&) = delete;
  StrangerOfNumber& operator=(const StrangerOfNumber&) = delete;

  [[nodiscard]] bool lives() const {
    siginfo_t info{};
    return isReady_ && ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == 0;
  }

 private:
  pid_t pid_ = -1;
  bool isReady_ = false;
};

/// Under a sanitizer, which makes many calls of its own and takes long, not before each.
constexpr int kStep = support::kIsSanitized ? 5 : 1;

class KillRaceTest : public ::testing::Test {
 protected:
  void SetUp() override { QUILLMEND_NEEDS_ROOT_HERE(); }
};

TEST_F(KillRaceTest, ANumberThatAStrangerGetsBeforeAnyCallIsNotSignalled) {
  amongOwnProcesses([](const AttackedComputer& computer) {
    const std::string program = installTarget(computer, kQmaster);
    const std::string other = installTarget(computer, "/elsewhere/controller");
    int calls = 0;
    // Until a run has no such call: one without its target makes fewer than the next may.
    for (int call = 1; call <= calls + 1 && !HasFailure(); call += kStep) {
      SCOPED_TRACE("call " + std::to_string(call));
      RunningProgram target(program, {"polite"});
      const pid_t number = target.pid();
      std::unique_ptr<StrangerOfNumber> stranger;
      const Finished finished = computer.run(kKill, [&](const Call& now) {
        if (now.index != call) return kProceed;
        ::kill(number, SIGKILL);
        target.wait();
        stranger = std::make_unique<StrangerOfNumber>(number, other);
        EXPECT_TRUE(stranger->lives());
        return kProceed;
      });
      EXPECT_TRUE(!stranger || stranger->lives());
      EXPECT_EQ(finished.exitStatus, 0) << finished.errors;
      calls = finished.calls;
    }
    EXPECT_GT(calls, 20);
  });
}

TEST_F(KillRaceTest, ANumberThatTheNextDaemonOfThatProgramGetsIsNotSignalledTwice) {
  amongOwnProcesses([](const AttackedComputer& computer) {
    const std::string program = installTarget(computer, kQmaster);
    RunningProgram target(program, {"polite"});
    const pid_t number = target.pid();
    // Who has a number is told by when he was started, to a hundredth of a second.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    std::unique_ptr<StrangerOfNumber> next;
    const Finished finished = computer.run(kKill, [&](const Call& now) {
      if (now.number != SYS_pidfd_send_signal || next) return kProceed;
      ::kill(number, SIGKILL);
      target.wait();
      next = std::make_unique<StrangerOfNumber>(number, program);
      return kProceed;
    });
    ASSERT_TRUE(next != nullptr);
    EXPECT_TRUE(next->lives()) << "it was started after the tool was";
    EXPECT_EQ(finished.exitStatus, 0) << finished.errors;
  });
}

TEST_F(KillRaceTest, WhoeverCallsItselfLikeADaemonLives) {
  amongOwnProcesses([](const AttackedComputer& computer) {
    const std::string program = installTarget(computer, "/Users/alice/bin/qmasterd");
    RunningProgram spoofed(program, {"polite"}, [&program] {
      ::prctl(PR_SET_NAME, "qmasterd");
      if (::setgid(AttackedComputer::kAlice) != 0 || ::setuid(AttackedComputer::kAlice) != 0) ::_exit(1);
      std::string name = "/usr/sbin/qmasterd";
      std::string role = "polite";
      char* const values[] = {name.data(), role.data(), nullptr};
      ::execv(program.c_str(), values);
    });
    EXPECT_EQ(computer.run(kKill).exitStatus, 0);
    EXPECT_FALSE(spoofed.hasEnded());
  });
}

TEST_F(KillRaceTest, AProgramOfQmastersEndsWhoeverRunsItAndWhateverStateItIsIn) {
  amongOwnProcesses([](const AttackedComputer& computer) {
    const std::string program = installTarget(computer, kQmaster);
    RunningProgram ofAlice(program, {"polite"}, [] {
      if (::setgid(AttackedComputer::kAlice) != 0 || ::setuid(AttackedComputer::kAlice) != 0) ::_exit(1);
    });
    RunningProgram stoppedAndDeaf(program, {"stubborn"});
    ::kill(stoppedAndDeaf.pid(), SIGSTOP);
    EXPECT_EQ(computer.run(kKill).exitStatus, 0);
    EXPECT_TRUE(ofAlice.hasEnded());
    EXPECT_EQ(stoppedAndDeaf.waitForSignal(), SIGKILL);
  });
}

/// More daemons than a small limit leaves descriptors.
TEST_F(KillRaceTest, AllDaemonsEndInWhateverSurroundings) {
  amongOwnProcesses([](const AttackedComputer& computer) {
    constexpr int kDaemons = 40;
    const std::string program = installTarget(computer, kQmaster);
    for (const Surrounding& surrounding : surroundings()) {
      SCOPED_TRACE(surrounding.name);
      std::vector<std::unique_ptr<RunningProgram>> daemons;
      for (int i = 0; i < kDaemons; ++i) {
        daemons.push_back(std::make_unique<RunningProgram>(program, std::vector<std::string>{"polite"}));
      }
      const Snapshot outside = computer.outside();
      const Finished finished = computer.run(kKill, nullptr, surrounding.inChild);
      EXPECT_EQ(finished.exitStatus, 0) << finished.errors;
      const auto ended = std::count_if(daemons.begin(), daemons.end(),
                                       [](const auto& daemon) { return daemon->hasEnded(); });
      EXPECT_EQ(ended, kDaemons);
      EXPECT_THAT(differences(outside, computer.outside()), ::testing::IsEmpty());
    }
  });
}

TEST_F(KillRaceTest, ItselfAndWhoeverStartedItLive) {
  amongOwnProcesses([](const AttackedComputer& computer) {
    static_cast<void>(installTarget(computer, kQmaster));
    const Finished finished = computer.run({kQmaster, "run", "/helpers/killtool"});
    EXPECT_EQ(finished.exitStatus, 0) << finished.errors;
  });
}

}  // namespace
}  // namespace hardening
