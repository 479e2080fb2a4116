#include "diagnostics/TGTroubleshootingUtils.h"

#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "tests/diagnostics/LogFixture.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/PathStatus.h"

namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Names = std::vector<std::string>;

constexpr const char* kStaging = "/private/tmp/TG_App_Logs";
constexpr const char* kDitto = "/usr/bin/ditto";
const std::string kUserLogs = "/Users/alice/Library/Logs/Vordenworks/";
const std::string kLocalLogs = "/Library/Logs/Vordenworks/";
const std::string kUserCrashes = "/Users/alice/Library/Logs/CrashReporter/";
const std::string kUserPreferences = "/Users/alice/Library/Preferences/";
const std::string kArchive = "/Users/alice/Desktop/Quillmend Logs.zip";

/// What lies below a folder: paths from it, with contents; "-> TARGET" for links, "(folder)" for empty
/// folders.
using Tree = std::map<std::string, std::string>;

class TGTroubleshootingUtilsTest : public LogFixture {
 protected:
  void SetUp() override {
    fake.subprocesses.executables.insert(kDitto);
    fake.files.makeFolder("/Users/alice/Desktop");
    fake.subprocesses.runs[kDitto].whenLaunched = [this] { pack(); };
  }

  /// What ditto does, as far as it matters here; keeps what it found.
  void pack() {
    archived = tree(kStaging);
    modeOfStaging = mode(kStaging);
    if (!canPack) return;
    const auto& arguments = fake.subprocesses.created.back().arguments;
    fake.files.makeFile(arguments.back(), "archive");
  }

  [[nodiscard]] Tree tree(const std::string& folder) const {
    Tree found;
    const std::string root = fake.files.real(folder);
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
      const std::string path = entry.path().string();
      auto& what = found[path.substr(root.size())];
      if (entry.is_symlink()) {
        what = "-> " + fs::read_symlink(entry.path()).string();
      } else if (entry.is_directory()) {
        what = "(folder)";
        if (!fs::is_empty(entry.path())) found.erase(path.substr(root.size()));
      } else {
        std::ifstream stream(entry.path(), std::ios::binary);
        what = {std::istreambuf_iterator<char>(stream), {}};
      }
    }
    return found;
  }

  [[nodiscard]] mode_t mode(const std::string& path) const { return support::modeAt(fake.files.real(path)); }

  void makeLink(const std::string& path, const std::string& target) {
    fake.files.makeFolder(fs::path(path).parent_path());
    fs::create_symlink(target, fake.files.real(path));
  }

  [[nodiscard]] bool isThere(const std::string& path) const {
    return fs::exists(fs::symlink_status(fake.files.real(path)));
  }

  [[nodiscard]] std::vector<std::string> alerts() const { return fake.recorder.only({"alert"}); }

  static bool gather(const std::string& name = "Quillmend") {
    return TGTroubleshootingUtils::gatherLogsForAppWithName(name);
  }

  /// What a gathering that fails adds to the log.
  [[nodiscard]] std::string logOfGathering() {
    TGLog::createNewLog("Quillmend");
    TGLog::finishWriting();
    EXPECT_FALSE(gather());
    TGLog::finishWriting();
    return entries(generation(1));
  }

  Tree archived;
  mode_t modeOfStaging = 0;
  bool canPack = true;
};

// Viewing.

TEST_F(TGTroubleshootingUtilsTest, TheCurrentLogIsOpened) {
  fake.files.makeFile(kUserLogs + "Quillmend.1.log");
  TGTroubleshootingUtils::viewLogForApp("Quillmend");
  EXPECT_THAT(fake.recorder.lines(), ElementsAre("open " + kUserLogs + "Quillmend.1.log"));
}

TEST_F(TGTroubleshootingUtilsTest, TheTaskLogHasItsGenerationBeforeTheWordTask) {
  fake.files.makeFile(kUserLogs + "Quillmend.1.task.log");
  TGTroubleshootingUtils::viewTaskLogForApp("Quillmend");
  EXPECT_THAT(fake.recorder.lines(), ElementsAre("open " + kUserLogs + "Quillmend.1.task.log"));
}

TEST_F(TGTroubleshootingUtilsTest, TheNameUnderWhichTaskLogsAreWrittenIsNotTheOneLookedFor) {
  fake.files.makeFile(kUserLogs + "Quillmend.task.1.log");
  TGTroubleshootingUtils::viewTaskLogForApp("Quillmend");
  EXPECT_THAT(
      fake.recorder.lines(),
      ElementsAre(
          "alert No log found: You must run the application as a task (e.g. through Tickwarden) before "
          "viewing a log."));
}

