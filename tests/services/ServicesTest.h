#pragma once

#include <gmock/gmock.h>

#include <sstream>
#include <string>
#include <vector>

#include "diagnostics/TGLog.h"
#include "platform/fakes/FakePlatform.h"
#include "tests/support/SingletonScope.h"

/// A test on the fakes, run by alice, with a log of its own.
class ServicesTest : public ::testing::Test {
 protected:
  ServicesTest() { TGLog::createNewLog("Quillmend"); }
  ~ServicesTest() override { TGLog::finishWriting(); }

  /// The calls made so far.
  [[nodiscard]] std::vector<std::string> calls() const { return fakes_.recorder.lines(); }

  /// The messages on the system console.
  [[nodiscard]] std::vector<std::string> messages() const { return fakes_.systemConsole.messages(); }

  /// The messages in the log, without its header and their dates.
  [[nodiscard]] std::vector<std::string> logEntries() {
    TGLog::finishWriting();
    const auto text = fakes_.files.readFile("/Users/alice/Library/Logs/Vordenworks/Quillmend.1.log", 1 << 20);
    std::istringstream lines(text ? text.value() : "no log\n");
    std::vector<std::string> entries;
    constexpr std::size_t dateLength = 25;
    for (std::string line; std::getline(lines, line);) {
      if (line.size() > dateLength && line.substr(dateLength, 3) == " - ") entries.push_back(line.substr(28));
    }
    return entries;
  }

  fakes::FakePlatform fakes_;

 private:
  foundation::SingletonScope<TGLog> log_;
};
