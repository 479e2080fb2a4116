#include "tests/app/ControllerTest.h"

namespace {

constexpr const char* kTool = "/usr/sbin/qmasterprefs";
constexpr const char* kCompressor = "/Applications/Compressor.app";
constexpr const char* kTool4 =
    "/Applications/Compressor.app/Contents/PlugIns/Compressor/CompressorKit.bundle/qmasterprefs";
constexpr const char* kStartupItem = "/Library/StartupItems/Qmaster/Qmaster";
constexpr const char* kSupport = "/Library/Application Support";
constexpr const char* kUserSupport = "/Users/alice/Library/Application Support";

using Operation = void (TGAppController::*)();

struct OperationCase {
  const char* name;
  Operation operation;
  const char* tool;
  const char* arguments;
  const char* pause;  ///< nullptr for none
};

class QmasterTest : public ControllerTest {
 protected:
  void installTools() {
    mac.files.makeFile(kTool);
    mac.files.makeFile(kTool4);
    mac.files.makeFile(kStartupItem);
    mac.files.makeFile("/bin/launchctl");
    mac.applications.paths["com.apple.Compressor"] = kCompressor;
  }
  void startWithRights() {
    startWithGUI();
    ASSERT_TRUE(TGAuthorization::sharedController()->authStart());
    mac.recorder.clear();
  }
};

class OperationTest : public QmasterTest, public testing::WithParamInterface<OperationCase> {
 protected:
  void perform() { (controller.get()->*GetParam().operation)(); }
  std::string commandLine() const { return GetParam().tool + std::string(" ") + GetParam().arguments; }
  Lines pause() const {
    return GetParam().pause == nullptr ? Lines{} : Lines{std::string("sleep ") + GetParam().pause};
  }
  bool is(const char* name) const { return std::string(GetParam().name) == name; }
};

/// Operations whose tool is looked for first, always run with rights.
class CheckedOperationTest : public OperationTest {};
/// Operations that fall back to a run without rights.
class FallingBackOperationTest : public OperationTest {};
/// The operations of Compressor 4.
class Operation4Test : public OperationTest {};

std::string nameOf(const testing::TestParamInfo<OperationCase>& parameter) {
  return parameter.param.name;
}

const auto kChecked = testing::Values(
    OperationCase{"qmasterCancelJobs", &TGAppController::qmasterCancelJobs, kTool, "-resetCluster cancelJobs",
                  "600us"},
    OperationCase{"qmasterReset", &TGAppController::qmasterReset, kTool, "-reset", "2s"},
    OperationCase{"qmasterRestart", &TGAppController::qmasterRestart, kTool, "-restart", nullptr},
    OperationCase{"qmasterStart", &TGAppController::qmasterStart, kStartupItem, "restart", nullptr});

const auto kOperations4 = testing::Values(
    OperationCase{"qmaster4CancelJobs", &TGAppController::qmaster4CancelJobs, kTool4,
                  "-resetCluster cancelJobs", "600us"},
    OperationCase{"qmaster4Reset", &TGAppController::qmaster4Reset, kTool4, "-reset", "600us"},
    OperationCase{"qmaster4StartSharing", &TGAppController::qmaster4StartSharing, kTool4, "-startSharing",
                  "600us"},
    OperationCase{"qmaster4StopSharing", &TGAppController::qmaster4StopSharing, kTool4, "-stopSharing", "1s"},
    OperationCase{"qmaster4Restart", &TGAppController::qmaster4Restart, kTool4, "-restart", "1s"});

const auto kSharing = testing::Values(
    OperationCase{"qmasterStartSharing", &TGAppController::qmasterStartSharing, kTool, "-startSharing",
                  "600us"},
    OperationCase{"qmasterStopSharing", &TGAppController::qmasterStopSharing, kTool, "-stopSharing", "1s"});

}  // namespace

INSTANTIATE_TEST_SUITE_P(Compressor3, CheckedOperationTest, kChecked, nameOf);
INSTANTIATE_TEST_SUITE_P(Sharing, FallingBackOperationTest, kSharing, nameOf);
INSTANTIATE_TEST_SUITE_P(Compressor4, FallingBackOperationTest, kOperations4, nameOf);
INSTANTIATE_TEST_SUITE_P(Compressor4, Operation4Test, kOperations4, nameOf);

