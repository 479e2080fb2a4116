#include "platform/linux/LinuxPreferences.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "platform/fakes/FakePlatform.h"

namespace platform {
namespace {

using foundation::PropertyList;
using Dictionary = PropertyList::Dictionary;

constexpr const char* kUsers = "/Users/alice/Library/Preferences/com.vordenworks.Quillmend.plist";
constexpr const char* kUsersByHost =
    "/Users/alice/Library/Preferences/ByHost/"
    "com.vordenworks.Quillmend.01234567-89AB-CDEF-0123-456789ABCDEF.plist";
constexpr const char* kEverybodys = "/Library/Preferences/com.vordenworks.Quillmend.plist";
constexpr const char* kNetwork = "/Network/Library/Preferences/com.vordenworks.Quillmend.plist";

class LinuxPreferencesTest : public ::testing::Test {
 protected:
  LinuxPreferencesTest() { fake.files.makeFile("/etc/machine-id", "0123456789abcdef0123456789abcdef\n"); }

  void store(const std::string& path, const Dictionary& content,
             PropertyListFormat format = PropertyListFormat::xml) {
    fake.files.makeFile(path, fake.propertyLists.serialize(content, format).value());
  }
  std::string bytes(const std::string& path) { return fake.files.readFile(path, 1 << 20).value(); }

