#include "platform/foundation/ImmortalSingleton.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tests/support/SingletonScope.h"

namespace foundation {
namespace {

std::atomic<int> made = 0;

class Probe : public ImmortalSingleton<Probe> {
 public:
  static Probe* shared() {
    const std::scoped_lock lock(monitor());
    return instance() != nullptr ? instance() : alloc();
  }

 private:
  friend class ImmortalSingleton<Probe>;
  Probe() { ++made; }
};

TEST(ImmortalSingleton, ASecondAllocationYieldsNothing) {
  const SingletonScope<Probe> scope;
  Probe* const first = Probe::alloc();
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(Probe::alloc(), nullptr);
  EXPECT_EQ(Probe::shared(), first);
}

TEST(ImmortalSingleton, ReferencesAreNotCounted) {
  const SingletonScope<Probe> scope;
  Probe* const object = Probe::shared();
  for (int count = 0; count < 10; ++count) object->release();
  EXPECT_EQ(object->retain(), object);
  EXPECT_EQ(object->copy(), object);
  EXPECT_EQ(object->autorelease(), object);
  EXPECT_EQ(Probe::retainCount(), 4294967295U);
  EXPECT_EQ(Probe::shared(), object);
}

TEST(ImmortalSingleton, ThreadsThatAskAtOnceGetTheSameObject) {
  const SingletonScope<Probe> scope;
  made = 0;
  std::vector<Probe*> seen(8);
  std::vector<std::thread> threads;
  for (Probe*& place : seen) threads.emplace_back([&place] { place = Probe::shared(); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(made, 1);
  for (const Probe* const object : seen) EXPECT_EQ(object, seen.front());
}

}  // namespace
}  // namespace foundation