TEST_F(TGTroubleshootingUtilsTest, AMissingLogIsSaidToBeMissing) {
  fake.files.makeFile(kUserLogs + "Quillmend.2.log");
  fake.files.makeFile(kLocalLogs + "Quillmend.1.log");
  TGTroubleshootingUtils::viewLogForApp("Quillmend");
  EXPECT_THAT(fake.recorder.lines(),
              ElementsAre("alert No log found: You must perform a task before viewing the log."));
}

TEST_F(TGTroubleshootingUtilsTest, WithoutALibraryThereIsNoLog) {
  fake.users.searchPathsOverride = [](auto, auto) { return std::vector<std::string>(); };
  TGTroubleshootingUtils::viewLogForApp("Quillmend");
  EXPECT_THAT(fake.recorder.lines(),
              ElementsAre("alert No log found: You must perform a task before viewing the log."));
}

TEST_F(TGTroubleshootingUtilsTest, AsRootTheLogOfTheUserAtTheConsoleIsShown) {
  fake.users.user = 0;
  fake.users.console = "bob";
  fake.files.makeFile("/Users/bob/Library/Logs/Vordenworks/Quillmend.1.log");
  TGTroubleshootingUtils::viewLogForApp("Quillmend");
  EXPECT_THAT(fake.recorder.lines(), ElementsAre("open /Users/bob/Library/Logs/Vordenworks/Quillmend.1.log"));
}

// Gathering: what is copied.

TEST_F(TGTroubleshootingUtilsTest, EverythingIsPackedUnderItsFullPath) {
  fake.files.makeFile(kUserLogs + "Quillmend.1.log", "user log");
  fake.files.makeFile(kUserCrashes + "Quillmend_1.crash", "user crash");
  fake.files.makeFile(kUserPreferences + "com.vordenworks.Quillmend.plist", "user preferences");
  fake.files.makeFile(kLocalLogs + "Quillmend.task.1.log", "local log");
  fake.files.makeFile("/Library/Logs/CrashReporter/Quillmend_2.crash", "local crash");
  fake.files.makeFile("/Library/Preferences/com.vordenworks.Quillmend.plist", "local preferences");
  EXPECT_TRUE(gather());
  EXPECT_EQ(archived, (Tree{{kUserLogs + "Quillmend.1.log", "user log"},
                            {kUserCrashes + "Quillmend_1.crash", "user crash"},
                            {kUserPreferences + "com.vordenworks.Quillmend.plist", "user preferences"},
                            {kLocalLogs + "Quillmend.task.1.log", "local log"},
                            {"/Library/Logs/CrashReporter/Quillmend_2.crash", "local crash"},
                            {"/Library/Preferences/com.vordenworks.Quillmend.plist", "local preferences"}}));
  EXPECT_THAT(
      fake.recorder.lines(),
      ElementsAre("run /usr/bin/ditto -ck --keepParent " + std::string(kStaging) + " " + kArchive,
                  "alert Logs gathered successfully: The gathered logs were placed on your desktop."));
  EXPECT_THAT(messages(), IsEmpty());
  EXPECT_FALSE(isThere(kStaging));
}

TEST_F(TGTroubleshootingUtilsTest, LogsAreTakenByTheBeginningOfTheirName) {
  for (int number = 1; number <= 5; ++number) {
    fake.files.makeFile(kUserLogs + "Quillmend." + std::to_string(number) + ".log");
  }
  for (const char* meant :
       {"Quillmend.task.1.log", "Quillmend.1.task.log", "QuillmendHelper.1.log", "Quillmend.log"}) {
    fake.files.makeFile(kUserLogs + meant);
  }
  for (const char* other : {"Tickwarden.1.log", "quillmend.1.log", "Quillmend.1.LOG", "Quillmend.1.log.gz",
                            "My Quillmend.1.log", "Quillmend.txt", "Quillmendlog"}) {
    fake.files.makeFile(kUserLogs + other);
  }
  EXPECT_TRUE(gather());
  std::set<std::string> names;
  for (const auto& [path, content] : archived) names.insert(fs::path(path).filename());
  EXPECT_THAT(names, UnorderedElementsAre("Quillmend.1.log", "Quillmend.2.log", "Quillmend.3.log",
                                          "Quillmend.4.log", "Quillmend.5.log", "Quillmend.task.1.log",
                                          "Quillmend.1.task.log", "QuillmendHelper.1.log", "Quillmend.log"));
}

