#include "platform/posix/PosixUserInterfaceEvents.h"

#include <gmock/gmock.h>

#include <thread>

namespace platform {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using ::testing::ElementsAre;

/// Records what it is asked for.
class RecordingLoop : public EventLoop {
 public:
  bool runUntilReadable(int descriptor, std::optional<std::chrono::nanoseconds> interval) override {
    asked.emplace_back(descriptor, interval.value_or(0ns));
    return false;
  }
  std::vector<std::pair<int, std::chrono::nanoseconds>> asked;
};

class PosixUserInterfaceEventsTest : public ::testing::Test {
 protected:
  PosixMainThread mainThread;
  PosixUserInterfaceEvents events{mainThread};
};

TEST_F(PosixUserInterfaceEventsTest, WithoutAWindowQueuedWorkIsAnEvent) {
  std::vector<int> done;
  mainThread.perform([&] { done.push_back(1); }, Wait::no);
  mainThread.perform([&] { done.push_back(2); }, Wait::no);
  const auto start = steady_clock::now();
  EXPECT_TRUE(events.dispatchNext(1h));
  EXPECT_LT(steady_clock::now() - start, 1min);
  EXPECT_THAT(done, ElementsAre(1, 2));
}

TEST_F(PosixUserInterfaceEventsTest, WorkThatComesMeanwhileEndsTheWait) {
  bool done = false;
  std::thread other([&] { mainThread.perform([&] { done = true; }, Wait::yes); });
  EXPECT_TRUE(events.dispatchNext(1h));
  other.join();
  EXPECT_TRUE(done);
}

TEST_F(PosixUserInterfaceEventsTest, WithoutAnyTheWaitEndsWithItsTime) {
  const auto start = steady_clock::now();
  EXPECT_FALSE(events.dispatchNext(10ms));
  EXPECT_GE(steady_clock::now() - start, 10ms);
  EXPECT_FALSE(events.dispatchNext(-1ns));
}

TEST_F(PosixUserInterfaceEventsTest, AWindowsLoopGetsTheTimeForItsOwnEvents) {
  RecordingLoop loop;
  mainThread.setEventLoop(&loop);
  EXPECT_FALSE(events.dispatchNext(10ms));
  EXPECT_THAT(loop.asked, ElementsAre(std::pair<int, std::chrono::nanoseconds>(-1, 10ms)));
}

}  // namespace
}  // namespace platform
