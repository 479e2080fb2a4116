#include "services/TGLocalPaths.h"

#include <gmock/gmock.h>

#include <functional>

#include "platform/fakes/FakePlatform.h"

namespace {

using platform::SearchPathDirectory;
using platform::SearchPathDomain;
using ::testing::Optional;

class TGLocalPathsTest : public ::testing::Test {
 protected:
  void runAsRoot(const std::optional<std::string>& consoleUser) {
    fakes_.users.user = 0;
    fakes_.users.name = "root";
    fakes_.users.home = "/root";
    fakes_.users.console = consoleUser;
  }

  void answerLookupsWith(const std::vector<std::string>& paths) {
    fakes_.users.searchPathsOverride = [paths](SearchPathDirectory, SearchPathDomain) { return paths; };
  }

  fakes::FakePlatform fakes_;
};

/// Folder kind and domain of the one lookup that an operation makes.
using Lookup = std::pair<int, int>;

struct Accessor {
  const char* name;
  std::function<std::optional<std::string>()> call;
  Lookup lookup;
  std::string appended;
};

const std::vector<Accessor>& accessors() {
  using Paths = TGLocalPaths;
  static const std::vector<Accessor> table = {
      {"applicationDirectory:YES", [] { return Paths::applicationDirectory(Domain::user); }, {1, 1}, ""},
      {"applicationDirectory:NO", [] { return Paths::applicationDirectory(Domain::local); }, {1, 2}, ""},
      {"adminApplicationDirectory:YES",
       [] { return Paths::adminApplicationDirectory(Domain::user); },
       {4, 1},
       ""},
      {"adminApplicationDirectory:NO",
       [] { return Paths::adminApplicationDirectory(Domain::local); },
       {4, 2},
       ""},
      {"documentDirectory:YES", [] { return Paths::documentDirectory(Domain::user); }, {9, 1}, ""},
      {"documentDirectory:NO", [] { return Paths::documentDirectory(Domain::local); }, {9, 2}, ""},
      {"libraryDirectory:YES", [] { return Paths::libraryDirectory(Domain::user); }, {5, 1}, ""},
      {"libraryDirectory:NO", [] { return Paths::libraryDirectory(Domain::local); }, {5, 2}, ""},
      {"prefsDirectory:YES", [] { return Paths::prefsDirectory(Domain::user); }, {5, 1}, "/Preferences"},
      {"prefsDirectory:NO", [] { return Paths::prefsDirectory(Domain::local); }, {5, 2}, "/Preferences"},
      {"cacheDirectory:YES", [] { return Paths::cacheDirectory(Domain::user); }, {13, 1}, ""},
      {"cacheDirectory:NO", [] { return Paths::cacheDirectory(Domain::local); }, {13, 2}, ""},
      {"appSupportDirectory:YES", [] { return Paths::appSupportDirectory(Domain::user); }, {14, 1}, ""},
      {"appSupportDirectory:NO", [] { return Paths::appSupportDirectory(Domain::local); }, {14, 2}, ""},
      {"logDirectory:YES", [] { return Paths::logDirectory(Domain::user); }, {5, 1}, "/Logs"},
      {"logDirectory:NO", [] { return Paths::logDirectory(Domain::local); }, {5, 2}, "/Logs"},
      {"desktopDirectory", [] { return Paths::desktopDirectory(); }, {12, 1}, ""},
      {"systemLibraryDirectory", [] { return Paths::systemLibraryDirectory(); }, {5, 8}, ""},
      {"localDocumentationDirectory", [] { return Paths::localDocumentationDirectory(); }, {8, 2}, ""},
  };
  return table;
}

TEST_F(TGLocalPathsTest, EachAccessorLooksUpItsKindInItsDomain) {
  for (const Accessor& accessor : accessors()) {
    std::vector<Lookup> lookups;
    fakes_.users.searchPathsOverride = [&](SearchPathDirectory directory, SearchPathDomain domain) {
      lookups.emplace_back(static_cast<int>(directory), static_cast<int>(domain));
      return std::vector<std::string>{"/first", "/second"};
    };
    EXPECT_THAT(accessor.call(), Optional("/first" + accessor.appended)) << accessor.name;
    EXPECT_THAT(lookups, ::testing::ElementsAre(accessor.lookup)) << accessor.name;
  }
}

TEST_F(TGLocalPathsTest, AFolderThatTheSystemDoesNotHaveIsNone) {
  for (const uid_t user : {uid_t{501}, uid_t{0}}) {
    fakes_.users.user = user;
    answerLookupsWith({});
    for (const Accessor& accessor : accessors()) EXPECT_EQ(accessor.call(), std::nullopt) << accessor.name;
  }
}

TEST_F(TGLocalPathsTest, FoldersOfAnOrdinaryUserAreTakenAsTheyAre) {
  answerLookupsWith({"/var/root/Library"});
  EXPECT_THAT(TGLocalPaths::libraryDirectory(Domain::user), Optional(std::string("/var/root/Library")));
}

TEST_F(TGLocalPathsTest, AnOrdinaryUsersFoldersLieInItsHome) {
  EXPECT_THAT(TGLocalPaths::userDirectory(), Optional(std::string("/Users/alice")));
  EXPECT_THAT(TGLocalPaths::movieDirectory(), Optional(std::string("/Users/alice/Movies")));
  EXPECT_THAT(TGLocalPaths::trashDirectory(), Optional(std::string("/Users/alice/.Trash")));
  EXPECT_THAT(TGLocalPaths::username(), Optional(std::string("alice")));
}

TEST_F(TGLocalPathsTest, AnOrdinaryUserIsNotTheOneAtTheConsole) {
  fakes_.users.console = "bob";
  EXPECT_THAT(TGLocalPaths::userDirectory(), Optional(std::string("/Users/alice")));
  EXPECT_THAT(TGLocalPaths::username(), Optional(std::string("alice")));
  EXPECT_THAT(TGLocalPaths::currentConsoleUser(), Optional(std::string("bob")));
}

TEST_F(TGLocalPathsTest, RootsFoldersAreThoseOfTheUserAtTheConsole) {
  runAsRoot("bob");
  EXPECT_THAT(TGLocalPaths::prefsDirectory(Domain::user),
              Optional(std::string("/Users/bob/Library/Preferences")));
  EXPECT_THAT(TGLocalPaths::logDirectory(Domain::user), Optional(std::string("/Users/bob/Library/Logs")));
  EXPECT_THAT(TGLocalPaths::desktopDirectory(), Optional(std::string("/Users/bob/Desktop")));
  EXPECT_THAT(TGLocalPaths::trashDirectory(), Optional(std::string("/Users/bob/.Trash")));
  EXPECT_THAT(TGLocalPaths::movieDirectory(), Optional(std::string("/Users/bob/Movies")));
  EXPECT_THAT(TGLocalPaths::username(), Optional(std::string("bob")));
}

TEST_F(TGLocalPathsTest, RootsMachineWideFoldersStayWhereTheyAre) {
  runAsRoot("bob");
  EXPECT_THAT(TGLocalPaths::prefsDirectory(Domain::local), Optional(std::string("/Library/Preferences")));
  EXPECT_THAT(TGLocalPaths::systemLibraryDirectory(), Optional(std::string("/System/Library")));
  answerLookupsWith({"/var/root/Library"});
  EXPECT_THAT(TGLocalPaths::libraryDirectory(Domain::local), Optional(std::string("/var/root/Library")));
  EXPECT_THAT(TGLocalPaths::systemLibraryDirectory(), Optional(std::string("/var/root/Library")));
}

TEST_F(TGLocalPathsTest, ReRootingTakesRootsHomeOffTheHeadOfThePath) {
  const std::vector<std::pair<std::string, std::string>> table = {
      {"/var/root/Library/Preferences", "/Users/bob/Library/Preferences"},
      {"/var/root", "/Users/bob"},
      {"/var/rootless/x", "/Users/bob/less/x"},  // a beginning of the text, not a component
      {"/private/var/root/Library", "/Users/bob/t/Library"},
      {"/private/var/root", "/Users/bob/t"},
      {"/var/root/private/var/root/Library", "/Users/bob/t/Library"},
      {"/private/var/root/var/root/x", "/Users/bob/t/var/root/x"},
      {"/Network/Library", "/Users/bob/Network/Library"},
  };
  runAsRoot("bob");
  for (const auto& [found, expected] : table) {
    answerLookupsWith({found, "/elsewhere"});
    EXPECT_THAT(TGLocalPaths::pathForDirectory(SearchPathDirectory::library, SearchPathDomain::user),
                Optional(expected))
        << found;
  }
}

TEST_F(TGLocalPathsTest, WithNobodyAtTheConsoleRootHasTheHomeOfAnAbsentName) {
  runAsRoot(std::nullopt);
  EXPECT_EQ(TGLocalPaths::username(), std::nullopt);
  EXPECT_THAT(TGLocalPaths::userDirectory(), Optional(std::string("/root")));
  EXPECT_THAT(TGLocalPaths::libraryDirectory(Domain::user), Optional(std::string("/root/Library")));
}

TEST_F(TGLocalPathsTest, TheLoginWindowIsNobody) {
  runAsRoot("loginwindow");
  EXPECT_EQ(TGLocalPaths::currentConsoleUser(), std::nullopt);
  EXPECT_EQ(TGLocalPaths::username(), std::nullopt);
  EXPECT_THAT(TGLocalPaths::userDirectory(), Optional(std::string("/root")));
}

TEST_F(TGLocalPathsTest, AConsoleUserWithoutAHomeLeavesRootWithoutUserFolders) {
  runAsRoot("stranger");
  EXPECT_THAT(TGLocalPaths::username(), Optional(std::string("stranger")));
  EXPECT_EQ(TGLocalPaths::userDirectory(), std::nullopt);
  EXPECT_EQ(TGLocalPaths::prefsDirectory(Domain::user), std::nullopt);
  EXPECT_EQ(TGLocalPaths::logDirectory(Domain::user), std::nullopt);
  EXPECT_EQ(TGLocalPaths::movieDirectory(), std::nullopt);
  EXPECT_EQ(TGLocalPaths::trashDirectory(), std::nullopt);
  EXPECT_THAT(TGLocalPaths::libraryDirectory(Domain::local), Optional(std::string("/Library")));
}

TEST_F(TGLocalPathsTest, AChangeOfConsoleUserIsSeen) {
  runAsRoot("bob");
  EXPECT_THAT(TGLocalPaths::trashDirectory(), Optional(std::string("/Users/bob/.Trash")));
  fakes_.users.console = "alice";
  EXPECT_THAT(TGLocalPaths::trashDirectory(), Optional(std::string("/Users/alice/.Trash")));
}

TEST_F(TGLocalPathsTest, TemporaryFilesLieInTheTemporaryFolderUnderFreshNames) {
  EXPECT_EQ(TGLocalPaths::tempDirectory(), "/private/tmp");
  EXPECT_EQ(TGLocalPaths::uuid(), "unique-1");
  EXPECT_EQ(TGLocalPaths::tempFile(), "/private/tmp/unique-2");
  EXPECT_EQ(TGLocalPaths::tempFile(), "/private/tmp/unique-3");
  fakes_.users.temporary = "/private/tmp/";
  EXPECT_EQ(TGLocalPaths::tempFile(), "/private/tmp/unique-4");
}

struct Protection {
  std::string path;
  bool exactly;
  bool loosely;
};

void expectProtection(const std::vector<Protection>& table) {
  for (const Protection& row : table) {
    EXPECT_EQ(TGLocalPaths::isPathSystemDirectory(row.path, ExactMatch::yes), row.exactly) << row.path;
    EXPECT_EQ(TGLocalPaths::isPathSystemDirectory(row.path, ExactMatch::no), row.loosely) << row.path;
    EXPECT_EQ(TGLocalPaths::isPathSystemDirectory(row.path), row.loosely) << row.path;
  }
}

const std::vector<Protection>& machineWideProtection() {
  static const std::vector<Protection> table = {
      {"/", true, true},
      {"", false, false},
      {"/a", false, false},
      {"//", false, false},
      {"///", false, false},
      {"/Applications", true, true},
      {"/Applications/Utilities", true, true},
      {"/Library", true, true},
      {"/Library/Preferences", true, true},
      {"/Library/Caches", true, true},
      {"/Library/Application Support", true, true},
      {"/Library/Documentation", true, true},
      {"/Library/Documentation/x", false, false},
      {"/Library/Logs", false, false},
      {"/library", false, false},
      {"/Library/../Library", false, false},
      {"/Volumes", true, true},
      {"/Volumes/", false, false},
      {"/Volumes/Disk", false, false},
      {"/Volumesx/", true, true},  // shortened to the folder
      {"/System/Library", true, true},
      {"/System/Library/", false, true},
      {"/System/Library/x", false, true},
      {"/Systems", false, true},
      {"/system", false, false},
      {"/usr/local/bin", false, true},
      {"/usr", false, true},
      {"/usr/", false, false},
      {"/usrdata", false, true},
      {"/usr/x/", false, true},
      {"/var/folders", false, true},
      {"/variable", false, true},
      {"/private/var/folders/x", false, true},
      {"/private/tmp", false, false},
      {"/Users/Shared", true, true},
      {"/Users/Shared/", false, false},
      {"/Users/Shared/Stuff", false, false},
      {"/Users", false, false},
      // An accent takes two bytes and is one character; a face takes four and is two, of which one stays.
      {"/\xC3\xA9", false, false},
      {"/Volumes\xC3\xA9/", true, true},
      {"/Volumes\xE2\x82\xAC/", true, true},
      {"/Volumes\xF0\x9F\x98\x80/", false, false},
      {"/Volumes\xFF/", true, true},
  };
  return table;
}

TEST_F(TGLocalPathsTest, MachineWideFoldersAreProtectedWhoeverRunsTheProgram) {
  expectProtection(machineWideProtection());
  runAsRoot("bob");
  expectProtection(machineWideProtection());
  runAsRoot("stranger");
  expectProtection(machineWideProtection());
}

std::vector<Protection> foldersOf(const std::string& home, bool areProtected) {
  std::vector<Protection> table;
  for (const char* folder :
       {"", "/Applications", "/Applications/Utilities", "/Documents", "/Library", "/Library/Preferences",
        "/Library/Caches", "/Library/Application Support", "/Desktop"}) {
    table.push_back({home + folder, areProtected, areProtected});
  }
  for (const char* folder : {"/Library/Logs", "/Library/Documentation", "/Movies", "/.Trash", "/Library/"}) {
    table.push_back({home + folder, false, false});
  }
  return table;
}

TEST_F(TGLocalPathsTest, TheUsersOwnFoldersAreProtectedAndNobodyElses) {
  expectProtection(foldersOf("/Users/alice", true));
  expectProtection(foldersOf("/Users/bob", false));
}

TEST_F(TGLocalPathsTest, ForRootTheConsoleUsersFoldersAreProtected) {
  runAsRoot("bob");
  expectProtection(foldersOf("/Users/bob", true));
  expectProtection(foldersOf("/Users/alice", false));
  expectProtection(foldersOf("/root", false));
}

TEST_F(TGLocalPathsTest, NoPathIsNoSystemDirectory) {
  fakes_.users.searchPathsOverride = [](auto, auto) { return std::vector<std::string>{}; };
  EXPECT_FALSE(TGLocalPaths::isPathSystemDirectory(std::nullopt, ExactMatch::yes));
  EXPECT_FALSE(TGLocalPaths::isPathSystemDirectory(std::nullopt, ExactMatch::no));
}

TEST_F(TGLocalPathsTest, TimeMachineVolumesAreKnownByTheirBackupFolder) {
  EXPECT_TRUE(TGLocalPaths::isPathOnTimeMachineVolume("/Volumes/TM/Backups.backupdb/mac/Latest"));
  EXPECT_TRUE(TGLocalPaths::isPathOnTimeMachineVolume("/Volumes/Backups.backupdb"));
  EXPECT_FALSE(TGLocalPaths::isPathOnTimeMachineVolume("/Backups.backupdb"));
  EXPECT_FALSE(TGLocalPaths::isPathOnTimeMachineVolume("/Volumes/TM/Backups.backupdbX"));
  EXPECT_FALSE(TGLocalPaths::isPathOnTimeMachineVolume("/Volumes/TM/backups.backupdb"));
  EXPECT_FALSE(TGLocalPaths::isPathOnTimeMachineVolume("/VolumesX/Backups.backupdb"));
  EXPECT_FALSE(TGLocalPaths::isPathOnTimeMachineVolume(std::nullopt));
}

}  // namespace
