#include "platform/posix/GuardedFolders.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>

#include "platform/posix/PathEntry.h"
#include "tests/support/AsUser.h"
#include "tests/support/ChangedRoot.h"
#include "tests/support/PathStatus.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using support::AsUser;
using support::ChangedRoot;
using support::kNobody;
using support::modeAt;
using support::statusAt;
using support::TemporaryFolder;

void give(const std::string& path) {
  ASSERT_EQ(lchown(path.c_str(), kNobody, kNobody), 0) << path;
}

int reasonAt(const std::string& path) {
  const auto folder = openGuardedFolder(path);
  return folder ? 0 : folder.error().code;
}

bool leadsTo(const std::string& path, const std::string& folder) {
  const auto opened = openGuardedFolder(path);
  struct stat status {};
  return opened && fstat(opened.value().get(), &status) == 0 && status.st_ino == statusAt(folder).st_ino;
}

TEST(LocateFolder, AFileIsNoFolderAndTheRootFolderIs) {
  const TemporaryFolder ground;
  EXPECT_EQ(locateFolder(ground.file("file")).error().code, ENOTDIR);
  EXPECT_EQ(locateFolder(ground / "file/..").error().code, ENOTDIR);
  EXPECT_EQ(locateFolder(std::string("/tmp\0/x", 7)).error().code, EINVAL);
  EXPECT_TRUE(locateFolder("/").ok());
  EXPECT_TRUE(locateFolder("../").ok());
}

class GuardedFoldersTest : public ::testing::Test {
 protected:
  TemporaryFolder volume;
  std::string home = volume.folder("home/alice");
};

TEST_F(GuardedFoldersTest, PlaceIsANameInAnOpenFolderWhetherAnythingIsThereOrNot) {
  const auto place = openGuardedPlace(home + "/missing/");
  ASSERT_TRUE(place.ok());
  EXPECT_EQ(place.value().name, "missing");
  struct stat status {};
  ASSERT_EQ(fstat(place.value().folder.get(), &status), 0);
  EXPECT_EQ(status.st_ino, statusAt(home).st_ino);
}

TEST_F(GuardedFoldersTest, PlaceWithoutAFolderLiesInTheCurrentOne) {
  const auto place = openGuardedPlace("file");
  ASSERT_TRUE(place.ok());
  EXPECT_EQ(place.value().name, "file");
  struct stat status {};
  ASSERT_EQ(fstat(place.value().folder.get(), &status), 0);
  EXPECT_EQ(status.st_ino, statusAt(fs::current_path()).st_ino);
}

TEST_F(GuardedFoldersTest, PlaceInNoFolderIsAnErrorOfTheWholePath) {
  const auto place = openGuardedPlace(home + "/missing/file");
  ASSERT_FALSE(place.ok());
  EXPECT_EQ(place.error().code, ENOENT);
  EXPECT_EQ(place.error().path, home + "/missing/file");
}

/// As root, on a volume of the test's own.
class GuardedFoldersAsRootTest : public GuardedFoldersTest {
 protected:
  void SetUp() override {
    if (getuid() != 0) GTEST_SKIP() << "needs root";
    give(home);
    fs::create_symlink("/home", volume / "Users");
  }
  void onTheVolume(const std::function<void()>& part) const { ChangedRoot::run(volume.path(), part); }
};

TEST_F(GuardedFoldersAsRootTest, LinkThatOnlyRootCanHaveMadeIsFollowed) {
  onTheVolume([] {
    EXPECT_TRUE(leadsTo("/Users/alice", "/home/alice"));
    EXPECT_TRUE(leadsTo("//Users/./alice/../alice/", "/home/alice"));
  });
}

TEST_F(GuardedFoldersAsRootTest, LinkInAFolderThatOthersMayWriteIsNotFollowed) {
  for (const mode_t mode : {0777U, 01777U, 0775U}) {
    ASSERT_EQ(chmod(volume.path().c_str(), mode), 0);
    onTheVolume([&] { EXPECT_EQ(reasonAt("/Users/alice"), ELOOP) << std::oct << mode; });
  }
}

