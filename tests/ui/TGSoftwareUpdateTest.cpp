#include "ui/TGSoftwareUpdate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "diagnostics/TGLog.h"
#include "platform/fakes/FakePlatform.h"
#include "tests/support/SingletonScope.h"

namespace {

namespace fs = std::filesystem;
using foundation::PropertyList;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string kInstalled = "/Applications/Vordenworks/Vordenworks Software Update.app";
const std::string kCarried = "/Applications/Quillmend.app/Contents/Resources/Vordenworks Software Update.app";
const std::string kWorkingCopy = "/private/tmp/Vordenworks Software Update.app";
const std::string kProgram = "/Contents/MacOS/Vordenworks Software Update";
const std::string kArguments = " -checkpath /Applications/Quillmend.app";
const std::string kNoPath = "Unable to launch Software Update - path doesn't exist";
const std::string kNoExecutable = "Unable to launch Software Update - executable path doesn't exist";

std::ptrdiff_t threadCount() {
  return std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator());
}

class TGSoftwareUpdateTest : public testing::Test {
 protected:
  TGSoftwareUpdateTest() {
    mac.files.makeFolder("/private/tmp");
    mac.files.makeFolder("/Users/alice/Library/Preferences");
    TGLog::createNewLog("Quillmend");
  }
  ~TGSoftwareUpdateTest() override { TGLog::finishWriting(); }

  void writePropertyList(const std::string& path, const PropertyList& value) {
    mac.files.makeFile(path, mac.propertyLists.serialize(value, platform::PropertyListFormat::xml).value());
  }
  void makeUpdater(const std::string& path, const PropertyList& version) {
    writePropertyList(path + "/Contents/Info.plist",
                      PropertyList::Dictionary{{"CFBundleVersion", version},
                                               {"CFBundleExecutable", "Vordenworks Software Update"}});
    mac.files.makeFile(path + kProgram, "program of version " + version.description());
  }
  void setCheckAtStartup(const PropertyList& value) {
    writePropertyList("/Users/alice/Library/Preferences/com.vordenworks.global.plist",
                      PropertyList::Dictionary{{"SUCheckAtStartup", value}});
  }
  void becomeRoot() {
    mac.users.user = 0;
    mac.users.name = "root";
  }

  [[nodiscard]] std::string contentOf(const std::string& path) {
    const auto content = mac.files.readFile(path, 1000);
    return content ? content.value() : "";
  }
  [[nodiscard]] std::vector<std::string> calls() { return mac.recorder.only({"run", "wait", "open"}); }
  /// What is in the log behind its header.
  [[nodiscard]] std::vector<std::string> log() {
    TGLog::finishWriting();
    std::vector<std::string> entries;
    std::istringstream lines(contentOf("/Users/alice/Library/Logs/Vordenworks/Quillmend.1.log"));
    for (std::string line; std::getline(lines, line);) {
      const std::size_t dash = line.find(" - ");
      if (line.starts_with("20") && dash != std::string::npos) entries.push_back(line.substr(dash + 3));
    }
    return entries;
  }

  foundation::SingletonScope<TGLog> log_;
  fakes::FakePlatform mac;
};

// Which updater

TEST_F(TGSoftwareUpdateTest, ACarriedUpdaterThatIsNewerIsCopiedAndTheCopyIsTheOneToRun) {
  makeUpdater(kInstalled, "5");
  makeUpdater(kCarried, "7");
  EXPECT_EQ(TGSoftwareUpdate::updaterPath(), kWorkingCopy);
  EXPECT_EQ(contentOf(kWorkingCopy + kProgram), "program of version 7");
}

TEST_F(TGSoftwareUpdateTest, OfEqualVersionsTheInstalledOneIsRunAndNothingIsCopied) {
  makeUpdater(kInstalled, "7");
  makeUpdater(kCarried, "7");
  EXPECT_EQ(TGSoftwareUpdate::updaterPath(), kInstalled);
  EXPECT_FALSE(mac.files.exists(kWorkingCopy));
}

TEST_F(TGSoftwareUpdateTest, AnInstalledUpdaterThatIsNewerIsRunWhereItIs) {
  makeUpdater(kInstalled, "10");
  makeUpdater(kCarried, "9");
  EXPECT_EQ(TGSoftwareUpdate::updaterPath(), kInstalled);
}

