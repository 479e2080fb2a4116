#include "platform/LocalNotificationCenter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

using platform::LocalNotification;
using platform::LocalNotificationCenter;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class LocalNotificationCenterTest : public testing::Test {
 protected:
  platform::LocalNotifications::Observer noting(const std::string& word) {
    return [this, word](const LocalNotification&) { calls.push_back(word); };
  }

  LocalNotificationCenter center;
  std::vector<std::string> calls;
};

TEST_F(LocalNotificationCenterTest, ObserversOfTheNameAreCalledInOrderOfAdding) {
  center.addObserver("n", noting("first"));
  center.addObserver("other", noting("other"));
  center.addObserver("n", noting("second"));
  center.post({"n", {}});
  EXPECT_THAT(calls, ElementsAre("first", "second"));
}

TEST_F(LocalNotificationCenterTest, TheNotificationArrivesWhole) {
  foundation::PropertyList userInfo;
  userInfo.set("clickContext", foundation::Date::fromUnixTime(5));
  LocalNotification heard;
  center.addObserver("n", [&](const LocalNotification& notification) { heard = notification; });
  center.post({"n", userInfo});
  EXPECT_EQ(heard.name, "n");
  EXPECT_EQ(heard.userInfo, userInfo);
}

TEST_F(LocalNotificationCenterTest, ARemovedObserverHearsNothing) {
  const int number = center.addObserver("n", noting("gone"));
  center.removeObserver(number);
  center.removeObserver(number);
  center.post({"n", {}});
  EXPECT_THAT(calls, IsEmpty());
}

TEST_F(LocalNotificationCenterTest, AnObserverMayRemoveItselfAndTheNextWhileCalled) {
  int itself = 0;
  int next = 0;
  itself = center.addObserver("n", [&](const LocalNotification&) {
    calls.emplace_back("once");
    center.removeObserver(itself);
    center.removeObserver(next);
  });
  next = center.addObserver("n", noting("next"));
  center.post({"n", {}});
  center.post({"n", {}});
  EXPECT_THAT(calls, ElementsAre("once"));
}

TEST_F(LocalNotificationCenterTest, AnObserverAddedWhileCalledHearsTheNextNotification) {
  bool isAdded = false;
  center.addObserver("n", [&](const LocalNotification&) {
    if (!std::exchange(isAdded, true)) center.addObserver("n", noting("new"));
  });
  center.post({"n", {}});
  EXPECT_THAT(calls, IsEmpty());
  center.post({"n", {}});
  EXPECT_THAT(calls, ElementsAre("new"));
}

TEST_F(LocalNotificationCenterTest, AnObserverMayPostWhileCalled) {
  center.addObserver("n", [&](const LocalNotification&) { center.post({"other", {}}); });
  center.addObserver("other", noting("other"));
  center.post({"n", {}});
  EXPECT_THAT(calls, ElementsAre("other"));
}

TEST_F(LocalNotificationCenterTest, ThreadsMayPostAddAndRemoveAtOnce) {
  std::atomic<int> heard = 0;
  center.addObserver("n", [&](const LocalNotification&) { ++heard; });
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      for (int round = 0; round < 200; ++round) {
        const int number = center.addObserver("m", [](const LocalNotification&) {});
        center.post({"n", {}});
        center.removeObserver(number);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(heard, 800);
}

}  // namespace
