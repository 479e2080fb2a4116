#include "workstation/Volume.h"

#include <gmock/gmock.h>
#include <plist/plist.h>
#include <sys/stat.h>

#include <memory>

#include "tests/support/PathStatus.h"
#include "tests/workstation/RootTest.h"
#include "workstation/RecordLine.h"
#include "workstation/Records.h"
#include "workstation/TemporaryVolume.h"

namespace workstation {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class VolumeTest : public RootTest {};

void expectOwner(const Volume& volume, const std::string& path, uid_t user, gid_t group, mode_t mode) {
  const struct stat status = support::statusAt(volume.host(path));
  EXPECT_EQ(status.st_uid, user) << path;
  EXPECT_EQ(status.st_gid, group) << path;
  EXPECT_EQ(status.st_mode & 07777U, mode) << path;
}

void expectThere(const Volume& volume, const std::vector<std::string>& paths) {
  for (const auto& path : paths) EXPECT_TRUE(fs::exists(volume.host(path))) << path;
}

std::string contentsAt(const Volume& volume, const std::string& path) {
  return contentsOf(volume.host(path)).value_or("nothing");
}

/// A string of a property list in the volume, by its keys.
std::string stringIn(const Volume& volume, const std::string& path, const std::vector<std::string>& keys) {
  const auto bytes = contentsAt(volume, path);
  plist_t root = nullptr;
  plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
  const std::unique_ptr<void, decltype(&plist_free)> owner(root, plist_free);
  plist_t node = root;
  for (const auto& key : keys) node = node == nullptr ? nullptr : plist_dict_get_item(node, key.c_str());
  const char* text = node == nullptr ? nullptr : plist_get_string_ptr(node, nullptr);
  return text == nullptr ? "none" : text;
}

const std::vector<std::string> sharedComponents{
    "/Applications/Utilities/Batch Monitor.app",
    "/Library/Application Support/Apple Qmaster",
    "/Library/Application Support/Apple Qmaster/qmasterservices.plist",
    "/Library/Application Support/Apple Qmaster/qmasterconfig",
    "/Library/PreferencePanes/Apple Qmaster.prefPane",
    "/Library/Frameworks/AECore.framework",
    "/Library/Frameworks/Compressor.framework",
    "/Library/Frameworks/MediaServerAPI.framework",
    "/Library/Frameworks/Qmaster.framework",
    "/System/Library/PrivateFrameworks/BrowserKit.framework",
    "/System/Library/PrivateFrameworks/ProKit.framework",
    "/usr/sbin/qmasterca",
    "/usr/sbin/qmasterd",
    "/usr/sbin/qmasterprefs",
    "/usr/sbin/qmasterqd"};
const std::vector<std::string> earlyComponents{
    "/Library/StartupItems/Qmaster/Qmaster", "/Library/StartupItems/Qmaster/StartupParameters.plist",
    "/System/Library/PrivateFrameworks/Helium.framework", "/usr/local/lib/libhelium_mac.a"};
const std::vector<std::string> lateComponents{"/Library/Application Support/ProMediaIO",
                                              "/Library/LaunchDaemons/com.apple.qmaster.qmasterd.plist"};

TEST_F(VolumeTest, CompressorThreeZeroBringsItsComponentsAndNoneOfThreeFives) {
  const TemporaryVolume sample({.compressors = {{"3.0.5"}}});
  expectThere(sample, sharedComponents);
  expectThere(sample, earlyComponents);
  for (const auto& path : lateComponents) EXPECT_FALSE(fs::exists(sample.volume().host(path))) << path;
}

TEST_F(VolumeTest, CompressorThreeFiveBringsItsComponentsAndNoneOfThreeZeros) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}}});
  expectThere(sample, sharedComponents);
  expectThere(sample, lateComponents);
  for (const auto& path : earlyComponents) EXPECT_FALSE(fs::exists(sample.volume().host(path))) << path;
}

TEST_F(VolumeTest, CompressorFourHasItsOwnToolsInsideAndNoneInTheSystem) {
  const TemporaryVolume sample({.compressors = {{"4.0.7"}}});
  expectThere(sample,
              {"/Applications/Compressor.app/Contents/PlugIns/Compressor/CompressorKit.bundle/qmasterprefs",
               "/Library/LaunchDaemons/com.apple.qmaster.qmasterd.plist"});
  EXPECT_FALSE(fs::exists(sample.volume().host("/usr/sbin/qmasterprefs")));
}

