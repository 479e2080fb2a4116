#include "platform/posix/PathEntry.h"

#include <gmock/gmock.h>

#include <cerrno>

#include "tests/helpers/TestVolume.h"
#include "tests/support/FewDescriptors.h"

namespace platform {
namespace {

using foundation::Result;
using helpers::Surroundings;
using helpers::TestVolume;

class LocateTest : public ::testing::Test {
 protected:
  int errorOf(const std::string& path, LastLink lastLink = LastLink::keep) {
    const auto entry = locate(surroundings_, path, lastLink);
    return entry ? 0 : entry.error().code;
  }
  std::string pathOf(const std::string& path, LastLink lastLink = LastLink::keep) {
    const auto entry = locate(surroundings_, path, lastLink);
    return entry ? entry.value().path : entry.error().description;
  }

  TestVolume volume_;
  Surroundings surroundings_ = volume_.surroundings();
};

TEST_F(LocateTest, DotsAndDoubledAndTrailingSlashesAreResolved) {
  volume_.makeFile("Library/a/b");
  EXPECT_EQ(pathOf("//Library/./a//../a/b"), "/Library/a/b");
  EXPECT_EQ(pathOf("/Library/a///"), "/Library/a");
  EXPECT_EQ(pathOf("/../../Library"), "/Library");
}

TEST_F(LocateTest, TheRootFolderIsRefusedInEverySpelling) {
  for (const char* path : {"/", "//", "/.", "/..", "/Users/..", "/Users/alice/../.."}) {
    EXPECT_EQ(errorOf(path), EPERM) << path;
  }
}

TEST_F(LocateTest, RelativeAndEmptyPathsAndZeroBytesAreInvalid) {
  EXPECT_EQ(errorOf("Users/alice"), EINVAL);
  EXPECT_EQ(errorOf(""), EINVAL);
  EXPECT_EQ(errorOf(std::string("/Users\0/x", 9)), EINVAL);
}

TEST_F(LocateTest, WhatDoesNotExistIsMissing) {
  volume_.makeFile("file");
  for (const char* path : {"/nothing", "/nothing/below", "/file/below"}) {
    const auto entry = locate(surroundings_, path);
    ASSERT_FALSE(entry) << path;
    EXPECT_TRUE(isMissing(entry.error())) << path;
  }
}

TEST_F(LocateTest, RootsLinkOnTheWayIsFollowed) {
  volume_.makeFile("private/var/spool/x");
  volume_.makeLink("private/var", "var2");
  EXPECT_EQ(pathOf("/var2/spool/x"), "/private/var/spool/x");
  volume_.makeLink("/private/var", "var3");
  EXPECT_EQ(pathOf("/var3/spool/x"), "/private/var/spool/x");
}

TEST_F(LocateTest, ALinkInAFolderThatOthersCanWriteIsRefused) {
  volume_.makeFile("secret/x");
  volume_.makeFolder("open", 0777);
  volume_.makeLink("/secret", "open/link");
  EXPECT_EQ(errorOf("/open/link/x"), EPERM);
  volume_.makeFolder("sticky", 01777);
  volume_.makeLink("/secret", "sticky/link");
  EXPECT_EQ(errorOf("/sticky/link/x"), EPERM);
}

TEST_F(LocateTest, ALinkBelowAFolderThatOthersCanWriteIsRefusedAtAnyDepth) {
  volume_.makeFile("secret/x");
  volume_.makeFolder("open", 0777);
  volume_.makeFolder("open/closed", 0755);
  volume_.makeLink("/secret", "open/closed/link");
  EXPECT_EQ(errorOf("/open/closed/link/x"), EPERM);
}

TEST_F(LocateTest, AGroupMayWriteTheFolderOfALinkOnlyWhereItIsSticky) {
  volume_.makeFile("secret/x");
  volume_.makeFolder("group", 0775);
  volume_.makeLink("/secret", "group/link");
  EXPECT_EQ(errorOf("/group/link/x"), EPERM);
  chmod(volume_.path("group").c_str(), 01775);
  EXPECT_EQ(pathOf("/group/link/x"), "/secret/x");
}

TEST_F(LocateTest, AnotherUsersLinkIsRefused) {
  QUILLMEND_NEEDS_ROOT();
  volume_.makeFile("secret/x");
  volume_.makeFolder("safe");
  volume_.makeLink("/secret", "safe/link");
  volume_.own("safe/link", TestVolume::kBob);
  EXPECT_EQ(errorOf("/safe/link/x"), EPERM);
  volume_.makeLink("/secret", "Users/bob/link");
  EXPECT_EQ(errorOf("/Users/bob/link/x"), EPERM);
}

TEST_F(LocateTest, ALinkAtTheEndIsTheEntryItselfOrFollowed) {
  volume_.makeFile("real");
  volume_.makeLink("real", "link");
  EXPECT_EQ(pathOf("/link", LastLink::keep), "/link");
  EXPECT_EQ(pathOf("/link", LastLink::follow), "/real");
}

TEST_F(LocateTest, ALoopOfLinksEnds) {
  volume_.makeLink("two", "one");
  volume_.makeLink("one", "two");
  EXPECT_EQ(errorOf("/one/x"), ELOOP);
}

TEST_F(LocateTest, ADanglingLinkOnTheWayIsMissing) {
  volume_.makeLink("nowhere", "link");
  EXPECT_EQ(errorOf("/link/x"), ENOENT);
}

TEST_F(LocateTest, NamesAreTakenByteForByte) {
  for (const std::string& name : {std::string("-R"), std::string("a\nb"), std::string("\xff\xfe"),
                                  std::string(255, 'n'), std::string(" ")}) {
    volume_.makeFile("names/" + name);
    EXPECT_EQ(pathOf("/names/" + name), "/names/" + name);
  }
}

TEST(NameList, GivesNamesInTheirOrderWhateverTheirLengthAndNumber) {
  NameList names;
  std::vector<std::string> expected;
  for (std::size_t i = 0; i < 20'000; ++i) expected.push_back(std::to_string(i) + std::string(i % 250, 'n'));
  for (const std::string& name : expected) names.add(name);
  std::vector<std::string> given;
  while (!names.empty()) given.push_back(names.next());
  EXPECT_EQ(given, expected);
  names.add("after the last");
  EXPECT_EQ(names.next(), "after the last");
  EXPECT_TRUE(names.empty());
}

/// Somebody gives a file of another's a second name, and takes it away while that is looked at.
class NameTest : public LocateTest {
 protected:
  void SetUp() override {
    volume_.makeFile("secret");
    ASSERT_EQ(link(volume_.path("secret").c_str(), volume_.path("name").c_str()), 0);
    entry_ = locate(surroundings_, "/name");
    ASSERT_TRUE(entry_.ok());
  }
  void takeNameAway() { ASSERT_EQ(unlink(volume_.path("name").c_str()), 0); }
  int entry() { return entry_.value().self().descriptor.get(); }

  Result<PathEntry> entry_ = foundation::systemError(ENOENT, "");
};

TEST_F(NameTest, AFileThatHasLostTheNameItWasOpenedByIsTold) {
  EXPECT_TRUE(hasKeptItsName(entry(), -1, ""));
  takeNameAway();
  EXPECT_EQ(statusOf(entry(), "").value().links, 1U) << "the links alone say nothing";
  EXPECT_FALSE(hasKeptItsName(entry(), -1, ""));
}

TEST_F(NameTest, ANameThatIsGivenAgainIsAnotherOne) {
  takeNameAway();
  ASSERT_EQ(link(volume_.path("secret").c_str(), volume_.path("name").c_str()), 0);
  EXPECT_FALSE(hasKeptItsName(entry(), -1, ""));
}

TEST_F(NameTest, AFileThatIsRenamedKeepsAName) {
  ASSERT_EQ(rename(volume_.path("name").c_str(), volume_.path("renamed").c_str()), 0);
  EXPECT_TRUE(hasKeptItsName(entry(), -1, ""));
}

TEST_F(NameTest, ANameThatReadsAsIfItWereGoneDoesNotCount) {
  ASSERT_EQ(rename(volume_.path("name").c_str(), volume_.path("name (deleted)").c_str()), 0);
  EXPECT_FALSE(hasKeptItsName(entry(), -1, ""));
}

TEST_F(NameTest, OneObjectTellsOfManyFiles) {
  const KeptNames names;
  volume_.makeFile("other");
  const auto other = locate(surroundings_, "/other");
  ASSERT_TRUE(other.ok());
  EXPECT_TRUE(names.has(entry(), -1, ""));
  takeNameAway();
  EXPECT_FALSE(names.has(entry(), -1, ""));
  EXPECT_TRUE(names.has(other.value().self().descriptor.get(), -1, ""));
}

/// As where a process may have no more of them.
TEST_F(NameTest, WithoutADescriptorOfItsOwnItTellsTheSame) {
  const support::FewDescriptors none(0);
  const KeptNames names;
  EXPECT_TRUE(names.has(entry(), -1, ""));
  takeNameAway();
  EXPECT_FALSE(names.has(entry(), -1, ""));
}

FileStatus reachedThrough(std::uint64_t device, std::uint64_t mount) {
  FileStatus status;
  status.device = device;
  status.mount = mount;
  return status;
}

TEST(FileStatus, OneMountIsOneVolumeWhateverTheDevice) {
  EXPECT_TRUE(reachedThrough(1, 7).isSameVolume(reachedThrough(2, 7)));
  EXPECT_FALSE(reachedThrough(1, 7).isSameVolume(reachedThrough(1, 8)));
}

TEST(FileStatus, WhereMountsAreNotToldTheDeviceSaysWhichVolumeItIs) {
  EXPECT_TRUE(reachedThrough(1, 0).isSameVolume(reachedThrough(1, 7)));
  EXPECT_FALSE(reachedThrough(1, 0).isSameVolume(reachedThrough(2, 0)));
}

}  // namespace
}  // namespace platform
