#include "helpers/ChmodTool.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <csignal>

#include "tests/helpers/TestVolume.h"
#include "tests/helpers/ToolProcess.h"

namespace helpers {
namespace {

using ::testing::HasSubstr;

class ChmodToolTest : public ::testing::Test {
 protected:
  ExitStatus run(const std::vector<std::string>& arguments) {
    const Surroundings surroundings = volume_.surroundings();
    ChmodTool tool(surroundings, report_);
    tool.onListed(listed_);
    return tool.run(arguments);
  }

  TestVolume volume_;
  RecordedReport report_;
  TreeWalk::Listed listed_;
};

TEST_F(ChmodToolTest, RecursivelyChangesEverythingBelow) {
  volume_.makeFile("tree/a/file", "x", 0600);
  volume_.makeFolder("tree/a", 0700);
  EXPECT_EQ(run({"-R", "ugo+r", "/tree"}), ExitStatus::done);
  EXPECT_EQ(volume_.mode("tree/a"), 0744U);
  EXPECT_EQ(volume_.mode("tree/a/file"), 0644U);
}

TEST_F(ChmodToolTest, WithoutTheOptionOnlyThePathItselfChanges) {
  volume_.makeFile("tree/file", "x", 0600);
  volume_.makeFolder("tree", 0700);
  EXPECT_EQ(run({"ugo+x", "/tree"}), ExitStatus::done);
  EXPECT_EQ(volume_.mode("tree"), 0711U);
  EXPECT_EQ(volume_.mode("tree/file"), 0600U);
}

TEST_F(ChmodToolTest, AFileGetsExactlyTheOctalMode) {
  volume_.makeFile("Library/StartupItems/Qmaster/Qmaster", "x", 0600);
  EXPECT_EQ(run({"-R", "755", "/Library/StartupItems/Qmaster/Qmaster"}), ExitStatus::done);
  EXPECT_EQ(volume_.mode("Library/StartupItems/Qmaster/Qmaster"), 0755U);
}

TEST_F(ChmodToolTest, LinksAreNotFollowed) {
  volume_.makeFile("outside/secret", "x", 0600);
  volume_.makeFolder("tree");
  volume_.makeLink("/outside/secret", "tree/link");
  volume_.makeLink(volume_.path("outside"), "tree/folder");
  EXPECT_EQ(run({"-R", "777", "/tree"}), ExitStatus::done) << report_.text();
  EXPECT_EQ(volume_.mode("outside/secret"), 0600U);
  EXPECT_EQ(volume_.mode("outside"), 0755U);
}

TEST_F(ChmodToolTest, ALinkAsThePathItselfIsReported) {
  volume_.makeFile("secret", "x", 0600);
  volume_.makeLink("secret", "link");
  EXPECT_EQ(run({"777", "/link"}), ExitStatus::failed);
  EXPECT_EQ(run({"-R", "777", "/link"}), ExitStatus::failed);
  EXPECT_EQ(volume_.mode("secret"), 0600U);
}

TEST_F(ChmodToolTest, AFileExchangedForALinkAfterBeingListedIsNotFollowed) {
  volume_.makeFile("secret", "x", 0600);
  volume_.makeFile("tree/file", "x", 0600);
  listed_ = [this](const std::string&) {
    unlink(volume_.path("tree/file").c_str());
    volume_.makeLink(volume_.path("secret"), "tree/file");
  };
  EXPECT_EQ(run({"-R", "777", "/tree"}), ExitStatus::done);
  EXPECT_EQ(volume_.mode("secret"), 0600U);
}

TEST_F(ChmodToolTest, AnEntryThatVanishesIsPassedOver) {
  volume_.makeFile("tree/file");
  listed_ = [this](const std::string&) { unlink(volume_.path("tree/file").c_str()); };
  EXPECT_EQ(run({"-R", "777", "/tree"}), ExitStatus::done) << report_.text();
}

TEST_F(ChmodToolTest, AFifoDoesNotBlock) {
  volume_.makeFolder("tree");
  ASSERT_EQ(mkfifo(volume_.path("tree/fifo").c_str(), 0600), 0);
  EXPECT_EQ(run({"-R", "a+r", "/tree"}), ExitStatus::done);
  EXPECT_EQ(volume_.mode("tree/fifo"), 0644U);
  EXPECT_EQ(run({"600", "/tree/fifo"}), ExitStatus::done);
  EXPECT_EQ(volume_.mode("tree/fifo"), 0600U);
}

TEST_F(ChmodToolTest, SocketsAndDevicesAreChangedWithoutBeingOpened) {
  QUILLMEND_NEEDS_ROOT();
  volume_.makeFolder("tree");
  const dev_t tape = makedev(9, 0);  // one that is not there: to open it fails
  ASSERT_EQ(mknod(volume_.path("tree/tape").c_str(), S_IFCHR | 0600, tape), 0);
  ASSERT_EQ(mknod(volume_.path("tree/socket").c_str(), S_IFSOCK | 0600, 0), 0);
  EXPECT_EQ(run({"-R", "a+r", "/tree"}), ExitStatus::done) << report_.text();
  for (const char* place : {"tree/tape", "tree/socket"}) {
    EXPECT_EQ(volume_.mode(place), 0644U) << place;
    EXPECT_EQ(run({"600", std::string("/") + place}), ExitStatus::done) << report_.text();
    EXPECT_EQ(volume_.mode(place), 0600U) << place;
  }
}

TEST_F(ChmodToolTest, AFileWithAHardLinkOutsideIsLeftAndReported) {
  volume_.makeFile("secret", "x", 0600);
  volume_.makeFolder("tree");
  ASSERT_EQ(link(volume_.path("secret").c_str(), volume_.path("tree/innocent").c_str()), 0);
  EXPECT_EQ(run({"-R", "ugo+r", "/tree"}), ExitStatus::failed);
  EXPECT_EQ(run({"-R", "ugo+r", "/tree/innocent"}), ExitStatus::failed);
  EXPECT_EQ(run({"ugo+r", "/tree/innocent"}), ExitStatus::failed);
  EXPECT_EQ(volume_.mode("secret"), 0600U);
  EXPECT_EQ(report_.lines(), 3);
}

TEST_F(ChmodToolTest, AFileThatMayHaveLostTheNameItWasFoundByIsLeftAndReported) {
  volume_.makeFile("tree/name (deleted)", "x", 0600);  // as the kernel tells of such a file
  EXPECT_EQ(run({"-R", "644", "/tree"}), ExitStatus::failed);
  EXPECT_EQ(run({"644", "/tree/name (deleted)"}), ExitStatus::failed);
  EXPECT_EQ(volume_.mode("tree/name (deleted)"), 0600U);
  EXPECT_EQ(report_.lines(), 2);
}

TEST_F(ChmodToolTest, HardLinksThatAreAllInTheTreeAreChanged) {
  QUILLMEND_NEEDS_ROOT();  // others cannot enter a folder of that mode
  volume_.makeFile("tree/one", "x", 0600);
  ASSERT_EQ(link(volume_.path("tree/one").c_str(), volume_.path("tree/two").c_str()), 0);
  EXPECT_EQ(run({"-R", "644", "/tree"}), ExitStatus::done) << report_.text();
  EXPECT_EQ(volume_.mode("tree/one"), 0644U);
}

TEST_F(ChmodToolTest, ASetIdFileIsNotMadeWritableForOthersRecursively) {
  volume_.makeFile("tree/tool", "x", 04555);
  EXPECT_EQ(run({"-R", "ugo+w", "/tree"}), ExitStatus::failed);
  EXPECT_EQ(volume_.mode("tree/tool"), 04755U);
  EXPECT_THAT(report_.text(), HasSubstr("/tree/tool: has set-ID bits"));
}

TEST_F(ChmodToolTest, SetIdBitsAreKeptAddedOnlyWhenAskedForAndTakenByAnOctalMode) {
  volume_.makeFile("tree/plain", "x", 0600);
  volume_.makeFile("tree/tool", "x", 04700);
  EXPECT_EQ(run({"-R", "ugo+r", "/tree"}), ExitStatus::done);
  EXPECT_EQ(volume_.mode("tree/plain"), 0644U);
  EXPECT_EQ(volume_.mode("tree/tool"), 04744U);
  EXPECT_EQ(run({"-R", "755", "/tree"}), ExitStatus::done);
  EXPECT_EQ(volume_.mode("tree/tool"), 0755U);
  EXPECT_EQ(run({"-R", "u+s", "/tree/tool"}), ExitStatus::done);
  EXPECT_EQ(volume_.mode("tree/tool"), 04755U);
}

TEST_F(ChmodToolTest, AFailingEntryDoesNotStopTheOthers) {
  if (geteuid() == 0) {
    volume_.mountVolume("tree/b");
  } else {
    GTEST_SKIP() << "needs root: an entry that fails is made by a mount";
  }
  volume_.makeFile("tree/a", "x", 0600);
  volume_.makeFile("tree/c", "x", 0600);
  EXPECT_EQ(run({"-R", "644", "/tree"}), ExitStatus::failed);
  EXPECT_EQ(volume_.mode("tree/a"), 0644U);
  EXPECT_EQ(volume_.mode("tree/c"), 0644U);
  EXPECT_EQ(report_.lines(), 1);
}

TEST_F(ChmodToolTest, NastyNamesAreHandledByteForByte) {
  QUILLMEND_NEEDS_ROOT();  // others cannot enter a folder of that mode
  const std::vector<std::string> names = {"-R", "a\nb", "\xff\xfe", std::string(255, 'n'), " ", "..."};
  for (const std::string& name : names) volume_.makeFile("tree/" + name, "x", 0600);
  EXPECT_EQ(run({"-R", "644", "/tree"}), ExitStatus::done);
  for (const std::string& name : names) EXPECT_EQ(volume_.mode("tree/" + name), 0644U) << name;
}

TEST_F(ChmodToolTest, ProtectedFoldersAndWrongArgumentsAreRefused) {
  volume_.makeFolder("Users/alice/Documents", 0700);
  volume_.makeFolder("tree", 0700);
  for (const char* path : {"/", "/Users/alice/Documents", "/Users/alice/Documents/", "/Users/bob/../alice"}) {
    EXPECT_EQ(run({"-R", "755", path}), ExitStatus::refused) << path;
    EXPECT_EQ(run({"755", path}), ExitStatus::refused) << path;
  }
  const std::vector<std::vector<std::string>> wrong = {{},
                                                       {"755"},
                                                       {"755", "tree"},
                                                       {"-R", "755"},
                                                       {"999", "/tree"},
                                                       {"-R", "u+q", "/tree"},
                                                       {"-x", "755", "/tree"},
                                                       {"755", "/tree", "/tree"},
                                                       {"-R", "-R", "755", "/tree"},
                                                       {"-R", "/tree"}};
  for (const auto& arguments : wrong) EXPECT_EQ(run(arguments), ExitStatus::usage);
  EXPECT_EQ(volume_.mode("Users/alice/Documents"), 0700U);
  EXPECT_EQ(volume_.mode("tree"), 0700U);
}

TEST_F(ChmodToolTest, WhatCannotBeChangedIsReported) {
  QUILLMEND_NEEDS_ROOT();
  volume_.mountVolume("disk");
  volume_.makeFile("disk/tree/file", "x", 0600);
  volume_.makeReadOnly("disk");
  EXPECT_EQ(run({"644", "/disk/tree/file"}), ExitStatus::failed);
  EXPECT_EQ(report_.text(), "tool: /disk/tree/file: Read-only file system\n");
  EXPECT_EQ(run({"-R", "644", "/disk/tree"}), ExitStatus::failed);
  EXPECT_EQ(report_.lines(), 3);
}

TEST_F(ChmodToolTest, AFileThatHasTheModeAlreadyIsNotLookedAtForItsOtherNames) {
  volume_.makeFile("secret", "x", 0644);
  volume_.makeFolder("tree");
  ASSERT_EQ(link(volume_.path("secret").c_str(), volume_.path("tree/innocent").c_str()), 0);
  EXPECT_EQ(run({"644", "/tree/innocent"}), ExitStatus::done) << report_.text();
  EXPECT_EQ(report_.text(), "");
}

TEST_F(ChmodToolTest, ASetIdFileThatWouldBeSharedAndNothingElseStaysAsItIs) {
  volume_.makeFile("tree/tool", "x", 04755);
  ASSERT_EQ(link(volume_.path("tree/tool").c_str(), volume_.path("outside").c_str()), 0);
  EXPECT_EQ(run({"-R", "go+w", "/tree"}), ExitStatus::failed);
  EXPECT_EQ(volume_.mode("tree/tool"), 04755U);
  EXPECT_EQ(report_.text(), "tool: /tree/tool: has set-ID bits, not made writable for group or others\n");
}

TEST_F(ChmodToolTest, AskedToStopBeforeItHasBegunItChangesNothing) {
  volume_.makeFile("tree/file", "x", 0600);
  ToolProcess::run([this] {
    RecordedReport report;
    const Surroundings surroundings = volume_.surroundings();
    raise(SIGINT);
    EXPECT_EQ(ChmodTool(surroundings, report).run({"-R", "644", "/tree"}), ExitStatus::failed);
    EXPECT_EQ(report.text(), "tool: asked to stop\n");
  });
  EXPECT_EQ(volume_.mode("tree/file"), 0600U);
}

}  // namespace
}  // namespace helpers
