#include "platform/posix/PosixFolderQueries.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <thread>

#include "platform/posix/UniqueDescriptor.h"
#include "tests/support/AsUser.h"
#include "tests/support/SmallVolume.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using support::TemporaryFolder;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class PosixFolderQueriesTest : public ::testing::TestWithParam<ReadFolder*> {
 protected:
  TemporaryFolder folder;
  PosixFolderQueries queries{GetParam()};
};

TEST_P(PosixFolderQueriesTest, EntriesAreSortedByTheirBytesAndTellTheirKinds) {
  folder.file("b");
  folder.file("B");
  folder.file(".hidden");
  folder.file("a\xff");
  std::filesystem::create_directories(folder / "folder");
  fs::create_symlink("nowhere", folder / "link");
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
  EXPECT_THAT(queries.entries(folder.path()).value(),
              ElementsAre(FolderEntry{".hidden", EntryKind::other}, FolderEntry{"B", EntryKind::other},
                          FolderEntry{"a\xff", EntryKind::other}, FolderEntry{"b", EntryKind::other},
                          FolderEntry{"fifo", EntryKind::other}, FolderEntry{"folder", EntryKind::folder},
                          FolderEntry{"link", EntryKind::link}));
}

TEST_P(PosixFolderQueriesTest, WhatIsNoFolderCannotBeListed) {
  folder.file("file");
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(queries.entries(folder / "file").error().code, ENOTDIR);
  EXPECT_EQ(queries.entries(folder / "fifo").error().code, ENOTDIR);
  EXPECT_EQ(queries.entries(folder / "missing").error().code, ENOENT);
  EXPECT_EQ(queries.entries("").error().code, ENOENT);
}

TEST_P(PosixFolderQueriesTest, ManyEntriesAreAllListed) {
  for (int number = 0; number < 3000; ++number) folder.file("a rather long name " + std::to_string(number));
  EXPECT_THAT(queries.entries(folder.path()).value(), SizeIs(3000));
}

TEST_P(PosixFolderQueriesTest, TheSizeOfAFolderIsTheSumOfWhatItHolds) {
  folder.file("a", std::string(100, 'x'));
  folder.file("sub/deeper/b", std::string(20, 'x'));
  folder.file("sub/.hidden", "xxx");
  std::filesystem::create_directories(folder / "empty");
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(queries.totalSize(folder.path()), 123U);
  EXPECT_EQ(queries.totalSize(folder / "a"), 100U);
  EXPECT_EQ(queries.totalSize(folder / "missing"), 0U);
}

TEST_P(PosixFolderQueriesTest, ASparseFileCountsWithItsLength) {
  folder.file("sparse");
  ASSERT_EQ(::truncate((folder / "sparse").c_str(), off_t{5} << 32), 0);
  folder.file("x", "x");
  EXPECT_EQ(queries.totalSize(folder.path()), (5ULL << 32) + 1);
}

TEST_P(PosixFolderQueriesTest, FilesWithSeveralNamesCountUnderEach) {
  folder.file("a", "12345");
  fs::create_hard_link(folder / "a", folder / "b");
  EXPECT_EQ(queries.totalSize(folder.path()), 10U);
}

TEST_P(PosixFolderQueriesTest, ALinkToAFolderCountsWithItsContentAndOneToAFileWithItsOwnLength) {
  folder.file("real/a", std::string(100, 'x'));
  std::filesystem::create_directories(folder / "all");
  fs::create_symlink("../real", folder / "all/folder");
  fs::create_symlink("../real/a", folder / "all/file");
  fs::create_symlink("nowhere", folder / "all/dangling");
  EXPECT_EQ(queries.totalSize(folder / "all"), 100U + 9U + 7U);
  EXPECT_EQ(queries.totalSize(folder / "all/folder"), 100U);
  EXPECT_EQ(queries.totalSize(folder / "all/file"), 9U);
  EXPECT_EQ(queries.totalSize(folder / "all/dangling"), 7U);
}

TEST_P(PosixFolderQueriesTest, AFolderReachedTwiceCountsTwiceAndOneInsideItselfOnce) {
  folder.file("real/a", std::string(100, 'x'));
  fs::create_symlink("real", folder / "again");
  EXPECT_EQ(queries.totalSize(folder.path()), 200U);
  fs::create_symlink("..", folder / "real/up");
  fs::create_symlink(".", folder / "real/self");
  EXPECT_EQ(queries.totalSize(folder / "real"), 100U);
}

TEST_P(PosixFolderQueriesTest, WhatCannotBeListedCountsNothing) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to be somebody else";
  ::chmod(folder.path().c_str(), 0755);
  folder.file("a", "12345");
  folder.file("closed/b", "12345");
  ::chmod((folder / "closed").c_str(), 0700);
  support::AsUser::run(support::kNobody, [this] {
    EXPECT_EQ(queries.totalSize(folder.path()), ::getuid() == 0 ? 10U : 5U);
    EXPECT_EQ(queries.entries(folder / "closed").error().code, EACCES);
  });
}

TEST_P(PosixFolderQueriesTest, DepthUsesNoDescriptorsUp) {
  std::string path = folder.path();
  UniqueDescriptor at(::open(path.c_str(), O_RDONLY | O_DIRECTORY));
  constexpr int depth = 1200;
  for (int level = 0; level < depth; ++level) {
    ASSERT_EQ(::mkdirat(at.get(), "d", 0700), 0);
    at.reset(::openat(at.get(), "d", O_RDONLY | O_DIRECTORY));
  }
  const UniqueDescriptor file(::openat(at.get(), "f", O_WRONLY | O_CREAT, 0600));
  ASSERT_EQ(::write(file.get(), "12345", 5), 5);
  EXPECT_EQ(queries.totalSize(folder.path()), 5U);
}

TEST_P(PosixFolderQueriesTest, EntriesMayVanishMeanwhile) {
  std::atomic<bool> ends = false;
  std::thread other([&] {
    while (!ends) {
      for (int number = 0; number < 50; ++number) folder.file("sub" + std::to_string(number) + "/file", "x");
      for (int number = 0; number < 50; ++number) fs::remove_all(folder / ("sub" + std::to_string(number)));
    }
  });
  for (int round = 0; round < 200; ++round) {
    EXPECT_LE(queries.totalSize(folder.path()), 50U);
    EXPECT_TRUE(queries.entries(folder.path()));
  }
  ends = true;
  other.join();
}

TEST_P(PosixFolderQueriesTest, OtherVolumesAreEntered) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount";
  const support::SmallVolume volume;
  ASSERT_TRUE(volume.isMounted());
  std::ofstream(volume / "file") << "12345";
  fs::create_directory_symlink(volume.path(), folder / "link");
  EXPECT_EQ(queries.totalSize(folder.path()), 5U);
}

TEST_P(PosixFolderQueriesTest, AnIdentityIsThatOfTheItemAndNotOfItsPath) {
  std::filesystem::create_directories(folder / "real");
  fs::create_symlink("real", folder / "link");
  EXPECT_EQ(queries.identity(folder / "real"), queries.identity(folder / "link"));
  EXPECT_NE(queries.identity(folder / "real"), queries.identity(folder.path()));
  EXPECT_EQ(queries.identity(folder / "missing"), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(Readers, PosixFolderQueriesTest, ::testing::Values(readFolder, readFolderByStream));

}  // namespace
}  // namespace platform
