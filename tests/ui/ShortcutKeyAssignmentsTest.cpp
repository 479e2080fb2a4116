#include "ui/ShortcutKeyAssignments.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <stdexcept>

#include "tests/support/AsUser.h"
#include "tests/ui/ShortcutKeyFixture.h"

using foundation::PropertyList;
namespace fs = std::filesystem;

using shortcutkeys::Assignment;
using shortcutkeys::changeAssignments;
using shortcutkeys::Combination;
using shortcutkeys::WatchList;
using shortcutkeys::WhenMissing;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr const char* kLockFile = ".com.vordenworks.shortcutkeys.plist.lock";
constexpr const char* kName = "com.vordenworks.shortcutkeys.plist";

class ShortcutKeyAssignmentsTest : public ShortcutKeyFixture {
 protected:
  static bool append(const PropertyList& entry, WhenMissing whenMissing = WhenMissing::create) {
    return changeAssignments(whenMissing, [&](WatchList& list) { list.append(entry); }).has_value();
  }
  [[nodiscard]] std::string content() { return system.files.readFile(kFile, 1 << 20).value(); }
};

TEST_F(ShortcutKeyAssignmentsTest, AFileThatIsMissingIsBegun) {
  EXPECT_TRUE(append(entry(kOurs, "repair")));
  EXPECT_EQ(
      root(),
      PropertyList(PropertyList::Dictionary{{"watchlist", PropertyList::Array{entry(kOurs, "repair")}}}));
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(ShortcutKeyAssignmentsTest, AMissingPreferencesFolderIsMade) {
  ASSERT_TRUE(system.files.remove(kFolder));
  EXPECT_TRUE(append(entry(kOurs, "repair")));
  EXPECT_THAT(entries(), ElementsAre(entry(kOurs, "repair")));
}

TEST_F(ShortcutKeyAssignmentsTest, AFileThatIsMissingStaysSoWhereNothingIsToBeAdded) {
  EXPECT_FALSE(append(entry(kOurs, "repair"), WhenMissing::leave));
  EXPECT_FALSE(system.files.exists(kFile));
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(ShortcutKeyAssignmentsTest, AnEmptyDictionaryGetsItsList) {
  writeRoot(PropertyList());
  EXPECT_TRUE(append(entry(kOurs, "repair")));
  EXPECT_THAT(entries(), ElementsAre(entry(kOurs, "repair")));
}

TEST_F(ShortcutKeyAssignmentsTest, WhatOthersHaveInTheFileStaysInItsOrder) {
  const PropertyList strange = PropertyList::Dictionary{
      {"bundleid", "com.other.App"},
      {"keycode", 3},
      {"commandparams", PropertyList::Array{"-a", "\xC3\xA9 \xF0\x9F\x8E\xAC"}},
      {"made", foundation::Date::fromUnixTime(1293876000)},
      {"icon", PropertyList::Data{std::string("\0\xFF", 2)}},
      {"weight", 0.25},
      {"negative", -7},
      {"large", std::uint64_t{18446744073709551615U}},
      {"isOn", true},
      {"nested", PropertyList::Dictionary{{"deeper", PropertyList::Array{PropertyList(), "x"}}}}};
  const PropertyList::Array others = {strange, "no dictionary", entry("com.other.B", "b"), 4};
  for (const auto format : {platform::PropertyListFormat::xml, platform::PropertyListFormat::binary}) {
    writeRoot(PropertyList::Dictionary{{"version", 3}, {"watchlist", others}, {"last", "z"}}, format);
    EXPECT_TRUE(append(entry(kOurs, "repair")));
    PropertyList::Array expected = others;
    expected.push_back(entry(kOurs, "repair"));
    EXPECT_EQ(root(),
              PropertyList(PropertyList::Dictionary{{"version", 3}, {"watchlist", expected}, {"last", "z"}}));
  }
}

TEST_F(ShortcutKeyAssignmentsTest, TheFileIsWrittenInTheBinaryFormat) {
  writeEntries({entry("com.other.App", "x")});
  EXPECT_TRUE(append(entry(kOurs, "repair")));
  EXPECT_THAT(content(), testing::StartsWith("bplist00"));
}

TEST_F(ShortcutKeyAssignmentsTest, ChangesThatTakeEachOtherBackDoNotMakeTheFileGrow) {
  writeEntries({entry("com.other.App", "x")});
  ASSERT_TRUE(append(entry(kOurs, "repair")));
  const std::string before = content();
  for (int round = 0; round < 3; ++round) {
    EXPECT_TRUE(changeAssignments(WhenMissing::create, [&](WatchList& list) {
      list.erase(1);
      list.append(entry(kOurs, "repair"));
    }));
  }
  EXPECT_EQ(content().size(), before.size());
}

TEST_F(ShortcutKeyAssignmentsTest, NoTemporaryFileStaysBehind) {
  EXPECT_TRUE(append(entry(kOurs, "repair")));
  EXPECT_THAT(filesInFolder(), ElementsAre(kLockFile, kName));
}

TEST_F(ShortcutKeyAssignmentsTest, ItSaysWhatAnEntryHolds) {
  writeEntries({entry("com.other.App", "x", 7, 0x0900), "no dictionary",
                PropertyList::Dictionary{{"bundleid", 4}, {"keycode", "7"}, {"modifiers", 0x0100}}});
  const auto list = shortcutkeys::readAssignments();
  ASSERT_TRUE(list);
  ASSERT_EQ(list.value().size(), 3U);
  EXPECT_EQ(list.value().at(0), (Assignment{"com.other.App", "x", Combination{7, 0x0900}}));
  EXPECT_EQ(list.value().at(1), std::nullopt);
  EXPECT_EQ(list.value().at(2), (Assignment{"", std::nullopt, std::nullopt}));
}

TEST_F(ShortcutKeyAssignmentsTest, OnlyWholeNumbersOfSixteenBitsAreKeys) {
  const auto keysOf = [&](const PropertyList& keyCode, const PropertyList& modifiers) {
    writeEntries({PropertyList::Dictionary{{"keycode", keyCode}, {"modifiers", modifiers}}});
    return shortcutkeys::readAssignments().value().keys(0);
  };
  EXPECT_EQ(keysOf(0, 0), (Combination{0, 0}));
  EXPECT_EQ(keysOf(0xFFFF, 0xFFFF), (Combination{0xFFFF, 0xFFFF}));
  const std::vector<PropertyList> noNumbers = {0x10000,
                                               -1,
                                               "1",
                                               1.0,
                                               true,
                                               std::uint64_t{18446744073709551615U},
                                               PropertyList::Array{1},
                                               PropertyList::Data{"1"},
                                               PropertyList::Dictionary{{"keycode", 1}}};
  for (const PropertyList& value : noNumbers) {
    EXPECT_EQ(keysOf(value, 0x0100), std::nullopt) << value.description();
    EXPECT_EQ(keysOf(1, value), std::nullopt) << value.description();
  }
}

TEST_F(ShortcutKeyAssignmentsTest, WithoutAKeyCodeThereAreNoKeysAndWithoutModifiersThereIsTheBareKey) {
  writeEntries(
      {PropertyList::Dictionary{{"modifiers", 0x0100}}, PropertyList::Dictionary{{"keycode", 1}}, "x"});
  const auto list = shortcutkeys::readAssignments();
  ASSERT_TRUE(list);
  EXPECT_EQ(list.value().keys(0), std::nullopt);
  EXPECT_EQ(list.value().keys(1), (Combination{1, 0}));
  EXPECT_EQ(list.value().keys(2), std::nullopt);
}

TEST_F(ShortcutKeyAssignmentsTest, AnAppendedEntryIsSeenBehindTheOthers) {
  writeEntries({entry("com.other.App", "x")});
  EXPECT_TRUE(changeAssignments(WhenMissing::create, [&](WatchList& list) {
    list.append(entry(kOurs, "repair", 1, 0x0100));
    list.append(PropertyList::Dictionary{{"keycode", "1"}});
    ASSERT_EQ(list.size(), 3U);
    EXPECT_THAT(list.entriesOf(kOurs), ElementsAre(1));
    EXPECT_THAT(list.entriesOf("com.other.App"), ElementsAre(0));
    EXPECT_THAT(list.entriesOf("com.other.Ap"), IsEmpty());
    EXPECT_TRUE(list.hasCommandId(1, "repair"));
    EXPECT_EQ(list.at(1), (Assignment{kOurs, "repair", Combination{1, 0x0100}}));
    EXPECT_EQ(list.at(2), (Assignment{"", std::nullopt, std::nullopt}));
  }));
}

TEST_F(ShortcutKeyAssignmentsTest, TheHoldersOfCombinationsAreFoundInTheirOrder) {
  writeEntries({entry("com.other.App", "x", 7, 0x0900), "no dictionary", entry("com.other.B", "y", 8, 0x0900),
                PropertyList::Dictionary{{"modifiers", 0x0900}, {"keycode", 7}},
                PropertyList::Dictionary{{"keycode", 9}},
                PropertyList::Dictionary{{"keycode", 9}, {"modifiers", "none"}},
                PropertyList::Dictionary{{"modifiers", 0x0900}}});
  EXPECT_TRUE(changeAssignments(WhenMissing::create, [&](WatchList& list) {
    list.append(entry(kOurs, "repair", 7, 0x0900));
    EXPECT_THAT(list.holdersOf({{7, 0x0900}}), ElementsAre(0, 3, 7));
    EXPECT_THAT(list.holdersOf({{9, 0}, {8, 0x0900}}), ElementsAre(2, 4));
    EXPECT_THAT(list.holdersOf({{7, 0}}), IsEmpty());
    EXPECT_THAT(list.holdersOf({}), IsEmpty());
    list.erase(0);
    EXPECT_THAT(list.holdersOf({{7, 0x0900}}), ElementsAre(2, 6));
  }));
}

TEST_F(ShortcutKeyAssignmentsTest, ParametersAreComparedOneByOne) {
  writeEntries({PropertyList::Dictionary{{"commandparams", PropertyList::Array{"-a", "b"}}},
                PropertyList::Dictionary{{"commandparams", PropertyList::Array{}}},
                PropertyList::Dictionary{{"commandparams", "-a"}}, entry(kOurs, "x")});
  const auto list = shortcutkeys::readAssignments();
  ASSERT_TRUE(list);
  EXPECT_TRUE(list.value().hasParams(0, {"-a", "b"}));
  EXPECT_FALSE(list.value().hasParams(0, {"-a"}));
  EXPECT_FALSE(list.value().hasParams(0, {"-a", "c"}));
  EXPECT_FALSE(list.value().hasParams(0, {"b", "-a"}));
  EXPECT_TRUE(list.value().hasParams(1, {}));
  EXPECT_FALSE(list.value().hasParams(2, {"-a"}));
  EXPECT_FALSE(list.value().hasParams(3, {}));
}

struct Malformed {
  const char* name;
  std::string bytes;
};

class MalformedAssignmentsTest : public ShortcutKeyAssignmentsTest,
                                 public testing::WithParamInterface<Malformed> {
 protected:
  [[nodiscard]] static std::string nameAside() {
    const auto date = platform::current().clock.now().formattedLocally("%Y-%m-%d %H.%M.%S");
    return "com.vordenworks.shortcutkeys (unreadable " + date + ").plist";
  }
};

TEST_P(MalformedAssignmentsTest, AreKeptUnderAnotherNameAndNeverOverwritten) {
  writeBytes(GetParam().bytes);
  EXPECT_TRUE(append(entry(kOurs, "repair")));
  EXPECT_THAT(entries(), ElementsAre(entry(kOurs, "repair")));
  EXPECT_EQ(system.files.readFile(std::string(kFolder) + "/" + nameAside(), 1 << 20).value(),
            GetParam().bytes);
  EXPECT_THAT(messages(),
              ElementsAre("The shortcut keys in " + std::string(kFile) +
                          " can't be read. The file is kept as " + kFolder + "/" + nameAside() + "."));
}

TEST_P(MalformedAssignmentsTest, AreReplacedByAFileForTheSameEyes) {
  writeBytes(GetParam().bytes);
  ASSERT_EQ(::chmod(system.files.real(kFile).c_str(), 0600), 0);
  EXPECT_TRUE(append(entry(kOurs, "repair")));
  for (const std::string& name : {std::string(kName), nameAside()}) {
    const fs::path file = system.files.real(std::string(kFolder) + "/" + name);
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0600)) << name;
  }
}

