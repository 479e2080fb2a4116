#include "platform/posix/PosixMainThread.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <thread>
#include <vector>

#include "platform/fakes/FakePlatform.h"
#include "platform/foundation/Exception.h"

namespace platform {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

class PosixMainThreadTest : public ::testing::Test {
 protected:
  PosixMainThread mainThread;
  std::vector<int> order;
};

TEST_F(PosixMainThreadTest, OnlyTheFirstThreadIsTheMainThread) {
  bool elsewhere = true;
  std::thread([&] { elsewhere = mainThread.isCurrent(); }).join();
  EXPECT_TRUE(mainThread.isCurrent());
  EXPECT_FALSE(elsewhere);
}

TEST_F(PosixMainThreadTest, WaitedForWorkRunsAtOnceOnTheMainThreadBeforeQueuedWork) {
  mainThread.perform([&] { order.push_back(1); }, Wait::no);
  mainThread.perform([&] { order.push_back(2); }, Wait::yes);
  EXPECT_THAT(order, ElementsAre(2));
  EXPECT_FALSE(mainThread.serveUntilReadable(-1, 0ns));
  EXPECT_THAT(order, ElementsAre(2, 1));
}

TEST_F(PosixMainThreadTest, QueuedWorkRunsInTheOrderHandedOver) {
  for (int number = 1; number <= 4; ++number) {
    mainThread.perform([this, number] { order.push_back(number); }, Wait::no);
  }
  EXPECT_TRUE(order.empty());
  EXPECT_FALSE(mainThread.serveUntilReadable(-1, 0ns));
  EXPECT_THAT(order, ElementsAre(1, 2, 3, 4));
}

TEST_F(PosixMainThreadTest, AnotherThreadWaitsUntilItsWorkIsDone) {
  bool done = false;
  bool doneBeforeReturn = false;
  std::thread worker([&] {
    mainThread.perform([&] { done = mainThread.isCurrent(); }, Wait::yes);
    doneBeforeReturn = done;
    mainThread.perform([&] { order.push_back(1); }, Wait::no);
  });
  while (order.empty()) mainThread.serveUntilReadable(-1, 10ms);
  worker.join();
  EXPECT_TRUE(doneBeforeReturn);
}

TEST_F(PosixMainThreadTest, AnExceptionReachesTheThreadThatWaits) {
  std::string caught;
  std::thread worker([&] {
    try {
      mainThread.perform([] { throw foundation::Exception("Name", "reason"); }, Wait::yes);
    } catch (const foundation::Exception& exception) {
      caught = exception.name() + " " + exception.reason();
    }
    mainThread.perform([&] { order.push_back(1); }, Wait::no);
  });
  while (order.empty()) mainThread.serveUntilReadable(-1, 10ms);
  worker.join();
  EXPECT_EQ(caught, "Name reason");
}

TEST_F(PosixMainThreadTest, AnExceptionOfWaitedForWorkIsThrownOnTheMainThreadItself) {
  EXPECT_THROW(mainThread.perform([] { throw foundation::Exception("Name", "reason"); }, Wait::yes),
               foundation::Exception);
}

TEST_F(PosixMainThreadTest, AnExceptionThatNobodyWaitsForIsReportedAndTheRestServed) {
  const ::fakes::FakePlatform fake;
  mainThread.perform([] { throw foundation::Exception("Name", "reason"); }, Wait::no);
  mainThread.perform([&] { order.push_back(2); }, Wait::no);
  EXPECT_FALSE(mainThread.serveUntilReadable(-1, 0ns));
  EXPECT_THAT(fake.systemConsole.messages(),
              ElementsAre("*** Uncaught exception in work for the main thread: Name: reason"));
  EXPECT_THAT(order, ElementsAre(2));
}

TEST_F(PosixMainThreadTest, ServingEndsWhenTheDescriptorIsReadable) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  EXPECT_FALSE(mainThread.serveUntilReadable(ends[0], 1ms));
  mainThread.perform([&] { ASSERT_EQ(::write(ends[1], "x", 1), 1); }, Wait::no);
  EXPECT_TRUE(mainThread.serveUntilReadable(ends[0], std::nullopt));
  char byte = 0;
  ASSERT_EQ(::read(ends[0], &byte, 1), 1);
  ::close(ends[1]);
  EXPECT_TRUE(mainThread.serveUntilReadable(ends[0], std::nullopt)) << "the end counts as readable";
  ::close(ends[0]);
}

