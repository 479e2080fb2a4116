#include <gmock/gmock.h>

#include "tests/workstation/RepairScript.h"
#include "tests/workstation/RootTest.h"
#include "workstation/TemporaryVolume.h"

// Who repairs, and who sits at the console.

namespace workstation {
namespace {

using namespace std::chrono_literals;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

class RepairPeopleTest : public RootTest {
 protected:
  static Outcome runAs(const std::string& user, const Volume& volume,
                       const std::vector<std::string>& arguments) {
    auto options = programVisit();
    options.user = user;
    return run(volume, arguments, options);
  }

  /// With nobody at the console the machine's own bus is the one that is left.
  static Outcome runWithSystemBus(const Volume& volume, const std::vector<std::string>& arguments) {
    auto options = programVisit();
    options.systemBus = true;
    return run(volume, arguments, options);
  }

  /// A repair while nobody is at the console works on root's own folders and leaves everybody's home alone.
  static void expectRepairForNobody(const std::string& console) {
    const TemporaryVolume sample({.compressors = {{"3.5.3"}}, .consoleUser = console, .logFolder = true});
    const auto outcome = runWithSystemBus(sample, {"-repair", "-trash"});
    RepairScript script({.trash = true, .layout = true, .user = "/var/root"});
    script.begun().repaired35().nameChecked().starting().started35().ended();
    EXPECT_EQ(outcome.visit.status, 0);
    EXPECT_EQ(outcome.consoleTexts(), script.console());
    EXPECT_EQ(outcome.callTexts(), script.calls());
    expectLog(sample, localLog, script.log());
    EXPECT_THAT(outcome.finished, ElementsAre(script.output()));
    EXPECT_EQ(outcome.finishedBus, "system");
    EXPECT_THAT(outcome.shown, IsEmpty()) << "there is no desktop";
    EXPECT_THAT(movedInto(outcome, "/private/var/root/.Trash"),
                ElementsAreArray(together({cachesIn(localSupport), spoolFolders(false)})));
    EXPECT_EQ(describe(outcome.after, "/private/var/root/.Trash"), "d 0:0 700");
    EXPECT_THAT(created(outcome), Each(Not(StartsWith("/Users/"))));
    EXPECT_THAT(removed(outcome), IsEmpty());
  }
};

TEST_F(RepairPeopleTest, RootWithNobodyAtTheConsoleLeavesTheHomesAlone) {
  expectRepairForNobody("");
}

TEST_F(RepairPeopleTest, AGreeterIsNobody) {
  expectRepairForNobody("greeter");
}

TEST_F(RepairPeopleTest, TheFoldersAndTheTrashAreThoseOfWhoeverIsAtTheConsole) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}}, .consoleUser = "bob", .logFolder = true});
  const auto outcome = run(sample, {"-repair", "-trash"});
  RepairScript script({.trash = true, .layout = true, .user = "/Users/bob"});
  expectRun(sample, outcome, script.begun().repaired35().nameChecked().starting().started35().ended());
  std::vector<std::string> bobs{"/Users/bob/Library/Application Support/" + std::string(layoutFile)};
  for (const auto& name : preferenceFiles(false)) bobs.push_back("/Users/bob/Library/Preferences/" + name);
  EXPECT_THAT(movedInto(outcome, "/Users/bob/.Trash"),
              ElementsAreArray(together({cachesIn(localSupport), spoolFolders(false), bobs})));
  EXPECT_THAT(movedInto(outcome, aliceTrash), IsEmpty());
  EXPECT_THAT(created(outcome), Each(Not(StartsWith("/Users/alice/"))));
}

TEST_F(RepairPeopleTest, RootAtTheConsoleIsAUserLikeOthers) {
  const TemporaryVolume sample({.compressors = {{"4.0.7"}}, .consoleUser = "root", .logFolder = true});
  const auto outcome = run(sample, {"-repair"});
  RepairScript script({.user = "/var/root"});
  // The path that is configured is the usual one: it is not emptied twice.
  script.begun().detected("4.0", "Detected Compressor 4.x.").stopped4().cleaned4({});
  script.nameChecked().starting().started4().ended(successSummary, false);
  expectRun(sample, outcome, script);
  EXPECT_THAT(movedInto(outcome, aliceTrash), IsEmpty());
}