  fakes::FakePlatform fake;
  LinuxPreferences preferences;
};

TEST_F(LinuxPreferencesTest, NearestPlaceDecides) {
  EXPECT_EQ(preferences.value("key"), std::nullopt);
  preferences.registerDefaults(Dictionary{{"key", "registered"}, {"other", 1}});
  EXPECT_EQ(preferences.value("key"), PropertyList("registered"));
  store(kNetwork, {{"key", "network"}});
  EXPECT_EQ(preferences.value("key"), PropertyList("network"));
  store(kEverybodys, {{"key", "everybody"}});
  EXPECT_EQ(preferences.value("key"), PropertyList("everybody"));
  store(kUsers, {{"key", "user"}}, PropertyListFormat::binary);
  EXPECT_EQ(preferences.value("key"), PropertyList("user"));
  store(kUsersByHost, {{"key", "user here"}});
  EXPECT_EQ(preferences.value("key"), PropertyList("user here"));
  EXPECT_EQ(preferences.value("other"), PropertyList(1));
}

TEST_F(LinuxPreferencesTest, LaterDefaultsReplaceEarlierOnesKeyByKey) {
  preferences.registerDefaults(Dictionary{{"a", 1}, {"b", 1}});
  preferences.registerDefaults(Dictionary{{"b", 2}});
  EXPECT_EQ(preferences.value("a"), PropertyList(1));
  EXPECT_EQ(preferences.value("b"), PropertyList(2));
}

TEST_F(LinuxPreferencesTest, DefaultsAreNotStored) {
  preferences.registerDefaults(Dictionary{{"a", 1}});
  EXPECT_TRUE(preferences.synchronize());
  EXPECT_FALSE(fake.files.exists(kUsers));
}

TEST_F(LinuxPreferencesTest, ValueThatIsSetIsSeenAtOnceAndStoredBySynchronizing) {
  preferences.setValue("key", 1);
  EXPECT_EQ(preferences.value("key"), PropertyList(1));
  EXPECT_FALSE(fake.files.exists(kUsers));
  EXPECT_TRUE(preferences.synchronize());
  EXPECT_EQ(LinuxPreferences().value("key"), PropertyList(1));
  EXPECT_TRUE(bytes(kUsers).starts_with("bplist00"));
}

TEST_F(LinuxPreferencesTest, ValueForAnyUserIsStoredInTheLocalLibraryAtOnce) {
  store(kEverybodys, {{"theirs", 1}});
  EXPECT_TRUE(preferences.storeForAnyUserOnCurrentHost("requireAdminPassword", 1));
  EXPECT_EQ(preferences.value("requireAdminPassword"), PropertyList(1));
  EXPECT_EQ(readDictionary(kEverybodys).value(),
            PropertyList(Dictionary{{"theirs", 1}, {"requireAdminPassword", 1}}));
  EXPECT_FALSE(fake.files.exists(kUsers));
}

TEST_F(LinuxPreferencesTest, ValueForAnyUserIsStoredWhereTheUsersOwnCannotBe) {
  fake.files.makeFolder(kUsers);
  preferences.setValue("key", 1);
  EXPECT_TRUE(preferences.storeForAnyUserOnCurrentHost("key", 2));
  EXPECT_FALSE(preferences.synchronize());
  EXPECT_EQ(*readDictionary(kEverybodys).value().find("key"), PropertyList(2));
}

TEST_F(LinuxPreferencesTest, ValueForAnyUserThatCouldNotBeStoredIsForgotten) {
  store(kEverybodys, {{"requireAdminPassword", 0}});
  fake.files.beforeChange = [](const std::string&, const std::string& path) {
    return path == kEverybodys ? std::optional(foundation::systemError(EACCES, path)) : std::nullopt;
  };
  const auto stored = preferences.storeForAnyUserOnCurrentHost("requireAdminPassword", 0);
  ASSERT_FALSE(stored);
  EXPECT_EQ(stored.error().code, EACCES);
  fake.files.beforeChange = nullptr;
  store(kEverybodys, {{"requireAdminPassword", 1}});  // by somebody else
  EXPECT_EQ(preferences.value("requireAdminPassword"), PropertyList(1));
  preferences.setValue("shouldTrash", 1);
  EXPECT_TRUE(preferences.synchronize());
  EXPECT_TRUE(preferences.storeForAnyUserOnCurrentHost("other", 1));
  EXPECT_EQ(readDictionary(kEverybodys).value(),
            PropertyList(Dictionary{{"requireAdminPassword", 1}, {"other", 1}}));
}

TEST_F(LinuxPreferencesTest, WhyAValueForAnyUserCouldNotBeStoredIsSaid) {
  int refusal = 0;
  fake.files.beforeChange = [&](const std::string&, const std::string& path) {
    return refusal == 0 ? std::nullopt : std::optional(foundation::systemError(refusal, path));
  };
  for (const int reason : {EACCES, EROFS, ENOSPC}) {
    refusal = reason;
    const auto stored = preferences.storeForAnyUserOnCurrentHost("key", 1);
    ASSERT_FALSE(stored);
    EXPECT_EQ(stored.error().code, reason);
  }
  refusal = 0;
  fake.files.makeFolder(kEverybodys);
  const auto onFolder = preferences.storeForAnyUserOnCurrentHost("key", 1);
  ASSERT_FALSE(onFolder);
  EXPECT_EQ(onFolder.error().code, EISDIR);
  std::filesystem::remove_all(fake.files.real("/Library"));
  fake.files.makeFile("/Library");
  const auto belowFile = preferences.storeForAnyUserOnCurrentHost("key", 1);
  ASSERT_FALSE(belowFile);
  EXPECT_EQ(belowFile.error().code, ENOTDIR);
}

TEST_F(LinuxPreferencesTest, KeysOfOthersAndTheFormOfTheFileStay) {
  store(kUsers, {{"theirs", Dictionary{{"deep", 2.5}}}, {"ours", 0}});
  preferences.setValue("ours", 1);
  EXPECT_TRUE(preferences.synchronize());
  EXPECT_EQ(readDictionary(kUsers).value(),
            PropertyList(Dictionary{{"theirs", Dictionary{{"deep", 2.5}}}, {"ours", 1}}));
  EXPECT_TRUE(bytes(kUsers).starts_with("<?xml"));
}

TEST_F(LinuxPreferencesTest, WhatIsStoredIsNotWrittenAgain) {
  preferences.setValue("key", 1);
  EXPECT_TRUE(preferences.synchronize());
  store(kUsers, {{"key", 2}});
  EXPECT_TRUE(preferences.synchronize());
  EXPECT_EQ(preferences.value("key"), PropertyList(2));
}

TEST_F(LinuxPreferencesTest, MalformedFileCountsAsEmptyAndIsKeptAsideWhenSomethingIsStored) {
  const std::string list =
      fake.propertyLists.serialize(PropertyList::Array{1}, PropertyListFormat::xml).value();
  for (const std::string& content : {std::string("no property list"), list}) {
    fake.files.makeFile(kUsers, content);
    const std::string aside = "/Users/alice/Library/Preferences/com.vordenworks.Quillmend (unreadable " +
                              fake.clock.now().formattedLocally("%Y-%m-%d %H.%M.%S") +
                              (content == list ? " 2).plist" : ").plist");
    EXPECT_EQ(preferences.value("key"), std::nullopt);
    EXPECT_FALSE(fake.files.exists(aside)) << "reading changes nothing";
    preferences.setValue("key", 1);
    EXPECT_TRUE(preferences.synchronize());
    EXPECT_EQ(readDictionary(kUsers).value(), PropertyList(Dictionary{{"key", 1}}));
    ASSERT_TRUE(fake.files.exists(aside));
    EXPECT_EQ(bytes(aside), content);
    EXPECT_THAT(fake.systemConsole.messages(), ::testing::Contains(::testing::HasSubstr(aside)));
    ASSERT_TRUE(fake.files.remove(kUsers));
  }
}

TEST_F(LinuxPreferencesTest, MalformedFileThatCannotBeKeptAsideIsNotReplaced) {
  fake.files.makeFile(kUsers, "no property list");
  fake.files.beforeChange = [](const std::string& change, const std::string& path) {
    return change == "copy" ? std::optional(foundation::systemError(EACCES, path)) : std::nullopt;
  };
  preferences.setValue("key", 1);
  EXPECT_FALSE(preferences.synchronize());
  EXPECT_EQ(bytes(kUsers), "no property list");
}

TEST_F(LinuxPreferencesTest, WhatReplacesAMalformedFileIsBinaryAndForTheSameEyes) {
  fake.files.makeFile(kUsers, "no property list");
  ASSERT_EQ(::chmod(fake.files.real(kUsers).c_str(), 0660), 0);
  preferences.setValue("key", 1);
  EXPECT_TRUE(preferences.synchronize());
  EXPECT_TRUE(bytes(kUsers).starts_with("bplist00"));
  const std::string folder = "/Users/alice/Library/Preferences";
  const auto names = fake.files.contentsOfDirectory(folder).value();
  EXPECT_THAT(names, ::testing::SizeIs(2));
  for (const std::string& name : names) {
    struct stat status {};
    ASSERT_EQ(::stat(fake.files.real(folder + "/" + name).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0660U) << name;
  }
}

TEST_F(LinuxPreferencesTest, WhatAnotherProgramHasPutInAMalformedFilesPlaceMeanwhileStays) {
  fake.files.makeFile(kUsers, "no property list");
  fake.files.beforeChange = [this](const std::string& change, const std::string&) {
    if (change == "createDirectory") store(kUsers, {{"theirs", 1}});
    return std::optional<foundation::Error>();
  };
  preferences.setValue("key", 1);
  EXPECT_FALSE(preferences.synchronize());
  EXPECT_EQ(readDictionary(kUsers).value(), PropertyList(Dictionary{{"theirs", 1}}));
  EXPECT_TRUE(preferences.synchronize());
  EXPECT_EQ(readDictionary(kUsers).value(), PropertyList(Dictionary{{"theirs", 1}, {"key", 1}}));
}

TEST_F(LinuxPreferencesTest, EmptyFileIsReplaced) {
  fake.files.makeFile(kUsers, "");
  preferences.setValue("key", 1);
  EXPECT_TRUE(preferences.synchronize());
  EXPECT_EQ(fake.files.contentsOfDirectory("/Users/alice/Library/Preferences").value().size(), 1U);
}

TEST_F(LinuxPreferencesTest, FileThatCannotBeReadIsNotReplaced) {
  fake.files.makeFolder(kUsers);
  preferences.setValue("key", 1);
  EXPECT_FALSE(preferences.synchronize());
  EXPECT_TRUE(fake.files.isDirectory(kUsers));
}

TEST_F(LinuxPreferencesTest, FileThatHoldsMoreThanIsReadIsNotReplaced) {
  const std::string large = "<plist><string>" + std::string(kLargestPropertyList, 'x') + "</string></plist>";
  std::string many = "<plist><array>";
  while (many.size() < kLargestPropertyList - 100) many += "<true/>";
  many += "</array></plist>";
  for (const std::string& content : {large, many}) {
    fake.files.makeFile(kUsers, content);
    preferences.setValue("key", 1);
    EXPECT_FALSE(preferences.synchronize());
    EXPECT_EQ(fake.files.readFile(kUsers, 2 * kLargestPropertyList).value(), content);
  }
}

/// A binary list {"other": 1, "odd": the object}; the object takes less than 100 bytes.
std::string listWith(const std::string& object) {
  const std::string front = "bplist00\xD2\x01\x03\x02\x04\x55other\x10\x01\x53odd";
  std::string table = "\x08\x0D\x13\x15\x19";
  return front + object + table + std::string(6, '\0') + "\x01\x01" + std::string(7, '\0') + '\x05' +
         std::string(15, '\0') + static_cast<char>(front.size() + object.size());
}

TEST_F(LinuxPreferencesTest, FileThatHoldsWhatCannotBeToldIsNotReplaced) {
  const std::string noMoment = "\x33\x7F\xF8" + std::string(6, '\0');
  for (const std::string& content :
       {listWith(std::string(1, '\0')), listWith(noMoment),
        std::string("<plist><dict><key>other</key><integer>18446744073709551616</integer></dict></plist>"),
        std::string("<plist><dict><key>other</key><date>2011-02-29T00:00:00Z</date></dict></plist>")}) {
    fake.files.makeFile(kUsers, content);
    fake.files.makeFile(kEverybodys, content);
    preferences.setValue("key", 1);
    EXPECT_FALSE(preferences.synchronize());
    EXPECT_EQ(preferences.storeForAnyUserOnCurrentHost("key", 1).error().code, ENOTSUP);
    EXPECT_EQ(bytes(kUsers), content);
    EXPECT_EQ(bytes(kEverybodys), content);
    EXPECT_EQ(preferences.value("key"), PropertyList(1)) << "it is kept for the next try";
  }
}

TEST_F(LinuxPreferencesTest, OddTextsOfOthersKeepNothingFromBeingReadAndStored) {
  using namespace std::string_literals;
  for (const std::string& text : {"\x53\x61\0\x62"s, "\x53\xFF\xFE\xFD"s, "\x72\xC3z"s, "\x61\xDC\0"s}) {
    fake.files.makeFile(kUsers, listWith(text));
    EXPECT_EQ(preferences.value("other"), PropertyList(1));
    preferences.setValue("key", 1);
    EXPECT_TRUE(preferences.synchronize());
    EXPECT_EQ(readDictionary(kUsers).value().as<Dictionary>()->size(), 3U);
    EXPECT_EQ(preferences.value("other"), PropertyList(1));
    EXPECT_EQ(preferences.value("key"), PropertyList(1));
  }
}

TEST_F(LinuxPreferencesTest, OddValuesOfOthersKeepNothingFromBeingReadAndStored) {
  for (const std::string odd : {"<real>1e999</real>", "<real>1e-400</real>", "<data>QQ</data>"}) {
    fake.files.makeFile(kUsers,
                        "<plist><dict><key>other</key><true/><key>odd</key>" + odd + "</dict></plist>");
    preferences.setValue("key", 1);
    EXPECT_TRUE(preferences.synchronize());
    EXPECT_EQ(readDictionary(kUsers).value().as<Dictionary>()->size(), 3U) << odd;
    EXPECT_EQ(preferences.value("other"), PropertyList(true));
  }
}

TEST_F(LinuxPreferencesTest, WhatCouldNotBeReadAgainIsNotWritten) {
  store(kUsers, {{"other", 1}}, PropertyListFormat::xml);
  preferences.setValue("key", std::string(kLargestPropertyList, 'x'));
  EXPECT_FALSE(preferences.synchronize());
  EXPECT_EQ(readDictionary(kUsers).value(), PropertyList(Dictionary{{"other", 1}}));
}

TEST_F(LinuxPreferencesTest, ValueThatCouldNotBeStoredIsStoredAtTheNextTry) {
  fake.files.beforeChange = [](const std::string& change, const std::string& path) {
    return change.starts_with("write") ? std::optional(foundation::systemError(ENOSPC, path)) : std::nullopt;
  };
  preferences.setValue("key", 1);
  EXPECT_FALSE(preferences.synchronize());
  EXPECT_EQ(preferences.value("key"), PropertyList(1));
  fake.files.beforeChange = nullptr;
  EXPECT_TRUE(preferences.synchronize());
  EXPECT_EQ(LinuxPreferences().value("key"), PropertyList(1));
}

TEST_F(LinuxPreferencesTest, ComputerWithoutANumberIsTheLocalHost) {
  fake.files.makeFile("/etc/machine-id", "uninitialized\n");
  store("/Users/alice/Library/Preferences/ByHost/com.vordenworks.Quillmend.localhost.plist", {{"key", 1}});
  EXPECT_EQ(preferences.value("key"), PropertyList(1));
}

}  // namespace
}  // namespace platform
