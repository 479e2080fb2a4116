#include <gmock/gmock.h>

#include <algorithm>

#include "tests/workstation/RootTest.h"
#include "workstation/Components.h"
#include "workstation/Layout.h"
#include "workstation/Records.h"
#include "workstation/TemporaryVolume.h"
#include "workstation/Visit.h"

namespace workstation {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

class StandInTest : public RootTest {
 protected:
  /// Runs a line of shell in a volume as root (or another), and checks that it succeeded.
  static void run(const Volume& volume, const std::string& line, const std::string& user = "root") {
    const auto result = visit(volume, {"/bin/sh", "-c", line}, {.user = user, .sessionBus = false});
    EXPECT_EQ(result.status, 0) << result.output << result.error;
  }

  static std::vector<std::string> running(const Volume& volume) {
    std::vector<std::string> executables;
    for (const auto& process : remainingProcesses(volume)) executables.push_back(process.executable);
    std::sort(executables.begin(), executables.end());
    return executables;
  }
};

const std::string jobFile = "/Library/LaunchDaemons/com.apple.qmaster.qmasterd.plist";

TEST_F(StandInTest, QmasterprefsKeepsWhatItWasTold) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}}});
  run(sample, "qmasterprefs -resetCluster cancelJobs && qmasterprefs -reset && qmasterprefs -reset");
  EXPECT_EQ(value(sample, "qmaster.jobs"), "cancelled");
  EXPECT_EQ(value(sample, "qmaster.resets"), "2");
  EXPECT_THAT(callTexts(sample),
              ElementsAre("0 /usr/sbin/qmasterprefs -resetCluster cancelJobs",
                          "0 /usr/sbin/qmasterprefs -reset", "0 /usr/sbin/qmasterprefs -reset"));
}

TEST_F(StandInTest, SharingStartsAndEndsTheContentAgent) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}}});
  run(sample, "qmasterprefs -stopSharing");
  EXPECT_EQ(value(sample, "qmaster.sharing"), "off");
  EXPECT_THAT(running(sample), ElementsAre("/usr/sbin/qmasterd", "/usr/sbin/qmasterqd"));
  run(sample, "qmasterprefs -startSharing");
  EXPECT_EQ(value(sample, "qmaster.sharing"), "on");
  EXPECT_THAT(running(sample),
              ElementsAre("/usr/sbin/qmasterca", "/usr/sbin/qmasterd", "/usr/sbin/qmasterqd"));
}

TEST_F(StandInTest, CompressorFoursToolKeepsItsOwnValues) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}, {"4.0.7"}}});
  run(sample,
      "/Applications/Compressor.app/Contents/PlugIns/Compressor/CompressorKit.bundle/qmasterprefs "
      "-stopSharing",
      "alice");
  EXPECT_EQ(value(sample, "qmaster4.sharing"), "off");
  EXPECT_EQ(value(sample, "qmaster.sharing"), "on");
  EXPECT_EQ(calls(sample).at(0).user, 501U);
}

TEST_F(StandInTest, UnloadingTheJobEndsTheDaemonAndLoadingStartsIt) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}}});
  run(sample, "launchctl unload " + jobFile);
  EXPECT_EQ(value(sample, "launchd.com.apple.qmaster.qmasterd"), std::nullopt);
  EXPECT_THAT(running(sample), Not(::testing::Contains("/usr/sbin/qmasterd")));
  run(sample, "launchctl load " + jobFile);
  EXPECT_EQ(value(sample, "launchd.com.apple.qmaster.qmasterd"), jobFile);
  EXPECT_THAT(running(sample), ::testing::Contains("/usr/sbin/qmasterd"));
}

TEST_F(StandInTest, LoadingAJobThatIsLoadedBringsItsDaemonBack) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}}});
  run(sample, "qmasterprefs -stopSharing; kill -KILL -1; sleep 0.2; launchctl load " + jobFile);
  EXPECT_THAT(running(sample), ElementsAre("/usr/sbin/qmasterd", "/usr/sbin/qmasterqd"));
}

TEST_F(StandInTest, LaunchctlRefusesWhatIsNotThereAndWhoIsNotRoot) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}}});
  EXPECT_EQ(visit(sample, {"launchctl", "load", "/nowhere.plist"}).status, 1);
  EXPECT_EQ(visit(sample, {"launchctl", "remove", "com.example.none"}).status, 3);
  EXPECT_EQ(visit(sample, {"launchctl", "unload", jobFile}, {.user = "alice"}).status, 1);
  EXPECT_EQ(value(sample, "launchd.com.apple.qmaster.qmasterd"), jobFile);
}

