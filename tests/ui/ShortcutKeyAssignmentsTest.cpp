#include "ui/ShortcutKeyAssignments.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "tests/ui/ShortcutKeyFixture.h"

using foundation::PropertyList;
using shortcutkeys::changeAssignments;
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
    return changeAssignments(whenMissing, [&](WatchList& list) { list.append(entry); });
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
  EXPECT_EQ(list.value().at(0), (shortcutkeys::Assignment{"com.other.App", "x", 7, 0x0900}));
  EXPECT_EQ(list.value().at(1), std::nullopt);
  EXPECT_EQ(list.value().at(2), (shortcutkeys::Assignment{"", std::nullopt, 0, 0x0100}));
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
    return change == "move" ? std::optional(foundation::systemError(ENOSPC, path)) : std::nullopt;
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
  EXPECT_EQ(system.clock.uptime(), std::chrono::seconds(5));
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
