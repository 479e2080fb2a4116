#include "diagnostics/SerialOperationQueue.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "tests/support/Gate.h"

namespace {

using testing::ElementsAre;

TEST(SerialOperationQueue, OperationsArePerformedInTheOrderTheyWereAdded) {
  SerialOperationQueue queue;
  std::vector<int> performed;
  for (int number = 0; number < 1000; ++number) {
    queue.addOperation([&performed, number] { performed.push_back(number); });
  }
  queue.waitUntilAllOperationsAreFinished();
  ASSERT_EQ(performed.size(), 1000U);
  EXPECT_TRUE(std::is_sorted(performed.begin(), performed.end()));
}

TEST(SerialOperationQueue, OperationsRunOnOneThreadThatIsNotTheCallers) {
  SerialOperationQueue queue;
  std::vector<std::thread::id> performers;
  for (int number = 0; number < 2; ++number) {
    queue.addOperation([&] { performers.push_back(std::this_thread::get_id()); });
    queue.waitUntilAllOperationsAreFinished();
  }
  ASSERT_EQ(performers.size(), 2U);
  EXPECT_EQ(performers[0], performers[1]);
  EXPECT_NE(performers[0], std::this_thread::get_id());
}

TEST(SerialOperationQueue, NoThreadIsStartedBeforeTheFirstOperation) {
  int started = 0;
  SerialOperationQueue queue([&](SerialOperationQueue::Operation work) {
    ++started;
    return std::thread(std::move(work));
  });
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(started, 0);
  queue.addOperation([] {});
  queue.addOperation([] {});
  EXPECT_EQ(started, 1);
}

TEST(SerialOperationQueue, AddingDoesNotWaitForTheOperationUnderWay) {
  Gate gate;
  std::vector<int> performed;
  SerialOperationQueue queue;
  queue.addOperation(gate.wait());
  queue.addOperation([&] { performed.push_back(1); });
  EXPECT_TRUE(performed.empty());
  gate.open();
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_THAT(performed, ElementsAre(1));
}

TEST(SerialOperationQueue, WaitingWithinAnOperationReturnsAtOnce) {
  SerialOperationQueue queue;
  bool returned = false;
  queue.addOperation([&] {
    queue.waitUntilAllOperationsAreFinished();
    returned = true;
  });
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_TRUE(returned);
}

TEST(SerialOperationQueue, WhatAnOperationAddsComesNextInItsOrder) {
  Gate gate;
  std::vector<std::string> performed;
  SerialOperationQueue queue;
  const auto note = [&](const char* name) { return [&performed, name] { performed.emplace_back(name); }; };
  queue.addOperation([&, wait = gate.wait()] {
    wait();
    queue.addOperation(note("first child"));
    queue.addOperation(note("second child"));
  });
  queue.addOperation([&] { queue.addOperation(note("child of the second")); });
  queue.addOperation(note("third"));
  gate.open();
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_THAT(performed, ElementsAre("first child", "second child", "child of the second", "third"));
}

TEST(SerialOperationQueue, WhatAnAddedOperationAddsComesBeforeTheOthersThatWereAddedWithIt) {
  std::vector<std::string> performed;
  SerialOperationQueue queue;
  const auto note = [&](const char* name) { return [&performed, name] { performed.emplace_back(name); }; };
  queue.addOperation([&] {
    queue.addOperation([&] {
      note("first child")();
      queue.addOperation(note("grandchild"));
    });
    queue.addOperation(note("second child"));
  });
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_THAT(performed, ElementsAre("first child", "grandchild", "second child"));
}

/// Work that counts how often it is moved.
class Moved {
 public:
  explicit Moved(std::atomic<std::size_t>& moves) : moves_(moves) {}
  Moved(Moved&& other) noexcept : moves_(other.moves_) { ++moves_; }
  Moved(const Moved&) = delete;
  Moved& operator=(const Moved&) = delete;
  Moved& operator=(Moved&&) = delete;
  ~Moved() = default;
  void operator()() const {}

