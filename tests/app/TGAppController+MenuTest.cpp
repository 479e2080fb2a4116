#include <cerrno>
#include <stdexcept>

#include "platform/foundation/Identifiers.h"
#include "tests/app/ControllerTest.h"

namespace {

constexpr const char* kMenu =
    "/Library/PreferencePanes/Apple Qmaster.prefPane/Contents/Resources/QmasterStatusMenu.app";

class MenuTest : public ControllerTest {
 protected:
  void SetUp() override {
    mac.files.makeFile("/usr/sbin/qmasterprefs");
    mac.files.makeFile("/bin/launchctl");
    mac.files.makeFile("/Library/StartupItems/Qmaster/Qmaster");
    mac.files.makeFolder(kMenu);
  }
  static Lines asked() {
    return {"authorization create flags 0", "authorization rights system.privilege.admin flags 19"};
  }
  static Lines startSteps(const std::string& how) {
    return {how + " /bin/launchctl load /Library/LaunchDaemons/com.apple.qmaster.qmasterd.plist",
            "sleep 1s",
            how + " /Library/StartupItems/Qmaster/Qmaster start",
            how + " /Library/StartupItems/Qmaster/Qmaster restart",
            how + " /usr/sbin/qmasterprefs -restart",
            how + " /usr/sbin/qmasterprefs -startSharing",
            "sleep 600us",
            "run /usr/bin/open -a " + std::string(kMenu) + "/Contents/MacOS/QmasterStatusMenu",
            "alert Qmaster started: Qmaster started successfully."};
  }
  static Lines stopSteps(const std::string& how) {
    return {how + " /usr/sbin/qmasterprefs -stopSharing",
            "sleep 1s",
            how + " /bin/launchctl unload /Library/LaunchDaemons/com.apple.qmaster.qmasterd.plist",
            "sleep 1s",
            how + " /bin/launchctl remove com.apple.qmaster.qmasterd",
            how + " " + kHelpers + "killtool",
            "sleep 1500us",
            "alert Qmaster stopped: Qmaster stopped successfully."};
  }
};

/// The password switch.
class ToggleTest : public ControllerTest {
 protected:
  void SetUp() override { startWithGUI(); }
  void toggleTo(outlets::State state) {
    passwordItem.current = state;
    controller->prefsToggleAdminPass(&passwordItem);
  }
};

}  // namespace

TEST_F(MenuTest, RestartingQmasterAsksThenTakesItsStepsInOrder) {
  startWithGUI();
  controller->menuRestartQmaster();
  EXPECT_EQ(recorded(), text(all({asked(), startSteps("privileged")})));
}

TEST_F(MenuTest, StoppingQmasterAsksThenTakesItsStepsInOrder) {
  startWithGUI();
  controller->menuStopQmaster();
  EXPECT_EQ(recorded(), text(all({asked(), stopSteps("privileged")})));
}

TEST_F(MenuTest, RightsThatAreHeldAreNotAskedFor) {
  startWithGUI();
  controller->menuStopQmaster();
  mac.recorder.clear();
  controller->menuRestartQmaster();
  EXPECT_EQ(recorded(), text(startSteps("privileged")));
}

TEST_F(MenuTest, TheRightsOfAnActionStayAndLiftTheRequirementWithoutADialog) {
  startWithGUI();
  controller->menuStopQmaster();
  mac.recorder.clear();
  passwordItem.current = outlets::State::off;
  controller->prefsToggleAdminPass(&passwordItem);
  EXPECT_THAT(recorded(), testing::Not(testing::HasSubstr("authorization")));
  EXPECT_EQ(mac.preferences.value("requireAdminPassword"), foundation::PropertyList(0));
  EXPECT_EQ(passwordItem.current, outlets::State::off);
}

TEST_F(MenuTest, ARefusalEndsBothActionsWithoutAWord) {
  mac.authorization.rights = platform::errAuthorizationCanceled;
  startWithGUI();
  controller->menuRestartQmaster();
  controller->menuStopQmaster();
  const Lines refused = all({asked(), {"authorization free flags 0"}});
  EXPECT_EQ(recorded(), text(all({refused, refused})));
}