TEST_F(TGTroubleshootingUtilsTest, CrashReportsAreTakenByNameAndUnderscore) {
  const std::string report = kUserCrashes + "Quillmend_2011-01-01-120000_host.crash";
  fake.files.makeFile(report, "crash");
  for (const char* other :
       {"QuillmendHelper_2011-01-01-120000_host.crash", "Quillmend.crash", "quillmend_1.crash",
        "Quillmend_2011-01-01-120000_host.ips", "Quillmend_1.CRASH", "Quillmend_1.log", "Quillmend.1.log"}) {
    fake.files.makeFile(kUserCrashes + other);
  }
  fake.files.makeFile("/Users/alice/Library/Logs/DiagnosticReports/Quillmend_1.crash");
  EXPECT_TRUE(gather());
  EXPECT_EQ(archived, (Tree{{report, "crash"}}));
}

TEST_F(TGTroubleshootingUtilsTest, APreferencesFileHasTheNameWithoutBlanks) {
  fake.files.makeFile(kUserPreferences + "com.vordenworks.DiskTuneUp.plist", "exact");
  fake.files.makeFile(kUserPreferences + "com.vordenworks.disktuneup.plist", "lower case");
  EXPECT_TRUE(gather(" Disk Tune Up"));
  EXPECT_EQ(archived, (Tree{{kUserPreferences + "com.vordenworks.DiskTuneUp.plist", "exact"}}));
}

TEST_F(TGTroubleshootingUtilsTest, APreferencesFileMayHaveTheNameInLowerCase) {
  fake.files.makeFile(kUserPreferences + "com.vordenworks.disktuneup.plist", "lower case");
  fake.files.makeFile(kUserPreferences + "com.vordenworks.Disk Tune Up.plist", "with blanks");
  fake.files.makeFile("/Library/Preferences/com.vordenworks.DISKTUNEUP.plist", "upper case");
  EXPECT_TRUE(gather("Disk Tune Up"));
  EXPECT_EQ(archived, (Tree{{kUserPreferences + "com.vordenworks.disktuneup.plist", "lower case"}}));
}

TEST_F(TGTroubleshootingUtilsTest, SeveralNamesGoIntoOneArchiveOfTheFirstName) {
  fake.files.makeFile(kUserLogs + "Tickwarden.1.log", "t");
  fake.files.makeFile(kUserLogs + "Quillmend.1.log", "q");
  fake.files.makeFile(kUserPreferences + "com.vordenworks.quillmend.plist", "p");
  EXPECT_TRUE(TGTroubleshootingUtils::gatherLogsForAppsWithNames({"Tickwarden", "Quillmend"}));
  EXPECT_EQ(archived, (Tree{{kUserLogs + "Tickwarden.1.log", "t"},
                            {kUserLogs + "Quillmend.1.log", "q"},
                            {kUserPreferences + "com.vordenworks.quillmend.plist", "p"}}));
  EXPECT_TRUE(fake.files.exists("/Users/alice/Desktop/Tickwarden Logs.zip"));
}

TEST_F(TGTroubleshootingUtilsTest, AFileThatSeveralNamesMeanIsCopiedOnce) {
  fake.files.makeFile(kUserLogs + "Quillmend.1.log", "q");
  fake.files.makeFile(kUserPreferences + "com.vordenworks.Quillmend.plist", "p");
  makeLink(kUserLogs + "Quillmend.2.log", "/nowhere");
  std::map<std::string, int> copies;
  fake.files.beforeChange = [&](const std::string& change, const std::string& path) {
    if (change == "copy") ++copies[path];
    return std::optional<foundation::Error>();
  };
  EXPECT_TRUE(TGTroubleshootingUtils::gatherLogsForAppsWithNames({"Quill", "Quillmend", "Quill mend"}));
  EXPECT_EQ(copies, (std::map<std::string, int>{{kUserLogs + "Quillmend.1.log", 1},
                                                {kUserLogs + "Quillmend.2.log", 1},
                                                {kUserPreferences + "com.vordenworks.Quillmend.plist", 1}}));
}

TEST_F(TGTroubleshootingUtilsTest, AFileReachableFromBothDomainsIsGatheredInBoth) {
  fake.files.makeFile(kUserLogs + "Quillmend.1.log", "same");
  fake.files.makeFolder("/Library/Logs");
  fs::create_directory_symlink(fake.files.real("/Users/alice/Library/Logs/Vordenworks"),
                               fake.files.real("/Library/Logs/Vordenworks"));
  EXPECT_TRUE(gather());
  EXPECT_EQ(archived,
            (Tree{{kUserLogs + "Quillmend.1.log", "same"}, {kLocalLogs + "Quillmend.1.log", "same"}}));
}

