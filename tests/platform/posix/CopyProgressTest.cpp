#include "platform/posix/CopyProgress.h"

#include <gtest/gtest.h>

namespace platform {
namespace {

std::size_t pieceAfterManyQuickSteps(OnProgress onProgress) {
  const std::string path = "/item";
  CopyPace pace(std::move(onProgress), kProgressInterval, path);
  for (int step = 0; step < 100; ++step) EXPECT_TRUE(pace.copied(pace.piece()));
  return pace.piece();
}

/// As long as there is memory to write to, a disk seems fast. The piece that meets it full takes as long as
/// the disk does.
TEST(CopyPace, PiecesStaySmallEnoughForADiskThatTurnsOutToBeSlow) {
  constexpr std::size_t slowDisk = 40UL << 20;  // bytes a second
  EXPECT_LE(pieceAfterManyQuickSteps([](const CopyProgress&) { return true; }), slowDisk / 10);
}

TEST(CopyPace, PiecesGrowOnAFastDisk) {
  EXPECT_GT(pieceAfterManyQuickSteps([](const CopyProgress&) { return true; }), 1UL << 20);
}

TEST(CopyPace, PiecesAreLargeWhereNobodyIsTold) {
  EXPECT_GE(pieceAfterManyQuickSteps({}), 64UL << 20);
}

TEST(CopyPace, TellingNoStopsAtTheNextStep) {
  const std::string path = "/item";
  CopyPace pace([](const CopyProgress&) { return false; }, std::chrono::milliseconds(0), path);
  EXPECT_FALSE(pace.copied(1));
  EXPECT_FALSE(pace.finishedObject());
  EXPECT_FALSE(pace.goOn());
}

TEST(CopyPace, StepsBetweenTwoReportsAreNotTold) {
  int told = 0;
  const std::string path = "/item";
  CopyPace pace([&told](const CopyProgress&) { return ++told > 0; }, std::chrono::hours(1), path);
  EXPECT_TRUE(pace.copied(1));
  EXPECT_TRUE(pace.finishedObject());
  EXPECT_EQ(told, 0);
  pace.end();
  EXPECT_EQ(told, 1) << "but the end always is";
}

}  // namespace
}  // namespace platform