TEST_F(MenuTest, AsRootThereIsNoDialog) {
  becomeRoot();
  startWithGUI();
  controller->menuRestartQmaster();
  controller->menuStopQmaster();
  EXPECT_EQ(recorded(), text(all({startSteps("run"), stopSteps("run")})));
}

TEST_F(MenuTest, QmasterIsSaidToBeStartedWhateverIsThere) {
  for (const char* path : {"/usr/sbin/qmasterprefs", "/Library/StartupItems/Qmaster/Qmaster"}) {
    std::filesystem::remove(mac.files.real(path));
  }
  startWithGUI();
  controller->menuRestartQmaster();
  EXPECT_EQ(mac.recorder.lines().back(), "alert Qmaster started: Qmaster started successfully.");
  EXPECT_EQ(console.text, "");  // the missing startup item is not told here
}

TEST_F(MenuTest, ADaemonToolThatCannotBeLaunchedEndsTheActionWithItsException) {
  becomeRoot();
  startWithGUI();
  mac.subprocesses.runs["/bin/launchctl"].launchFailure = foundation::Exception("NSGenericException", "lost");
  EXPECT_THROW(controller->menuRestartQmaster(), foundation::Exception);
  EXPECT_THROW(controller->menuStopQmaster(), foundation::Exception);
  EXPECT_THAT(mac.recorder.lines(), testing::Not(testing::Contains(testing::StartsWith("alert"))));
}

TEST_F(MenuTest, HelpOpensTheManualOfTheBundle) {
  startWithGUI();
  controller->helpManual();
  EXPECT_EQ(recorded(),
            text({"open /Applications/Quillmend.app/Contents/Resources/Quillmend User Manual.pdf"}));
}

TEST_F(MenuTest, HelpThatNothingOpensIsNotReported) {
  mac.workspace.canOpen = false;
  startWithGUI();
  controller->helpManual();
  controller->helpHome();
  EXPECT_EQ(windowLog(), Lines{});
  EXPECT_THAT(mac.recorder.only({"alert"}), testing::IsEmpty());
  EXPECT_THAT(mac.systemConsole.messages(), testing::IsEmpty());
}

TEST_F(MenuTest, HelpOpensTheMakersPages) {
  startWithGUI();
  controller->helpCareplex();
  controller->helpHome();
  controller->helpReportBug();
  controller->helpSuggestFeature();
  controller->helpTGHome();
  const std::string site = std::string("browse ") + identifiers::kWebSite;
  EXPECT_EQ(recorded(), text({site + "/Careplex/", site + "/quillmend.htm",
                              site + "/software_bugreport.htm?app=quillmend&version=2.1",
                              site + "/software_featurerequest.htm?app=quillmend", site}));
}

TEST_F(MenuTest, TheBugReportsVersionIsNotEscaped) {
  mac.mainBundle.info.set("CFBundleShortVersionString", "2.1 beta&3");
  startWithGUI();
  controller->helpReportBug();
  EXPECT_TRUE(mac.recorder.lines().back().ends_with("?app=quillmend&version=2.1 beta&3"));
}

TEST_F(MenuTest, WithoutAVersionTheBugReportsEndsWithItsKey) {
  mac.mainBundle.info = {};
  startWithGUI();
  controller->helpReportBug();
  EXPECT_TRUE(mac.recorder.lines().back().ends_with("&version="));
}

TEST_F(ToggleTest, SwitchingOnNeedsNoRights) {
  toggleTo(outlets::State::on);
  EXPECT_EQ(recorded(), text({"store preference of any user on this host requireAdminPassword = 1"}));
}

TEST_F(ToggleTest, SwitchingOffTakesAnAdministrator) {
  toggleTo(outlets::State::off);
  EXPECT_EQ(recorded(),
            text({"authorization create flags 0", "authorization rights system.privilege.admin flags 19",
                  "store preference of any user on this host requireAdminPassword = 0"}));
}

