#include "platform/macos/MacUsersAndFolders.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/posix/Accounts.h"
#include "tests/macsdk/fakes/FakeCoreFoundation.h"
#include "tests/macsdk/fakes/FakeSystem.h"
#include "tests/support/EnvironmentVariable.h"

namespace platform {
namespace {

using ::testing::ElementsAre;

class MacUsersAndFoldersTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ::fakes::resetCoreFoundation();
    ::fakes::systemState() = {};
  }
  void TearDown() override { EXPECT_EQ(::fakes::liveObjects(), 0) << "objects were not released"; }

  MacUsersAndFolders users;
};

TEST_F(MacUsersAndFoldersTest, TheConsoleUserIsWhomTheSystemNames) {
  EXPECT_EQ(users.consoleUser(), std::nullopt);
  ::fakes::systemState().consoleUser = "";
  EXPECT_EQ(users.consoleUser(), std::nullopt);
  ::fakes::systemState().consoleUser = "editor";
  EXPECT_EQ(users.consoleUser(), "editor");
  ::fakes::systemState().consoleUser = "loginwindow";
  EXPECT_EQ(users.consoleUser(), "loginwindow");
}

TEST_F(MacUsersAndFoldersTest, FoldersAreTheSystemsInItsOrderWithTheUsersOwnHome) {
  ::fakes::systemState().folders[{5, 1}] = {"~/Library", "/Other/Library"};
  ::fakes::systemState().folders[{14, 2}] = {"/Library/Application Support"};
  const std::string home = ::getuid() == 0 ? "/var/root" : users.homeDirectory();
  EXPECT_THAT(users.searchPaths(SearchPathDirectory::library, SearchPathDomain::user),
              ElementsAre(home + "/Library", "/Other/Library"));
  EXPECT_THAT(users.searchPaths(SearchPathDirectory::applicationSupport, SearchPathDomain::local),
              ElementsAre("/Library/Application Support"));
  EXPECT_THAT(users.searchPaths(SearchPathDirectory::desktop, SearchPathDomain::system), ElementsAre());
}

TEST_F(MacUsersAndFoldersTest, RootsHomeIsTheAccountsWhateverTheEnvironmentSays) {
  if (::getuid() != 0) GTEST_SKIP() << "needs root";
  const support::EnvironmentVariable home("HOME", "/tmp/elsewhere");
  EXPECT_EQ(users.homeDirectory(), accountWithID(0)->home);
  EXPECT_EQ(users.homeDirectoryForUser(std::nullopt), accountWithID(0)->home);
  EXPECT_EQ(users.userName(), "root");
  EXPECT_EQ(users.userID(), 0U);
}

TEST_F(MacUsersAndFoldersTest, AnUnknownAccountHasNoHome) {
  EXPECT_EQ(users.homeDirectoryForUser("no-such-account"), std::nullopt);
  EXPECT_EQ(users.homeDirectoryForUser("root"), accountWithID(0)->home);
}

TEST_F(MacUsersAndFoldersTest, WithoutATemporaryFolderOfTheAccountsOwnItIsEverybodys) {
  EXPECT_EQ(users.temporaryDirectory(), "/private/tmp");  // this system knows no such name
}

}  // namespace
}  // namespace platform
