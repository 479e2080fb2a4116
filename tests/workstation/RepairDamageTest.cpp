#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <optional>

#include "tests/workstation/RepairScript.h"
#include "tests/workstation/RootTest.h"
#include "workstation/TemporaryVolume.h"

// Damaged components, malformed files, missing tools and names.

namespace workstation {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::Not;

const std::string oldCompressor = "/Applications/Final Cut Studio/Compressor.app";
const std::string newCompressor = "/Applications/Compressor.app";
const std::string localQmaster = std::string(localSupport) + "/Apple Qmaster";

std::string missing(const std::string& path) {
  return "'" + path + "' does not exist. You are advised to reinstall Compressor / Qmaster.";
}

/// Root as a user like others, to whom something can be unreadable.
VisitOptions heldToModes() {
  auto options = programVisit();
  options.withoutCapabilities = {"dac_override", "dac_read_search"};
  return options;
}

class RepairDamageTest : public RootTest {};

TEST_F(RepairDamageTest, EveryDamagedComponentIsReportedAndMendedAsFarAsItMayBe) {
  const std::string batch(batchMonitor);
  const std::string media = std::string(localSupport) + "/ProMediaIO";
  const std::string pane = "/Library/PreferencePanes/Apple Qmaster.prefPane";
  const std::string frameworks = "/Library/Frameworks/";
  const TemporaryVolume sample({.compressors = {{"3.5.3"}},
                                .consoleUser = "root",
                                .logFolder = true,
                                .damage = {{"unopenable", batch},
                                           {"unreadable", localQmaster + "/qmasterservices.plist"},
                                           {"unwritable", localQmaster + "/qmasterconfig"},
                                           {"no-access", media},
                                           {"unreadable", pane},
                                           {"missing", frameworks + "AECore.framework"},
                                           {"unreadable", frameworks + "Compressor.framework"},
                                           {"unopenable", frameworks + "Qmaster.framework"},
                                           {"missing", "/usr/sbin/qmasterca"},
                                           {"unwritable", "/usr/sbin/qmasterd"},
                                           {"unreadable", "/usr/sbin/qmasterqd"},
                                           {"missing", std::string(launchdJob)}}});
  const auto outcome = run(sample, {"-repair"}, heldToModes());
  const auto unreadable = [](const std::string& path) {
    return path + " is not readable... attempting fix.";
  };
  const auto unfixable = [](const std::string& path) { return path + " is not readable... unable to fix."; };
  const auto unwritable = [](const std::string& path) {
    return path + " is not writable... attempting fix.";
  };
  const auto unopenable = [](const std::string& path) {
    return path + " is not openable... attempting fix.";
  };
  RepairScript script({.user = "/var/root"});
  script.begun().detected("3.5", "Detected Compressor 3.5.x.").stopped3();
  script.checked({unopenable(batch), unreadable(localQmaster + "/qmasterservices.plist"),
                  unwritable(localQmaster + "/qmasterconfig"), unreadable(media), unwritable(media),
                  unopenable(media), unreadable(pane), missing(frameworks + "AECore.framework"),
                  unfixable(frameworks + "Compressor.framework"), missing("/usr/sbin/qmasterca"),
                  unfixable("/usr/sbin/qmasterqd"), missing(std::string(launchdJob))});
  script.cleaned3().nameChecked().starting().started35().ended(errorSummary);
  expectRun(sample, outcome, script);
  EXPECT_EQ(describe(outcome.after, batch), "d 0:80 775") << "without who it is everybody's";
  EXPECT_EQ(describe(outcome.after, localQmaster + "/qmasterservices.plist"), "f 0:0 664");
  EXPECT_EQ(describe(outcome.after, localQmaster + "/qmasterconfig"), "f 0:80 666");
  EXPECT_EQ(describe(outcome.after, media), "d 0:0 777");
  EXPECT_EQ(describe(outcome.after, pane), "d 0:0 755");
  for (const char* path :
       {"/Library/Frameworks/Compressor.framework", "/Library/Frameworks/Qmaster.framework",
        "/usr/sbin/qmasterd", "/usr/sbin/qmasterqd"}) {
    EXPECT_EQ(describe(outcome.after, path), describe(outcome.before, path)) << path;
  }
  EXPECT_GE(outcome.timeAfter(unreadable(pane)), 2s) << "owner and mode, a second each";
}

TEST_F(RepairDamageTest, TheStartupItemGetsItsOwnerAndModesBackAndStaysSwitchedOff) {
  const std::string item(startupItem);
  const TemporaryVolume sample({.compressors = {{"3.0.5"}},
                                .logFolder = true,
                                .damage = {{"disabled", item},
                                           {"wrong-owner", item + "/Qmaster"},
                                           {"unwritable", item + "/StartupParameters.plist"},
                                           {"wrong-owner", item + "/StartupParameters.plist"}}});
  const auto outcome = run(sample, {"-repair"});
  expectRun(sample, outcome,
            RepairScript().begun().repaired30().nameChecked().starting().started30().ended());
  EXPECT_THAT(changed(outcome), ElementsAre(item + "/Qmaster", item + "/StartupParameters.plist"));
  EXPECT_EQ(describe(outcome.after, item + "/Qmaster"), "f 0:0 755");
  EXPECT_EQ(describe(outcome.after, item + "/StartupParameters.plist"), "f 0:0 644");
  EXPECT_EQ(describe(outcome.after, item + "/.disabled"), describe(outcome.before, item + "/.disabled"));
}

TEST_F(RepairDamageTest, AMissingStartupItemIsACriticalErrorInASilentRunToo) {
  const std::string item(startupItem);
  const TemporaryVolume sample(
      {.compressors = {{"3.0.5"}}, .logFolder = true, .damage = {{"missing", item + "/Qmaster"}}});
  const std::string critical =
      "Critical error: /Library/StartupItems/Qmaster/Qmaster cannot be found. Please reinstall Qmaster.";
  const auto loud = run(sample, {"-repair"});
  RepairScript script;
  script.begun().detected("3.0", "Detected Compressor 3.0.x.").stopped3();
  script.checked({missing(item + "/Qmaster")}).note("Trashing file StartupItems/Qmaster/.disabled...");
  script.cleaned3().nameChecked().starting().say(critical);
  script.call(std::string(tool) + " -reset").call(std::string(tool) + " -startSharing").ended(errorSummary);
  expectRun(sample, loud, script);
  const auto silent = run(sample, {"-repair", "-silent"});
  EXPECT_THAT(silent.consoleTexts(), ElementsAre(critical));
  EXPECT_THAT(silent.finished, ElementsAre(critical));
}

TEST_F(RepairDamageTest, WhatIsLockedIsReportedAndTheRepairGoesOn) {
  const std::string config = localQmaster + "/qmasterconfig";
  std::optional<TemporaryVolume> sample;
  try {
    sample.emplace(Plan{.compressors = {{"3.5.3"}},
                        .logFolder = true,
                        .damage = {{"locked", config}, {"locked", cachesIn(localSupport)[0]}}});
  } catch (const std::exception& failure) {
    GTEST_SKIP() << "the file system has no locked files: " << failure.what();
  }
  const auto outcome = run(*sample, {"-repair"});
  RepairScript script;
  script.begun().detected("3.5", "Detected Compressor 3.5.x.").stopped3();
  script.checked({config + " is not writable... attempting fix."}).cleaned3().nameChecked().starting();
  expectRun(*sample, outcome, script.started35().ended(errorSummary));
  EXPECT_EQ(describe(outcome.after, config), describe(outcome.before, config));
  EXPECT_THAT(movedInto(outcome, aliceTrash), Not(Contains(cachesIn(localSupport)[0])));
}

class RepairMalformedFileTest : public RootTest, public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Kinds, RepairMalformedFileTest,
                         ::testing::Values("empty", "truncated", "garbage", "huge", "fifo", "folder",
                                           "socket", "link-loop", "dangling-link", "wrong-type",
                                           "wrong-values"),
                         [](const auto& kind) {
                           std::string name = kind.param;
                           std::erase(name, '-');
                           return name;
                         });

