#include "platform/posix/GuardedFiles.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <thread>

#include "platform/posix/UniqueDescriptor.h"
#include "tests/support/AsUser.h"
#include "tests/support/ChangedRoot.h"
#include "tests/support/FewDescriptors.h"
#include "tests/support/PathStatus.h"
#include "tests/support/SmallVolume.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using support::AsUser;
using support::ChangedRoot;
using support::kNobody;
using support::modeAt;
using support::SmallVolume;
using support::statusAt;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename().string());
  return names;
}

class GuardedFilesTest : public ::testing::Test {
 protected:
  support::TemporaryFolder folder;
  GuardedFileQueries queries;
  GuardedFileChanges changes;
};

TEST_F(GuardedFilesTest, CreatesTheFoldersAboveToo) {
  EXPECT_TRUE(changes.createDirectory(folder / "a/b/c/").ok());
  EXPECT_TRUE(fs::is_directory(folder / "a/b/c"));
  EXPECT_TRUE(changes.createDirectory(folder / "a/b").ok());
}

TEST_F(GuardedFilesTest, AFolderCannotBeMadeWhereAFileIs) {
  folder.file("file");
  fs::create_symlink("/nonexistent/x", folder / "dangling");
  EXPECT_EQ(changes.createDirectory(folder / "file").error().code, EEXIST);
  EXPECT_EQ(changes.createDirectory(folder / "file/below").error().code, ENOTDIR);
  EXPECT_EQ(changes.createDirectory(folder / "dangling").error().code, EEXIST);
  EXPECT_EQ(changes.createDirectory("").error().code, ENOENT);
}

TEST_F(GuardedFilesTest, MovesWithinAFileSystem) {
  folder.file("from/file", "x");
  EXPECT_TRUE(changes.move(folder / "from/", folder / "to").ok());
  EXPECT_EQ(folder.content("to/file"), "x");
  EXPECT_FALSE(fs::exists(folder / "from"));
}

TEST_F(GuardedFilesTest, MovingNeverReplacesAnything) {
  folder.file("from", "new");
  folder.file("to", "old");
  fs::create_symlink("/nonexistent", folder / "dangling");
  fs::create_directory(folder / "empty");
  for (const char* const taken : {"to", "dangling", "empty"}) {
    const auto moved = changes.move(folder / "from", folder / taken);
    ASSERT_FALSE(moved.ok());
    EXPECT_EQ(moved.error().code, EEXIST);
    EXPECT_EQ(moved.error().path, folder / taken);
  }
  EXPECT_EQ(folder.content("to"), "old");
  EXPECT_EQ(folder.content("from"), "new");
}

TEST_F(GuardedFilesTest, MovingALinkMovesTheLink) {
  fs::create_symlink("/nonexistent", folder / "link");
  EXPECT_TRUE(changes.move(folder / "link", folder / "moved").ok());
  EXPECT_EQ(fs::read_symlink(folder / "moved"), "/nonexistent");
}

TEST_F(GuardedFilesTest, AMoveThatCannotBeMadeSaysWhy) {
  EXPECT_EQ(changes.move(folder / "absent", folder / "to").error().code, ENOENT);
  EXPECT_EQ(changes.move(folder.file("file"), folder / "absent/to").error().code, ENOENT);
  fs::create_directory(folder / "outer");
  EXPECT_EQ(changes.move(folder / "outer", folder / "outer/inner").error().code, EINVAL);
}

TEST_F(GuardedFilesTest, AMoveToAnotherFileSystemKeepsEverything) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount and to give files away";
  const SmallVolume other;
  if (!other.isMounted()) GTEST_SKIP() << "cannot mount here";
  const std::string file = folder.file("from/inside/file", "content");
  fs::create_symlink("file", folder / "from/inside/link");
  ASSERT_EQ(::mkfifo((folder / "from/fifo").c_str(), 0640), 0);
  ASSERT_EQ(::chown(file.c_str(), 1234, 4321), 0);
  ASSERT_EQ(::lchown((folder / "from/inside/link").c_str(), 1234, 4321), 0);
  ASSERT_EQ(::chmod(file.c_str(), 0604), 0);
  ASSERT_EQ(::setxattr(file.c_str(), "trusted.quillmend", "x", 1, 0), 0);
  const timespec times[] = {{1000000000, 1}, {1100000000, 2}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);

  const auto moved = changes.move(folder / "from", other / "to");
  ASSERT_TRUE(moved.ok()) << moved.error().localizedDescription();
  EXPECT_FALSE(fs::exists(folder / "from"));
  EXPECT_THAT(namesIn(other / ""), ElementsAre("to"));
  const struct stat status = statusAt(other / "to/inside/file");
  EXPECT_EQ(support::contentOf(other / "to/inside/file"), "content");
  EXPECT_EQ(status.st_uid, 1234U);
  EXPECT_EQ(status.st_gid, 4321U);
  EXPECT_EQ(status.st_mode & 07777, 0604U);
  EXPECT_EQ(status.st_mtim.tv_sec, 1100000000);
  EXPECT_EQ(status.st_mtim.tv_nsec, 2);
  char value = 0;
  EXPECT_EQ(::getxattr((other / "to/inside/file").c_str(), "trusted.quillmend", &value, 1), 1);
  EXPECT_EQ(fs::read_symlink(other / "to/inside/link"), "file");
  EXPECT_EQ(statusAt(other / "to/inside/link").st_uid, 1234U);
  EXPECT_TRUE(S_ISFIFO(statusAt(other / "to/fifo").st_mode));
}