TEST_F(TGTroubleshootingUtilsTest, TheUsersDomainComesFirstAndLogsComeFirstInIt) {
  const std::vector<std::string> expected = {kUserLogs + "Quillmend.1.log",
                                             kUserLogs + "Quillmend.2.log",
                                             kUserCrashes + "Quillmend_1.crash",
                                             kUserPreferences + "com.vordenworks.quillmend.plist",
                                             kLocalLogs + "Quillmend.1.log",
                                             "/Library/Logs/CrashReporter/Quillmend_1.crash",
                                             "/Library/Preferences/com.vordenworks.quillmend.plist",
                                             "/additional"};
  for (auto path = expected.rbegin(); path != expected.rend(); ++path) fake.files.makeFile(*path);
  std::vector<std::string> copied;
  fake.files.beforeChange = [&](const std::string& change, const std::string& path) {
    if (change == "copy") copied.push_back(path);
    return std::optional<foundation::Error>();
  };
  EXPECT_TRUE(
      TGTroubleshootingUtils::gatherLogsForAppsWithNames({"Quillmend"}, GatherSilently::no, {"/additional"}));
  EXPECT_EQ(copied, expected);
}

// Links.

TEST_F(TGTroubleshootingUtilsTest, ALinkStandsForTheFileThatItLeadsTo) {
  fake.files.makeFile("/Volumes/Logs/real.txt", "real");
  makeLink(kUserLogs + "Quillmend.1.log", fake.files.real("/Volumes/Logs/real.txt"));
  makeLink(kUserCrashes + "Quillmend_1.crash", fake.files.real("/Volumes/./Logs//../Logs/real.txt"));
  EXPECT_TRUE(gather());
  EXPECT_EQ(archived,
            (Tree{{kUserLogs + "Quillmend.1.log", "real"}, {kUserCrashes + "Quillmend_1.crash", "real"}}));
}

TEST_F(TGTroubleshootingUtilsTest, ARelativeLinkStartsFromItsFolderWhateverTheWorkingFolder) {
  fake.files.makeFile("/Users/alice/Library/Logs/Other/real.txt", "real");
  makeLink(kUserLogs + "Quillmend.1.log", "../Other/real.txt");
  const fs::path before = fs::current_path();
  EXPECT_TRUE(gather());
  EXPECT_EQ(archived, (Tree{{kUserLogs + "Quillmend.1.log", "real"}}));
  EXPECT_EQ(fs::current_path(), before) << "it is that of all threads";
}

TEST_F(TGTroubleshootingUtilsTest, ALinkThatLeadsNowhereIsCopiedAsALink) {
  makeLink(kUserLogs + "Quillmend.1.log", "/nowhere/at all");
  EXPECT_TRUE(gather());
  EXPECT_EQ(archived, (Tree{{kUserLogs + "Quillmend.1.log", "-> /nowhere/at all"}}));
}

TEST_F(TGTroubleshootingUtilsTest, PreferencesThatAreALinkAreCopiedAsALink) {
  fake.files.makeFile("/Volumes/Settings/x.plist", "settings");
  const std::string target = fake.files.real("/Volumes/Settings/x.plist");
  makeLink(kUserPreferences + "com.vordenworks.Quillmend.plist", target);
  EXPECT_TRUE(gather());
  EXPECT_EQ(archived, (Tree{{kUserPreferences + "com.vordenworks.Quillmend.plist", "-> " + target}}));
}

// Additional files.

class AdditionalFilesTest : public TGTroubleshootingUtilsTest {
 protected:
  static bool gatherWith(const Names& files, GatherSilently silent = GatherSilently::no) {
    return TGTroubleshootingUtils::gatherLogsForAppsWithNames({"Quillmend"}, silent, files);
  }
};

TEST_F(AdditionalFilesTest, TheyAreMirroredToo) {
  fake.files.makeFile("/var/log/system.log", "system");
  fake.files.makeFile("/top", "top");
  EXPECT_TRUE(gatherWith({"/var/log/system.log", "/top"})) << "each of them counts";
  EXPECT_EQ(archived, (Tree{{"/var/log/system.log", "system"}, {"/top", "top"}}));
}

TEST_F(AdditionalFilesTest, ALinkIsCopiedAsALink) {
  fake.files.makeFile("/Volumes/Logs/real.txt", "real");
  const std::string target = fake.files.real("/Volumes/Logs/real.txt");
  makeLink("/var/log/link", target);
  EXPECT_TRUE(gatherWith({"/var/log/link"}));
  EXPECT_EQ(archived, (Tree{{"/var/log/link", "-> " + target}}));
}

TEST_F(AdditionalFilesTest, OneThatCannotBeCopiedEndsTheGathering) {
  fake.files.makeFile(kUserLogs + "Quillmend.1.log", "log");
  fake.files.makeFile("/var/log/system.log");
  failChange("copy", "/var/log/system.log");
  EXPECT_FALSE(gatherWith({"/var/log/system.log"}));
  EXPECT_THAT(messages(), ElementsAre("Unable to copy file: /var/log/system.log: Permission denied"));
  EXPECT_THAT(fake.recorder.lines(), IsEmpty()) << "neither archive nor alert";
  EXPECT_EQ(tree(kStaging).at(kUserLogs + "Quillmend.1.log"), "log") << "staging stays";
}

