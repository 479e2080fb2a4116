#include "platform/posix/Recycling.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <thread>

#include "platform/linux/LinuxFileAttributes.h"
#include "platform/posix/GuardedFolders.h"
#include "platform/posix/TreeCopy.h"
#include "tests/support/AsUser.h"
#include "tests/support/ChangedRoot.h"
#include "tests/support/PathStatus.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using support::ChangedRoot;
using support::kNobody;
using support::modeAt;
using support::statusAt;
using support::TemporaryFolder;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename());
  return names;
}

int reasonOf(const foundation::Result<void>& result) {
  return result ? 0 : result.error().code;
}

class RecyclingTest : public ::testing::Test {
 protected:
  TemporaryFolder home;
  std::string library = home.folder("Library");
  std::string trash = home / ".Trash";
};

TEST_F(RecyclingTest, ItemsMoveIntoTheTrash) {
  home.file("Library/a.plist", "a");
  home.file("Library/Folder/inside", "b");
  fs::create_symlink("/nowhere", library + "/link");
  ASSERT_TRUE(recycleItems(library, trash, {"a.plist", "Folder", "link"}));
  EXPECT_THAT(namesIn(library), IsEmpty());
  EXPECT_THAT(namesIn(trash), UnorderedElementsAre("a.plist", "Folder", "link"));
  EXPECT_EQ(home.content(".Trash/Folder/inside"), "b");
  EXPECT_EQ(fs::read_symlink(trash + "/link"), "/nowhere");
}

TEST_F(RecyclingTest, MissingTrashIsMadeForItsOwnerAlone) {
  home.file("Library/a");
  ASSERT_TRUE(recycleItems(library, trash, {"a"}));
  EXPECT_EQ(modeAt(trash), 0700U);
}

TEST_F(RecyclingTest, NameThatIsTakenGetsANumberBeforeItsExtension) {
  ASSERT_FALSE(home.folder(".Trash").empty());
  for (const char* content : {"one", "two", "three"}) {
    home.file("Library/a.plist", content);
    ASSERT_TRUE(recycleItems(library, trash, {"a.plist"}));
  }
  EXPECT_THAT(namesIn(trash), UnorderedElementsAre("a.plist", "a 2.plist", "a 3.plist"));
  EXPECT_EQ(home.content(".Trash/a.plist"), "one");
  EXPECT_EQ(home.content(".Trash/a 2.plist"), "two");
  EXPECT_EQ(home.content(".Trash/a 3.plist"), "three");
}

TEST_F(RecyclingTest, FolderDoesNotReplaceAnEmptyFolderOfItsName) {
  ASSERT_FALSE(home.folder(".Trash/Folder").empty());
  home.file("Library/Folder/inside");
  ASSERT_TRUE(recycleItems(library, trash, {"Folder"}));
  EXPECT_THAT(namesIn(trash), UnorderedElementsAre("Folder", "Folder 2"));
  EXPECT_THAT(namesIn(trash + "/Folder"), IsEmpty());
}

TEST_F(RecyclingTest, DanglingLinkInTheTrashTakesItsNameToo) {
  ASSERT_FALSE(home.folder(".Trash").empty());
  fs::create_symlink("/nowhere", trash + "/a");
  home.file("Library/a", "content");
  ASSERT_TRUE(recycleItems(library, trash, {"a"}));
  EXPECT_EQ(home.content(".Trash/a 2"), "content");
}

TEST_F(RecyclingTest, NothingIsLostWhenTwoRecycleTheSameNameAtOnce) {
  const std::string other = home.folder("Other");
  ASSERT_FALSE(home.folder(".Trash").empty());
  for (int round = 0; round < 50; ++round) {
    home.file("Library/x", "x");
    home.file("Other/x", "x");
    std::thread first([&] { EXPECT_TRUE(recycleItems(library, trash, {"x"})); });
    EXPECT_TRUE(recycleItems(other, trash, {"x"}));
    first.join();
  }
  EXPECT_EQ(namesIn(trash).size(), 100U);
}

TEST_F(RecyclingTest, MissingItemEndsItAndItemsBeforeItStayMoved) {
  home.file("Library/a");
  home.file("Library/c");
  EXPECT_EQ(reasonOf(recycleItems(library, trash, {"a", "b", "c"})), ENOENT);
  EXPECT_THAT(namesIn(trash), ElementsAre("a"));
  EXPECT_THAT(namesIn(library), ElementsAre("c"));
}

TEST_F(RecyclingTest, NamesThatAreNoItemsOfTheFolderAreRefused) {
  home.file("outside");
  for (const std::string& name : {std::string("../outside"), std::string(".."), std::string("."),
                                  std::string(), std::string("/etc/hostname"), std::string("a\0b", 3)}) {
    EXPECT_EQ(reasonOf(recycleItems(library, trash, {name})), EINVAL) << name;
  }
  EXPECT_TRUE(fs::exists(home / "outside"));
}