TEST_F(GuardedFilesTest, AMoveThatDoesNotFitLeavesEverythingAsItWas) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount";
  const SmallVolume other;
  if (!other.isMounted()) GTEST_SKIP() << "cannot mount here";
  folder.file("from/small", "x");
  folder.file("from/big", std::string(2 << 20, 'x'));
  EXPECT_EQ(changes.move(folder / "from", other / "to").error().code, ENOSPC);
  EXPECT_THAT(namesIn(other / ""), IsEmpty());
  EXPECT_THAT(namesIn(folder / "from"), UnorderedElementsAre("small", "big"));
}

TEST_F(GuardedFilesTest, AMoveToAnotherFileSystemReplacesNothingEither) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount";
  const SmallVolume other;
  if (!other.isMounted()) GTEST_SKIP() << "cannot mount here";
  std::ofstream(other / "to") << "old";
  EXPECT_FALSE(changes.move(folder.file("from", "new"), other / "to").ok());
  EXPECT_EQ(support::contentOf(other / "to"), "old");
  EXPECT_EQ(folder.content("from"), "new");
  EXPECT_THAT(namesIn(other / ""), ElementsAre("to"));
}

TEST_F(GuardedFilesTest, RemovesWholeFoldersAndLinksThemselves) {
  folder.file("keep/file", "x");
  folder.file("gone/a/b", "x");
  fs::create_directory_symlink(folder / "keep", folder / "gone/a/link");
  fs::create_directory_symlink(folder / "keep", folder / "link");
  EXPECT_TRUE(changes.remove(folder / "gone").ok());
  EXPECT_TRUE(changes.remove(folder / "link").ok());
  EXPECT_EQ(folder.content("keep/file"), "x");
  EXPECT_THAT(namesIn(folder.path()), ElementsAre("keep"));
  EXPECT_EQ(changes.remove(folder / "gone").error().code, ENOENT);
}

TEST_F(GuardedFilesTest, WhatCannotBeRemovedIsNamedAndTheRestIsGone) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to be somebody else";
  ::chmod(folder.path().c_str(), 0777);
  AsUser::run(kNobody, [this] {
    folder.file("tree/a/file");
    folder.file("tree/closed/file");
    folder.file("tree/z/file");
    fs::create_directory(folder / "tree/z/empty");
    ::chmod((folder / "tree/z/empty").c_str(), 0);
    ::chmod((folder / "tree/closed").c_str(), 0500);
    const auto removed = changes.remove(folder / "tree");
    EXPECT_EQ(removed.error().code, EACCES);
    EXPECT_THAT(namesIn(folder / "tree"), ElementsAre("closed")) << "an empty folder need not be entered";
    ::chmod((folder / "tree/closed").c_str(), 0700);
    EXPECT_TRUE(changes.remove(folder / "tree"));
  });
}

TEST_F(GuardedFilesTest, WritesANewFileWithTheUsualMode) {
  const mode_t before = ::umask(0027);
  EXPECT_TRUE(changes.writeAtomically(folder / "file", "content").ok());
  ::umask(before);
  EXPECT_EQ(folder.content("file"), "content");
  EXPECT_EQ(modeAt(folder / "file"), 0640U);
  EXPECT_THAT(namesIn(folder.path()), ElementsAre("file"));
}

