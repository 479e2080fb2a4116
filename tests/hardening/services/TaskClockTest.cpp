// Time-outs while somebody sets the computer's clock.
#include <gmock/gmock.h>

#include <csignal>
#include <thread>

#include "services/TGTask.h"
#include "tests/diagnostics/LogFixture.h"

namespace {

using namespace std::chrono_literals;

class TaskClockTest : public LogFixture {
 protected:
  TaskClockTest() {
    fake.subprocesses.executables.insert("/tool");
    fake.subprocesses.runs["/tool"].runsUntilTerminated = true;
  }
};

}  // namespace

TEST_F(TaskClockTest, AClockThatJumpsNeitherShortensATimeoutNorLengthensIt) {
  fake.clock.holdOtherThreads();
  auto task = TGTask::create();
  int code = -1;
  std::thread worker([&] { code = task->terminationCodeFromTimedTask("/tool", std::nullopt, 5.9s); });
  std::vector<std::chrono::nanoseconds> expected = {5s};
  EXPECT_EQ(fake.clock.waitForSleepers(1), expected);
  for (const double years : {-40.0, 40.0, 0.0}) {
    fake.clock.start = foundation::Date::fromUnixTime(1293876000 + years * 31557600);
  }
  const auto isRunning = [&] {
    const auto running = task->theTask();
    return running && running->isRunning();
  };
  while (!isRunning()) std::this_thread::yield();
  EXPECT_THAT(messages(), testing::IsEmpty()) << "nothing has ended it";
  EXPECT_EQ(fake.clock.waitForSleepers(1), expected) << "and its one timer sleeps on";
  fake.clock.wakeOtherThreads();
  worker.join();
  EXPECT_EQ(code, SIGTERM);
  EXPECT_THAT(messages(), testing::Contains("Task timed out. Terminating..."));
  const std::weak_ptr<TGTask> left = task;
  task.reset();
  while (!left.expired()) std::this_thread::yield();
}
