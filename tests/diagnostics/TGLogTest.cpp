#include "diagnostics/TGLog.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <sstream>
#include <thread>

#include "tests/diagnostics/LogFixture.h"
#include "tests/support/AsUser.h"
#include "tests/support/Gate.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

/// Keeps what is written in pieces; fails every write once it is told to.
class RecordingFile : public platform::WritableFile {
 public:
  foundation::Result<void> write(std::string_view bytes) override {
    if (onWrite) onWrite();
    if (fails) return foundation::systemError(ENOSPC, "/the log");
    pieces.emplace_back(bytes);
    return {};
  }
  foundation::Result<void> seekToEnd() override { return {}; }

  std::vector<std::string> pieces;
  bool fails = false;
  std::function<void()> onWrite;
};

class TGLogTest : public LogFixture {
 protected:
  static TGLog& shared() { return *TGLog::sharedController(); }

  /// Makes the write queue busy until the gate is opened.
  static void block(const Gate& gate) { shared().writeQueue()->addOperation(gate.wait()); }

  /// Appends so that exactly that many bytes are counted as written.
  static std::string fillUpTo(std::uint64_t bytes) {
    const std::string message = "the last line";
    shared().setBytesWritten(bytes - entry(message).size());
    TGLog::appendLog(message);
    TGLog::finishWriting();
    return message;
  }
};

// --- the singleton ---

TEST_F(TGLogTest, SharedControllerAnswersOneObjectWithAQueue) {
  TGLog* const first = TGLog::sharedController();
  const auto queue = first->writeQueue();
  EXPECT_NE(queue, nullptr);
  EXPECT_EQ(TGLog::sharedController(), first);
  EXPECT_EQ(first->writeQueue(), queue);
}

TEST_F(TGLogTest, ASecondAllocationYieldsNothing) {
  TGLog* const first = TGLog::alloc();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(TGLog::alloc(), nullptr);
  EXPECT_EQ(TGLog::sharedController(), first);
  EXPECT_NE(first->writeQueue(), nullptr);
}

