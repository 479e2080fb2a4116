#include "platform/linux/LinuxFileAttributes.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "platform/posix/UniqueDescriptor.h"
#include "tests/support/AsUser.h"
#include "tests/support/SmallVolume.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using support::AsUser;
using support::kNobody;
using support::TemporaryFolder;
using std::string_literals::operator""s;

template <typename T>
int reasonOf(const foundation::Result<T>& result) {
  return result ? 0 : result.error().code;
}

class LinuxFileAttributesTest : public ::testing::Test {
 protected:
  ~LinuxFileAttributesTest() override {
    for (const auto& path : {file, folder / "sub"})
      static_cast<void>(attributes.setImmutable(path, Immutable::no));
  }
  [[nodiscard]] bool canLock() { return ::geteuid() == 0 && attributes.setImmutable(file, Immutable::yes); }

  TemporaryFolder folder;
  std::string file = folder.file("file", "content");
  LinuxFileAttributes attributes;
};

TEST_F(LinuxFileAttributesTest, OnlyALinkIsALinkWhereverItLeads) {
  fs::create_symlink("nowhere", folder / "dangling");
  fs::create_symlink("file", folder / "link");
  EXPECT_TRUE(attributes.isSymbolicLink(folder / "dangling"));
  EXPECT_TRUE(attributes.isSymbolicLink(folder / "link"));
  for (const auto& path : {file, folder.path(), folder / "missing", ""s}) {
    EXPECT_FALSE(attributes.isSymbolicLink(path)) << path;
  }
}

TEST_F(LinuxFileAttributesTest, ALockedFileCanBeNeitherChangedNorRemoved) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  ASSERT_TRUE(canLock());
  EXPECT_TRUE(attributes.isImmutable(file));
  EXPECT_NE(::unlink(file.c_str()), 0);
  EXPECT_EQ(errno, EPERM);
  EXPECT_TRUE(attributes.setImmutable(file, Immutable::yes)) << "it is locked already";
  ASSERT_TRUE(attributes.setImmutable(file, Immutable::no));
  EXPECT_FALSE(attributes.isImmutable(file));
  EXPECT_EQ(::unlink(file.c_str()), 0);
}

TEST_F(LinuxFileAttributesTest, FoldersCanBeLockedToo) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  const std::string sub = folder.folder("sub");
  ASSERT_TRUE(attributes.setImmutable(sub, Immutable::yes));
  EXPECT_TRUE(attributes.isImmutable(sub));
  EXPECT_NE(::mkdir((sub + "/x").c_str(), 0700), 0);
  ASSERT_TRUE(attributes.setImmutable(sub, Immutable::no));
}

TEST_F(LinuxFileAttributesTest, AFileIsLockedWithoutRegardToItsMode) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  ::chmod(file.c_str(), 0);
  EXPECT_TRUE(canLock());
  EXPECT_TRUE(attributes.setImmutable(file, Immutable::no));
}

TEST_F(LinuxFileAttributesTest, UsersMayNotLockAndUnlockingWhatIsNotLockedSucceeds) {
  ::chmod(folder.path().c_str(), 0755);
  AsUser::run(kNobody, [this] {
    EXPECT_EQ(reasonOf(attributes.setImmutable(file, Immutable::yes)), ::getuid() == 0 ? 0 : EPERM);
    EXPECT_TRUE(attributes.setImmutable(file, Immutable::no));
    EXPECT_FALSE(attributes.isImmutable(file));
  });
}

TEST_F(LinuxFileAttributesTest, ALinkIsNotWhatItLeadsTo) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  fs::create_symlink("file", folder / "link");
  EXPECT_NE(reasonOf(attributes.setImmutable(folder / "link", Immutable::yes)), 0);
  EXPECT_FALSE(attributes.isImmutable(file));
  ASSERT_TRUE(canLock());
  EXPECT_FALSE(attributes.isImmutable(folder / "link"));
  EXPECT_TRUE(attributes.setImmutable(folder / "link", Immutable::no));
  EXPECT_TRUE(attributes.isImmutable(file));
}

