#include <gmock/gmock.h>

#include <csignal>

#include "platform/Platform.h"
#include "platform/linux/LinuxSubprocesses.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;

const char* const kProbe = SUBPROCESS_PROBE;

/// Runs the probe through the real platform.
std::shared_ptr<Subprocess> startProbe(const std::string& program, std::vector<std::string> arguments) {
  SubprocessOptions options;
  options.launchPath = program;
  options.arguments = std::move(arguments);
  options.standardOutput = Stream::pipe;
  options.standardError = Stream::pipe;
  auto child = native().subprocesses.create(std::move(options));
  child->launch();
  return child;
}

/// Waits until the probe has deferred interruption; answers its process. Not the one child of this process:
/// an earlier test's may be there still.
pid_t processThatDefers(Subprocess& child) {
  const std::string text = child.availableOutput();
  const std::string_view word = "deferred ";
  EXPECT_TRUE(text.starts_with(word)) << text;
  return text.starts_with(word) ? std::stoi(text.substr(word.size())) : -1;
}

TEST(LinuxPlatform, ThereIsOneForTheProcess) {
  EXPECT_EQ(&native(), &native());
  EXPECT_EQ(&current(), &native());
}

TEST(LinuxPlatform, ABrokenPipeDoesNotEndTheProgram) {
  static_cast<void>(native());
  struct sigaction action {};
  ::sigaction(SIGPIPE, nullptr, &action);
  EXPECT_EQ(action.sa_handler, SIG_IGN);
}

TEST(LinuxPlatform, AProgramStartedThroughALinkFindsItsBundle) {
  const support::TemporaryFolder folder;
  std::filesystem::create_directories(folder / "Probe.app/Contents/MacOS");
  std::filesystem::copy_file(kProbe, folder / "Probe.app/Contents/MacOS/Probe");
  std::filesystem::create_symlink("Probe.app/Contents/MacOS/Probe", folder / "link");
  const auto child = startProbe(folder / "link", {"information"});
  EXPECT_EQ(child->availableOutput(), std::to_string((folder / "link").size()) + ":" + folder / "link" +
                                          "\n11:information\nlink\n" + folder / "Probe.app" + "\n");
}

TEST(LinuxPlatform, MessagesOfTheConsoleComeFromTheProgram) {
  const auto child = startProbe(kProbe, {"console", "1", "3"});
  const std::string text = child->availableError();
  EXPECT_THAT(text, HasSubstr(" subprocess_probe["));
  EXPECT_THAT(text, HasSubstr("] xxx\n"));
}

TEST(LinuxPlatform, AParentThatHadExitStatusesThrownAwayIsNotFollowed) {
  const auto child = startProbe("/usr/bin/env", {"--ignore-signal=CHLD", kProbe, "dispositions"});
  EXPECT_EQ(child->availableOutput(), "SIGCHLD ignored\nSIGCHLD default\n");
}

/// A whole program with what it has from whoever starts it.
class InterruptedProgramTest : public ::testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(Signals, InterruptedProgramTest, ::testing::Values(SIGTERM, SIGINT, SIGHUP));

TEST_P(InterruptedProgramTest, ASignalIsNotedAndEndsTheProcessWhenDelivered) {
  const auto child = startProbe(kProbe, {"interruption"});
  const pid_t process = processThatDefers(*child);
  ASSERT_GT(process, 0);
  ASSERT_EQ(::kill(process, GetParam()), 0);
  EXPECT_EQ(child->availableOutput(), std::to_string(GetParam()) + "\n");
  child->waitUntilExit();
  EXPECT_EQ(child->terminationStatus(), GetParam());
}

TEST(InterruptedProgram, ASignalThatWasIgnoredStaysIgnored) {
  const auto child = startProbe("/bin/sh", {"-c", "trap '' TERM; exec \"$0\" interruption", kProbe});
  const pid_t process = processThatDefers(*child);
  ASSERT_GT(process, 0);
  ASSERT_EQ(::kill(process, SIGTERM), 0);
  ASSERT_EQ(::kill(process, SIGHUP), 0);
  EXPECT_EQ(child->availableOutput(), std::to_string(SIGHUP) + "\n");
}

TEST(InterruptedProgram, ASignalThatWasBlockedIsHeard) {
  const auto child = startProbe("/usr/bin/env", {"--block-signal=HUP", "/bin/sh", "-c",
                                                 "kill -HUP $$; exec \"$0\" interruption", kProbe});
  child->waitUntilExit();
  // It was pending since before the program began; no other is needed.
  EXPECT_THAT(child->availableOutput(), MatchesRegex("deferred [0-9]+\n" + std::to_string(SIGHUP) + "\n"));
  EXPECT_EQ(child->terminationStatus(), SIGHUP);
}

}  // namespace
}  // namespace platform