TEST_F(RepairPeopleTest, WithoutRightsNothingIsTouchedAndTheRefusalIsAnnounced) {
  const TemporaryVolume sample({.compressors = {{"3.5.3", "", true}, {"4.0.7"}}, .logFolder = true});
  const auto outcome = runAs("alice", sample, {"-repair", "-trash"});
  EXPECT_EQ(outcome.visit.status, 0);
  EXPECT_EQ(outcome.visit.output, "");
  EXPECT_THAT(outcome.consoleTexts(), ElementsAre("Unable to authorize"));
  EXPECT_THAT(outcome.finished, ElementsAre("Unable to authorize. Repair canceled."));
  EXPECT_EQ(outcome.finishedBus, "session");
  EXPECT_THAT(outcome.shown, ElementsAre("Repairing Compressor...", "Repair failed."));
  EXPECT_THAT(outcome.calls, IsEmpty());
  EXPECT_THAT(outcome.difference.moved, IsEmpty());
  EXPECT_THAT(changed(outcome), IsEmpty());
  EXPECT_THAT(removed(outcome), IsEmpty());
  EXPECT_THAT(created(outcome),
              ElementsAre("/Users/alice/Library/Logs/Vordenworks",
                          "/Users/alice/Library/Preferences/com.vordenworks.Quillmend.plist"));
  EXPECT_THAT(outcome.running, SizeIs(4)) << "Compressor and Qmaster go on";
  expectLog(sample, "/Users/alice/Library/Logs/Vordenworks/Quillmend.task.1.log", {"Starting repair..."});
}

TEST_F(RepairPeopleTest, ASilentRefusalIsAnnouncedToo) {
  const TemporaryVolume sample({.compressors = {{"4.0.7"}}});
  const auto outcome = runAs("alice", sample, {"-repair", "-silent"});
  EXPECT_THAT(outcome.finished, ElementsAre("Unable to authorize. Repair canceled."));
  EXPECT_THAT(outcome.shown, IsEmpty());
  EXPECT_THAT(outcome.difference.moved, IsEmpty());
}

TEST_F(RepairPeopleTest, AUsersLogKeepsFiveGenerations) {
  const TemporaryVolume sample({});
  const std::string folder = "/Users/alice/Library/Logs/Vordenworks/Quillmend.task.";
  std::string oldest;
  for (int round = 1; round <= 6; ++round) {
    const auto outcome = runAs("alice", sample, {"-repair", "-silent"});
    if (round == 2) oldest = outcome.after.entries.at(folder + "1.log").identity;
    if (round == 6) {
      EXPECT_EQ(outcome.after.entries.at(folder + "5.log").identity, oldest) << "the first is gone";
      EXPECT_EQ(describe(outcome.after, folder + "6.log"), "missing");
    }
  }
  for (const char* generation : {"1.log", "2.log", "3.log", "4.log", "5.log"}) {
    expectLog(sample, folder + generation, {"Starting repair..."});
  }
}

TEST_F(RepairPeopleTest, WithoutABusARepairNeitherFailsNorWaits) {
  const TemporaryVolume sample({.logFolder = true});
  auto options = programVisit();
  options.sessionBus = false;
  const auto outcome = run(sample, {"-repair"}, options);
  EXPECT_EQ(outcome.visit.status, 0);
  EXPECT_EQ(outcome.consoleTexts(),
            RepairScript().begun().nameChecked().starting().ended(successSummary, false).console());
  EXPECT_LT(outcome.timeAfter("Starting repair..."), 1s);
  EXPECT_LT(outcome.visit.duration, 5s) << "three announcements, a second each at most";
}

}  // namespace
}  // namespace workstation
