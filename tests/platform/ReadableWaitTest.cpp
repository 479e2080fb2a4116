#include "platform/posix/ReadableWait.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <thread>

#include "platform/fakes/FakePlatform.h"

namespace platform {
namespace {

using namespace std::chrono_literals;

class ReadableWaitTest : public testing::Test {
 protected:
  ReadableWaitTest() { EXPECT_EQ(::pipe(ends.data()), 0); }
  ~ReadableWaitTest() override {
    ::close(ends[0]);
    if (ends[1] >= 0) ::close(ends[1]);
  }
  void write() const { EXPECT_EQ(::write(ends[1], "x", 1), 1); }

  std::array<int, 2> ends{-1, -1};
  fakes::Recorder recorder;
  fakes::FakeMainThread mainThread{recorder};
  int served = 0;
};

TEST_F(ReadableWaitTest, TheMainThreadsWorkIsServedMeanwhile) {
  mainThread.whenServing = [this] {
    ++served;
    write();
  };
  EXPECT_TRUE(waitUntilReadable(mainThread, ends[0]));
  EXPECT_EQ(served, 1);
}

TEST_F(ReadableWaitTest, AnotherThreadBlocksUntilThereIsSomethingToRead) {
  mainThread.current = false;
  mainThread.whenServing = [this] { ++served; };
  std::thread writer([this] { write(); });
  EXPECT_TRUE(waitUntilReadable(mainThread, ends[0]));
  writer.join();
  EXPECT_EQ(served, 0);
}

TEST_F(ReadableWaitTest, TheEndCountsAsReadable) {
  ::close(ends[1]);
  ends[1] = -1;
  for (const bool isMain : {true, false}) {
    mainThread.current = isMain;
    EXPECT_TRUE(waitUntilReadable(mainThread, ends[0]));
  }
}

TEST_F(ReadableWaitTest, ALimitEndsTheWait) {
  for (const bool isMain : {true, false}) {
    mainThread.current = isMain;
    EXPECT_FALSE(waitUntilReadable(mainThread, ends[0], 1ms));
    EXPECT_FALSE(waitUntilReadable(mainThread, ends[0], 0ms));
  }
  EXPECT_FALSE(waitUntilReadable(mainThread, -1, 1ms)) << "no descriptor";
}

TEST_F(ReadableWaitTest, ASignalThatIsHandledDoesNotEndTheWait) {
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = [](int) {};
  ASSERT_EQ(::sigaction(SIGUSR1, &action, &before), 0);
  mainThread.current = false;
  std::thread disturber([this, waiting = ::pthread_self()] {
    for (int count = 0; count < 20; ++count) {
      ::pthread_kill(waiting, SIGUSR1);
      std::this_thread::sleep_for(1ms);
    }
    write();
  });
  EXPECT_TRUE(waitUntilReadable(mainThread, ends[0]));
  disturber.join();
  ::sigaction(SIGUSR1, &before, nullptr);
}

}  // namespace
}  // namespace platform