TEST_P(CheckedOperationTest, RunsItsToolWithRightsAndPauses) {
  installTools();
  startWithRights();
  perform();
  EXPECT_EQ(recorded(), text(all({{"privileged " + commandLine()}, pause()})));
}

TEST_P(CheckedOperationTest, DoesNothingWithoutItsTool) {
  startWithRights();
  perform();
  EXPECT_EQ(recorded(), "");
}

TEST_P(CheckedOperationTest, TriesThePrivilegedWayWhereNoRightsCanBeHad) {
  installTools();
  startWithoutGUI();
  perform();
  EXPECT_EQ(recorded(), text(all({{"console Unable to authorize"}, pause()})));
}

TEST_P(CheckedOperationTest, LogsAnExceptionUnderItsName) {
  installTools();
  becomeRoot();
  startWithoutGUI();
  mac.subprocesses.runs[GetParam().tool].launchFailure = foundation::Exception("NSGenericException", "lost");
  perform();
  EXPECT_EQ(taskLog().back(), "Exception in -[TGAppController " + std::string(GetParam().name) +
                                  "]. NSGenericException - lost.");
}

TEST_P(FallingBackOperationTest, RunsItsToolWithRightsWhereTheyCanBeHad) {
  installTools();
  startWithRights();
  perform();
  EXPECT_EQ(recorded(), text(all({{"privileged " + commandLine()}, pause()})));
}

TEST_P(FallingBackOperationTest, RunsItsToolWithoutRightsAndWaitsForItElse) {
  installTools();
  startWithoutGUI();
  mac.subprocesses.recordsWaits = true;
  perform();
  EXPECT_EQ(recorded(),
            text(all({{"run " + commandLine(), std::string("wait ") + GetParam().tool}, pause()})));
}

TEST_P(FallingBackOperationTest, LetsAnExceptionThrough) {
  installTools();
  startWithoutGUI();
  mac.subprocesses.runs[GetParam().tool].launchFailure = foundation::Exception("NSGenericException", "lost");
  EXPECT_THROW(perform(), foundation::Exception);
}

TEST_P(Operation4Test, WithoutCompressor4NothingHappens) {
  installTools();
  mac.applications.paths.clear();
  startWithRights();
  perform();
  EXPECT_EQ(recorded(), "");
  EXPECT_EQ(windowLog(), Lines{});
}

TEST_P(Operation4Test, AMissingToolIsLoggedAndNotPausedFor) {
  installTools();
  std::filesystem::remove(mac.files.real(kTool4));
  startWithRights();
  perform();
  EXPECT_EQ(recorded(), "");
  EXPECT_EQ(windowLog(), Lines{"Unable to locate qmasterprefs application at " + std::string(kTool4)});
}

TEST_F(QmasterTest, SharingIsNotPrecededByALookForItsTool) {
  startWithRights();
  controller->qmasterStopSharing();
  EXPECT_EQ(mac.systemConsole.messages(),
            Lines{"Unable to execute task: path /usr/sbin/qmasterprefs doesn't exist"});
  EXPECT_EQ(recorded(), text({"sleep 1s"}));
}

TEST_F(QmasterTest, TheDaemonIsStartedWithStart) {
  installTools();
  startWithRights();
  controller->qmasterdStart(Silent::no);
  EXPECT_EQ(recorded(), text({"privileged /Library/StartupItems/Qmaster/Qmaster start"}));
}

TEST_F(QmasterTest, AMissingStartupItemIsTold) {
  startWithGUI();
  mac.mainThread.recordsWork = true;
  controller->qmasterdStart(Silent::no);
  EXPECT_EQ(recorded(), text({"main (wait)",
                              "console [red] Critical error: /Library/StartupItems/Qmaster/Qmaster cannot be "
                              "found. Please reinstall Qmaster."}));
}

TEST_F(QmasterTest, AMissingStartupItemIsNotToldSilently) {
  startWithGUI();
  controller->qmasterdStart(Silent::yes);
  EXPECT_EQ(recorded(), "");
  EXPECT_EQ(console.text, "");
}

