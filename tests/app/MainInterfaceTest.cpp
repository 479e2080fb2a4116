#include "app/MainInterface.h"

#include <filesystem>
#include <future>
#include <thread>

#include "platform/foundation/Identifiers.h"
#include "tests/app/ControllerTest.h"
#include "tests/support/Gate.h"
#include "ui/TGShortcutKeyTableDelegate.h"

namespace {

using foundation::PropertyList;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

/// The owner of a fake window on a fake Mac.
class MainInterfaceTest : public ControllerTest {
 protected:
  MainInterfaceTest() { setCheckAtStartup(false); }

  void setCheckAtStartup(const PropertyList& value) {
    ASSERT_TRUE(platform::writePropertyList("/Users/alice/Library/Preferences/com.vordenworks.global.plist",
                                            PropertyList::Dictionary{{"SUCheckAtStartup", value}},
                                            platform::PropertyListFormat::xml)
                    .ok());
  }
  outlets::Connections connections() {
    return {.windowMain = &window,
            .errorText = &console,
            .repairButton = &button,
            .trashPrefs = &trashBox,
            .resetQmasterCheck = &qmasterBox,
            .resetLayoutCheck = &layoutBox,
            .logoImageView = nullptr,
            .menuItemResetOldQmasterConfig = nullptr,
            .prefsAdminPass = &passwordItem,
            .repairProgress = &progress};
  }
  void load() { EXPECT_TRUE(interface.interfaceDidLoad(connections())); }
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

  static std::ptrdiff_t threads() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
  }

  fakes::FakeProgress progress{mac.recorder};
  MainInterface interface;
};

/// The same with a Compressor 4 to repair, and with a repair that stops for the test in the middle.
class MainInterfaceInRepairTest : public MainInterfaceTest {
 protected:
  void SetUp() override {
    becomeRoot();
    makeVersionFile("/Applications/Compressor.app", "4.0");
  }
  ~MainInterfaceInRepairTest() override {
    gate.open();
    if (threadsBefore_ > 0) waitForEnd();
  }

  /// Begins one by its button and comes back when it has come to the removal of the caches.
  void beginRepair(outlets::InterfaceOwner& owner) {
    std::promise<void> there;
    progress.whenShown = [this, &there](const std::string& title) {
      if (title != "Removing caches") return;
      there.set_value();
      gate.wait()();
    };
    TGLog::appendLog("before");  // the log's own thread runs
    threadsBefore_ = threads();
    owner.performAction("repair", nullptr);
    there.get_future().wait();
  }

  Gate gate;

 private:
  /// The repair's thread is nobody's to join. What it has handed over is behind a piece of work that comes
  /// after its end.
  void waitForEnd() {
    while (threads() > threadsBefore_) std::this_thread::yield();
    mac.mainThread.perform([] {}, platform::Wait::yes);
  }

