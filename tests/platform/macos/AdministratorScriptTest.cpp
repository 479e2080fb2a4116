#include "platform/macos/AdministratorScript.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "platform/fakes/FakePlatform.h"
#include "tests/support/ProgramRun.h"

namespace platform {
namespace {

using ::testing::ElementsAre;

class AdministratorScriptTest : public ::testing::Test {
 protected:
  ::fakes::ToolRun& osascript() { return fake.subprocesses.runs["/usr/bin/osascript"]; }
  /// What the shell is given, the last of the arguments.
  [[nodiscard]] const std::string& shellText() const {
    return fake.subprocesses.created.back().arguments.back();
  }

  ::fakes::FakePlatform fake;
  AdministratorScript script;
  std::string output;
};

TEST_F(AdministratorScriptTest, AppleScriptStartsTheProgramInTheBackgroundWithNothingLeftOpen) {
  EXPECT_EQ(script.start("/bin/rm", {"-Rdf", "/a b"}), errAuthorizationSuccess);
  ASSERT_EQ(fake.subprocesses.created.size(), 1U);
  EXPECT_EQ(fake.subprocesses.created[0].launchPath, "/usr/bin/osascript");
  EXPECT_THAT(
      fake.subprocesses.created[0].arguments,
      ElementsAre("-e", "on run command", "-e",
                  "do shell script (item 1 of command) with administrator privileges without altering "
                  "line endings",
                  "-e", "end run", "'/bin/rm' '-Rdf' '/a b' </dev/null >/dev/null 2>&1 &"));
}

TEST_F(AdministratorScriptTest, AProgramsOutputIsHandedOverWithoutTheLineBreakThatTheScriptAdds) {
  osascript().output = "one\ntwo\n\n";
  EXPECT_EQ(script.run("/usr/bin/touch", {"-c", "x"}, &output), errAuthorizationSuccess);
  EXPECT_EQ(output, "one\ntwo\n");
  EXPECT_EQ(shellText(), "'/usr/bin/touch' '-c' 'x' </dev/null || true");
}

TEST_F(AdministratorScriptTest, AShellReadsTheArgumentsAsTheyAre) {
  EXPECT_EQ(
      script.run("/usr/bin/printf", {"<%s>", "", " b ", "$(id)", "'\"", "line\nbreak", "\xC3\xA4"}, &output),
      errAuthorizationSuccess);
  EXPECT_EQ(support::runProgram({"/bin/sh", "-c", shellText()}).output,
            "<>< b ><$(id)><'\"><line\nbreak><\xC3\xA4>");
}

TEST_F(AdministratorScriptTest, AProgramThatFailsHasBeenRunAllTheSame) {
  EXPECT_EQ(script.run("/bin/false", {}, &output), errAuthorizationSuccess);
  EXPECT_EQ(support::runProgram({"/bin/sh", "-c", shellText() + "; echo $?"}).output, "0\n");
}

TEST_F(AdministratorScriptTest, WhoDeclinesHasCancelled) {
  osascript() = {.status = 1, .error = "0:9: execution error: User canceled. (-128)\n"};
  EXPECT_EQ(script.start("/bin/rm", {}), errAuthorizationCanceled);
  EXPECT_EQ(script.run("/bin/rm", {}, &output), errAuthorizationCanceled);
}

TEST_F(AdministratorScriptTest, OtherFailuresAreTheTools) {
  osascript() = {
      .status = 1,
      .error = "execution error: The administrator user name or password was incorrect. (-60007)\n"};
  EXPECT_EQ(script.start("/bin/rm", {}), errAuthorizationToolExecuteFailure);
  osascript() = {.status = 1, .error = "execution error: no file \"a (-128)\" (-43)\n"};
  EXPECT_EQ(script.start("/bin/rm", {}), errAuthorizationToolExecuteFailure) << "declined says the end alone";
  osascript() = {.launchFailure =
                     foundation::Exception(foundation::kInvalidArgumentException, "no osascript")};
  EXPECT_EQ(script.start("/bin/rm", {}), errAuthorizationToolExecuteFailure);
}

TEST_F(AdministratorScriptTest, WhatIsNotUnicodeIsNotStarted) {
  EXPECT_EQ(script.start("/bin/rm", {"\xFF"}), errAuthorizationToolExecuteFailure);
  EXPECT_TRUE(fake.subprocesses.created.empty());
}

TEST_F(AdministratorScriptTest, ADialogThatStandsIsTakenDownAndNobodyIsAskedAfterwards) {
  osascript().runsUntilTerminated = true;
  std::promise<void> shown;
  osascript().whenLaunched = [&shown] { shown.set_value(); };
  std::thread stopping([&] {
    shown.get_future().wait();
    script.stopAsking();
  });
  EXPECT_EQ(script.start("/bin/rm", {}), errAuthorizationCanceled);
  stopping.join();
  EXPECT_EQ(script.start("/bin/rm", {}), errAuthorizationCanceled);
  EXPECT_THAT(fake.recorder.lines(), ::testing::Contains("terminate /usr/bin/osascript"));
  EXPECT_EQ(fake.subprocesses.created.size(), 2U);
}

}  // namespace
}  // namespace platform
