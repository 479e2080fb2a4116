#include "helpers/ProtectedFolders.h"

#include <gmock/gmock.h>

#include "tests/helpers/TestVolume.h"

namespace helpers {
namespace {

class ProtectedFoldersTest : public ::testing::Test {
 protected:
  bool isProtected(const std::string& path) {
    const Surroundings surroundings = volume_.surroundings();
    const auto entry = locateUnprotected(surroundings, path);
    if (!entry && isMissing(entry.error())) ADD_FAILURE() << path << " does not exist";
    return !entry && entry.error().code == EPERM;
  }
  /// With an account more, carol, whose home is a link to /disk/carol.
  Surroundings withHomeByALink() {
    Surroundings surroundings = volume_.surroundings();
    surroundings.accounts.push_back({"carol", 4203, 4203, "/homes/carol"});
    volume_.makeFolder("disk/carol");
    volume_.makeFolder("homes");
    volume_.makeLink("../disk/carol", "homes/carol");
    return surroundings;
  }

  TestVolume volume_;
};

TEST_F(ProtectedFoldersTest, SystemFoldersAreProtected) {
  for (const char* path : {"/Library/Preferences", "/usr/sbin", "/private/var/spool", "/System/Library",
                           "/etc", "/Users/Shared", "/Library/StartupItems", "/Library/LaunchDaemons",
                           "/Library/Frameworks", "/Volumes", "/Applications/Utilities", "/bin", "/sbin"}) {
    volume_.makeFolder(path + 1);
    EXPECT_TRUE(isProtected(path)) << path;
  }
}

TEST_F(ProtectedFoldersTest, EveryAccountsFoldersAreProtected) {
  for (const char* home : {"/Users/alice", "/Users/bob", "/var/root", "/Users/withoutAccount"}) {
    for (const char* place : {"", "/Library", "/Library/Preferences", "/Library/Caches",
                              "/Library/Application Support", "/Documents", "/Desktop", "/.Trash"}) {
      volume_.makeFolder(std::string(home + 1) + place);
      EXPECT_TRUE(isProtected(std::string(home) + place)) << home << place;
    }
  }
}

TEST_F(ProtectedFoldersTest, WhatARepairAsksForIsNotProtected) {
  for (const char* path :
       {"/Library/Application Support/Apple Qmaster", "/usr/sbin/qmasterprefs", "/private/var/spool/qmaster",
        "/Users/alice/Library/Application Support/Compressor/History",
        "/Library/Frameworks/Qmaster.framework",
        "/Users/Shared/Library/Application Support/Apple Qmaster/Storage", "/Volumes/Disk/qmaster",
        "/Library/StartupItems/Qmaster/Qmaster", "/Applications/Utilities/Batch Monitor.app",
        "/System/Library/PrivateFrameworks/ProKit.framework",
        "/Users/alice/Library/Preferences/com.apple.compressor.Compressor.plist"}) {
    volume_.makeFile(path + 1);
    EXPECT_FALSE(isProtected(path)) << path;
  }
}

TEST_F(ProtectedFoldersTest, OtherSpellingsAreProtectedToo) {
  volume_.makeFolder("Users/alice/Library/x");
  for (const char* path : {"/Users/alice/", "//Users//alice", "/Users/alice/Library/..",
                           "/Users/./alice/Library/", "/Users/alice/Library/x/.."}) {
    EXPECT_TRUE(isProtected(path)) << path;
  }
}

TEST_F(ProtectedFoldersTest, AFolderThatHoldsAProtectedOneIsProtected) {
  Surroundings surroundings = volume_.surroundings();
  surroundings.accounts.push_back({"carol", 4203, 4203, "/data/homes/carol"});
  volume_.makeFolder("data/homes/carol/Library/Stuff");
  for (const char* path : {"/data", "/data/homes", "/data/homes/carol", "/data/homes/carol/Library"}) {
    EXPECT_FALSE(locateUnprotected(surroundings, path)) << path;
  }
  EXPECT_TRUE(locateUnprotected(surroundings, "/data/homes/carol/Library/Stuff"));
}

TEST_F(ProtectedFoldersTest, AWholeDiskIsProtected) {
  volume_.makeFolder("Volumes/Disk");
  EXPECT_TRUE(isProtected("/Volumes/Disk"));
}

TEST_F(ProtectedFoldersTest, PseudoFileSystemsAreProtectedThroughout) {
  for (const char* path : {"/dev/sda", "/proc/1/mem", "/sys/kernel/x"}) {
    volume_.makeFile(path + 1);
    EXPECT_TRUE(isProtected(path)) << path;
  }
}

TEST_F(ProtectedFoldersTest, TheHomeOfTwoAccountsIsProtectedWithItsFolders) {
  Surroundings surroundings = volume_.surroundings();
  surroundings.accounts.push_back({"twin", 4204, 4204, "/data/shared"});
  surroundings.accounts.push_back({"other", 4205, 4205, "/data/shared"});
  volume_.makeFolder("data/shared/Library/Logs");
  for (const char* path : {"/data/shared", "/data/shared/Library", "/data/shared/Library/Logs"}) {
    EXPECT_FALSE(locateUnprotected(surroundings, path)) << path;
  }
}

/// By the link alone, for the path that is asked for is another.
TEST_F(ProtectedFoldersTest, AHomeThatIsALinkProtectsWhatItLeadsTo) {
  const Surroundings surroundings = withHomeByALink();
  volume_.makeFolder("disk/carol/Library/Keychains");
  volume_.makeFolder("disk/carol/work");
  for (const char* path : {"/disk/carol", "/disk/carol/Library", "/disk/carol/Library/Keychains"}) {
    EXPECT_FALSE(locateUnprotected(surroundings, path)) << path;
  }
  EXPECT_TRUE(locateUnprotected(surroundings, "/disk/carol/work"));
}

/// Homes that are missing, dangling links and files among others, whatever their order: only what lies below
/// them is left out. Each of the others is found by a link, so that its path is not what protects it.
TEST_F(ProtectedFoldersTest, HomesThatAreMissingTakeNoProtectionFromOthers) {
  Surroundings surroundings = volume_.surroundings();
  unsigned number = 4300;
  for (const char* home :
       {"/homes/a", "/homes/a-b", "/homes/ab", "/homes/b", "/homes/c", "/homes/d", "/homes/e"}) {
    surroundings.accounts.push_back({home, number, number, home});
    ++number;
  }
  volume_.makeFolder("homes");
  volume_.makeLink("nowhere", "homes/b");
  volume_.makeFile("homes/d");
  for (const char* name : {"a-b", "ab", "c", "e"}) {
    volume_.makeFolder(std::string("disk/") + name + "/Library/Caches");
    volume_.makeLink(std::string("../disk/") + name, std::string("homes/") + name);
    for (const char* place : {"", "/Library", "/Library/Caches"}) {
      EXPECT_FALSE(locateUnprotected(surroundings, std::string("/disk/") + name + place)) << name << place;
    }
  }
}

/// The home is there and one of its folders is missing, that folder's own with it: those after it are not.
TEST_F(ProtectedFoldersTest, AMissingFolderOfAHomeTakesNoProtectionFromTheNext) {
  const Surroundings surroundings = withHomeByALink();
  volume_.makeFolder("disk/carol/Movies");
  volume_.makeFolder("disk/carol/.Trash");
  EXPECT_FALSE(locateUnprotected(surroundings, "/disk/carol/Movies"));
  EXPECT_FALSE(locateUnprotected(surroundings, "/disk/carol/.Trash"));
}

TEST_F(ProtectedFoldersTest, TheSameFolderAtAnotherPlaceIsProtected) {
  QUILLMEND_NEEDS_ROOT();
  volume_.makeFolder("Users/alice/Library");
  volume_.mountVolume("elsewhere");
  volume_.makeFolder("elsewhere/bound");
  ASSERT_EQ(mount(volume_.path("Users/alice/Library").c_str(), volume_.path("elsewhere/bound").c_str(),
                  nullptr, MS_BIND, nullptr),
            0);
  EXPECT_TRUE(isProtected("/elsewhere/bound"));
  umount2(volume_.path("elsewhere/bound").c_str(), MNT_DETACH);
}

TEST_F(ProtectedFoldersTest, AnAccountWhoseHomeIsNoFolderOfItsOwnProtectsNothing) {
  Surroundings surroundings = volume_.surroundings();
  for (const char* home : {"", "/", "relative"}) surroundings.accounts.push_back({"service", 33, 33, home});
  for (const char* path : {"/Documents", "/Music", "/relative"}) {
    volume_.makeFolder(path + 1);
    EXPECT_TRUE(locateUnprotected(surroundings, path)) << path;
  }
}

}  // namespace
}  // namespace helpers