TEST_P(MalformedAssignmentsTest, StayWhereTheyAreWhenNothingIsToBeAdded) {
  writeBytes(GetParam().bytes);
  EXPECT_FALSE(append(entry(kOurs, "repair"), WhenMissing::leave));
  EXPECT_EQ(content(), GetParam().bytes);
  EXPECT_THAT(filesInFolder(), ElementsAre(kLockFile, kName));
  EXPECT_THAT(messages(), ElementsAre(HasSubstr("Unable to write the shortcut keys")));
}

TEST_P(MalformedAssignmentsTest, AreKeptWhileThereIsNoRoomForThemElsewhere) {
  writeBytes(GetParam().bytes);
  system.files.beforeChange = [](const std::string& change, const std::string& path) {
    return change == "copy" ? std::optional(foundation::systemError(ENOSPC, path)) : std::nullopt;
  };
  EXPECT_FALSE(append(entry(kOurs, "repair")));
  EXPECT_EQ(content(), GetParam().bytes);
}

/// A binary list whose one array contains itself.
std::string listInItself() {
  const std::string dictionary("\xD1\x01\x02", 3);
  const std::string key = "\x59watchlist";
  const std::string array("\xA1\x02", 2);
  const std::string objects = "bplist00" + dictionary + key + array;
  return objects + std::string("\x08\x0B\x15", 3) + std::string(6, '\0') + std::string("\x01\x01", 2) +
         std::string("\0\0\0\0\0\0\0\x03\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x17", 24);
}

