#include "diagnostics/TGBugReporter.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cmath>
#include <filesystem>

#include "tests/diagnostics/LogFixture.h"

namespace {

using foundation::Date;
using foundation::PropertyList;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kStore = "/Users/alice/Library/Preferences/x.plist";
constexpr const char* kUserReports = "/Users/alice/Library/Logs/DiagnosticReports/";
constexpr double kLaunched = 1293870000;  ///< an hour and 40 minutes before now

class Listener : public TGBugReporterDelegate {
 public:
  void applicationDidCrashWithLog(const std::string& path) override { heard.push_back(path); }
  std::vector<std::string> heard;
};

class TGBugReporterTest : public LogFixture {
 protected:
  void SetUp() override {
    TGLog::createNewLog("Quillmend");
    fake.subprocesses.executables.insert("/usr/sbin/chown");
    fake.applications.paths[identifiers::kBugReporterApplication] = "/Applications/Bug Reporter.app";
  }

  void stampDefaults(const std::string& key, double moment) {
    fake.preferences.values.set(key, Date::fromUnixTime(moment));
  }

  void writeStore(const std::string& path, const PropertyList& content) {
    fake.files.makeFolder("/Users/alice/Library/Preferences");
    ASSERT_TRUE(platform::writePropertyList(path, content, platform::PropertyListFormat::binary));
  }

  [[nodiscard]] static PropertyList readStore(const std::string& path) {
    return platform::readDictionary(path).value();
  }

  /// A report whose content changed that many seconds after the launch.
  void makeReport(const std::string& path, double secondsAfterLaunch) {
    fake.files.makeFile(path, "crash");
    const double moment = kLaunched + secondsAfterLaunch;
    timespec time{};
    time.tv_sec = static_cast<time_t>(std::floor(moment));
    time.tv_nsec = std::lround((moment - std::floor(moment)) * 1e9);
    const std::array<timespec, 2> times = {time, time};
    ASSERT_EQ(::utimensat(AT_FDCWD, fake.files.real(path).c_str(), times.data(), 0), 0);
  }