TEST_F(GuardedFilesTest, ReplacingAFileKeepsItsOwnerAndMode) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to give files away";
  const std::string file = folder.file("file", "old");
  ASSERT_EQ(::chown(file.c_str(), 1234, 4321), 0);
  ASSERT_EQ(::chmod(file.c_str(), 0660), 0);
  EXPECT_TRUE(changes.writeAtomically(file, "new").ok());
  EXPECT_EQ(folder.content("file"), "new");
  EXPECT_EQ(statusAt(file).st_uid, 1234U);
  EXPECT_EQ(statusAt(file).st_gid, 4321U);
  EXPECT_EQ(modeAt(file), 0660U);
}

TEST_F(GuardedFilesTest, ReplacingAFileDoesNotTakeSetIdBitsOver) {
  const std::string file = folder.file("file", "old");
  ASSERT_EQ(::chmod(file.c_str(), 06755), 0);
  EXPECT_TRUE(changes.writeAtomically(file, "new").ok());
  EXPECT_EQ(modeAt(file), 0755U);
}

TEST_F(GuardedFilesTest, APlantedLinkIsReplacedAndWhatItLeadsToUntouched) {
  const std::string victim = folder.file("victim", "precious");
  fs::create_symlink(victim, folder / "link");
  ASSERT_EQ(::link(victim.c_str(), (folder / "hard").c_str()), 0);
  EXPECT_TRUE(changes.writeAtomically(folder / "link", "new").ok());
  EXPECT_TRUE(changes.writeAtomically(folder / "hard", "new").ok());
  EXPECT_EQ(folder.content("victim"), "precious");
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(folder / "link")));
  EXPECT_EQ(folder.content("link"), "new");
  EXPECT_EQ(folder.content("hard"), "new");
}

TEST_F(GuardedFilesTest, AFolderIsNotReplacedByAFile) {
  fs::create_directory(folder / "sub");
  EXPECT_EQ(changes.writeAtomically(folder / "sub", "x").error().code, EISDIR);
  EXPECT_EQ(changes.writeAtomically(folder / "absent/file", "x").error().code, ENOENT);
  EXPECT_EQ(changes.writeAtomically("/", "x").error().code, EISDIR);
  EXPECT_EQ(changes.writeAtomically("", "x").error().code, ENOENT);
  EXPECT_THAT(namesIn(folder.path()), ElementsAre("sub"));
}

TEST_F(GuardedFilesTest, AFileIsMadeOnlyWhereNothingIs) {
  EXPECT_TRUE(changes.createFileUnsynced(folder / "new", "whole").ok());
  EXPECT_EQ(folder.content("new"), "whole");
  EXPECT_EQ(modeAt(folder / "new"), 0644U);
  fs::create_directory(folder / "sub");
  fs::create_symlink("nothing", folder / "dangling");
  for (const char* const taken : {"new", "sub", "dangling"}) {
    EXPECT_EQ(changes.createFileUnsynced(folder / taken, "x").error().code, EEXIST) << taken;
  }
  EXPECT_EQ(changes.createFileUnsynced(folder / "absent/file", "x").error().code, ENOENT);
  EXPECT_EQ(folder.content("new"), "whole");
  EXPECT_TRUE(fs::is_symlink(folder / "dangling"));
  EXPECT_THAT(namesIn(folder.path()), UnorderedElementsAre("new", "sub", "dangling"));
}