std::string listOfXml(const std::string& text) {
  return "<?xml version=\"1.0\"?><plist version=\"1.0\">" + text + "</plist>";
}

INSTANTIATE_TEST_SUITE_P(
    All, MalformedAssignmentsTest,
    testing::Values(
        Malformed{"Empty", ""}, Malformed{"Garbage", "garbage"},
        Malformed{"Untold", listOfXml("<dict><key>a</key><integer>18446744073709551616</integer></dict>")},
        Malformed{"CutXml", "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>watchl"},
        Malformed{"CutBinary", std::string("bplist00\xD1\x01", 10)},
        Malformed{"ZeroBytes", std::string(4096, '\0')}, Malformed{"ListInItself", listInItself()},
        Malformed{"RootIsAnArray", listOfXml("<array/>")},
        Malformed{"RootIsText", listOfXml("<string>x</string>")},
        Malformed{"WatchlistIsText", listOfXml("<dict><key>watchlist</key><string>x</string></dict>")},
        Malformed{"WatchlistIsADictionary", listOfXml("<dict><key>watchlist</key><dict/></dict>")}),
    [](const auto& each) { return std::string(each.param.name); });

TEST_F(ShortcutKeyAssignmentsTest, ASecondUnreadableFileOfTheSameMomentGetsAnotherName) {
  for (int round = 0; round < 3; ++round) {
    writeBytes("garbage " + std::to_string(round));
    EXPECT_TRUE(append(entry(kOurs, "repair")));
  }
  EXPECT_THAT(filesInFolder(), testing::SizeIs(5));
}