TEST_F(AdditionalFilesTest, AMissingOneEndsTheGathering) {
  fake.files.makeFile(kUserLogs + "Quillmend.1.log");
  EXPECT_FALSE(gatherWith({"/missing"}));
  EXPECT_THAT(messages(), ElementsAre("Unable to copy file: " + fake.files.real("/missing") +
                                      ": No such file or directory"));
}

TEST_F(AdditionalFilesTest, OneThatIsGatheredAlreadyIsInTheWayOfItself) {
  fake.files.makeFile(kUserLogs + "Quillmend.1.log");
  EXPECT_FALSE(gatherWith({kUserLogs + "Quillmend.1.log"}));
  ASSERT_EQ(messages().size(), 1U);
  EXPECT_THAT(messages().front(), testing::EndsWith("Quillmend.1.log: File exists"));
}

TEST_F(AdditionalFilesTest, NonsensePathsEndTheGathering) {
  fake.files.makeFile("/x");
  for (const std::string& nonsense :
       {std::string(), std::string("/"), std::string("/x/."), std::string("/x\0y", 4)}) {
    EXPECT_FALSE(gatherWith({nonsense})) << nonsense;
  }
  EXPECT_THAT(messages(), testing::SizeIs(4));
  EXPECT_THAT(messages(), testing::Each(testing::StartsWith("Unable to copy file: ")));
}

TEST_F(AdditionalFilesTest, StepsUpwardsDoNotLeaveTheMirror) {
  fake.files.makeFile("/x.txt", "x");
  const std::string name = fs::path(fake.files.root()).filename();
  EXPECT_TRUE(gatherWith({"/../" + name + "/x.txt"}));
  EXPECT_EQ(archived, (Tree{{"/" + name + "/x.txt", "x"}}));
  EXPECT_FALSE(isThere("/private/tmp/" + name)) << "beside staging";
}

// Staging.

TEST_F(TGTroubleshootingUtilsTest, StagingIsForThisAccountAlone) {
  const mode_t previous = ::umask(0);
  fake.files.makeFile(kUserLogs + "Quillmend.1.log");
  EXPECT_TRUE(gather());
  ::umask(previous);
  EXPECT_EQ(modeOfStaging, 0700U);
}

TEST_F(TGTroubleshootingUtilsTest, WhatAnEarlierGatheringLeftGoesFirst) {
  fake.files.makeFile(std::string(kStaging) + "/old.log", "old");
  fake.files.makeFile(kUserLogs + "Quillmend.1.log", "new");
  EXPECT_TRUE(gather());
  EXPECT_EQ(archived, (Tree{{kUserLogs + "Quillmend.1.log", "new"}}));
}

TEST_F(TGTroubleshootingUtilsTest, ALinkInThePlaceOfStagingIsRemovedAsALink) {
  for (const char* target : {"/Users/alice/Documents", "/nowhere"}) {
    fake.files.makeFile("/Users/alice/Documents/mine", "mine");
    makeLink(kStaging, fake.files.real(target));
    fake.files.makeFile(kUserLogs + "Quillmend.1.log", "log");
    EXPECT_TRUE(gather());
    EXPECT_EQ(archived, (Tree{{kUserLogs + "Quillmend.1.log", "log"}}));
    EXPECT_EQ(tree("/Users/alice/Documents"), (Tree{{"/mine", "mine"}}));
    EXPECT_FALSE(isThere(kStaging));
    EXPECT_FALSE(fake.files.exists("/nowhere"));
  }
}

TEST_F(TGTroubleshootingUtilsTest, AnExistingFolderThatCannotBeRemovedEndsTheGathering) {
  fake.files.makeFile(kUserLogs + "Quillmend.1.log");
  fake.files.makeFolder(kStaging);
  failChange("remove", kStaging);
  EXPECT_FALSE(gather());
  EXPECT_THAT(messages(), ElementsAre("Error removing existing folder: " + std::string(kStaging) +
                                      ": Permission denied"));
  EXPECT_THAT(fake.recorder.lines(), IsEmpty());
  EXPECT_THAT(tree(kStaging), IsEmpty());
}

TEST_F(TGTroubleshootingUtilsTest, StagingThatCannotBeMadeEndsTheGathering) {
  fake.files.makeFile(kUserLogs + "Quillmend.1.log");
  failChange("createPrivateFolder");
  EXPECT_FALSE(gather());
  EXPECT_THAT(messages(),
              ElementsAre("Error creating temp folder: " + std::string(kStaging) + ": Permission denied"));
  EXPECT_THAT(fake.recorder.lines(), IsEmpty());
}