TEST_F(QmasterTest, UnloadingTheDaemonTakesTwoCallsASecondApart) {
  installTools();
  startWithRights();
  controller->unloadQmasterDaemon();
  EXPECT_EQ(recorded(),
            text({"privileged /bin/launchctl unload /Library/LaunchDaemons/com.apple.qmaster.qmasterd.plist",
                  "sleep 1s", "privileged /bin/launchctl remove com.apple.qmaster.qmasterd"}));
}

TEST_F(QmasterTest, LoadingTheDaemonTakesASecond) {
  installTools();
  startWithRights();
  controller->loadQmasterDaemon();
  EXPECT_EQ(recorded(),
            text({"privileged /bin/launchctl load /Library/LaunchDaemons/com.apple.qmaster.qmasterd.plist",
                  "sleep 1s"}));
}

TEST_F(QmasterTest, TheMenuIsOpenedWithoutRightsOrWaiting) {
  const std::string menu =
      "/Library/PreferencePanes/Apple Qmaster.prefPane/Contents/Resources/QmasterStatusMenu.app";
  mac.files.makeFolder(menu);
  startWithRights();
  mac.subprocesses.recordsWaits = true;
  controller->qmasterMenuLaunch();
  EXPECT_EQ(recorded(), text({"run /usr/bin/open -a " + menu + "/Contents/MacOS/QmasterStatusMenu"}));
  ASSERT_EQ(mac.subprocesses.created.size(), 1U);
  EXPECT_EQ(mac.subprocesses.created[0].standardOutput, platform::Stream::nullDevice);
  EXPECT_EQ(mac.subprocesses.created[0].standardError, platform::Stream::nullDevice);
}

TEST_F(QmasterTest, AMissingMenuIsNotOpened) {
  startWithRights();
  controller->qmasterMenuLaunch();
  EXPECT_EQ(recorded(), "");
}

TEST_F(QmasterTest, AnOpenerThatCannotBeRunIsLogged) {
  mac.files.makeFolder(
      "/Library/PreferencePanes/Apple Qmaster.prefPane/Contents/Resources/QmasterStatusMenu.app");
  startWithGUI();
  mac.subprocesses.runs["/usr/bin/open"].launchFailure =
      foundation::Exception("NSInvalidArgumentException", "launch path not accessible");
  controller->qmasterMenuLaunch();
  EXPECT_EQ(windowLog(), Lines{"Exception in -[TGAppController qmasterMenuLaunch]. "
                               "NSInvalidArgumentException - launch path not accessible."});
}

TEST_F(QmasterTest, StopAllRunsKilltoolAndLeavesItTime) {
  startWithRights();
  controller->stopAll();
  EXPECT_EQ(recorded(), text({"privileged " + std::string(kHelpers) + "killtool", "sleep 1500us"}));
  EXPECT_EQ(windowLog(), Lines{"Stopping apps..."});
}

TEST_F(QmasterTest, ACancelledPasswordDialogIsLoggedWithItsStatusAsASignedNumber) {
  mac.authorization.execution = platform::errAuthorizationCanceled;
  startWithRights();
  controller->stopAll();
  EXPECT_EQ(windowLog(), (Lines{"Stopping apps...", "Error stopping Qmaster: -60006"}));
  EXPECT_EQ(mac.recorder.lines().back(), "sleep 1500us");
}

TEST_F(QmasterTest, StopAllLogsAnExceptionUnderItsName) {
  becomeRoot();
  startWithoutGUI();
  mac.subprocesses.runs[std::string(kHelpers) + "killtool"].launchFailure =
      foundation::Exception("NSGenericException", "lost");
  controller->stopAll();
  EXPECT_EQ(taskLog(), (Lines{"Stopping apps...",
                              "Exception in -[TGAppController stopAll]. NSGenericException - lost."}));
}

TEST_F(QmasterTest, StartingTheDaemonLogsAnExceptionUnderItsName) {
  installTools();
  becomeRoot();
  startWithoutGUI();
  mac.subprocesses.runs[kStartupItem].launchFailure = foundation::Exception("NSGenericException", "lost");
  controller->qmasterdStart(Silent::no);
  EXPECT_EQ(taskLog(), Lines{"Exception in -[TGAppController qmasterdStart:]. NSGenericException - lost."});
}

