#include "platform/macos/MacDesktopApplication.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <thread>

#include "platform/fakes/FakePlatform.h"
#include "tests/macsdk/fakes/FakeAppKit.h"
#include "tests/macsdk/fakes/FakeCoreFoundation.h"
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
class MacDesktopApplicationTest : public ::testing::Test {
 protected:
  MacDesktopApplicationTest() {
    ::fakes::resetCoreFoundation();
    ::fakes::resetAppKit();
    fake.mainBundle.bundlePath = bundle.path();
  }
  ~MacDesktopApplicationTest() override {
    EXPECT_EQ(::fakes::liveObjects(), 0) << "objects were not released";
  }

  void putModule(const std::string& from) const {
    std::filesystem::create_directories(bundle / "Contents/Frameworks");
    std::filesystem::copy_file(from, bundle / "Contents/Frameworks/libQuillmendWindow.dylib");
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
  MacAlerts alerts;
  PosixInterruption interruption;
  PosixClock clock{mainThread};
  MacDesktopApplication application{clock, mainThread, alerts, interruption};
  NoOwner owner;
  std::function<void()> displayWasLost = [] { FAIL() << "nothing is lost"; };
  const EnvironmentVariable record{"WINDOW_MODULE_RECORD", bundle / "record"};
};

TEST_F(MacDesktopApplicationTest, RunsTheWindowModuleWithTheArguments) {
  putModule(WINDOW_MODULE);
  EXPECT_EQ(run({"/path/Quillmend", "-trash", "", "a b"}), 42);
  EXPECT_EQ(bundle.content("record"), "[/path/Quillmend][-trash][][a b][hears]");
}

TEST_F(MacDesktopApplicationTest, WaitsPausesAlertsAndTheEndAreTheWindowsWhileItRuns) {
  putModule(WINDOW_MODULE);
  const auto ask = [this] {
    EXPECT_TRUE(mainThread.serveUntilReadable(7, std::nullopt));
    clock.sleep(std::chrono::milliseconds(1));
    alerts.runPanel("Title", "Message");
    application.terminate();
  };
  mainThread.perform(ask, Wait::no);
  EXPECT_EQ(run(), 42);
  EXPECT_EQ(bundle.content("record"), "[wait 7][wait -1][panel Title: Message][terminate][hears]");
}

TEST_F(MacDesktopApplicationTest, WaitsAndAlertsAreTheSystemsAgainAfterwards) {
  putModule(WINDOW_MODULE);
  EXPECT_EQ(run(), 42);
  EXPECT_FALSE(mainThread.serveUntilReadable(-1, std::chrono::nanoseconds(0)));
  alerts.runPanel("Title", "");
  EXPECT_EQ(::fakes::takeCoreFoundationCalls().size(), 1U);
  application.terminate();  // nobody is there to hear it
  EXPECT_EQ(bundle.content("record"), "[hears]");
}

TEST_F(MacDesktopApplicationTest, AToolkitThatEndsTheProcessIsADisplayThatWasLost) {
  putModule(WINDOW_MODULE);
  const EnvironmentVariable exits("WINDOW_MODULE_EXITS", "");
  displayWasLost = [this] {
    mainThread.perform([] { std::fputs("served, ", stderr); }, Wait::no);
    mainThread.serveUntilReadable(-1, std::chrono::milliseconds(1));  // by no window's loop
    std::fputs("ended\n", stderr);
  };
  EXPECT_EXIT(static_cast<void>(run()), ::testing::ExitedWithCode(1), "served, ended");
}

TEST_F(MacDesktopApplicationTest, SaysSoInOneLineWithoutASessionOfTheWindowServer) {
  putModule(WINDOW_MODULE);
  ::fakes::setHasSession(false);
  EXPECT_EQ(complaint(), "Quillmend: no display: this process is in no session of the window server\n");
}

TEST_F(MacDesktopApplicationTest, SaysSoInOneLineWithoutTheModuleOrItsEntry) {
  EXPECT_THAT(complaint(), HasSubstr(bundle / "Contents/Frameworks/libQuillmendWindow.dylib"));
  putModule(EMPTY_MODULE);
  EXPECT_THAT(complaint(), HasSubstr("QuillmendWindowMain"));
}

TEST_F(MacDesktopApplicationTest, SaysSoInOneLineWhenTheModuleIsAnotherFile) {
  bundle.file("Contents/Frameworks/libQuillmendWindow.dylib", "text");
  EXPECT_THAT(complaint(), StartsWith("Quillmend: no window module: "));
}

}  // namespace
}  // namespace platform
