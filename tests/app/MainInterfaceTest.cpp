#include "app/MainInterface.h"

#include "platform/foundation/Identifiers.h"
#include "tests/app/ControllerTest.h"

namespace {

using foundation::PropertyList;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

/// The owner of a fake window on a fake Mac.
class MainInterfaceTest : public ControllerTest {
 protected:
  void load() {
    interface.interfaceDidLoad({.windowMain = &window,
                                .errorText = &console,
                                .repairButton = &button,
                                .trashPrefs = &trashBox,
                                .resetQmasterCheck = &qmasterBox,
                                .resetLayoutCheck = &layoutBox,
                                .logoImageView = nullptr,
                                .menuItemResetOldQmasterConfig = nullptr,
                                .prefsAdminPass = &passwordItem,
                                .repairProgress = &progress});
  }
  void setPreference(const std::string& key, const PropertyList& value) {
    mac.preferences.setValue(key, value);
  }
  [[nodiscard]] Lines states() const {
    Lines texts;
    for (const auto* box : {&trashBox, &qmasterBox, &layoutBox}) {
      texts.emplace_back(box->current == outlets::State::on ? "on" : "off");
    }
    return texts;
  }

  fakes::FakeProgress progress{mac.recorder};
  MainInterface interface;
};

TEST_F(MainInterfaceTest, TheCheckBoxesAreOnUntilSomebodySwitchesThemOff) {
  load();
  EXPECT_EQ(states(), (Lines{"on", "on", "on"}));
}

TEST_F(MainInterfaceTest, TheCheckBoxesBeginAsThePreferencesSay) {
  setPreference("shouldTrash", 0);
  setPreference("shouldResetLayout", false);
  load();
  EXPECT_EQ(states(), (Lines{"off", "on", "off"}));
}

TEST_F(MainInterfaceTest, APreferenceOfAKindThatIsNoSwitchIsOff) {
  setPreference("shouldTrash", PropertyList::Array{"1"});
  setPreference("shouldResetQmaster", "abc");
  setPreference("shouldResetLayout", PropertyList::Data{"1"});
  load();
  EXPECT_EQ(states(), (Lines{"off", "off", "off"}));
}

TEST_F(MainInterfaceTest, ACheckBoxIsKeptAtOnceAndTheOthersAreLeftAlone) {
  load();
  layoutBox.current = outlets::State::off;
  interface.performAction("storeOptions", nullptr);
  EXPECT_EQ(mac.preferences.value("shouldResetLayout"), PropertyList(0));
  EXPECT_EQ(mac.preferences.value("shouldTrash"), PropertyList(1));
  EXPECT_THAT(mac.recorder.lines(), Contains("synchronize preferences"));
  EXPECT_THAT(recorded(), Not(HasSubstr("preference shouldTrash")));
}

TEST_F(MainInterfaceTest, TheWindowsControllerOffersTheCrashAnalysisInItsConsole) {
  load();
  EXPECT_THAT(console.text, HasSubstr("Get Stellate Toolbox for even more features"));
  EXPECT_THAT(windowLog(), Not(Contains(HasSubstr("Exception"))));
}

TEST_F(MainInterfaceTest, EveryActionOfTheInterfaceIsKnownAndOthersAreNot) {
  for (const char* action : {"repair", "menuRestartQmaster", "menuStopQmaster", "menuTrashCompressorPrefs",
                             "menuTrashCompressor4Prefs", "resetWindowLayout", "prefsToggleAdminPass",
                             "helpManual", "helpCareplex", "helpHome", "helpReportBug", "helpSuggestFeature",
                             "helpTGHome", "viewLog", "viewTaskLog", "gatherLogs", "storeOptions"}) {
    EXPECT_TRUE(interface.respondsToAction(action)) << action;
  }
  EXPECT_FALSE(interface.respondsToAction("menuItemResetOldQmasterConfig"));
  EXPECT_FALSE(interface.respondsToAction(""));
}

TEST_F(MainInterfaceTest, AnActionReachesTheController) {
  load();
  mac.recorder.clear();
  interface.performAction("helpHome", nullptr);
  EXPECT_EQ(recorded(), std::string("browse ") + identifiers::kWebSite + "/quillmend.htm\n");
}

TEST_F(MainInterfaceTest, ResettingTheLayoutByHandIsConfirmed) {
  load();
  mac.recorder.clear();
  interface.performAction("resetWindowLayout", nullptr);
  EXPECT_EQ(recorded(), "alert Compressor window layout successfully reset: Please relaunch Compressor.\n");
}

TEST_F(MainInterfaceTest, TheToggleGetsItsSender) {
  load();
  passwordItem.current = outlets::State::on;
  interface.performAction("prefsToggleAdminPass", &passwordItem);
  EXPECT_EQ(mac.preferences.value("requireAdminPassword"), PropertyList(1));
}

TEST_F(MainInterfaceTest, WhatAnActionThrowsIsLoggedUnderItsSelector) {
  load();
  becomeRoot();
  mac.files.makeFile("/usr/sbin/qmasterprefs");
  mac.subprocesses.runs["/usr/sbin/qmasterprefs -stopSharing"].launchFailure =
      foundation::Exception(foundation::kInvalidArgumentException, "launch path not accessible");
  interface.performAction("menuStopQmaster", nullptr);
  EXPECT_THAT(windowLog(), Contains(HasSubstr("Exception in -[TGAppController menu")));
}

TEST_F(MainInterfaceTest, NothingIsDoneBeforeTheWindowIsLoaded) {
  interface.performAction("helpHome", nullptr);
  interface.applicationWillTerminate();
  EXPECT_FALSE(interface.isRepairing());
  EXPECT_THAT(recorded(), Not(HasSubstr("open")));
  EXPECT_THAT(recorded(), Not(HasSubstr("preference exit"))) << "no exit of a run that has not begun";
}

TEST_F(MainInterfaceTest, TheWindowsFrameIsKeptUnderItsName) {
  interface.setWindowFrame("10 20 640 480");
  EXPECT_EQ(mac.preferences.value("NSWindow Frame windowMain"), PropertyList("10 20 640 480"));
  EXPECT_EQ(interface.windowFrame(), "10 20 640 480");
}

TEST_F(MainInterfaceTest, AFrameThatIsNoTextIsNone) {
  setPreference("NSWindow Frame windowMain", PropertyList::Array{});
  EXPECT_EQ(interface.windowFrame(), "");
}

TEST_F(MainInterfaceTest, EndingWithoutARepairEndsTheApplicationAtOnce) {
  load();
  mac.recorder.clear();
  interface.endRepairAndTerminate();
  EXPECT_EQ(recorded(), "terminate application\n");
}

TEST_F(MainInterfaceTest, TheApplicationRunsWithTheOwnerAndStampsItsEnd) {
  mac.desktopApplication.result = 3;
  mac.desktopApplication.whileRunning = [this](outlets::InterfaceOwner& owner) {
    owner.interfaceDidLoad({.windowMain = &window,
                            .errorText = &console,
                            .repairButton = &button,
                            .trashPrefs = &trashBox,
                            .resetQmasterCheck = &qmasterBox,
                            .resetLayoutCheck = &layoutBox,
                            .logoImageView = nullptr,
                            .menuItemResetOldQmasterConfig = nullptr,
                            .prefsAdminPass = &passwordItem,
                            .repairProgress = &progress});
    owner.applicationWillTerminate();
  };
  EXPECT_EQ(runDesktopApplication({"/Q"}), 3);
  EXPECT_EQ(mac.recorder.lines().back(), "deliver interruption");
}

}  // namespace