TEST_F(QmasterTest, TheDaemonsOperationsLetAnExceptionThrough) {
  installTools();
  becomeRoot();
  startWithoutGUI();
  mac.subprocesses.runs["/bin/launchctl"].launchFailure = foundation::Exception("NSGenericException", "lost");
  EXPECT_THROW(controller->loadQmasterDaemon(), foundation::Exception);
  EXPECT_THROW(controller->unloadQmasterDaemon(), foundation::Exception);
}

TEST_F(QmasterTest, WithTheLibraryElsewhereOnlySomePathsFollowIt) {
  const std::string menu = "PreferencePanes/Apple Qmaster.prefPane/Contents/Resources/QmasterStatusMenu.app";
  installTools();
  mac.files.makeFile("/Volumes/L/Library/StartupItems/Qmaster/Qmaster");
  mac.files.makeFolder("/Volumes/L/Library/" + menu);
  mac.users.searchPathsOverride = [](auto directory, auto domain) {
    const bool isLocalLibrary =
        directory == platform::SearchPathDirectory::library && domain == platform::SearchPathDomain::local;
    return isLocalLibrary ? std::optional(Lines{"/Volumes/L/Library"}) : std::nullopt;
  };
  startWithRights();
  controller->qmasterdStart(Silent::no);
  controller->qmasterStart();
  controller->loadQmasterDaemon();
  controller->qmasterMenuLaunch();
  EXPECT_EQ(
      recorded(),
      text({"privileged /Library/StartupItems/Qmaster/Qmaster start",
            "privileged /Volumes/L/Library/StartupItems/Qmaster/Qmaster restart",
            "privileged /bin/launchctl load "
            "/Volumes/L/Library/LaunchDaemons/com.apple.qmaster.qmasterd.plist",
            "sleep 1s", "run /usr/bin/open -a /Library/" + menu + "/Contents/MacOS/QmasterStatusMenu"}));
  std::filesystem::remove(mac.files.real(kStartupItem));
  std::filesystem::remove_all(mac.files.real("/Volumes/L/Library"));
  mac.files.makeFolder("/Library/" + menu);
  mac.recorder.clear();
  controller->qmasterdStart(Silent::no);
  controller->qmasterStart();
  controller->qmasterMenuLaunch();
  EXPECT_EQ(recorded(), text({"console [red] Critical error: /Library/StartupItems/Qmaster/Qmaster cannot be "
                              "found. Please reinstall Qmaster."}));
}

TEST_F(QmasterTest, AMissingKilltoolIsLoggedAsMinusTwo) {
  std::filesystem::remove(mac.files.real(std::string(kHelpers) + "killtool"));
  startWithRights();
  controller->stopAll();
  EXPECT_EQ(windowLog(), (Lines{"Stopping apps...", "Error stopping Qmaster: -2"}));
  EXPECT_EQ(recorded(), text({"sleep 1500us"}));
}