TEST_F(VolumeTest, BundlesBearTheIdentifierAndVersionOfTheirFamily) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}, {"4.1.2", "/Applications/New/Compressor.app"}}});
  const std::string early = "/Applications/Final Cut Studio/Compressor.app/Contents/";
  const std::string late = "/Applications/New/Compressor.app/Contents/";
  EXPECT_EQ(stringIn(sample, early + "Info.plist", {"CFBundleIdentifier"}),
            "com.apple.compressor.Compressor");
  EXPECT_EQ(stringIn(sample, early + "version.plist", {"CFBundleShortVersionString"}), "3.5.3");
  EXPECT_EQ(stringIn(sample, late + "Info.plist", {"CFBundleIdentifier"}), "com.apple.Compressor");
  EXPECT_EQ(stringIn(sample, late + "version.plist", {"CFBundleShortVersionString"}), "4.1.2");
}

TEST_F(VolumeTest, SomePropertyListsAreXmlAndSomeBinary) {
  const TemporaryVolume sample({.compressors = {{"3.0.5"}, {"4.0.7"}}});
  EXPECT_THAT(contentsAt(sample, "/Applications/Compressor.app/Contents/Info.plist"), StartsWith("bplist00"));
  EXPECT_THAT(contentsAt(sample, "/Applications/Compressor.app/Contents/version.plist"), StartsWith("<?xml"));
  EXPECT_THAT(contentsAt(sample, "/Users/alice/Library/Preferences/com.apple.Compressor.plist"),
              StartsWith("bplist00"));
}

TEST_F(VolumeTest, FoldersHaveAMacsLinksOwnersAndModes) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}}});
  EXPECT_EQ(fs::read_symlink(sample.volume().folder() / "etc"), "private/etc");
  EXPECT_EQ(fs::read_symlink(sample.volume().folder() / "var"), "private/var");
  EXPECT_EQ(fs::read_symlink(sample.volume().folder() / "tmp"), "private/tmp");
  expectOwner(sample, "/", 0, 0, 0755);
  expectOwner(sample, "/Applications", 0, 80, 0775);
  expectOwner(sample, "/private/tmp", 0, 0, 01777);
  expectOwner(sample, "/Users/alice", 501, 20, 0755);
  expectOwner(sample, "/Users/alice/.Trash", 501, 20, 0700);
  expectOwner(sample, "/Users/bob/Library/Preferences", 502, 20, 0700);
  expectOwner(sample, "/Library/Application Support/Apple Qmaster", 0, 80, 0775);
  expectOwner(sample, "/usr/sbin/qmasterd", 0, 0, 0755);
  expectOwner(sample, "/Users/alice/Library/Preferences/com.apple.BatchMonitor.plist", 501, 20, 0644);
}

TEST_F(VolumeTest, EveryFamilyHasItsEightCacheFilesInItsOwnDomain) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}, {"4.0.7"}}});
  const std::vector<std::string> names{"servicecontroller:com.apple.stomp.transcoderx.plist",
                                       "servicecontroller:com.apple.qmaster.executor.plist",
                                       "servicecontroller:com.apple.stomp.transcoder.stomp.plist",
                                       "jobcontroller:com.apple.qmaster.cluster.admin.plist",
                                       "jobcontroller:com.apple.compressor.cluster.admin.plist",
                                       "requestprocessor:com.apple.qmaster.contentcontroller.plist",
                                       "requestprocessor:com.apple.compressor.contentcontroller.plist",
                                       "contentcontroller:com.apple.qmaster.contentagent.plist"};
  for (const auto& name : names) {
    expectThere(sample, {"/Library/Application Support/Apple Qmaster/" + name,
                         "/Users/alice/Library/Application Support/Apple Qmaster/" + name});
  }
}

