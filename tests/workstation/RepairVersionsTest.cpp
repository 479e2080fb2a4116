#include <gmock/gmock.h>

#include "tests/workstation/RepairScript.h"
#include "tests/workstation/RootTest.h"
#include "workstation/TemporaryVolume.h"

// Whole repairs by version: what is said, written down, called, moved and started again.

namespace workstation {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class RepairVersionsTest : public RootTest {};

/// A tool writes itself down when it gets the processor; on a busy machine the time between two of them can
/// be shorter than the pause by what the first one waited for that.
constexpr auto slack = 300ms;

const std::string kit = "/Applications/Compressor.app/" + std::string(kitFolder);

/// What every repair as root leaves behind it, beside what the versions do.
const std::vector<std::string> usualTraces{
    "/Library/Logs/Vordenworks/Quillmend.task.1.log", "/Users/alice/Library/Logs/Vordenworks",
    "/Users/alice/Library/Preferences/com.vordenworks.Quillmend.plist", "/private/var/root/Library"};

TEST_F(RepairVersionsTest, WithoutCompressorOnlyTheNameIsCheckedAndNothingMoves) {
  const TemporaryVolume sample({.logFolder = true});
  const auto outcome = run(sample, {"-repair", "-trash"});
  expectRun(sample, outcome, RepairScript().begun().nameChecked().starting().ended(successSummary, false));
  EXPECT_THAT(outcome.difference.moved, IsEmpty());
  EXPECT_THAT(created(outcome), ElementsAreArray(usualTraces));
  EXPECT_THAT(removed(outcome), IsEmpty());
  EXPECT_THAT(changed(outcome), IsEmpty());
  EXPECT_THAT(outcome.running, IsEmpty());
}

TEST_F(RepairVersionsTest, Compressor30IsStoppedCleanedAndStartedByItsStartupItem) {
  const TemporaryVolume sample({.compressors = {{"3.0.5"}}, .logFolder = true});
  const auto outcome = run(sample, {"-repair"});
  expectRun(sample, outcome,
            RepairScript().begun().repaired30().nameChecked().starting().started30().ended());
  EXPECT_THAT(movedInto(outcome, aliceTrash), ElementsAreArray(trashedOf3()));
  EXPECT_THAT(created(outcome), ElementsAreArray(together({usualTraces, spoolFolders(false)})));
  EXPECT_THAT(removed(outcome), IsEmpty());
  EXPECT_THAT(changed(outcome), IsEmpty()) << "a startup item in good order stays as it is";
  EXPECT_THAT(
      outcome.running,
      UnorderedElementsAre("root /usr/sbin/qmasterca", "root /usr/sbin/qmasterd", "root /usr/sbin/qmasterqd",
                           "root " + std::string(statusMenu) + "/Contents/MacOS/QmasterStatusMenu"));
  EXPECT_GE(outcome.timeAfter("Stopping Qmaster..."), 1002ms);
  EXPECT_GE(outcome.timeAfter("Checking file permissions..."), 4000ms) << "four changes, a second each";
  EXPECT_GE(outcome.timeAfter("Attempting to start Qmaster..."), 2000ms);
  EXPECT_GE(outcome.timeAfterCall("0 /usr/sbin/qmasterprefs -reset"), 2000ms - slack);
}

TEST_F(RepairVersionsTest, Compressor35IsClosedStoppedCleanedStartedAndReopened) {
  const TemporaryVolume sample({.compressors = {{"3.5.3", "", true}},
                                .batchMonitorRunning = true,
                                .statusMenuRunning = true,
                                .logFolder = true});
  const auto outcome = run(sample, {"-repair"});
  expectRun(sample, outcome,
            RepairScript().begun().closed3().repaired35().nameChecked().starting().started35().ended());
  EXPECT_THAT(movedInto(outcome, aliceTrash), ElementsAreArray(trashedOf3()));
  EXPECT_THAT(created(outcome), ElementsAreArray(together({usualTraces, spoolFolders(false)})));
  EXPECT_EQ(describe(outcome.after, "/private/var/spool/qmaster"),
            describe(outcome.before, "/private/var/spool/qmaster"));
  EXPECT_THAT(removed(outcome), IsEmpty());
  EXPECT_THAT(changed(outcome), IsEmpty());
  EXPECT_THAT(
      outcome.running,
      UnorderedElementsAre("501 /Applications/Final Cut Studio/Compressor.app/Contents/MacOS/Compressor",
                           "root /usr/sbin/qmasterca", "root /usr/sbin/qmasterd", "root /usr/sbin/qmasterqd",
                           "root " + std::string(statusMenu) + "/Contents/MacOS/QmasterStatusMenu"))
      << "Batch Monitor stays closed";
  EXPECT_EQ(value(sample, "qmaster.jobs"), "cancelled");
  EXPECT_EQ(value(sample, "qmaster.resets"), "1");
  EXPECT_EQ(value(sample, "qmaster.sharing"), "on");
  EXPECT_GE(outcome.timeAfter("Waiting for Compressor to exit..."), 2000ms);
  EXPECT_GE(outcome.timeAfter("Stopping Qmaster..."), 1002ms);
  EXPECT_GE(outcome.timeAfter("Attempting to start Qmaster..."), 3000ms);
  EXPECT_GE(outcome.timeAfterCall("0 /bin/launchctl load " + std::string(launchdJob)), 1000ms - slack);
  EXPECT_GE(outcome.timeAfterCall("0 /usr/sbin/qmasterprefs -reset"), 2000ms - slack);
}

TEST_F(RepairVersionsTest, Compressor4IsRepairedInTheUsersFolders) {
  const TemporaryVolume sample({.compressors = {{"4.0.7", "", true}}, .logFolder = true});
  const auto outcome = run(sample, {"-repair"});
  expectRun(sample, outcome,
            RepairScript().begun().closed4().repaired4().nameChecked().starting().started4().ended(
                successSummary, false));
  EXPECT_THAT(movedInto(outcome, aliceTrash), ElementsAreArray(trashedOf4()));
  EXPECT_THAT(created(outcome), ElementsAreArray(together({usualTraces, spoolFolders(true)})));
  for (const auto& folder : spoolFolders(true)) {
    EXPECT_EQ(describe(outcome.after, folder), describe(outcome.before, folder)) << folder;
  }
  EXPECT_THAT(outcome.running,
              UnorderedElementsAre("501 /Applications/Compressor.app/Contents/MacOS/Compressor",
                                   "root " + kit + "/qmasterca", "root " + kit + "/qmasterd",
                                   "root " + kit + "/qmasterqd"));
  EXPECT_EQ(value(sample, "qmaster4.jobs"), "cancelled");
  EXPECT_EQ(value(sample, "qmaster4.resets"), "1");
  EXPECT_GE(outcome.timeAfter("Waiting for Compressor 4 to exit..."), 2000ms);
  EXPECT_GE(outcome.timeAfter("Attempting to start Qmaster..."), 1001ms);
  EXPECT_LT(outcome.timeAfter("Attempting to start Qmaster..."), 2000ms) << "this reset needs no long pause";
}

TEST_F(RepairVersionsTest, Compressor35And40AreRepairedOneAfterTheOtherAndBothStarted) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}, {"4.0.7"}}, .logFolder = true});
  const auto outcome = run(sample, {"-repair", "-trash"});
  expectRun(sample, outcome,
            RepairScript({.trash = true, .layout = true})
                .begun()
                .repaired35()
                .repaired4()
                .nameChecked()
                .starting()
                .started35()
                .started4()
                .ended());
  // The history of Compressor 4 lies in that of Compressor 3, and goes to the trash with it.
  const auto history = historyFolders(true);
  const std::string preferences = std::string(userPreferences) + '/';
  EXPECT_THAT(movedInto(outcome, aliceTrash),
              ElementsAreArray(together({trashedOf3(),
                                         cachesIn(userSupport),
                                         spoolFolders(true),
                                         historyIn(history[0]),
                                         {history[1]},
                                         {preferences + "com.apple.BatchMonitor.plist",
                                          preferences + "com.apple.Compressor.CompressorSharedService.plist",
                                          preferences + "com.apple.compressor.Compressor.plist",
                                          std::string(userSupport) + '/' + std::string(layoutFile)}})));
  EXPECT_EQ(describe(outcome.after, preferences + "com.apple.Compressor.plist"), "f 501:20 644")
      << "that of Compressor 4 itself stays";
  EXPECT_EQ(outcome.after.values.at("qmaster.resets"), "1");
  EXPECT_EQ(outcome.after.values.at("qmaster4.resets"), "1");
}

