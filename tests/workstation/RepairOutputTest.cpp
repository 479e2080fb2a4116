#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>

#include <filesystem>
#include <fstream>
#include <optional>

#include "tests/workstation/RepairScript.h"
#include "tests/workstation/RootTest.h"
#include "workstation/TemporaryVolume.h"

// A repair whose lines, or whose log, have nowhere to go.

namespace workstation {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::StartsWith;

/// That a Compressor 4 was repaired and it was announced, whatever became of the console and the log.
void expectRepaired4(const Outcome& outcome) {
  RepairScript script;
  script.begun().repaired4().nameChecked().starting().started4().ended(successSummary, false);
  expectRunBeforeLog(outcome, script);
  EXPECT_THAT(movedInto(outcome, aliceTrash), ElementsAreArray(trashedOf4()));
}

class RepairOutputTest : public RootTest {
 protected:
  static Plan compressor4() { return {.compressors = {{"4.0.7"}}, .logFolder = true}; }

  /// Repairs with the streams that the redirection makes, and checks all but the console.
  static void expectRepairWith(const std::string& redirection) {
    const TemporaryVolume sample(compressor4());
    const auto outcome = runShell(sample, "exec \"$Q\" -repair " + redirection);
    expectRepaired4(outcome);
    expectLog(sample, localLog, wholeLog());
  }
  static std::vector<std::string> wholeLog() {
    RepairScript script;
    return script.begun().repaired4().nameChecked().starting().started4().ended(successSummary, false).log();
  }
};

TEST_F(RepairOutputTest, ClosedStreamsDoNotKeepItFromItsWork) {
  expectRepairWith("<&- >&- 2>&-");
}

TEST_F(RepairOutputTest, AFullDeviceDoesNotKeepItFromItsWork) {
  expectRepairWith("2>/dev/full");
}

TEST_F(RepairOutputTest, AReaderThatLeavesDoesNotKeepItFromItsWork) {
  const TemporaryVolume sample(compressor4());
  const auto outcome = runShell(sample, "{ \"$Q\" -repair; echo $? >/private/tmp/status; } 2>&1 | true");
  expectRepaired4(outcome);
  expectLog(sample, localLog, wholeLog());
  EXPECT_EQ(contentsOf(sample.volume().host("/private/tmp/status").string()), "0\n");
}

TEST_F(RepairOutputTest, AReaderThatNeverReadsDoesNotKeepItFromItsWork) {
  const TemporaryVolume sample(compressor4());
  // The pipe is full before the repair begins.
  const auto outcome = runShell(
      sample,
      "mkfifo /private/tmp/pipe; exec 3<>/private/tmp/pipe; "
      "timeout 1 dd if=/dev/zero of=/private/tmp/pipe bs=4096 2>/dev/null; exec \"$Q\" -repair 2>&3");
  expectRepaired4(outcome);
  EXPECT_LT(outcome.visit.duration, std::chrono::seconds(15));
}

TEST_F(RepairOutputTest, WithoutTheLocalLogFolderTheEntriesAreSaidInstead) {
  const TemporaryVolume sample({.compressors = {{"4.0.7"}}});
  const auto outcome = run(sample, {"-repair"});
  expectRepaired4(outcome);
  EXPECT_FALSE(readLog(sample));
  const auto texts = outcome.consoleTexts();
  EXPECT_THAT(texts[0], StartsWith(std::string("Unable to create log file ") + localLog + " - "));
  for (const auto& entry : wholeLog()) {
    EXPECT_THAT(texts, Contains("Unable to log the following information: " + entry));
  }
  EXPECT_THAT(texts, Contains("Unable to open log for output").Times(wholeLog().size()));
}

TEST_F(RepairOutputTest, TheUsersLogFolderIsMadeEvenWhereTheLogIsElsewhere) {
  const TemporaryVolume sample({.logFolder = true});
  const auto outcome = run(sample, {"-repair"});
  EXPECT_THAT(created(outcome), Contains("/Users/alice/Library/Logs/Vordenworks"));
  EXPECT_TRUE(fs::is_empty(sample.volume().host("/Users/alice/Library/Logs/Vordenworks")));
}

TEST_F(RepairOutputTest, AUsersLogFolderThatCannotBeMadeLeavesTheLogClosed) {
  const TemporaryVolume sample({.logFolder = true, .damage = {{"missing", "/Users/alice/Library/Logs"}}});
  std::ofstream(sample.volume().host("/Users/alice/Library/Logs")) << "a file in its place";
  const auto outcome = run(sample, {"-repair"});
  EXPECT_EQ(outcome.visit.status, 0);
  EXPECT_THAT(outcome.consoleTexts(),
              AllOf(Contains("Unable to create folder /Users/alice/Library/Logs/Vordenworks."),
                    Contains("Unable to open log for output"), Contains(successSummary)));
}

TEST_F(RepairOutputTest, ALogFolderThatCannotBeWrittenToIsToldAndTheRepairGoesOn) {
  std::optional<TemporaryVolume> sample;
  try {
    sample.emplace(Plan{
        .compressors = {{"4.0.7"}}, .logFolder = true, .damage = {{"locked", "/Library/Logs/Vordenworks"}}});
  } catch (const std::exception& failure) {
    GTEST_SKIP() << "the file system has no locked folders: " << failure.what();
  }
  const auto outcome = run(*sample, {"-repair"});
  expectRepaired4(outcome);
  EXPECT_THAT(outcome.consoleTexts(),
              AllOf(Contains(StartsWith(std::string("Unable to create log file ") + localLog + " - ")),
                    Contains("Unable to log the following information: Starting repair..."),
                    Contains("Unable to open log for output"), Contains(successSummary)));
}

/// A file system of 64 KiB in a mount namespace of this process.
class SmallDisk {
 public:
  SmallDisk() : folder_((fs::temp_directory_path() / "disk.XXXXXX").string()) {
    if (::mkdtemp(folder_.data()) == nullptr || ::unshare(CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", folder_.c_str(), "tmpfs", 0, "size=64k,mode=755") != 0) {
      throw std::system_error(errno, std::generic_category(), folder_);
    }
  }
  ~SmallDisk() {
    ::umount2(folder_.c_str(), MNT_DETACH);
    ::rmdir(folder_.c_str());
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  /// Takes all room but that many pages.
  void fill(std::uintmax_t pagesLeft) const {
    constexpr std::uintmax_t page = 4096;
    std::ofstream file(folder_ + "/ballast", std::ios::binary);
    const std::string bytes(fs::space(folder_).available - pagesLeft * page, 'x');
    file << bytes;
  }
  [[nodiscard]] const std::string& path() const { return folder_; }

 private:
  std::string folder_;
};

class RepairFullDiskTest : public RepairOutputTest {
 protected:
  static Outcome runWithLogOn(const SmallDisk& disk, const Volume& volume) {
    auto options = programVisit();
    options.readWrite = {{disk.path(), "/Library/Logs/Vordenworks"}};
    return run(volume, {"-repair"}, options);
  }
};

TEST_F(RepairFullDiskTest, ALogThatCannotBeBegunIsToldAndTheRepairGoesOn) {
  const SmallDisk disk;
  disk.fill(0);
  const TemporaryVolume sample(compressor4());
  const auto outcome = runWithLogOn(disk, sample);
  expectRepaired4(outcome);
  EXPECT_THAT(outcome.consoleTexts(),
              AllOf(Contains(StartsWith(std::string("Unable to create log file ") + localLog + " - ")),
                    Contains("Unable to log the following information: Starting repair..."),
                    Contains(successSummary)));
}

TEST_F(RepairFullDiskTest, ALogThatFillsTheDiskIsToldAndTheRepairGoesOn) {
  const SmallDisk disk;
  disk.fill(1);
  const TemporaryVolume sample({.compressors = {{"3.5.3"}, {"4.0.7"}}, .logFolder = true});
  const auto outcome = runWithLogOn(disk, sample);
  const auto log = contentsOf(disk.path() + "/Quillmend.task.1.log");
  ASSERT_TRUE(log);
  EXPECT_LE(log->size(), 4096U) << "more fits on it than this repair writes";
  EXPECT_THAT(*log, HasSubstr("Starting repair..."));
  RepairScript script;
  script.begun().repaired35().repaired4().nameChecked().starting().started35().started4().ended();
  expectRunBeforeLog(outcome, script);
  EXPECT_THAT(outcome.consoleTexts(), Contains(StartsWith("Exception writing to log: ")));
}

TEST_F(RepairOutputTest, ALogThatIsSwitchedOffIsSaidOnceAndNothingIsWritten) {
  const TemporaryVolume sample({.logFolder = true});
  std::ofstream(sample.volume().host("/Users/alice/Library/Preferences/com.vordenworks.global.plist"))
      << R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>)"
      << "<key>disable-logging</key><true/><key>growlDisabled</key><true/></dict></plist>";
  const auto outcome = run(sample, {"-repair"});
  RepairScript script;
  script.begun().nameChecked().starting().ended(successSummary, false);
  auto console = script.console();
  console.insert(console.begin(), "Logging is disabled");
  EXPECT_THAT(outcome.consoleTexts(), ElementsAreArray(console));
  EXPECT_FALSE(readLog(sample));
  EXPECT_THAT(outcome.finished, ElementsAre(script.output()));
  EXPECT_THAT(outcome.shown, ::testing::IsEmpty()) << "desktop notifications are switched off too";
}

}  // namespace
}  // namespace workstation