TEST_P(RepairMalformedFileTest, AVersionFileMakesItsCopyOneThatIsNotThere) {
  const std::string file = "/Contents/version.plist";
  const TemporaryVolume sample(
      {.compressors = {{"3.5.3"}, {"4.0.7"}},
       .logFolder = true,
       .damage = {{GetParam(), oldCompressor + file}, {GetParam(), newCompressor + file}}});
  const auto outcome = run(sample, {"-repair", "-trash"});
  expectRun(sample, outcome, RepairScript().begun().nameChecked().starting().ended());
  EXPECT_THAT(outcome.difference.moved, IsEmpty());
  EXPECT_LT(outcome.visit.duration, 10s) << "nothing waits for what never comes";
}

TEST_P(RepairMalformedFileTest, AServicesFileNamesNoFurtherSpoolFolder) {
  const std::string file = std::string(userSupport) + "/Apple Qmaster/qmasterservices.plist";
  const TemporaryVolume sample({.compressors = {{"4.0.7"}},
                                .logFolder = true,
                                .configuredFourSpool = "/Users/alice/Movies/Spool",
                                .damage = {{GetParam(), file}}});
  const auto outcome = run(sample, {"-repair"});
  RepairScript script;
  script.begun().detected("4.0", "Detected Compressor 4.x.").stopped4().cleaned4({});
  expectRun(sample, outcome, script.nameChecked().starting().started4().ended(successSummary, false));
  EXPECT_THAT(movedInto(outcome, aliceTrash), IsSupersetOf(trashedOf4()));
  EXPECT_THAT(movedInto(outcome, aliceTrash), Not(Contains("/Users/alice/Movies/Spool")));
}