  [[nodiscard]] std::vector<std::string> opened() const { return fake.recorder.only({"open"}); }
};

TEST_F(TGBugReporterTest, TheFirstRunHasNothingToJudge) {
  makeReport(std::string(kUserReports) + "Quillmend_1.crash", 10);
  EXPECT_EQ(TGBugReporter::checkForCrashes(), std::nullopt);
  EXPECT_EQ(content(generation(1)), kHeader);
  EXPECT_THAT(opened(), IsEmpty());
}

TEST_F(TGBugReporterTest, AReportNewerThanALaunchWithoutExitIsFoundAndOpened) {
  stampDefaults("launch", kLaunched);
  const std::string report = std::string(kUserReports) + "Quillmend_2011-01-01.crash";
  makeReport(report, 10);
  EXPECT_EQ(TGBugReporter::checkForCrashes(), report);
  EXPECT_EQ(entries(generation(1)), entry("Application crashed on last launch"));
  EXPECT_THAT(opened(), ElementsAre("open " + report + " with /Applications/Bug Reporter.app"));
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGBugReporterTest, TheBundlesOwnBugReporterComesFirst) {
  stampDefaults("launch", kLaunched);
  const std::string report = std::string(kUserReports) + "Quillmend_1.crash";
  makeReport(report, 10);
  const std::string reporter = "/Applications/Quillmend.app/Contents/Resources/Bug Reporter.app";
  fake.files.makeFolder(reporter);
  EXPECT_EQ(TGBugReporter::checkForCrashes(), report);
  EXPECT_THAT(opened(), ElementsAre("open " + report + " with " + reporter));
}

TEST_F(TGBugReporterTest, WithoutABugReporterThePathIsStillAnswered) {
  stampDefaults("launch", kLaunched);
  fake.applications.paths.clear();
  const std::string report = std::string(kUserReports) + "Quillmend_1.crash";
  makeReport(report, 10);
  EXPECT_EQ(TGBugReporter::checkForCrashes(), report);
  EXPECT_THAT(opened(), IsEmpty());
}

TEST_F(TGBugReporterTest, AnExitOlderThanTheLaunchIsACrash) {
  stampDefaults("launch", kLaunched);
  stampDefaults("exit", kLaunched - 0.5);
  makeReport(std::string(kUserReports) + "Quillmend_1.crash", 10);
  EXPECT_NE(TGBugReporter::checkForCrashes(), std::nullopt);
}

class TGBugReporterCleanExitTest : public TGBugReporterTest, public testing::WithParamInterface<double> {};

TEST_P(TGBugReporterCleanExitTest, NoFolderIsLookedAt) {
  stampDefaults("launch", kLaunched);
  stampDefaults("exit", kLaunched + GetParam());
  makeReport(std::string(kUserReports) + "Quillmend_1.crash", 10);
  bool lookedUp = false;
  fake.users.searchPathsOverride = [&](auto, auto) {
    lookedUp = true;
    return std::optional<std::vector<std::string>>();
  };
  EXPECT_EQ(TGBugReporter::checkForCrashes(), std::nullopt);
  EXPECT_FALSE(lookedUp);
}

INSTANTIATE_TEST_SUITE_P(SecondsAfterLaunch, TGBugReporterCleanExitTest, testing::Values(0.0, 0.5, 3600.0));

TEST_F(TGBugReporterTest, AReportOfTheLaunchTimeItselfDoesNotCount) {
  stampDefaults("launch", kLaunched);
  makeReport(std::string(kUserReports) + "Quillmend_1.crash", 0);
  EXPECT_EQ(TGBugReporter::checkForCrashes(), std::nullopt);
  makeReport(std::string(kUserReports) + "Quillmend_1.crash", 0.25);
  EXPECT_NE(TGBugReporter::checkForCrashes(), std::nullopt);
}

TEST_F(TGBugReporterTest, NamesMatchByTheirBeginningWhateverTheCase) {
  stampDefaults("launch", kLaunched);
  const std::string report = std::string(kUserReports) + "quillmend_2011-01-01.crash";
  makeReport(std::string(kUserReports) + "zQuillmend_1.crash", 10);
  makeReport(std::string(kUserReports) + "Quillmend.task_1.crash", 10);
  EXPECT_EQ(TGBugReporter::checkForCrashes("Quillmend", std::nullopt), std::nullopt);
  makeReport(report, 10);
  EXPECT_EQ(TGBugReporter::checkForCrashes("Quillmend", std::nullopt), report);
  EXPECT_EQ(TGBugReporter::checkForCrashes("QUILLMEND", std::nullopt), report);
}

TEST_F(TGBugReporterTest, ANameIsNoPattern) {
  stampDefaults("launch", kLaunched);
  makeReport(std::string(kUserReports) + "Quillmend_1.crash", 10);
  EXPECT_EQ(TGBugReporter::checkForCrashes(".*", std::nullopt), std::nullopt);
  EXPECT_EQ(TGBugReporter::checkForCrashes("%@' OR '1' == '1", std::nullopt), std::nullopt);
}

TEST_F(TGBugReporterTest, NoNameStandsForTheBundles) {
  stampDefaults("launch", kLaunched);
  fake.mainBundle.info.set("CFBundleName", "Renamed");
  makeReport(std::string(kUserReports) + "Quillmend_1.crash", 10);
  EXPECT_EQ(TGBugReporter::checkForCrashes(), std::nullopt);
  makeReport(std::string(kUserReports) + "Renamed_1.crash", 10);
  EXPECT_EQ(TGBugReporter::checkForCrashes(), std::string(kUserReports) + "Renamed_1.crash");
}

TEST_F(TGBugReporterTest, ABundleWithoutANameFindsNothing) {
  stampDefaults("launch", kLaunched);
  fake.mainBundle.info = PropertyList();
  makeReport(std::string(kUserReports) + "Quillmend_1.crash", 10);
  makeReport(std::string(kUserReports) + "_1.crash", 10);
  EXPECT_EQ(TGBugReporter::checkForCrashes(), std::nullopt);
}

TEST_F(TGBugReporterTest, OnlyTheLastReportInListingOrderIsLookedAt) {
  stampDefaults("launch", kLaunched);
  makeReport(std::string(kUserReports) + "Quillmend_1.crash", 10);
  makeReport(std::string(kUserReports) + "Quillmend_2.crash", -10);
  makeReport(std::string(kUserReports) + "Zebra.crash", 10);
  EXPECT_EQ(TGBugReporter::checkForCrashes(), std::nullopt);
  makeReport(std::string(kUserReports) + "Quillmend_3.crash", 10);
  EXPECT_EQ(TGBugReporter::checkForCrashes(), std::string(kUserReports) + "Quillmend_3.crash");
}

TEST_F(TGBugReporterTest, TheFoldersAreSearchedTheUsersFirst) {
  stampDefaults("launch", kLaunched);
  const std::vector<std::string> folders = {
      "/Users/alice/Library/Logs/CrashReporter/", "/Users/alice/Library/Logs/DiagnosticReports/",
      "/Library/Logs/CrashReporter/", "/Library/Logs/DiagnosticReports/"};
  for (const std::string& folder : folders) makeReport(folder + "Quillmend_1.crash", 10);
  for (const std::string& folder : folders) {
    EXPECT_EQ(TGBugReporter::checkForCrashes(), folder + "Quillmend_1.crash");
    makeReport(folder + "Quillmend_1.crash", -10);
  }
  EXPECT_EQ(TGBugReporter::checkForCrashes(), std::nullopt);
}

class TGBugReporterNamesTest : public TGBugReporterTest, public testing::WithParamInterface<const char*> {};

TEST_P(TGBugReporterNamesTest, OnlyTheBeginningOfAReportsNameIsLookedAt) {
  stampDefaults("launch", kLaunched);
  const std::string report = std::string(kUserReports) + GetParam();
  makeReport(report, 10);
  EXPECT_EQ(TGBugReporter::checkForCrashes("Quillmend", std::nullopt), report);
}

INSTANTIATE_TEST_SUITE_P(Endings, TGBugReporterNamesTest,
                         testing::Values("Quillmend_2011-01-01-120000_host.crash",
                                         "Quillmend_2026-01-01-120000.ips", "quillmend_1.IPS",
                                         "Quillmend_1.crash.synced", "Quillmend_"));

TEST_F(TGBugReporterTest, ReportsOfBothEndingsAreOneList) {
  stampDefaults("launch", kLaunched);
  const std::string folder = kUserReports;
  makeReport(folder + "Quillmend_2011-01-01.crash", 10);
  makeReport(folder + "Quillmend_2011-01-02.ips", 20);
  EXPECT_EQ(TGBugReporter::checkForCrashes(), folder + "Quillmend_2011-01-02.ips");
  makeReport(folder + "Quillmend_2011-01-03.crash", -10);
  EXPECT_EQ(TGBugReporter::checkForCrashes(), std::nullopt) << "the last one decides, whatever its ending";
}

TEST_F(TGBugReporterTest, AFolderThatCannotBeListedContributesNothing) {
  stampDefaults("launch", kLaunched);
  fake.files.makeFile("/Users/alice/Library/Logs/CrashReporter", "no folder");
  const std::string report = std::string(kUserReports) + "Quillmend_1.crash";
  makeReport(report, 10);
  EXPECT_EQ(TGBugReporter::checkForCrashes(), report);
}

TEST_F(TGBugReporterTest, ADomainWithoutALibraryContributesNothing) {
  stampDefaults("launch", kLaunched);
  const std::string report = "/Library/Logs/DiagnosticReports/Quillmend_1.ips";
  makeReport(report, 10);
  fake.users.searchPathsOverride =
      [](auto, platform::SearchPathDomain domain) -> std::optional<std::vector<std::string>> {
    if (domain == platform::SearchPathDomain::user) return std::vector<std::string>();
    return std::nullopt;
  };
  EXPECT_EQ(TGBugReporter::checkForCrashes(), report);
}

TEST_F(TGBugReporterTest, ACrashIsToldOfOnceAndACleanExitIsNone) {
  writeStore(kStore, PropertyList::Dictionary{});
  Listener listener;
  TGBugReporter::startBugReporter("Quillmend", kStore, &listener);
  const double launched = fake.clock.start.unixTime();
  makeReport(std::string(kUserReports) + "Quillmend_1.ips", launched - kLaunched + 10);
  fake.clock.start = Date::fromUnixTime(launched + 60);
  TGBugReporter::startBugReporter("Quillmend", kStore, &listener);
  EXPECT_THAT(listener.heard, ElementsAre(std::string(kUserReports) + "Quillmend_1.ips"));
  fake.clock.start = Date::fromUnixTime(launched + 120);
  TGBugReporter::startBugReporter("Quillmend", kStore, &listener);
  EXPECT_THAT(listener.heard, testing::SizeIs(1)) << "the report is older than the last launch";
  fake.clock.start = Date::fromUnixTime(launched + 180);
  TGBugReporter::stopBugReporter(kStore);
  makeReport(std::string(kUserReports) + "Quillmend_2.ips", launched - kLaunched + 170);
  TGBugReporter::startBugReporter("Quillmend", kStore, &listener);
  EXPECT_THAT(listener.heard, testing::SizeIs(1));
}

TEST_F(TGBugReporterTest, AsRootTheFoldersAreThoseOfTheUserAtTheConsole) {
  fake.users.user = 0;
  fake.users.console = "bob";
  stampDefaults("launch", kLaunched);
  makeReport(std::string(kUserReports) + "Quillmend_1.crash", 10);
  EXPECT_EQ(TGBugReporter::checkForCrashes(), std::nullopt);
  const std::string report = "/Users/bob/Library/Logs/DiagnosticReports/Quillmend_1.crash";
  makeReport(report, 10);
  EXPECT_EQ(TGBugReporter::checkForCrashes(), report);
}

TEST_F(TGBugReporterTest, AReportThatIsADanglingLinkIsPassedOver) {
  stampDefaults("launch", kLaunched);
  fake.files.makeFolder(kUserReports);
  std::filesystem::create_symlink("/nowhere", fake.files.real(std::string(kUserReports) + "Quillmend_9"));
  const std::string report = "/Library/Logs/CrashReporter/Quillmend_1.crash";
  makeReport(report, 10);
  EXPECT_EQ(TGBugReporter::checkForCrashes(), report);
}

TEST_F(TGBugReporterTest, SwitchedOffTheCrashIsLoggedAndAnsweredButNotOpened) {
  setGlobalPreference("disable-crash-reporter", "1");
  stampDefaults("launch", kLaunched);
  const std::string report = std::string(kUserReports) + "Quillmend_1.crash";
  makeReport(report, 10);
  Listener listener;
  TGBugReporter::startBugReporterWithDelegate(&listener);
  EXPECT_THAT(listener.heard, ElementsAre(report));
  EXPECT_EQ(entries(generation(1)),
            entry("Application crashed on last launch") + entry("Crash reporter disabled"));
  EXPECT_THAT(messages(), ElementsAre("Crash reporter disabled"));
  EXPECT_THAT(opened(), IsEmpty());
}

TEST_F(TGBugReporterTest, OtherValuesOfTheSwitchDoNotSwitchOff) {
  setGlobalPreference("disable-crash-reporter", "YES");
  stampDefaults("launch", kLaunched);
  makeReport(std::string(kUserReports) + "Quillmend_1.crash", 10);
  TGBugReporter::checkForCrashes();
  EXPECT_THAT(opened(), testing::SizeIs(1));
}

TEST_F(TGBugReporterTest, StartingTellsTheDelegateOnTheMainThreadWithoutWaiting) {
  stampDefaults("launch", kLaunched);
  fake.mainThread.recordsWork = true;
  const std::string report = std::string(kUserReports) + "Quillmend_1.crash";
  makeReport(report, 10);
  Listener listener;
  TGBugReporter::startBugReporterWithDelegate(&listener);
  EXPECT_THAT(listener.heard, ElementsAre(report));
  EXPECT_THAT(fake.recorder.lines(),
              ElementsAre("open " + report + " with /Applications/Bug Reporter.app", "main (no wait)",
                          "preference launch = 2011-01-01 10:00:00 +0000", "synchronize preferences"));
}

TEST_F(TGBugReporterTest, WithoutACrashTheDelegateHearsNothing) {
  Listener listener;
  TGBugReporter::startBugReporter("Quillmend", std::nullopt, &listener);
  EXPECT_THAT(listener.heard, IsEmpty());
}

TEST_F(TGBugReporterTest, StartAndStopStampTheUserDefaults) {
  TGBugReporter::startBugReporter();
  fake.clock.start = Date::fromUnixTime(1293876060);
  TGBugReporter::stopBugReporter();
  EXPECT_THAT(fake.recorder.lines(),
              ElementsAre("preference launch = 2011-01-01 10:00:00 +0000", "synchronize preferences",
                          "preference exit = 2011-01-01 10:01:00 +0000", "synchronize preferences"));
  EXPECT_EQ(*fake.preferences.values.find("exit"), PropertyList(fake.clock.start));
}

TEST_F(TGBugReporterTest, StampingAFileKeepsItsOtherKeysAndGivesItToItsHome) {
  writeStore(kStore, PropertyList::Dictionary{{"other", 7}});
  TGBugReporter::startBugReporter("Quillmend", kStore);
  TGBugReporter::stopBugReporter(kStore);
  const PropertyList::Dictionary expected = {
      {"other", 7}, {"launch", fake.clock.start}, {"exit", fake.clock.start}};
  EXPECT_EQ(readStore(kStore), PropertyList(expected));
  const std::string chown = std::string("run /usr/sbin/chown alice ") + kStore;
  EXPECT_THAT(fake.recorder.lines(), ElementsAre(chown, chown)) << "and the user defaults are left alone";
}

TEST_F(TGBugReporterTest, AMissingStoreIsMade) {
  fake.files.makeFolder("/Users/alice/Library/Preferences");
  TGBugReporter::startBugReporter("Quillmend", kStore);
  EXPECT_EQ(readStore(kStore), PropertyList(PropertyList::Dictionary{{"launch", fake.clock.start}}));
}

TEST_F(TGBugReporterTest, AMalformedStoreCountsAsEmpty) {
  for (const char* malformed : {"", "bplist00", "<plist version=\"1.0\"><array/></plist>", "nonsense"}) {
    fake.files.makeFile(kStore, malformed);
    EXPECT_EQ(TGBugReporter::checkForCrashes("Quillmend", kStore), std::nullopt);
    TGBugReporter::stopBugReporter(kStore);
    EXPECT_EQ(readStore(kStore), PropertyList(PropertyList::Dictionary{{"exit", fake.clock.start}}));
  }
}

TEST_F(TGBugReporterTest, TheStampsOfAFileDecideWhenAPathIsGiven) {
  writeStore(kStore, PropertyList::Dictionary{{"launch", Date::fromUnixTime(kLaunched)}});
  stampDefaults("launch", kLaunched);
  stampDefaults("exit", kLaunched + 1);
  const std::string report = std::string(kUserReports) + "Quillmend_1.crash";
  makeReport(report, 10);
  EXPECT_EQ(TGBugReporter::checkForCrashes("Quillmend", kStore), report);
  EXPECT_EQ(TGBugReporter::checkForCrashes(), std::nullopt);
}

TEST_F(TGBugReporterTest, StampsThatAreNoDatesCountAsAbsent) {
  makeReport(std::string(kUserReports) + "Quillmend_1.crash", 10);
  writeStore(kStore, PropertyList::Dictionary{{"launch", "yesterday"}});
  EXPECT_EQ(TGBugReporter::checkForCrashes("Quillmend", kStore), std::nullopt);
  writeStore(kStore, PropertyList::Dictionary{{"launch", Date::fromUnixTime(kLaunched)}, {"exit", 7}});
  EXPECT_NE(TGBugReporter::checkForCrashes("Quillmend", kStore), std::nullopt);
}

TEST_F(TGBugReporterTest, AStoreThatCannotBeWrittenIsPassedOver) {
  failChange("writeAtomically");
  TGBugReporter::startBugReporter("Quillmend", kStore);
  EXPECT_FALSE(fake.files.exists(kStore));
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGBugReporterTest, RootFollowsNoLinkPlantedInThePlaceOfTheStore) {
  const std::string secret = "/private/var/root/secret.plist";
  fake.files.makeFolder("/private/var/root");
  writeStore(secret, PropertyList::Dictionary{{"password", "secret"}});
  std::filesystem::create_symlink(fake.files.real(secret), fake.files.real(kStore));
  fake.users.user = 0;
  TGBugReporter::startBugReporter("Quillmend", kStore);
  EXPECT_EQ(readStore(kStore), PropertyList(PropertyList::Dictionary{{"launch", fake.clock.start}}));
  EXPECT_FALSE(std::filesystem::is_symlink(fake.files.real(kStore)));
  EXPECT_EQ(readStore(secret), PropertyList(PropertyList::Dictionary{{"password", "secret"}}));
}

TEST_F(TGBugReporterTest, AnExceptionInTheCheckIsLoggedAndNothingAnswered) {
  stampDefaults("launch", kLaunched);
  fake.users.searchPathsOverride = [](auto, auto) -> std::optional<std::vector<std::string>> {
    throw foundation::Exception("Name", "reason");
  };
  EXPECT_EQ(TGBugReporter::checkForCrashes(), std::nullopt);
  EXPECT_THAT(messages(),
              ElementsAre("Exception in +[TGBugReporter checkForCrashes:plistPath:]. Name - reason."));
  TGBugReporter::startBugReporter();
  EXPECT_THAT(fake.recorder.lines(), Contains("preference launch = 2011-01-01 10:00:00 +0000"));
}

TEST_F(TGBugReporterTest, ExceptionsOfStartAndStopAreLoggedUnderTheirNames) {
  fake.files.makeFolder("/Users/alice/Library/Preferences");
  fake.subprocesses.runs["/usr/sbin/chown"].launchFailure = foundation::Exception("Name", "reason");
  TGBugReporter::startBugReporter("Quillmend", kStore);
  TGBugReporter::stopBugReporter(kStore);
  TGBugReporter::chownPlist(kStore);
  EXPECT_THAT(
      messages(),
      ElementsAre("Exception in +[TGBugReporter startBugReporter:plistPath:delegate:]. Name - reason.",
                  "Exception in +[TGBugReporter stopBugReporter:]. Name - reason.",
                  "Exception in +[TGBugReporter chownPlist:]. Name - reason."));
}

TEST_F(TGBugReporterTest, ChownGivesAFileToTheFolderBelowTheFirstUsers) {
  TGBugReporter::chownPlist("/Users/alice/Library/Preferences/x.plist");
  TGBugReporter::chownPlist("/Volumes/Users/bob/Users/carol/x.plist");
  TGBugReporter::chownPlist("Users/dave");
  EXPECT_THAT(fake.recorder.lines(),
              ElementsAre("run /usr/sbin/chown alice /Users/alice/Library/Preferences/x.plist",
                          "run /usr/sbin/chown bob /Volumes/Users/bob/Users/carol/x.plist",
                          "run /usr/sbin/chown dave Users/dave"));
}

TEST_F(TGBugReporterTest, ChownLeavesAPathOutsideUsersAlone) {
  for (const char* path : {"/Library/Preferences/x.plist", "/Users", "/Volumes/Users/", "/users/alice/x",
                           "/AllUsers/alice/x", ""}) {
    TGBugReporter::chownPlist(path);
  }
  EXPECT_THAT(fake.recorder.lines(), IsEmpty());
}

}  // namespace
