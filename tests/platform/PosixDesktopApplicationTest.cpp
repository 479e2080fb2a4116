#include "platform/posix/PosixDesktopApplication.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "tests/platform/DesktopApplicationRuns.h"

namespace platform {
namespace {

using support::EnvironmentVariable;
using ::testing::HasSubstr;
using ::testing::StartsWith;

/// On a system that the test describes.
class DescribedApplication : public PosixDesktopApplication {
 public:
  using PosixDesktopApplication::PosixDesktopApplication;

  std::optional<std::string> noDisplay;
  std::optional<std::string> notLoaded;  ///< put after the module's path

 protected:
  std::string moduleName() override { return "libWindow.so"; }
  std::optional<std::string> whyNoDisplay() override { return noDisplay; }
  std::optional<std::string> whyNotLoaded(const std::string& module) override {
    return notLoaded ? std::optional(module + *notLoaded) : std::nullopt;
  }
};

class PosixDesktopApplicationTest : public DesktopApplicationRuns {
 protected:
  PosixDesktopApplicationTest() : DesktopApplicationRuns("libWindow.so") {}
  DesktopApplication& tested() override { return application; }

  PosixAlerts alerts;
  DescribedApplication application{clock, mainThread, alerts, interruption};
};

TEST_F(PosixDesktopApplicationTest, RunsTheWindowModuleWithTheArguments) {
  putModule(WINDOW_MODULE);
  EXPECT_EQ(run({"/path/Quillmend", "-trash", "", "a b"}), 42);
  EXPECT_EQ(bundle.content("record"), "[/path/Quillmend][-trash][][a b][hears]");
}

TEST_F(PosixDesktopApplicationTest, WaitsAlertsAndTheEndAreTheWindowsWhileItRuns) {
  putModule(WINDOW_MODULE);
  const auto ask = [this] {
    EXPECT_TRUE(mainThread.serveUntilReadable(7, std::nullopt));
    alerts.runPanel("Title", "Message");
    application.terminate();
  };
  mainThread.perform(ask, Wait::no);
  EXPECT_EQ(run(), 42);
  EXPECT_EQ(bundle.content("record"), "[wait 7][panel Title: Message][terminate][hears]");
}

TEST_F(PosixDesktopApplicationTest, PausesOfTheMainThreadAreTheWindowsWhileItRunsAndLastAsLongAsEver) {
  putModule(WINDOW_MODULE);
  constexpr auto kPause = std::chrono::milliseconds(5);
  std::chrono::nanoseconds lasted{0};
  const auto pause = [&] {
    const auto start = clock.uptime();
    clock.sleep(kPause);
    lasted = clock.uptime() - start;
  };
  mainThread.perform([&] { std::thread(pause).join(); }, Wait::no);
  EXPECT_EQ(run(), 42);
  EXPECT_EQ(bundle.content("record"), "[hears]") << "another thread's are not";
  mainThread.perform(pause, Wait::no);
  EXPECT_EQ(run(), 42);
  EXPECT_EQ(bundle.content("record"), "[wait -1][hears]");
  EXPECT_GE(lasted, kPause) << "this window's waits are over at once";
}

TEST_F(PosixDesktopApplicationTest, WaitsAndAlertsAreThePlatformsAgainAfterwards) {
  putModule(WINDOW_MODULE);
  EXPECT_EQ(run(), 42);
  EXPECT_FALSE(mainThread.serveUntilReadable(-1, std::chrono::nanoseconds(0)));
  alerts.runPanel("Title", "");
  EXPECT_THAT(fake.systemConsole.messages(), ::testing::ElementsAre("Title"));
  application.terminate();  // nobody is there to hear it
  EXPECT_EQ(bundle.content("record"), "[hears]");
}

TEST_F(PosixDesktopApplicationTest, AToolkitThatEndsTheProcessIsADisplayThatWasLost) {
  putModule(WINDOW_MODULE);
  const EnvironmentVariable exits("WINDOW_MODULE_EXITS", "");
  displayWasLost = [this] {
    mainThread.perform([] { std::fputs("served, ", stderr); }, Wait::no);
    mainThread.serveUntilReadable(-1, std::chrono::milliseconds(1));  // by no window's loop
    application.terminate();                                          // nobody is there to hear it
    std::fputs("ended\n", stderr);
  };
  EXPECT_EXIT(static_cast<void>(run()), ::testing::ExitedWithCode(1), "served, ended");
}

TEST_F(PosixDesktopApplicationTest, ASignalNotedBeforeTheDisplayWasLostEndsTheProcess) {
  putModule(WINDOW_MODULE);
  const EnvironmentVariable exits("WINDOW_MODULE_EXITS", "");
  mainThread.perform([] { ::raise(SIGTERM); }, Wait::no);
  EXPECT_EXIT(static_cast<void>(run()), ::testing::KilledBySignal(SIGTERM), "");
}

TEST_F(PosixDesktopApplicationTest, AnExitAfterItsEndIsNobodysLoss) {
  putModule(WINDOW_MODULE);
  displayWasLost = [] { ::_exit(9); };
  const auto runAndExit = [this] { std::exit(run()); };
  EXPECT_EXIT(runAndExit(), ::testing::ExitedWithCode(42), "");
}

TEST_F(PosixDesktopApplicationTest, SaysSoInOneLineWithoutADisplay) {
  putModule(WINDOW_MODULE);
  application.noDisplay = "it is\ndark";
  EXPECT_EQ(complaint(), "Quillmend: no display: it is dark\n");
}

TEST_F(PosixDesktopApplicationTest, LoadsNoModuleThatTheSystemWarnsOf) {
  putModule(WINDOW_MODULE);
  application.notLoaded = " is spoilt";
  EXPECT_EQ(complaint(), "Quillmend: no window module: " + modulePath() + " is spoilt\n");
}

TEST_F(PosixDesktopApplicationTest, SaysSoInOneLineWithoutTheModule) {
  EXPECT_THAT(complaint(), HasSubstr(modulePath()));
}

TEST_F(PosixDesktopApplicationTest, SaysSoInOneLineWhenTheModuleIsAnotherFile) {
  bundle.file("Contents/Frameworks/libWindow.so", "text");
  EXPECT_THAT(complaint(), StartsWith("Quillmend: no window module: "));
}

TEST_F(PosixDesktopApplicationTest, SaysSoInOneLineWhenTheModuleHasNoEntry) {
  putModule(EMPTY_MODULE);
  EXPECT_THAT(complaint(), HasSubstr("QuillmendWindowMain"));
}

}  // namespace
}  // namespace platform
