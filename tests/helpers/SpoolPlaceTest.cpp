#include "helpers/SpoolPlace.h"

#include <gmock/gmock.h>
#include <sys/xattr.h>

#include <cstdint>

#include "helpers/SpoolFolder.h"
#include "tests/helpers/TestVolume.h"

namespace helpers {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr const char* kServices = "Library/Application Support/Apple Qmaster/qmasterservices.plist";

class SpoolPlaceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    QUILLMEND_NEEDS_ROOT();
    // The temporary folder is everybody's, unlike a "/".
    volume_.mountVolume("top");
    for (const char* folder : {"top/Users/alice", "top/var/root"}) volume_.makeFolder(folder);
    volume_.own("top/Users/alice", TestVolume::kAlice);
    surroundings_ = volume_.surroundings();
    surroundings_.root.reset(open(volume_.path("top").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  }
  ExitStatus empty(const std::string& path) { return SpoolFolder(surroundings_, report_).empty(path); }
  void makeSpool(const std::string& place, uid_t owner = 0) {
    volume_.makeFile("top" + place + "/job");
    volume_.own("top" + place, owner);
  }
  void nameInServices(const std::string& path, const std::string& file = kServices) {
    volume_.makeFile("top/" + file, "<key>Storage</key>\n<string>" + path + "</string>");
  }

  TestVolume volume_;
  Surroundings surroundings_;
  RecordedReport report_;
};

TEST_F(SpoolPlaceTest, AFolderOfTheSystemThatAServicesFileOfAUsersNamesIsRefused) {
  makeSpool("/etc/ssh");
  nameInServices("/etc/ssh", std::string("Users/alice/") + kServices);
  EXPECT_EQ(empty("/etc/ssh"), ExitStatus::refused);
  EXPECT_THAT(report_.text(), HasSubstr("/etc/ssh: refused: neither a spool folder"));
  EXPECT_THAT(volume_.names("top/etc/ssh"), ElementsAre("job"));
  EXPECT_FALSE(volume_.exists("top/Users/alice/.Trash"));
}

TEST_F(SpoolPlaceTest, ASystemFolderIsRefusedAlsoWhereTheTrashWouldBeRoots) {
  makeSpool("/etc/ssh");
  surroundings_.consoleAccount = [] { return std::nullopt; };
  EXPECT_EQ(empty("/etc/ssh"), ExitStatus::refused);
  EXPECT_THAT(volume_.names("top/etc/ssh"), ElementsAre("job"));
}

TEST_F(SpoolPlaceTest, AFolderOfSomebodyElseIsRefused) {
  makeSpool("/data/bobs", TestVolume::kBob);
  EXPECT_EQ(empty("/data/bobs"), ExitStatus::refused);
}

TEST_F(SpoolPlaceTest, AFolderOfTheTrashsOwnerIsEmptied) {
  makeSpool("/data/spool", TestVolume::kAlice);
  EXPECT_EQ(empty("/data/spool"), ExitStatus::done) << report_.text();
  EXPECT_THAT(volume_.names("top/data/spool"), IsEmpty());
}

TEST_F(SpoolPlaceTest, TheUsualPlacesAreEmptiedWhoseverTheyAre) {
  for (const char* place : {"/var/spool/qmaster", "/private/var/spool/qmaster", "/Users/Shared/spool",
                            "/Library/Application Support/Apple Qmaster/Storage",
                            "/Users/Shared/Library/Application Support/Apple Qmaster/Storage"}) {
    makeSpool(place);
    EXPECT_EQ(empty(place), ExitStatus::done) << report_.text();
    EXPECT_THAT(volume_.names(std::string("top") + place), IsEmpty());
  }
}

TEST_F(SpoolPlaceTest, APlaceCountsOnlyWhereThePathStaysInIt) {
  makeSpool("/etc/ssh");
  volume_.makeFolder("top/var/spool");
  EXPECT_EQ(empty("/var/spool/../../etc/ssh"), ExitStatus::refused);
  makeSpool("/var/spoolers/ssh");
  EXPECT_EQ(empty("/var/spoolers/ssh"), ExitStatus::refused);
  makeSpool("/data/Apple Qmaster/Storage");
  EXPECT_EQ(empty("/data/Apple Qmaster/Storage"), ExitStatus::refused);
  EXPECT_THAT(volume_.names("top/etc/ssh"), ElementsAre("job"));
}

TEST_F(SpoolPlaceTest, ALinkOfRootsInASystemsPlaceLeadsToASpoolFolder) {
  makeSpool("/data/big");
  volume_.makeFolder("top/Library/Application Support/Apple Qmaster");
  volume_.makeLink("/data/big", "top/Library/Application Support/Apple Qmaster/Storage");
  EXPECT_EQ(empty("/Library/Application Support/Apple Qmaster/Storage"), ExitStatus::done) << report_.text();
  EXPECT_THAT(volume_.names("top/data/big"), IsEmpty());
}

TEST_F(SpoolPlaceTest, ALinkOfRootsOnAVolumeThatSomebodyHasBroughtLeadsToNone) {
  makeSpool("/etc/ssh");
  volume_.mountVolume("top/Volumes/Stick");
  const std::string folder = "/Volumes/Stick/Library/Application Support/Apple Qmaster";
  volume_.makeFolder("top" + folder);
  volume_.makeLink("/etc/ssh", "top" + folder + "/Storage");
  EXPECT_EQ(empty(folder + "/Storage"), ExitStatus::refused);
  EXPECT_THAT(volume_.names("top/etc/ssh"), ElementsAre("job"));
}

TEST_F(SpoolPlaceTest, WhatRootsOwnServicesFileNamesIsEmptied) {
  makeSpool("/data/spool");
  nameInServices("/data/spool");
  EXPECT_EQ(empty("/data/spool"), ExitStatus::done) << report_.text();
  makeSpool("/data/other");
  nameInServices("/data/other", std::string("var/root/") + kServices);
  EXPECT_EQ(empty("/data/other"), ExitStatus::done) << report_.text();
}

TEST_F(SpoolPlaceTest, AdministratorsMayWriteTheServicesFileAsTheyMayOnAMac) {
  makeSpool("/data/spool");
  nameInServices("/data/spool");
  for (const char* place : {kServices, "Library/Application Support/Apple Qmaster", "Library"}) {
    const std::string path = volume_.path(std::string("top/") + place);
    ASSERT_EQ(chown(path.c_str(), 0, TestVolume::kAdministrators), 0);
    ASSERT_EQ(chmod(path.c_str(), 0775), 0);
  }
  EXPECT_EQ(empty("/data/spool"), ExitStatus::done) << report_.text();
}

TEST_F(SpoolPlaceTest, AnotherGroupsServicesFileIsNoWordOfAdministrators) {
  makeSpool("/data/spool");
  nameInServices("/data/spool");
  const std::string path = volume_.path(std::string("top/") + kServices);
  ASSERT_EQ(chown(path.c_str(), 0, TestVolume::kAdministrators + 1), 0);
  ASSERT_EQ(chmod(path.c_str(), 0664), 0);
  EXPECT_EQ(empty("/data/spool"), ExitStatus::refused);
}

TEST_F(SpoolPlaceTest, AServicesFileThatAnAccessListOpensToSomebodyIsNoWordOfAdministrators) {
  makeSpool("/data/spool");
  nameInServices("/data/spool");
  const std::string path = volume_.path(std::string("top/") + kServices);
  // Version 2, then tag and rights, and whose: the owner rw, bob rw, the group r, at most rw, others r.
  constexpr std::uint32_t kNobodys = UINT32_MAX;
  const std::vector<std::uint32_t> list = {2,        0x60001, kNobodys, 0x60002, TestVolume::kBob, 0x40004,
                                           kNobodys, 0x60010, kNobodys, 0x40020, kNobodys};
  ASSERT_EQ(setxattr(path.c_str(), "system.posix_acl_access", list.data(), list.size() * 4, 0), 0);
  ASSERT_EQ(volume_.mode(std::string("top/") + kServices), 0664U);
  EXPECT_EQ(empty("/data/spool"), ExitStatus::refused);
}

TEST_F(SpoolPlaceTest, AServicesFileThatOthersCanChangeIsNoWordOfRoots) {
  makeSpool("/data/spool");
  nameInServices("/data/spool");
  for (const char* writable : {kServices, "Library/Application Support/Apple Qmaster", "Library"}) {
    const std::string place = std::string("top/") + writable;
    const mode_t before = volume_.mode(place);
    chmod(volume_.path(place).c_str(), before | 0002U);
    EXPECT_EQ(empty("/data/spool"), ExitStatus::refused) << writable;
    chmod(volume_.path(place).c_str(), before);
  }
}

TEST_F(SpoolPlaceTest, AServicesFileThatIsNotRootsOrNoFileIsNoWordOfRoots) {
  makeSpool("/data/spool");
  nameInServices("/data/spool");
  volume_.own(std::string("top/") + kServices, TestVolume::kBob);
  EXPECT_EQ(empty("/data/spool"), ExitStatus::refused);
  std::filesystem::remove(volume_.path(std::string("top/") + kServices));
  volume_.makeFolder(std::string("top/") + kServices);
  EXPECT_EQ(empty("/data/spool"), ExitStatus::refused);
  EXPECT_THAT(volume_.names("top/data/spool"), ElementsAre("job"));
}

TEST(HoldsString, OnlyWholeStringsCount) {
  EXPECT_TRUE(holdsString("<string>/a &amp; b</string>", "/a & b"));
  EXPECT_FALSE(holdsString("<string>/etc/ssh/x</string>", "/etc/ssh"));
  EXPECT_TRUE(holdsString(std::string("bplist00\x58/etc/ssh", 17), "/etc/ssh"));
  EXPECT_FALSE(holdsString(std::string("bplist00\x5A/etc/ssh/x", 19), "/etc/ssh"));
  const std::string longer(40, '/');
  EXPECT_TRUE(holdsString("bplist00\x5F\x10\x28" + longer, longer));
  EXPECT_FALSE(holdsString("bplist00\x5F\x10\x29" + longer, longer));
  EXPECT_FALSE(holdsString("", "/etc"));
  EXPECT_TRUE(holdsString("<string>/a &lt;b&gt;</string>", "/a <b>"));
  const std::string longest(300, '/');
  EXPECT_TRUE(holdsString("bplist00\x5F\x11\x01\x2C" + longest, longest));
  EXPECT_FALSE(holdsString("bplist00\x5F\x11\x01\x2D" + longest, longest));
}

}  // namespace
}  // namespace helpers
