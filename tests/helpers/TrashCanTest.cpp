#include "helpers/TrashCan.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>

#include "tests/helpers/TestVolume.h"
#include "tests/helpers/ToolProcess.h"

namespace helpers {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Alice's trash, and an item on another volume: what is taken is copied.
class TrashCanTest : public ::testing::Test {
 protected:
  void SetUp() override {
    QUILLMEND_NEEDS_ROOT();
    volume_.mountVolume("Volumes/Disk");
    volume_.makeFile("Volumes/Disk/job/a", "first");
    volume_.makeFile("Volumes/Disk/job/b", "second");
    volume_.makeFile("Users/alice/x");
  }
  static TrashCan trashOf(const Surroundings& surroundings, Report& report) {
    const auto home = locate(surroundings, "/Users/alice/x", LastLink::keep);
    auto trash = TrashCan::open(surroundings, report, home.value().levels, home.value().levels.size() - 1);
    return std::move(trash).value();
  }
  static foundation::Result<std::string> take(TrashCan& trash, const Surroundings& surroundings) {
    const auto job = locate(surroundings, "/Volumes/Disk/job", LastLink::keep);
    return trash.take(job.value().folder().descriptor.get(), "job", "/Volumes/Disk/job",
                      TrashName::ofItem("job", surroundings.now()));
  }

  TestVolume volume_;
};

TEST_F(TrashCanTest, ACopyThatIsAskedToStopLeavesTheItemWhereItIsAndNothingInTheTrash) {
  ToolProcess::run([this] {
    RecordedReport report;
    const Surroundings surroundings = volume_.surroundings();
    TrashCan trash = trashOf(surroundings, report);
    trash.onCopyStep([] { raise(SIGTERM); });
    const auto taken = take(trash, surroundings);
    ASSERT_FALSE(taken);
    EXPECT_EQ(taken.error().code, ECANCELED);
    EXPECT_EQ(taken.error().description, "/Volumes/Disk/job: not moved: asked to stop");
  });
  EXPECT_THAT(volume_.names("Volumes/Disk/job"), ElementsAre("a", "b"));
  EXPECT_THAT(volume_.names("Users/alice/.Trash"), IsEmpty());
}

TEST_F(TrashCanTest, WhatChangesWhileItIsCopiedStaysWhole) {
  RecordedReport report;
  const Surroundings surroundings = volume_.surroundings();
  TrashCan trash = trashOf(surroundings, report);
  std::string written;
  trash.onCopyStep([&] {
    written += "more ";
    volume_.makeFile("Volumes/Disk/job/b", written);
  });
  const auto taken = take(trash, surroundings);
  ASSERT_FALSE(taken);
  EXPECT_THAT(taken.error().description, ::testing::HasSubstr("/Volumes/Disk/job"));
  EXPECT_EQ(volume_.read("Volumes/Disk/job/b"), written);
  EXPECT_THAT(volume_.names("Volumes/Disk/job"), ElementsAre("a", "b"));
  EXPECT_THAT(volume_.names("Users/alice/.Trash"), IsEmpty());
}

TEST_F(TrashCanTest, ADatedFolderIsRemovedOnlyWhileItIsEmpty) {
  RecordedReport report;
  const Surroundings surroundings = volume_.surroundings();
  const TrashCan trash = trashOf(surroundings, report);
  volume_.makeFile("Users/alice/.Trash/full/x");
  volume_.makeFolder("Users/alice/.Trash/empty");
  trash.removeIfEmpty("full");
  trash.removeIfEmpty("empty");
  EXPECT_THAT(volume_.names("Users/alice/.Trash"), ElementsAre("full"));
  EXPECT_FALSE(trash.opened("empty"));
}

TEST_F(TrashCanTest, FoldersThatAreMadeInItHaveDifferentNamesAndTheOwnerAndModeAskedFor) {
  RecordedReport report;
  const Surroundings surroundings = volume_.surroundings();
  TrashCan trash = trashOf(surroundings, report);
  const auto like = locate(surroundings, "/Volumes/Disk/job", LastLink::keep);
  volume_.own("Volumes/Disk/job", TestVolume::kBob);
  const auto names = TrashName::ofContents("job", surroundings.now());
  const auto first = trash.makeFolder(names, locate(surroundings, "/Volumes/Disk/job").value().status());
  const auto second = trash.makeFolder(names, like.value().status());
  ASSERT_TRUE(first && second);
  EXPECT_NE(first.value(), second.value());
  EXPECT_EQ(volume_.status("Users/alice/.Trash/" + first.value()).st_uid, TestVolume::kBob);
  EXPECT_EQ(volume_.status("Users/alice/.Trash/" + second.value()).st_uid, 0U);
  EXPECT_EQ(volume_.mode("Users/alice/.Trash/" + first.value()), 0755U);
}

}  // namespace
}  // namespace helpers
