#include "helpers/Surroundings.h"

#include <gmock/gmock.h>
#include <grp.h>
#include <sys/stat.h>

namespace helpers {
namespace {

TEST(ThisComputer, HasItsTopFolderAndItsAccounts) {
  const Surroundings computer = thisComputer();
  struct stat top {};
  struct stat held {};
  ASSERT_EQ(stat("/", &top), 0);
  ASSERT_EQ(fstat(computer.root.get(), &held), 0);
  EXPECT_EQ(held.st_ino, top.st_ino);
  EXPECT_THAT(computer.accounts, ::testing::Contains(::testing::Field(&Account::user, 0U)));
}

TEST(ThisComputer, HasAdministratorsWhereThereIsAGroupOfThem) {
  const group* const admin = getgrnam("admin");
  EXPECT_EQ(thisComputer().administrators(), admin ? std::optional<gid_t>(admin->gr_gid) : std::nullopt);
}

TEST(ThisComputer, TakesTheUserAtTheConsoleFromWhomeverItIsGiven) {
  std::optional<std::string> name = "root";
  const Surroundings computer = thisComputer([&name] { return name; });
  ASSERT_TRUE(computer.consoleAccount());
  EXPECT_EQ(computer.consoleAccount()->user, 0U);
  for (const auto& nobody : {std::optional<std::string>(), std::optional<std::string>("no-such-account")}) {
    name = nobody;
    EXPECT_FALSE(computer.consoleAccount());
  }
  EXPECT_FALSE(thisComputer().consoleAccount());
}

}  // namespace
}  // namespace helpers