TEST_F(GuardedFilesTest, OfManyThatMakeAFileAtOnceOneDoes) {
  for (int time = 0; time < 50; ++time) {
    std::array<int, 4> reasons{};
    std::vector<std::thread> threads;
    for (std::size_t at = 0; at < reasons.size(); ++at) {
      threads.emplace_back([&, at] {
        const auto made =
            changes.createFileUnsynced(folder / "file", std::string(100000, static_cast<char>('a' + at)));
        reasons.at(at) = made ? 0 : made.error().code;
      });
    }
    for (std::thread& thread : threads) thread.join();
    ASSERT_THAT(reasons, UnorderedElementsAre(0, EEXIST, EEXIST, EEXIST));
    const auto winner = std::find(reasons.begin(), reasons.end(), 0) - reasons.begin();
    EXPECT_EQ(folder.content("file"), std::string(100000, static_cast<char>('a' + winner)));
    fs::remove(folder / "file");
  }
  EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

TEST_F(GuardedFilesTest, OnlyWhatWasSeenIsReplaced) {
  const std::string file = folder.file("file", "old");
  ASSERT_EQ(::chmod(file.c_str(), 0640), 0);
  const auto seen = queries.state(file);
  EXPECT_EQ(changes.replaceUnchanged(file, std::nullopt, "new").error().code, EAGAIN);
  const auto written = changes.replaceUnchanged(file, seen, "new");
  ASSERT_TRUE(written);
  EXPECT_EQ(written.value(), queries.state(file));
  EXPECT_EQ(folder.content("file"), "new");
  EXPECT_EQ(modeAt(file), 0640U);
  EXPECT_EQ(changes.replaceUnchanged(file, seen, "newer").error().code, EAGAIN);
  EXPECT_EQ(folder.content("file"), "new");
  fs::remove(file);
  EXPECT_EQ(changes.replaceUnchanged(file, seen, "newer").error().code, EAGAIN);
  const auto begun = changes.replaceUnchanged(file, std::nullopt, "begun");
  ASSERT_TRUE(begun);
  EXPECT_EQ(begun.value(), queries.state(file));
  EXPECT_EQ(folder.content("file"), "begun");
  EXPECT_THAT(namesIn(folder.path()), ElementsAre("file"));
}

TEST_F(GuardedFilesTest, ALinkIsNotWhatWasSeenBehindIt) {
  const std::string file = folder.file("file", "old");
  fs::create_symlink(file, folder / "link");
  fs::create_symlink("nothing", folder / "dangling");
  EXPECT_EQ(changes.replaceUnchanged(folder / "link", queries.state(file), "new").error().code, EAGAIN);
  EXPECT_EQ(changes.replaceUnchanged(folder / "dangling", std::nullopt, "new").error().code, EAGAIN);
  EXPECT_EQ(changes.replaceUnchanged(folder / "absent/file", std::nullopt, "new").error().code, ENOENT);
  EXPECT_EQ(folder.content("file"), "old");
  EXPECT_TRUE(fs::is_symlink(folder / "link"));
}

TEST_F(GuardedFilesTest, ANameOfTheGreatestLengthCanBeReplaced) {
  const std::string file = folder.file(std::string(255, 'x'), "old");
  EXPECT_TRUE(changes.writeAtomically(file, "new").ok());
  EXPECT_EQ(support::contentOf(file), "new");
}

TEST_F(GuardedFilesTest, AFullDiskLeavesTheOldFileAndNoTrace) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount";
  const SmallVolume other;
  if (!other.isMounted()) GTEST_SKIP() << "cannot mount here";
  std::ofstream(other / "file") << "old";
  EXPECT_EQ(changes.writeAtomically(other / "file", std::string(2 << 20, 'x')).error().code, ENOSPC);
  EXPECT_EQ(support::contentOf(other / "file"), "old");
  EXPECT_THAT(namesIn(other / ""), ElementsAre("file"));
}

TEST_F(GuardedFilesTest, WritingFromManyThreadsAlwaysLeavesOneWholeFile) {
  const std::string file = folder / "file";
  std::vector<std::thread> writers;
  for (const char letter : {'a', 'b', 'c', 'd'}) {
    writers.emplace_back([&, letter] {
      for (int count = 0; count < 10; ++count) {
        EXPECT_TRUE(changes.writeAtomically(file, std::string(100000, letter)).ok());
      }
    });
  }
  for (std::thread& writer : writers) writer.join();
  const std::string content = folder.content("file");
  EXPECT_EQ(content, std::string(100000, content.at(0)));
  EXPECT_THAT(namesIn(folder.path()), ElementsAre("file"));
}

TEST_F(GuardedFilesTest, OpensAnExistingFileAtItsStartWithoutCuttingIt) {
  const std::string file = folder.file("file", "abcdef");
  auto writable = changes.openForWriting(file);
  ASSERT_TRUE(writable.ok());
  EXPECT_TRUE(writable.value()->write("XY").ok());
  EXPECT_EQ(folder.content("file"), "XYcdef");
  EXPECT_TRUE(writable.value()->seekToEnd().ok());
  EXPECT_TRUE(writable.value()->write("Z").ok());
  EXPECT_EQ(folder.content("file"), "XYcdefZ");
}

TEST_F(GuardedFilesTest, OpeningForWritingMakesNothingFollowsNothingAndNeverBlocks) {
  const std::string file = folder.file("file");
  fs::create_symlink(file, folder / "link");
  EXPECT_EQ(changes.openForWriting(folder / "absent").error().code, ENOENT);
  EXPECT_EQ(changes.openForWriting(folder / "link").error().code, ELOOP);
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(changes.openForWriting(folder / "fifo").error().code, EINVAL);
  EXPECT_EQ(changes.openForWriting(folder.path()).error().code, EINVAL);
  EXPECT_FALSE(fs::exists(folder / "absent"));
}

