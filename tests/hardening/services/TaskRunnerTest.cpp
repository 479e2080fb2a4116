// The task runner with real processes where the system refuses, tools misbehave, and much happens at once.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "diagnostics/TGLog.h"
#include "platform/foundation/Exception.h"
#include "platform/foundation/Text.h"
#include "services/TGTask.h"
#include "tests/hardening/services/HomePlatform.h"
#include "tests/support/FailingCall.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/SingletonScope.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using testing::HasSubstr;
using testing::Optional;
using namespace std::chrono_literals;

constexpr const char* kShell = "/bin/sh";

bool isLong() {
  return std::getenv("QUILLMEND_LONG_TESTS") != nullptr;
}

TGTask::Arguments script(const std::string& text) {
  return {{"-c", text}};
}

std::size_t openDescriptors() {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

/// What they lead to, for a message.
std::string namedDescriptors() {
  std::string names;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    names += entry.path().filename().string() + " -> " +
             std::filesystem::read_symlink(entry.path(), gone).string() + "\n";
  }
  return names;
}

/// No child is left, neither running nor as a zombie.
bool hasNoChild() {
  siginfo_t info{};
  return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) != 0 && errno == ECHILD;
}

/// Whether a condition comes true within ten seconds, while the main thread serves its work.
bool eventually(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + 10s;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    platform::current().mainThread.serveUntilReadable(-1, 1ms);
  }
  return true;
}

/// This computer's clock; whoever sleeps for a second of it is woken when the test says.
class HurriedClock : public platform::Clock {
 public:
  foundation::Date now() override { return own_.now(); }
  std::chrono::nanoseconds uptime() override { return own_.uptime(); }
  void sleep(std::chrono::nanoseconds duration) override {
    own_.sleep(duration == 1s ? second.load() : duration);
  }

  std::atomic<std::chrono::nanoseconds> second{1s};

 private:
  platform::Clock& own_ = platform::current().clock;
};

class TaskRunnerTest : public testing::Test {
 protected:
  /// The lines of the log that tell of a time-out.
  [[nodiscard]] int timeouts() const {
    TGLog::finishWriting();
    int count = 0;
    std::ifstream log(home_ / "Library/Logs/Vordenworks/Quillmend.1.log");
    for (std::string line; std::getline(log, line);) count += line.find(" timed out. ") != line.npos ? 1 : 0;
    return count;
  }

  HurriedClock clock_;

 private:
  support::TemporaryFolder home_;
  hardening::HomePlatform platform_{home_.path(), clock_};
};

/// What the run of a tool throws.
std::string thrown() {
  try {
    TGTask::dataFromTask("/bin/true", std::nullopt, nullptr);
    return "nothing";
  } catch (const foundation::Exception& exception) {
    return exception.reason();
  }
}

struct Refusal {
  const char* name;
  long call;
  std::vector<int> reasons;
};

/// Every reason that the calls' manual pages give, but for a kernel without them. The first means a tool to
/// be there that nobody can run; the others, that there is not enough of something.
std::vector<Refusal> refusals() {
  std::vector<Refusal> all = {
      {"Exec",
       SYS_execve,
       {E2BIG, EACCES, EAGAIN, EFAULT, EINVAL, EIO, EISDIR, ELIBBAD, ELOOP, EMFILE, ENAMETOOLONG, ENFILE,
        ENOENT, ENOEXEC, ENOMEM, ENOTDIR, EPERM, ETXTBSY}},
      {"Fork",
       SYS_clone3,
       {EACCES, EAGAIN, EBUSY, EEXIST, EINVAL, ENOMEM, ENOSPC, EOPNOTSUPP, EPERM, EUSERS}},
      {"Watch", SYS_pidfd_open, {EINVAL, EMFILE, ENFILE, ENODEV, ENOMEM, ESRCH}}};
  // A sanitizer writes what it wants to look at into a pipe of its own, and takes it for no memory then.
  if (!support::kIsSanitized) {
    all.push_back({"Pipe", SYS_pipe2, {EFAULT, EINVAL, EMFILE, ENFILE, ENOMEM, ENOPKG}});
  }
  return all;
}

class TaskRefusalTest : public TaskRunnerTest, public testing::WithParamInterface<Refusal> {};

}  // namespace

TEST_P(TaskRefusalTest, IsThrownWithItsReasonAndLeavesNothing) {
  for (const int reason : GetParam().reasons) {
    const bool isPipe = GetParam().call == SYS_pipe2;  // which a tool whose output is discarded needs not
    support::FailingCall::run(GetParam().call, reason, [reason, isPipe] {
      const std::size_t before = openDescriptors();
      EXPECT_THAT(thrown(), HasSubstr(foundation::systemError(reason, "").localizedDescription()));
      if (!isPipe) {
        EXPECT_THROW(TGTask::runTask("/bin/true", std::nullopt), foundation::Exception);
      }
      EXPECT_EQ(openDescriptors(), before);
      EXPECT_TRUE(hasNoChild());
    });
  }
}

