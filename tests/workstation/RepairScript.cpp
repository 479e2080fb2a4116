#include "tests/workstation/RepairScript.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace workstation {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

namespace {

/// A line each, so that a failure shows the lines that differ.
std::string asText(const std::vector<std::string>& lines) {
  std::string text;
  for (const auto& line : lines) text += line + '\n';
  return text;
}

}  // namespace

RepairScript& RepairScript::say(const std::string& line) {
  if (flags_.silent) return *this;
  console_.push_back(line);
  said_.push_back(line);
  return note(line);
}

RepairScript& RepairScript::note(const std::string& line) {
  log_.push_back(line);
  return *this;
}

RepairScript& RepairScript::print(const std::string& line) {
  console_.push_back(line);
  return *this;
}

RepairScript& RepairScript::call(const std::string& commandLine) {
  calls_.push_back("0 " + commandLine);
  return *this;
}

RepairScript& RepairScript::begun() {
  return note("Starting repair...").say("Starting repair...");
}

RepairScript& RepairScript::detected(const std::string& version, const std::string& line) {
  return note("Detected Compressor version " + version + "...").say(line).say("Stopping Qmaster...");
}

RepairScript& RepairScript::stopped3() {
  return call(std::string(tool) + " -resetCluster cancelJobs")
      .call(std::string(tool) + " -stopSharing")
      .note("Stopping apps...");
}

RepairScript& RepairScript::stopped4(const std::string& preferencesTool) {
  return call(preferencesTool + " -resetCluster cancelJobs")
      .call(preferencesTool + " -stopSharing")
      .note("Stopping apps...");
}

RepairScript& RepairScript::trashed() {
  if (flags_.trash) say("Trashing preferences...");
  if (flags_.layout) say("Resetting window layout...");
  return *this;
}

RepairScript& RepairScript::checked(const std::vector<std::string>& problems) {
  say("Checking file permissions...");
  for (const auto& problem : problems) say(problem);
  return *this;
}

RepairScript& RepairScript::cachesRemoved(const std::string& support) {
  say("Removing caches...");
  for (const auto& path : cachesIn(support)) note("Trashing file " + path + "...");
  return *this;
}

RepairScript& RepairScript::spoolRemoved(const std::vector<std::string>& folders) {
  say("Removing temporary spool data...");
  for (const auto& folder : folders) note("Trashing contents of spool folder " + folder + "...");
  return *this;
}

RepairScript& RepairScript::historyCleared(const std::vector<std::string>& folders) {
  say("Clearing history...");
  for (const auto& folder : folders) note("Trashing contents of folder " + inUserSupport(folder) + "...");
  return *this;
}

std::string RepairScript::inUserSupport(const std::string& name) const {
  return flags_.user + "/Library/Application Support/" + name;
}

RepairScript& RepairScript::cleaned3(const std::vector<std::string>& spool) {
  return cachesRemoved(std::string(localSupport)).spoolRemoved(spool).historyCleared({"Compressor/History"});
}

RepairScript& RepairScript::cleaned4(const std::vector<std::string>& furtherSpool) {
  std::vector<std::string> spool{"/Users/Shared/Library/Application Support/Apple Qmaster/Storage",
                                 inUserSupport("Apple Qmaster/Storage"),
                                 std::string(localSupport) + "/Apple Qmaster/Storage"};
  spool.insert(spool.end(), furtherSpool.begin(), furtherSpool.end());
  return cachesRemoved(inUserSupport("").substr(0, inUserSupport("").size() - 1))
      .spoolRemoved(spool)
      .historyCleared({"Apple Qmaster/History", "Compressor/History/V4"});
}

RepairScript& RepairScript::nameChecked(bool hasName) {
  say("Checking computer name...");
  call("/usr/sbin/scutil --get ComputerName").call("/usr/sbin/scutil --get LocalHostName");
  return hasName ? *this : say(noNameText);
}

RepairScript& RepairScript::started30() {
  const std::string item = std::string(startupItem) + "/Qmaster";
  return call(item + " start")
      .call(item + " restart")
      .call(std::string(tool) + " -reset")
      .call(std::string(tool) + " -startSharing");
}