TEST_F(GuardedFilesTest, RootDoesNotWriteToAFileThatHasFurtherNames) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  const std::string file = folder.file("file");
  ASSERT_EQ(::link(file.c_str(), (folder / "second").c_str()), 0);
  EXPECT_EQ(changes.openForWriting(file).error().code, EMLINK);
}

TEST_F(GuardedFilesTest, RootDoesNotReadAFileItselfThatHasFurtherNames) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  const std::string file = folder.file("file", "secret");
  ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
  EXPECT_EQ(queries.readFileItself(file, 10).value(), "secret");
  ASSERT_EQ(::link(file.c_str(), (folder / "second").c_str()), 0);
  EXPECT_EQ(queries.readFileItself(folder / "second", 10).error().code, EMLINK);
  AsUser::run(kNobody, [&] { EXPECT_EQ(queries.readFileItself(file, 10).value(), "secret"); });
}

TEST_F(GuardedFilesTest, RootOpensNothingThatMayHaveLostTheNameItWasOpenedBy) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  const std::string file = folder.file("name (deleted)");  // as the kernel tells of such a file
  EXPECT_EQ(changes.openForWriting(file).error().code, EMLINK);
  EXPECT_EQ(queries.readFileItself(file, 10).error().code, EMLINK);
}

TEST_F(GuardedFilesTest, WritingToAFullDiskIsAnError) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount";
  const SmallVolume other;
  if (!other.isMounted()) GTEST_SKIP() << "cannot mount here";
  std::ofstream(other / "log") << "old";
  auto writable = changes.openForWriting(other / "log");
  ASSERT_TRUE(writable.ok());
  EXPECT_EQ(writable.value()->write(std::string(2 << 20, 'x')).error().code, ENOSPC);
}

TEST_F(GuardedFilesTest, RemovesATreeThatIsDeeperThanDescriptorsCanBeHad) {
  constexpr int kDepth = 600;
  const std::string name(200, 'd');  // its path is longer than a call would take
  UniqueDescriptor inside(::open(folder.path().c_str(), O_PATH | O_DIRECTORY));
  for (int depth = 0; depth < kDepth; ++depth) {
    ASSERT_EQ(::mkdirat(inside.get(), name.c_str(), 0755), 0);
    inside.reset(::openat(inside.get(), name.c_str(), O_RDONLY | O_DIRECTORY));
    if (depth % 100 == 0) {
      ASSERT_EQ(::symlinkat("/", inside.get(), "link"), 0);
    }
  }
  inside.reset();
  const support::FewDescriptors few(250);
  const auto removed = changes.remove(folder / name);
  EXPECT_TRUE(removed.ok()) << (removed ? "" : std::strerror(removed.error().code));
  EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

TEST_F(GuardedFilesTest, WhatCannotBeRemovedIsPassedOverAndNamed) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount";
  folder.file("tree/a/file");
  folder.file("tree/z/file");
  const std::string busy = folder.folder("tree/m");
  ASSERT_EQ(::mount("none", busy.c_str(), "tmpfs", 0, "size=1m"), 0);
  const auto removed = changes.remove(folder / "tree");
  ASSERT_EQ(::umount(busy.c_str()), 0);
  ASSERT_FALSE(removed.ok());
  EXPECT_EQ(removed.error().code, EBUSY);
  EXPECT_THAT(namesIn(folder / "tree"), ElementsAre("m"));
}

TEST_F(GuardedFilesTest, NothingThatHoldsEverythingIsRemoved) {
  folder.file("file");
  for (const char* const name : {".", "..", "../inner/.", "../."}) {
    fs::create_directories(folder / "inner");
    EXPECT_EQ(changes.remove(folder / "inner/" + name).error().code, EINVAL);
  }
  EXPECT_EQ(changes.remove("/").error().code, EINVAL);
  EXPECT_TRUE(fs::exists(folder / "file"));
}

TEST_F(GuardedFilesTest, WhoMayNotGiveFilesAwayReplacesThemAllTheSame) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to give files away";
  const std::string file = folder.file("file", "old");
  ASSERT_EQ(::chmod(folder.path().c_str(), 0777), 0);
  ASSERT_EQ(::chown(file.c_str(), 1234, 4321), 0);
  ASSERT_EQ(::chmod(file.c_str(), 0664), 0);
  AsUser::run(kNobody, [&] { EXPECT_TRUE(changes.writeAtomically(file, "new").ok()); });
  EXPECT_EQ(folder.content("file"), "new");
  EXPECT_EQ(statusAt(file).st_uid, kNobody);
  EXPECT_EQ(modeAt(file), 0644U) << "another group has no more rights than everybody";
}