INSTANTIATE_TEST_SUITE_P(Calls, TaskRefusalTest, testing::ValuesIn(refusals()),
                         [](const auto& refusal) { return std::string(refusal.param.name); });

TEST_F(TaskRunnerTest, AToolThatIgnoresItsTerminationIsWaitedForAllTheSame) {
  const auto start = std::chrono::steady_clock::now();
  const int code = TGTask::terminationCodeFromTask(kShell, script("trap '' TERM; sleep 1.5; exit 3"), 1.0s);
  EXPECT_EQ(code, 3);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 1.5s);
}

TEST_F(TaskRunnerTest, ACaptureEndsWhenTheLastHasClosedTheStreams) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_THAT(TGTask::dataFromTask(kShell, script("echo first; (sleep 0.5; echo second) & exit 0"), nullptr),
              Optional(std::string("first\nsecond\n")));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 0.5s);
}

TEST_F(TaskRunnerTest, AToolsExitDoesNotWaitForThoseThatItHasStarted) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(TGTask::terminationCodeFromTask(kShell, script("sleep 5 & exit 4")), 4);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 4s);
}

/// A gibibyte with QUILLMEND_LONG_TESTS.
TEST_F(TaskRunnerTest, VeryMuchOutputIsCapturedWhole) {
  const std::size_t size = isLong() ? 1UL << 30U : 64UL << 20U;
  const auto data =
      TGTask::dataFromTask(kShell, script("yes 0123456789abcde | head -c " + std::to_string(size)), nullptr);
  ASSERT_TRUE(data);
  ASSERT_EQ(data->size(), size);
  EXPECT_EQ(data->substr(size - 16), "0123456789abcde\n");
  const auto lines = static_cast<std::size_t>(std::count(data->begin(), data->end(), '\n'));
  EXPECT_EQ(lines, size / 16);
}

/// Ten thousand with QUILLMEND_LONG_TESTS.
TEST_F(TaskRunnerTest, ManyRunsOfEveryKindLeaveNoZombieAndNoDescriptor) {
  EXPECT_TRUE(TGTask::runTask("/bin/true", std::nullopt));
  TGTask::runTaskAndReturn("/bin/sleep", {{"0.1"}});  // with this the reaper has what it needs
  EXPECT_TRUE(eventually(&hasNoChild));
  const std::size_t before = openDescriptors();
  const std::string names = namedDescriptors();
  for (int round = 0; round < (isLong() ? 2500 : 250); ++round) {
    ASSERT_TRUE(TGTask::runTask("/bin/true", std::nullopt));
    ASSERT_EQ(TGTask::terminationCodeFromTask("/bin/false", std::nullopt), 1);
    ASSERT_THAT(TGTask::dataFromTask("/bin/echo", {{"x"}}, nullptr), Optional(std::string("x\n")));
    TGTask::runTaskAndReturn("/bin/true", std::nullopt);
  }
  EXPECT_TRUE(eventually(&hasNoChild));
  EXPECT_TRUE(eventually([before] { return openDescriptors() <= before; })) << "before:\n"
                                                                            << names << "now:\n"
                                                                            << namedDescriptors();
}

