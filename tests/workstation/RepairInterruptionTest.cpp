#include <gmock/gmock.h>
#include <signal.h>

#include "tests/workstation/RepairScript.h"
#include "tests/workstation/RootTest.h"
#include "workstation/TemporaryVolume.h"

// A signal in the middle of a repair: the step under way ends, the rest is left, and Qmaster runs again.

namespace workstation {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RepairInterruptionTest : public RootTest {
 protected:
  static std::string interrupted(int number, const std::string& outcome) {
    return "Repair interrupted by signal " + std::to_string(number) + ". " + outcome;
  }

  /// A repair that gets a signal once it has said that line.
  static Outcome runUntil(const std::string& line, int number, const Volume& volume,
                          const std::vector<std::string>& arguments = {"-repair"},
                          const VisitOptions& options = programVisit()) {
    auto before = takeSnapshot(volume);
    std::vector<std::string> command{quillmend};
    command.insert(command.end(), arguments.begin(), arguments.end());
    Visit going(volume, command, options);
    EXPECT_TRUE(going.waitForOutput(line, 20s));
    going.signal(number);
    return outcomeOf(volume, going.wait(), std::move(before));
  }

  static void expectEndedBy(int number, const Volume& volume, const Outcome& outcome,
                            const RepairScript& script) {
    EXPECT_EQ(outcome.visit.status, 128 + number);
    EXPECT_EQ(commandEnd(volume), "signal " + std::to_string(number));
    EXPECT_EQ(outcome.consoleTexts(), script.console());
    EXPECT_EQ(outcome.callTexts(), script.calls());
    expectLog(volume, localLog, script.log());
    EXPECT_THAT(outcome.finished, ElementsAre(script.output()));
  }
};

const std::string startedAgain = "Qmaster was started again; run the repair again to finish it.";

TEST_F(RepairInterruptionTest, WhileQmasterStopsItIsStartedAgainAndNothingWasMoved) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}, {"4.0.7"}}, .logFolder = true});
  const auto outcome = runUntil("Stopping Qmaster...", SIGTERM, sample);
  RepairScript script;
  script.begun().detected("3.5", "Detected Compressor 3.5.x.").stopped3().starting().started35().started4();
  expectEndedBy(SIGTERM, sample, outcome, script.ended(interrupted(SIGTERM, startedAgain)));
  EXPECT_THAT(outcome.shown, ElementsAre("Repairing Compressor...", "Repair failed."));
  EXPECT_THAT(outcome.difference.moved, IsEmpty());
  EXPECT_THAT(outcome.running, Contains("root /usr/sbin/qmasterd"));
  EXPECT_EQ(value(sample, "qmaster.sharing"), "on");
}

TEST_F(RepairInterruptionTest, ByTheKeyboardInThePermissionCheckEndsAfterTheMendUnderWay) {
  const std::string qmaster = std::string(localSupport) + "/Apple Qmaster/";
  const std::string services = qmaster + "qmasterservices.plist";
  const TemporaryVolume sample(
      {.compressors = {{"3.5.3"}},
       .consoleUser = "root",
       .logFolder = true,
       .damage = {{"unwritable", services}, {"unwritable", qmaster + "qmasterconfig"}}});
  auto options = programVisit();
  options.withoutCapabilities = {"dac_override", "dac_read_search"};  // held to modes as others are
  const std::string mending = services + " is not writable... attempting fix.";
  const auto outcome = runUntil(mending, SIGINT, sample, {"-repair"}, options);
  RepairScript script;
  script.begun().detected("3.5", "Detected Compressor 3.5.x.").stopped3().checked({mending});
  script.starting().started35();
  expectEndedBy(SIGINT, sample, outcome, script.ended(interrupted(SIGINT, startedAgain)));
  EXPECT_EQ(describe(outcome.after, services), "f 0:80 666");
  EXPECT_EQ(describe(outcome.after, qmaster + "qmasterconfig"), "f 0:80 444");
  EXPECT_THAT(outcome.difference.moved, IsEmpty());
  EXPECT_THAT(outcome.running, Contains("root /usr/sbin/qmasterd"));
}

TEST_F(RepairInterruptionTest, BeforeQmasterWasTouchedLeavesItAlone) {
  const TemporaryVolume sample({.compressors = {{"4.0.7", "", true}}, .logFolder = true});
  const auto outcome = runUntil("Waiting for Compressor 4 to exit...", SIGHUP, sample);
  RepairScript script;
  script.begun().closed4().say(interrupted(SIGHUP, "Qmaster was not touched; run the repair again."));
  expectEndedBy(SIGHUP, sample, outcome, script);
  EXPECT_THAT(outcome.running, Contains("501 /Applications/Compressor.app/Contents/MacOS/Compressor"))
      << "it is opened again";
}

TEST_F(RepairInterruptionTest, WhileACompressorThatWillNotQuitIsWaitedForIsHeardAtOnce) {
  const TemporaryVolume sample({.compressors = {{"4.0.7", "", true}},
                                .logFolder = true,
                                .damage = {{"ignores-quit", "/Applications/Compressor.app"}}});
  const auto begin = std::chrono::steady_clock::now();
  const auto outcome = runUntil("Waiting for Compressor 4 to exit...", SIGTERM, sample);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 20s) << "the wait would take 42 seconds and more";
  RepairScript script;
  script.begun().closed4().say(interrupted(SIGTERM, "Qmaster was not touched; run the repair again."));
  expectEndedBy(SIGTERM, sample, outcome, script);
}

TEST_F(RepairInterruptionTest, OfASilentRepairIsSaidInTheLog) {
  const TemporaryVolume sample({.compressors = {{"4.0.7", "", true}}, .logFolder = true});
  auto before = takeSnapshot(sample);
  // No line to wait for: by then it waits for Compressor.
  const auto visited = visit(sample,
                             {"/bin/sh", "-c",
                              "\"$Q\" -repair -silent 2>/private/tmp/said & "
                              "sleep 1; kill -TERM $!; wait $! 2>/dev/null"},
                             [] {
                               auto options = programVisit();
                               options.environment.emplace_back("Q", quillmend);
                               return options;
                             }());
  const auto outcome = outcomeOf(sample, visited, std::move(before));
  EXPECT_EQ(outcome.visit.status, 128 + SIGTERM);
  EXPECT_EQ(contentsOf(sample.volume().host("/private/tmp/said").string()), "");
  expectLog(sample, localLog,
            {"Starting repair...", interrupted(SIGTERM, "Qmaster was not touched; run the repair again.")});
  EXPECT_THAT(outcome.finished, ElementsAre("(none)"));
  EXPECT_THAT(outcome.shown, IsEmpty());
}

TEST_F(RepairInterruptionTest, TheNextRepairFinishesTheWork) {
  const TemporaryVolume sample({.compressors = {{"4.0.7"}}, .logFolder = true});
  const auto first = runUntil("Stopping Qmaster...", SIGTERM, sample);
  EXPECT_EQ(first.visit.status, 128 + SIGTERM);
  const auto second = run(sample, {"-repair"});
  RepairScript script;
  script.begun().repaired4().nameChecked().starting().started4().ended(successSummary, false);
  expectRun(sample, second, script);
  EXPECT_EQ(movedInto(second, aliceTrash), trashedOf4());
}

}  // namespace
}  // namespace workstation