TEST_F(RepairDamageTest, ACopyWithAMalformedVersionFileDoesNotKeepTheOtherFromItsRepair) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}, {"4.0.7"}},
                                .logFolder = true,
                                .damage = {{"link-loop", oldCompressor + "/Contents/version.plist"}}});
  const auto outcome = run(sample, {"-repair"});
  expectRun(sample, outcome, RepairScript().begun().repaired4().nameChecked().starting().started4().ended());
}

TEST_F(RepairDamageTest, AMalformedServicesFileOfTheComputerNamesNoSpoolFolder) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}},
                                .logFolder = true,
                                .configuredSpool = "/Users/alice/Movies/Spool",
                                .damage = {{"wrong-values", localQmaster + "/qmasterservices.plist"}}});
  const auto outcome = run(sample, {"-repair"});
  expectRun(sample, outcome,
            RepairScript().begun().repaired35().nameChecked().starting().started35().ended());
}

TEST_F(RepairDamageTest, MissingPreferenceToolsAreDoneWithout) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}, {"4.0.7"}},
                                .logFolder = true,
                                .damage = {{"missing", tool}, {"missing", tool4}}});
  const auto outcome = run(sample, {"-repair"});
  const std::string notThere = std::string("Unable to execute task: path ") + tool + " doesn't exist";
  const std::string notInside = std::string("Unable to locate qmasterprefs application at ") + tool4;
  const std::string load = "/bin/launchctl load " + std::string(launchdJob);
  RepairScript script;
  script.begun().detected("3.5", "Detected Compressor 3.5.x.").print(notThere).note("Stopping apps...");
  script.checked({missing(tool)}).cleaned3();
  script.detected("4.0", "Detected Compressor 4.x.").note(notInside).note(notInside).note("Stopping apps...");
  script.cleaned4().nameChecked().starting().call(load).print(notThere).call(load);
  script.note(notInside).note(notInside).ended(errorSummary);
  expectRun(sample, outcome, script);
}

TEST_F(RepairDamageTest, AComputerWithoutANameIsNoError) {
  for (const char* damage : {"no-computer-name", "no-local-host-name"}) {
    const TemporaryVolume sample({.logFolder = true, .damage = {{damage, ""}}});
    const auto outcome = run(sample, {"-repair"});
    expectRun(sample, outcome,
              RepairScript().begun().nameChecked(false).starting().ended(successSummary, false));
  }
}

