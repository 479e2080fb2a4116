#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "tests/workstation/RepairScript.h"
#include "tests/workstation/RootTest.h"
#include "workstation/TemporaryVolume.h"

// What is moved: names of every kind, and spool folders that the services files name.

namespace workstation {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RepairFilesTest : public RootTest {
 protected:
  static RepairScript scriptOf4(const std::vector<std::string>& furtherSpool = {rootsSpool4}) {
    RepairScript script;
    script.begun().detected("4.0", "Detected Compressor 4.x.").stopped4().cleaned4(furtherSpool);
    return script.nameChecked().starting().started4().ended(successSummary, false);
  }
  static RepairScript scriptOf3(const std::vector<std::string>& spool) {
    RepairScript script;
    script.begun().detected("3.5", "Detected Compressor 3.5.x.").stopped3().checked().cleaned3(spool);
    return script.nameChecked().starting().started35().ended();
  }
};

TEST_F(RepairFilesTest, NamesOfEveryKindAreMovedByteForByte) {
  const TemporaryVolume sample({.compressors = {{"4.0.7"}}, .logFolder = true});
  const std::string history = historyFolders(true)[0];
  const std::vector<std::string> names{
      "two  blanks ",  " ", "a\nline feed",  "tab\there", "-spooldir",           "--", "\xff\xfe\x80",
      "50%@ of %s %n", "*", "quote'\"`$(x)", "..hidden",  std::string(255, 'n'), "\\", ":"};
  for (const auto& name : names) {
    std::ofstream(sample.volume().host(history) / name) << "history of " << name;
    ASSERT_EQ(::lchown((sample.volume().host(history) / name).c_str(), 501, 20), 0);
  }
  fs::create_directory_symlink("/Users/bob", sample.volume().host(history) / "link to bob");
  const auto outcome = run(sample, {"-repair"});
  expectRun(sample, outcome, scriptOf4());
  std::vector<std::string> expected{history + "/link to bob"};
  for (const auto& name : names) expected.push_back(std::string(history).append("/").append(name));
  EXPECT_EQ(movedInto(outcome, aliceTrash), together({trashedOf4(), expected}));
  EXPECT_TRUE(fs::is_empty(sample.volume().host(history)));
  EXPECT_EQ(describe(outcome.after, "/Users/bob"), describe(outcome.before, "/Users/bob"));
}

TEST_F(RepairFilesTest, NothingInTheTrashIsReplaced) {
  const TemporaryVolume sample({.compressors = {{"4.0.7"}}, .logFolder = true});
  const std::string taken = std::string(aliceTrash) + "/2011-03-01 Trailer.history";
  std::ofstream(sample.volume().host(taken)) << "thrown away before";
  const auto outcome = run(sample, {"-repair"});
  expectRun(sample, outcome, scriptOf4());
  EXPECT_EQ(movedInto(outcome, aliceTrash), trashedOf4());
  EXPECT_EQ(outcome.after.entries.at(taken).identity, outcome.before.entries.at(taken).identity);
}

TEST_F(RepairFilesTest, AConfiguredSpoolFolderInSomebodysHomeGoesToTheirTrash) {
  const std::string spool = "/Users/bob/Movies/Spool";
  const TemporaryVolume sample({.compressors = {{"3.5.3"}}, .logFolder = true, .configuredSpool = spool});
  const auto outcome = run(sample, {"-repair"});
  expectRun(sample, outcome, scriptOf3({"/private/var/spool/qmaster", spool}));
  EXPECT_THAT(movedInto(outcome, "/Users/bob/.Trash"), ElementsAre(spool));
  EXPECT_EQ(movedInto(outcome, aliceTrash), trashedOf3());
  EXPECT_EQ(describe(outcome.after, spool), describe(outcome.before, spool));
  EXPECT_TRUE(fs::is_empty(sample.volume().host(spool)));
}

TEST_F(RepairFilesTest, ATildeInTheComputersServicesFileIsNobodysHome) {
  const TemporaryVolume sample(
      {.compressors = {{"3.5.3"}}, .logFolder = true, .configuredSpool = "~/Movies/Spool"});
  const auto outcome = run(sample, {"-repair"});
  expectRun(sample, outcome, scriptOf3({"/private/var/spool/qmaster", "~/Movies/Spool"}));
  EXPECT_EQ(movedInto(outcome, aliceTrash), trashedOf3()) << "a relative path is refused";
}

TEST_F(RepairFilesTest, AServicesFileWithoutASettingNamesNoFurtherSpoolFolder) {
  const TemporaryVolume sample({.compressors = {{"4.0.7"}}, .logFolder = true, .configuredFourSpool = ""});
  expectRun(sample, run(sample, {"-repair"}), scriptOf4({}));
}

TEST_F(RepairFilesTest, TheComputersSpoolFolderIsEmptiedTwiceWhenItIsConfigured) {
  const std::string local = std::string(localSupport) + "/Apple Qmaster/Storage";
  const TemporaryVolume sample({.compressors = {{"4.0.7"}}, .logFolder = true, .configuredFourSpool = local});
  const auto outcome = run(sample, {"-repair"});
  expectRun(sample, outcome, scriptOf4({local}));
  EXPECT_THAT(movedInto(outcome, aliceTrash), Contains(local).Times(1));
}

TEST_F(RepairFilesTest, ASpoolFolderThatIsAUsersLinkToAnothersHomeIsLeftAlone) {
  const std::string link = "/Users/alice/Movies/Spool";
  const TemporaryVolume sample({.compressors = {{"4.0.7"}}, .logFolder = true, .configuredFourSpool = link});
  fs::remove_all(sample.volume().host(link));
  fs::create_directory_symlink("/Users/bob/Documents", sample.volume().host(link));
  ASSERT_EQ(::lchown(sample.volume().host(link).c_str(), 501, 20), 0);
  const auto outcome = run(sample, {"-repair"});
  expectRun(sample, outcome, scriptOf4({link}));
  EXPECT_EQ(describe(outcome.after, "/Users/bob/Documents/Cut list.txt"), "f 502:20 644");
  EXPECT_THAT(movedInto(outcome, "/Users/bob/.Trash"), IsEmpty());
}

TEST_F(RepairFilesTest, AProtectedFolderAsSpoolFolderIsLeftAlone) {
  const TemporaryVolume sample(
      {.compressors = {{"4.0.7"}}, .logFolder = true, .configuredFourSpool = "/Users/alice/Documents"});
  const auto outcome = run(sample, {"-repair"});
  expectRun(sample, outcome, scriptOf4({"/Users/alice/Documents"}));
  EXPECT_EQ(describe(outcome.after, "/Users/alice/Documents/Cut list.txt"), "f 501:20 644");
}

TEST_F(RepairFilesTest, AUserWithoutATrashGetsOne) {
  const TemporaryVolume sample({.compressors = {{"4.0.7"}}, .logFolder = true, .trashFolder = false});
  const auto outcome = run(sample, {"-repair"});
  expectRun(sample, outcome, scriptOf4());
  EXPECT_EQ(describe(outcome.after, aliceTrash), "d 501:20 700");
  EXPECT_EQ(movedInto(outcome, aliceTrash), trashedOf4());
}

TEST_F(RepairFilesTest, ManySpoolFilesGoAsOneFolder) {
  constexpr std::size_t count = 4000;
  const TemporaryVolume sample({.compressors = {{"3.5.3"}}, .logFolder = true, .spoolFiles = count});
  const auto outcome = run(sample, {"-repair"});
  const auto& moved = outcome.difference.moved;
  const auto spool = std::find_if(moved.begin(), moved.end(),
                                  [](const Move& move) { return move.from == "/private/var/spool/qmaster"; });
  ASSERT_NE(spool, moved.end());
  EXPECT_EQ(spool->things, count + 1);
  EXPECT_TRUE(fs::is_empty(sample.volume().host("/private/var/spool/qmaster")));
}

}  // namespace
}  // namespace workstation
