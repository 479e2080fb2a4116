#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/AsUser.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using support::AsUser;
using support::EnvironmentVariable;
using support::kNobody;
using support::runProgram;
using support::TemporaryFolder;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class Asuser : public ::testing::Test {
 protected:
  void SetUp() override {
    if (getuid() != 0) GTEST_SKIP() << "needs root";
  }
  static std::string shell(const std::string& script) {
    return runProgram({ASUSER_PROGRAM, "nobody", "--", "/bin/sh", "-c", script}).output;
  }
};

TEST_F(Asuser, TakesOnTheUserItsGroupAndNothingOfRoots) {
  EXPECT_EQ(shell("id -u; id -g; id -G"), "65534\n65534\n65534\n");
}

TEST_F(Asuser, LeavesNoWayBackToRoot) {
  EXPECT_THAT(
      shell("grep -E '^(Uid|Gid|CapEff|CapPrm)' /proc/self/status"),
      AllOf(HasSubstr("Uid:\t65534\t65534\t65534\t65534"), HasSubstr("Gid:\t65534\t65534\t65534\t65534"),
            HasSubstr("CapPrm:\t0000000000000000"), HasSubstr("CapEff:\t0000000000000000")));
}

TEST_F(Asuser, GivesTheUsersEnvironmentAndKeepsOnlyLanguageAndDisplay) {
  const EnvironmentVariable secret("SECRET_OF_ROOT", "1");
  const EnvironmentVariable library("LD_LIBRARY_PATH", "/root/lib");
  const EnvironmentVariable language("LC_TIME", "C");
  const EnvironmentVariable display("DISPLAY", ":7");
  const EnvironmentVariable bus("DBUS_SESSION_BUS_ADDRESS", "unix:path=/root/bus");
  EXPECT_THAT(shell("env"), AllOf(HasSubstr("HOME=/nonexistent\n"), HasSubstr("USER=nobody\n"),
                                  HasSubstr("LOGNAME=nobody\n"), HasSubstr("LC_TIME=C\n"),
                                  HasSubstr("DISPLAY=:7\n"), Not(HasSubstr("SECRET_OF_ROOT")),
                                  Not(HasSubstr("LD_LIBRARY_PATH")), Not(HasSubstr("/root"))));
}

TEST_F(Asuser, StartsInTheRootFolderWhereTheHomeFolderIsMissing) {
  EXPECT_EQ(shell("pwd"), "/\n");
}

TEST_F(Asuser, PassesNoDescriptorOn) {
  const int left = fcntl(open("/etc/shadow", O_RDONLY), F_DUPFD, 100);
  EXPECT_EQ(shell("ls /proc/self/fd | grep -c '^100$'"), "0\n");
  close(left);
}

TEST_F(Asuser, PassesArgumentsAndTheExitStatusOn) {
  const auto run = runProgram({ASUSER_PROGRAM, "nobody", "--", "/bin/sh", "-c",
                               "printf '[%s]' \"$@\"; exit 3", "sh", "", "a b ", "\"'\n", "--"});
  EXPECT_EQ(run.output, "[][a b ][\"'\n][--]");
  EXPECT_EQ(run.status, 3);
}

TEST_F(Asuser, RefusesUnknownUsersAndWrongArguments) {
  EXPECT_EQ(runProgram({ASUSER_PROGRAM, "no such user", "--", "/bin/true"}).status, 125);
  EXPECT_EQ(runProgram({ASUSER_PROGRAM, "nobody", "/bin/true", "--"}).status, 125);
  EXPECT_EQ(runProgram({ASUSER_PROGRAM, "nobody", "--", "true"}).status, 125);
  EXPECT_EQ(runProgram({ASUSER_PROGRAM, "nobody", "--"}).status, 125);
  EXPECT_EQ(runProgram({ASUSER_PROGRAM}).status, 125);
}

TEST_F(Asuser, SaysWhenTheProgramCannotBeStarted) {
  const auto run = runProgram({ASUSER_PROGRAM, "nobody", "--", "/no/such/program"});
  EXPECT_EQ(run.status, 127);
  EXPECT_EQ(run.output, "asuser: /no/such/program: No such file or directory\n");
}

TEST_F(Asuser, IsOfNoUseWithoutRoot) {
  const TemporaryFolder folder;
  folder.makeAccessibleToAll();
  std::filesystem::copy_file(ASUSER_PROGRAM, folder / "asuser");
  AsUser::run(kNobody, [&] {
    EXPECT_EQ(runProgram({folder / "asuser", "root", "--", "/usr/bin/id"}).status, 125);
  });
}

}  // namespace