TEST_F(TGSoftwareUpdateTest, WithoutAnInstalledUpdaterTheCarriedOneIsCopied) {
  makeUpdater(kCarried, "1");
  EXPECT_EQ(TGSoftwareUpdate::updaterPath(), kWorkingCopy);
}

TEST_F(TGSoftwareUpdateTest, WithNeitherThePathIsThatOfTheInstalledOne) {
  EXPECT_EQ(TGSoftwareUpdate::updaterPath(), kInstalled);
}

TEST_F(TGSoftwareUpdateTest, ACarriedUpdaterOfVersionZeroIsNoNewerThanNone) {
  makeUpdater(kCarried, "0");
  EXPECT_EQ(TGSoftwareUpdate::updaterPath(), kInstalled);
}

TEST_F(TGSoftwareUpdateTest, VersionsAreComparedAsIntegers) {
  makeUpdater(kInstalled, "7.9.9");
  makeUpdater(kCarried, " 7b");
  EXPECT_EQ(TGSoftwareUpdate::updaterPath(), kInstalled) << "7 is not newer than 7";
  makeUpdater(kCarried, "10");
  EXPECT_EQ(TGSoftwareUpdate::updaterPath(), kWorkingCopy);
}

TEST_F(TGSoftwareUpdateTest, AVersionMayBeANumber) {
  makeUpdater(kInstalled, 5);
  makeUpdater(kCarried, 6.9);
  EXPECT_EQ(TGSoftwareUpdate::updaterPath(), kWorkingCopy);
}

TEST_F(TGSoftwareUpdateTest, AVersionThatCannotBeReadCountsAsZero) {
  makeUpdater(kCarried, "1");
  for (const PropertyList& version : {PropertyList("seven"), PropertyList(PropertyList::Array{9})}) {
    makeUpdater(kInstalled, version);
    EXPECT_EQ(TGSoftwareUpdate::updaterPath(), kWorkingCopy) << version.description();
  }
  mac.files.makeFile(kInstalled + "/Contents/Info.plist", "no property list");
  EXPECT_EQ(TGSoftwareUpdate::updaterPath(), kWorkingCopy);
}

TEST_F(TGSoftwareUpdateTest, AnOlderWorkingCopyIsReplacedWhole) {
  makeUpdater(kCarried, "7");
  mac.files.makeFile(kWorkingCopy + "/Contents/Resources/of an older version");
  EXPECT_EQ(TGSoftwareUpdate::updaterPath(), kWorkingCopy);
  EXPECT_FALSE(mac.files.exists(kWorkingCopy + "/Contents/Resources/of an older version"));
  EXPECT_EQ(contentOf(kWorkingCopy + kProgram), "program of version 7");
}