TEST_F(TGTroubleshootingUtilsTest, WhatSomebodyPutsThereMeanwhileIsNotUsed) {
  fake.files.makeFile(kUserLogs + "Quillmend.1.log");
  fake.files.beforeChange = [&](const std::string& change, const std::string&) {
    if (change == "createPrivateFolder") fake.files.makeFolder(kStaging);
    return std::optional<foundation::Error>();
  };
  EXPECT_FALSE(gather());
  EXPECT_THAT(messages(),
              ElementsAre("Error creating temp folder: " + fake.files.real(kStaging) + ": File exists"));
  EXPECT_THAT(tree(kStaging), IsEmpty());
}

/// Another process, or this one: the window is served while the archive is being made.
TEST_F(TGTroubleshootingUtilsTest, WhatAGatheringUnderWayHasCollectedIsLeftToIt) {
  fake.files.makeFile(kUserLogs + "Quillmend.1.log", "log");
  fake.subprocesses.runs[kDitto].whenLaunched = [this] {
    if (fake.subprocesses.created.size() == 1) {
      EXPECT_FALSE(gather());
    }
    pack();
  };
  EXPECT_TRUE(gather());
  EXPECT_THAT(messages(), ElementsAre("Error removing existing folder: " + fake.files.real(kStaging) +
                                      ": another gathering is using it"));
  EXPECT_THAT(archived,
              ElementsAre(std::pair<const std::string, std::string>(kUserLogs + "Quillmend.1.log", "log")));
  EXPECT_TRUE(gather()) << "when it has ended";
}

// Failures.

TEST_F(TGTroubleshootingUtilsTest, NoNamesAreNoGathering) {
  fake.files.makeFolder(kStaging);
  EXPECT_FALSE(TGTroubleshootingUtils::gatherLogsForAppsWithNames({}));
  EXPECT_FALSE(TGTroubleshootingUtils::gatherLogsForAppsWithNames({}, GatherSilently::no, {"/etc/hosts"}));
  EXPECT_THAT(fake.recorder.lines(), IsEmpty());
  EXPECT_THAT(messages(), IsEmpty());
  EXPECT_TRUE(isThere(kStaging)) << "nothing is touched";
}

TEST_F(TGTroubleshootingUtilsTest, StrangeNamesAreNamesLikeOthers) {
  fake.files.makeFile(kUserLogs + "caf\xe9.1.log", "latin");
  fake.files.makeFile(kUserLogs + "%@.1.log", "format");
  EXPECT_TRUE(gather("caf\xe9"));
  EXPECT_EQ(archived, (Tree{{kUserLogs + "caf\xe9.1.log", "latin"}}));
  EXPECT_TRUE(gather("%@"));
  EXPECT_EQ(archived, (Tree{{kUserLogs + "%@.1.log", "format"}}));
  EXPECT_TRUE(fake.files.exists("/Users/alice/Desktop/%@ Logs.zip"));
  EXPECT_TRUE(gather("")) << "the beginning of every name";
  EXPECT_EQ(archived.size(), 2U);
  EXPECT_TRUE(fake.files.exists("/Users/alice/Desktop/ Logs.zip"));
  for (const std::string& nonsense : {std::string("/"), std::string("../x"), std::string("x\0y", 3)}) {
    EXPECT_FALSE(gather(nonsense));
    TGTroubleshootingUtils::viewLogForApp(nonsense);
    TGTroubleshootingUtils::viewTaskLogForApp(nonsense);
  }
  EXPECT_THAT(messages(), IsEmpty());
}

class CopyFailureTest : public TGTroubleshootingUtilsTest, public testing::WithParamInterface<std::string> {};

TEST_P(CopyFailureTest, EndsTheGatheringAndLeavesStaging) {
  fake.files.makeFile(GetParam());
  fake.files.makeFile("/Library/Preferences/com.vordenworks.Quillmend.plist");
  failChange("copy", GetParam());
  EXPECT_FALSE(gather());
  EXPECT_THAT(messages(), ElementsAre("Unable to copy log: " + GetParam() + ": Permission denied"));
  EXPECT_THAT(fake.recorder.lines(), IsEmpty()) << "neither archive nor alert";
  EXPECT_TRUE(isThere(kStaging));
  EXPECT_EQ(tree(kStaging).count("/Library/Preferences/com.vordenworks.Quillmend.plist"), 0U);
}

INSTANTIATE_TEST_SUITE_P(LogCrashReportAndPreferences, CopyFailureTest,
                         testing::Values(kUserLogs + "Quillmend.1.log", kUserCrashes + "Quillmend_1.crash",
                                         kUserPreferences + "com.vordenworks.Quillmend.plist",
                                         kLocalLogs + "Quillmend.1.log"));