TEST_F(GuardedFilesTest, ACopyForOwnUseIsClosedToOthersWhateverTheOriginalIs) {
  folder.file("from/inside/file", "x");
  fs::permissions(folder / "from", fs::perms(0777));
  EXPECT_TRUE(changes.copyForOwnUse(folder / "from", folder / "to").ok());
  EXPECT_EQ(folder.content("to/inside/file"), "x");
  EXPECT_EQ(modeAt(folder / "to"), ::geteuid() == 0 ? 0755U : 0700U);
}

TEST_F(GuardedFilesTest, ACopyForTheUsersOwnUseIsClosedToOthers) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  folder.file("from/file", "x");
  fs::create_directory(folder / "home");
  ASSERT_EQ(::chown((folder / "home").c_str(), kNobody, kNobody), 0);
  folder.makeAccessibleToAll();
  AsUser::run(kNobody, [this] {
    EXPECT_TRUE(changes.copyForOwnUse(folder / "from", folder / "home/to").ok());
    EXPECT_EQ(modeAt(folder / "home/to"), 0700U);
    EXPECT_TRUE(queries.isOutOfOthersReach(folder / "home/to"));
  });
}

TEST_F(GuardedFilesTest, ACopyForOwnUseTakesNothingsPlaceAndIsAFolder) {
  folder.file("from/file", "x");
  folder.file("taken");
  folder.file("file");
  EXPECT_EQ(changes.copyForOwnUse(folder / "from", folder / "taken").error().code, EEXIST);
  EXPECT_EQ(changes.copyForOwnUse(folder / "file", folder / "to").error().code, ENOTDIR);
  fs::create_directory_symlink(folder / "from", folder / "link");
  EXPECT_FALSE(changes.copyForOwnUse(folder / "link", folder / "to").ok());
  EXPECT_EQ(namesIn(folder.path()).size(), 4U) << "nothing is left";
}

class OthersReachTest : public GuardedFilesTest {
 protected:
  OthersReachTest() {
    fs::create_directories(folder / "above/own/inside");
    folder.makeAccessibleToAll();
  }
  void setMode(const std::string& name, unsigned mode) { fs::permissions(folder / name, fs::perms(mode)); }
  [[nodiscard]] bool isOutOfReach(const std::string& name) {
    return queries.isOutOfOthersReach(folder / name);
  }
};

TEST_F(OthersReachTest, AnOwnFolderAmongOwnFoldersIsOutOfIt) {
  EXPECT_TRUE(isOutOfReach("above/own"));
  EXPECT_TRUE(isOutOfReach("above//own/."));
}

TEST_F(OthersReachTest, AFolderThatOthersMayWriteInIsNot) {
  for (const unsigned mode : {0775U, 0757U, 01777U}) {
    setMode("above/own", mode);
    EXPECT_FALSE(isOutOfReach("above/own")) << std::oct << mode;
  }
}

TEST_F(OthersReachTest, AFolderThatOthersMayExchangeIsNot) {
  for (const unsigned mode : {0775U, 0757U, 0777U}) {
    setMode("above", mode);
    EXPECT_FALSE(isOutOfReach("above/own")) << std::oct << mode;
    EXPECT_FALSE(isOutOfReach("above/own/inside")) << std::oct << mode;
  }
}

TEST_F(OthersReachTest, TheStickyBitKeepsAnOwnFolderFromOthers) {
  setMode("above", 01777);
  EXPECT_TRUE(isOutOfReach("above/own"));
}

TEST_F(OthersReachTest, NothingAndWhatIsNoFolderAreWithinIt) {
  folder.file("file");
  EXPECT_FALSE(isOutOfReach("missing"));
  EXPECT_FALSE(isOutOfReach("file"));
  EXPECT_FALSE(queries.isOutOfOthersReach(""));
  EXPECT_FALSE(queries.isOutOfOthersReach("relative"));
}

TEST_F(OthersReachTest, ALinkIsNoFolderOfItsOwn) {
  fs::create_directory_symlink(folder / "above/own", folder / "link");
  EXPECT_FALSE(isOutOfReach("link"));
}

