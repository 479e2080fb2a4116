#include "platform/linux/LinuxUsersAndFolders.h"

#include <gmock/gmock.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "platform/posix/Accounts.h"
#include "tests/support/AsUser.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestAccount.h"

namespace platform {
namespace {

using support::AsUser;
using support::EnvironmentVariable;
using support::kNobody;
using support::TemporaryFolder;
using support::TestAccount;
using ::testing::ElementsAre;
using Kind = SearchPathDirectory;
using In = SearchPathDomain;

constexpr Kind kKinds[] = {Kind::application,   Kind::adminApplication,  Kind::library,
                           Kind::documentation, Kind::document,          Kind::desktop,
                           Kind::caches,        Kind::applicationSupport};

std::vector<std::string> all(In domain) {
  std::vector<std::string> paths;
  for (const Kind kind : kKinds) {
    for (const auto& path : LinuxUsersAndFolders().searchPaths(kind, domain)) paths.push_back(path);
  }
  return paths;
}

TEST(LinuxUsersAndFolders, UserIsTheRealOne) {
  EXPECT_EQ(LinuxUsersAndFolders().userID(), getuid());
}

TEST(LinuxUsersAndFolders, UserFoldersLieBelowTheHomeFolder) {
  AsUser::run(kNobody, [] {
    const EnvironmentVariable home("HOME", "/Users/alice/");
    EXPECT_THAT(all(In::user),
                ElementsAre("/Users/alice/Applications", "/Users/alice/Applications/Utilities",
                            "/Users/alice/Library", "/Users/alice/Library/Documentation",
                            "/Users/alice/Documents", "/Users/alice/Desktop", "/Users/alice/Library/Caches",
                            "/Users/alice/Library/Application Support"));
  });
}

/// A user whose desktop's settings say where things are.
class ConfiguredDesktop : public testing::Test {
 protected:
  ConfiguredDesktop() { folder_.makeAccessibleToAll(); }

  /// With those settings, in the home folder or in a place that the environment names.
  void expectDesktop(const std::string& settings, const std::string& desktop,
                     bool isElsewhere = false) const {
    folder_.file(isElsewhere ? "settings/user-dirs.dirs" : ".config/user-dirs.dirs", settings);
    AsUser::run(kNobody, [&] {
      const EnvironmentVariable home("HOME", folder_.path());
      const EnvironmentVariable place("XDG_CONFIG_HOME",
                                      isElsewhere ? std::optional(folder_ / "settings") : std::nullopt);
      EXPECT_THAT(LinuxUsersAndFolders().searchPaths(Kind::desktop, In::user), ElementsAre(desktop))
          << settings;
      EXPECT_THAT(LinuxUsersAndFolders().searchPaths(Kind::library, In::user),
                  ElementsAre(inHome("Library")));
    });
  }
  [[nodiscard]] std::string inHome(const std::string& name) const { return folder_ / name; }
  [[nodiscard]] std::string home() const { return folder_.path(); }

