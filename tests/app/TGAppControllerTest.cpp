#include "app/TGAppController.h"

#include "platform/foundation/Identifiers.h"
#include "tests/app/ControllerTest.h"

namespace {

const std::string kLogs = "/Users/alice/Library/Logs/Vordenworks/";

class LifeTest : public ControllerTest {
 protected:
  /// A window's controller that has not been woken, with its console recording every call.
  void makeWindow() {
    startWithGUI();
    console.recordsCalls = true;
  }
  /// A report of a crash that came after any launch that a test may have stamped.
  void makeCrashReport(const std::string& name) {
    mac.files.makeFile("/Users/alice/Library/Logs/DiagnosticReports/" + name, "crash");
  }
  static Lines offer() {
    return {"view editable", "view select 0+0", "view insert regular 12.0 \n\n",
            std::string("view link Get Stellate Toolbox for even more features -> ") + identifiers::kWebSite +
                "/stellatetoolbox",
            "view read-only"};
  }
};

}  // namespace

TEST_F(LifeTest, TheWindowsControllerRegistersItsDefaults) {
  controller = TGAppController::init();
  EXPECT_TRUE(controller->hasGUI());
  EXPECT_EQ(mac.preferences.registered, (foundation::PropertyList::Dictionary{{"SUCheckAtStartup", true},
                                                                              {"shouldTrash", 1},
                                                                              {"shouldResetQmaster", 1},
                                                                              {"shouldResetLayout", 1}}));
}

TEST_F(LifeTest, TheWindowsControllerLogsUnderTheApplicationsName) {
  controller = TGAppController::init();
  TGLog::finishWriting();
  EXPECT_TRUE(mac.files.exists("/Users/alice/Library/Logs/Vordenworks/Quillmend.1.log"));
  EXPECT_FALSE(mac.files.exists("/Users/alice/Library/Logs/Vordenworks/Quillmend.task.1.log"));
}

TEST_F(LifeTest, TheWindowsControllerLeavesTheAuthorizationToItsFirstUse) {
  controller = TGAppController::init();
  EXPECT_TRUE(TGAuthorization::sharedController()->hasGUI());
}

TEST_F(LifeTest, WithoutGUILogsAsATaskAndRegistersNothing) {
  controller = TGAppController::initWithoutGUI();
  EXPECT_FALSE(controller->hasGUI());
  TGLog::finishWriting();
  EXPECT_TRUE(mac.files.exists("/Users/alice/Library/Logs/Vordenworks/Quillmend.task.1.log"));
  EXPECT_EQ(mac.preferences.registered, foundation::PropertyList());
}

TEST_F(LifeTest, WithoutGUITheAuthorizationIsMadeAtOnceWithoutADialog) {
  controller = TGAppController::initWithoutGUI();
  EXPECT_FALSE(TGAuthorization::sharedController()->hasGUI());
}

TEST_F(LifeTest, TheHotKeyRunMakesNoAuthorization) {
  mac.processInformation.argumentList.emplace_back("-hotkey");
  controller = TGAppController::initWithoutGUI();
  EXPECT_TRUE(TGAuthorization::sharedController()->hasGUI());
}

TEST_F(LifeTest, HotKeyIsMatchedInItsLetters) {
  mac.processInformation.argumentList.emplace_back("-HotKey");
  controller = TGAppController::initWithoutGUI();
  EXPECT_FALSE(TGAuthorization::sharedController()->hasGUI());
}

TEST_F(LifeTest, SwitchingTheGUIOnMakesAnAuthorizationWithoutADialog) {
  controller = TGAppController::init();
  controller->setHasGUI(false);
  EXPECT_FALSE(controller->hasGUI());
  controller->setHasGUI(true);
  EXPECT_TRUE(controller->hasGUI());
  EXPECT_FALSE(TGAuthorization::sharedController()->hasGUI());
}

TEST_F(LifeTest, SwitchingTheGUIOffMakesNoAuthorization) {
  controller = TGAppController::init();
  controller->setHasGUI(false);
  EXPECT_TRUE(TGAuthorization::sharedController()->hasGUI());
}

TEST_F(LifeTest, TheWindowsLaunchIsStampedInTheUserDefaults) {
  controller = TGAppController::init();
  EXPECT_NE(mac.preferences.values.find("launch"), nullptr);
}

TEST_F(LifeTest, ALaunchWithoutGUIIsStampedInTheConsoleUsersPreferencesFile) {
  becomeRoot();
  controller = TGAppController::initWithoutGUI();
  const auto stamps =
      platform::readDictionary("/Users/alice/Library/Preferences/com.vordenworks.Quillmend.plist");
  ASSERT_TRUE(stamps.ok());
  EXPECT_NE(stamps.value().find("launch"), nullptr);
  EXPECT_EQ(mac.preferences.values.find("launch"), nullptr);
}