 private:
  std::atomic<std::size_t>& moves_;
};

TEST(SerialOperationQueue, WhatOperationsAddDoesNotMoveThoseThatWait) {
  constexpr std::size_t kAdding = 500;
  constexpr std::size_t kWaiting = 1000;
  constexpr std::size_t kMovesOfEach = 10;  // into the queue, when it grows, and out
  Gate gate;
  std::atomic<std::size_t> moves = 0;
  std::size_t added = 0;
  SerialOperationQueue queue;
  queue.addOperation(gate.wait());
  for (std::size_t number = 0; number < kAdding; ++number) {
    queue.addOperation([&] { queue.addOperation([&added] { ++added; }); });
  }
  for (std::size_t number = 0; number < kWaiting; ++number) queue.addOperation(Moved(moves));
  gate.open();
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(added, kAdding);
  EXPECT_GE(moves, kWaiting);
  EXPECT_LE(moves, kWaiting * kMovesOfEach);
}

TEST(SerialOperationQueue, ManyThatAnOperationAddsDisturbNeitherItNorThoseThatWait) {
  constexpr int kMany = 10'000;
  Gate gate;
  std::vector<int> performed;
  SerialOperationQueue queue;
  queue.addOperation(gate.wait());
  queue.addOperation([&, own = std::string(100, 'x')] {
    for (int number = 0; number < kMany; ++number)
      queue.addOperation([&, number] { performed.push_back(number); });
    EXPECT_EQ(own, std::string(100, 'x'));
  });
  queue.addOperation([&] { performed.push_back(kMany); });
  gate.open();
  queue.waitUntilAllOperationsAreFinished();
  ASSERT_EQ(performed.size(), kMany + 1U);
  EXPECT_TRUE(std::is_sorted(performed.begin(), performed.end()));
}

TEST(SerialOperationQueue, AnOperationOfAnySizeIsPerformedOnceAndLetGoOf) {
  const auto small = std::make_shared<int>(0);
  const auto large = std::make_shared<int>(0);
  SerialOperationQueue queue;
  queue.addOperation([small] { ++*small; });
  queue.addOperation([large, room = std::array<char, 500>{}] { *large += 1 + room.back(); });
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(*small, 1);
  EXPECT_EQ(*large, 1);
  EXPECT_EQ(small.use_count(), 1);
  EXPECT_EQ(large.use_count(), 1);
}

TEST(SerialOperationQueue, WaitingIncludesWhatOperationsAddMeanwhile) {
  SerialOperationQueue queue;
  std::atomic<int> performed = 0;
  queue.addOperation([&] { queue.addOperation([&] { queue.addOperation([&] { performed = 3; }); }); });
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(performed, 3);
}

TEST(SerialOperationQueue, DestructionPerformsWhatIsWaiting) {
  int performed = 0;
  {
    SerialOperationQueue queue;
    for (int number = 0; number < 100; ++number) queue.addOperation([&] { ++performed; });
  }
  EXPECT_EQ(performed, 100);
}

TEST(SerialOperationQueue, WithoutAThreadTheCallerPerformsTheOperations) {
  SerialOperationQueue queue([](const SerialOperationQueue::Operation&) -> std::thread {
    throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
  });
  std::vector<std::string> performed;
  queue.addOperation([&] {
    queue.addOperation([&] { performed.emplace_back("child"); });
    queue.waitUntilAllOperationsAreFinished();
    performed.emplace_back("parent");
  });
  EXPECT_THAT(performed, ElementsAre("parent", "child"));
  queue.addOperation([&] { performed.emplace_back("next"); });
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_THAT(performed, ElementsAre("parent", "child", "next"));
}

TEST(SerialOperationQueue, AThreadRefusedOnceIsAskedForAgain) {
  int asked = 0;
  SerialOperationQueue queue([&](SerialOperationQueue::Operation work) {
    if (++asked == 1)
      throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
    return std::thread(std::move(work));
  });
  std::vector<std::thread::id> performers;
  for (int number = 0; number < 2; ++number) {
    queue.addOperation([&] { performers.push_back(std::this_thread::get_id()); });
    queue.waitUntilAllOperationsAreFinished();
  }
  ASSERT_EQ(performers.size(), 2U);
  EXPECT_EQ(performers[0], std::this_thread::get_id());
  EXPECT_NE(performers[1], std::this_thread::get_id());
}

}  // namespace