TEST_F(ShortcutKeyAssignmentsTest, WhatIsNoFileIsLeftAlone) {
  system.files.makeFolder(kFile);
  EXPECT_FALSE(append(entry(kOurs, "repair")));
  EXPECT_TRUE(system.files.isDirectory(kFile));
  EXPECT_THAT(messages(), ElementsAre(HasSubstr("Unable to write the shortcut keys")));
}

TEST_F(ShortcutKeyAssignmentsTest, APipeIsLeftAloneAndNotWaitedFor) {
  ASSERT_EQ(::mkfifo(system.files.real(kFile).c_str(), 0600), 0);
  for (const auto whenMissing : {WhenMissing::create, WhenMissing::leave}) {
    EXPECT_FALSE(append(entry(kOurs, "repair"), whenMissing));
  }
  EXPECT_TRUE(fs::is_fifo(system.files.real(kFile)));
  EXPECT_THAT(filesInFolder(), ElementsAre(kLockFile, kName));
  EXPECT_THAT(messages(), testing::SizeIs(2));
}

TEST_F(ShortcutKeyAssignmentsTest, AListThatIsTooLargeIsLeftAlone) {
  writeBytes("bplist00");
  fs::resize_file(system.files.real(kFile), shortcutkeys::kLargestFile + 1);
  EXPECT_FALSE(append(entry(kOurs, "repair")));
  EXPECT_EQ(fs::file_size(system.files.real(kFile)), shortcutkeys::kLargestFile + 1);
  EXPECT_THAT(filesInFolder(), ElementsAre(kLockFile, kName));
  EXPECT_THAT(messages(), ElementsAre("Unable to write the shortcut keys: " + system.files.real(kFile) +
                                      ": File too large"));
}

