#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "platform/posix/HeldEntries.h"
#include "platform/posix/RegularFile.h"
#include "tests/macsdk/fakes/FakeHeldFiles.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using ::testing::SizeIs;

constexpr int kReading = O_RDONLY | O_CLOEXEC;

class MacHeldEntriesTest : public ::testing::Test {
 protected:
  UniqueDescriptor hold(const std::string& name, LastLink lastLink = LastLink::keep) {
    return holdEntry(around.get(), name, lastLink);
  }
  mode_t kindOf(const UniqueDescriptor& held) {
    const auto status = statusOf(held.get(), "");
    return status ? status.value().mode & static_cast<mode_t>(S_IFMT) : 0;
  }

  support::TemporaryFolder folder;
  UniqueDescriptor around = holdFolder(AT_FDCWD, folder.path());
};

TEST_F(MacHeldEntriesTest, FilesFoldersAndLinksAreHeldThemselves) {
  folder.file("file");
  fs::create_directory(folder / "folder");
  fs::create_symlink("file", folder / "link");
  EXPECT_EQ(kindOf(hold("file")), S_IFREG);
  EXPECT_EQ(kindOf(hold("folder")), S_IFDIR);
  EXPECT_EQ(kindOf(hold("link")), S_IFLNK);
  EXPECT_EQ(kindOf(hold("link", LastLink::follow)), S_IFREG);
}

TEST_F(MacHeldEntriesTest, WhatOpeningDoesSomethingToIsRefused) {
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
  fs::create_symlink("fifo", folder / "link");
  for (const LastLink lastLink : {LastLink::keep, LastLink::follow}) {
    EXPECT_FALSE(hold("fifo", lastLink));
    EXPECT_EQ(errno, ENOTSUP);
  }
  EXPECT_TRUE(hold("link"));
  EXPECT_FALSE(hold("link", LastLink::follow));
  EXPECT_EQ(errno, ENOTSUP);
}

TEST_F(MacHeldEntriesTest, WhatIsMissingIsSaid) {
  EXPECT_FALSE(hold("missing"));
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(MacHeldEntriesTest, AHeldItemIsOpenedWhereverItIsByThen) {
  folder.file("file", "content");
  const UniqueDescriptor held = hold("file");
  fs::rename(folder / "file", folder / "renamed");
  folder.file("file", "another");
  const UniqueDescriptor opened = openHeld(held.get(), kReading);
  ASSERT_TRUE(opened);
  EXPECT_EQ(readWholeFile(opened.get(), 100, "").value(), "content");
}

TEST_F(MacHeldEntriesTest, AnotherItemIsNeverOpenedForAHeldOne) {
  folder.file("file", "content");
  const UniqueDescriptor held = hold("file");
  fs::remove(folder / "file");
  folder.file("file", "another");
  EXPECT_FALSE(openHeld(held.get(), kReading));
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(MacHeldEntriesTest, AHeldFolderIsOpenedByItself) {
  fs::create_directory(folder / "folder");
  const UniqueDescriptor held = hold("folder");
  fs::rename(folder / "folder", folder / "renamed");
  EXPECT_TRUE(openHeld(held.get(), kReading | O_DIRECTORY));
}

TEST_F(MacHeldEntriesTest, TheTargetIsThatOfTheHeldLink) {
  fs::create_symlink("somewhere", folder / "link");
  const UniqueDescriptor held = hold("link");
  EXPECT_EQ(targetOfLink(held.get(), "").value(), "somewhere");
  fs::remove(folder / "link");
  fs::create_symlink("elsewhere", folder / "link");
  EXPECT_EQ(targetOfLink(held.get(), "link").error().code, ENOENT);
}

TEST_F(MacHeldEntriesTest, AProgramThatIsGivenAwayLosesItsSetIdBitsWithItsOwnerAtOnce) {
  folder.file("program");
  ASSERT_EQ(::chmod((folder / "program").c_str(), 06755), 0);
  const UniqueDescriptor held = hold("program");
  ::fakes::forgetChangesOfHeldFiles();
  EXPECT_EQ(setOwner(held.get(), ::geteuid(), static_cast<gid_t>(-1)), 0);
  const auto status = statusOf(held.get(), "").value();
  EXPECT_EQ(status.permissions(), 0755U);
  EXPECT_EQ(status.owner, ::geteuid());
  EXPECT_EQ(status.group, ::getegid());
  EXPECT_THAT(::fakes::changesOfHeldFiles(), SizeIs(1))
      << "between two calls its owner could give them again";
}

TEST_F(MacHeldEntriesTest, AFolderKeepsItsSetIdBitsAndALinkIsGivenAwayItself) {
  fs::create_directory(folder / "folder");
  ASSERT_EQ(::chmod((folder / "folder").c_str(), 02755), 0);
  fs::create_symlink("missing", folder / "link");
  EXPECT_EQ(setOwner(hold("folder").get(), ::geteuid(), ::getegid()), 0);
  EXPECT_EQ(statusOf(hold("folder").get(), "").value().permissions(), 02755U);
  EXPECT_EQ(setOwner(hold("link").get(), ::geteuid(), ::getegid()), 0);
}

/// Somebody gives a file of another's a second name, and takes it away while that is looked at.
class MacNameTest : public MacHeldEntriesTest {
 protected:
  void SetUp() override {
    folder.file("secret");
    giveName();
    entry = hold("name");
  }
  void giveName() { ASSERT_EQ(::link((folder / "secret").c_str(), (folder / "name").c_str()), 0); }
  void takeNameAway() { ASSERT_EQ(::unlink((folder / "name").c_str()), 0); }
  bool isKept(const std::string& name) { return hasKeptItsName(entry.get(), around.get(), name); }

  UniqueDescriptor entry;
};

TEST_F(MacNameTest, TheOnlyNameIsKept) {
  ASSERT_EQ(::unlink((folder / "secret").c_str()), 0);
  EXPECT_TRUE(isKept("name"));
}

TEST_F(MacNameTest, AFileThatHasLostTheNameItWasOpenedByIsTold) {
  takeNameAway();
  EXPECT_EQ(statusOf(entry.get(), "").value().links, 1U) << "the links alone say nothing";
  EXPECT_FALSE(isKept("name"));
}

TEST_F(MacNameTest, ANameThatIsGivenAgainDoesNotCount) {
  takeNameAway();
  giveName();
  EXPECT_FALSE(isKept("name"));
}

TEST_F(MacNameTest, AnotherFileOfTheNameDoesNotCount) {
  takeNameAway();
  folder.file("name");
  EXPECT_FALSE(isKept("name"));
}

}  // namespace
}  // namespace platform