RepairScript& RepairScript::started35() {
  return call("/bin/launchctl load " + std::string(launchdJob))
      .call(std::string(tool) + " -reset")
      .call(std::string(tool) + " -startSharing");
}

RepairScript& RepairScript::started4() {
  return call("/bin/launchctl load " + std::string(launchdJob))
      .call(std::string(tool4) + " -reset")
      .call(std::string(tool4) + " -startSharing");
}

RepairScript& RepairScript::ended(const std::string& summary, bool hasMenu) {
  say("Relaunching menu bar icon...");
  if (hasMenu) call("/usr/bin/open -a " + std::string(statusMenu) + "/Contents/MacOS/QmasterStatusMenu");
  return say(summary);
}

RepairScript& RepairScript::repaired30() {
  detected("3.0", "Detected Compressor 3.0.x.").stopped3().trashed().checked();
  return note("Trashing file StartupItems/Qmaster/.disabled...").cleaned3();
}

RepairScript& RepairScript::repaired35() {
  return detected("3.5", "Detected Compressor 3.5.x.").stopped3().trashed().checked().cleaned3();
}

RepairScript& RepairScript::repaired4() {
  return detected("4.0", "Detected Compressor 4.x.").stopped4().trashed().cleaned4();
}

std::string RepairScript::output() const {
  std::string text;
  for (const auto& line : said_) text += (text.empty() ? "" : "\n\n") + line;
  return text.empty() ? "(none)" : text;
}

void expectRunBeforeLog(const Outcome& outcome, const RepairScript& script) {
  EXPECT_EQ(outcome.visit.status, 0);
  EXPECT_EQ(outcome.visit.output, "");
  EXPECT_EQ(asText(outcome.callTexts()), asText(script.calls()));
  EXPECT_THAT(outcome.finished, ElementsAre(script.output()));
  if (script.output() == "(none)") {
    EXPECT_THAT(outcome.shown, IsEmpty());
  } else {
    EXPECT_THAT(outcome.shown, ElementsAre("Repairing Compressor...", "Repair complete."));
  }
}

void expectRun(const Volume& volume, const Outcome& outcome, const RepairScript& script) {
  expectRunBeforeLog(outcome, script);
  EXPECT_EQ(asText(outcome.consoleTexts()), asText(script.console()));
  expectLog(volume, localLog, script.log());
}

void expectLog(const Volume& volume, const std::string& path, const std::vector<std::string>& entries) {
  const auto log = readLog(volume, path);
  ASSERT_TRUE(log) << "no log at " << path;
  EXPECT_THAT(log->header,
              ElementsAre(MatchesRegex(R"(Log started: [0-9]+-[0-9]+-[0-9]+ [0-9]+:[0-9]+:[0-9]+ \+0000)"),
                          MatchesRegex("Version: [0-9.]+"), std::string("Path: ") + quillmend,
                          MatchesRegex(R"(System: OS X .+, [0-9]+ CPU\(s\), [0-9]+\.[0-9][0-9] GB RAM)"),
                          "Running in 64-bit mode"));
  EXPECT_EQ(asText(log->entries), asText(entries));
}

std::vector<std::string> cachesIn(std::string_view support) {
  std::vector<std::string> paths;
  for (const auto& name : cacheFiles()) paths.push_back(std::string(support) + '/' + name);
  return paths;
}

std::vector<std::string> historyIn(const std::string& folder) {
  return {folder + "/2011-03-01 Trailer.history", folder + "/2011-03-02 Dailies.history"};
}

std::vector<std::string> together(const std::vector<std::vector<std::string>>& lists) {
  std::vector<std::string> all;
  for (const auto& list : lists) all.insert(all.end(), list.begin(), list.end());
  std::sort(all.begin(), all.end());
  return all;
}

std::vector<std::string> trashedOf3() {
  return together({cachesIn(localSupport), spoolFolders(false), historyIn(historyFolders(false)[0])});
}

std::vector<std::string> trashedOf4() {
  const auto history = historyFolders(true);
  return together({cachesIn(userSupport), spoolFolders(true), historyIn(history[0]), historyIn(history[1])});
}

}  // namespace workstation