TEST_F(ToggleTest, ARefusedSwitchGoesBackAndNothingIsStored) {
  mac.authorization.rights = platform::errAuthorizationCanceled;
  toggleTo(outlets::State::off);
  EXPECT_EQ(mac.recorder.lines().back(), "switch on");
  EXPECT_EQ(passwordItem.current, outlets::State::on);
  EXPECT_EQ(mac.preferences.values.find("requireAdminPassword"), nullptr);
}

TEST_F(ToggleTest, TheStateIsStoredAsANumber) {
  toggleTo(outlets::State::on);
  const auto* value = mac.preferences.values.find("requireAdminPassword");
  ASSERT_NE(value, nullptr);
  EXPECT_NE(value->as<std::int64_t>(), nullptr);
}

constexpr const char* kRequirementFile = "/Library/Preferences/com.vordenworks.Quillmend.plist";

TEST_F(ToggleTest, ARequirementThatCannotBeMadeGoesBackAndItsCauseIsTold) {
  mac.preferences.refusal = foundation::systemError(EACCES, kRequirementFile);
  toggleTo(outlets::State::on);
  const std::string cause =
      "Your account may not write there. Have an administrator start Quillmend as root to change it.";
  const std::string where = kRequirementFile;
  EXPECT_EQ(recorded(),
            text({"store preference of any user on this host requireAdminPassword = 1", "switch off",
                  "alert The password requirement was not changed: It is kept for everybody on "
                  "this computer in this file:\n" +
                      where + "\n\n" + cause}));
  EXPECT_EQ(passwordItem.current, outlets::State::off);
  EXPECT_EQ(windowLog(),
            Lines{"Unable to store the preference requireAdminPassword in " + where + ": " + cause});
}

TEST_F(ToggleTest, ARequirementThatCannotBeLiftedStays) {
  mac.preferences.values = foundation::PropertyList::Dictionary{{"requireAdminPassword", 1}};
  mac.preferences.refusal = foundation::systemError(ENOSPC, kRequirementFile);
  toggleTo(outlets::State::off);
  EXPECT_EQ(passwordItem.current, outlets::State::on);
  EXPECT_EQ(mac.preferences.value("requireAdminPassword"), foundation::PropertyList(1));
}

TEST_F(ToggleTest, OtherPreferencesThatCannotBeStoredDoNotLiftTheRequirement) {
  mac.preferences.canStore = false;
  toggleTo(outlets::State::on);
  EXPECT_EQ(mac.preferences.value("requireAdminPassword"), foundation::PropertyList(1));
  EXPECT_EQ(passwordItem.current, outlets::State::on);
  EXPECT_THAT(mac.recorder.only({"alert"}), testing::IsEmpty());
}

TEST_F(ToggleTest, WhatOthersHaveRequiredMeanwhileStandsWhereNothingCanBeStored) {
  mac.preferences.values = foundation::PropertyList::Dictionary{{"requireAdminPassword", 1}};
  mac.preferences.refusal = foundation::systemError(EACCES, kRequirementFile);
  toggleTo(outlets::State::on);  // shown as off until now
  EXPECT_EQ(mac.preferences.value("requireAdminPassword"), foundation::PropertyList(1));
  EXPECT_EQ(passwordItem.current, outlets::State::on);
  EXPECT_EQ(mac.recorder.only({"store", "switch"}),
            Lines{"store preference of any user on this host requireAdminPassword = 1"});
}

