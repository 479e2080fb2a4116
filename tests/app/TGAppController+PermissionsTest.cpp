#include <algorithm>
#include <map>

#include "platform/foundation/Paths.h"
#include "tests/app/ControllerTest.h"

// The check of the components: each of the three checks against each kind of place. The window's repair is
// run and what it says and does between its headings is looked at.

using platform::Access;

namespace {

constexpr const char* kReinstall = "' does not exist. You are advised to reinstall Compressor / Qmaster.";

class PermissionsTest : public ControllerTest {
 protected:
  void install(const std::string& version) {
    makeVersionFile("/Applications/Compressor.app", version);
    for (const char* folder :
         {"/Applications/Utilities/Batch Monitor.app", "/Library/Application Support/Apple Qmaster",
          "/Library/Application Support/Apple Qmaster/qmasterconfig",
          "/Library/Application Support/ProMediaIO", "/Library/PreferencePanes/Apple Qmaster.prefPane",
          "/Library/Frameworks/AECore.framework", "/Library/Frameworks/Compressor.framework",
          "/Library/Frameworks/MediaServerAPI.framework", "/Library/Frameworks/Qmaster.framework",
          "/Library/StartupItems/Qmaster", "/System/Library/PrivateFrameworks/BrowserKit.framework",
          "/System/Library/PrivateFrameworks/Helium.framework",
          "/System/Library/PrivateFrameworks/ProKit.framework"}) {
      mac.files.makeFolder(folder);
    }
    for (const char* file :
         {"/Library/Application Support/Apple Qmaster/qmasterservices.plist",
          "/usr/local/lib/libhelium_mac.a", "/usr/sbin/qmasterca", "/usr/sbin/qmasterd",
          "/usr/sbin/qmasterprefs", "/usr/sbin/qmasterqd", "/Library/StartupItems/Qmaster/Qmaster",
          "/Library/StartupItems/Qmaster/StartupParameters.plist",
          "/Library/LaunchDaemons/com.apple.qmaster.qmasterd.plist"}) {
      mac.files.makeFile(file);
    }
  }
  void remove(const std::string& path) { std::filesystem::remove_all(mac.files.real(path)); }
  void deny(const std::string& path, const std::vector<Access>& accesses) {
    for (const Access access : accesses) mac.files.denied.insert({path, access});
  }
  /// The machine's folder of that kind lies there; nullopt: there is none.
  void useFolder(platform::SearchPathDirectory kind, const std::optional<std::string>& path) {
    folders[kind] = path ? Lines{*path} : Lines{};
    mac.users.searchPathsOverride = [this](auto directory, auto domain) {
      const auto found = folders.find(directory);
      const bool isOverridden = domain == platform::SearchPathDomain::local && found != folders.end();
      return isOverridden ? std::optional(found->second) : std::nullopt;
    };
  }
  void denyAll(const std::string& path) { deny(path, {Access::read, Access::write, Access::execute}); }

  /// What the check of a version says and does; the changes to the startup item, which every 3.0 gets, are
  /// left out.
  std::string check(const std::string& version = "3.5") {
    install(version);
    for (const std::string& path : missing) remove(path);
    startWithGUI();
    controller->startRepair(ShouldTrash::no, ShouldResetLayout::no, Silent::no);
    const Lines& lines = mac.recorder.lines();
    const auto from = std::find(lines.begin(), lines.end(), "console Checking file permissions...");
    const auto to = std::find(from, lines.end(), "console Removing caches...");
    EXPECT_NE(from, lines.end());
    return text(Lines(from + 1, to));
  }
  static Lines change(const std::string& tool) {
    return {"privileged " + std::string(kHelpers) + tool, "sleep 1s"};
  }
  static Lines fixedReading(const std::string& path) {
    return all({{"console [red] " + path + " is not readable... attempting fix."},
                change("chowntool -R root:wheel " + path),
                change("chmodtool -R ugo+r " + path)});
  }
  static Lines unfixedReading(const std::string& path) {
    return {"console [red] " + path + " is not readable... unable to fix."};
  }
  static Lines fixedWriting(const std::string& path) {
    return all({{"console [red] " + path + " is not writable... attempting fix."},
                change("chmodtool -R ugo+w " + path)});
  }
  static Lines fixedOpening(const std::string& path) {
    return all({{"console [red] " + path + " is not openable... attempting fix."},
                change("chmodtool ugo+x " + path)});
  }
  static Lines told(const Lines& paths) {
    Lines lines;
    for (const std::string& path : paths) lines.push_back("console [red] '" + path + kReinstall);
    return lines;
  }
  static std::string trashedMark() {
    return "privileged " + std::string(kHelpers) + "trashtool StartupItems/Qmaster/.disabled";
  }
  static Lines startupItemChanges() {
    const std::string item = "/Library/StartupItems/Qmaster/";
    return all({change("chowntool -R root:wheel " + item + "Qmaster"),
                change("chmodtool -R 755 " + item + "Qmaster"),
                change("chowntool -R root:wheel " + item + "StartupParameters.plist"),
                change("chmodtool -R 644 " + item + "StartupParameters.plist"),
                {trashedMark()}});
  }
  bool errorsWereFound() const {
    return console.text.ends_with("Processing complete. Errors were found during processing.");
  }