 private:
  TemporaryFolder folder_;
};

TEST_F(ConfiguredDesktop, HasItsNameInTheUsersLanguage) {
  expectDesktop(
      "# written by xdg-user-dirs-update\nXDG_DOWNLOAD_DIR=\"$HOME/Laden\"\n"
      "XDG_DESKTOP_DIR=\"$HOME/Schreib tisch\"\n",
      inHome("Schreib tisch"));
  expectDesktop("XDG_DESKTOP_DIR=\"$HOME/Bureau/\"", inHome("Bureau"), true);
}

TEST_F(ConfiguredDesktop, MayLieElsewhereOrBeTheHomeFolder) {
  expectDesktop("XDG_DESKTOP_DIR=\"/srv/desktops/alice\"\n", "/srv/desktops/alice");
  expectDesktop("XDG_DESKTOP_DIR=\"$HOME/\"\n", home());
}

TEST_F(ConfiguredDesktop, IsReadAsAShellReadsIt) {
  expectDesktop("XDG_DESKTOP_DIR=\"$HOME/Desk top\" # mine\n", inHome("Desk top"));
  expectDesktop("XDG_DESKTOP_DIR=\"$HOME/Bureau\";XDG_MUSIC_DIR=\"$HOME\"\n", inHome("Bureau"));
  expectDesktop("XDG_DESKTOP_DIR=\"$HOME/one\"\nXDG_DESKTOP_DIR=two\n", inHome("Desktop"));
}

TEST_F(ConfiguredDesktop, IsTheUsualOneWhereNothingUsableIsSaid) {
  for (const char* settings :
       {"", "XDG_DESKTOP_DIR=\"\"", "XDG_DESKTOP_DIR=\"Schreibtisch\"", "XDG_DESKTOP_DIR=\"$HOMEWARD/x\"",
        "XDG_DESKTOP_DIR='$HOME/x'", "XDG_DESKTOP_DIR=\"\\$HOME/x\"", "#XDG_DESKTOP_DIR=\"$HOME/x\""}) {
    expectDesktop(settings, inHome("Desktop"));
  }
}

TEST_F(ConfiguredDesktop, OfRootIsNeverAUsersWord) {
  if (getuid() != 0) GTEST_SKIP() << "needs root";
  expectDesktop("XDG_DESKTOP_DIR=\"/etc\"\n", "/etc");
  const EnvironmentVariable place("XDG_CONFIG_HOME", inHome(".config"));
  EXPECT_THAT(LinuxUsersAndFolders().searchPaths(Kind::desktop, In::user), ElementsAre("/var/root/Desktop"));
}

TEST(LinuxUsersAndFolders, RootsOwnFoldersArePresentedBelowVarRoot) {
  if (getuid() != 0) GTEST_SKIP() << "needs root";
  const EnvironmentVariable home("HOME", "/elsewhere");
  EXPECT_THAT(LinuxUsersAndFolders().searchPaths(Kind::library, In::user), ElementsAre("/var/root/Library"));
  EXPECT_THAT(LinuxUsersAndFolders().searchPaths(Kind::desktop, In::user), ElementsAre("/var/root/Desktop"));
}

TEST(LinuxUsersAndFolders, LocalFoldersHaveNeitherDocumentsNorDesktop) {
  EXPECT_THAT(all(In::local),
              ElementsAre("/Applications", "/Applications/Utilities", "/Library", "/Library/Documentation",
                          "/Library/Caches", "/Library/Application Support"));
}

TEST(LinuxUsersAndFolders, SystemFoldersLieBelowSystem) {
  EXPECT_THAT(all(In::system), ElementsAre("/System/Library", "/System/Library/Documentation",
                                           "/System/Library/Caches", "/System/Library/Application Support"));
}

TEST(LinuxUsersAndFolders, RootsHomeIsTheDatabasesWhateverTheEnvironmentSays) {
  if (getuid() != 0) GTEST_SKIP() << "needs root";
  const EnvironmentVariable home("HOME", "/elsewhere");
  EXPECT_EQ(LinuxUsersAndFolders().homeDirectory(), getpwuid(0)->pw_dir);
}

TEST(LinuxUsersAndFolders, HomeOfOthersIsTheEnvironmentsWhenItIsAbsolute) {
  AsUser::run(kNobody, [] {
    const EnvironmentVariable home("HOME", "/Users/bob");
    EXPECT_EQ(LinuxUsersAndFolders().homeDirectory(), "/Users/bob");
    const EnvironmentVariable relative("HOME", "Users/bob");
    EXPECT_EQ(LinuxUsersAndFolders().homeDirectory(), getpwuid(::getuid())->pw_dir);
    const EnvironmentVariable absent("HOME", std::nullopt);
    EXPECT_EQ(LinuxUsersAndFolders().homeDirectory(), getpwuid(::getuid())->pw_dir);
  });
}

TEST(LinuxUsersAndFolders, AnAccountWithoutAnEntryHasTheRootFolderAndItsNumberForAName) {
  if (::getuid() != 0) GTEST_SKIP() << "needs root, to become an account without an entry";
  AsUser::run(987654, [] {
    const EnvironmentVariable home("HOME", std::nullopt);
    EXPECT_EQ(LinuxUsersAndFolders().homeDirectory(), "/");
    EXPECT_EQ(LinuxUsersAndFolders().userName(), "987654");
    EXPECT_THAT(LinuxUsersAndFolders().searchPaths(Kind::library, In::user), ElementsAre("/Library"));
  });
}

TEST(LinuxUsersAndFolders, AnAbsentNameStandsForTheProcessItself) {
  LinuxUsersAndFolders users;
  EXPECT_EQ(users.homeDirectoryForUser(std::nullopt), users.homeDirectory());
}

TEST(LinuxUsersAndFolders, HomeOfANamedUserIsTheDatabasesAndAnUnknownNameHasNone) {
  EXPECT_EQ(LinuxUsersAndFolders().homeDirectoryForUser("daemon"), getpwnam("daemon")->pw_dir);
  EXPECT_EQ(LinuxUsersAndFolders().homeDirectoryForUser("no such user"), std::nullopt);
  EXPECT_EQ(LinuxUsersAndFolders().homeDirectoryForUser(""), std::nullopt);
}

TEST(LinuxUsersAndFolders, ASlashAtTheEndOfTheDatabasesHomeIsLeftOut) {
  if (getuid() != 0) GTEST_SKIP() << "needs root, to make an account";
  const TestAccount account("secret", "/Users/bob//");
  ASSERT_EQ(getpwnam(account.name().c_str())->pw_dir, std::string("/Users/bob//"));
  EXPECT_EQ(LinuxUsersAndFolders().homeDirectoryForUser(account.name()), "/Users/bob");
  AsUser::run(account.id(), [] {
    const EnvironmentVariable home("HOME", std::nullopt);
    EXPECT_EQ(LinuxUsersAndFolders().homeDirectory(), "/Users/bob");
    EXPECT_THAT(LinuxUsersAndFolders().searchPaths(Kind::library, In::user),
                ElementsAre("/Users/bob/Library"));
  });
}

TEST(LinuxUsersAndFolders, SettingTheUserTellsWhetherItWasGranted) {
  EXPECT_TRUE(LinuxUsersAndFolders().setUserID(getuid()));
  AsUser::run(kNobody, [] { EXPECT_FALSE(LinuxUsersAndFolders().setUserID(0)); });
}

TEST(LinuxUsersAndFolders, TemporaryFolderOfAUserIsTheEnvironmentsWhenItIsAFolder) {
  const TemporaryFolder folder;
  folder.makeAccessibleToAll();
  AsUser::run(kNobody, [&] {
    const EnvironmentVariable tmpdir("TMPDIR", folder.path() + "/");
    EXPECT_EQ(LinuxUsersAndFolders().temporaryDirectory(), folder.path());
    const EnvironmentVariable missing("TMPDIR", folder.path() + "/missing");
    EXPECT_EQ(LinuxUsersAndFolders().temporaryDirectory(), "/tmp");
    const EnvironmentVariable relative("TMPDIR", ".");
    EXPECT_EQ(LinuxUsersAndFolders().temporaryDirectory(), "/tmp");
  });
}

TEST(LinuxUsersAndFolders, RootTakesNoTemporaryFolderFromTheEnvironment) {
  if (getuid() != 0) GTEST_SKIP() << "needs root";
  const TemporaryFolder folder;
  const EnvironmentVariable tmpdir("TMPDIR", folder.path());
  LinuxUsersAndFolders users(folder.path());
  EXPECT_EQ(users.temporaryDirectory(), folder.path() + "/tmp");
  const std::string ofTheMac = folder.path() + "/private/tmp";
  std::filesystem::create_directories(ofTheMac);
  ASSERT_EQ(chmod(ofTheMac.c_str(), 01777), 0);
  EXPECT_EQ(users.temporaryDirectory(), ofTheMac);
  ASSERT_EQ(chmod(ofTheMac.c_str(), 0777), 0);
  EXPECT_EQ(users.temporaryDirectory(), folder.path() + "/tmp") << "users could replace root's files there";
  ASSERT_EQ(chmod(ofTheMac.c_str(), 0755) + chown(ofTheMac.c_str(), kNobody, 0), 0);
  EXPECT_EQ(users.temporaryDirectory(), folder.path() + "/tmp");
}

TEST(Accounts, AreFoundByNameAndByNumber) {
  const auto byNumber = accountWithID(0);
  ASSERT_TRUE(byNumber);
  EXPECT_EQ(byNumber->name, "root");
  const auto byName = accountNamed("nobody");
  ASSERT_TRUE(byName);
  EXPECT_EQ(byName->user, kNobody);
  EXPECT_FALSE(accountNamed("no such user"));
}

}  // namespace
}  // namespace platform
