#include "helpers/ChownTool.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/un.h>

#include <csignal>

#include "tests/helpers/TestVolume.h"
#include "tests/helpers/ToolProcess.h"
#include "tests/support/FailingCall.h"
#include "tests/support/FewDescriptors.h"

namespace helpers {
namespace {

using ::testing::HasSubstr;

class ChownToolTest : public ::testing::Test {
 protected:
  ExitStatus run(const std::vector<std::string>& arguments) {
    const Surroundings surroundings = volume_.surroundings();
    ChownTool tool(surroundings, report_);
    tool.onListed(listed_);
    return tool.run(arguments);
  }
  uid_t owner(const std::string& place) { return volume_.status(place).st_uid; }

  TestVolume volume_;
  RecordedReport report_;
  TreeWalk::Listed listed_;
};

TEST_F(ChownToolTest, ChangesAFolderAndEverythingBelow) {
  QUILLMEND_NEEDS_ROOT();
  volume_.makeFile("tree/a/b/c");
  EXPECT_EQ(run({"-R", "4301:4302", "/tree"}), ExitStatus::done);
  for (const char* place : {"tree", "tree/a", "tree/a/b", "tree/a/b/c"}) {
    EXPECT_EQ(owner(place), 4301U) << place;
    EXPECT_EQ(volume_.status(place).st_gid, 4302U) << place;
  }
}

TEST_F(ChownToolTest, AFileWorksAsWell) {
  QUILLMEND_NEEDS_ROOT();
  volume_.makeFile("usr/sbin/qmasterprefs");
  EXPECT_EQ(run({"-R", "4301", "/usr/sbin/qmasterprefs"}), ExitStatus::done);
  EXPECT_EQ(owner("usr/sbin/qmasterprefs"), 4301U);
}

TEST_F(ChownToolTest, ALinkIsGivenAwayItselfAndNotItsTarget) {
  QUILLMEND_NEEDS_ROOT();
  volume_.makeFile("outside/secret");
  volume_.makeFolder("tree");
  volume_.makeLink("/outside/secret", "tree/link");
  volume_.makeLink("../outside", "tree/folderLink");
  EXPECT_EQ(run({"-R", "4301", "/tree"}), ExitStatus::done);
  EXPECT_EQ(owner("tree/link"), 4301U);
  EXPECT_EQ(owner("tree/folderLink"), 4301U);
  EXPECT_EQ(owner("outside"), 0U);
  EXPECT_EQ(owner("outside/secret"), 0U);
}

TEST_F(ChownToolTest, AFolderExchangedForALinkAfterBeingListedIsNotFollowed) {
  QUILLMEND_NEEDS_ROOT();
  volume_.makeFile("outside/secret");
  volume_.makeFile("tree/folder/file");
  listed_ = [this](const std::string& path) {
    if (path != "/tree") return;
    rename(volume_.path("tree/folder").c_str(), volume_.path("aside").c_str());
    volume_.makeLink(volume_.path("outside"), "tree/folder");
  };
  EXPECT_EQ(run({"-R", "4301", "/tree"}), ExitStatus::done);
  EXPECT_EQ(owner("outside"), 0U);
  EXPECT_EQ(owner("outside/secret"), 0U);
  EXPECT_EQ(owner("tree/folder"), 4301U);
}

TEST_F(ChownToolTest, FifosSocketsAndDevicesAreChangedWithoutBeingOpened) {
  QUILLMEND_NEEDS_ROOT();
  volume_.makeFolder("tree");
  ASSERT_EQ(mkfifo(volume_.path("tree/fifo").c_str(), 0600), 0);
  ASSERT_EQ(mknod(volume_.path("tree/tape").c_str(), S_IFCHR | 0600, makedev(9, 0)), 0);
  const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  volume_.path("tree/socket").copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  close(listener);
  EXPECT_EQ(run({"-R", "4301", "/tree"}), ExitStatus::done);
  for (const char* place : {"tree/fifo", "tree/tape", "tree/socket"}) EXPECT_EQ(owner(place), 4301U) << place;
}

TEST_F(ChownToolTest, AnotherVolumeInTheTreeIsLeftAndReported) {
  QUILLMEND_NEEDS_ROOT();
  volume_.mountVolume("tree/mounted");
  volume_.makeFile("tree/mounted/file");
  volume_.makeFile("tree/other");
  EXPECT_EQ(run({"-R", "4301", "/tree"}), ExitStatus::failed);
  EXPECT_EQ(owner("tree/mounted"), 0U);
  EXPECT_EQ(owner("tree/mounted/file"), 0U);
  EXPECT_EQ(owner("tree/other"), 4301U);
  EXPECT_THAT(report_.text(), HasSubstr("/tree/mounted: on another volume"));
}

TEST_F(ChownToolTest, AFolderBoundIntoTheTreeIsLeftAndReported) {
  QUILLMEND_NEEDS_ROOT();
  volume_.mountVolume("Volumes/Disk/x");
  volume_.makeFile("Volumes/Disk/x/outside/secret");
  volume_.makeFolder("Volumes/Disk/x/tree/bound");
  const std::string bound = volume_.path("Volumes/Disk/x/tree/bound");
  ASSERT_EQ(mount(volume_.path("Volumes/Disk/x/outside").c_str(), bound.c_str(), nullptr, MS_BIND, nullptr),
            0);
  EXPECT_EQ(run({"-R", "4301", "/Volumes/Disk/x/tree"}), ExitStatus::failed);
  EXPECT_EQ(owner("Volumes/Disk/x/outside/secret"), 0U);
  umount2(bound.c_str(), MNT_DETACH);
}

TEST_F(ChownToolTest, AFileWithAHardLinkOutsideIsLeftAndReported) {
  QUILLMEND_NEEDS_ROOT();
  volume_.makeFile("outside/secret");
  volume_.makeFile("tree/plain");
  ASSERT_EQ(link(volume_.path("outside/secret").c_str(), volume_.path("tree/innocent").c_str()), 0);
  EXPECT_EQ(run({"-R", "4301", "/tree"}), ExitStatus::failed);
  EXPECT_EQ(owner("outside/secret"), 0U);
  EXPECT_EQ(owner("tree/plain"), 4301U);
  EXPECT_THAT(report_.text(), HasSubstr("/tree/innocent: has further hard links"));
}

TEST_F(ChownToolTest, AFileThatMayHaveLostTheNameItWasFoundByIsLeftAndReported) {
  QUILLMEND_NEEDS_ROOT();
  volume_.makeFile("tree/name (deleted)");  // as the kernel tells of such a file
  volume_.makeFile("tree/plain");
  EXPECT_EQ(run({"-R", "4301", "/tree"}), ExitStatus::failed);
  EXPECT_EQ(owner("tree/name (deleted)"), 0U);
  EXPECT_EQ(owner("tree/plain"), 4301U);
  EXPECT_THAT(report_.text(), HasSubstr("/tree/name (deleted): removed or exchanged"));
}

TEST_F(ChownToolTest, AFileWhoseHardLinksAreAllInTheTreeIsChanged) {
  QUILLMEND_NEEDS_ROOT();
  volume_.makeFile("tree/one");
  volume_.makeFolder("tree/sub");
  ASSERT_EQ(link(volume_.path("tree/one").c_str(), volume_.path("tree/sub/two").c_str()), 0);
  EXPECT_EQ(run({"-R", "0:4302", "/tree"}), ExitStatus::done) << report_.text();
  EXPECT_EQ(volume_.status("tree/one").st_gid, 4302U);
}

TEST_F(ChownToolTest, HardLinksInAFolderThatOthersCanWriteAreNotCounted) {
  QUILLMEND_NEEDS_ROOT();
  volume_.makeFile("tree/one");
  volume_.makeFolder("tree/sub", 0777);
  ASSERT_EQ(link(volume_.path("tree/one").c_str(), volume_.path("tree/sub/two").c_str()), 0);
  EXPECT_EQ(run({"-R", "0:4302", "/tree"}), ExitStatus::failed);
  EXPECT_EQ(volume_.status("tree/one").st_gid, 0U);
}

TEST_F(ChownToolTest, ANameRenamedDuringTheWalkDoesNotCountTwice) {
  QUILLMEND_NEEDS_ROOT();
  volume_.makeFile("outside/secret");
  volume_.makeFolder("tree/first");
  volume_.makeFolder("tree/second");
  ASSERT_EQ(link(volume_.path("outside/secret").c_str(), volume_.path("tree/first/name").c_str()), 0);
  // The folder with the planted name is renamed to every other folder's name as soon as it has been seen.
  listed_ = [this, moved = false](const std::string& path) mutable {
    if (moved || path == "/tree") return;
    const std::string other = path == "/tree/first" ? "tree/second" : "tree/first";
    if (path == "/tree/second") return;
    moved = rename(volume_.path("tree/first").c_str(), volume_.path(other).c_str()) == 0;
  };
  EXPECT_EQ(run({"-R", "0:4302", "/tree"}), ExitStatus::failed);
  EXPECT_EQ(volume_.status("outside/secret").st_gid, 0U);
}

TEST_F(ChownToolTest, AFileThatHasTheOwnerAlreadyIsNotTouched) {
  QUILLMEND_NEEDS_ROOT();
  volume_.makeFile("tree/tool", "x", 04755);
  volume_.makeFile("outside/other");
  ASSERT_EQ(link(volume_.path("outside/other").c_str(), volume_.path("tree/linked").c_str()), 0);
  EXPECT_EQ(run({"-R", "root:wheel", "/tree"}), ExitStatus::done) << report_.text();
  EXPECT_EQ(volume_.mode("tree/tool"), 04755U);
}

TEST_F(ChownToolTest, SetIdBitsAreNotCarriedToTheNewOwner) {
  QUILLMEND_NEEDS_ROOT();
  volume_.makeFile("tree/tool");
  volume_.own("tree/tool", TestVolume::kBob);
  chmod(volume_.path("tree/tool").c_str(), 06755);
  EXPECT_EQ(run({"-R", "root:wheel", "/tree"}), ExitStatus::done);
  EXPECT_EQ(volume_.mode("tree/tool"), 0755U);
}

TEST_F(ChownToolTest, AVeryDeepTreeIsWalkedToItsEnd) {
  QUILLMEND_NEEDS_ROOT();
  constexpr int kDepth = 1500;
  volume_.makeFolder("tree");
  int folder = open(volume_.path("tree").c_str(), O_PATH | O_DIRECTORY);
  for (int i = 0; i < kDepth; ++i) {
    ASSERT_EQ(mkdirat(folder, "d", 0755), 0);
    const int next = openat(folder, "d", O_PATH | O_DIRECTORY);
    close(folder);
    folder = next;
  }
  EXPECT_EQ(run({"-R", "4301", "/tree"}), ExitStatus::done) << report_.text();
  struct stat deepest {};
  ASSERT_EQ(fstat(folder, &deepest), 0);
  EXPECT_EQ(deepest.st_uid, 4301U);
  close(folder);
}

TEST_F(ChownToolTest, TheWalkComesBackFromADeepTreeToTheRest) {
  QUILLMEND_NEEDS_ROOT();
  std::string place = "tree";
  for (int i = 0; i < 300; ++i) place += "/d";
  volume_.makeFolder(place);
  volume_.makeFile("tree/zz");
  volume_.makeFile("tree/d/zz");
  EXPECT_EQ(run({"-R", "4301", "/tree"}), ExitStatus::done) << report_.text();
  EXPECT_EQ(owner("tree/zz"), 4301U);
  EXPECT_EQ(owner("tree/d/zz"), 4301U);
  EXPECT_EQ(owner(place), 4301U);
}

TEST_F(ChownToolTest, ProtectedFoldersAreRefusedAndNothingChanges) {
  volume_.makeFile("Users/alice/Library/file");
  for (const char* path : {"/", "/Users", "/Users/alice", "/Users/alice/Library/../Library/"}) {
    EXPECT_EQ(run({"-R", "4301", path}), ExitStatus::refused) << path;
  }
  EXPECT_EQ(owner("Users/alice/Library/file"), geteuid());
}

TEST_F(ChownToolTest, WrongArgumentsAreRefused) {
  volume_.makeFile("tree/file");
  const std::vector<std::vector<std::string>> wrong = {
      {},
      {"-R"},
      {"-R", "4301"},
      {"4301", "/tree"},
      {"-r", "4301", "/tree"},
      {"-R", "4301", "/tree", "/tree"},
      {"-R", "4301", "tree"},
      {"-R", "4301", ""},
      {"-R", "nobody-of-that-name", "/tree"},
      {"/tree", "4301", "-R"},
  };
  for (const auto& arguments : wrong) EXPECT_EQ(run(arguments), ExitStatus::usage);
  EXPECT_EQ(owner("tree/file"), geteuid());
  EXPECT_EQ(report_.lines(), static_cast<long>(wrong.size()));
}

TEST_F(ChownToolTest, AMissingPathIsAFailure) {
  EXPECT_EQ(run({"-R", "4301", "/nothing"}), ExitStatus::failed);
}

TEST_F(ChownToolTest, InAnOverlayOfTwoVolumesNothingIsTakenForMounted) {
  QUILLMEND_NEEDS_ROOT();
  volume_.mountVolume("lower");
  volume_.mountVolume("upper");
  volume_.makeFile("lower/tree/a/file");
  for (const char* folder : {"upper/changes", "upper/work", "merged"}) volume_.makeFolder(folder);
  const std::string layers = "lowerdir=" + volume_.path("lower") +
                             ",upperdir=" + volume_.path("upper/changes") +
                             ",workdir=" + volume_.path("upper/work");
  if (!volume_.mountOverlay("merged", layers)) GTEST_SKIP() << "no overlays on this system";
  ASSERT_NE(volume_.status("merged/tree/a").st_dev, volume_.status("merged/tree/a/file").st_dev);
  EXPECT_EQ(run({"-R", "4301", "/merged/tree"}), ExitStatus::done) << report_.text();
  EXPECT_EQ(owner("merged/tree/a/file"), 4301U);
}

TEST_F(ChownToolTest, WhatCannotBeGivenAwayIsReportedEntryByEntry) {
  QUILLMEND_NEEDS_ROOT();
  volume_.mountVolume("disk");
  volume_.makeFile("disk/tree/a");
  volume_.makeFile("disk/tree/b");
  volume_.makeReadOnly("disk");
  EXPECT_EQ(run({"-R", "4301", "/disk/tree"}), ExitStatus::failed);
  for (const char* line : {"/disk/tree: Read-only file system", "/disk/tree/a: Read-only file system",
                           "/disk/tree/b: Read-only file system"}) {
    EXPECT_THAT(report_.text(), HasSubstr(line));
  }
  EXPECT_EQ(report_.lines(), 3);
}

TEST_F(ChownToolTest, AFolderThatCannotBeListedIsReportedAndTheFolderItselfIsChanged) {
  QUILLMEND_NEEDS_ROOT();
  volume_.makeFile("tree/file");
  support::FailingCall::run(SYS_getdents64, EIO, [this] {
    EXPECT_EQ(run({"-R", "4301", "/tree"}), ExitStatus::failed);
    EXPECT_EQ(report_.text(), "tool: /tree: Input/output error\n");
  });
  EXPECT_EQ(owner("tree"), 4301U);
  EXPECT_EQ(owner("tree/file"), 0U);
}

TEST_F(ChownToolTest, WithoutADescriptorLeftEachEntryIsReportedAndTheWorkGoesOn) {
  QUILLMEND_NEEDS_ROOT();
  for (const char* place : {"tree/a/inside", "tree/b", "tree/c"}) volume_.makeFile(place);
  std::optional<support::FewDescriptors> few;
  listed_ = [&few](const std::string&) { few.emplace(0); };
  EXPECT_EQ(run({"-R", "4301", "/tree"}), ExitStatus::failed);
  few.reset();
  for (const char* place : {"/tree/a", "/tree/b", "/tree/c"}) {
    EXPECT_THAT(report_.text(), HasSubstr(std::string(place) + ": Too many open files\n"));
    EXPECT_EQ(owner(place + 1), 0U);
  }
  EXPECT_EQ(owner("tree"), 4301U);
}

TEST_F(ChownToolTest, AFolderThatCanBeHeldButNotReadIsChangedItselfAndReported) {
  QUILLMEND_NEEDS_ROOT();
  for (const char* place : {"tree/a/inside", "tree/b"}) volume_.makeFile(place);
  std::optional<support::FewDescriptors> few;
  listed_ = [&few](const std::string&) { few.emplace(1); };
  EXPECT_EQ(run({"-R", "4301", "/tree"}), ExitStatus::failed);
  few.reset();
  EXPECT_EQ(report_.text(), "tool: /tree/a: Too many open files\n");
  EXPECT_EQ(owner("tree/a"), 4301U);
  EXPECT_EQ(owner("tree/a/inside"), 0U);
  EXPECT_EQ(owner("tree/b"), 4301U);
}

TEST_F(ChownToolTest, WhatIsMovedAwayWhileItsFolderIsNotHeldIsNotFollowed) {
  QUILLMEND_NEEDS_ROOT();
  std::string deepest = "tree";
  for (int i = 0; i < 300; ++i) deepest += "/d";
  volume_.makeFolder(deepest);
  volume_.makeFile("tree/d/d/zz");
  volume_.makeFile("aside/secret");
  listed_ = [&](const std::string& path) {
    if (path != "/" + deepest) return;
    ASSERT_EQ(rename(volume_.path("tree/d/d/d").c_str(), volume_.path("aside/d").c_str()), 0);
  };
  EXPECT_EQ(run({"-R", "4301", "/tree"}), ExitStatus::failed);
  EXPECT_EQ(report_.text(), "tool: /tree/d/d: moved while it was worked on, the rest is left as it is\n");
  EXPECT_EQ(owner("aside"), 0U);
  EXPECT_EQ(owner("aside/secret"), 0U);
}

TEST_F(ChownToolTest, WithFewDescriptorsFewerFilesWithSeveralNamesAreKeptInMind) {
  QUILLMEND_NEEDS_ROOT();
  constexpr int kFiles = 40;
  for (int i = 0; i < kFiles; ++i) {
    const std::string one = "tree/" + std::to_string(i);
    volume_.makeFile(one);
    ASSERT_EQ(link(volume_.path(one).c_str(), volume_.path(one + "b").c_str()), 0);
  }
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit few{128, before.rlim_max};  // a quarter of them for such files
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  EXPECT_EQ(run({"-R", "0:4302", "/tree"}), ExitStatus::failed);
  setrlimit(RLIMIT_NOFILE, &before);
  int changed = 0;
  for (int i = 0; i < kFiles; ++i) {
    changed += volume_.status("tree/" + std::to_string(i)).st_gid == 4302U ? 1 : 0;
  }
  EXPECT_EQ(changed, 32);
  EXPECT_THAT(report_.text(), HasSubstr(": has further hard links, left as it is\n"));
}

TEST_F(ChownToolTest, AskedToStopItEndsAfterTheEntryInHandAndSaysWhatIsNotFinished) {
  QUILLMEND_NEEDS_ROOT();
  for (const char* place : {"tree/a", "tree/b", "tree/c"}) volume_.makeFile(place);
  ToolProcess::run([this] {
    RecordedReport report;
    const Surroundings surroundings = volume_.surroundings();
    ChownTool tool(surroundings, report);
    tool.onListed([](const std::string&) { raise(SIGTERM); });
    EXPECT_EQ(tool.run({"-R", "4301", "/tree"}), ExitStatus::failed);
    EXPECT_EQ(report.text(), "tool: /tree: not finished: asked to stop\n");
    EXPECT_EQ(ChownTool(surroundings, report).run({"-R", "4301", "/tree"}), ExitStatus::failed);
    EXPECT_THAT(report.text(), ::testing::EndsWith("tool: asked to stop\n"));
  });
  EXPECT_EQ(owner("tree"), 4301U);
  for (const char* place : {"tree/a", "tree/b", "tree/c"}) EXPECT_EQ(owner(place), 0U);
}

}  // namespace
}  // namespace helpers