  std::ptrdiff_t threadsBefore_ = 0;
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
  for (const char* action :
       {"repair", "menuRestartQmaster", "menuStopQmaster", "menuTrashCompressorPrefs",
        "menuTrashCompressor4Prefs", "resetWindowLayout", "prefsToggleAdminPass", "helpManual",
        "helpCareplex", "helpHome", "helpReportBug", "helpSuggestFeature", "helpTGHome", "viewLog",
        "viewTaskLog", "gatherLogs", "storeOptions", "manualUpdateCheck"}) {
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

TEST_F(MainInterfaceTest, TheLookForUpdatesBeginsWhenTheInterfaceIsLoaded) {
  setCheckAtStartup("0");
  mac.subprocesses.recordsWaits = true;
  const std::string updater = "/Applications/Vordenworks/Vordenworks Software Update.app";
  mac.files.makeFile(updater + "/Contents/MacOS/Vordenworks Software Update");
  load();
  while (mac.recorder.only({"wait"}).empty()) std::this_thread::yield();
  EXPECT_THAT(recorded(), HasSubstr(" -checkpath /Applications/Quillmend.app\n"));
}

TEST_F(MainInterfaceTest, TheUserMayLookForUpdates) {
  load();
  mac.recorder.clear();
  interface.performAction("manualUpdateCheck", nullptr);
  EXPECT_EQ(recorded(), "open /Applications/Vordenworks/Vordenworks Software Update.app\n");
}

TEST_F(MainInterfaceTest, TheShortcutKeysHaveTheSharedOwnerAndTheKeyboardsKeyCodes) {
  ASSERT_NE(interface.shortcutKeys(), nullptr);
  EXPECT_EQ(interface.shortcutKeys(), TGShortcutKeyTableDelegate::sharedController());
  EXPECT_EQ(interface.virtualKeyCode(63), 63);
  EXPECT_EQ(interface.virtualKeyCode(0), std::nullopt);
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

constexpr const char* kCannotBeStarted =
    "alert Quillmend cannot be started: Its start could not be "
    "completed, and it quits. Its log and the system log say why.";

TEST_F(MainInterfaceTest, AStartThatFailsBeforeThePasswordIsGivenIsNone) {
  setPreference("requireAdminPassword", 1);
  mac.authorization.whileAsking = [] { throw foundation::Exception("NSGenericException", "no dialog"); };
  EXPECT_FALSE(interface.interfaceDidLoad(connections()));
  EXPECT_EQ(mac.recorder.lines().back(), kCannotBeStarted);
  EXPECT_THAT(windowLog(), Contains("Exception in -[TGAppController awakeFromNib]. NSGenericException - no "
                                    "dialog."));
}

TEST_F(MainInterfaceTest, AStartThatFailsBeforeThereIsAControllerIsNone) {
  mac.preferences.failure = foundation::Exception("NSGenericException", "no defaults");
  EXPECT_FALSE(interface.interfaceDidLoad(connections()));
  EXPECT_EQ(mac.recorder.lines().back(), kCannotBeStarted);
  EXPECT_THAT(mac.systemConsole.messages(), Contains(HasSubstr("no defaults")));
}

TEST_F(MainInterfaceTest, ARefusedPasswordIsACompleteStartThatEndsTheApplication) {
  setPreference("requireAdminPassword", 1);
  mac.authorization.rights = platform::errAuthorizationCanceled;
  load();
  EXPECT_THAT(mac.recorder.lines(), Contains("terminate application"));
  EXPECT_THAT(recorded(), Not(HasSubstr("alert")));
}

TEST_F(MainInterfaceTest, ARefusedPasswordStartsNoUpdater) {
  setPreference("requireAdminPassword", 1);
  setCheckAtStartup(true);
  mac.files.makeFile(
      "/Applications/Vordenworks/Vordenworks Software Update.app/Contents/MacOS/Vordenworks Software Update");
  mac.authorization.rights = platform::errAuthorizationCanceled;
  TGLog::appendLog("before");  // the log's own thread runs
  const std::ptrdiff_t before = threads();
  load();
  EXPECT_EQ(threads(), before) << "no check is under way";
  EXPECT_THAT(recorded(), Not(HasSubstr("-checkpath")));
}

TEST_F(MainInterfaceTest, WhileAnActionAsksForRightsNoOtherOneDoes) {
  load();
  mac.recorder.clear();
  passwordItem.current = outlets::State::off;
  mac.authorization.whileAsking = [this] {
    interface.performAction("menuRestartQmaster", nullptr);
    interface.performAction("repair", nullptr);
    interface.performAction("prefsToggleAdminPass", &passwordItem);
    interface.performAction("gatherLogs", nullptr);
    interface.performAction("helpHome", nullptr);
  };
  interface.performAction("menuStopQmaster", nullptr);
  EXPECT_EQ(mac.recorder.only({"authorization"}).size(), 2U) << "one reference and its rights";
  EXPECT_EQ(passwordItem.current, outlets::State::on) << "as it was";
  EXPECT_EQ(mac.recorder.only({"alert"}), Lines{"alert Qmaster stopped: Qmaster stopped successfully."});
  EXPECT_EQ(mac.recorder.only({"browse"}).size(), 1U) << "help needs no rights";
  mac.authorization.whileAsking = nullptr;
  interface.performAction("menuRestartQmaster", nullptr);
  EXPECT_EQ(mac.recorder.lines().back(), "alert Qmaster started: Qmaster started successfully.");
}

TEST_F(MainInterfaceInRepairTest, BesideARepairNothingIsDoneThatUsesItsRights) {
  load();
  mac.preferences.values = PropertyList::Dictionary{{"requireAdminPassword", 1}};
  beginRepair(interface);
  mac.recorder.clear();
  for (const char* const action :
       {"repair", "menuRestartQmaster", "menuStopQmaster", "menuTrashCompressorPrefs",
        "menuTrashCompressor4Prefs", "resetWindowLayout", "gatherLogs"}) {
    interface.performAction(action, nullptr);
  }
  EXPECT_EQ(recorded(), "");
  passwordItem.current = outlets::State::off;
  interface.performAction("prefsToggleAdminPass", &passwordItem);
  EXPECT_EQ(recorded(), "switch on\n") << "as it was";
  EXPECT_EQ(mac.preferences.value("requireAdminPassword"), PropertyList(1));
  mac.recorder.clear();
  interface.performAction("helpHome", nullptr);
  EXPECT_THAT(recorded(), HasSubstr("browse"));
}

TEST_F(MainInterfaceInRepairTest, ARepairIsWaitedForHoweverTheApplicationCameToItsEnd) {
  mac.mainThread.whenServing = [this] { gate.open(); };
  mac.desktopApplication.whileRunning = [this](outlets::InterfaceOwner& owner) {
    EXPECT_TRUE(owner.interfaceDidLoad(connections()));
    beginRepair(owner);
  };
  runDesktopApplication({"/Q"});
  EXPECT_EQ(mac.recorder.lines().back(), "deliver interruption");
  EXPECT_THAT(mac.recorder.lines(), Contains("terminate application")) << "the end of the repair";
}

TEST_F(MainInterfaceTest, ADisplayThatIsLostDuringACommandIsLogged) {
  load();
  mac.authorization.whileAsking = [this] { interface.displayWasLost(); };
  interface.performAction("menuStopQmaster", nullptr);
  EXPECT_THAT(windowLog(), Contains("The display was lost during a command. Its last steps were not taken."));
}

TEST_F(MainInterfaceInRepairTest, ALostDisplayLetsTheStepEndAndStartsQmasterAgain) {
  mac.files.makeFile(
      "/Applications/Compressor.app/Contents/PlugIns/Compressor/CompressorKit.bundle/qmasterprefs");
  mac.applications.paths["com.apple.Compressor"] = "/Applications/Compressor.app";
  mac.desktopApplication.losesDisplay = true;
  mac.mainThread.whenServing = [this] { gate.open(); };
  mac.desktopApplication.whileRunning = [this](outlets::InterfaceOwner& owner) {
    EXPECT_TRUE(owner.interfaceDidLoad(connections()));
    beginRepair(owner);
    mac.recorder.clear();
    console.text.clear();
  };
  runDesktopApplication({"/Q"});
  const auto entries = logLines("/Library/Logs/Vordenworks/Quillmend.1.log");
  ASSERT_FALSE(entries.empty());
  EXPECT_EQ(entries.back(),
            "Repair stopped: the display was lost. Qmaster was started again; run the repair "
            "again to finish it.");
  EXPECT_THAT(entries, Not(Contains("Clearing history...")));
  EXPECT_THAT(recorded(), HasSubstr("qmasterprefs -startSharing"));
  EXPECT_EQ(console.text, "") << "it is not there any more";
  EXPECT_THAT(recorded(), Not(HasSubstr("button")));
  EXPECT_THAT(recorded(), HasSubstr("preference exit")) << "the program has ended by its own means";
}

TEST_F(MainInterfaceInRepairTest, AskedToEndARepairEndsAfterItsStepAndTheApplicationWithIt) {
  load();
  beginRepair(interface);
  mac.recorder.clear();
  interface.endRepairAndTerminate();
  EXPECT_THAT(mac.recorder.lines(), Not(Contains("terminate application"))) << "the step in hand goes on";
  gate.open();
  while (interface.isRepairing()) std::this_thread::yield();
  EXPECT_THAT(mac.recorder.lines(), Contains("terminate application"));
  EXPECT_THAT(console.text, HasSubstr("Repair stopped."));
  EXPECT_THAT(console.text, Not(HasSubstr("Clearing history...")));
}

TEST_F(MainInterfaceInRepairTest, ALostDisplayDoesNotWaitForEverForARepairThatDoesNotEnd) {
  load();
  beginRepair(interface);
  int waits = 0;
  mac.mainThread.whenServing = [this, &waits] {
    ++waits;
    mac.clock.advance(std::chrono::minutes(1));
  };
  interface.displayWasLost();
  EXPECT_EQ(waits, 5);
  EXPECT_TRUE(interface.isRepairing());
}

TEST_F(MainInterfaceTest, ADisplayThatIsLostBeforeTheWindowIsLoadedIsNobodysLoss) {
  interface.displayWasLost();
  EXPECT_EQ(recorded(), "");
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

TEST_F(MainInterfaceTest, EndingWithoutARepairEndsTheApplicationAtOnceAndADialogWithIt) {
  load();
  mac.recorder.clear();
  interface.endRepairAndTerminate();
  EXPECT_EQ(recorded(), "authorization stop asking\nterminate application\n");
}

TEST_F(MainInterfaceTest, TheApplicationRunsWithTheOwnerAndStampsItsEnd) {
  mac.desktopApplication.result = 3;
  mac.desktopApplication.whileRunning = [this](outlets::InterfaceOwner& owner) {
    EXPECT_TRUE(owner.interfaceDidLoad(connections()));
    owner.applicationWillTerminate();
  };
  EXPECT_EQ(runDesktopApplication({"/Q"}), 3);
  EXPECT_EQ(mac.recorder.lines().back(), "deliver interruption");
}

TEST_F(MainInterfaceTest, ItsVersionIsTheBundlesAndNoneWhereTheBundleHasNone) {
  mac.mainBundle.info = PropertyList::Dictionary{{"CFBundleShortVersionString", "2.1"}};
  EXPECT_EQ(interface.version(), "2.1");
  mac.mainBundle.info = PropertyList::Dictionary{};
  EXPECT_EQ(interface.version(), "");
}

TEST_F(MainInterfaceTest, AnAddressIsOpenedAlsoBeforeTheWindowIsLoaded) {
  interface.openAddress("https://www.example.com/");
  EXPECT_EQ(recorded(), "browse https://www.example.com/\n");
}

TEST_F(MainInterfaceTest, TheApplicationEndsWithItsWindow) {
  EXPECT_TRUE(interface.shouldTerminateAfterLastWindowClosed());
}

TEST_F(MainInterfaceTest, AnOptionIsStoredOverAPreferenceOfAnotherState) {
  setPreference("shouldTrash", PropertyList::Array{});
  load();
  trashBox.current = outlets::State::on;
  interface.performAction("storeOptions", nullptr);
  EXPECT_EQ(mac.preferences.value("shouldTrash"), PropertyList(1));
}

TEST_F(MainInterfaceTest, AnActionThatNobodyKnowsIsNone) {
  load();
  mac.recorder.clear();
  interface.performAction("removeEverything", nullptr);
  EXPECT_EQ(recorded(), "");
}

}  // namespace