namespace {

struct TrashCase {
  const char* name;
  void (TGAppController::*operation)(const std::string&);
  const char* option;
  const char* what;
};

class TrashTest : public QmasterTest, public testing::WithParamInterface<TrashCase> {
 protected:
  void perform(const std::string& path) { (controller.get()->*GetParam().operation)(path); }
  std::string announcement(const std::string& path) const {
    return "Trashing " + std::string(GetParam().what) + " " + path + "...";
  }
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(
    Wrappers, TrashTest,
    testing::Values(TrashCase{"authTrashSpoolFolder", &TGAppController::authTrashSpoolFolder, "-spooldir ",
                              "contents of spool folder"},
                    TrashCase{"authTrashFolderContents", &TGAppController::authTrashFolderContents,
                              "-dircontents ", "contents of folder"},
                    TrashCase{"authTrashFile", &TGAppController::authTrashFile, "", "file"}),
    [](const auto& wrapper) { return std::string(wrapper.param.name); });

TEST_P(TrashTest, RunsTrashtoolWithoutAPause) {
  startWithRights();
  perform("/a b/%@");
  EXPECT_EQ(recorded(),
            text({"privileged " + std::string(kHelpers) + "trashtool " + GetParam().option + "/a b/%@"}));
  EXPECT_EQ(windowLog(), Lines{announcement("/a b/%@")});
}

TEST_P(TrashTest, LogsTheStatusOfAFailedStart) {
  startWithoutGUI();
  perform("/a");
  EXPECT_EQ(taskLog(),
            (Lines{announcement("/a"), "Error trashing " + std::string(GetParam().what) + ": -1"}));
  std::filesystem::remove(mac.files.real(std::string(kHelpers) + "trashtool"));
  perform("/a");
  EXPECT_EQ(taskLog().back(), "Error trashing " + std::string(GetParam().what) + ": -2");
}

TEST_P(TrashTest, LogsAnExceptionUnderItsName) {
  becomeRoot();
  startWithoutGUI();
  mac.subprocesses.runs[std::string(kHelpers) + "trashtool"].launchFailure =
      foundation::Exception("NSGenericException", "lost");
  perform("/a");
  EXPECT_EQ(taskLog().back(), "Exception in -[TGAppController " + std::string(GetParam().name) +
                                  ":]. NSGenericException - lost.");
}

namespace {

using Dictionary = foundation::PropertyList::Dictionary;

class SpoolPathTest : public QmasterTest {
 protected:
  void SetUp() override { startWithoutGUI(); }
  void writeServices(const foundation::PropertyList& content) {
    mac.files.makeFolder(std::string(kSupport) + "/Apple Qmaster");
    ASSERT_TRUE(platform::writePropertyList(std::string(kSupport) + "/Apple Qmaster/qmasterservices.plist",
                                            content, platform::PropertyListFormat::binary)
                    .ok());
  }
};

}  // namespace

TEST_F(SpoolPathTest, ComesFromTheMachinesFileForCompressor3AndFromTheUsersForCompressor4) {
  makeServicesFile(kSupport, "/machine");
  makeServicesFile(kUserSupport, "/user");
  EXPECT_EQ(controller->qmasterSpoolPath(), "/machine");
  EXPECT_EQ(controller->qmaster4SpoolPath(), "/user");
}

TEST_F(SpoolPathTest, OnlyCompressor4sTildeIsExpanded) {
  makeServicesFile(kSupport, "~/spool");
  makeServicesFile(kUserSupport, "~/spool");
  EXPECT_EQ(controller->qmasterSpoolPath(), "~/spool");
  EXPECT_EQ(controller->qmaster4SpoolPath(), "/Users/alice/spool");
}

TEST_F(SpoolPathTest, NoFileNoPath) {
  EXPECT_EQ(controller->qmasterSpoolPath(), std::nullopt);
  EXPECT_EQ(controller->qmaster4SpoolPath(), std::nullopt);
}

TEST_F(SpoolPathTest, AMissingKeyIsNoPath) {
  const std::string cluster = "jobcontroller:com.apple.qmaster.cluster.admin";
  writeServices(Dictionary{});
  EXPECT_EQ(controller->qmasterSpoolPath(), std::nullopt);
  writeServices(Dictionary{{cluster, Dictionary{{"Storage", "/x"}}}});
  EXPECT_EQ(controller->qmasterSpoolPath(), std::nullopt);
  writeServices(Dictionary{{cluster, Dictionary{{"UserPrefs", Dictionary{}}}}});
  EXPECT_EQ(controller->qmasterSpoolPath(), std::nullopt);
}

TEST_F(SpoolPathTest, AValueOfAnotherKindIsNoPath) {
  makeServicesFile(kSupport, 7);
  EXPECT_EQ(controller->qmasterSpoolPath(), std::nullopt);
  writeServices(Dictionary{{"jobcontroller:com.apple.qmaster.cluster.admin", "text"}});
  EXPECT_EQ(controller->qmasterSpoolPath(), std::nullopt);
  mac.files.makeFile(std::string(kSupport) + "/Apple Qmaster/qmasterservices.plist", "broken");
  EXPECT_EQ(controller->qmasterSpoolPath(), std::nullopt);
}
