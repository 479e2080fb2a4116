#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/ui/window/DesktopSession.h"
#include "tests/ui/window/WindowVisit.h"
#include "tests/workstation/RootTest.h"
#include "workstation/Components.h"
#include "workstation/Installer.h"
#include "workstation/Records.h"
#include "workstation/TemporaryVolume.h"

// The real program starts the updater of a sample workstation, whose stand-in writes down how.

namespace workstation {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const std::string program = "/Contents/MacOS/Vordenworks Software Update";
const std::string installed = std::string(softwareUpdate) + program;
const std::string name = "Vordenworks Software Update.app";
const std::string workingCopy = "/private/tmp/" + name;
const std::string carried = "/Applications/Quillmend.app/Contents/Resources/" + name;
const std::string checkArguments = " -checkpath /Applications/Quillmend.app";

/// What of applications was started so far, "501 /Applications/... -checkpath ...".
std::vector<std::string> starts(const Volume& volume) {
  std::vector<std::string> texts;
  for (const RecordLine& event : events(volume)) {
    if (event.kind != "start") continue;
    std::string text = std::to_string(event.user) + ' ' + event.path;
    for (const std::string& argument : event.arguments) text += ' ' + argument;
    texts.push_back(text);
  }
  return texts;
}

void waitForStarts(const Volume& volume, std::size_t count) {
  EXPECT_TRUE(window::waitUntil([&] { return starts(volume).size() >= count; })) << "it is not started";
}

void waitForLog(const Volume& volume, const std::string& path, const std::string& entry) {
  const auto isThere = [&] {
    const auto log = readLog(volume, path);
    return log && std::find(log->entries.begin(), log->entries.end(), entry) != log->entries.end();
  };
  EXPECT_TRUE(window::waitUntil(isThere)) << entry;
}

/// By the keys.
void chooseCheckForUpdates() {
  window::press("alt+h");
  std::this_thread::sleep_for(100ms);
  window::press("u");
}

constexpr const char* alicesLog = "/Users/alice/Library/Logs/Vordenworks/Quillmend.1.log";
constexpr const char* rootsLog = "/Library/Logs/Vordenworks/Quillmend.1.log";

/// The application is installed on the volume itself, and carries an updater.
void carryUpdater(const Volume& volume, const std::string& version) {
  fs::copy(QUILLMEND_BUNDLE, volume.host("/Applications/Quillmend.app"),
           fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  putSoftwareUpdate(volume, carried, version);
}

class SoftwareUpdateRunTest : public RootTest {};

TEST_F(SoftwareUpdateRunTest, TheInstalledUpdaterLooksForUpdatesAtStartUpAndOutlivesTheApplication) {
  const TemporaryVolume sample({.softwareUpdate = "5"});
  WindowSession session(sample);
  waitForStarts(sample, 1);
  EXPECT_EQ(session.quit().status, 0) << "quitting does not wait for it";
  EXPECT_THAT(starts(sample), ElementsAre("501 " + installed + checkArguments));
  EXPECT_THAT(remainingProcesses(sample), Contains(Field(&RemainingProcess::executable, installed)));
}

TEST_F(SoftwareUpdateRunTest, ACarriedUpdaterThatIsNewerIsRunFromTheUsersOwnCopyOfIt) {
  const TemporaryVolume sample({.softwareUpdate = "5"});
  carryUpdater(sample, "7");
  WindowSession session(sample);
  waitForStarts(sample, 1);
  EXPECT_EQ(session.quit().status, 0);
  EXPECT_THAT(starts(sample), ElementsAre("501 " + workingCopy + program + checkArguments));
  struct stat status {};
  ASSERT_EQ(::lstat(sample.volume().host(workingCopy).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, S_IFDIR | 0700U);
  EXPECT_EQ(status.st_uid, aliceID);
}

TEST_F(SoftwareUpdateRunTest, WhatSomebodyElsePutInTheCopysPlaceIsNotRun) {
  const TemporaryVolume sample(Plan{});
  carryUpdater(sample, "7");
  putSoftwareUpdate(sample, workingCopy, "99");
  for (const auto& entry : fs::recursive_directory_iterator(sample.volume().host(workingCopy))) {
    ASSERT_EQ(::lchown(entry.path().c_str(), bobID, staffID), 0);
  }
  ASSERT_EQ(::chown(sample.volume().host(workingCopy).c_str(), bobID, staffID), 0);
  WindowSession session(sample);
  waitForLog(sample, alicesLog, "Unable to launch Software Update - path doesn't exist");
  chooseCheckForUpdates();
  EXPECT_EQ(session.quit().status, 0);
  EXPECT_THAT(starts(sample), IsEmpty());
}

TEST_F(SoftwareUpdateRunTest, AskedForItIsStartedWithoutArguments) {
  const TemporaryVolume sample({.softwareUpdate = "5"});
  WindowSession session(sample);
  waitForStarts(sample, 1);
  chooseCheckForUpdates();
  waitForStarts(sample, 2);
  EXPECT_EQ(session.quit().status, 0);
  EXPECT_THAT(starts(sample), ElementsAre("501 " + installed + checkArguments, "501 " + installed));
}

TEST_F(SoftwareUpdateRunTest, SwitchedOffItIsStartedOnlyWhenAskedFor) {
  const TemporaryVolume sample({.softwareUpdate = "5"});
  const fs::path preferences =
      sample.volume().host("/Users/alice/Library/Preferences/com.vordenworks.global.plist");
  fs::create_directories(preferences.parent_path());
  std::ofstream(preferences)
      << "<plist version=\"1.0\"><dict><key>SUCheckAtStartup</key><integer>0</integer></dict></plist>";
  WindowSession session(sample);
  chooseCheckForUpdates();
  waitForStarts(sample, 1);
  EXPECT_EQ(session.quit().status, 0);
  EXPECT_THAT(starts(sample), ElementsAre("501 " + installed));
}

TEST_F(SoftwareUpdateRunTest, ForRootItIsStartedOnlyWhenAskedForAndAsTheUserAtTheConsole) {
  const TemporaryVolume sample({.logFolder = true, .softwareUpdate = "5"});
  carryUpdater(sample, "7");
  WindowSession session(sample, "root");
  waitForLog(sample, rootsLog,
             "Software Update is not run as root. Choose Check for Updates to run it as yourself");
  chooseCheckForUpdates();
  waitForStarts(sample, 1);
  EXPECT_EQ(session.quit().status, 0);
  EXPECT_THAT(starts(sample), ElementsAre("501 " + workingCopy + program));
}

}  // namespace
}  // namespace workstation