TEST_F(PosixMainThreadTest, ServingEndsWhenTheIntervalHasPassed) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(mainThread.serveUntilReadable(-1, 30ms));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
  EXPECT_FALSE(mainThread.serveUntilReadable(-1, -1ns));
}

TEST_F(PosixMainThreadTest, AWaitNestedInServedWorkServesTheRest) {
  mainThread.perform(
      [&] {
        EXPECT_FALSE(mainThread.serveUntilReadable(-1, 0ns));
        order.push_back(1);
      },
      Wait::no);
  mainThread.perform([&] { order.push_back(2); }, Wait::no);
  EXPECT_FALSE(mainThread.serveUntilReadable(-1, 0ns));
  EXPECT_THAT(order, ElementsAre(2, 1));
}

TEST_F(PosixMainThreadTest, WorkThatQueuesItselfAgainDoesNotKeepAWaitFromEnding) {
  int rounds = 0;
  std::function<void()> again = [&] {
    ++rounds;
    mainThread.perform(again, Wait::no);
  };
  mainThread.perform(again, Wait::no);
  EXPECT_FALSE(mainThread.serveUntilReadable(-1, 5ms));
  EXPECT_GE(rounds, 1);
}

TEST_F(PosixMainThreadTest, WorkFromManyThreadsIsAllDone) {
  std::vector<std::thread> threads;
  for (int number = 0; number < 8; ++number) {
    threads.emplace_back([&] {
      for (int count = 0; count < 100; ++count) {
        mainThread.perform([this, count] { order.push_back(count); }, count % 2 == 0 ? Wait::yes : Wait::no);
      }
    });
  }
  while (order.size() < 800) mainThread.serveUntilReadable(-1, 10ms);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(order.size(), 800U);
}

TEST_F(PosixMainThreadTest, AnEventLoopTakesTheWaitsOver) {
  struct Loop : EventLoop {
    explicit Loop(PosixMainThread& thread) : owner(thread) {}
    bool runUntilReadable(int, std::optional<std::chrono::nanoseconds>) override {
      owner.serveQueued();
      return true;
    }
    PosixMainThread& owner;
  } loop(mainThread);
  mainThread.setEventLoop(&loop);
  mainThread.perform([&] { order.push_back(1); }, Wait::no);
  EXPECT_TRUE(mainThread.serveUntilReadable(-1, 0ns));
  EXPECT_THAT(order, ElementsAre(1));
  mainThread.setEventLoop(nullptr);
  EXPECT_FALSE(mainThread.serveUntilReadable(-1, 0ns));
}

/// A loop whose application is about to end: it comes back from every wait at once.
struct EndedLoop : EventLoop {
  bool runUntilReadable(int, std::optional<std::chrono::nanoseconds>) override {
    ++waits;
    return false;
  }
  int waits = 0;
};

TEST_F(PosixMainThreadTest, AWaitLastsWhereTheEventLoopHasEndedAndGoesOnServing) {
  EndedLoop loop;
  mainThread.setEventLoop(&loop);
  const WakePipe event;
  std::thread worker([&] {
    mainThread.perform([&] { order.push_back(1); }, Wait::yes);
    event.raise();
  });
  EXPECT_TRUE(mainThread.serveUntilReadable(event.descriptor(), std::nullopt));
  worker.join();
  EXPECT_THAT(order, ElementsAre(1));
  EXPECT_EQ(loop.waits, 1) << "once, not over and over";
}

TEST_F(PosixMainThreadTest, ATimedWaitTakesItsTimeWhereTheEventLoopHasEnded) {
  EndedLoop loop;
  mainThread.setEventLoop(&loop);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(mainThread.serveUntilReadable(-1, 20ms));
  EXPECT_FALSE(mainThread.serveNext(20ms));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 40ms);
}

TEST_F(PosixMainThreadTest, TheNextWorkIsServedWhereTheEventLoopHasEnded) {
  EndedLoop loop;
  mainThread.setEventLoop(&loop);
  mainThread.perform([&] { order.push_back(1); }, Wait::no);
  EXPECT_TRUE(mainThread.serveNext(10s));
  EXPECT_THAT(order, ElementsAre(1));
}

}  // namespace
}  // namespace platform