TEST_F(GuardedFoldersAsRootTest, FolderThatAGroupMayWriteCountsAsRootsWhereItIsSticky) {
  ASSERT_EQ(chmod(volume.path().c_str(), 01775), 0);
  onTheVolume([] { EXPECT_EQ(reasonAt("/Users/alice"), 0); });
}

TEST_F(GuardedFoldersAsRootTest, LinkOfRootsInAFolderOfRootsBelowAUsersIsNotFollowed) {
  ASSERT_FALSE(volume.folder("home/alice/roots").empty());
  fs::create_symlink("/home", volume / "home/alice/roots/link");
  onTheVolume(
      [] { EXPECT_EQ(reasonAt("/home/alice/roots/link"), ELOOP) << "the folder may be moved there"; });
}

TEST_F(GuardedFoldersAsRootTest, LinkOfSomebodyElseIsNotFollowed) {
  give(volume / "Users");
  onTheVolume([] { EXPECT_EQ(reasonAt("/Users/alice"), ELOOP); });
}

TEST_F(GuardedFoldersAsRootTest, LinkOfSomebodyElseLeadsToNoPlace) {
  give(volume / "Users");
  onTheVolume([] { EXPECT_EQ(openGuardedPlace("/Users/alice/file").error().code, ELOOP); });
}

TEST_F(GuardedFoldersAsRootTest, LinkOnARelativePathIsNotFollowed) {
  onTheVolume([] {
    EXPECT_EQ(reasonAt("Users/alice"), ELOOP);
    EXPECT_TRUE(leadsTo("home/alice", "/home/alice"));
    EXPECT_TRUE(leadsTo(".", "/"));
  });
}

TEST_F(GuardedFoldersAsRootTest, LoopOfLinksEnds) {
  fs::create_symlink("b", volume / "a");
  fs::create_symlink("a", volume / "b");
  onTheVolume([] { EXPECT_EQ(reasonAt("/a"), ELOOP); });
}

TEST_F(GuardedFoldersAsRootTest, WhatIsNotThereOrNoFolderSaysSo) {
  volume.file("home/alice/file");
  onTheVolume([] {
    EXPECT_EQ(reasonAt("/home/bob"), ENOENT);
    EXPECT_EQ(reasonAt("/home/alice/file"), ENOTDIR);
    EXPECT_EQ(reasonAt(""), ENOENT);
  });
}

TEST_F(GuardedFoldersAsRootTest, FolderMadeInSomebodyElsesFolderIsTheirs) {
  onTheVolume([] {
    const auto folder = openGuardedFolder("/Users/alice");
    ASSERT_TRUE(folder.ok());
    EXPECT_EQ(makeFolderForOwner(folder.value().get(), "new", 0750), 0);
    EXPECT_EQ(makeFolderForOwner(folder.value().get(), "new", 0750), EEXIST);
    EXPECT_EQ(statusAt("/home/alice/new").st_uid, kNobody);
    EXPECT_EQ(statusAt("/home/alice/new").st_gid, kNobody);
    EXPECT_EQ(modeAt("/home/alice/new"), 0750U);
    const auto roots = openGuardedFolder("/home");
    ASSERT_TRUE(roots.ok());
    EXPECT_EQ(makeFolderForOwner(roots.value().get(), "new", 0750), 0);
    EXPECT_EQ(statusAt("/home/new").st_uid, 0U) << "the rights of another are laid down again";
  });
}

TEST_F(GuardedFoldersTest, OthersThanRootFollowLinksAsUsual) {
  volume.makeAccessibleToAll();
  fs::create_symlink(home, volume / "link");
  AsUser::run(kNobody, [&] { EXPECT_TRUE(leadsTo(volume / "link", home)); });
}

TEST_F(GuardedFoldersTest, FolderThatMayBeEnteredAndNotReadIsOpened) {
  volume.makeAccessibleToAll();
  ASSERT_EQ(chmod(home.c_str(), 0711), 0);
  AsUser::run(kNobody, [&] { EXPECT_TRUE(leadsTo(home, home)); });
}

}  // namespace
}  // namespace platform