TEST_F(RecyclingTest, NamesAreBytes) {
  const std::string name = "- \xFF\n\"'";
  home.file("Library/" + name, "1");
  ASSERT_TRUE(recycleItems(library, trash, {name}));
  EXPECT_EQ(home.content(".Trash/" + name), "1");
}

TEST(NameInTrash, NumberGoesBeforeTheExtension) {
  EXPECT_EQ(nameInTrash("a.txt", 1), "a.txt");
  EXPECT_EQ(nameInTrash("a.txt", 2), "a 2.txt");
  EXPECT_EQ(nameInTrash("a.tar.gz", 10), "a.tar 10.gz");
  EXPECT_EQ(nameInTrash("Folder", 2), "Folder 2");
  EXPECT_EQ(nameInTrash(".hidden", 2), ".hidden 2");
}

TEST(NameInTrash, LongNameLosesWholeCharactersAndKeepsItsExtension) {
  std::string longest;
  while (longest.size() < 250) longest += "é";
  EXPECT_EQ(nameInTrash(longest + ".plst", 1), longest + ".plst");
  const std::string second = nameInTrash(longest + ".plst", 2);
  EXPECT_EQ(second, longest.substr(0, 248) + " 2.plst");
  EXPECT_EQ(nameInTrash(std::string(255, 'x'), 2), std::string(253, 'x') + " 2");
}

/// Root in a home folder that belongs to somebody else.
class RecyclingAsRootTest : public RecyclingTest {
 protected:
  void SetUp() override {
    if (getuid() != 0) GTEST_SKIP() << "needs root";
    give(home.path());
    give(library);
  }
  static void give(const std::string& path) { ASSERT_EQ(lchown(path.c_str(), kNobody, kNobody), 0); }
};

TEST_F(RecyclingAsRootTest, MissingTrashIsMadeForTheOwnerOfTheHomeFolder) {
  home.file("Library/a");
  ASSERT_TRUE(recycleItems(library, trash, {"a"}));
  EXPECT_EQ(statusAt(trash).st_uid, kNobody);
  EXPECT_EQ(statusAt(trash).st_gid, kNobody);
  EXPECT_EQ(modeAt(trash), 0700U);
  EXPECT_EQ(statusAt(trash + "/a").st_uid, 0U) << "a moved item keeps its owner";
  EXPECT_EQ(geteuid(), 0U);
}

TEST_F(RecyclingAsRootTest, TrashThatIsALinkIsRefused) {
  const std::string elsewhere = home.folder("elsewhere");
  fs::create_symlink(elsewhere, trash);
  home.file("Library/a");
  EXPECT_NE(reasonOf(recycleItems(library, trash, {"a"})), 0);
  EXPECT_THAT(namesIn(elsewhere), IsEmpty());
  EXPECT_THAT(namesIn(library), ElementsAre("a"));
}

TEST_F(RecyclingAsRootTest, TrashOfSomebodyElseIsRefused) {
  ASSERT_FALSE(home.folder(".Trash").empty());
  home.file("Library/a");
  EXPECT_EQ(reasonOf(recycleItems(library, trash, {"a"})), EPERM);
  give(trash);
  EXPECT_EQ(reasonOf(recycleItems(library, trash, {"a"})), 0);
}

TEST_F(RecyclingAsRootTest, LinkThatAUserPlantedOnTheWayIsNotFollowed) {
  const TemporaryFolder precious;
  precious.file("Preferences/a");
  fs::create_symlink(precious / "Preferences", library + "/Preferences");
  give(library + "/Preferences");
  EXPECT_EQ(reasonOf(recycleItems(library + "/Preferences", trash, {"a"})), ELOOP);
  ASSERT_EQ(lchown((library + "/Preferences").c_str(), 0, 0), 0);
  EXPECT_EQ(reasonOf(recycleItems(library + "/Preferences", trash, {"a"})), ELOOP)
      << "a link of root's in a folder of the user's may have been moved there";
  EXPECT_TRUE(fs::exists(precious / "Preferences/a"));
}

TEST_F(RecyclingAsRootTest, LinkThatOnlyRootCanHaveMadeIsFollowed) {
  const TemporaryFolder volume;
  volume.file("home/alice/Library/a");
  fs::create_symlink("/home", volume / "Users");
  give(volume / "home/alice");
  ChangedRoot::run(volume.path(), [] {
    EXPECT_EQ(reasonOf(recycleItems("/Users/alice/Library", "/Users/alice/.Trash", {"a"})), 0);
    EXPECT_THAT(namesIn("/home/alice/.Trash"), ElementsAre("a"));
  });
}