TEST_F(LifeTest, TheExitIsStampedInTheUserDefaultsInBothForms) {
  controller = TGAppController::initWithoutGUI();
  controller.reset();
  EXPECT_NE(mac.preferences.values.find("exit"), nullptr);
  const auto stamps =
      platform::readDictionary("/Users/alice/Library/Preferences/com.vordenworks.Quillmend.plist");
  ASSERT_TRUE(stamps.ok());
  EXPECT_EQ(stamps.value().find("exit"), nullptr);
}

TEST_F(LifeTest, TheApplicationsEndIsStamped) {
  controller = TGAppController::init();
  TGAppController::applicationWillTerminate();
  EXPECT_NE(mac.preferences.values.find("exit"), nullptr);
}

// The crash watch comes before the log is begun, so its word goes to the end of the log that is there, which
// bears the executable's name.

TEST_F(LifeTest, TheWindowTellsACrashInTheLogOfTheRunBefore) {
  mac.mainBundle.info.set("CFBundleName", "Another");
  makeCrashReport("Another_1.crash");
  mac.preferences.values.set("launch", foundation::Date::fromUnixTime(1));
  mac.files.makeFile(kLogs + "Quillmend.1.log");
  controller = TGAppController::init();
  EXPECT_EQ(logLines(kLogs + "Quillmend.2.log"), Lines{"Application crashed on last launch"});
  EXPECT_EQ(windowLog(), Lines{});
}

TEST_F(LifeTest, WithoutGUIACrashIsLookedForUnderTheApplicationsOwnName) {
  mac.mainBundle.info.set("CFBundleName", "Another");
  makeCrashReport("Quillmend_1.crash");
  const foundation::PropertyList stamps =
      foundation::PropertyList::Dictionary{{"launch", foundation::Date::fromUnixTime(1)}};
  ASSERT_TRUE(platform::writePropertyList("/Users/alice/Library/Preferences/com.vordenworks.Quillmend.plist",
                                          stamps, platform::PropertyListFormat::xml)
                  .ok());
  mac.files.makeFile(kLogs + "Quillmend.1.log");
  mac.files.makeFile(kLogs + "Quillmend.task.1.log");
  controller = TGAppController::initWithoutGUI();
  EXPECT_EQ(logLines(kLogs + "Quillmend.1.log"), Lines{"Application crashed on last launch"});
  EXPECT_EQ(taskLog(), Lines{});
  EXPECT_EQ(logLines(kLogs + "Quillmend.task.2.log"), Lines{});
}

TEST_F(LifeTest, ClosingTheWindowQuits) {
  EXPECT_TRUE(TGAppController::applicationShouldTerminateAfterLastWindowClosed());
}

TEST_F(LifeTest, WithoutThePreferenceNoPasswordIsAskedForAndTheToolboxIsOffered) {
  makeWindow();
  controller->awakeFromNib();
  EXPECT_EQ(recorded(), text(offer()));
}

TEST_F(LifeTest, TheOfferGoesToTheEndOfTheConsole) {
  makeWindow();
  console.text = "abc";
  controller->awakeFromNib();
  EXPECT_EQ(console.text, "abc\n\nGet Stellate Toolbox for even more features");
}

TEST_F(LifeTest, TheToolboxIsNotOfferedToWhomHasIt) {
  mac.applications.paths["com.vordenworks.StellateToolbox"] = "/Applications/Stellate Toolbox.app";
  makeWindow();
  controller->awakeFromNib();
  EXPECT_EQ(recorded(), "");
}

TEST_F(LifeTest, ARequiredPasswordIsAskedForAtTheStart) {
  mac.preferences.values.set("requireAdminPassword", 1);
  makeWindow();
  controller->awakeFromNib();
  EXPECT_EQ(recorded(), text(all({{"switch on", "authorization create flags 0",
                                   "authorization rights system.privilege.admin flags 19"},
                                  offer()})));
}

TEST_F(LifeTest, ARefusedPasswordEndsTheApplication) {
  mac.preferences.values.set("requireAdminPassword", 1);
  mac.authorization.rights = platform::errAuthorizationCanceled;
  makeWindow();
  controller->awakeFromNib();
  EXPECT_EQ(mac.recorder.lines().back(), "terminate application");
  EXPECT_EQ(console.text, "");
}

TEST_F(LifeTest, OnlyTheNumberOneRequiresThePassword) {
  makeWindow();
  for (const foundation::PropertyList& value :
       {foundation::PropertyList("1"), foundation::PropertyList(0), foundation::PropertyList(2),
        foundation::PropertyList(false)}) {
    mac.preferences.values.set("requireAdminPassword", value);
    mac.recorder.clear();
    controller->awakeFromNib();
    EXPECT_EQ(mac.recorder.lines().front(), "view editable") << value.description();
  }
}

TEST_F(LifeTest, OutletsThatAreNotConnectedAreLeftAlone) {
  mac.preferences.values.set("requireAdminPassword", 1);
  controller = TGAppController::init();
  controller->awakeFromNib();
  controller->repairStart();
  controller->repairEnd();
  controller->insertText("text");
  controller->clearErrorText();
  controller->showAlert("text");
  controller->repairThread().join();
  EXPECT_EQ(windowLog().front(), "text");
}