TEST_F(ShortcutKeyAssignmentsTest, AListThatMayNotBeReadIsLeftAlone) {
  writeEntries({entry("com.other.App", "x")});
  const std::string before = content();
  ASSERT_EQ(::chmod(system.files.real(kFile).c_str(), 0), 0);
  if (::geteuid() == 0) {
    fs::permissions(system.files.root(), fs::perms::all);
    fs::permissions(system.files.real(kFolder), fs::perms::all);
  }
  support::AsUser::run(support::kNobody, [&] {
    EXPECT_EQ(shortcutkeys::readAssignments().error().code, EACCES);
    EXPECT_FALSE(append(entry(kOurs, "repair")));
    EXPECT_THAT(messages(), ElementsAre("Unable to write the shortcut keys: " + system.files.real(kFile) +
                                        ": Permission denied"));
  });
  ASSERT_EQ(::chmod(system.files.real(kFile).c_str(), 0600), 0);
  EXPECT_EQ(content(), before);
  EXPECT_THAT(filesInFolder(), ElementsAre(kLockFile, kName));
}

TEST_F(ShortcutKeyAssignmentsTest, AFailingWriteLeavesTheFileAsItWas) {
  writeEntries({entry("com.other.App", "x")});
  const std::string before = content();
  system.files.beforeChange = [](const std::string&, const std::string& path) {
    return std::optional(foundation::systemError(ENOSPC, path));
  };
  EXPECT_FALSE(append(entry(kOurs, "repair"), WhenMissing::leave));
  EXPECT_EQ(content(), before);
  EXPECT_THAT(messages(), ElementsAre("Unable to write the shortcut keys: " + std::string(kFile) +
                                      ": No space left on device"));
}

TEST_F(ShortcutKeyAssignmentsTest, WhileAnotherHoldsTheLockNothingIsReadNorWritten) {
  writeEntries({entry("com.other.App", "x")});
  const auto lock = system.fileLocks.tryLock(kFile);
  ASSERT_TRUE(lock);
  bool isAsked = false;
  EXPECT_FALSE(changeAssignments(WhenMissing::create, [&](WatchList&) { isAsked = true; }));
  EXPECT_FALSE(isAsked);
  EXPECT_THAT(entries(), ElementsAre(entry("com.other.App", "x")));
  EXPECT_THAT(messages(), ElementsAre(HasSubstr("Unable to write the shortcut keys")));
}

TEST_F(ShortcutKeyAssignmentsTest, TheMainThreadsWorkIsServedWhileTheLockIsWaitedFor) {
  auto lock = system.fileLocks.tryLock(kFile);
  ASSERT_TRUE(lock);
  int served = 0;
  system.mainThread.whenServing = [&] {
    if (++served == 3) lock.value().reset();
  };
  EXPECT_TRUE(append(entry(kOurs, "repair")));
  EXPECT_EQ(served, 3);
  EXPECT_EQ(system.clock.uptime(), std::chrono::seconds(0)) << "nobody sleeps there";
}

TEST_F(ShortcutKeyAssignmentsTest, TheLockIsWaitedForFiveSecondsByTheClock) {
  const auto lock = system.fileLocks.tryLock(kFile);
  ASSERT_TRUE(lock);
  int served = 0;
  system.mainThread.whenServing = [&] {
    // What is served there may take its time; a clock that stands still is to fail the test and not hang it.
    if (++served <= 1000) system.clock.advance(std::chrono::milliseconds(250));
    if (served > 1000) throw std::runtime_error("waits for ever");
  };
  EXPECT_FALSE(append(entry(kOurs, "repair")));
  EXPECT_EQ(served, 20);
  EXPECT_THAT(messages(), ElementsAre("Unable to write the shortcut keys: " + std::string(kFile) +
                                      ": another program is changing it"));
}

TEST_F(ShortcutKeyAssignmentsTest, AProgramThatIsAskedToEndWaitsHalfASecondMore) {
  writeEntries({entry("com.other.App", "x")});
  const std::string before = content();
  const auto lock = system.fileLocks.tryLock(kFile);
  ASSERT_TRUE(lock);
  system.interruption.signal = SIGTERM;
  system.interruption.comesAfter = 3;
  int served = 0;
  system.mainThread.whenServing = [&] {
    ++served;
    system.clock.advance(std::chrono::milliseconds(250));
  };
  EXPECT_FALSE(append(entry(kOurs, "repair")));
  EXPECT_EQ(served, 5);
  EXPECT_EQ(content(), before);
  EXPECT_THAT(messages(), ElementsAre("Unable to write the shortcut keys: " + std::string(kFile) +
                                      ": another program is changing it"));
}