  Lines missing;
  std::map<platform::SearchPathDirectory, Lines> folders;
};

}  // namespace

TEST_F(PermissionsTest, ASoundInstallationIsLeftAlone) {
  EXPECT_EQ(check("3.5"), "");
  EXPECT_FALSE(errorsWereFound());
}

TEST_F(PermissionsTest, ASound30HasItsStartupItemSetRight) {
  EXPECT_EQ(check("3.0"), text(startupItemChanges()));
  EXPECT_FALSE(errorsWereFound());
}

TEST_F(PermissionsTest, AMissingFrameworkGivesOneMessage) {
  missing = {"/Library/Frameworks/AECore.framework"};
  denyAll("/Library/Frameworks/AECore.framework");
  EXPECT_EQ(check(), text({std::string("console [red] '/Library/Frameworks/AECore.framework") + kReinstall}));
  EXPECT_TRUE(errorsWereFound());
}

TEST_F(PermissionsTest, ADamagedFrameworkIsToldAndNotChanged) {
  const std::string path = "/System/Library/PrivateFrameworks/ProKit.framework";
  denyAll(path);
  EXPECT_EQ(check(), text(unfixedReading(path)));
  EXPECT_TRUE(errorsWereFound());
}

TEST_F(PermissionsTest, AComponentUnderUsrIsNeverChanged) {
  for (const char* path : {"/usr/sbin/qmasterca", "/usr/sbin/qmasterqd"}) denyAll(path);
  EXPECT_EQ(check(),
            text(all({unfixedReading("/usr/sbin/qmasterca"), unfixedReading("/usr/sbin/qmasterqd")})));
}

TEST_F(PermissionsTest, AFrameworkThatOnlyCannotBeWrittenOrOpenedIsNoError) {
  deny("/Library/Frameworks/Qmaster.framework", {Access::write, Access::execute});
  deny("/usr/sbin/qmasterd", {Access::write, Access::execute});
  EXPECT_EQ(check(), "");
  EXPECT_FALSE(errorsWereFound());
}

TEST_F(PermissionsTest, APreferencePaneIsMadeReadableOnly) {
  const std::string path = "/Library/PreferencePanes/Apple Qmaster.prefPane";
  denyAll(path);
  EXPECT_EQ(check(), text(fixedReading(path)));
}

TEST_F(PermissionsTest, TheStartupItemsFolderIsMadeOpenableOnly) {
  const std::string path = "/Library/StartupItems/Qmaster";
  denyAll(path);
  EXPECT_EQ(check("3.0"), text(all({unfixedReading(path), fixedOpening(path), startupItemChanges()})));
}

TEST_F(PermissionsTest, AnApplicationIsMendedInAllThreeWays) {
  const std::string path = "/Applications/Utilities/Batch Monitor.app";
  denyAll(path);
  EXPECT_EQ(check(), text(all({fixedReading(path), fixedWriting(path), fixedOpening(path)})));
  EXPECT_TRUE(errorsWereFound());
}

TEST_F(PermissionsTest, EachProblemAloneIsAnError) {
  const std::string path = "/Library/Application Support/ProMediaIO";
  deny(path, {Access::write});
  EXPECT_EQ(check(), text(fixedWriting(path)));
  EXPECT_TRUE(errorsWereFound());
}

TEST_F(PermissionsTest, AFolderThatOnlyCannotBeOpenedIsAnError) {
  const std::string path = "/Library/Application Support/Apple Qmaster/qmasterconfig";
  deny(path, {Access::execute});
  EXPECT_EQ(check(), text(fixedOpening(path)));
  EXPECT_TRUE(errorsWereFound());
}

TEST_F(PermissionsTest, AFileNeedNotBeExecutable) {
  deny("/Library/Application Support/Apple Qmaster/qmasterservices.plist", {Access::execute});
  EXPECT_EQ(check(), "");
}

