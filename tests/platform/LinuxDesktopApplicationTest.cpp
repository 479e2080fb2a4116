#include "platform/linux/LinuxDesktopApplication.h"

#include <gmock/gmock.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <thread>

#include "platform/fakes/FakePlatform.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"
#include "ui/InterfaceOwner.h"

namespace platform {
namespace {

using support::EnvironmentVariable;
using support::TemporaryFolder;
using ::testing::HasSubstr;
using ::testing::StartsWith;

/// An owner that nothing is asked of.
class NoOwner : public outlets::InterfaceOwner {
 public:
  bool interfaceDidLoad(const outlets::Connections&) override { return true; }
  bool respondsToAction(const std::string&) override { return false; }
  void performAction(const std::string&, outlets::Sender*) override {}
  void openAddress(const std::string&) override {}
  bool isRepairing() override { return false; }
  void endRepairAndTerminate() override {}

  bool shouldTerminateAfterLastWindowClosed() override { return true; }
  void applicationWillTerminate() override {}
  std::string windowFrame() override { return ""; }
  void setWindowFrame(const std::string&) override {}
  outlets::ShortcutKeyOwner* shortcutKeys() override { return nullptr; }
  std::optional<std::uint16_t> virtualKeyCode(std::uint32_t) override { return std::nullopt; }
  std::string version() override { return ""; }
};

/// A bundle of the test's own, with a display and with the test's window module where a test puts it.
class LinuxDesktopApplicationTest : public ::testing::Test {
 protected:
  LinuxDesktopApplicationTest() { fake.mainBundle.bundlePath = bundle.path(); }

  void putModule(const std::string& from) const {
    std::filesystem::create_directories(bundle / "Contents/Frameworks");
    std::filesystem::copy_file(from, bundle / "Contents/Frameworks/libQuillmendWindow.so");
  }
  int run(const std::vector<std::string>& arguments = {}) {
    return application.run(arguments, owner, displayWasLost);
  }
  /// The line on standard error; expects the status 1.
  std::string complaint() {
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(run({"Quillmend"}), 1);
    std::string text = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(text.find('\n') + 1, text.size()) << "one line";
    return text;
  }

