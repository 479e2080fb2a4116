#pragma once

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "diagnostics/TGLog.h"
#include "platform/fakes/FakePlatform.h"
#include "platform/foundation/Identifiers.h"
#include "tests/support/SingletonScope.h"

/// A process with a log of its own, on the fakes: alice sits at the computer, it is 2011-01-01 10:00:00 UTC.
class LogFixture : public testing::Test {
 protected:
  static constexpr const char* kFolder = "/Users/alice/Library/Logs/Vordenworks";
  static constexpr const char* kHeader =
      "Log started: 2011-01-01 10:00:00 +0000\n"
      "Version: 2.1\n"
      "Path: /Applications/Quillmend.app/Contents/MacOS/Quillmend\n"
      "System: OS X Version 10.6.8 (Build 10K549), 8 CPU(s), 6.00 GB RAM\n"
      "Running in 64-bit mode\n";

  /// No queued write may outlive the fakes.
  void TearDown() override { TGLog::finishWriting(); }

  [[nodiscard]] static std::string generation(int number, const std::string& name = "Quillmend") {
    return std::string(kFolder) + "/" + name + "." + std::to_string(number) + ".log";
  }

  [[nodiscard]] static std::string entry(const std::string& message) {
    return "2011-01-01 10:00:00 +0000 - " + message + "\n";
  }

  [[nodiscard]] std::string content(const std::string& path) {
    return fake.files.readFile(path, 64U << 20).value();
  }

  /// What follows the header of a log file.
  [[nodiscard]] std::string entries(const std::string& path) {
    const std::string text = content(path);
    EXPECT_THAT(text, testing::StartsWith(kHeader));
    return text.substr(std::string(kHeader).size());
  }

  void setGlobalPreference(const std::string& key, const foundation::PropertyList& value) {
    fake.files.makeFolder("/Users/alice/Library/Preferences");
    const foundation::PropertyList::Dictionary preferences = {{key, value}};
    ASSERT_TRUE(
        platform::writePropertyList(globalPreferences(), preferences, platform::PropertyListFormat::xml));
  }

  [[nodiscard]] static std::string globalPreferences() {
    return std::string("/Users/alice/Library/Preferences/") + identifiers::kGlobalPreferencesFile;
  }

  [[nodiscard]] std::vector<std::string> messages() const { return fake.systemConsole.messages(); }

  /// Makes every change of that name fail, for that path if one is given.
  void failChange(const std::string& name, const std::string& path = "") {
    fake.files.beforeChange = [name, path](const std::string& change,
                                           const std::string& at) -> std::optional<foundation::Error> {
      if (change != name || (!path.empty() && path != at)) return std::nullopt;
      return foundation::systemError(EACCES, at);
    };
  }

  fakes::FakePlatform fake;
  foundation::SingletonScope<TGLog> log;
};
