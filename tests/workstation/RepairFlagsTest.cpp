#include <gmock/gmock.h>

#include "tests/workstation/RepairScript.h"
#include "tests/workstation/RootTest.h"
#include "workstation/TemporaryVolume.h"

// Command lines: what each argument makes of a run.

namespace workstation {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class RepairFlagsTest : public RootTest {
 protected:
  static RepairScript repaired35(const RepairScript::Flags& flags) {
    return RepairScript(flags).begun().repaired35().nameChecked().starting().started35().ended();
  }
  static std::vector<std::string> preferencesOf3() {
    std::vector<std::string> paths;
    for (const auto& name : preferenceFiles(false))
      paths.push_back(std::string(userPreferences) + '/' + name);
    return paths;
  }
  static std::vector<std::string> layout() {
    return {std::string(userSupport) + '/' + std::string(layoutFile)};
  }
};

TEST_F(RepairFlagsTest, CapitalsDoNotMatterAndTrashprefsLeavesTheLayout) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}}, .logFolder = true});
  const auto outcome = run(sample, {"-REPAIR", "-TrashPrefs"});
  expectRun(sample, outcome, repaired35({.trash = true}));
  EXPECT_THAT(movedInto(outcome, aliceTrash), ElementsAreArray(together({trashedOf3(), preferencesOf3()})));
}

TEST_F(RepairFlagsTest, AutoRepairsAndTrashlayoutLeavesThePreferences) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}}, .logFolder = true});
  const auto outcome = run(sample, {"-auto", "-trashlayout"});
  expectRun(sample, outcome, repaired35({.layout = true}));
  EXPECT_THAT(movedInto(outcome, aliceTrash), ElementsAreArray(together({trashedOf3(), layout()})));
}

TEST_F(RepairFlagsTest, ASilentRepairDoesTheSameAndSaysNothing) {
  const TemporaryVolume sample({.compressors = {{"3.5.3", "", true}}, .logFolder = true});
  const auto outcome = run(sample, {"-silent", "-repair", "-trash"});
  RepairScript script({.trash = true, .layout = true, .silent = true});
  expectRun(sample, outcome,
            script.begun().closed3().repaired35().nameChecked().starting().started35().ended());
  EXPECT_EQ(outcome.visit.error, "");
  EXPECT_THAT(movedInto(outcome, aliceTrash),
              ElementsAreArray(together({trashedOf3(), preferencesOf3(), layout()})));
}

TEST_F(RepairFlagsTest, UnknownArgumentsAreIgnored) {
  const TemporaryVolume sample({.logFolder = true});
  const auto outcome = run(sample, {"", "-frobnicate", "-repair ", "--help", "-repair", "%@%s%n", "a\nb"});
  expectRun(sample, outcome, RepairScript().begun().nameChecked().starting().ended(successSummary, false));
}

TEST_F(RepairFlagsTest, HelpAfterRepairPrintsTheHelpAndTouchesNothing) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}}, .logFolder = true});
  const auto outcome = run(sample, {"-repair", "-HELP", "-stopsharing"});
  EXPECT_EQ(outcome.visit.status, 0);
  EXPECT_EQ(
      outcome.visit.output,
      "\nQuillmend Help\n\n-help - Displays command listings.\n-repair - Activates command-line mode and "
      "starts the repair automatically.\n-silent - Suppresses output (ignored if -repair is not "
      "set).\n-trash - Trashes preferences and window layouts (ignored if -repair is not set).\n"
      "-trashPrefs - Trashes preferences (ignored if -repair is not set).\n-trashlayout - Trashes window "
      "layout (ignored if -repair is not set).\n");
  EXPECT_EQ(outcome.visit.error, "");
  EXPECT_THAT(outcome.calls, IsEmpty());
  EXPECT_THAT(outcome.finished, IsEmpty());
  EXPECT_TRUE(outcome.difference.empty());
  EXPECT_THAT(outcome.running, SizeIs(3)) << "Qmaster goes on";
}

TEST_F(RepairFlagsTest, StopsharingBeforeRepairStopsSharingAndNothingElse) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}}, .logFolder = true});
  const auto outcome = run(sample, {"-stopsharing", "-repair", "-trash"});
  EXPECT_EQ(outcome.visit.status, 0);
  EXPECT_EQ(outcome.visit.output + outcome.visit.error, "");
  EXPECT_THAT(outcome.callTexts(), ElementsAre("0 /usr/sbin/qmasterprefs -stopSharing"));
  EXPECT_GE(outcome.visit.duration, 1s);
  expectLog(sample, localLog, {});
  EXPECT_THAT(outcome.difference.moved, IsEmpty());
  EXPECT_THAT(outcome.finished, IsEmpty());
  EXPECT_THAT(outcome.shown, IsEmpty());
  EXPECT_EQ(value(sample, "qmaster.sharing"), "off");
  EXPECT_THAT(outcome.running, ElementsAre("root /usr/sbin/qmasterd", "root /usr/sbin/qmasterqd"));
}

TEST_F(RepairFlagsTest, SharingIsStartedAndRestartedWithPauses) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}}, .qmasterRunning = false, .logFolder = true});
  EXPECT_THAT(run(sample, {"-startsharing"}).callTexts(),
              ElementsAre("0 /usr/sbin/qmasterprefs -startSharing"));
  EXPECT_EQ(value(sample, "qmaster.sharing"), "on");
  const auto again = run(sample, {"-RestartSharing", "-help"});
  EXPECT_EQ(again.visit.status, 0);
  EXPECT_EQ(again.visit.output + again.visit.error, "");
  EXPECT_THAT(again.callTexts(),
              ElementsAre("0 /usr/sbin/qmasterprefs -stopSharing", "0 /usr/sbin/qmasterprefs -startSharing"));
  EXPECT_GE(again.timeAfterCall("0 /usr/sbin/qmasterprefs -stopSharing"), 1700ms) << "two pauses of a second";
  EXPECT_EQ(value(sample, "qmaster.sharing"), "on");
}

TEST_F(RepairFlagsTest, WithoutARepairItIsTheWindowsProgramAndSaysThatItHasNoDisplay) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}}, .logFolder = true});
  const std::vector<std::vector<std::string>> commandLines{{}, {"-silent", "-trash"}, {"-hotkey"}};
  for (const auto& arguments : commandLines) {
    const auto outcome = run(sample, arguments);
    EXPECT_EQ(outcome.visit.status, 1);
    EXPECT_EQ(outcome.visit.output, "");
    EXPECT_THAT(outcome.visit.error, HasSubstr("no display"));
    EXPECT_THAT(outcome.calls, IsEmpty());
    EXPECT_TRUE(outcome.difference.empty());
    EXPECT_THAT(outcome.running, SizeIs(3));
  }
}

}  // namespace
}  // namespace workstation
