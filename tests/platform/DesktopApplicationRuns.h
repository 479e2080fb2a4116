#pragma once

#include <gmock/gmock.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/fakes/FakePlatform.h"
#include "platform/posix/PosixDesktopApplication.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"
#include "ui/InterfaceOwner.h"

namespace platform {

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

/// Runs an application from a bundle of the test's own, with the test's window module where a test puts it.
class DesktopApplicationRuns : public ::testing::Test {
 protected:
  explicit DesktopApplicationRuns(std::string moduleName) : moduleName_(std::move(moduleName)) {
    fake.mainBundle.bundlePath = bundle.path();
  }
  virtual DesktopApplication& tested() = 0;

  [[nodiscard]] std::string modulePath() const { return bundle / "Contents/Frameworks/" + moduleName_; }
  void putModule(const std::string& from) const {
    std::filesystem::create_directories(bundle / "Contents/Frameworks");
    std::filesystem::copy_file(from, modulePath());
  }
  int run(const std::vector<std::string>& arguments = {}) {
    return tested().run(arguments, owner, displayWasLost);
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
  support::TemporaryFolder bundle;
  PosixMainThread mainThread;
  PosixInterruption interruption;
  PosixClock clock{mainThread};
  NoOwner owner;
  std::function<void()> displayWasLost = [] { FAIL() << "nothing is lost"; };
  const support::EnvironmentVariable record{"WINDOW_MODULE_RECORD", bundle / "record"};

 private:
  const std::string moduleName_;
};

}  // namespace platform