TEST_F(TaskRunnerTest, EightThreadsEachGetTheirOwn) {
  std::vector<std::thread> threads;
  std::atomic<int> right = 0;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([thread, &right] {
      for (int round = 0; round < 40; ++round) {
        const std::string text = foundation::stringWithFormat("thread %i round %i", thread, round);
        const bool isText = TGTask::stringFromTask("/bin/echo", {{"-n", text}}) == text;
        const int code = (8 * round + thread) % 100;
        const bool isCode =
            TGTask::terminationCodeFromTask(kShell, script("exit " + std::to_string(code))) == code;
        right += isText && isCode ? 1 : 0;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(right, 8 * 40);
  EXPECT_TRUE(eventually(&hasNoChild));
}

namespace {

using std::chrono::microseconds;

/// A tool that ends by itself after a while, with 0.
TGTask::Arguments sleepFor(microseconds lifetime) {
  return {{foundation::stringWithFormat("%0.6f", std::chrono::duration<double>(lifetime).count())}};
}

/// Runs such a tool and terminates it from another thread, from a while after its launch on, over and over
/// until it is gone. Answers its termination code.
int codeOfRace(microseconds lifetime, microseconds patience) {
  TGTaskSlot slot;
  std::atomic<bool> hasEnded = false;
  std::thread ender([&] {
    std::optional<std::chrono::steady_clock::time_point> start;
    while (!hasEnded) {
      const auto task = slot.load();
      if (!task || !task->isRunning()) continue;
      const auto now = std::chrono::steady_clock::now();
      if (!start) start = now;
      if (now - *start >= patience) task->terminate();
    }
  });
  const int code = TGTask::terminationCodeFromTask("/bin/sleep", sleepFor(lifetime), &slot);
  hasEnded = true;
  ender.join();
  slot.load()->terminate();  // when it has long ended
  return code;
}

/// Races of a tool's own end with its termination. A tool that was terminated is given less to live the next
/// time, or the other more patience, and the other way round, the more so the longer it comes out the same:
/// the rounds gather where both meet. Both outcomes come, and no other.
void expectEitherAboutTheMoment(
    const std::function<int(microseconds lifetime, microseconds patience)>& race) {
  std::vector<int> codes;
  microseconds lead{0};  // that the tool has; if negative, the other's
  microseconds step{0};
  for (int round = 0; round < (support::kIsSanitized ? 40 : 150); ++round) {
    const int code = race(std::max(lead, 0us), std::max(-lead, 0us));
    step = codes.empty() || codes.back() != code ? 50us : std::min<microseconds>(step * 5 / 4, 5ms);
    lead += code == SIGTERM ? -step : step;
    codes.push_back(code);
  }
  EXPECT_THAT(codes, testing::Each(testing::AnyOf(0, SIGTERM)));
  EXPECT_THAT(codes, testing::Contains(0));
  EXPECT_THAT(codes, testing::Contains(SIGTERM));
  EXPECT_TRUE(eventually(&hasNoChild));
}

}  // namespace

TEST_F(TaskRunnerTest, ATerminationAboutTheMomentOfTheExitIsEither) {
  expectEitherAboutTheMoment(&codeOfRace);
}

/// The log tells of it once where it ended the tool. Where the tool was quicker it may too: the tool ran when
/// it was looked at, and ended before the signal came.
TEST_F(TaskRunnerTest, ATimeoutAboutTheMomentOfTheExitIsEither) {
  const foundation::SingletonScope<TGLog> log;
  TGLog::createNewLog("Quillmend");
  int before = 0;
  expectEitherAboutTheMoment([&](microseconds lifetime, microseconds patience) {
    clock_.second = patience;
    auto task = TGTask::create();
    const int code = task->terminationCodeFromTimedTask("/bin/sleep", sleepFor(lifetime), 1s);
    EXPECT_TRUE(hasNoChild());
    const std::weak_ptr<TGTask> heldByTimer = std::exchange(task, nullptr);
    EXPECT_TRUE(eventually([&] { return heldByTimer.expired(); }));
    const int after = timeouts();
    EXPECT_LE(after, before + 1);
    EXPECT_TRUE(after > before || code == 0);
    before = after;
    return code;
  });
}

TEST_F(TaskRunnerTest, ATerminationBetweenTheExitAndItsNoticeChangesNothing) {
  const auto task =
      platform::current().subprocesses.create({.launchPath = kShell, .arguments = {"-c", "exit 5"}});
  task->launch();
  siginfo_t ended{};
  ASSERT_EQ(::waitid(P_ALL, 0, &ended, WEXITED | WNOWAIT), 0);
  task->terminate();
  task->waitUntilExit();
  EXPECT_EQ(task->terminationStatus(), 5);
  task->terminate();
  EXPECT_EQ(task->terminationStatus(), 5);
  EXPECT_TRUE(hasNoChild());
}

TEST_F(TaskRunnerTest, ATimeoutBetweenTheExitAndItsNoticeChangesNothing) {
  const foundation::SingletonScope<TGLog> log;
  TGLog::createNewLog("Quillmend");
  const auto task = TGTask::create();
  task->setTheTask(
      platform::current().subprocesses.create({.launchPath = kShell, .arguments = {"-c", "exit 5"}}));
  task->theTask()->launch();
  siginfo_t ended{};
  ASSERT_EQ(::waitid(P_ALL, 0, &ended, WEXITED | WNOWAIT), 0);
  task->timeout();
  EXPECT_EQ(task->theTask()->terminationStatus(), 5);
  EXPECT_EQ(timeouts(), 0);
  EXPECT_TRUE(hasNoChild());
}

TEST_F(TaskRunnerTest, ATerminationRightAfterTheLaunchIsTheEnd) {
  const auto task =
      platform::current().subprocesses.create({.launchPath = "/bin/sleep", .arguments = {"20"}});
  task->launch();
  task->terminate();
  task->waitUntilExit();
  EXPECT_EQ(task->terminationStatus(), SIGTERM);
}
