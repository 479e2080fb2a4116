#include "platform/posix/GuardedFileLocks.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "tests/support/AsUser.h"
#include "tests/support/PathStatus.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

class GuardedFileLocksTest : public testing::Test {
 protected:
  int reasonAgainst(const std::string& file) {
    const auto lock = locks.tryLock(file);
    return lock ? 0 : lock.error().code;
  }

  support::TemporaryFolder folder;
  GuardedFileLocks locks;
  const std::string path = folder / "a.plist";
  const std::string lockFile = folder / ".a.plist.lock";
};

TEST_F(GuardedFileLocksTest, OneHolderAtATime) {
  auto first = locks.tryLock(path);
  ASSERT_TRUE(first);
  EXPECT_EQ(reasonAgainst(path), EWOULDBLOCK);
  EXPECT_EQ(reasonAgainst(folder / "b.plist"), 0);
  first.value().reset();
  EXPECT_EQ(reasonAgainst(path), 0);
}

TEST_F(GuardedFileLocksTest, ALockHoldsWhileTheFileIsReplaced) {
  folder.file("a.plist", "one");
  const auto lock = locks.tryLock(path);
  ASSERT_TRUE(lock);
  folder.file("new", "two");
  ASSERT_EQ(::rename((folder / "new").c_str(), path.c_str()), 0);
  EXPECT_EQ(reasonAgainst(path), EWOULDBLOCK);
}

TEST_F(GuardedFileLocksTest, AnotherProcessIsKeptOutAndItsEndLetsGo) {
  int ready[2];
  int done[2];
  ASSERT_EQ(::pipe(ready), 0);
  ASSERT_EQ(::pipe(done), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    const auto lock = locks.tryLock(path);
    char byte = lock ? 'y' : 'n';
    static_cast<void>(::write(ready[1], &byte, 1));
    static_cast<void>(::read(done[0], &byte, 1));
    ::_exit(0);  // without letting go of it
  }
  char answer = 0;
  ASSERT_EQ(::read(ready[0], &answer, 1), 1);
  EXPECT_EQ(answer, 'y');
  EXPECT_EQ(reasonAgainst(path), EWOULDBLOCK);
  ASSERT_EQ(::write(done[1], &answer, 1), 1);
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  EXPECT_EQ(reasonAgainst(path), 0);
  for (const int end : {ready[0], ready[1], done[0], done[1]}) ::close(end);
}

TEST_F(GuardedFileLocksTest, WhatIsInTheWayOfTheLockIsNotFollowedNorChanged) {
  const std::string target = folder.file("target", "kept");
  ASSERT_EQ(::symlink(target.c_str(), lockFile.c_str()), 0);
  EXPECT_EQ(reasonAgainst(path), ELOOP);
  ASSERT_EQ(::unlink(lockFile.c_str()), 0);
  ASSERT_EQ(::mkfifo(lockFile.c_str(), 0600), 0);
  EXPECT_EQ(reasonAgainst(path), EINVAL);
  EXPECT_EQ(support::contentOf(target), "kept");
}

TEST_F(GuardedFileLocksTest, WithoutTheFolderThereIsNoLock) {
  EXPECT_EQ(reasonAgainst(folder / "missing/a.plist"), ENOENT);
}

TEST_F(GuardedFileLocksTest, WhatRootMakesBelongsToTheFoldersOwner) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to make a file in another account's folder";
  ASSERT_EQ(::chown(folder.path().c_str(), support::kNobody, support::kNobody), 0);
  EXPECT_EQ(reasonAgainst(path), 0);
  const struct stat status = support::statusAt(lockFile);
  EXPECT_EQ(status.st_uid, support::kNobody);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(GuardedFileLocksTest, RootAndTheFoldersOwnerKeepEachOtherOut) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to act as two accounts";
  ASSERT_EQ(::chown(folder.path().c_str(), support::kNobody, support::kNobody), 0);
  const auto lock = locks.tryLock(path);
  ASSERT_TRUE(lock);
  support::AsUser::run(support::kNobody, [&] { EXPECT_EQ(reasonAgainst(path), EWOULDBLOCK); });
}

TEST_F(GuardedFileLocksTest, RootFollowsNoLinkThatAUserCanHavePutThere) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, which is whom this protects";
  const std::string elsewhere = folder.folder("elsewhere");
  ASSERT_EQ(::chown(folder.path().c_str(), support::kNobody, support::kNobody), 0);
  ASSERT_EQ(::symlink(elsewhere.c_str(), (folder / "link").c_str()), 0);
  EXPECT_EQ(reasonAgainst(folder / "link/a.plist"), ELOOP);
}

}  // namespace
}  // namespace platform
