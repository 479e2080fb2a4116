#include "app/CommandLine.h"

#include <array>
#include <cstdlib>

#include "tests/app/ControllerTest.h"

namespace {

constexpr const char* kProgram = "/Applications/Quillmend.app/Contents/MacOS/Quillmend";
/// A request to end that came while the window was open has its effect behind it.
constexpr const char* kDelivered = "deliver interruption";
constexpr const char* kTool = "/usr/sbin/qmasterprefs";

const char* const kHelp =
    "\nQuillmend Help\n\n-help - Displays command listings.\n-repair - Activates command-line mode and "
    "starts "
    "the repair automatically.\n-silent - Suppresses output (ignored if -repair is not set).\n-trash - "
    "Trashes "
    "preferences and window layouts (ignored if -repair is not set).\n-trashPrefs - Trashes preferences "
    "(ignored if -repair is not set).\n-trashlayout - Trashes window layout (ignored if -repair is not "
    "set).\n";

/// A stream that collects what is printed to it.
class Printout {
 public:
  Printout() : stream_(::open_memstream(&text_, &size_)) {}
  ~Printout() {
    std::fclose(stream_);
    std::free(text_);
  }
  Printout(const Printout&) = delete;
  Printout& operator=(const Printout&) = delete;

  std::FILE* stream() { return stream_; }
  std::string text() {
    std::fflush(stream_);
    return {text_, size_};
  }

 private:
  char* text_ = nullptr;
  std::size_t size_ = 0;
  std::FILE* stream_;
};

/// Runs the program as root on a Mac with Qmaster's tool.
class CommandLineTest : public ControllerTest {
 protected:
  void SetUp() override {
    becomeRoot();
    mac.files.makeFile(kTool);
  }
  int run(Lines arguments) {
    arguments.insert(arguments.begin(), kProgram);
    mac.processInformation.argumentList = arguments;
    return runCommandLine(arguments, printout.stream());
  }
  /// The lines that begin with these words.
  std::string only(const Lines& words) const { return text(mac.recorder.only(words)); }
  bool hasRepaired() const { return !mac.distributedNotifications.posted.empty(); }
  bool said(const std::string& line) const {
    const Lines messages = mac.systemConsole.messages();
    return std::find(messages.begin(), messages.end(), line) != messages.end();
  }

  Printout printout;
};

}  // namespace

TEST_F(CommandLineTest, HelpIsPrintedAsItStandsAndNothingElseIsDone) {
  EXPECT_EQ(run({"-help"}), 0);
  EXPECT_EQ(printout.text(), kHelp);
  EXPECT_EQ(recorded(), "");
  EXPECT_FALSE(mac.files.exists("/Library/Logs/Vordenworks/Quillmend.task.1.log"));
}

TEST(HelpTest, TheProgramsOwnPathIsAnArgumentToo) {
  Printout printout;
  EXPECT_EQ(runCommandLine({"-help"}, printout.stream()), 0);
  EXPECT_EQ(printout.text(), kHelp);
}

TEST(HelpTest, NeedsNoPlatform) {
  Printout printout;
  EXPECT_EQ(runCommandLine({kProgram, "-help"}, printout.stream()), 0);  // native() would throw
  EXPECT_EQ(printout.text(), kHelp);
}

TEST(HelpTest, AnOutputThatCannotBeWrittenToIsNoError) {
  std::FILE* const full = std::fopen("/dev/full", "w");
  ASSERT_NE(full, nullptr);
  EXPECT_EQ(runCommandLine({kProgram, "-help"}, full), 0);
  std::fclose(full);
}

TEST_F(CommandLineTest, HelpBehindRepairPrintsHelpAndDoesNotRepair) {
  EXPECT_EQ(run({"-repair", "-help"}), 0);
  EXPECT_EQ(printout.text(), kHelp);
  EXPECT_FALSE(hasRepaired());
}

TEST_F(CommandLineTest, NothingBehindHelpIsLookedAt) {
  EXPECT_EQ(run({"-HELP", "-stopsharing", "-repair"}), 0);
  EXPECT_EQ(recorded(), "");
}

TEST_F(CommandLineTest, RepairTakesRootRepairsAndExitsWithZero) {
  EXPECT_EQ(run({"-repair"}), 0);
  EXPECT_EQ(mac.recorder.lines().front(), "setuid 0");
  EXPECT_TRUE(hasRepaired());
  EXPECT_EQ(printout.text(), "");
  EXPECT_EQ(only({"desktop"}), "");
}

TEST_F(CommandLineTest, TheCaseOfLettersDoesNotMatter) {
  EXPECT_EQ(run({"-REPAIR", "-TrashPrefs"}), 0);
  EXPECT_TRUE(hasRepaired());
}

TEST_F(CommandLineTest, AutoIsRepair) {
  EXPECT_EQ(run({"-auto"}), 0);
  EXPECT_TRUE(hasRepaired());
}

TEST_F(CommandLineTest, TheExitStatusIsZeroWithoutRightsAndWithErrors) {
  makeVersionFile("/Applications/Compressor.app", "3.5");
  EXPECT_EQ(run({"-repair"}), 0);
  EXPECT_TRUE(said("Processing complete. Errors were found during processing."));
  mac.users.user = 501;
  EXPECT_EQ(run({"-repair"}), 0);
}

TEST_F(CommandLineTest, SilentSaysNothing) {
  EXPECT_EQ(run({"-silent", "-repair"}), 0);
  EXPECT_EQ(mac.systemConsole.messages(), Lines{});
  EXPECT_TRUE(hasRepaired());
}

namespace {

struct FlagCase {
  const char* flag;
  bool trashes;
  bool resetsLayout;
};

class TrashFlagTest : public CommandLineTest, public testing::WithParamInterface<FlagCase> {};

}  // namespace