TEST_F(ShortcutKeyAssignmentsTest, ALockThatIsLetGoOfAtTheEndIsStillTaken) {
  auto lock = system.fileLocks.tryLock(kFile);
  ASSERT_TRUE(lock);
  system.interruption.signal = SIGTERM;
  system.mainThread.whenServing = [&] { lock.value().reset(); };
  EXPECT_TRUE(append(entry(kOurs, "repair")));
  EXPECT_THAT(entries(), ElementsAre(entry(kOurs, "repair")));
}

TEST_F(ShortcutKeyAssignmentsTest, OtherThreadsSleepWhileTheyWaitForTheLock) {
  const auto lock = system.fileLocks.tryLock(kFile);
  ASSERT_TRUE(lock);
  system.mainThread.current = false;
  EXPECT_FALSE(append(entry(kOurs, "repair")));
  EXPECT_EQ(system.clock.uptime(), std::chrono::seconds(5));
}

// Programs that do not ask for the lock.

TEST_F(ShortcutKeyAssignmentsTest, WhatAProgramWithoutTheLockHasWrittenMeanwhileIsNotLost) {
  writeEntries({entry("com.other.App", "x")});
  int attempts = 0;
  system.files.beforeChange = [&](const std::string& change, const std::string&) {
    if (change == "replaceUnchanged" && ++attempts == 1) {
      writeEntries({entry("com.other.App", "x"), entry("com.other.App", "y")});
    }
    return std::optional<foundation::Error>();
  };
  EXPECT_TRUE(append(entry(kOurs, "repair")));
  EXPECT_EQ(attempts, 2);
  EXPECT_THAT(entries(),
              ElementsAre(entry("com.other.App", "x"), entry("com.other.App", "y"), entry(kOurs, "repair")));
}

TEST_F(ShortcutKeyAssignmentsTest, AFileThatAppearsMeanwhileIsNotOverwritten) {
  int attempts = 0;
  system.files.beforeChange = [&](const std::string& change, const std::string&) {
    if (change == "replaceUnchanged" && ++attempts == 1) writeEntries({entry("com.other.App", "x")});
    return std::optional<foundation::Error>();
  };
  EXPECT_TRUE(append(entry(kOurs, "repair")));
  EXPECT_THAT(entries(), ElementsAre(entry("com.other.App", "x"), entry(kOurs, "repair")));
}

TEST_F(ShortcutKeyAssignmentsTest, AProgramThatNeverStopsWritingHasItsWay) {
  int attempts = 0;
  system.files.beforeChange = [&](const std::string& change, const std::string&) {
    if (change == "replaceUnchanged") writeEntries({entry("com.other.App", std::to_string(++attempts))});
    return std::optional<foundation::Error>();
  };
  EXPECT_FALSE(append(entry(kOurs, "repair")));
  EXPECT_EQ(attempts, 10);
  EXPECT_THAT(entries(), ElementsAre(entry("com.other.App", "10")));
  EXPECT_THAT(messages(), ElementsAre("Unable to write the shortcut keys: " + std::string(kFile) +
                                      ": another program is changing it"));
}