TEST_F(LinuxFileAttributesTest, RootUnlocksNothingBehindAUsersLink) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  ASSERT_TRUE(canLock());
  fs::create_directory_symlink(folder.path(), folder / "users");
  ASSERT_EQ(::lchown((folder / "users").c_str(), kNobody, kNobody), 0);
  EXPECT_EQ(reasonOf(attributes.setImmutable(folder / "users/file", Immutable::no)), ELOOP);
  EXPECT_TRUE(attributes.isImmutable(file));
}

TEST_F(LinuxFileAttributesTest, FifosAreNotOpenedAndTheirWritersNotWoken) {
  const std::string fifo = folder / "fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_FALSE(attributes.isImmutable(fifo));
  EXPECT_NE(reasonOf(attributes.setImmutable(fifo, Immutable::yes)), 0);
  EXPECT_TRUE(attributes.setImmutable(fifo, Immutable::no));
  static_cast<void>(attributes.finderInformation(fifo));
  const UniqueDescriptor writer(::open(fifo.c_str(), O_WRONLY | O_NONBLOCK));
  EXPECT_FALSE(writer) << "there would be a reader";
}

TEST_F(LinuxFileAttributesTest, WhatIsNotThereHasNoAttributes) {
  for (const auto& path : {folder / "missing", ""s, file + "/below", "/"s + std::string(5000, 'x')}) {
    EXPECT_FALSE(attributes.isImmutable(path));
    EXPECT_NE(reasonOf(attributes.setImmutable(path, Immutable::no)), 0);
    EXPECT_NE(reasonOf(attributes.finderInformation(path)), 0);
    EXPECT_NE(reasonOf(attributes.setFinderInformation(path, {})), 0);
  }
}

TEST_F(LinuxFileAttributesTest, FinderInformationIsKeptAsItIs) {
  FinderInformation information{};
  for (std::size_t at = 0; at < information.size(); ++at) information[at] = static_cast<std::uint8_t>(at);
  for (const auto& path : {file, folder.folder("sub")}) {
    EXPECT_EQ(attributes.finderInformation(path).value(), FinderInformation{});
    ASSERT_TRUE(attributes.setFinderInformation(path, information));
    EXPECT_EQ(attributes.finderInformation(path).value(), information);
  }
  std::array<char, 64> stored{};
  EXPECT_EQ(::getxattr(file.c_str(), "user.com.apple.FinderInfo", stored.data(), stored.size()), 32);
  EXPECT_EQ(stored[9], 9);
}

TEST_F(LinuxFileAttributesTest, NoFinderInformationIsStoredAsNone) {
  FinderInformation information{};
  EXPECT_TRUE(attributes.setFinderInformation(file, information)) << "there is none to take away";
  information[9] = 2;
  ASSERT_TRUE(attributes.setFinderInformation(file, information));
  ASSERT_TRUE(attributes.setFinderInformation(file, FinderInformation{}));
  EXPECT_LT(::getxattr(file.c_str(), "user.com.apple.FinderInfo", nullptr, 0), 0);
}

TEST_F(LinuxFileAttributesTest, FinderInformationOfAnotherLengthIsNone) {
  ASSERT_EQ(::setxattr(file.c_str(), "user.com.apple.FinderInfo", "short", 5, 0), 0);
  EXPECT_EQ(reasonOf(attributes.finderInformation(file)), EINVAL);
  ASSERT_EQ(::setxattr(file.c_str(), "user.com.apple.FinderInfo", std::string(40, 'x').data(), 40, 0), 0);
  EXPECT_EQ(reasonOf(attributes.finderInformation(file)), ERANGE);
}

TEST_F(LinuxFileAttributesTest, AVolumeInMemoryHasLocksOrSaysThatItHasNone) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  const support::SmallVolume volume;
  ASSERT_TRUE(volume.isMounted());
  const std::string path = volume / "file";
  std::ofstream(path) << "x";
  const bool locked = attributes.setImmutable(path, Immutable::yes).ok();
  EXPECT_EQ(attributes.isImmutable(path), locked);
  EXPECT_EQ(::unlink(path.c_str()) == 0, !locked);
  EXPECT_EQ(attributes.setImmutable(path, Immutable::no).ok(), locked);
}

}  // namespace
}  // namespace platform
