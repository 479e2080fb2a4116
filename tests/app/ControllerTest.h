#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "app/TGAppController.h"
#include "diagnostics/TGLog.h"
#include "services/TGAuthorization.h"
#include "tests/app/FakeOutlets.h"
#include "tests/support/SingletonScope.h"

using Lines = std::vector<std::string>;

/// Lists of lines, one behind the other.
inline Lines all(const std::vector<Lines>& blocks) {
  Lines lines;
  for (const Lines& block : blocks) lines.insert(lines.end(), block.begin(), block.end());
  return lines;
}

/// For comparisons that show the lines which differ.
inline std::string text(const Lines& lines) {
  std::string joined;
  for (const std::string& line : lines) joined += line + "\n";
  return joined;
}

inline constexpr const char* kHelpers = "/Applications/Quillmend.app/Contents/Helpers/";

/// A test of the controller on a fake Mac: the helpers are in the bundle, alice sits at the console and runs
/// the program, nothing of Compressor is installed.
class ControllerTest : public testing::Test {
 protected:
  ControllerTest() {
    mac.files.makeFolder("/Users/alice/Library/Preferences");
    mac.files.makeFile("/usr/sbin/chown");
    for (const char* helper : {"killtool", "trashtool", "chowntool", "chmodtool"}) {
      mac.files.makeFile(std::string(kHelpers) + helper);
    }
  }
  ~ControllerTest() override {
    controller.reset();
    TGLog::finishWriting();
  }

  /// The process runs as root, as a scheduler starts it. Root's log lies in the machine's Library, in a
  /// folder that the program does not make.
  void becomeRoot() {
    mac.files.makeFolder("/Library/Logs/Vordenworks");
    mac.users.user = 0;
    mac.users.name = "root";
    mac.users.home = "/var/root";
    mac.users.homes["root"] = "/var/root";
  }

  /// A controller of each form; what its making recorded is dropped.
  void startWithoutGUI() {
    controller = TGAppController::initWithoutGUI();
    mac.systemConsole.recordsMessages = true;
    mac.recorder.clear();
    mac.subprocesses.created.clear();
  }
  void startWithGUI() {
    controller = TGAppController::init();
    connectOutlets();
    mac.recorder.clear();
  }
  void connectOutlets() {
    controller->windowMain = &window;
    controller->errorText = &console;
    controller->repairButton = &button;
    controller->trashPrefs = &trashBox;
    controller->resetQmasterCheck = &qmasterBox;
    controller->resetLayoutCheck = &layoutBox;
    controller->prefsAdminPass = &passwordItem;
  }

  [[nodiscard]] std::string recorded() const { return text(mac.recorder.lines()); }

  /// The messages of a log, without their dates.
  [[nodiscard]] Lines logLines(const std::string& path) {
    TGLog::finishWriting();
    const auto content = mac.files.readFile(path, 1 << 20);
    Lines lines;
    std::string rest = content ? content.value() : "";
    for (std::size_t end = rest.find('\n'); end != std::string::npos; end = rest.find('\n')) {
      const std::size_t dash = rest.find(" - ");
      if (rest.starts_with("20") && dash < end) lines.push_back(rest.substr(dash + 3, end - dash - 3));
      rest.erase(0, end + 1);
    }
    return lines;
  }
  [[nodiscard]] Lines taskLog() {
    return logLines(mac.users.user == 0 ? "/Library/Logs/Vordenworks/Quillmend.task.1.log"
                                        : "/Users/alice/Library/Logs/Vordenworks/Quillmend.task.1.log");
  }
  [[nodiscard]] Lines windowLog() {
    return logLines("/Users/alice/Library/Logs/Vordenworks/Quillmend.1.log");
  }

  /// Writes an application's version file.
  void makeVersionFileWith(const std::string& application, const foundation::PropertyList& content) {
    mac.files.makeFolder(application + "/Contents");
    ASSERT_TRUE(platform::writePropertyList(application + "/Contents/version.plist", content,
                                            platform::PropertyListFormat::xml)
                    .ok());
  }
  void makeVersionFile(const std::string& application, const std::string& version) {
    makeVersionFileWith(application,
                        foundation::PropertyList::Dictionary{{"CFBundleShortVersionString", version}});
  }

  /// Writes a Qmaster services file that configures a spool folder.
  void makeServicesFile(const std::string& appSupport, const foundation::PropertyList& storage) {
    using Dictionary = foundation::PropertyList::Dictionary;
    const foundation::PropertyList content =
        Dictionary{{"jobcontroller:com.apple.qmaster.cluster.admin",
                    Dictionary{{"UserPrefs", Dictionary{{"Storage", storage}}}}}};
    mac.files.makeFolder(appSupport + "/Apple Qmaster");
    ASSERT_TRUE(platform::writePropertyList(appSupport + "/Apple Qmaster/qmasterservices.plist", content,
                                            platform::PropertyListFormat::xml)
                    .ok());
  }

  fakes::FakePlatform mac;
  foundation::SingletonScope<TGLog> log;
  foundation::SingletonScope<TGAuthorization> authorization;
  fakes::FakeWindow window{mac.recorder};
  fakes::FakeTextView console{mac.recorder};
  fakes::FakeButton button{mac.recorder};
  fakes::FakeSwitch<outlets::CheckBox> trashBox{mac.recorder};
  fakes::FakeSwitch<outlets::CheckBox> qmasterBox{mac.recorder};
  fakes::FakeSwitch<outlets::CheckBox> layoutBox{mac.recorder};
  fakes::FakeSwitch<outlets::MenuItem> passwordItem{mac.recorder};
  std::unique_ptr<TGAppController> controller;
};