TEST_F(TGLogTest, TheObjectIsItsOwnCopyAndIsNeverFreed) {
  TGLog* const object = TGLog::sharedController();
  EXPECT_EQ(object->copy(), object);
  EXPECT_EQ(object->retain(), object);
  EXPECT_EQ(object->autorelease(), object);
  object->release();
  EXPECT_EQ(TGLog::sharedController(), object);
  EXPECT_EQ(TGLog::retainCount(), 4'294'967'295U);
}

TEST_F(TGLogTest, ReleaseWritesWhatIsQueued) {
  TGLog::createNewLog("Quillmend");
  const std::string message(5000, 'x');
  TGLog::appendLog(message);
  shared().release();
  EXPECT_EQ(entries(generation(1)), entry(message));
}

// --- names and places ---

TEST_F(TGLogTest, ANewLogHoldsTheHeader) {
  TGLog::createNewLog("Quillmend.task");
  EXPECT_EQ(content(generation(1, "Quillmend.task")), kHeader);
  EXPECT_NE(shared().fileHandle(), nullptr);
  EXPECT_EQ(shared().bytesWritten(), 0U);
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGLogTest, TheHeaderLeavesOutAVersionThatTheBundleLacks) {
  fake.mainBundle.info = foundation::PropertyList();
  TGLog::createNewLog("Quillmend");
  EXPECT_THAT(content(generation(1)), StartsWith("Log started: 2011-01-01 10:00:00 +0000\nPath: "));
}

TEST_F(TGLogTest, TheHeaderLeavesOutThePathWithoutABundle) {
  fake.mainBundle.executable = "";
  TGLog::createNewLog("Quillmend");
  EXPECT_THAT(content(generation(1)),
              StartsWith("Log started: 2011-01-01 10:00:00 +0000\nVersion: 2.1\nSystem: OS X "));
}

TEST_F(TGLogTest, TheNameIsTheExecutablesUntilOneIsGiven) {
  fake.mainBundle.executable = "/opt/Some Tool.exe";
  EXPECT_EQ(shared().appName(), "Some Tool");
  TGLog::createNewLog();
  EXPECT_TRUE(fake.files.exists(generation(1, "Some Tool")));
  TGLog::createNewLog("");
  EXPECT_EQ(shared().appName(), "Some Tool");
  TGLog::createNewLog("Quillmend.task");
  EXPECT_EQ(shared().appName(), "Quillmend.task");
  EXPECT_TRUE(fake.files.exists(generation(1, "Quillmend.task")));
}

TEST_F(TGLogTest, ANameThatIsSetTakesThePlaceOfAnother) {
  TGLog::createNewLog("Quillmend");
  shared().setAppName("Other");
  EXPECT_EQ(shared().appName(), "Other");
  TGLog::createNewLog("Quillmend");
  EXPECT_TRUE(fake.files.exists(generation(1, "Other")));
}

TEST_F(TGLogTest, ASecondNameKeepsTheFirst) {
  TGLog::createNewLog("Quillmend");
  TGLog::createNewLog("Other");
  TGLog::createNewLog();
  EXPECT_EQ(shared().appName(), "Quillmend");
  EXPECT_TRUE(fake.files.exists(generation(3)));
  EXPECT_FALSE(fake.files.exists(generation(1, "Other")));
}

TEST_F(TGLogTest, ANameMayHoldPercentSigns) {
  TGLog::createNewLog("100%@ %i");
  EXPECT_TRUE(fake.files.exists(generation(1, "100%@ %i")));
}

TEST_F(TGLogTest, AnUnnamedLogThatIsFullGetsTheExecutablesNameForGood) {
  TGLog::createNewLog();
  fillUpTo(500'000);
  TGLog::createNewLog("Other");
  EXPECT_EQ(shared().appName(), "Quillmend");
  EXPECT_FALSE(fake.files.exists(generation(1, "Other")));
}

// --- entries ---

TEST_F(TGLogTest, EntriesCarryTheDateAndTheirFilledFormat) {
  TGLog::createNewLog("Quillmend");
  TGLog::appendLog("%@ has %i of %s", "disk", 3, "five");
  TGLog::appendLog("second");
  EXPECT_EQ(entries(generation(1)), entry("disk has 3 of five") + entry("second"));
}

TEST_F(TGLogTest, BlanksAndLineBreaksAtTheEndsNeverReachTheFile) {
  TGLog::createNewLog("Quillmend");
  TGLog::appendLog("\n \t%@\r\n\n ", "  first\n\nsecond  \n");
  EXPECT_EQ(entries(generation(1)), entry("first\n\nsecond"));
}

TEST_F(TGLogTest, ANilFormatDoesNothing) {
  TGLog::createNewLog("Quillmend");
  TGLog::appendLog(std::nullopt);
  TGLog::appendLog(std::nullopt, "argument");
  TGLog::appendLogAndPrint(std::nullopt);
  TGLog::finishWriting();
  EXPECT_EQ(content(generation(1)), kHeader);
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGLogTest, NastyMessagesReachTheFileByteForByte) {
  TGLog::createNewLog("Quillmend");
  const std::string nasty = "%n%s%99999d \xFF\xC3( \x1B[31mred\x1B[0m caf\xC3\xA9 %@ 5%";
  TGLog::appendLog("%@", nasty);
  TGLog::appendLog(nasty);
  EXPECT_EQ(entries(generation(1)), entry(nasty) + entry(nasty));
}

TEST_F(TGLogTest, ControlCharactersReachTheFileAsTheyAre) {
  TGLog::createNewLog("Quillmend");
  std::string controls = "<";
  for (char control = 1; control < ' '; ++control) controls += control;
  controls +=
      "\x7F\xC2\x80\xC2\x85\xC2\x9B"
      "31m\xE2\x80\xA8\xE2\x80\xAE";
  controls += std::string("\0\x1B]0;title\a\x1B[2J\r\n\b>", 19);
  TGLog::appendLog("%@", controls);
  EXPECT_EQ(entries(generation(1)), entry(controls));
}

TEST_F(TGLogTest, AppendLogAndPrintFormatsItsResultASecondTimeForTheLogOnly) {
  TGLog::createNewLog("Quillmend");
  TGLog::appendLogAndPrint("%@ %d", "50%% done, %@ left", 7);
  EXPECT_THAT(messages(), ElementsAre("50%% done, %@ left 7"));
  EXPECT_EQ(entries(generation(1)), entry("50% done, %@ left 7"));
}

TEST_F(TGLogTest, AppendLogAndPrintTrimsTheFormatNotTheArguments) {
  TGLog::createNewLog("Quillmend");
  TGLog::appendLogAndPrint("\n  %@ \n", " word ");
  EXPECT_THAT(messages(), ElementsAre(" word "));
  EXPECT_EQ(entries(generation(1)), entry("word"));
}

TEST_F(TGLogTest, EachEntryIsOneWriteAndCountsItsBytes) {
  TGLog::createNewLog("Quillmend");
  const auto file = std::make_shared<RecordingFile>();
  shared().setFileHandle(file);
  TGLog::appendLog("caf\xC3\xA9\nau lait");
  TGLog::appendLog("tea");
  EXPECT_THAT(file->pieces, ElementsAre(entry("caf\xC3\xA9\nau lait"), entry("tea")));
  EXPECT_EQ(shared().bytesWritten(), 28U + 13 + 1 + 28 + 3 + 1);
}

// --- who waits ---

TEST_F(TGLogTest, AMessageOf99CharactersAtAnIdleLogIsOnDiskOnReturn) {
  TGLog::createNewLog("Quillmend");
  std::string expected;
  // Characters, not bytes: 99 of two bytes each. Many times, since luck alone could pass once.
  std::string message;
  for (int count = 0; count < 99; ++count) message += "\xC3\xA9";
  for (int time = 0; time < 50; ++time) {
    TGLog::appendLog(message);
    expected += entry(message);
    ASSERT_EQ(entries(generation(1)), expected);
    ASSERT_EQ(shared().bytesInQueue(), 0U);
  }
}

TEST_F(TGLogTest, AMessageOf100CharactersReturnsAtOnce) {
  TGLog::createNewLog("Quillmend");
  Gate gate;
  block(gate);
  TGLog::appendLog(std::string(100, 'x'));
  EXPECT_EQ(content(generation(1)), kHeader);
  EXPECT_EQ(shared().bytesInQueue(), 100U);
  gate.open();
  TGLog::finishWriting();
  EXPECT_EQ(entries(generation(1)), entry(std::string(100, 'x')));
  EXPECT_EQ(shared().bytesInQueue(), 0U);
}

TEST_F(TGLogTest, CharactersBeyondTheBasicPlaneCountTwice) {
  TGLog::createNewLog("Quillmend");
  Gate gate;
  block(gate);
  std::string message;
  for (int count = 0; count < 50; ++count) message += "\xF0\x9F\x98\x80";
  TGLog::appendLog(message);
  EXPECT_EQ(shared().bytesInQueue(), 100U);
}

TEST_F(TGLogTest, AShortMessageBehindOthersReturnsAtOnce) {
  TGLog::createNewLog("Quillmend");
  Gate gate;
  block(gate);
  shared().setBytesInQueue(1);
  TGLog::appendLog(std::string(99, 'x'));
  TGLog::appendLog("y");
  EXPECT_EQ(shared().bytesInQueue(), 101U);
  EXPECT_EQ(content(generation(1)), kHeader);
}

TEST_F(TGLogTest, AShortMessageWaitsWhileAtMost99CharactersAreQueued) {
  TGLog::createNewLog("Quillmend");
  std::string expected;
  for (int time = 0; time < 50; ++time) {
    shared().setBytesInQueue(98);
    TGLog::appendLog("x");
    expected += entry("x");
    ASSERT_EQ(entries(generation(1)), expected);
  }
}

TEST_F(TGLogTest, AnEmptyMessageIsAnEntryThatNobodyWaitsFor) {
  TGLog::createNewLog("Quillmend");
  Gate gate;
  block(gate);
  TGLog::appendLog("");
  TGLog::appendLog(" \n\t ");
  EXPECT_EQ(content(generation(1)), kHeader);
  gate.open();
  TGLog::finishWriting();
  EXPECT_EQ(entries(generation(1)), "2011-01-01 10:00:00 +0000 - \n2011-01-01 10:00:00 +0000 - \n");
}

TEST_F(TGLogTest, ANewLogBeginsOnlyWhenEverythingQueuedIsWritten) {
  TGLog::createNewLog("Quillmend");
  const std::string message(1000, 'x');
  for (int count = 0; count < 100; ++count) TGLog::appendLog(message);
  TGLog::createNewLog();
  EXPECT_THAT(entries(generation(2)), SizeIs(100 * entry(message).size()));
  EXPECT_EQ(content(generation(1)), kHeader);
}

// --- generations ---

TEST_F(TGLogTest, FiveGenerationsRemainTheFifthTheOldest) {
  for (int start = 1; start <= 8; ++start) {
    TGLog::createNewLog("Quillmend");
    TGLog::appendLog("start %i", start);
  }
  for (int number = 1; number <= 5; ++number) {
    EXPECT_EQ(entries(generation(number)), entry("start " + std::to_string(9 - number)));
  }
  EXPECT_THAT(fake.files.contentsOfDirectory(kFolder).value(), SizeIs(5));
}

TEST_F(TGLogTest, AGapInTheGenerationsStaysOneGenerationFurtherUp) {
  fake.files.makeFile(generation(1), "one");
  fake.files.makeFile(generation(3), "three");
  TGLog::createNewLog("Quillmend");
  EXPECT_EQ(content(generation(2)), "one");
  EXPECT_FALSE(fake.files.exists(generation(3)));
  EXPECT_EQ(content(generation(4)), "three");
}

TEST_F(TGLogTest, WithoutACurrentLogNothingIsRotated) {
  fake.files.makeFile(generation(2), "two");
  fake.files.makeFile(generation(5), "five");
  TGLog::createNewLog("Quillmend");
  EXPECT_EQ(content(generation(2)), "two");
  EXPECT_EQ(content(generation(5)), "five");
}

TEST_F(TGLogTest, TheLogIsNotFullAt499999Bytes) {
  TGLog::createNewLog("Quillmend");
  const std::string last = fillUpTo(499'999);
  EXPECT_EQ(entries(generation(1)), entry(last));
  EXPECT_FALSE(fake.files.exists(generation(2)));
}

TEST_F(TGLogTest, TheEntryThatReaches500000BytesIsTheLastOfItsFile) {
  TGLog::createNewLog("Quillmend");
  const std::string last = fillUpTo(500'000);
  EXPECT_EQ(entries(generation(2)), entry(last));
  EXPECT_EQ(entries(generation(1)), entry("Log truncated at 500KB"));
  EXPECT_EQ(shared().bytesWritten(), entry("Log truncated at 500KB").size());
  EXPECT_EQ(shared().bytesInQueue(), 0U);
}

TEST_F(TGLogTest, TheTruncationIsTheFirstEntryAlsoWhenOthersWait) {
  TGLog::createNewLog("Quillmend");
  Gate gate;
  block(gate);
  const std::string first(100, '1');
  const std::string second(100, '2');
  shared().setBytesWritten(499'999);
  TGLog::appendLog(first);
  TGLog::appendLog(second);
  gate.open();
  TGLog::finishWriting();
  EXPECT_EQ(entries(generation(2)), entry(first));
  EXPECT_EQ(entries(generation(1)), entry("Log truncated at 500KB") + entry(second));
}

// --- logging switched off ---

struct SwitchValue {
  const char* description;
  foundation::PropertyList value;
};

void PrintTo(const SwitchValue& value, std::ostream* stream) {
  *stream << value.description;
}

class TGLogDisabledTest : public TGLogTest, public testing::WithParamInterface<SwitchValue> {};
class TGLogNotDisabledTest : public TGLogTest, public testing::WithParamInterface<SwitchValue> {};

TEST_P(TGLogDisabledTest, NothingIsCreatedTouchedOrWritten) {
  setGlobalPreference("disable-logging", GetParam().value);
  fake.files.makeFile(generation(1), "old\n");
  std::vector<std::string> changes;
  fake.files.beforeChange = [&](const std::string& change, const std::string& path) {
    changes.push_back(change + " " + path);
    return std::optional<foundation::Error>();
  };
  TGLog::createNewLog("Quillmend");
  TGLog::appendLog("short");
  TGLog::appendLog(std::string(200, 'x'));
  TGLog::finishWriting();
  EXPECT_THAT(changes, IsEmpty());
  EXPECT_EQ(content(generation(1)), "old\n");
  EXPECT_THAT(messages(), ElementsAre("Logging is disabled"));
  EXPECT_TRUE(shared().loggingDisabled());
  EXPECT_EQ(shared().fileHandle(), nullptr);
  EXPECT_EQ(shared().bytesInQueue(), 205U) << "what a disabled log swallows stays counted";
}

INSTANTIATE_TEST_SUITE_P(Values, TGLogDisabledTest,
                         testing::Values(SwitchValue{"string 1", "1"}, SwitchValue{"true", true},
                                         SwitchValue{"number 1", 1}, SwitchValue{"real 1", 1.0}));

TEST_P(TGLogNotDisabledTest, TheLogIsWritten) {
  setGlobalPreference("disable-logging", GetParam().value);
  TGLog::createNewLog("Quillmend");
  TGLog::appendLog("written");
  EXPECT_EQ(entries(generation(1)), entry("written"));
  EXPECT_FALSE(shared().loggingDisabled());
}

INSTANTIATE_TEST_SUITE_P(Values, TGLogNotDisabledTest,
                         testing::Values(SwitchValue{"string YES", "YES"}, SwitchValue{"number 2", 2},
                                         SwitchValue{"false", false}, SwitchValue{"number 0", 0},
                                         SwitchValue{"string 1 with a blank", "1 "},
                                         SwitchValue{"string true", "true"},
                                         SwitchValue{"list", foundation::PropertyList::Array{"1"}}));

TEST_F(TGLogTest, AMalformedPreferencesFileDisablesNothing) {
  fake.files.makeFile(globalPreferences(), "<plist><dict><key>disable-logging</key><true/>");
  TGLog::createNewLog("Quillmend");
  EXPECT_EQ(content(generation(1)), kHeader);
}

TEST_F(TGLogTest, APreferencesFolderInThePlaceOfTheFileDisablesNothing) {
  fake.files.makeFolder(globalPreferences());
  TGLog::createNewLog("Quillmend");
  EXPECT_EQ(content(generation(1)), kHeader);
}

TEST_F(TGLogTest, OnceDisabledNothingIsWrittenForTheRestOfTheProcess) {
  setGlobalPreference("disable-logging", true);
  TGLog::createNewLog("Quillmend");
  EXPECT_EQ(shared().appName(), "Quillmend");
  setGlobalPreference("disable-logging", false);
  TGLog::createNewLog("Quillmend.task");
  TGLog::appendLog("swallowed");
  EXPECT_EQ(content(generation(1, "Quillmend.task")), kHeader) << "the name comes after the switch";
}

// --- as root ---

class TGLogAsRootTest : public TGLogTest {
 protected:
  TGLogAsRootTest() { fake.users.user = 0; }
  static constexpr const char* kLocalFolder = "/Library/Logs/Vordenworks";
  static constexpr const char* kLocalLog = "/Library/Logs/Vordenworks/Quillmend.task.1.log";
};

TEST_F(TGLogAsRootTest, TheCurrentLogLiesInTheLocalLibraryTheFolderMadeIsTheUsers) {
  fake.files.makeFolder(kLocalFolder);
  TGLog::createNewLog("Quillmend.task");
  TGLog::appendLog("by root");
  EXPECT_EQ(entries(kLocalLog), entry("by root"));
  EXPECT_THAT(fake.files.contentsOfDirectory(kFolder).value(), IsEmpty());
}

TEST_F(TGLogAsRootTest, ALocalLogMakesTheUsersGenerationsRotateAndIsReplaced) {
  fake.files.makeFile(kLocalLog, "local");
  fake.files.makeFile(generation(1, "Quillmend.task"), "user's");
  TGLog::createNewLog("Quillmend.task");
  EXPECT_EQ(content(generation(2, "Quillmend.task")), "user's");
  EXPECT_FALSE(fake.files.exists(generation(1, "Quillmend.task")));
  EXPECT_EQ(content(kLocalLog), kHeader);
  EXPECT_THAT(fake.files.contentsOfDirectory(kLocalFolder).value(), SizeIs(1));
}

TEST_F(TGLogAsRootTest, ALocalLogThatAnotherProgramBeginsMeanwhileIsAppendedTo) {
  fake.files.makeFolder(kLocalFolder);
  fake.files.beforeChange = [this](const std::string& change, const std::string& path) {
    if (change == "createFile" && !fake.files.exists(path)) fake.files.makeFile(path, "other's\n");
    return std::optional<foundation::Error>();
  };
  TGLog::createNewLog("Quillmend.task");
  TGLog::appendLog("by root");
  EXPECT_EQ(content(kLocalLog), "other's\n" + entry("by root"));
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGLogAsRootTest, TheUsersLogAloneIsNotRotated) {
  fake.files.makeFolder(kLocalFolder);
  fake.files.makeFile(generation(1, "Quillmend.task"), "user's");
  TGLog::createNewLog("Quillmend.task");
  EXPECT_EQ(content(generation(1, "Quillmend.task")), "user's");
  EXPECT_EQ(content(kLocalLog), kHeader);
}

TEST_F(TGLogAsRootTest, WithoutTheLocalFolderNothingIsLogged) {
  TGLog::createNewLog("Quillmend.task");
  TGLog::appendLog("lost");
  EXPECT_TRUE(fake.files.isDirectory(kFolder));
  EXPECT_FALSE(fake.files.exists(kLocalFolder));
  const std::vector<std::string> lines = messages();
  ASSERT_THAT(lines, SizeIs(3));
  EXPECT_THAT(lines[0], StartsWith(std::string("Unable to create log file ") + kLocalLog + " - "));
  EXPECT_EQ(lines[1], "Unable to log the following information: lost");
  EXPECT_EQ(lines[2], "Unable to open log for output");
}

/// Really as root, in the home folder of somebody else.
class TGLogInAHomeFolderTest : public TGLogAsRootTest {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to give folders away";
    fake.files.makeFolder("/Users/alice/Library");
    fake.files.makeFolder(kLocalFolder);
    give("/Users/alice");
    give("/Users/alice/Library");
  }
  void give(const std::string& path) {
    ASSERT_EQ(lchown(fake.files.real(path).c_str(), support::kNobody, support::kNobody), 0);
  }
};

TEST_F(TGLogInAHomeFolderTest, TheFolderThatRootMakesIsTheUsersSoThatTheUsersOwnLogCanBegin) {
  TGLog::createNewLog("Quillmend");
  struct stat status {};
  ASSERT_EQ(stat(fake.files.real(kFolder).c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, support::kNobody);
  EXPECT_EQ(status.st_gid, support::kNobody);
}

TEST_F(TGLogInAHomeFolderTest, NothingIsRotatedWhereAUserHasPutALinkInThePlaceOfTheFolder) {
  const std::string victim = "/private/Logs/Quillmend.1.log";
  fake.files.makeFile(victim, "precious");
  fake.files.makeFolder("/Users/alice/Library/Logs");
  std::filesystem::create_directory_symlink(fake.files.real("/private/Logs"), fake.files.real(kFolder));
  fake.files.makeFile("/Library/Logs/Vordenworks/Quillmend.1.log", "local");
  TGLog::createNewLog("Quillmend");
  EXPECT_EQ(content(victim), "precious");
  EXPECT_FALSE(fake.files.exists("/private/Logs/Quillmend.2.log"));
  ASSERT_THAT(messages(), SizeIs(1));
  EXPECT_EQ(messages()[0], "Unable to move file " + generation(1) + " to " + generation(2));
}

// --- failures ---

TEST_F(TGLogTest, AFolderThatCannotBeMadeIsReportedAndEachEntryTriesAgain) {
  failChange("createDirectory");
  shared().setBytesWritten(7);
  TGLog::createNewLog("Quillmend");
  EXPECT_THAT(messages(), ElementsAre(std::string("Unable to create folder ") + kFolder + "."));
  EXPECT_EQ(shared().fileHandle(), nullptr);
  EXPECT_EQ(shared().bytesWritten(), 0U);
  fake.files.makeFile(generation(1), "");
  TGLog::appendLog("later");
  EXPECT_EQ(content(generation(1)), entry("later"));
}

TEST_F(TGLogTest, WithoutALibraryThereIsNoFolderToMake) {
  fake.users.searchPathsOverride = [](auto, auto) { return std::vector<std::string>{}; };
  TGLog::createNewLog("Quillmend");
  TGLog::appendLog("lost");
  EXPECT_THAT(messages(),
              ElementsAre("Unable to create folder (null).", "Unable to log the following information: lost",
                          "Unable to open log for output"));
}

TEST_F(TGLogTest, RootWithoutALocalLibraryHasNoLogFile) {
  fake.users.user = 0;
  fake.users.searchPathsOverride = [](auto, platform::SearchPathDomain domain) {
    using Paths = std::vector<std::string>;
    return domain == platform::SearchPathDomain::local ? std::optional<Paths>(Paths{}) : std::nullopt;
  };
  TGLog::createNewLog("Quillmend");
  ASSERT_THAT(messages(), SizeIs(1));
  EXPECT_THAT(messages().front(), StartsWith("Unable to create log file (null) - "));
  EXPECT_EQ(shared().fileHandle(), nullptr);
}

class TGLogFailingMoveTest : public TGLogTest, public testing::WithParamInterface<int> {};

TEST_P(TGLogFailingMoveTest, GenerationsAlreadyMovedStayMoved) {
  const int failing = GetParam();
  for (int number = 1; number <= 5; ++number) {
    fake.files.makeFile(generation(number), "was " + std::to_string(number) + "\n");
  }
  failChange("move", generation(failing));
  TGLog::createNewLog("Quillmend");
  EXPECT_THAT(messages(),
              ElementsAre("Unable to move file " + generation(failing) + " to " + generation(failing + 1)));
  EXPECT_EQ(shared().fileHandle(), nullptr);
  for (int number = 1; number <= 4; ++number) {
    const int place = number > failing ? number + 1 : number;
    EXPECT_EQ(content(generation(place)), "was " + std::to_string(number) + "\n");
  }
  EXPECT_FALSE(fake.files.exists(generation(failing + 1))) << "the oldest is gone, its successors moved";
  TGLog::appendLog("goes on in whatever is the current log");
  EXPECT_EQ(content(generation(1)), "was 1\n" + entry("goes on in whatever is the current log"));
}

INSTANTIATE_TEST_SUITE_P(Generations, TGLogFailingMoveTest, testing::Values(4, 3, 2, 1));

TEST_F(TGLogTest, AnOldestGenerationThatCannotBeDeletedStopsTheRotation) {
  for (int number = 1; number <= 5; ++number) fake.files.makeFile(generation(number), "old");
  failChange("remove");
  TGLog::createNewLog("Quillmend");
  EXPECT_THAT(messages(), ElementsAre("Unable to move file " + generation(4) + " to " + generation(5)));
}

TEST_F(TGLogTest, AHeaderThatCannotBeWrittenIsReportedWithTheReason) {
  fake.files.makeFile(generation(1), "old");
  failChange("createFile");
  TGLog::createNewLog("Quillmend");
  EXPECT_THAT(messages(), ElementsAre("Unable to create log file " + generation(1) + " - " +
                                      foundation::systemError(EACCES, generation(1)).description));
  EXPECT_EQ(shared().fileHandle(), nullptr);
  EXPECT_EQ(content(generation(2)), "old");
  EXPECT_FALSE(fake.files.exists(generation(1)));
}

TEST_F(TGLogTest, ALogThatCannotBeOpenedIsOpenedByALaterEntry) {
  failChange("openForWriting");
  TGLog::createNewLog("Quillmend");
  EXPECT_THAT(messages(), IsEmpty());
  TGLog::appendLog("%@", "lost 100%");
  EXPECT_THAT(messages(), ElementsAre("Unable to log the following information: lost 100%",
                                      "Unable to open log for output"));
  EXPECT_EQ(shared().bytesInQueue(), 0U) << "processed, if not written";
  fake.files.beforeChange = nullptr;
  TGLog::appendLog("found");
  EXPECT_EQ(entries(generation(1)), entry("found"));
}

TEST_F(TGLogTest, EntriesBeforeTheFirstNewLogGoToTheExistingFile) {
  fake.files.makeFile(generation(1), "of the last run\n");
  TGLog::appendLog("early");
  EXPECT_EQ(content(generation(1)), "of the last run\n" + entry("early"));
}

TEST_F(TGLogTest, EntriesBeforeTheFirstNewLogNeverCreateAFile) {
  fake.files.makeFolder(kFolder);
  TGLog::appendLog("early");
  EXPECT_THAT(messages(),
              ElementsAre("Unable to log the following information: early", "Unable to open log for output"));
  EXPECT_THAT(fake.files.contentsOfDirectory(kFolder).value(), IsEmpty());
}

TEST_F(TGLogTest, AFailingWriteIsReportedAndStaysCounted) {
  TGLog::createNewLog("Quillmend");
  const auto file = std::make_shared<RecordingFile>();
  file->fails = true;
  shared().setFileHandle(file);
  TGLog::appendLog("a message");
  EXPECT_THAT(messages(), ElementsAre("Exception writing to log: " +
                                      foundation::systemError(ENOSPC, "/the log").description));
  EXPECT_EQ(shared().bytesInQueue(), 9U);
  EXPECT_EQ(shared().bytesWritten(), 0U);
  EXPECT_EQ(shared().fileHandle(), file);
}

TEST_F(TGLogTest, AFailingWriteOfALogJustDisabledIsNotReported) {
  TGLog::createNewLog("Quillmend");
  const auto file = std::make_shared<RecordingFile>();
  file->fails = true;
  file->onWrite = [] { shared().setLoggingDisabled(true); };
  shared().setFileHandle(file);
  TGLog::appendLog("a message");
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGLogTest, ARotationThatFailsInTheMiddleGoesOnInTheFullFile) {
  TGLog::createNewLog("Quillmend");
  failChange("move");
  const std::string last = fillUpTo(500'000);
  EXPECT_THAT(messages(), ElementsAre("Unable to move file " + generation(1) + " to " + generation(2)));
  EXPECT_EQ(entries(generation(1)), entry(last) + entry("Log truncated at 500KB"));
  EXPECT_EQ(shared().bytesWritten(), entry("Log truncated at 500KB").size());
}

// --- two programs of one name ---

/// Something that another program does just before a change of this one's.
class TGLogBesideAnotherTest : public TGLogTest {
 protected:
  /// Once, before that change of that generation.
  void before(const std::string& change, int number, const std::function<void()>& action) {
    fake.files.beforeChange = [=, this, path = generation(number)](const std::string& name,
                                                                   const std::string& at) {
      if (name == change && at == path) {
        const auto act = action;
        fake.files.beforeChange = nullptr;
        act();
      }
      return std::optional<foundation::Error>();
    };
  }
  void begin() { fake.files.makeFile(generation(1), "other's\n"); }
  void moveOn(int number) {
    std::filesystem::rename(fake.files.real(generation(number)), fake.files.real(generation(number + 1)));
  }
};

TEST_F(TGLogBesideAnotherTest, WhatItHasBegunIsMovedOn) {
  before("createFile", 1, [this] { begin(); });
  TGLog::createNewLog("Quillmend");
  TGLog::appendLog("ours");
  EXPECT_EQ(content(generation(2)), "other's\n");
  EXPECT_EQ(entries(generation(1)), entry("ours"));
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGLogBesideAnotherTest, WhatItHasBegunBehindARotationIsAppendedTo) {
  for (int number = 1; number <= 5; ++number) {
    fake.files.makeFile(generation(number), "was " + std::to_string(number) + "\n");
  }
  before("createFile", 1, [this] { begin(); });
  TGLog::createNewLog("Quillmend");
  TGLog::appendLog("ours");
  EXPECT_EQ(content(generation(1)), "other's\n" + entry("ours"));
  EXPECT_EQ(content(generation(2)), "was 1\n");
  EXPECT_EQ(content(generation(5)), "was 4\n") << "no second one is dropped";
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGLogBesideAnotherTest, WhatItHasMovedOnCountsAsMoved) {
  fake.files.makeFile(generation(1), "was 1\n");
  before("move", 1, [this] { moveOn(1); });
  TGLog::createNewLog("Quillmend");
  TGLog::appendLog("ours");
  EXPECT_EQ(content(generation(2)), "was 1\n");
  EXPECT_EQ(entries(generation(1)), entry("ours"));
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGLogBesideAnotherTest, ALogThatItMovesOnBeforeItIsOpenedIsBegunAgain) {
  before("openForWriting", 1, [this] { moveOn(1); });
  TGLog::createNewLog("Quillmend");
  TGLog::appendLog("ours");
  EXPECT_EQ(content(generation(2)), kHeader);
  EXPECT_EQ(entries(generation(1)), entry("ours"));
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGLogBesideAnotherTest, ARotationInItsWayStillBeginsALog) {
  fake.files.makeFile(generation(1), "was 1\n");
  before("move", 1, [this] { fake.files.makeFile(generation(2), "other's\n"); });
  TGLog::createNewLog("Quillmend");
  EXPECT_THAT(messages(), ElementsAre("Unable to move file " + generation(1) + " to " + generation(2)));
  moveOn(2);
  moveOn(1);
  TGLog::appendLog("ours");
  EXPECT_EQ(content(generation(2)), "was 1\n");
  EXPECT_EQ(entries(generation(1)), entry("ours"));
}

TEST_F(TGLogBesideAnotherTest, AnOwedLogThatItHasBegunIsAppendedTo) {
  failChange("createFile");
  TGLog::createNewLog("Quillmend");
  before("createFile", 1, [this] { begin(); });
  TGLog::appendLog("ours");
  EXPECT_EQ(content(generation(1)), "other's\n" + entry("ours"));
}

TEST_F(TGLogTest, ALinkThatLeadsNowhereIsReplaced) {
  fake.files.makeFolder(kFolder);
  std::filesystem::create_symlink("nothing", fake.files.real(generation(1)));
  TGLog::createNewLog("Quillmend");
  TGLog::appendLog("ours");
  EXPECT_EQ(entries(generation(1)), entry("ours"));
  EXPECT_THAT(fake.files.contentsOfDirectory(kFolder).value(), SizeIs(1));
}

// --- the end of the process ---

class TGLogExitTest : public TGLogTest {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  /// Ends the process as the entry point does, with the log left as it is.
  [[noreturn]] void exitWithoutTrace() {
    std::filesystem::remove_all(fake.files.root());
    std::exit(7);
  }
};

TEST_F(TGLogExitTest, AnIdleLogDoesNotKeepTheProcessAlive) {
  const auto logAndExit = [this] {
    TGLog::createNewLog("Quillmend");
    TGLog::appendLog("last words");
    exitWithoutTrace();
  };
  EXPECT_EXIT(logAndExit(), testing::ExitedWithCode(7), "");
}

TEST_F(TGLogExitTest, NeitherDoesAWriteUnderWay) {
  const auto logAndExit = [this] {
    TGLog::createNewLog("Quillmend");
    Gate gate;
    block(gate);
    TGLog::appendLog(std::string(100, 'x'));
    exitWithoutTrace();
  };
  EXPECT_EXIT(logAndExit(), testing::ExitedWithCode(7), "");
}

// --- many threads ---

TEST_F(TGLogTest, EightThreadsLoseNoLineAndKeepTheirOrder) {
  constexpr int kThreads = 8;
  constexpr int kLines = 2500;
  TGLog::createNewLog("Quillmend");
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([thread] {
      for (int line = 0; line < kLines; ++line) TGLog::appendLog("thread %i line %i", thread, line);
    });
  }
  for (std::thread& thread : threads) thread.join();
  TGLog::finishWriting();

  std::string text;
  for (int number = 5; number >= 1; --number) {
    if (fake.files.exists(generation(number))) text += entries(generation(number));
  }
  std::array<int, kThreads> next{};
  int truncations = 0;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    int thread = 0;
    int number = 0;
    if (line + "\n" == entry("Log truncated at 500KB")) {
      ++truncations;
    } else {
      ASSERT_EQ(std::sscanf(line.c_str(), "2011-01-01 10:00:00 +0000 - thread %d line %d", &thread, &number),
                2)
          << line;
      ASSERT_EQ(number, next.at(static_cast<std::size_t>(thread))++);
    }
  }
  EXPECT_THAT(next, testing::Each(kLines));
  EXPECT_GE(truncations, 1) << "the test must rotate under way";
  EXPECT_EQ(shared().bytesInQueue(), 0U);
}

}  // namespace
