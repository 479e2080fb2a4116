#include <algorithm>
#include <future>

#include "platform/foundation/Paths.h"
#include "tests/app/ControllerTest.h"
#include "tests/support/Gate.h"
#include "tests/support/NoMoreThreads.h"

// The whole procedure, line by line. The console's lines and the calls to the system are recorded in one
// list, so that an expectation reads like the procedure itself.

namespace {

constexpr const char* kOldCompressor = "/Applications/Final Cut Studio/Compressor.app";
constexpr const char* kCompressor = "/Applications/Compressor.app";
constexpr const char* kTool = "/usr/sbin/qmasterprefs";
constexpr const char* kTool4 =
    "/Applications/Compressor.app/Contents/PlugIns/Compressor/CompressorKit.bundle/qmasterprefs";
constexpr const char* kSupport = "/Library/Application Support";
constexpr const char* kUserSupport = "/Users/alice/Library/Application Support";
constexpr const char* kDaemonFile = "/Library/LaunchDaemons/com.apple.qmaster.qmasterd.plist";
constexpr const char* kStartupItem = "/Library/StartupItems/Qmaster/Qmaster";
constexpr const char* kMenu =
    "/Library/PreferencePanes/Apple Qmaster.prefPane/Contents/Resources/QmasterStatusMenu.app";

const Lines kComponents35 = {"/Applications/Utilities/Batch Monitor.app",
                             "/Library/Application Support/Apple Qmaster",
                             "/Library/Application Support/Apple Qmaster/qmasterservices.plist",
                             "/Library/Application Support/Apple Qmaster/qmasterconfig",
                             "/Library/Application Support/ProMediaIO",
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

const Lines kComponents30 = {"/Applications/Utilities/Batch Monitor.app",
                             "/Library/Application Support/Apple Qmaster",
                             "/Library/Application Support/Apple Qmaster/qmasterservices.plist",
                             "/Library/Application Support/Apple Qmaster/qmasterconfig",
                             "/Library/PreferencePanes/Apple Qmaster.prefPane",
                             "/Library/Frameworks/AECore.framework",
                             "/Library/Frameworks/Compressor.framework",
                             "/Library/Frameworks/MediaServerAPI.framework",
                             "/Library/Frameworks/Qmaster.framework",
                             "/Library/StartupItems/Qmaster",
                             "/System/Library/PrivateFrameworks/BrowserKit.framework",
                             "/System/Library/PrivateFrameworks/Helium.framework",
                             "/System/Library/PrivateFrameworks/ProKit.framework",
                             "/usr/local/lib/libhelium_mac.a",
                             "/usr/sbin/qmasterca",
                             "/usr/sbin/qmasterd",
                             "/usr/sbin/qmasterprefs",
                             "/usr/sbin/qmasterqd"};

const char* const kErrors = "Processing complete. Errors were found during processing.";
const char* const kSuccess =
    "Processing complete. You may need to allow up to 30 seconds for Qmaster services to start up again.";

std::string missing(const std::string& path) {
  return "'" + path + "' does not exist. You are advised to reinstall Compressor / Qmaster.";
}

enum class Form { commandLine, window };

class RepairTest : public ControllerTest {
 protected:
  // The sample Mac.

  void makeComponents(const Lines& paths) {
    for (const std::string& path : paths) {
      const std::string extension = foundation::pathExtension(path);
      const bool isFile = extension == "plist" || extension == "a" || path.starts_with("/usr/sbin");
      isFile ? mac.files.makeFile(path) : mac.files.makeFolder(path);
    }
    mac.files.makeFolder(kMenu);
    mac.files.makeFile("/bin/launchctl");
  }
  void install30() {
    makeVersionFile(kOldCompressor, "3.0.5");
    makeComponents(kComponents30);
    mac.files.makeFile(kStartupItem);
    mac.files.makeFile("/Library/StartupItems/Qmaster/StartupParameters.plist");
  }
  /// All but the tool, without which the start of Qmaster would be another.
  void removeComponents(const Lines& paths) {
    for (const std::string& path : paths) {
      if (path != kTool) std::filesystem::remove_all(mac.files.real(path));
    }
  }
  void install35(const std::string& path = kOldCompressor) {
    makeVersionFile(path, "3.5.3");
    makeComponents(kComponents35);
    mac.files.makeFile(kDaemonFile);
  }
  void install4(const std::string& version = "4.0.7") {
    makeVersionFile(kCompressor, version);
    mac.applications.paths["com.apple.Compressor"] = kCompressor;
    mac.files.makeFile(kTool4);
    mac.files.makeFile("/bin/launchctl");
    mac.files.makeFolder(kMenu);
  }

  /// Starts the program: as root without a window, or as alice with one.
  void start(Form form) {
    form_ = form;
    if (form == Form::commandLine) {
      becomeRoot();
      startWithoutGUI();
    } else {
      startWithGUI();
    }
  }
  void repair(ShouldTrash trash = ShouldTrash::no, ShouldResetLayout layout = ShouldResetLayout::no,
              Silent silent = Silent::no) {
    controller->startRepair(trash, layout, silent);
  }

  /// Repairs from the window, and asks to end when the stage of that title begins.
  void repairAskedToEndAt(const std::string& title) {
    start(Form::window);
    progress.whenShown = [this, title](const std::string& shown) {
      if (shown == title) controller->endRepairAndTerminate();
    };
    controller->repairProgress = &progress;
    controller->threadedRepair({});
  }

  // What is to be seen. Blocks of lines, in the form that fits the run.

  Lines say(const std::string& line) const {
    if (silent_) return {};
    return {"console " + line};
  }
  Lines sayBold(const std::string& line) const { return say((isWindow() ? "[bold] " : "") + line); }
  Lines sayError(const std::string& line) const { return say((isWindow() ? "[red] " : "") + line); }
  std::string tool(const std::string& commandLine) const {
    return (isWindow() ? "privileged " : "run ") + commandLine;
  }
  std::string helper(const std::string& commandLine) const { return tool(kHelpers + commandLine); }
  Lines growl(const std::string& description) const {
    if (silent_ || isWindow()) return {};
    return {"set notification delegate", "notify Quillmend: " + description};
  }

  Lines started() const {
    if (!isWindow()) return all({growl("Repairing Compressor..."), sayBold("Starting repair...")});
    return all({{"authorization create flags 0", "authorization rights system.privilege.admin flags 19",
                 "console := ''"},
                sayBold("Starting repair...")});
  }
  Lines stopped3(const std::string& detected) const {
    return all(
        {detected.starts_with("Unsupported") ? sayError(detected) : say(detected),
         say("Stopping Qmaster..."),
         {tool(std::string(kTool) + " -resetCluster cancelJobs"), "sleep 600us",
          tool(std::string(kTool) + " -stopSharing"), "sleep 1s", helper("killtool"), "sleep 1500us"}});
  }
  Lines stopped4() const {
    return all(
        {say("Detected Compressor 4.x."),
         say("Stopping Qmaster..."),
         {tool(std::string(kTool4) + " -resetCluster cancelJobs"), "sleep 600us",
          tool(std::string(kTool4) + " -stopSharing"), "sleep 1s", helper("killtool"), "sleep 1500us"}});
  }
  Lines checked35() const { return say("Checking file permissions..."); }
  Lines toldMissing(const Lines& components) const {
    Lines told;
    for (const std::string& path : components) {
      if (path != kTool) told = all({told, sayError(missing(path))});
    }
    return told;
  }
  Lines changed(const std::string& helperLine) const { return {helper(helperLine), "sleep 1s"}; }
  Lines checked30() const {
    return all({say("Checking file permissions..."),
                changed("chowntool -R root:wheel /Library/StartupItems/Qmaster/Qmaster"),
                changed("chmodtool -R 755 /Library/StartupItems/Qmaster/Qmaster"),
                changed("chowntool -R root:wheel /Library/StartupItems/Qmaster/StartupParameters.plist"),
                changed("chmodtool -R 644 /Library/StartupItems/Qmaster/StartupParameters.plist"),
                {helper("trashtool StartupItems/Qmaster/.disabled")}});
  }
  Lines cachesRemoved(const std::string& support) const {
    Lines lines = say("Removing caches...");
    for (const char* name : {"servicecontroller:com.apple.stomp.transcoderx.plist",
                             "servicecontroller:com.apple.qmaster.executor.plist",
                             "servicecontroller:com.apple.stomp.transcoder.stomp.plist",
                             "jobcontroller:com.apple.qmaster.cluster.admin.plist",
                             "jobcontroller:com.apple.compressor.cluster.admin.plist",
                             "requestprocessor:com.apple.qmaster.contentcontroller.plist",
                             "requestprocessor:com.apple.compressor.contentcontroller.plist",
                             "contentcontroller:com.apple.qmaster.contentagent.plist"}) {
      lines.push_back(helper("trashtool " + support + "/Apple Qmaster/" + name));
    }
    return lines;
  }
  Lines spoolRemoved(const Lines& folders) const {
    Lines lines = say("Removing temporary spool data...");
    for (const std::string& folder : folders) lines.push_back(helper("trashtool -spooldir " + folder));
    return lines;
  }
  Lines historyCleared(const Lines& folders) const {
    Lines lines = say("Clearing history...");
    for (const std::string& folder : folders) {
      lines.push_back(helper("trashtool -dircontents " + std::string(kUserSupport) + "/" + folder));
    }
    return lines;
  }
  Lines cleaned3(const Lines& spool = {"/private/var/spool/qmaster"}) const {
    return all({cachesRemoved(kSupport), spoolRemoved(spool), historyCleared({"Compressor/History"})});
  }
  static Lines usualSpool4() {
    return {"/Users/Shared/Library/Application Support/Apple Qmaster/Storage",
            std::string(kUserSupport) + "/Apple Qmaster/Storage",
            std::string(kSupport) + "/Apple Qmaster/Storage"};
  }
  Lines cleaned4(const Lines& spool = usualSpool4()) const {
    return all({cachesRemoved(kUserSupport), spoolRemoved(spool),
                historyCleared({"Apple Qmaster/History", "Compressor/History/V4"})});
  }
  Lines nameChecked() const {
    return all({say("Checking computer name..."),
                {"run /usr/sbin/scutil --get ComputerName", "run /usr/sbin/scutil --get LocalHostName"}});
  }
  Lines startSequence(const std::string& version) const {
    const std::string prefs = version == "4.0" ? kTool4 : kTool;
    Lines lines;
    if (version == "3.0") {
      lines = {tool(std::string(kStartupItem) + " start"), tool(std::string(kStartupItem) + " restart")};
    } else {
      lines = {tool("/bin/launchctl load " + std::string(kDaemonFile)), "sleep 1s"};
    }
    return all({lines,
                {tool(prefs + " -reset"), version == "4.0" ? "sleep 600us" : "sleep 2s",
                 tool(prefs + " -startSharing"), "sleep 600us"}});
  }
  Lines restarted(const Lines& versions, bool hasMenu = true,
                  const std::string& pause = "sleep 250us") const {
    Lines lines = all({{pause}, say("Attempting to start Qmaster...")});
    for (const std::string& version : versions) lines = all({lines, startSequence(version)});
    lines = all({lines, say("Relaunching menu bar icon...")});
    if (hasMenu) {
      lines.push_back("run /usr/bin/open -a " + std::string(kMenu) + "/Contents/MacOS/QmasterStatusMenu");
    }
    return lines;
  }
  /// What follows the menu's launch. The notification's own text is compared apart from this.
  Lines ended(const std::string& summary) const {
    const bool hasErrors = summary == kErrors;
    if (isWindow()) {
      return all({{"authorization free flags 0"},
                  hasErrors ? sayError(summary) : sayBold(summary),
                  {std::string("sheet Processing complete: ") +
                   (hasErrors ? "Errors were found during processing.\n\nScroll up to see the relevant error "
                                "messages."
                              : "You may need to allow up to 30 seconds for Qmaster services to start up "
                                "again.")}});
    }
    return all({say(summary), {"post tgQuillmendScanFinished"}, growl("Repair complete.")});
  }

  /// What was recorded, with the notification cut to its name.
  std::string seen() const {
    Lines lines = mac.recorder.lines();
    for (std::string& line : lines) {
      if (line.starts_with("post ")) line = line.substr(0, line.find(' ', 5));
    }
    return text(lines);
  }
  /// The console's lines as the finish notification carries them.
  std::string postedOutput() const {
    const auto& userInfo = mac.distributedNotifications.posted.back().userInfo;
    const auto* output = userInfo ? userInfo->find("output") : nullptr;
    return output != nullptr ? output->description() : "(nothing)";
  }

  bool isWindow() const { return form_ == Form::window; }

  fakes::Recorder stages;
  fakes::FakeProgress progress{stages};
  Form form_ = Form::commandLine;
  bool silent_ = false;
};

/// The forms in which everything but the authorization is the same.
class RepairInBothFormsTest : public RepairTest, public testing::WithParamInterface<Form> {
 protected:
  void start() { RepairTest::start(GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(Forms, RepairInBothFormsTest, testing::Values(Form::commandLine, Form::window),
                         [](const auto& form) {
                           return form.param == Form::window ? "Window" : "CommandLine";
                         });

}  // namespace

TEST_P(RepairInBothFormsTest, WithoutCompressorChecksTheNameAndRelaunchesTheMenuOnly) {
  mac.files.makeFolder(kMenu);
  start();
  repair(ShouldTrash::yes, ShouldResetLayout::yes);
  EXPECT_EQ(seen(), text(all({started(), nameChecked(), restarted({}), ended(kSuccess)})));
}

TEST_P(RepairInBothFormsTest, RepairsCompressor30) {
  install30();
  start();
  repair();
  EXPECT_EQ(seen(), text(all({started(), stopped3("Detected Compressor 3.0.x."), checked30(), cleaned3(),
                              nameChecked(), restarted({"3.0"}), ended(kSuccess)})));
}

TEST_P(RepairInBothFormsTest, RepairsCompressor35) {
  install35();
  start();
  repair();
  EXPECT_EQ(seen(), text(all({started(), stopped3("Detected Compressor 3.5.x."), checked35(), cleaned3(),
                              nameChecked(), restarted({"3.5"}), ended(kSuccess)})));
}

TEST_P(RepairInBothFormsTest, RepairsCompressor4InTheUsersFoldersWithoutAPermissionCheck) {
  install4();
  start();
  repair();
  EXPECT_EQ(
      seen(),
      text(all({started(), stopped4(), cleaned4(), nameChecked(), restarted({"4.0"}), ended(kSuccess)})));
}

TEST_F(RepairTest, WhereTheUserAtTheConsoleHasNoHomeTheMachinesFoldersAloneAreCleaned) {
  install35();
  install4();
  mac.users.homes.clear();
  start(Form::commandLine);
  mac.systemConsole.recordsMessages = false;  // a log that has no folder says so between any two lines
  repair(ShouldTrash::yes, ShouldResetLayout::yes);
  Lines trashed;
  for (const std::string& line : mac.recorder.lines()) {
    if (line.find("trashtool") != std::string::npos) trashed.push_back(line);
  }
  Lines expected = cachesRemoved(kSupport);
  expected.erase(expected.begin());  // what the console says
  for (const char* folder :
       {"/private/var/spool/qmaster", "/Users/Shared/Library/Application Support/Apple Qmaster/Storage",
        "/Library/Application Support/Apple Qmaster/Storage"}) {
    expected.push_back(helper(std::string("trashtool -spooldir ") + folder));
  }
  EXPECT_EQ(text(trashed), text(expected));
  EXPECT_THAT(seen(), testing::Not(testing::HasSubstr("recycle")));
  EXPECT_THAT(seen(), testing::HasSubstr(text(startSequence("4.0"))));
}

TEST_P(RepairInBothFormsTest, TwoVersionsAreRepairedOneAfterTheOtherAndBothStarted) {
  install35();
  install4();
  start();
  repair();
  EXPECT_EQ(seen(),
            text(all({started(), stopped3("Detected Compressor 3.5.x."), checked35(), cleaned3(), stopped4(),
                      cleaned4(), nameChecked(), restarted({"3.5", "4.0"}), ended(kSuccess)})));
}

TEST_P(RepairInBothFormsTest, ThreeVersionsStartInTheOrder30And35And40) {
  install4();
  install30();
  install35("/Volumes/Extra/Compressor.app");
  mac.applications.paths["com.apple.compressor.Compressor"] = "/Volumes/Extra/Compressor.app";
  start();
  repair();
  EXPECT_EQ(seen(),
            text(all({started(), stopped3("Detected Compressor 3.0.x."), checked30(), cleaned3(), stopped4(),
                      cleaned4(), stopped3("Detected Compressor 3.5.x."), checked35(), cleaned3(),
                      nameChecked(), restarted({"3.0", "3.5", "4.0"}), ended(kSuccess)})));
}

TEST_P(RepairInBothFormsTest, TwoCopiesOfAVersionAreRepairedTwiceAndStartedOnce) {
  install35();
  install35("/Volumes/Extra/Compressor.app");
  mac.applications.paths["com.apple.compressor.Compressor"] = "/Volumes/Extra/Compressor.app";
  start();
  repair();
  const Lines once = all({stopped3("Detected Compressor 3.5.x."), checked35(), cleaned3()});
  EXPECT_EQ(seen(), text(all({started(), once, once, nameChecked(), restarted({"3.5"}), ended(kSuccess)})));
}

TEST_P(RepairInBothFormsTest, AnUnsupportedVersionIsRepairedInLimitedModeAndNothingIsStarted) {
  install4("4.1");
  mac.files.makeFile(kTool);
  start();
  repair();
  EXPECT_EQ(seen(),
            text(all({started(), stopped3("Unsupported Compressor version... running in limited mode."),
                      cleaned3(), nameChecked(), restarted({}), ended(kSuccess)})));
}

TEST_P(RepairInBothFormsTest, TrashesThePreferencesOfEachVersionWhenAsked) {
  install35();
  install4();
  const std::string prefs = "/Users/alice/Library/Preferences/";
  for (const char* name : {"com.apple.compressor.Compressor.plist", "com.apple.BatchMonitor.plist",
                           "com.apple.Compressor.plist"}) {
    mac.files.makeFile(prefs + name);
  }
  start();
  repair(ShouldTrash::yes);
  const std::string recycle = "recycle /Users/alice/Library/Preferences -> /Users/alice/.Trash: ";
  const Lines trashed3 =
      all({say("Trashing preferences..."),
           {recycle + "com.apple.compressor.Compressor.plist", recycle + "com.apple.BatchMonitor.plist"}});
  const Lines trashed4 =
      all({say("Trashing preferences..."), {recycle + "com.apple.compressor.Compressor.plist"}});
  EXPECT_EQ(seen(), text(all({started(), stopped3("Detected Compressor 3.5.x."), trashed3, checked35(),
                              cleaned3(), stopped4(), trashed4, cleaned4(), nameChecked(),
                              restarted({"3.5", "4.0"}), ended(kSuccess)})));
}

TEST_P(RepairInBothFormsTest, AnUnsupportedVersionHasThePreferencesOfCompressor3Trashed) {
  install4("4.1");
  mac.files.makeFile(kTool);
  // The file that a Compressor 4 is known by is there and decides nothing.
  for (const char* name : {"com.apple.BatchMonitor.plist", "com.apple.Compressor.plist"}) {
    mac.files.makeFile(std::string("/Users/alice/Library/Preferences/") + name);
  }
  start();
  repair(ShouldTrash::yes);
  const Lines trashed = all(
      {say("Trashing preferences..."),
       {"recycle /Users/alice/Library/Preferences -> /Users/alice/.Trash: com.apple.BatchMonitor.plist"}});
  EXPECT_EQ(seen(),
            text(all({started(), stopped3("Unsupported Compressor version... running in limited mode."),
                      trashed, cleaned3(), nameChecked(), restarted({}), ended(kSuccess)})));
}

TEST_P(RepairInBothFormsTest, ResetsTheLayoutWhenAsked) {
  install4();
  const std::string layouts = std::string(kUserSupport) + "/Compressor/Layouts";
  mac.files.makeFile(layouts + "/Compressor.saved.moduleLayout");
  start();
  repair(ShouldTrash::no, ShouldResetLayout::yes);
  const Lines reset =
      all({say("Resetting window layout..."),
           {"recycle " + layouts + " -> /Users/alice/.Trash: Compressor.saved.moduleLayout"}});
  EXPECT_EQ(seen(), text(all({started(), stopped4(), reset, cleaned4(), nameChecked(), restarted({"4.0"}),
                              ended(kSuccess)})));
}

TEST_P(RepairInBothFormsTest, TrashesPreferencesBeforeTheLayout) {
  install4();
  start();
  repair(ShouldTrash::yes, ShouldResetLayout::yes);
  EXPECT_EQ(seen(), text(all({started(), stopped4(), say("Trashing preferences..."),
                              say("Resetting window layout..."), cleaned4(), nameChecked(),
                              restarted({"4.0"}), ended(kSuccess)})));
}

TEST_P(RepairInBothFormsTest, OneFlagStandsForPreferencesAndLayout) {
  install4();
  start();
  controller->startRepair(ShouldTrash::yes, Silent::no);
  EXPECT_EQ(seen(), text(all({started(), stopped4(), say("Trashing preferences..."),
                              say("Resetting window layout..."), cleaned4(), nameChecked(),
                              restarted({"4.0"}), ended(kSuccess)})));
  mac.recorder.clear();
  controller->startRepair(ShouldTrash::no, Silent::no);
  EXPECT_THAT(mac.recorder.lines(), testing::Not(testing::Contains("console Resetting window layout...")));
}

TEST_P(RepairInBothFormsTest, AMissingComputerNameIsSaidAndIsNoErrorOfTheRepair) {
  mac.subprocesses.runs["/usr/sbin/scutil --get ComputerName"] = {.status = 1,
                                                                  .output = "ComputerName: not set"};
  start();
  repair();
  const Lines told = sayError(
      "Your computer does not have a computer name or local hostname set. You must first add one in the "
      "Sharing pane of System Preferences (in the text box at the top) and then run Quillmend again. See the "
      "Quillmend user manual for more details.");
  EXPECT_EQ(seen(), text(all({started(), nameChecked(), told, restarted({}, false), ended(kSuccess)})));
}

TEST_P(RepairInBothFormsTest, EveryMissingComponentOf30IsToldAndEveryStageStillRuns) {
  install30();
  removeComponents(kComponents30);
  start();
  repair();
  const Lines told = all({toldMissing(kComponents30),
                          sayError(missing(kStartupItem)),
                          sayError(missing("/Library/StartupItems/Qmaster/StartupParameters.plist")),
                          {helper("trashtool StartupItems/Qmaster/.disabled")}});
  const Lines restarted30 =
      all({{"sleep 250us"},
           say("Attempting to start Qmaster..."),
           sayError("Critical error: /Library/StartupItems/Qmaster/Qmaster cannot be found. Please reinstall "
                    "Qmaster."),
           {tool(std::string(kTool) + " -reset"), "sleep 2s", tool(std::string(kTool) + " -startSharing"),
            "sleep 600us"},
           say("Relaunching menu bar icon...")});
  EXPECT_EQ(seen(),
            text(all({started(), stopped3("Detected Compressor 3.0.x."), say("Checking file permissions..."),
                      told, cleaned3(), nameChecked(), restarted30, ended(kErrors)})));
}

TEST_P(RepairInBothFormsTest, EveryMissingComponentOf35IsToldAndEveryStageStillRuns) {
  install35();
  removeComponents(kComponents35);
  std::filesystem::remove(mac.files.real(kDaemonFile));
  start();
  repair();
  const Lines told = all({toldMissing(kComponents35), sayError(missing(kDaemonFile))});
  EXPECT_EQ(seen(), text(all({started(), stopped3("Detected Compressor 3.5.x."), checked35(), told,
                              cleaned3(), nameChecked(), restarted({"3.5"}, false), ended(kErrors)})));
}

TEST_P(RepairInBothFormsTest, AWhollyDamagedFolderIsMendedInThreeWays) {
  install35();
  const std::string folder = std::string(kSupport) + "/ProMediaIO";
  using platform::Access;
  mac.files.denied = {{folder, Access::read}, {folder, Access::write}, {folder, Access::execute}};
  start();
  repair();
  const Lines mended =
      all({sayError(folder + " is not readable... attempting fix."),
           changed("chowntool -R root:wheel " + folder), changed("chmodtool -R ugo+r " + folder),
           sayError(folder + " is not writable... attempting fix."), changed("chmodtool -R ugo+w " + folder),
           sayError(folder + " is not openable... attempting fix."), changed("chmodtool ugo+x " + folder)});
  EXPECT_EQ(seen(), text(all({started(), stopped3("Detected Compressor 3.5.x."), checked35(), mended,
                              cleaned3(), nameChecked(), restarted({"3.5"}), ended(kErrors)})));
}

TEST_P(RepairInBothFormsTest, AConfiguredSpoolFolderOfCompressor3IsEmptiedTooUnlessItIsTheUsualOne) {
  install35();
  makeServicesFile(kSupport, "/Volumes/Fast/spool");
  start();
  repair();
  EXPECT_EQ(seen(), text(all({started(), stopped3("Detected Compressor 3.5.x."), checked35(),
                              cleaned3({"/private/var/spool/qmaster", "/Volumes/Fast/spool"}), nameChecked(),
                              restarted({"3.5"}), ended(kSuccess)})));
  makeServicesFile(kSupport, "/var/spool/qmaster");
  mac.recorder.clear();
  repair();
  EXPECT_THAT(mac.recorder.lines(),
              testing::Not(testing::Contains(helper("trashtool -spooldir /var/spool/qmaster"))));
}

TEST_P(RepairInBothFormsTest, AConfiguredSpoolFolderOfCompressor4IsEmptiedTooUnlessItIsTheUsers) {
  install4();
  makeServicesFile(kUserSupport, "/Volumes/Fast/spool");
  start();
  repair();
  Lines folders = usualSpool4();
  folders.emplace_back("/Volumes/Fast/spool");
  EXPECT_EQ(seen(), text(all({started(), stopped4(), cleaned4(folders), nameChecked(), restarted({"4.0"}),
                              ended(kSuccess)})));
  makeServicesFile(kUserSupport, std::string(kUserSupport) + "/Apple Qmaster/Storage");
  mac.recorder.clear();
  repair();
  EXPECT_EQ(
      seen(),
      text(all({started(), stopped4(), cleaned4(), nameChecked(), restarted({"4.0"}), ended(kSuccess)})));
}

TEST_P(RepairInBothFormsTest, TheLocalSpoolFolderOfCompressor4IsEmptiedTwiceWhenItIsConfigured) {
  install4();
  makeServicesFile(kUserSupport, std::string(kSupport) + "/Apple Qmaster/Storage");
  start();
  repair();
  Lines folders = usualSpool4();
  folders.push_back(std::string(kSupport) + "/Apple Qmaster/Storage");
  EXPECT_EQ(seen(), text(all({started(), stopped4(), cleaned4(folders), nameChecked(), restarted({"4.0"}),
                              ended(kSuccess)})));
}

TEST_P(RepairInBothFormsTest, BothCompressorsThatRunAreClosedAndReopened) {
  mac.applications.launched = {
      {"com.apple.finder", "com.apple.compressor.Compressor", "com.apple.Compressor"}, {"com.apple.finder"}};
  mac.applications.paths = {{"com.apple.compressor.Compressor", kOldCompressor},
                            {"com.apple.Compressor", kCompressor}};
  start();
  repair();
  const Lines waited = {"quit Compressor", "sleep 1s", "sleep 1s", "sleep 1s"};
  EXPECT_EQ(seen(), text(all({started(),
                              sayBold("Waiting for Compressor to exit..."),
                              waited,
                              sayBold("Waiting for Compressor 4 to exit..."),
                              waited,
                              nameChecked(),
                              restarted({}, false),
                              ended(kSuccess),
                              {"open " + std::string(kOldCompressor), "open " + std::string(kCompressor)}})));
}

TEST_P(RepairInBothFormsTest, OnlyTheCompressorThatRanIsReopened) {
  mac.applications.launched = {{"com.apple.Compressor"}, {}};
  mac.applications.paths = {{"com.apple.compressor.Compressor", kOldCompressor},
                            {"com.apple.Compressor", kCompressor}};
  start();
  repair();
  EXPECT_EQ(seen(), text(all({started(),
                              sayBold("Waiting for Compressor 4 to exit..."),
                              {"quit Compressor", "sleep 1s", "sleep 1s", "sleep 1s"},
                              nameChecked(),
                              restarted({}, false),
                              ended(kSuccess),
                              {"open " + std::string(kCompressor)}})));
}

TEST_P(RepairInBothFormsTest, ACompressorThatWillNotQuitHoldsTheRepairUpAndNotOff) {
  mac.applications.launched = {{"com.apple.Compressor"}};
  mac.applications.paths = {{"com.apple.compressor.Compressor", kOldCompressor},
                            {"com.apple.Compressor", kCompressor}};
  start();
  repair();
  Lines waited = {"quit Compressor"};
  waited.insert(waited.end(), std::size_t{21} * 3, "sleep 1s");
  // It was running, so it is opened: that brings it to the front.
  EXPECT_EQ(seen(), text(all({started(),
                              sayBold("Waiting for Compressor 4 to exit..."),
                              waited,
                              nameChecked(),
                              restarted({}, false),
                              ended(kSuccess),
                              {"open " + std::string(kCompressor)}})));
}

TEST_F(RepairTest, ASilentRunWithoutAWindowSaysNothingAndPostsItsEnd) {
  install35();
  start(Form::commandLine);
  silent_ = true;
  repair(ShouldTrash::yes, ShouldResetLayout::yes, Silent::yes);
  EXPECT_EQ(seen(), text(all({started(),
                              stopped3(""),
                              cleaned3(),
                              nameChecked(),
                              restarted({"3.5"}),
                              {"post tgQuillmendScanFinished"}})));
  EXPECT_EQ(controller->outputString(), std::nullopt);
  EXPECT_EQ(mac.distributedNotifications.posted.back().userInfo, std::nullopt);
}

TEST_F(RepairTest, AnEmptyOutputIsNotPosted) {
  start(Form::commandLine);
  controller->insertText("before");
  controller->clearErrorText();
  repair(ShouldTrash::no, ShouldResetLayout::no, Silent::yes);
  EXPECT_EQ(controller->outputString(), "");
  ASSERT_EQ(mac.distributedNotifications.posted.size(), 1U);
  EXPECT_EQ(mac.distributedNotifications.posted.back().userInfo, std::nullopt);
}

TEST_F(RepairTest, ASilentRunInTheWindowStillShowsItsAlert) {
  install4();
  start(Form::window);
  silent_ = true;
  repair(ShouldTrash::no, ShouldResetLayout::no, Silent::yes);
  EXPECT_EQ(
      seen(),
      text(all({started(), stopped4(), cleaned4(), nameChecked(), restarted({"4.0"}), ended(kSuccess)})));
}

TEST_F(RepairTest, ASilentRunFindsErrorsAllTheSame) {
  makeVersionFile(kOldCompressor, "3.5");
  start(Form::window);
  repair(ShouldTrash::no, ShouldResetLayout::no, Silent::yes);
  EXPECT_THAT(
      mac.recorder.lines(),
      testing::Contains("sheet Processing complete: Errors were found during processing.\n\nScroll up "
                        "to see the relevant error messages."));
}

TEST_F(RepairTest, ASilentRunStillSaysThatTheStartupItemOfCompressor30IsMissing) {
  install30();
  std::filesystem::remove(mac.files.real(kStartupItem));
  start(Form::commandLine);
  repair(ShouldTrash::no, ShouldResetLayout::no, Silent::yes);
  const std::string critical =
      "Critical error: /Library/StartupItems/Qmaster/Qmaster cannot be found. Please reinstall Qmaster.";
  EXPECT_EQ(mac.systemConsole.messages(), Lines{critical});
  EXPECT_EQ(postedOutput(), critical);
}

TEST_F(RepairTest, TheFinishNotificationCarriesTheConsolesText) {
  start(Form::commandLine);
  repair();
  EXPECT_EQ(
      postedOutput(),
      "Starting repair...\n\nChecking computer name...\n\nAttempting to start Qmaster...\n\nRelaunching "
      "menu bar icon...\n\n" +
          std::string(kSuccess));
}

TEST_F(RepairTest, TheLogTellsTheRun) {
  install4();
  start(Form::commandLine);
  repair();
  const Lines lines = taskLog();
  const Lines beginning(lines.begin(), lines.begin() + std::min<std::ptrdiff_t>(6, std::ssize(lines)));
  EXPECT_EQ(text(beginning),
            text({"Starting repair...", "Starting repair...", "Detected Compressor version 4.0...",
                  "Detected Compressor 4.x.", "Stopping Qmaster...", "Stopping apps..."}));
  EXPECT_EQ(lines.back(), kSuccess);
}

TEST_F(RepairTest, WithoutRightsNothingIsTouchedAndTheEndIsPosted) {
  install35();
  startWithoutGUI();  // as alice, who cannot be asked here
  repair();
  EXPECT_EQ(recorded(),
            text(all({growl("Repairing Compressor..."),
                      {"console Unable to authorize",
                       "post tgQuillmendScanFinished {\n    output = \"Unable to authorize. Repair "
                       "canceled.\";\n}"},
                      growl("Repair failed.")})));
}

TEST_F(RepairTest, ASilentRunWithoutRightsOnlyPostsItsEnd) {
  startWithoutGUI();
  repair(ShouldTrash::no, ShouldResetLayout::no, Silent::yes);
  EXPECT_EQ(seen(), text({"console Unable to authorize", "post tgQuillmendScanFinished"}));
  EXPECT_EQ(postedOutput(), "Unable to authorize. Repair canceled.");
}

TEST_F(RepairTest, ARefusedPasswordEndsTheWindowsRepairWithoutAWord) {
  install35();
  mac.authorization.rights = platform::errAuthorizationCanceled;
  start(Form::window);
  repair();
  EXPECT_EQ(seen(),
            text({"authorization create flags 0", "authorization rights system.privilege.admin flags 19",
                  "authorization free flags 0"}));
}

TEST_F(RepairTest, RightsThatAreHeldAreNotAskedForAgain) {
  start(Form::window);
  ASSERT_TRUE(TGAuthorization::sharedController()->authStart());
  mac.recorder.clear();
  repair();
  EXPECT_EQ(mac.recorder.lines().front(), "console := ''");
}

TEST_F(RepairTest, AnExceptionEndsTheRunAndIsLogged) {
  install4();
  start(Form::commandLine);
  mac.subprocesses.runs[std::string(kTool4) + " -stopSharing"].launchFailure =
      foundation::Exception(foundation::kInvalidArgumentException, "launch path not accessible");
  repair();
  EXPECT_EQ(mac.recorder.lines().back(),
            "console Exception in -[TGAppController startRepair:shouldResetLayout:isSilent:]. "
            "NSInvalidArgumentException - launch path not accessible.");
  EXPECT_TRUE(mac.distributedNotifications.posted.empty());
}

TEST_F(RepairTest, AnExceptionEndsTheWindowsRunWithoutAWordAndEnablesTheButton) {
  install4();
  becomeRoot();
  startWithGUI();
  mac.subprocesses.runs[std::string(kTool4) + " -stopSharing"].launchFailure =
      foundation::Exception(foundation::kInvalidArgumentException, "launch path not accessible");
  controller->threadedRepair({});
  EXPECT_EQ(recorded(), text({"button disabled", "console := ''", "console [bold] Starting repair...",
                              "console Detected Compressor 4.x.", "console Stopping Qmaster...",
                              "run " + std::string(kTool4) + " -resetCluster cancelJobs", "sleep 600us",
                              "run " + std::string(kTool4) + " -stopSharing", "button enabled"}));
  EXPECT_EQ(logLines("/Library/Logs/Vordenworks/Quillmend.1.log").back(),
            "Exception in -[TGAppController startRepair:shouldResetLayout:isSilent:]. "
            "NSInvalidArgumentException - launch path not accessible.");
  EXPECT_TRUE(mac.distributedNotifications.posted.empty());
}

// A request to end in the middle of a run without a window.

namespace {

/// The run of a Compressor 3.5 of which only the tool is installed: what is done between one look for a
/// request to end and the next.
class InterruptedRepairTest : public RepairTest {
 protected:
  static constexpr std::size_t kFirstLookAfterStop = 3;

  void SetUp() override {
    makeVersionFile(kOldCompressor, "3.5");
    mac.files.makeFile(kTool);
    mac.files.makeFile("/bin/launchctl");
    start(Form::commandLine);
  }
  std::vector<Lines> pieces() const {
    std::vector<Lines> result = {started(),
                                 {},
                                 {},
                                 stopped3("Detected Compressor 3.5.x."),
                                 {},
                                 say("Trashing preferences..."),
                                 say("Resetting window layout..."),
                                 say("Checking file permissions...")};
    for (const std::string& path : kComponents35) {
      result.push_back(path == kTool ? Lines{} : sayError(missing(path)));
    }
    result.insert(result.end(), {sayError(missing(kDaemonFile)),
                                 cachesRemoved(kSupport),
                                 spoolRemoved({"/private/var/spool/qmaster"}),
                                 historyCleared({"Compressor/History"}),
                                 {}});
    return result;
  }
  Lines interrupted(const std::string& outcome) const {
    return all({sayError("Repair interrupted by signal 15. " + outcome),
                {"post tgQuillmendScanFinished"},
                growl("Repair failed.")});
  }
  void repairWithSignalAfter(int looks, Silent silent = Silent::no) {
    mac.interruption.signal = 15;
    mac.interruption.comesAfter = looks;
    repair(ShouldTrash::yes, ShouldResetLayout::yes, silent);
  }
};

}  // namespace

TEST_F(InterruptedRepairTest, EndsBehindTheStepUnderWayAndStartsWhatItStopped) {
  const std::vector<Lines> steps = pieces();
  for (std::size_t looks = 0; looks < steps.size(); ++looks) {
    SCOPED_TRACE(looks);
    mac.recorder.clear();
    repairWithSignalAfter(static_cast<int>(looks));
    Lines expected = all({steps.begin(), steps.begin() + static_cast<std::ptrdiff_t>(looks) + 1});
    if (looks < kFirstLookAfterStop) {
      expected = all({expected, interrupted("Qmaster was not touched; run the repair again.")});
    } else {
      expected = all({expected, restarted({"3.5"}, false, "sleep 2s"),
                      interrupted("Qmaster was started again; run the repair again to finish it.")});
    }
    EXPECT_EQ(seen(), text(expected));
  }
}

TEST_F(InterruptedRepairTest, ARequestThatComesBehindTheLastStepChangesNothing) {
  const std::vector<Lines> steps = pieces();
  repairWithSignalAfter(static_cast<int>(steps.size()));
  EXPECT_EQ(seen(), text(all({all(steps), nameChecked(), restarted({"3.5"}, false), ended(kErrors)})));
}

/// One look at the processes stops the Qmaster of all versions, so all are started, also those that the
/// repair has not come to.
TEST_F(InterruptedRepairTest, StartsTheVersionsThatItHasNotComeToAsWell) {
  install4();
  const std::size_t looksOfFirstVersion = pieces().size() - 1;
  repairWithSignalAfter(static_cast<int>(looksOfFirstVersion));
  EXPECT_THAT(mac.recorder.lines(),
              testing::Not(testing::Contains(testing::HasSubstr("Detected Compressor 4.x."))));
  EXPECT_THAT(mac.recorder.lines(), testing::IsSupersetOf(restarted({"3.5", "4.0"}, false, "sleep 2s")));
}

TEST_F(InterruptedRepairTest, ASilentRunTellsItsLogOnly) {
  repairWithSignalAfter(4, Silent::yes);
  EXPECT_EQ(taskLog().back(),
            "Repair interrupted by signal 15. Qmaster was started again; run the repair again to finish it.");
  EXPECT_EQ(mac.systemConsole.messages(), Lines{});
}

TEST_F(InterruptedRepairTest, AnUnsupportedVersionIsNotSaidToBeStarted) {
  makeVersionFile(kOldCompressor, "4.1");
  repairWithSignalAfter(4);
  EXPECT_THAT(postedOutput(),
              testing::HasSubstr("Repair interrupted by signal 15. Qmaster was stopped and is "
                                 "not started for this version; run the repair again to "
                                 "finish it."));
}

TEST_F(InterruptedRepairTest, ClosedCompressorsAreReopened) {
  mac.applications.launched = {{"com.apple.compressor.Compressor"}, {}};
  mac.applications.paths["com.apple.compressor.Compressor"] = kOldCompressor;
  repairWithSignalAfter(1);
  EXPECT_EQ(mac.recorder.lines().back(), "open " + std::string(kOldCompressor));
}

/// Both versions hear one request to quit.
TEST_F(InterruptedRepairTest, ReopensACompressor4ThatItDidNotComeToWaitFor) {
  mac.applications.launched = {{"com.apple.compressor.Compressor", "com.apple.Compressor"}, {}};
  mac.applications.paths["com.apple.compressor.Compressor"] = kOldCompressor;
  mac.applications.paths["com.apple.Compressor"] = "/Applications/Compressor.app";
  repairWithSignalAfter(1);
  EXPECT_THAT(mac.recorder.lines(), testing::IsSupersetOf(Lines{"open " + std::string(kOldCompressor),
                                                                "open /Applications/Compressor.app"}));
}

TEST_F(RepairTest, TheWindowsRepairDoesNotHeedRequestsToEnd) {
  install4();
  start(Form::window);
  mac.interruption.signal = 15;
  repair();
  EXPECT_EQ(
      seen(),
      text(all({started(), stopped4(), cleaned4(), nameChecked(), restarted({"4.0"}), ended(kSuccess)})));
}

// Progress, and the end before the end.

TEST_F(RepairTest, TheProgressGoesThroughTheStagesWithoutTouchingTheConsole) {
  install4();
  start(Form::window);
  repair();
  const auto without = seen();
  const std::string linesWithout = console.text;
  mac.recorder.clear();
  controller->repairProgress = &progress;
  console.text.clear();
  repair();
  EXPECT_EQ(console.text, linesWithout);
  EXPECT_EQ(text(stages.lines()),
            text({"stage 0 of 0 Waiting for authorization", "stage 0 of 0 Closing Compressor",
                  "stage 0 of 10 Stopping Qmaster", "stage 1 of 10 Looking for Compressor's folders",
                  "stage 2 of 10 Trashing preferences", "stage 3 of 10 Resetting window layout",
                  "stage 4 of 10 Checking file permissions", "stage 5 of 10 Removing caches",
                  "stage 6 of 10 Removing temporary spool data", "stage 7 of 10 Clearing history",
                  "stage 8 of 10 Checking computer name", "stage 9 of 10 Starting Qmaster"}));
}

TEST_F(RepairTest, TheEndOfTheRepairHidesTheProgress) {
  start(Form::window);
  fakes::FakeProgress ofTheWindow(mac.recorder);
  controller->repairProgress = &ofTheWindow;
  controller->repairEnd();
  controller->repairProgress = nullptr;
  EXPECT_EQ(recorded(), text({"progress hidden", "button enabled"}));
}

TEST_F(RepairTest, ARepairThatIsAskedToEndLeavesTheRestOutStartsQmasterAndEndsTheApplication) {
  install4();
  becomeRoot();
  repairAskedToEndAt("Removing caches");
  EXPECT_THAT(console.text, testing::HasSubstr("Removing caches..."));
  EXPECT_THAT(console.text, testing::Not(testing::HasSubstr("Removing temporary spool data...")));
  EXPECT_THAT(console.text, testing::HasSubstr("Attempting to start Qmaster..."));
  EXPECT_THAT(console.text, testing::EndsWith("Repair stopped. Qmaster was started again; run the repair "
                                              "again to finish it."));
  EXPECT_THAT(recorded(), testing::Not(testing::HasSubstr("sheet")));
  EXPECT_EQ(mac.recorder.lines().back(), "terminate application");
}

TEST_F(RepairTest, AWindowsRepairThatASignalEndsNamesIt) {
  install4();
  becomeRoot();
  mac.interruption.signal = 15;
  repairAskedToEndAt("Removing caches");
  EXPECT_THAT(console.text,
              testing::EndsWith("Repair interrupted by signal 15. Qmaster was started again; run "
                                "the repair again to finish it."));
  EXPECT_EQ(mac.recorder.lines().back(), "terminate application");
}

TEST_F(RepairTest, ARepairThatBreaksOffIsShownByTheProgressUntilTheNextOne) {
  install4();
  becomeRoot();
  start(Form::window);
  controller->repairProgress = &progress;
  auto& tool = mac.subprocesses.runs[std::string(kTool4) + " -stopSharing"];
  tool.launchFailure = foundation::Exception(foundation::kInvalidArgumentException, "no program");
  controller->threadedRepair({});
  EXPECT_EQ(stages.lines().back(), "progress broken off");
  EXPECT_THAT(recorded(), testing::Not(testing::HasSubstr("sheet")));
  tool.launchFailure.reset();
  controller->threadedRepair({});
  EXPECT_EQ(stages.lines().back(), "progress hidden");
}

TEST_F(RepairTest, ARefusedRepairHasNotBrokenOff) {
  mac.authorization.rights = platform::errAuthorizationCanceled;
  start(Form::window);
  controller->repairProgress = &progress;
  controller->threadedRepair({});
  EXPECT_EQ(stages.lines().back(), "progress hidden");
}

TEST_F(RepairTest, AnEndThatIsAskedForInTheLastStageComesWithoutAnAlert) {
  install4();
  becomeRoot();
  repairAskedToEndAt("Starting Qmaster");
  EXPECT_THAT(console.text, testing::EndsWith(kSuccess));
  EXPECT_THAT(recorded(), testing::Not(testing::HasSubstr("sheet")));
  EXPECT_EQ(mac.recorder.lines().back(), "terminate application");
}

TEST_F(RepairTest, ARepairThatIsAskedToEndWhileItWaitsForItsRightsTouchesNothing) {
  install4();
  for (const auto answer : {platform::errAuthorizationCanceled, platform::errAuthorizationSuccess}) {
    start(Form::window);
    mac.authorization.rights = answer;
    mac.authorization.whileAsking = [this] { controller->endRepairAndTerminate(); };
    controller->threadedRepair({});
    EXPECT_THAT(mac.recorder.lines(), testing::Contains("authorization stop asking")) << answer;
    EXPECT_THAT(recorded(), testing::Not(testing::HasSubstr("privileged"))) << answer;
    EXPECT_THAT(console.text, testing::Not(testing::HasSubstr("Stopping Qmaster..."))) << answer;
    EXPECT_EQ(mac.recorder.lines().back(), "terminate application") << answer;
  }
}

TEST_F(RepairTest, TheRightsThatStartQmasterAgainMayBeAskedForOnceMore) {
  install4();
  repairAskedToEndAt("Removing caches");
  EXPECT_THAT(recorded(), testing::Not(testing::HasSubstr("stop asking")));
}

TEST_F(RepairTest, ASecondPressBeforeTheFirstHasDisabledTheButtonStartsNothing) {
  start(Form::window);
  Gate gate;
  controller->repairProgress = &progress;
  progress.whenShown = [&](const std::string&) { gate.wait()(); };
  std::thread first = controller->repairThread();
  EXPECT_TRUE(controller->isRepairing());
  controller->repair();
  gate.open();
  first.join();
  EXPECT_FALSE(controller->isRepairing());
  const Lines& lines = mac.recorder.lines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "button disabled"), 1);
}

// The window's button.

TEST_F(RepairTest, TheButtonIsDisabledAndTheConsoleEditableWhileTheRepairRuns) {
  start(Form::window);
  console.recordsCalls = true;
  controller->repairStart();
  controller->repairEnd();
  EXPECT_EQ(recorded(), text({"button disabled", "view editable", "view read-only", "button enabled"}));
}

TEST_F(RepairTest, ThreadedRepairReadsTwoOfItsThreeFlags) {
  install4();
  start(Form::window);
  controller->threadedRepair(foundation::PropertyList::Dictionary{
      {"shouldTrash", true}, {"shouldResetLayout", false}, {"shouldResetQmaster", false}});
  EXPECT_EQ(seen(), text(all({{"button disabled"},
                              started(),
                              stopped4(),
                              say("Trashing preferences..."),
                              cleaned4(),
                              nameChecked(),
                              restarted({"4.0"}),
                              ended(kSuccess),
                              {"button enabled"}})));
}

TEST_F(RepairTest, TheButtonIsEnabledAgainWhenTheRepairIsRefused) {
  mac.authorization.rights = platform::errAuthorizationCanceled;
  start(Form::window);
  controller->threadedRepair({});
  EXPECT_EQ(mac.recorder.lines().back(), "button enabled");
}

TEST_F(RepairTest, TheBoxOfThePreferencesDoesNotResetTheLayout) {
  install4();
  start(Form::window);
  layoutBox.current = outlets::State::off;
  qmasterBox.current = outlets::State::off;
  trashBox.current = outlets::State::on;
  controller->repairThread().join();
  EXPECT_THAT(mac.recorder.lines(), testing::Contains("console Trashing preferences..."));
  EXPECT_THAT(mac.recorder.lines(), testing::Not(testing::Contains("console Resetting window layout...")));
  EXPECT_THAT(mac.recorder.lines(), testing::Contains("console Attempting to start Qmaster..."));
}

TEST_F(RepairTest, TheBoxOfTheLayoutDoesNotTrashThePreferences) {
  install4();
  start(Form::window);
  mac.mainThread.recordsWork = true;
  layoutBox.current = outlets::State::on;
  qmasterBox.current = outlets::State::off;
  trashBox.current = outlets::State::off;
  controller->repairThread().join();
  EXPECT_THAT(mac.recorder.lines(), testing::Contains("console Resetting window layout..."));
  EXPECT_THAT(mac.recorder.lines(), testing::Not(testing::Contains("console Trashing preferences...")));
  EXPECT_THAT(mac.recorder.lines(), testing::Contains("console Attempting to start Qmaster..."));
}

TEST_F(RepairTest, EveryLineOfTheWorkerGoesThroughTheMainThreadAndIsWaitedFor) {
  mac.files.makeFolder(kMenu);
  start(Form::window);
  mac.mainThread.recordsWork = true;
  controller->repairThread().join();
  const Lines& lines = mac.recorder.lines();
  for (std::size_t at = 0; at < lines.size(); ++at) {
    const bool isInterface =
        lines[at].starts_with("console") || lines[at].starts_with("sheet") || lines[at].starts_with("button");
    if (!isInterface) continue;
    ASSERT_GT(at, 0U);
    EXPECT_EQ(lines[at - 1], "main (wait)") << lines[at];
  }
  EXPECT_THAT(lines, testing::Not(testing::Contains("main (no wait)")));
}

TEST_F(RepairTest, AThreadThatCannotBeHadIsLoggedAndTheButtonStaysEnabled) {
  startWithGUI();
  TGLog::appendLog("before");  // the log's own thread runs
  {
    const support::NoMoreThreads limit;
    controller->repair();
  }
  EXPECT_EQ(recorded(), "");
  EXPECT_THAT(windowLog().back(), testing::StartsWith("Exception in -[TGAppController repair:]. "));
}

TEST(RepairButtonTest, StartsARepairOnAThreadThatNobodyWaitsFor) {
  // The thread may still be returning when the test is over, so what it returns through is never destroyed.
  static auto* const mac = new fakes::FakePlatform;
  static auto* const button = new fakes::FakeButton(mac->recorder);
  const foundation::SingletonScope<TGLog> log;
  const foundation::SingletonScope<TGAuthorization> authorization;
  mac->authorization.rights = platform::errAuthorizationCanceled;
  static auto* const controller = TGAppController::init().release();
  controller->repairButton = button;
  mac->recorder.clear();
  std::promise<void> ended;
  button->whenEnabled = [&] { ended.set_value(); };
  controller->repair();
  ASSERT_EQ(ended.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
  EXPECT_EQ(text(mac->recorder.lines()), text({"button disabled", "authorization create flags 0",
                                               "authorization rights system.privilege.admin flags 19",
                                               "authorization free flags 0", "button enabled"}));
  TGLog::finishWriting();
  std::filesystem::remove_all(mac->files.root());
}