TEST_F(OthersReachTest, ALinkOnTheWayIsFollowedWhereNobodyElseCanHavePutIt) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  const support::TemporaryFolder home("/root");  // nothing above it is everybody's, unlike here
  fs::create_directory_symlink(folder / "above", home / "link");
  setMode("above", 01777);
  EXPECT_TRUE(queries.isOutOfOthersReach(home / "link/own"));
  fs::create_directory_symlink(folder / "above", folder / "link");
  EXPECT_FALSE(isOutOfReach("link/own"));
}

TEST_F(OthersReachTest, SomebodyElsesFoldersAreWithinIt) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  ASSERT_EQ(::chown((folder / "above").c_str(), kNobody, kNobody), 0);
  EXPECT_FALSE(isOutOfReach("above"));
  EXPECT_FALSE(isOutOfReach("above/own"));
  AsUser::run(kNobody, [this] {
    EXPECT_TRUE(isOutOfReach("above")) << "its own";
    EXPECT_TRUE(isOutOfReach("above/own")) << "root's";
  });
  AsUser::run(kNobody - 1, [this] { EXPECT_FALSE(isOutOfReach("above/own")); });
}

/// Root in a home folder that belongs to somebody else.
class GuardedFilesAsRootTest : public GuardedFilesTest {
 protected:
  std::string home = folder / "home";
  std::string elsewhere = folder / "elsewhere";

  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
    fs::create_directories(home + "/Library");
    fs::create_directory(elsewhere);
    give(home);
    give(home + "/Library");
  }
  static void give(const std::string& path) { ASSERT_EQ(::lchown(path.c_str(), kNobody, 4321), 0); }
  /// The user swaps a folder for a link.
  void plantLink() {
    fs::create_directory_symlink(elsewhere, home + "/Library/Logs");
    give(home + "/Library/Logs");
  }
  static int reasonOf(const foundation::Result<void>& result) { return result ? 0 : result.error().code; }
};

TEST_F(GuardedFilesAsRootTest, NothingIsMadeThroughALinkOnTheWay) {
  plantLink();
  EXPECT_EQ(reasonOf(changes.createDirectory(home + "/Library/Logs/Vordenworks")), ELOOP);
  EXPECT_EQ(reasonOf(changes.createDirectory(home + "/Library/Logs/a/b")), ELOOP);
  EXPECT_NE(reasonOf(changes.createDirectory(home + "/Library/Logs")), 0);
  EXPECT_THAT(namesIn(elsewhere), IsEmpty());
}

TEST_F(GuardedFilesAsRootTest, NothingIsMovedThroughALinkOnTheWay) {
  plantLink();
  std::ofstream(elsewhere + "/shadow") << "precious";
  const std::string mine = folder.file("home/mine", "mine");
  EXPECT_EQ(reasonOf(changes.move(home + "/Library/Logs/shadow", home + "/taken")), ELOOP);
  EXPECT_EQ(reasonOf(changes.move(mine, home + "/Library/Logs/planted")), ELOOP);
  EXPECT_THAT(namesIn(elsewhere), ElementsAre("shadow"));
  EXPECT_EQ(folder.content("home/mine"), "mine");
}

TEST_F(GuardedFilesAsRootTest, NothingIsTrashedWhereATrashIsALink) {
  const std::string file = folder.file("home/Library/file", "x");
  fs::create_directory_symlink(elsewhere, home + "/.Trash");
  give(home + "/.Trash");
  EXPECT_EQ(reasonOf(changes.move(file, home + "/.Trash/file")), ELOOP);
  EXPECT_THAT(namesIn(elsewhere), IsEmpty());
  EXPECT_EQ(support::contentOf(file), "x");
}

TEST_F(GuardedFilesAsRootTest, NothingIsRemovedThroughALinkOnTheWay) {
  plantLink();
  std::ofstream(elsewhere + "/shadow") << "precious";
  EXPECT_EQ(reasonOf(changes.remove(home + "/Library/Logs/shadow")), ELOOP);
  EXPECT_THAT(namesIn(elsewhere), ElementsAre("shadow"));
  EXPECT_EQ(reasonOf(changes.remove(home + "/Library/Logs")), 0) << "the link itself may go";
  EXPECT_THAT(namesIn(elsewhere), ElementsAre("shadow"));
}

