#include "platform/macos/MacDesktopApplication.h"

#include "platform/macos/MacAlerts.h"
#include "tests/macsdk/fakes/FakeAppKit.h"
#include "tests/macsdk/fakes/FakeCoreFoundation.h"
#include "tests/platform/DesktopApplicationRuns.h"

namespace platform {
namespace {

/// In a session of the window server.
class MacDesktopApplicationTest : public DesktopApplicationRuns {
 protected:
  MacDesktopApplicationTest() : DesktopApplicationRuns("libQuillmendWindow.dylib") {
    ::fakes::resetCoreFoundation();
    ::fakes::resetAppKit();
  }
  ~MacDesktopApplicationTest() override {
    EXPECT_EQ(::fakes::liveObjects(), 0) << "objects were not released";
  }
  DesktopApplication& tested() override { return application; }

  MacAlerts alerts;
  MacDesktopApplication application{clock, mainThread, alerts, interruption};
};

TEST_F(MacDesktopApplicationTest, RunsTheBundlesWindowModule) {
  putModule(WINDOW_MODULE);
  EXPECT_EQ(run({"Quillmend"}), 42);
  EXPECT_EQ(bundle.content("record"), "[Quillmend][hears]");
}

TEST_F(MacDesktopApplicationTest, AlertsAreTheWindowsWhileItRunsAndTheSystemsAfterwards) {
  putModule(WINDOW_MODULE);
  mainThread.perform([this] { alerts.runPanel("Title", "Message"); }, Wait::no);
  EXPECT_EQ(run(), 42);
  EXPECT_EQ(bundle.content("record"), "[panel Title: Message][hears]");
  alerts.runPanel("Title", "");
  EXPECT_EQ(::fakes::takeCoreFoundationCalls().size(), 1U);
}

TEST_F(MacDesktopApplicationTest, SaysSoInOneLineWithoutASessionOfTheWindowServer) {
  putModule(WINDOW_MODULE);
  ::fakes::setHasSession(false);
  EXPECT_EQ(complaint(), "Quillmend: no display: this process is in no session of the window server\n");
}

}  // namespace
}  // namespace platform