TEST_F(ShortcutKeyAssignmentsTest, AListThatIsHalfWrittenIsWaitedForAndNotKeptAside) {
  writeEntries({entry("com.other.App", "x"), entry("com.other.App", "y")});
  const std::string whole = content();
  writeBytes(whole.substr(0, whole.size() / 2));
  system.mainThread.whenServing = [&] { writeBytes(whole); };
  EXPECT_TRUE(append(entry(kOurs, "repair")));
  EXPECT_THAT(entries(),
              ElementsAre(entry("com.other.App", "x"), entry("com.other.App", "y"), entry(kOurs, "repair")));
  EXPECT_THAT(filesInFolder(), ElementsAre(kLockFile, kName));
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(ShortcutKeyAssignmentsTest, AListThatIsAlwaysHalfWrittenIsLeftToWhoWritesIt) {
  int turns = 0;
  writeBytes("half");
  system.mainThread.whenServing = [&] {
    writeBytes("half" + std::string(static_cast<std::size_t>(++turns), '.'));
  };
  EXPECT_FALSE(append(entry(kOurs, "repair")));
  EXPECT_EQ(turns, 10);
  EXPECT_THAT(filesInFolder(), ElementsAre(kLockFile, kName));
  EXPECT_THAT(messages(), ElementsAre(HasSubstr("another program is changing it")));
}

TEST_F(ShortcutKeyAssignmentsTest, InThePlaceOfAFileKeptAsideTheNewOneIsWrittenAtOnce) {
  writeBytes("garbage");
  int attempts = 0;
  system.files.beforeChange = [&](const std::string& change, const std::string&) {
    attempts += change == "replaceUnchanged" ? 1 : 0;
    return std::optional<foundation::Error>();
  };
  EXPECT_TRUE(append(entry(kOurs, "repair")));
  EXPECT_EQ(attempts, 1);
}

TEST_F(ShortcutKeyAssignmentsTest, ItAnswersTheFileThatItWroteWhateverTakesItsPlace) {
  std::optional<platform::FileState> written;
  system.files.afterReplacing = [&](const std::string&) {
    written = shortcutkeys::assignmentsState();
    writeEntries({entry("com.other.App", "x")});
  };
  const auto answered =
      changeAssignments(WhenMissing::create, [&](WatchList& list) { list.append(entry(kOurs, "repair")); });
  EXPECT_TRUE(written.has_value());
  EXPECT_EQ(answered, written);
  EXPECT_NE(answered, shortcutkeys::assignmentsState());
}

TEST_F(ShortcutKeyAssignmentsTest, TheLockIsLetGoOfAfterEachChange) {
  EXPECT_TRUE(append(entry(kOurs, "a")));
  EXPECT_TRUE(append(entry(kOurs, "b")));
  EXPECT_TRUE(system.fileLocks.tryLock(kFile).ok());
}

TEST_F(ShortcutKeyAssignmentsTest, RootReadsNoLinkOfTheUsers) {
  system.users.user = 0;
  system.files.makeFile("/secret.plist", system.propertyLists
                                             .serialize(PropertyList::Dictionary{{"password", "hush"}},
                                                        platform::PropertyListFormat::xml)
                                             .value());
  ASSERT_EQ(::symlink(system.files.real("/secret.plist").c_str(), system.files.real(kFile).c_str()), 0);
  EXPECT_FALSE(append(entry(kOurs, "repair")));
  EXPECT_EQ(root(), PropertyList(PropertyList::Dictionary{{"password", "hush"}}));
  EXPECT_TRUE(fs::is_symlink(system.files.real(kFile)));
  EXPECT_THAT(messages(), ElementsAre("Unable to write the shortcut keys: " + std::string(kFile) +
                                      ": it is a symbolic link, which root does not follow here"));
}

/// The list lies elsewhere, and a symbolic link to it in its place.
class LinkedAssignmentsTest : public ShortcutKeyAssignmentsTest {
 protected:
  static constexpr const char* kTarget = "/Users/alice/dotfiles/keys.plist";

  LinkedAssignmentsTest() {
    system.users.user = ::geteuid() == 0 ? 501 : ::geteuid();
    system.files.makeFolder("/Users/alice/dotfiles");
    leadTo("../../dotfiles/keys.plist");
  }
  void leadTo(const std::string& target) {
    fs::remove(system.files.real(kFile));
    fs::create_symlink(target, system.files.real(kFile));
  }
  void makeTarget(const std::string& bytes, uid_t owner) {
    system.files.makeFile(kTarget, bytes);
    const std::string file = system.files.real(kTarget);
    ASSERT_EQ(::chmod(file.c_str(), 0600), 0);
    if (::geteuid() == 0) {
      ASSERT_EQ(::chown(file.c_str(), owner, owner), 0);
    }
  }
  [[nodiscard]] std::string listOf(const PropertyList::Array& entries) {
    return system.propertyLists
        .serialize(PropertyList::Dictionary{{"watchlist", entries}}, platform::PropertyListFormat::xml)
        .value();
  }
};

TEST_F(LinkedAssignmentsTest, TheFileThatItLeadsToIsReplacedAndKeepsItsOwnerAndMode) {
  for (const std::string& target : {std::string("../../dotfiles/keys.plist"), system.files.real(kTarget)}) {
    leadTo(target);
    makeTarget(listOf({entry("com.other.App", "x")}), system.users.user);
    EXPECT_TRUE(append(entry(kOurs, "repair")));
    EXPECT_TRUE(fs::is_symlink(system.files.real(kFile)));
    struct stat status {};
    ASSERT_EQ(::lstat(system.files.real(kTarget).c_str(), &status), 0);
    EXPECT_TRUE(S_ISREG(status.st_mode));
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    EXPECT_EQ(status.st_uid, system.users.user);
    EXPECT_THAT(entries(), ElementsAre(entry("com.other.App", "x"), entry(kOurs, "repair")));
    EXPECT_THAT(messages(), IsEmpty());
  }
}

TEST_F(LinkedAssignmentsTest, WhatIsTakenAwayIsTakenFromTheFileThatItLeadsTo) {
  makeTarget(listOf({entry(kOurs, "repair"), entry("com.other.App", "x")}), system.users.user);
  EXPECT_TRUE(changeAssignments(WhenMissing::leave, [](WatchList& list) { list.erase(0); }));
  EXPECT_TRUE(fs::is_symlink(system.files.real(kFile)));
  EXPECT_THAT(entries(), ElementsAre(entry("com.other.App", "x")));
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(LinkedAssignmentsTest, WhereTheLinkLeadsToNothingThereIsNothingToTakeAway) {
  EXPECT_FALSE(append(entry(kOurs, "repair"), WhenMissing::leave));
  EXPECT_FALSE(system.files.exists(kTarget));
  EXPECT_TRUE(fs::is_symlink(system.files.real(kFile)));
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(LinkedAssignmentsTest, AFileThatIsMissingIsBegunWhereTheLinkLeads) {
  EXPECT_TRUE(append(entry(kOurs, "repair")));
  EXPECT_TRUE(fs::is_symlink(system.files.real(kFile)));
  EXPECT_THAT(entries(), ElementsAre(entry(kOurs, "repair")));
}

TEST_F(LinkedAssignmentsTest, AFileThatCannotBeReadIsKeptBesideItself) {
  makeTarget("garbage", system.users.user);
  EXPECT_TRUE(append(entry(kOurs, "repair")));
  EXPECT_TRUE(fs::is_symlink(system.files.real(kFile)));
  EXPECT_THAT(entries(), ElementsAre(entry(kOurs, "repair")));
  EXPECT_THAT(system.files.contentsOfDirectory("/Users/alice/dotfiles").value(), testing::SizeIs(2));
}

TEST_F(LinkedAssignmentsTest, AnotherUsersFileIsNotReplaced) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to make a file of another account";
  const std::string bytes = listOf({entry("com.other.App", "x")});
  leadTo(system.files.real(kTarget));
  makeTarget(bytes, 4321);
  EXPECT_FALSE(append(entry(kOurs, "repair")));
  EXPECT_EQ(system.files.readFile(kTarget, 1 << 20).value(), bytes);
  EXPECT_THAT(messages(), ElementsAre("Unable to write the shortcut keys: " + std::string(kFile) +
                                      ": it leads to " + kTarget + ", which belongs to another user"));
}

TEST_F(LinkedAssignmentsTest, ALinkThatLeadsToItselfIsLeftAlone) {
  leadTo("com.vordenworks.shortcutkeys.plist");
  EXPECT_FALSE(append(entry(kOurs, "repair")));
  EXPECT_TRUE(fs::is_symlink(system.files.real(kFile)));
  EXPECT_THAT(messages(), ElementsAre(HasSubstr("Too many levels of symbolic links")));
}

TEST_F(ShortcutKeyAssignmentsTest, WhatRootMakesBelongsToWhoseHomeItLiesIn) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to make a file in another account's folder";
  constexpr uid_t kNobody = 65534;
  system.users.user = 0;
  ASSERT_EQ(::chown(system.files.real(kFolder).c_str(), kNobody, kNobody), 0);
  ASSERT_TRUE(append(entry(kOurs, "repair")));
  ASSERT_TRUE(append(entry(kOurs, "stop")));
  for (const std::string& name : filesInFolder()) {
    struct stat status {};
    ASSERT_EQ(::stat(system.files.real(std::string(kFolder) + "/" + name).c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, kNobody) << name;
  }
}

TEST_F(ShortcutKeyAssignmentsTest, RootsFileIsThatOfTheUserAtTheConsole) {
  system.users.user = 0;
  system.users.console = "bob";
  EXPECT_EQ(shortcutkeys::assignmentsPath(),
            "/Users/bob/Library/Preferences/com.vordenworks.shortcutkeys.plist");
}

}  // namespace