TEST_F(GuardedFilesAsRootTest, NothingIsWrittenThroughALinkOnTheWay) {
  plantLink();
  std::ofstream(elsewhere + "/shadow") << "precious";
  EXPECT_EQ(reasonOf(changes.writeAtomically(home + "/Library/Logs/shadow", "x")), ELOOP);
  EXPECT_EQ(reasonOf(changes.writeAtomically(home + "/Library/Logs/new", "x")), ELOOP);
  EXPECT_EQ(reasonOf(changes.createFileUnsynced(home + "/Library/Logs/new", "x")), ELOOP);
  EXPECT_EQ(changes.openForWriting(home + "/Library/Logs/shadow").error().code, ELOOP);
  EXPECT_EQ(support::contentOf(elsewhere + "/shadow"), "precious");
  EXPECT_THAT(namesIn(elsewhere), ElementsAre("shadow"));
}

TEST_F(GuardedFilesAsRootTest, AFileItselfIsNotReadThroughALinkOnTheWay) {
  plantLink();
  std::ofstream(elsewhere + "/shadow") << "secret";
  EXPECT_EQ(queries.readFileItself(home + "/Library/Logs/shadow", 10).error().code, ELOOP);
  EXPECT_EQ(queries.readFileItself(elsewhere + "/shadow", 10).value(), "secret");
}

TEST_F(GuardedFilesAsRootTest, LinksThatOnlyRootCanHaveMadeAreFollowed) {
  ChangedRoot::run(folder.path(), [this] {
    fs::create_directory_symlink("/home", "/Users");
    EXPECT_TRUE(changes.writeAtomically("/Users/Library/file", "x").ok()) << "a link that is root's";
    EXPECT_TRUE(changes.createDirectory("/Users/Library/Logs").ok());
    EXPECT_TRUE(changes.move("/Users/Library/file", "/Users/Library/Logs/file").ok());
    EXPECT_TRUE(changes.openForWriting("/Users/Library/Logs/file").ok());
    EXPECT_TRUE(changes.remove("/Users/Library/Logs").ok());
    EXPECT_TRUE(changes.createDirectory("/Users").ok()) << "it leads to a folder";
  });
}

TEST_F(GuardedFilesAsRootTest, NewFoldersInSomebodysHomeAreTheirs) {
  const std::string logs = home + "/Library/Logs";
  ASSERT_TRUE(changes.createDirectory(logs + "/Vordenworks").ok());
  for (const std::string& made : {logs, logs + "/Vordenworks"}) {
    EXPECT_EQ(statusAt(made).st_uid, kNobody);
    EXPECT_EQ(statusAt(made).st_gid, 4321U);
    EXPECT_EQ(modeAt(made), 0755U);
  }
  ASSERT_TRUE(changes.createDirectory(elsewhere + "/new").ok());
  EXPECT_EQ(statusAt(elsewhere + "/new").st_uid, 0U);
}

TEST_F(GuardedFilesAsRootTest, NewFilesInSomebodysHomeAreTheirs) {
  ASSERT_TRUE(changes.writeAtomically(home + "/Library/new.plist", "x").ok());
  ASSERT_TRUE(changes.createFileUnsynced(home + "/Library/new.log", "x").ok());
  for (const char* const made : {"/Library/new.plist", "/Library/new.log"}) {
    EXPECT_EQ(statusAt(home + made).st_uid, kNobody);
    EXPECT_EQ(statusAt(home + made).st_gid, 4321U);
    EXPECT_EQ(modeAt(home + made), 0644U);
  }
  ASSERT_TRUE(changes.writeAtomically(elsewhere + "/new.plist", "x").ok());
  EXPECT_EQ(statusAt(elsewhere + "/new.plist").st_uid, 0U);
}

TEST_F(GuardedFilesAsRootTest, WhatReplacesALinkInSomebodysHomeIsTheirs) {
  fs::create_symlink(elsewhere + "/absent", home + "/link");
  ASSERT_TRUE(changes.writeAtomically(home + "/link", "x").ok());
  EXPECT_EQ(statusAt(home + "/link").st_uid, kNobody);
}

TEST_F(GuardedFilesAsRootTest, AUserGoesOnWhereRootBegan) {
  ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
  const std::string logs = home + "/Library/Logs/Vordenworks";
  ASSERT_TRUE(changes.createDirectory(logs).ok());
  ASSERT_TRUE(changes.writeAtomically(logs + "/Quillmend.1.log", "root's").ok());
  AsUser::run(kNobody, [&] {
    EXPECT_TRUE(changes.move(logs + "/Quillmend.1.log", logs + "/Quillmend.2.log").ok());
    EXPECT_TRUE(changes.writeAtomically(logs + "/Quillmend.1.log", "user's").ok());
  });
  EXPECT_THAT(namesIn(logs), UnorderedElementsAre("Quillmend.1.log", "Quillmend.2.log"));
}

}  // namespace
}  // namespace platform