TEST_F(RepairVersionsTest, TwoCopiesOfAVersionAreRepairedTwiceAndStartedOnce) {
  const TemporaryVolume sample(
      {.compressors = {{"3.5.3"}, {"3.5.1", "/Applications/Compressor.app"}}, .logFolder = true});
  const auto outcome = run(sample, {"-repair"});
  expectRun(sample, outcome,
            RepairScript().begun().repaired35().repaired35().nameChecked().starting().started35().ended());
  const auto moved = movedInto(outcome, aliceTrash);
  EXPECT_THAT(moved, Contains("/private/var/spool/qmaster").Times(1)) << "the second time it was empty";
  EXPECT_THAT(moved, ElementsAreArray(trashedOf3()));
}

TEST_F(RepairVersionsTest, AnUnsupportedVersionIsCleanedInLimitedModeAndNothingIsStarted) {
  const TemporaryVolume sample({.compressors = {{"4.1.2"}}, .logFolder = true});
  const auto outcome = run(sample, {"-repair"});
  expectRun(sample, outcome,
            RepairScript()
                .begun()
                .note("Detected Compressor version 4.1...")
                .say("Unsupported Compressor version... running in limited mode.")
                .say("Stopping Qmaster...")
                .print("Unable to execute task: path /usr/sbin/qmasterprefs doesn't exist")
                .note("Stopping apps...")
                .cleaned3()
                .nameChecked()
                .starting()
                .ended(successSummary, false));
  EXPECT_THAT(outcome.running, IsEmpty()) << "stopped, and not started for a version that is not known";
}