TEST_F(TGSoftwareUpdateTest, ThatTheCopyingFailsIsIgnored) {
  makeUpdater(kCarried, "7");
  mac.files.beforeChange = [](const std::string& change, const std::string& path) {
    return change == "copy" ? std::optional(foundation::systemError(ENOSPC, path)) : std::nullopt;
  };
  EXPECT_EQ(TGSoftwareUpdate::updaterPath(), kWorkingCopy);
  TGSoftwareUpdate::automaticallyCheckForUpdates();
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(TGSoftwareUpdateTest, AnOwnCopyThatCannotBeReplacedIsRun) {
  makeUpdater(kCarried, "7");
  makeUpdater(kWorkingCopy, "6");
  mac.files.beforeChange = [](const std::string&, const std::string& path) {
    return std::optional(foundation::systemError(EPERM, path));
  };
  TGSoftwareUpdate::automaticallyCheckForUpdates();
  EXPECT_THAT(calls(), ElementsAre("run " + kWorkingCopy + kProgram + kArguments));
}

TEST_F(TGSoftwareUpdateTest, WithoutAnApplicationsFolderThereIsNoPath) {
  makeUpdater(kCarried, "7");
  mac.users.searchPathsOverride = [](platform::SearchPathDirectory directory, platform::SearchPathDomain) {
    return directory == platform::SearchPathDirectory::application ? std::optional(std::vector<std::string>())
                                                                   : std::nullopt;
  };
  EXPECT_EQ(TGSoftwareUpdate::updaterPath(), "");
  TGSoftwareUpdate::automaticallyCheckForUpdates();
  EXPECT_THAT(log(), ElementsAre(kNoPath));
  TGSoftwareUpdate::launchSoftwareUpdate();
  EXPECT_THAT(log(), ElementsAre(kNoPath, kNoPath));
  EXPECT_THAT(calls(), IsEmpty());
}

// A temporary folder that others may write in

class SharedTemporaryFolderTest : public TGSoftwareUpdateTest {
 protected:
  SharedTemporaryFolderTest() {
    makeUpdater(kCarried, "7");
    setMode("/private/tmp", 01777);
  }
  void setMode(const std::string& path, int mode) {
    fs::permissions(mac.files.real(path), static_cast<fs::perms>(mode));
  }
  void nothingCanBeChanged() {
    mac.files.beforeChange = [](const std::string&, const std::string& path) {
      return std::optional(foundation::systemError(EPERM, path));
    };
  }
  void expectRefusal() {
    EXPECT_EQ(TGSoftwareUpdate::updaterPath(), "");
    TGSoftwareUpdate::automaticallyCheckForUpdates();
    TGSoftwareUpdate::launchSoftwareUpdate();
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_THAT(log(), Contains("Software Update is not run from " + kWorkingCopy +
                                ": other users could have put it there"));
    EXPECT_THAT(log(), Contains(kNoPath).Times(2));
  }
};

TEST_F(SharedTemporaryFolderTest, TheCopyIsClosedToOthersAndRun) {
  setMode(kCarried, 0777);
  TGSoftwareUpdate::automaticallyCheckForUpdates();
  EXPECT_THAT(calls(), ElementsAre("run " + kWorkingCopy + kProgram + kArguments));
  const auto mode = fs::status(mac.files.real(kWorkingCopy)).permissions();
  EXPECT_EQ(mode & (fs::perms::group_write | fs::perms::others_write), fs::perms::none);
}

TEST_F(SharedTemporaryFolderTest, SomebodyElsesFolderInItsPlaceIsNotRun) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  makeUpdater(kWorkingCopy, "99");
  ASSERT_EQ(::chown(mac.files.real(kWorkingCopy).c_str(), 4321, 4321), 0);
  nothingCanBeChanged();
  expectRefusal();
}

TEST_F(SharedTemporaryFolderTest, AFolderThatOthersMayWriteInIsNotRun) {
  makeUpdater(kWorkingCopy, "99");
  setMode(kWorkingCopy, 0777);
  nothingCanBeChanged();
  expectRefusal();
}

TEST_F(SharedTemporaryFolderTest, ALinkInItsPlaceIsNotRun) {
  makeUpdater("/elsewhere.app", "99");
  fs::create_directory_symlink(mac.files.real("/elsewhere.app"), mac.files.real(kWorkingCopy));
  nothingCanBeChanged();
  expectRefusal();
}

TEST_F(SharedTemporaryFolderTest, APathWhereOthersMayComeFirstIsNotRun) {
  nothingCanBeChanged();
  expectRefusal();
}

TEST_F(SharedTemporaryFolderTest, AFolderInWhichOthersMayExchangeTheCopyIsNotUsed) {
  setMode("/private/tmp", 0777);
  expectRefusal();
}

// The check at start-up