TEST_F(ToggleTest, ThePanelTellsTheCauseThatStoringGave) {
  const auto told = [this](const foundation::Error& error) {
    mac.preferences.refusal = error;
    toggleTo(outlets::State::on);
    const std::string panel = mac.recorder.lines().back();
    return panel.substr(panel.rfind('\n') + 1);
  };
  const auto toldFor = [&](int code) { return told(foundation::systemError(code, kRequirementFile)); };
  EXPECT_EQ(toldFor(EPERM), toldFor(EACCES));
  EXPECT_EQ(toldFor(EROFS), "Its volume is read-only.");
  EXPECT_EQ(toldFor(ENOSPC), "The disk is full.");
  EXPECT_EQ(toldFor(EDQUOT), "The disk is full.");
  EXPECT_EQ(toldFor(EISDIR), "There is a folder in the place of the file. Move it away.");
  EXPECT_EQ(toldFor(ENOTDIR), "There is something else in the place of the file's folder. Move it away.");
  EXPECT_EQ(told(foundation::errorWithReason(EIO, "/a", "broken")), "/a: broken");
}

TEST_F(ToggleTest, AStateThatIsStoredIsNotLogged) {
  toggleTo(outlets::State::on);
  EXPECT_EQ(windowLog(), Lines{});
}

TEST_F(ToggleTest, ASenderWithoutAStateIsIgnored) {
  controller->prefsToggleAdminPass(&button);
  controller->prefsToggleAdminPass(nullptr);
  EXPECT_EQ(recorded(), "");
}

TEST_F(ToggleTest, AnExceptionIsLogged) {
  passwordItem.failure = foundation::Exception("NSGenericException", "lost");
  controller->prefsToggleAdminPass(&passwordItem);
  EXPECT_EQ(windowLog(), Lines{"Exception in -[TGAppController prefsToggleAdminPass:]. NSGenericException - "
                               "lost."});
}

TEST_F(ToggleTest, AnythingElseThatIsThrownGoesOn) {
  class FailingSwitch : public fakes::FakeSwitch<outlets::MenuItem> {
   public:
    using FakeSwitch::FakeSwitch;
    outlets::State state() const override { throw std::runtime_error("other"); }
  };
  FailingSwitch failing(mac.recorder);
  EXPECT_THROW(controller->prefsToggleAdminPass(&failing), std::runtime_error);
}

TEST_F(MenuTest, TheLogAndTheTaskLogAreShown) {
  const std::string folder = "/Users/alice/Library/Logs/Vordenworks/";
  startWithGUI();
  mac.files.makeFile(folder + "Quillmend.1.log");
  mac.files.makeFile(folder + "Quillmend.1.task.log");
  controller->viewLog();
  controller->viewTaskLog();
  EXPECT_EQ(recorded(),
            text({"open " + folder + "Quillmend.1.log", "open " + folder + "Quillmend.1.task.log"}));
}

TEST_F(MenuTest, AMissingTaskLogIsSaidToBeMissing) {
  startWithGUI();
  controller->viewTaskLog();
  EXPECT_EQ(recorded(),
            text({"alert No log found: You must run the application as a task (e.g. through Tickwarden) "
                  "before viewing a log."}));
}

TEST_F(MenuTest, LogsAreGatheredUnderTheApplicationsName) {
  startWithGUI();
  mac.files.makeFile("/Library/Logs/Vordenworks/Quillmend.1.log");
  mac.subprocesses.executables.insert("/usr/bin/ditto");
  const std::string archive = "/Users/alice/Desktop/Quillmend Logs.zip";
  mac.subprocesses.runs["/usr/bin/ditto"].whenLaunched = [&] { mac.files.makeFile(archive); };
  controller->gatherLogs();
  EXPECT_EQ(recorded(),
            text({"run /usr/bin/ditto -ck --keepParent /private/tmp/TG_App_Logs " + archive,
                  "alert Logs gathered successfully: The gathered logs were placed on your desktop."}));
}

TEST_F(MenuTest, WhereNoArchiveCanBeWrittenOneAlertSaysSo) {
  startWithGUI();
  mac.files.makeFile("/Library/Logs/Vordenworks/Quillmend.1.log", "a log");
  mac.subprocesses.executables.insert("/usr/bin/ditto");
  controller->gatherLogs();
  EXPECT_EQ(mac.recorder.only({"alert"}),
            Lines{"alert Logs could not be gathered: Please check your file permissions."});
  EXPECT_TRUE(mac.files.exists("/Library/Logs/Vordenworks/Quillmend.1.log"));
}
