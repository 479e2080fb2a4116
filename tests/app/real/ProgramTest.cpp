#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/AsUser.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/TemporaryFolder.h"

// The program itself, as somebody starts it.

namespace {

using support::AsUser;
using support::kNobody;
using support::runProgram;
using support::TemporaryFolder;
using ::testing::HasSubstr;

class ProgramTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::getuid() != 0) GTEST_SKIP() << "needs root, to install a file with rights of its own";
    folder.makeAccessibleToAll();
    std::filesystem::copy_file(QUILLMEND_PROGRAM, program);
  }

  TemporaryFolder folder;
  const std::string program = folder / "Quillmend";
};

TEST_F(ProgramTest, RefusesToWorkWithTheRightsOfItsFile) {
  for (const mode_t mode : {04755U, 02755U}) {
    ASSERT_EQ(::chmod(program.c_str(), mode), 0);
    AsUser::run(kNobody, [&] {
      const auto run = runProgram({program, "-help"});
      EXPECT_EQ(run.status, 1) << mode;
      EXPECT_THAT(run.output,
                  HasSubstr("must not be installed set-user-ID or set-group-ID: nothing was done."));
    });
  }
}

/// A scheduler may set one. The log then stays short, and Qmaster is started again all the same.
TEST_F(ProgramTest, ALimitOfFileSizesDoesNotEndARepair) {
  const std::string home = folder / "home";
  std::filesystem::create_directory(home);
  ASSERT_EQ(::chmod(home.c_str(), 0777), 0);
  AsUser::run(kNobody, [&] {
    const auto run =
        runProgram({"/bin/sh", "-c", "ulimit -f 0; HOME='" + home + "' exec '" + program + "' -repair"});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.output, HasSubstr("Unable to authorize"));
  });
}

TEST_F(ProgramTest, WorksWithTheRightsOfWhoeverStartsIt) {
  ASSERT_EQ(::chmod(program.c_str(), 04755), 0);
  EXPECT_EQ(runProgram({program, "-help"}).status, 0) << "root's file started by root lends nothing";
  ASSERT_EQ(::chmod(program.c_str(), 0755), 0);
  AsUser::run(kNobody, [&] { EXPECT_EQ(runProgram({program, "-help"}).status, 0); });
}

}  // namespace