  fakes::FakePlatform fake;
  TemporaryFolder bundle;
  PosixMainThread mainThread;
  LinuxAlerts alerts;
  PosixInterruption interruption;
  PosixClock clock{mainThread};
  LinuxDesktopApplication application{clock, mainThread, alerts, interruption};
  NoOwner owner;
  std::function<void()> displayWasLost = [] { FAIL() << "nothing is lost"; };
  EnvironmentVariable wayland{"WAYLAND_DISPLAY", std::nullopt};
  EnvironmentVariable display{"DISPLAY", ":99"};
};

TEST_F(LinuxDesktopApplicationTest, RunsTheWindowModuleWithTheArguments) {
  putModule(WINDOW_MODULE);
  const EnvironmentVariable record("WINDOW_MODULE_RECORD", bundle / "record");
  EXPECT_EQ(run({"/path/Quillmend", "-trash", "", "a b"}), 42);
  EXPECT_EQ(bundle.content("record"), "[/path/Quillmend][-trash][][a b][hears]");
}

TEST_F(LinuxDesktopApplicationTest, WaitsAlertsAndTheEndAreTheWindowsWhileItRuns) {
  putModule(WINDOW_MODULE);
  const EnvironmentVariable record("WINDOW_MODULE_RECORD", bundle / "record");
  const auto ask = [this] {
    EXPECT_TRUE(mainThread.serveUntilReadable(7, std::nullopt));
    alerts.runPanel("Title", "Message");
    application.terminate();
  };
  mainThread.perform(ask, Wait::no);
  EXPECT_EQ(run(), 42);
  EXPECT_EQ(bundle.content("record"), "[wait 7][panel Title: Message][terminate][hears]");
}

TEST_F(LinuxDesktopApplicationTest, PausesOfTheMainThreadAreTheWindowsWhileItRunsAndLastAsLongAsEver) {
  putModule(WINDOW_MODULE);
  const EnvironmentVariable record("WINDOW_MODULE_RECORD", bundle / "record");
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

TEST_F(LinuxDesktopApplicationTest, WaitsAndAlertsAreThePlatformsAgainAfterwards) {
  putModule(WINDOW_MODULE);
  const EnvironmentVariable record("WINDOW_MODULE_RECORD", bundle / "record");
  EXPECT_EQ(run(), 42);
  EXPECT_FALSE(mainThread.serveUntilReadable(-1, std::chrono::nanoseconds(0)));
  alerts.runPanel("Title", "");
  EXPECT_THAT(fake.systemConsole.messages(), ::testing::ElementsAre("Title"));
  application.terminate();  // nobody is there to hear it
  EXPECT_EQ(bundle.content("record"), "[hears]");
}

TEST_F(LinuxDesktopApplicationTest, AToolkitThatEndsTheProcessIsADisplayThatWasLost) {
  putModule(WINDOW_MODULE);
  const EnvironmentVariable record("WINDOW_MODULE_RECORD", bundle / "record");
  const EnvironmentVariable exits("WINDOW_MODULE_EXITS", "");
  displayWasLost = [this] {
    mainThread.perform([] { std::fputs("served, ", stderr); }, Wait::no);
    mainThread.serveUntilReadable(-1, std::chrono::milliseconds(1));  // by no window's loop
    application.terminate();                                          // nobody is there to hear it
    std::fputs("ended\n", stderr);
  };
  EXPECT_EXIT(static_cast<void>(run()), ::testing::ExitedWithCode(1), "served, ended");
}

TEST_F(LinuxDesktopApplicationTest, ASignalNotedBeforeTheDisplayWasLostEndsTheProcess) {
  putModule(WINDOW_MODULE);
  const EnvironmentVariable record("WINDOW_MODULE_RECORD", bundle / "record");
  const EnvironmentVariable exits("WINDOW_MODULE_EXITS", "");
  mainThread.perform([] { ::raise(SIGTERM); }, Wait::no);
  EXPECT_EXIT(static_cast<void>(run()), ::testing::KilledBySignal(SIGTERM), "");
}

TEST_F(LinuxDesktopApplicationTest, AnExitAfterItsEndIsNobodysLoss) {
  putModule(WINDOW_MODULE);
  const EnvironmentVariable record("WINDOW_MODULE_RECORD", bundle / "record");
  displayWasLost = [] { ::_exit(9); };
  const auto runAndExit = [this] { std::exit(run()); };
  EXPECT_EXIT(runAndExit(), ::testing::ExitedWithCode(42), "");
}

TEST_F(LinuxDesktopApplicationTest, SaysSoInOneLineWithoutADisplay) {
  putModule(WINDOW_MODULE);
  const EnvironmentVariable none("DISPLAY", std::nullopt);
  EXPECT_EQ(complaint(), "Quillmend: no display: neither WAYLAND_DISPLAY nor DISPLAY is set\n");
  const EnvironmentVariable empty("DISPLAY", "");
  EXPECT_THAT(complaint(), StartsWith("Quillmend: no display: "));
}

TEST_F(LinuxDesktopApplicationTest, WaylandDisplayIsADisplay) {
  const EnvironmentVariable none("DISPLAY", std::nullopt);
  const EnvironmentVariable other("WAYLAND_DISPLAY", "wayland-0");
  EXPECT_THAT(complaint(), StartsWith("Quillmend: no window module: "));
}

TEST_F(LinuxDesktopApplicationTest, SaysSoInOneLineWithoutTheModule) {
  EXPECT_THAT(complaint(), HasSubstr(bundle / "Contents/Frameworks/libQuillmendWindow.so"));
}

TEST_F(LinuxDesktopApplicationTest, SaysSoInOneLineWhenTheModuleIsAnotherFile) {
  bundle.file("Contents/Frameworks/libQuillmendWindow.so", "text");
  EXPECT_THAT(complaint(), StartsWith("Quillmend: no window module: "));
}

TEST_F(LinuxDesktopApplicationTest, SaysSoInOneLineWhenTheModuleHasNoEntry) {
  putModule(EMPTY_MODULE);
  EXPECT_THAT(complaint(), HasSubstr("QuillmendWindowMain"));
}

}  // namespace
}  // namespace platform