TEST_F(RecyclingAsRootTest, ItemOfABindMountIsMovedByCopyingIt) {
  home.file("Disk/Folder/inside", "text");
  home.file("Library/keep");
  ASSERT_EQ(mount((home / "Disk").c_str(), library.c_str(), nullptr, MS_BIND, nullptr), 0);
  const int reason = reasonOf(recycleItems(library, trash, {"Folder"}));
  ASSERT_EQ(umount(library.c_str()), 0);
  EXPECT_EQ(reason, 0) << "the same disk, and yet no rename leads from one mount to another";
  EXPECT_THAT(namesIn(home / "Disk"), IsEmpty());
  EXPECT_EQ(home.content(".Trash/Folder/inside"), "text");
  EXPECT_THAT(namesIn(trash), ElementsAre("Folder"));
}

TEST_F(RecyclingAsRootTest, LockedFileStaysAndSoDoesWhatIsBeside) {
  const std::string file = home.file("Library/a", "text");
  LinuxFileAttributes attributes;
  ASSERT_TRUE(attributes.setImmutable(file, Immutable::yes));
  const int reason = reasonOf(recycleItems(library, trash, {"a"}));
  const bool unlocked = attributes.setImmutable(file, Immutable::no).ok();
  EXPECT_TRUE(unlocked);
  EXPECT_EQ(reason, EPERM);
  EXPECT_EQ(home.content("Library/a"), "text");
  EXPECT_THAT(namesIn(trash), IsEmpty());
}

TEST_F(RecyclingAsRootTest, LoopOfLinksEnds) {
  const TemporaryFolder volume;
  fs::create_symlink(volume / "b", volume / "a");
  fs::create_symlink(volume / "a", volume / "b");
  EXPECT_EQ(reasonOf(recycleItems(volume / "a/x", trash, {"a"})), ELOOP);
}

/// A trash on another file system than the items.
class RecyclingAcrossFileSystemsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (statusAt(library.path()).st_dev == statusAt(volume.path()).st_dev) {
      GTEST_SKIP() << "needs /dev/shm on a file system of its own";
    }
    ASSERT_EQ(mkdir(trash.c_str(), 0700), 0);
  }

  TemporaryFolder library{"/dev/shm"};
  TemporaryFolder volume;
  std::string trash = volume / ".Trash";
};