TEST_F(StandInTest, TheShortcutKeyManagerSetsUpAndKnowsNothingElse) {
  const TemporaryVolume sample({.shortcutKeyManager = true});
  run(sample, "'" + std::string(shortcutKeyManager) + "' -setup", "alice");
  EXPECT_THAT(callTexts(sample), ElementsAre("501 " + std::string(shortcutKeyManager) + " -setup"));
  EXPECT_NE(visit(sample, {std::string(shortcutKeyManager), "-reset"}).status, 0);
}

TEST_F(StandInTest, TheUpdaterIsAnApplicationOfItsVersion) {
  const TemporaryVolume sample({.softwareUpdate = "5"});
  run(sample, "open -a '" + std::string(softwareUpdate) + "'", "alice");
  EXPECT_THAT(running(sample), ::testing::Contains(std::string(softwareUpdate) +
                                                   "/Contents/MacOS/Vordenworks Software Update"));
}

TEST_F(StandInTest, TheStartupItemStartsOnceAndRestartsAnew) {
  const TemporaryVolume sample({.compressors = {{"3.0.5"}}, .qmasterRunning = false});
  const std::string item = "/Library/StartupItems/Qmaster/Qmaster";
  run(sample, item + " start && " + item + " start && " + item + " restart");
  std::vector<std::string> kinds;
  for (const auto& event : events(sample)) {
    if (event.path == "/usr/sbin/qmasterd") kinds.push_back(event.kind);
  }
  EXPECT_THAT(kinds, ElementsAre("start", "quit", "start"));
  EXPECT_THAT(running(sample), ElementsAre("/usr/sbin/qmasterd", "/usr/sbin/qmasterqd"));
  run(sample, item + " stop");
  EXPECT_THAT(running(sample), ElementsAre("/usr/sbin/qmasterqd"));
}

TEST_F(StandInTest, ADisabledStartupItemStartsNothing) {
  const TemporaryVolume sample({.compressors = {{"3.0.5"}},
                                .qmasterRunning = false,
                                .damage = {{"disabled", "/Library/StartupItems/Qmaster"}}});
  run(sample, "/Library/StartupItems/Qmaster/Qmaster start");
  EXPECT_THAT(running(sample), IsEmpty());
}

TEST_F(StandInTest, ScutilTellsAndTakesNames) {
  const TemporaryVolume sample({.computerName = "Suite \"A\"", .localHostName = std::nullopt});
  EXPECT_EQ(visit(sample, {"scutil", "--get", "ComputerName"}).output, "Suite \"A\"\n");
  EXPECT_EQ(visit(sample, {"scutil", "--get", "LocalHostName"}).status, 1);
  EXPECT_EQ(visit(sample, {"scutil", "--set", "LocalHostName", "x"}, {.user = "alice"}).status, 1);
  EXPECT_EQ(visit(sample, {"scutil", "--set", "LocalHostName", "suite-a"}).status, 0);
  EXPECT_EQ(visit(sample, {"scutil", "--get", "LocalHostName"}).output, "suite-a\n");
}

TEST_F(StandInTest, OpenStartsAnApplicationOnceAsWhoAsks) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}}, .qmasterRunning = false});
  const std::string menu =
      "/Library/PreferencePanes/Apple "
      "Qmaster.prefPane/Contents/Resources/QmasterStatusMenu.app/Contents/MacOS/"
      "QmasterStatusMenu";
  run(sample,
      "open -a '" + menu + "' && open -a '" + menu + "' && open '/Applications/Utilities/Batch Monitor.app'",
      "alice");
  EXPECT_THAT(running(sample),
              ElementsAre("/Applications/Utilities/Batch Monitor.app/Contents/MacOS/Batch Monitor", menu));
  EXPECT_EQ(remainingProcesses(sample).at(0).user, 501U);
  EXPECT_EQ(visit(sample, {"open", "-a", "/Applications/None.app"}).status, 1);
}

TEST_F(StandInTest, UnknownArgumentsAreRecordedAndRefused) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}}});
  const auto result = visit(sample, {"qmasterprefs", "-format", "a\tb\nc", ""});
  EXPECT_EQ(result.status, 64);
  EXPECT_NE(result.error, "");
  EXPECT_THAT(calls(sample).at(0).arguments, ElementsAre("-format", "a\tb\nc", ""));
}

TEST_F(StandInTest, WhoAskedAnApplicationToQuitIsRecorded) {
  const TemporaryVolume sample({.compressors = {{"4.0.7", "", true}}, .qmasterRunning = false});
  run(sample, "kill -TERM -1", "alice");
  ASSERT_EQ(events(sample).size(), 1U);
  EXPECT_EQ(events(sample)[0].kind, "quit");
  EXPECT_THAT(events(sample)[0].arguments, ElementsAre("TERM", "501"));
}

}  // namespace
}  // namespace workstation