TEST_P(TrashFlagTest, DecidesAboutPreferencesAndLayout) {
  makeVersionFile("/Applications/Compressor.app", "4.1");
  EXPECT_EQ(run({GetParam().flag, "-repair"}), 0);
  EXPECT_EQ(said("Trashing preferences..."), GetParam().trashes);
  EXPECT_EQ(said("Resetting window layout..."), GetParam().resetsLayout);
}

INSTANTIATE_TEST_SUITE_P(Flags, TrashFlagTest,
                         testing::Values(FlagCase{"-trash", true, true}, FlagCase{"-trashprefs", true, false},
                                         FlagCase{"-trashPrefs", true, false},
                                         FlagCase{"-trashlayout", false, true},
                                         FlagCase{"-trashlayouts", false, false},
                                         FlagCase{"trash", false, false}));

TEST_F(CommandLineTest, FlagsWithoutRepairStartTheDesktopApplicationWithUnchangedArguments) {
  mac.desktopApplication.result = 7;
  EXPECT_EQ(run({"-Silent", "-trash"}), 7);
  EXPECT_EQ(recorded(),
            text({"desktop application " + std::string(kProgram) + " -Silent -trash", kDelivered}));
}

TEST_F(CommandLineTest, NoArgumentStartsTheDesktopApplication) {
  EXPECT_EQ(run({}), 0);
  EXPECT_EQ(recorded(), text({"desktop application " + std::string(kProgram), kDelivered}));
}

TEST_F(CommandLineTest, UnknownArgumentsAreIgnored) {
  EXPECT_EQ(run({"", "-x", "--repair", "-repair ", "\xFF", "-repair"}), 0);
  EXPECT_TRUE(hasRepaired());
}

TEST_F(CommandLineTest, AnEmptyArgumentListStartsTheDesktopApplication) {
  EXPECT_EQ(runCommandLine({}, printout.stream()), 0);
  EXPECT_EQ(recorded(), text({"desktop application", kDelivered}));
}

TEST_F(CommandLineTest, StopSharingEndsTheProgramBeforeRepairIsSeen) {
  EXPECT_EQ(run({"-stopsharing", "-repair"}), 0);
  EXPECT_EQ(
      only({"run", "sleep"}).find("run /usr/sbin/qmasterprefs -stopSharing\nsleep 1s\n") != std::string::npos,
      true);
  EXPECT_FALSE(hasRepaired());
  EXPECT_EQ(only({"setuid"}), "");
}

TEST_F(CommandLineTest, StopSharingBehindRepairIsDoneInsteadOfIt) {
  EXPECT_EQ(run({"-repair", "-stopsharing"}), 0);
  EXPECT_FALSE(hasRepaired());
  EXPECT_THAT(mac.recorder.lines(), testing::Contains("run /usr/sbin/qmasterprefs -stopSharing"));
}

namespace {

/// Qmaster's calls and the pauses around them, without those of the crash watch.
Lines sharingLines(const Lines& recorded) {
  Lines lines;
  for (const std::string& line : recorded) {
    if (line.starts_with("run /usr/sbin/qmasterprefs") || line.starts_with("sleep")) lines.push_back(line);
  }
  return lines;
}

}  // namespace

TEST_F(CommandLineTest, StartSharing) {
  EXPECT_EQ(run({"-startSharing"}), 0);
  EXPECT_EQ(text(sharingLines(mac.recorder.lines())),
            text({"run /usr/sbin/qmasterprefs -startSharing", "sleep 600us"}));
}

TEST_F(CommandLineTest, RestartSharingStopsWaitsAndStarts) {
  EXPECT_EQ(run({"-restartsharing"}), 0);
  EXPECT_EQ(text(sharingLines(mac.recorder.lines())),
            text({"run /usr/sbin/qmasterprefs -stopSharing", "sleep 1s", "sleep 1s",
                  "run /usr/sbin/qmasterprefs -startSharing", "sleep 600us"}));
}

TEST_F(CommandLineTest, SharingLogsAsATaskAndNotAsTheWindow) {
  EXPECT_EQ(run({"-startsharing"}), 0);
  EXPECT_TRUE(mac.files.exists("/Library/Logs/Vordenworks/Quillmend.task.1.log"));
  EXPECT_FALSE(mac.files.exists("/Library/Logs/Vordenworks/Quillmend.1.log"));
}

TEST_F(CommandLineTest, ASharingToolThatCannotBeLaunchedIsLoggedAndTheStatusStaysZero) {
  mac.subprocesses.runs[kTool].launchFailure =
      foundation::Exception(foundation::kInvalidArgumentException, "launch path not accessible");
  EXPECT_EQ(run({"-stopsharing"}), 0);
  EXPECT_EQ(taskLog().back(), "Exception in main. NSInvalidArgumentException - launch path not accessible.");
}

TEST_F(CommandLineTest, ARepairHoldsRequestsToEndBackUntilTheLogIsWritten) {
  EXPECT_EQ(run({"-repair"}), 0);
  const Lines lines = mac.recorder.lines();
  EXPECT_EQ(lines[1], "defer interruption");
  EXPECT_EQ(lines.back(), "deliver interruption");
}

TEST_F(CommandLineTest, SharingCommandsEndByASignalAtOnce) {
  run({"-stopsharing"});
  EXPECT_EQ(only({"defer", "deliver"}), "");
}

TEST_F(CommandLineTest, AHelpThatCannotBePrintedIsNobodysLoss) {
  std::FILE* const closed = std::fopen("/dev/null", "r");
  ASSERT_NE(closed, nullptr);
  EXPECT_EQ(runCommandLine({kProgram, "-help", "-repair"}, closed), 0);
  std::fclose(closed);
  EXPECT_EQ(recorded(), "");
}