TEST_F(TGTroubleshootingUtilsTest, AMirrorFolderThatCannotBeMadeIsAFileThatCannotBeCopied) {
  fake.files.makeFile(kUserLogs + "Quillmend.1.log");
  fake.authorization.rights = platform::errAuthorizationCanceled;
  TGLog::createNewLog("Quillmend");
  failChange("createDirectory", kStaging + kUserLogs.substr(0, kUserLogs.size() - 1));
  EXPECT_FALSE(gather());
  ASSERT_FALSE(messages().empty());
  EXPECT_THAT(messages().back(), testing::StartsWith("Unable to copy log: "));
}

TEST_F(TGTroubleshootingUtilsTest, NothingFoundIsSaidAndLeavesEmptyStaging) {
  fake.files.makeFile(kUserLogs + "Tickwarden.1.log");
  EXPECT_FALSE(gather());
  EXPECT_THAT(fake.recorder.lines(),
              ElementsAre("alert No logs found: There were no logs available to gather."));
  EXPECT_THAT(tree(kStaging), IsEmpty());
  EXPECT_TRUE(isThere(kStaging));
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGTroubleshootingUtilsTest, AFolderThatCannotBeListedContributesNothing) {
  fake.files.makeFile("/Users/alice/Library/Logs/Vordenworks", "no folder");
  fake.files.makeFile(kLocalLogs + "Quillmend.1.log", "local");
  EXPECT_TRUE(gather());
  EXPECT_EQ(archived, (Tree{{kLocalLogs + "Quillmend.1.log", "local"}}));
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGTroubleshootingUtilsTest, ADomainWithoutALibraryContributesNothing) {
  fake.files.makeFile(kLocalLogs + "Quillmend.1.log", "local");
  fake.users.searchPathsOverride =
      [](platform::SearchPathDirectory directory,
         platform::SearchPathDomain domain) -> std::optional<std::vector<std::string>> {
    if (directory == platform::SearchPathDirectory::library && domain == platform::SearchPathDomain::user) {
      return std::vector<std::string>();
    }
    return std::nullopt;
  };
  EXPECT_TRUE(gather());
  EXPECT_EQ(archived, (Tree{{kLocalLogs + "Quillmend.1.log", "local"}}));
}

TEST_F(TGTroubleshootingUtilsTest, AnArchiveThatIsNotWrittenIsSaidAndStagingGoes) {
  fake.files.makeFile(kUserLogs + "Quillmend.1.log");
  canPack = false;
  EXPECT_FALSE(gather());
  EXPECT_THAT(alerts(), ElementsAre("alert Logs could not be gathered: Please check your file permissions."));
  EXPECT_FALSE(isThere(kStaging));
}

TEST_F(TGTroubleshootingUtilsTest, WithoutADesktopThereIsNoArchive) {
  fake.files.makeFile(kUserLogs + "Quillmend.1.log");
  fake.users.searchPathsOverride = [](platform::SearchPathDirectory directory,
                                      platform::SearchPathDomain) -> std::optional<std::vector<std::string>> {
    if (directory == platform::SearchPathDirectory::desktop) return std::vector<std::string>();
    return std::nullopt;
  };
  EXPECT_FALSE(gather());
  EXPECT_THAT(fake.recorder.lines(),
              ElementsAre("alert Logs could not be gathered: Please check your file permissions."));
  EXPECT_FALSE(isThere(kStaging));
}

TEST_F(TGTroubleshootingUtilsTest, AFolderThatIsMissingIsLoggedWhereTheArchiveCouldNotBeWritten) {
  fs::remove_all(fake.files.real("/Users/alice/Desktop"));
  canPack = false;
  EXPECT_EQ(logOfGathering(),
            entry("Unable to write the archive of the logs: the folder /Users/alice/Desktop is missing"));
  EXPECT_THAT(alerts(), ElementsAre("alert Logs could not be gathered: Please check your file permissions."));
}

TEST_F(TGTroubleshootingUtilsTest, AFileInTheFoldersPlaceIsLoggedToo) {
  fs::remove_all(fake.files.real("/Users/alice/Desktop"));
  fake.files.makeFile("/Users/alice/Desktop");
  canPack = false;
  EXPECT_EQ(logOfGathering(),
            entry("Unable to write the archive of the logs: /Users/alice/Desktop is no folder"));
}

TEST_F(TGTroubleshootingUtilsTest, AFolderThatIsThereIsNotLoggedWhateverWentWrong) {
  canPack = false;
  EXPECT_EQ(logOfGathering(), "");
}