TEST_F(TGSoftwareUpdateTest, TheCheckRunsTheUpdaterWithThisBundlesPathAndWaitsForItsEnd) {
  mac.subprocesses.recordsWaits = true;
  makeUpdater(kInstalled, "5");
  TGSoftwareUpdate::automaticallyCheckForUpdates();
  EXPECT_THAT(calls(), ElementsAre("run " + kInstalled + kProgram + kArguments, HasSubstr("wait ")));
  ASSERT_EQ(mac.subprocesses.created.size(), 1U);
  EXPECT_THAT(mac.subprocesses.created[0].arguments,
              ElementsAre("-checkpath", "/Applications/Quillmend.app"));
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(TGSoftwareUpdateTest, TheCheckFindsNoUpdaterAndSaysNothing) {
  TGSoftwareUpdate::automaticallyCheckForUpdates();
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(TGSoftwareUpdateTest, AFileInTheUpdatersPlaceIsNoBundle) {
  mac.files.makeFile(kInstalled);
  TGSoftwareUpdate::automaticallyCheckForUpdates();
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(TGSoftwareUpdateTest, ABundleWithoutAnExecutableIsLogged) {
  makeUpdater(kInstalled, "5");
  fs::remove(mac.files.real(kInstalled + kProgram));
  TGSoftwareUpdate::automaticallyCheckForUpdates();
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(log(), ElementsAre(kNoExecutable));
}

TEST_F(TGSoftwareUpdateTest, AFolderIsNoExecutable) {
  makeUpdater(kInstalled, "5");
  fs::remove(mac.files.real(kInstalled + kProgram));
  mac.files.makeFolder(kInstalled + kProgram);
  TGSoftwareUpdate::automaticallyCheckForUpdates();
  EXPECT_THAT(log(), ElementsAre(kNoExecutable));
}

TEST_F(TGSoftwareUpdateTest, WithoutAnInfoDictionaryTheProgramIsNamedAsTheBundle) {
  mac.files.makeFile(kInstalled + kProgram);
  TGSoftwareUpdate::automaticallyCheckForUpdates();
  EXPECT_THAT(calls(), ElementsAre("run " + kInstalled + kProgram + kArguments));
}

TEST_F(TGSoftwareUpdateTest, AnExecutableNameThatLeadsOutOfTheBundleIsNotFollowed) {
  mac.files.makeFile("/bin/evil");
  writePropertyList(kInstalled + "/Contents/Info.plist",
                    PropertyList::Dictionary{{"CFBundleExecutable", "../../../../../bin/evil"}});
  TGSoftwareUpdate::automaticallyCheckForUpdates();
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(log(), ElementsAre(kNoExecutable));
}

TEST_F(TGSoftwareUpdateTest, AProgramThatMayNotBeExecutedIsLogged) {
  makeUpdater(kInstalled, "5");
  mac.files.denied.insert({kInstalled + kProgram, platform::Access::execute});
  TGSoftwareUpdate::automaticallyCheckForUpdates();
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(log(), ElementsAre("Error: " + kInstalled + kProgram + " is not executable"));
}

TEST_F(TGSoftwareUpdateTest, AnUpdaterThatCannotBeStartedIsLoggedUnderTheMethod) {
  makeUpdater(kInstalled, "5");
  mac.subprocesses.runs[kInstalled + kProgram].launchFailure =
      foundation::Exception(foundation::kInvalidArgumentException, "launch path not accessible");
  TGSoftwareUpdate::automaticallyCheckForUpdates();
  EXPECT_THAT(log(), ElementsAre("Exception in +[TGSoftwareUpdate automaticallyCheckForUpdates]. "
                                 "NSInvalidArgumentException - launch path not accessible."));
}

TEST_F(TGSoftwareUpdateTest, RootDoesNotRunTheUpdaterAndSaysSo) {
  makeUpdater(kInstalled, "5");
  becomeRoot();
  TGSoftwareUpdate::automaticallyCheckForUpdates();
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(log(), ElementsAre(HasSubstr("Software Update is not run as root")));
}

// Its switch and its thread

class StartupTest : public TGSoftwareUpdateTest {
 protected:
  StartupTest() {
    mac.subprocesses.recordsWaits = true;
    makeUpdater(kInstalled, "5");
    mac.subprocesses.runs[kInstalled + kProgram].runsUntilTerminated = true;
  }
  /// The check's thread lives as long as the updater runs, so that a count tells whether there is one.
  [[nodiscard]] bool startsTheCheck() {
    const auto before = threadCount();
    TGSoftwareUpdate().awakeFromNib();
    if (threadCount() == before) return false;
    while (mac.recorder.only({"wait"}).empty()) std::this_thread::yield();
    return true;
  }
};

TEST_F(StartupTest, TheCheckIsOnUntilSomebodySwitchesItOff) {
  EXPECT_TRUE(startsTheCheck());
}

TEST_F(StartupTest, TheInterfaceDoesNotWaitForTheUpdater) {
  TGSoftwareUpdate().startup();
  while (mac.recorder.only({"wait"}).empty()) std::this_thread::yield();
  EXPECT_THAT(mac.recorder.only({"terminate"}), IsEmpty()) << "it still runs, and is left to";
}

TEST_F(StartupTest, ANumberEqualToNoSwitchesItOff) {
  for (const PropertyList& no :
       {PropertyList(false), PropertyList(0), PropertyList(0.0), PropertyList(-0.0)}) {
    setCheckAtStartup(no);
    EXPECT_FALSE(startsTheCheck()) << no.description();
  }
}

class NoSwitchTest : public StartupTest, public testing::WithParamInterface<PropertyList> {};

TEST_P(NoSwitchTest, AnythingElseLeavesItOn) {
  setCheckAtStartup(GetParam());
  EXPECT_TRUE(startsTheCheck());
}

INSTANTIATE_TEST_SUITE_P(Values, NoSwitchTest,
                         testing::Values("0", "NO", "", "false", true, 1, -1, 2, 0.5, PropertyList::Array{},
                                         PropertyList::Data{""}, PropertyList::Dictionary{}));

TEST_F(StartupTest, APreferencesFileThatCannotBeReadLeavesItOn) {
  mac.files.makeFile("/Users/alice/Library/Preferences/com.vordenworks.global.plist", "no property list");
  EXPECT_TRUE(startsTheCheck());
}

TEST_F(StartupTest, TheApplicationsOwnPreferenceOfThatNameIsNotAsked) {
  mac.preferences.setValue("SUCheckAtStartup", false);
  EXPECT_TRUE(startsTheCheck());
}

// The manual check

TEST_F(TGSoftwareUpdateTest, TheManualCheckOpensTheUpdaterWithoutArguments) {
  makeUpdater(kInstalled, "5");
  TGSoftwareUpdate().manualUpdateCheck(nullptr);
  EXPECT_THAT(calls(), ElementsAre("open " + kInstalled));
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(TGSoftwareUpdateTest, TheManualCheckOpensTheWorkingCopyOfANewerCarriedOne) {
  makeUpdater(kInstalled, "5");
  makeUpdater(kCarried, "7");
  TGSoftwareUpdate::launchSoftwareUpdate();
  EXPECT_THAT(calls(), ElementsAre("open " + kWorkingCopy));
}

TEST_F(TGSoftwareUpdateTest, TheManualCheckAsksForAnUpdaterThatIsMissing) {
  TGSoftwareUpdate::launchSoftwareUpdate();
  EXPECT_THAT(calls(), ElementsAre("open " + kInstalled));
}

TEST_F(TGSoftwareUpdateTest, TheManualCheckDoesNotAskTheSwitch) {
  setCheckAtStartup(false);
  makeUpdater(kInstalled, "5");
  TGSoftwareUpdate().manualUpdateCheck(nullptr);
  EXPECT_THAT(calls(), ElementsAre("open " + kInstalled));
}

TEST_F(TGSoftwareUpdateTest, TheManualCheckWorksForRoot) {
  makeUpdater(kInstalled, "5");
  becomeRoot();
  TGSoftwareUpdate::launchSoftwareUpdate();
  EXPECT_THAT(calls(), ElementsAre("open " + kInstalled));
}

// Both at once

/// Whether a thread of this process waits for something (proc(5)).
bool isAsleep(pid_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string status;
  std::getline(file, status);
  const std::size_t name = status.rfind(") ");
  return name != std::string::npos && status.substr(name + 2, 1) == "S";
}

TEST_F(TGSoftwareUpdateTest, AManualCheckLeavesTheWorkingCopyAloneUntilTheOtherHasStartedIt) {
  makeUpdater(kCarried, "7");
  std::thread manual;
  std::atomic<pid_t> manualNumber = 0;
  std::atomic<int> changes = 0;
  bool wasStartedBefore = false;
  mac.files.beforeChange = [&](const std::string&, const std::string& path) {
    if (path != kWorkingCopy && path != kCarried) return std::optional<foundation::Error>();
    const int change = ++changes;
    if (change == 2) {  // the start-up check is about to copy
      manual = std::thread([&] {
        manualNumber = ::gettid();
        TGSoftwareUpdate::launchSoftwareUpdate();
      });
      while (changes == 2 && (manualNumber == 0 || !isAsleep(manualNumber))) std::this_thread::yield();
    }
    if (change == 3) wasStartedBefore = !mac.recorder.only({"run"}).empty();
    return std::optional<foundation::Error>();
  };
  TGSoftwareUpdate::automaticallyCheckForUpdates();
  manual.join();
  EXPECT_EQ(changes, 4) << "each removes and copies";
  EXPECT_TRUE(wasStartedBefore);
  EXPECT_THAT(calls(), ElementsAre("run " + kWorkingCopy + kProgram + kArguments, "open " + kWorkingCopy));
}

}  // namespace