TEST_F(PermissionsTest, TheLaunchDaemonOf35IsLookedForAndNotChanged) {
  const std::string path = "/Library/LaunchDaemons/com.apple.qmaster.qmasterd.plist";
  missing = {path};
  EXPECT_EQ(check("3.5"), text({"console [red] '" + path + kReinstall}));
  EXPECT_TRUE(errorsWereFound());
}

TEST_F(PermissionsTest, ADamagedLaunchDaemonIsLeftAlone) {
  denyAll("/Library/LaunchDaemons/com.apple.qmaster.qmasterd.plist");
  EXPECT_EQ(check("3.5"), "");
}

TEST_F(PermissionsTest, TheLaunchDaemonIsNothingTo30) {
  missing = {"/Library/LaunchDaemons/com.apple.qmaster.qmasterd.plist"};
  EXPECT_EQ(check("3.0"), text(startupItemChanges()));
}

TEST_F(PermissionsTest, AMissingStartupItemIsToldAndItsMarkTrashedAllTheSame) {
  missing = {"/Library/StartupItems/Qmaster/Qmaster",
             "/Library/StartupItems/Qmaster/StartupParameters.plist"};
  EXPECT_EQ(
      check("3.0"),
      text({"console [red] '/Library/StartupItems/Qmaster/Qmaster" + std::string(kReinstall),
            "console [red] '/Library/StartupItems/Qmaster/StartupParameters.plist" + std::string(kReinstall),
            "privileged " + std::string(kHelpers) + "trashtool StartupItems/Qmaster/.disabled"}));
  EXPECT_TRUE(errorsWereFound());
}

TEST_F(PermissionsTest, WhatIsMissingOf30IsToldInTheOrderOfItsList) {
  missing = {"/Applications/Utilities",
             "/Library/Application Support",
             "/Library/PreferencePanes",
             "/Library/Frameworks",
             "/Library/StartupItems",
             "/System/Library",
             "/usr"};
  EXPECT_EQ(check("3.0"), text(all({told({"/Applications/Utilities/Batch Monitor.app",
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
                                          "/usr/sbin/qmasterqd",
                                          "/Library/StartupItems/Qmaster/Qmaster",
                                          "/Library/StartupItems/Qmaster/StartupParameters.plist"}),
                                    {trashedMark()}})));
}

TEST_F(PermissionsTest, WhatIsMissingOf35IsToldInTheOrderOfItsList) {
  missing = {"/Applications/Utilities",  "/Library/Application Support",
             "/Library/PreferencePanes", "/Library/Frameworks",
             "/Library/StartupItems",    "/System/Library",
             "/Library/LaunchDaemons",   "/usr"};
  EXPECT_EQ(
      check("3.5"),
      text(told({"/Applications/Utilities/Batch Monitor.app", "/Library/Application Support/Apple Qmaster",
                 "/Library/Application Support/Apple Qmaster/qmasterservices.plist",
                 "/Library/Application Support/Apple Qmaster/qmasterconfig",
                 "/Library/Application Support/ProMediaIO", "/Library/PreferencePanes/Apple Qmaster.prefPane",
                 "/Library/Frameworks/AECore.framework", "/Library/Frameworks/Compressor.framework",
                 "/Library/Frameworks/MediaServerAPI.framework", "/Library/Frameworks/Qmaster.framework",
                 "/System/Library/PrivateFrameworks/BrowserKit.framework",
                 "/System/Library/PrivateFrameworks/ProKit.framework", "/usr/sbin/qmasterca",
                 "/usr/sbin/qmasterd", "/usr/sbin/qmasterprefs", "/usr/sbin/qmasterqd",
                 "/Library/LaunchDaemons/com.apple.qmaster.qmasterd.plist"})));
}

TEST_F(PermissionsTest, WithoutALocalLibraryAllThatLiesInItIsMissing) {
  useFolder(platform::SearchPathDirectory::library, std::nullopt);
  const Lines missingOfBoth = {"PreferencePanes/Apple Qmaster.prefPane", "Frameworks/AECore.framework",
                               "Frameworks/Compressor.framework", "Frameworks/MediaServerAPI.framework",
                               "Frameworks/Qmaster.framework"};
  const Lines missingOf30 = {"StartupItems/Qmaster", "StartupItems/Qmaster/Qmaster",
                             "StartupItems/Qmaster/StartupParameters.plist"};
  deny("/Library/Application Support/Apple Qmaster", {Access::write});
  EXPECT_EQ(check("3.0"), text(all({fixedWriting("/Library/Application Support/Apple Qmaster"),
                                    told(missingOfBoth),
                                    told(missingOf30),
                                    {trashedMark()}})));
  controller.reset();
  mac.recorder.clear();
  EXPECT_EQ(check("3.5"),
            text(all({fixedWriting("/Library/Application Support/Apple Qmaster"), told(missingOfBoth),
                      told({"LaunchDaemons/com.apple.qmaster.qmasterd.plist"})})));
}