TEST_F(RepairDamageTest, ACompressorThatTakesItsTimeToQuitIsWaitedFor) {
  const TemporaryVolume sample(
      {.compressors = {{"4.0.7", "", true}}, .logFolder = true, .damage = {{"slow-quit", newCompressor}}});
  const auto outcome = run(sample, {"-repair"});
  RepairScript script;
  script.begun().closed4().repaired4().nameChecked().starting().started4().ended(successSummary, false);
  expectRun(sample, outcome, script);
  EXPECT_GE(outcome.timeAfter("Waiting for Compressor 4 to exit..."), 4s);
  EXPECT_LT(outcome.timeAfter("Waiting for Compressor 4 to exit..."), 10s);
}

TEST_F(RepairDamageTest, ACompressorThatWillNotQuitIsWaitedForInVainAndTheRepairGoesOn) {
  const TemporaryVolume sample(
      {.compressors = {{"4.0.7", "", true}}, .logFolder = true, .damage = {{"ignores-quit", newCompressor}}});
  const auto outcome = run(sample, {"-repair"});
  RepairScript script;
  script.begun().closed4().repaired4().nameChecked().starting().started4().ended(successSummary, false);
  expectRun(sample, outcome, script);
  EXPECT_GE(outcome.timeAfter("Waiting for Compressor 4 to exit..."), 42s);
  EXPECT_LT(outcome.timeAfter("Waiting for Compressor 4 to exit..."), 60s);
  EXPECT_THAT(
      outcome.running,
      Contains(
          "root /Applications/Compressor.app/Contents/PlugIns/Compressor/CompressorKit.bundle/qmasterd"));
  EXPECT_THAT(outcome.running, Contains("501 /Applications/Compressor.app/Contents/MacOS/Compressor"));
  EXPECT_EQ(movedInto(outcome, aliceTrash), trashedOf4());
}

/// A copy of the bundle, for a test to damage.
class BundleCopy {
 public:
  BundleCopy() : folder_((fs::temp_directory_path() / "bundle.XXXXXX").string()) {
    if (::mkdtemp(folder_.data()) == nullptr) throw std::system_error(errno, std::generic_category());
    ::chmod(folder_.c_str(), 0755);
    fs::copy(QUILLMEND_BUNDLE, path(), fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  }
  ~BundleCopy() {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
  }
  BundleCopy(const BundleCopy&) = delete;
  BundleCopy& operator=(const BundleCopy&) = delete;

  [[nodiscard]] std::string path() const { return folder_ + "/Quillmend.app"; }

 private:
  std::string folder_;
};

TEST_F(RepairDamageTest, MissingHelpersAreNotedOneByOneAndTheRepairGoesOn) {
  const BundleCopy bundle;
  for (const char* helper : {"trashtool", "killtool", "chmodtool", "chowntool"}) {
    ASSERT_TRUE(fs::remove(bundle.path() + "/Contents/Helpers/" + helper));
  }
  auto options = programVisit();
  options.bundle = bundle.path();
  const TemporaryVolume sample({.compressors = {{"3.5.3"}}, .logFolder = true});
  const auto outcome = run(sample, {"-repair"}, options);
  EXPECT_EQ(outcome.visit.status, 0);
  RepairScript whole;
  whole.begun().repaired35().nameChecked().starting().ended();
  std::vector<std::string> entries;
  for (const auto& entry : whole.log()) {
    entries.push_back(entry);
    if (entry == "Stopping apps...") entries.emplace_back("Error stopping Qmaster: -2");
    if (entry.starts_with("Trashing file ")) entries.emplace_back("Error trashing file: -2");
    if (entry.starts_with("Trashing contents of spool folder ")) {
      entries.emplace_back("Error trashing contents of spool folder: -2");
    }
    if (entry.starts_with("Trashing contents of folder ")) {
      entries.emplace_back("Error trashing contents of folder: -2");
    }
  }
  expectLog(sample, localLog, entries);
  EXPECT_THAT(outcome.difference.moved, IsEmpty());
  EXPECT_EQ(value(sample, "qmaster.resets"), "1");
}

}  // namespace
}  // namespace workstation
