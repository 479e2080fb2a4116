#include "app/TGAppController.h"

#include "tests/app/ControllerTest.h"

namespace {

class LifeTest : public ControllerTest {
 protected:
  /// A window's controller that has not been woken, with its console recording every call.
  void makeWindow() {
    startWithGUI();
    console.recordsCalls = true;
  }
  static Lines offer() {
    return {"view editable", "view select 0+0", "view insert regular 12.0 \n\n",
            "view link Get Stellate Toolbox for even more features -> "
            "https://www.vordenworks.example/stellatetoolbox",
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