// A local Library on another volume. Whether a startup item may be made readable goes by the usual place of
// startup items; what may be made writable goes by the Library that the system names.

TEST_F(PermissionsTest, AStartupItemOfALibraryElsewhereIsMadeReadableAndNotWritable) {
  useFolder(platform::SearchPathDirectory::library, "/Volumes/L/Library");
  const std::string item = "/Volumes/L/Library/StartupItems/Qmaster";
  mac.files.makeFolder(item);
  denyAll(item);
  const std::string lines = check("3.0");
  EXPECT_THAT(lines, testing::HasSubstr(text(all({fixedReading(item), fixedOpening(item)}))));
  EXPECT_THAT(lines, testing::Not(testing::HasSubstr(item + " is not writable")));
}

TEST_F(PermissionsTest, TheUsualPlaceOfStartupItemsIsNotMadeReadableWhereverTheLibraryIs) {
  useFolder(platform::SearchPathDirectory::library, "/Volumes/L/Library");
  useFolder(platform::SearchPathDirectory::adminApplication, "/Library/StartupItems");
  const std::string path = "/Library/StartupItems/Batch Monitor.app";
  mac.files.makeFolder(path);
  denyAll(path);
  EXPECT_THAT(check(),
              testing::StartsWith(text(all({unfixedReading(path), fixedWriting(path), fixedOpening(path)}))));
}

TEST_F(PermissionsTest, OnlyTheLaunchDaemonsOfTheLibraryItselfAreNotMadeWritable) {
  useFolder(platform::SearchPathDirectory::library, "/Volumes/L/Library");
  useFolder(platform::SearchPathDirectory::adminApplication, "/Library/LaunchDaemons");
  useFolder(platform::SearchPathDirectory::applicationSupport, "/Volumes/L/Library/LaunchDaemons");
  mac.files.makeFolder("/Library/LaunchDaemons/Batch Monitor.app");
  mac.files.makeFolder("/Volumes/L/Library/LaunchDaemons/ProMediaIO");
  deny("/Library/LaunchDaemons/Batch Monitor.app", {Access::write});
  deny("/Volumes/L/Library/LaunchDaemons/ProMediaIO", {Access::write});
  const std::string lines = check();
  EXPECT_THAT(lines, testing::StartsWith(text(fixedWriting("/Library/LaunchDaemons/Batch Monitor.app"))));
  EXPECT_THAT(lines, testing::Not(testing::HasSubstr("ProMediaIO")));
}

TEST_F(PermissionsTest, AFolderThatTheSystemHasNotIsAMissingComponent) {
  useFolder(platform::SearchPathDirectory::adminApplication, std::nullopt);
  EXPECT_EQ(check(), text({"console [red] 'Batch Monitor.app" + std::string(kReinstall)}));
}

TEST_F(PermissionsTest, TheToolsExceptionsAreLogged) {
  becomeRoot();
  startWithoutGUI();
  for (const char* tool : {"chowntool", "chmodtool"}) {
    mac.subprocesses.runs[std::string(kHelpers) + tool].launchFailure =
        foundation::Exception("NSGenericException", "lost");
  }
  controller->chown("/a", "root:wheel");
  controller->chmod("/a", "755");
  controller->chmodNoRecursive("/a", "ugo+x");
  EXPECT_EQ(text(taskLog()),
            text({"Exception in -[TGAppController chown:mode:]. NSGenericException - lost.",
                  "Exception in -[TGAppController chmod:mode:]. NSGenericException - lost.",
                  "Exception in -[TGAppController chmodNoRecursive:mode:]. NSGenericException - "
                  "lost."}));
}

TEST_F(PermissionsTest, AMissingToolIsWaitedForAllTheSame) {
  remove(std::string(kHelpers) + "chmodtool");
  startWithGUI();
  controller->chmod("/a", "755");
  EXPECT_EQ(recorded(), text({"sleep 1s"}));
}

TEST_F(PermissionsTest, AMissingToolIsNotLogged) {
  for (const char* tool : {"chowntool", "chmodtool"}) remove(std::string(kHelpers) + tool);
  startWithGUI();
  controller->chown("/a", "root:wheel");
  controller->chmod("/a", "755");
  controller->chmodNoRecursive("/a", "ugo+x");
  TGLog::appendLog("after");
  EXPECT_EQ(windowLog(), Lines{"after"});
}