TEST_F(TGTroubleshootingUtilsTest, WhereNothingIsFoundTheFolderIsNotLookedFor) {
  fs::remove_all(fake.files.real("/Users/alice/Desktop"));
  TGLog::createNewLog("Quillmend");
  TGLog::finishWriting();
  EXPECT_FALSE(gather("Tickwarden"));
  TGLog::finishWriting();
  EXPECT_EQ(entries(generation(1)), "");
  EXPECT_THAT(alerts(), ElementsAre("alert No logs found: There were no logs available to gather."));
}

TEST_F(TGTroubleshootingUtilsTest, AToolThatCannotBeStartedIsNoArchive) {
  fake.files.makeFile(kUserLogs + "Quillmend.1.log");
  fake.subprocesses.runs[kDitto].launchFailure = foundation::Exception("Name", "reason");
  EXPECT_FALSE(gather());
  EXPECT_THAT(alerts(), ElementsAre("alert Logs could not be gathered: Please check your file permissions."));
  EXPECT_FALSE(isThere(kStaging));
}

TEST_F(TGTroubleshootingUtilsTest, NothingIsThrownAtTheCaller) {
  fake.users.searchPathsOverride = [](auto, auto) -> std::optional<std::vector<std::string>> {
    throw foundation::Exception("Name", "reason");
  };
  EXPECT_FALSE(gather());
  EXPECT_THAT(messages(), Contains("Exception in +[TGTroubleshootingUtils "
                                   "gatherLogsForAppsWithNames:silent:additionalFiles:]. Name - reason."));
}

TEST_F(TGTroubleshootingUtilsTest, SilentGatheringShowsNoAlertHoweverItEnds) {
  const auto gatherSilently = [] {
    return TGTroubleshootingUtils::gatherLogsForAppsWithNames({"Quillmend"}, GatherSilently::yes);
  };
  EXPECT_FALSE(gatherSilently()) << "nothing there";
  fake.files.makeFile(kUserLogs + "Quillmend.1.log");
  EXPECT_TRUE(gatherSilently());
  ASSERT_TRUE(fake.files.remove(kArchive));
  canPack = false;
  EXPECT_FALSE(gatherSilently()) << "no archive";
  failChange("copy");
  EXPECT_FALSE(gatherSilently()) << "no copy";
  EXPECT_THAT(alerts(), IsEmpty());
}

// The archive's name.

TEST_F(TGTroubleshootingUtilsTest, AnArchiveThatIsThereIsKeptAndTheNewOneBearsTheLocalTime) {
  const support::EnvironmentVariable zone("TZ", "UTC-2");
  ::tzset();
  fake.files.makeFile(kArchive, "earlier");
  fake.files.makeFile(kUserLogs + "Quillmend.1.log");
  EXPECT_TRUE(gather());
  EXPECT_EQ(content(kArchive), "earlier");
  EXPECT_EQ(content("/Users/alice/Desktop/Quillmend Logs_20110101120000.zip"), "archive");
}

TEST_F(TGTroubleshootingUtilsTest, OnlyTheExtensionOfAnArchivesNameIsCut) {
  const support::EnvironmentVariable zone("TZ", "UTC");
  ::tzset();
  fake.files.makeFile("/Users/alice/Desktop/Quill 2.1 Logs.zip");
  fake.files.makeFile(kUserLogs + "Quill 2.1.1.log");
  EXPECT_TRUE(gather("Quill 2.1"));
  EXPECT_TRUE(fake.files.exists("/Users/alice/Desktop/Quill 2.1 Logs_20110101100000.zip"));
}

// For whom.

TEST_F(TGTroubleshootingUtilsTest, RootGathersForTheUserAtTheConsole) {
  fake.users.user = 0;
  fake.users.console = "bob";
  fake.files.makeFile("/Users/bob/Library/Logs/Vordenworks/Quillmend.1.log", "bob's");
  fake.files.makeFile(kUserLogs + "Quillmend.1.log", "alice's");
  fake.files.makeFolder("/Users/bob/Desktop");
  EXPECT_TRUE(gather());
  EXPECT_EQ(archived, (Tree{{"/Users/bob/Library/Logs/Vordenworks/Quillmend.1.log", "bob's"}}));
  EXPECT_TRUE(fake.files.exists("/Users/bob/Desktop/Quillmend Logs.zip"));
  EXPECT_THAT(fake.gathering.readers, ElementsAre(platform::Reader("bob")));
}

TEST_F(TGTroubleshootingUtilsTest, AUserGathersForThemself) {
  fake.users.console = "bob";
  fake.files.makeFile(kUserLogs + "Quillmend.1.log");
  EXPECT_TRUE(gather());
  EXPECT_THAT(fake.gathering.readers, ElementsAre(platform::Reader("alice")));
}

}  // namespace