TEST_F(VolumeTest, SpoolFilesAreDealtOutToAllSpoolFolders) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}, {"4.0.7"}},
                                .spoolFiles = 11,
                                .configuredSpool = "/Users/Shared/Spool",
                                .configuredFourSpool = "~/Movies/Spool"});
  std::size_t files = 0;
  for (const char* folder : {"/private/var/spool/qmaster", "/Users/Shared/Spool", "/Users/alice/Movies/Spool",
                             "/Users/alice/Library/Application Support/Apple Qmaster/Storage",
                             "/Library/Application Support/Apple Qmaster/Storage",
                             "/Users/Shared/Library/Application Support/Apple Qmaster/Storage"}) {
    const auto count =
        std::distance(fs::directory_iterator(sample.volume().host(folder)), fs::directory_iterator());
    EXPECT_GE(count, 1) << folder;
    files += static_cast<std::size_t>(count);
  }
  EXPECT_EQ(files, 11U);
  expectOwner(sample, "/Users/alice/Movies/Spool/job-000000.segment", 501, 20, 0644);
}

const std::vector<std::string> storageKeys{"jobcontroller:com.apple.qmaster.cluster.admin", "UserPrefs",
                                           "Storage"};

TEST_F(VolumeTest, ServicesFilesNameTheConfiguredSpoolAsItStands) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}, {"4.0.7"}},
                                .configuredSpool = "/Users/Shared/Spool",
                                .configuredFourSpool = "~/Movies/Spool"});
  const std::string file = "Library/Application Support/Apple Qmaster/qmasterservices.plist";
  EXPECT_EQ(stringIn(sample, '/' + file, storageKeys), "/Users/Shared/Spool");
  EXPECT_EQ(stringIn(sample, "/Users/alice/" + file, storageKeys), "~/Movies/Spool");
}

TEST_F(VolumeTest, AnEmptySpoolSettingLeavesTheKeyOut) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}}, .configuredSpool = ""});
  const std::string file = "/Library/Application Support/Apple Qmaster/qmasterservices.plist";
  EXPECT_EQ(stringIn(sample, file, storageKeys), "none");
  EXPECT_THAT(contentsAt(sample, file), HasSubstr("jobcontroller:com.apple.qmaster.cluster.admin"));
}

TEST_F(VolumeTest, GroupZeroCanBeWithoutTheNameWheel) {
  const TemporaryVolume sample({.wheelGroup = false});
  EXPECT_THAT(contentsAt(sample, "/etc/group"), Not(HasSubstr("wheel")));
  EXPECT_THAT(contentsAt(sample, "/etc/group"), StartsWith("root:*:0:"));
}

TEST_F(VolumeTest, WhatRunsIsWhatThePlanSays) {
  const TemporaryVolume sample({.compressors = {{"3.5.3", "", true}}, .batchMonitorRunning = true});
  EXPECT_EQ(contentsAt(sample, "/private/var/db/workstation/processes"),
            "root\t/usr/sbin/qmasterd\nroot\t/usr/sbin/qmasterca\n"
            "alice\t/Applications/Final Cut Studio/Compressor.app/Contents/MacOS/Compressor\n"
            "alice\t/Applications/Utilities/Batch Monitor.app/Contents/MacOS/Batch Monitor\n");
  EXPECT_EQ(value(sample, "qmaster.sharing"), "on");
}

TEST_F(VolumeTest, TwoCopiesInOnePlaceAndFoldersThatAreNotEmptyAreRefused) {
  EXPECT_THROW(TemporaryVolume({.compressors = {{"3.5.3"}, {"3.0.5"}}}), std::invalid_argument);
  EXPECT_THROW(TemporaryVolume({.compressors = {{"4"}}}), std::invalid_argument);
  const TemporaryVolume sample({});
  EXPECT_THROW(makeVolume(sample.volume().folder(), {}), std::invalid_argument);
}

TEST_F(VolumeTest, APlainVolumeHasNothingOfCompressors) {
  const TemporaryVolume sample({});
  EXPECT_FALSE(fs::exists(sample.volume().host("/usr/sbin/qmasterprefs")));
  EXPECT_TRUE(fs::is_empty(sample.volume().host("/Users/alice/Library/Preferences")));
  expectThere(sample, {"/bin/launchctl", "/usr/sbin/scutil", "/usr/bin/open"});
}

}  // namespace
}  // namespace workstation