TEST_F(RepairVersionsTest, ACopyElsewhereIsFoundByItsIdentifier) {
  const TemporaryVolume sample(
      {.compressors = {{"4.0.1", "/Applications/Encoding/Compressor.app"}}, .logFolder = true});
  const auto outcome = run(sample, {"-repair"});
  const std::string ownTool =
      "/Applications/Encoding/Compressor.app/" + std::string(kitFolder) + "/qmasterprefs";
  RepairScript script;
  script.begun().detected("4.0", "Detected Compressor 4.x.").stopped4(ownTool).cleaned4();
  script.nameChecked().starting().call("/bin/launchctl load " + std::string(launchdJob));
  script.call(ownTool + " -reset").call(ownTool + " -startSharing").ended(successSummary, false);
  expectRun(sample, outcome, script);
}

TEST_F(RepairVersionsTest, ASecondRepairFindsNothingAndSaysTheSame) {
  const TemporaryVolume sample({.compressors = {{"4.0.7"}}, .logFolder = true});
  const auto first = run(sample, {"-repair"});
  const auto second = run(sample, {"-repair"});
  EXPECT_EQ(second.consoleTexts(), first.consoleTexts());
  EXPECT_EQ(second.callTexts(), first.callTexts());
  EXPECT_THAT(second.difference.moved, IsEmpty());
  EXPECT_EQ(second.running, first.running);
  // The generations of root's log are looked for in the user's folder, where this one is not.
  EXPECT_EQ(describe(second.after, "/Library/Logs/Vordenworks/Quillmend.task.2.log"), "missing");
}

}  // namespace
}  // namespace workstation