TEST_F(RecyclingAcrossFileSystemsTest, EverythingOfAnItemIsKept) {
  library.file("Item/file", std::string(600'000, 'x') + "end");
  fs::create_symlink("/nowhere", library / "Item/link");
  ASSERT_EQ(mkfifo((library / "Item/fifo").c_str(), 0640), 0);
  ASSERT_FALSE(library.folder("Item/empty").empty());
  fs::create_hard_link(library / "Item/file", library / "Item/second");
  ASSERT_EQ(chmod((library / "Item/file").c_str(), 0614), 0);
  ASSERT_EQ(chmod((library / "Item/empty").c_str(), 01750), 0);
  const timespec times[] = {{1000000000, 123}, {1100000000, 456}};
  for (const char* name : {"file", "link", "fifo", "empty", ""}) {
    const std::string path = library / ("Item/" + std::string(name));
    if (getuid() == 0) {
      ASSERT_EQ(lchown(path.c_str(), kNobody, 7), 0);
    }
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
  }
  std::vector<struct stat> before;
  for (const char* name : {"", "file", "link", "fifo", "empty"}) {
    before.push_back(statusAt(library / ("Item/" + std::string(name))));
  }
  ASSERT_EQ(reasonOf(recycleItems(library.path(), trash, {"Item"})), 0);
  EXPECT_FALSE(fs::exists(library / "Item"));
  EXPECT_THAT(namesIn(trash), ElementsAre("Item"));
  std::size_t index = 0;
  for (const char* name : {"", "file", "link", "fifo", "empty"}) {
    const struct stat after = statusAt(trash + "/Item/" + name);
    const struct stat& old = before[index++];
    EXPECT_EQ(after.st_mode, old.st_mode) << name;
    EXPECT_EQ(after.st_uid, old.st_uid) << name;
    EXPECT_EQ(after.st_gid, old.st_gid) << name;
    EXPECT_EQ(after.st_mtim.tv_sec, 1100000000) << name;
    EXPECT_EQ(after.st_mtim.tv_nsec, 456) << name;
  }
  EXPECT_EQ(volume.content(".Trash/Item/file"), std::string(600'000, 'x') + "end");
  EXPECT_EQ(fs::read_symlink(trash + "/Item/link"), "/nowhere");
  EXPECT_EQ(statusAt(trash + "/Item/file").st_ino, statusAt(trash + "/Item/second").st_ino);
}

TEST_F(RecyclingAcrossFileSystemsTest, ExtendedAttributesAreKept) {
  const std::string file = library.file("a", "1");
  if (setxattr(file.c_str(), "user.note", "hello", 5, 0) != 0) GTEST_SKIP() << "no attributes here";
  ASSERT_TRUE(recycleItems(library.path(), trash, {"a"}));
  char value[8] = {};
  EXPECT_EQ(getxattr((trash + "/a").c_str(), "user.note", value, sizeof value), 5);
  EXPECT_STREQ(value, "hello");
}

TEST_F(RecyclingAcrossFileSystemsTest, NameThatIsTakenGetsANumber) {
  volume.file(".Trash/a.txt", "old");
  library.file("a.txt", "new");
  ASSERT_TRUE(recycleItems(library.path(), trash, {"a.txt"}));
  EXPECT_EQ(volume.content(".Trash/a.txt"), "old");
  EXPECT_EQ(volume.content(".Trash/a 2.txt"), "new");
}

TEST_F(RecyclingAcrossFileSystemsTest, CopyThatFailsMidwayLeavesTheSourceWholeAndNoHalfCopy) {
  if (getuid() != 0) GTEST_SKIP() << "needs root, to make a device";
  library.file("Item/a", "1");
  library.file("Item/sub/b", "2");
  ASSERT_EQ(mknod((library / "Item/sub/device").c_str(), S_IFCHR | 0600, makedev(1, 3)), 0);
  EXPECT_EQ(reasonOf(recycleItems(library.path(), trash, {"Item"})), ENOTSUP);
  EXPECT_THAT(namesIn(trash), IsEmpty());
  EXPECT_EQ(library.content("Item/a"), "1");
  EXPECT_EQ(library.content("Item/sub/b"), "2");
}

TEST_F(RecyclingAcrossFileSystemsTest, FullVolumeLeavesTheSourceWholeAndNoHalfCopy) {
  if (getuid() != 0) GTEST_SKIP() << "needs root, to mount a small volume";
  const std::string small = volume.folder("small");
  if (mount("none", small.c_str(), "tmpfs", 0, "size=64k,mode=0755") != 0) GTEST_SKIP() << "no mounts here";
  library.file("Item/a", "1");
  library.file("Item/b", std::string(1 << 20, 'b'));
  const int reason = reasonOf(recycleItems(library.path(), small + "/.Trash", {"Item"}));
  const auto left = namesIn(small + "/.Trash");
  ASSERT_EQ(umount(small.c_str()), 0);
  EXPECT_EQ(reason, ENOSPC);
  EXPECT_THAT(left, IsEmpty());
  EXPECT_THAT(namesIn(library / "Item"), UnorderedElementsAre("a", "b"));
  EXPECT_EQ(fs::file_size(library / "Item/b"), 1U << 20);
}

TEST_F(RecyclingAcrossFileSystemsTest, RootCarriesNoSetIdBitsFromAnotherFileSystem) {
  if (getuid() != 0) GTEST_SKIP() << "needs root";
  const std::string program = library.file("program");
  ASSERT_EQ(chmod(program.c_str(), 06755), 0);
  ASSERT_TRUE(recycleItems(library.path(), trash, {"program"}));
  EXPECT_EQ(modeAt(trash + "/program"), 0755U);
}

TEST_F(RecyclingAcrossFileSystemsTest, WhatChangesAfterTheCopyIsNotRemoved) {
  library.file("Item/a", "1");
  library.file("Item/b", "2");
  const int source = open(library.path().c_str(), O_RDONLY | O_DIRECTORY);
  const int target = open(trash.c_str(), O_RDONLY | O_DIRECTORY);
  auto copied = copyItem(source, "Item", target, "Item", "Item", optionsForMoving());
  ASSERT_TRUE(copied);
  library.file("Item/a", "changed");
  EXPECT_EQ(reasonOf(removeCopied(source, copied.value(), "Item")), EBUSY);
  EXPECT_EQ(library.content("Item/a"), "changed");
  close(source);
  close(target);
}

TEST_F(RecyclingAcrossFileSystemsTest, WhatIsAddedAfterTheCopyIsNotRemoved) {
  library.file("Item/a", "1");
  const int source = open(library.path().c_str(), O_RDONLY | O_DIRECTORY);
  const int target = open(trash.c_str(), O_RDONLY | O_DIRECTORY);
  auto copied = copyItem(source, "Item", target, "Item", "Item", optionsForMoving());
  ASSERT_TRUE(copied);
  library.file("Item/new", "2");
  EXPECT_EQ(reasonOf(removeCopied(source, copied.value(), "Item")), EBUSY);
  EXPECT_THAT(namesIn(library / "Item"), ElementsAre("new"));
  close(source);
  close(target);
}

}  // namespace
}  // namespace platform
