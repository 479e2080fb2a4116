#include "platform/linux/LinuxDesktopApplication.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <optional>

#include "platform/fakes/FakePlatform.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

using support::EnvironmentVariable;
using support::TemporaryFolder;
using ::testing::HasSubstr;
using ::testing::StartsWith;

/// A bundle of the test's own, with a display and with the test's window module where a test puts it.
class LinuxDesktopApplicationTest : public ::testing::Test {
 protected:
  LinuxDesktopApplicationTest() { fake.mainBundle.bundlePath = bundle.path(); }

  void putModule(const std::string& from) const {
    std::filesystem::create_directories(bundle / "Contents/Frameworks");
    std::filesystem::copy_file(from, bundle / "Contents/Frameworks/libQuillmendWindow.so");
  }
  /// The line on standard error; expects the status 1.
  static std::string complaint() {
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(LinuxDesktopApplication().run({"Quillmend"}), 1);
    std::string text = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(text.find('\n') + 1, text.size()) << "one line";
    return text;
  }

  fakes::FakePlatform fake;
  TemporaryFolder bundle;
  EnvironmentVariable wayland{"WAYLAND_DISPLAY", std::nullopt};
  EnvironmentVariable display{"DISPLAY", ":99"};
};

TEST_F(LinuxDesktopApplicationTest, RunsTheWindowModuleWithTheArguments) {
  putModule(WINDOW_MODULE);
  const EnvironmentVariable record("WINDOW_MODULE_RECORD", bundle / "record");
  EXPECT_EQ(LinuxDesktopApplication().run({"/path/Quillmend", "-trash", "", "a b"}), 42);
  EXPECT_EQ(bundle.content("record"), "[/path/Quillmend][-trash][][a b]");
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
