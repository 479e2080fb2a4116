#include "platform/linux/LinuxDesktopApplication.h"

#include "tests/platform/DesktopApplicationRuns.h"

namespace platform {
namespace {

using support::EnvironmentVariable;
using ::testing::StartsWith;

/// With a display.
class LinuxDesktopApplicationTest : public DesktopApplicationRuns {
 protected:
  LinuxDesktopApplicationTest() : DesktopApplicationRuns("libQuillmendWindow.so") {}
  DesktopApplication& tested() override { return application; }

  PosixAlerts alerts;
  LinuxDesktopApplication application{clock, mainThread, alerts, interruption};
  EnvironmentVariable wayland{"WAYLAND_DISPLAY", std::nullopt};
  EnvironmentVariable display{"DISPLAY", ":99"};
};

TEST_F(LinuxDesktopApplicationTest, RunsTheBundlesWindowModule) {
  putModule(WINDOW_MODULE);
  EXPECT_EQ(run({"Quillmend"}), 42);
  EXPECT_EQ(bundle.content("record"), "[Quillmend][hears]");
}

TEST_F(LinuxDesktopApplicationTest, SaysSoInOneLineWithoutADisplay) {
  putModule(WINDOW_MODULE);
  const EnvironmentVariable none("DISPLAY", std::nullopt);
  EXPECT_EQ(complaint(), "Quillmend: no display: neither WAYLAND_DISPLAY nor DISPLAY is set\n");
  const EnvironmentVariable empty("DISPLAY", "");
  EXPECT_THAT(complaint(), StartsWith("Quillmend: no display: "));
}

TEST_F(LinuxDesktopApplicationTest, WaylandDisplayIsADisplay) {
  putModule(WINDOW_MODULE);
  const EnvironmentVariable none("DISPLAY", std::nullopt);
  const EnvironmentVariable other("WAYLAND_DISPLAY", "wayland-0");
  EXPECT_EQ(run({"Quillmend"}), 42);
}

TEST_F(LinuxDesktopApplicationTest, DoesNotLoadAModuleThatWasCutShort) {
  putModule(WINDOW_MODULE);
  std::filesystem::resize_file(modulePath(), 4096);
  EXPECT_EQ(complaint(), "Quillmend: no window module: " + modulePath() + ": its end is missing\n");
}

}  // namespace
}  // namespace platform
