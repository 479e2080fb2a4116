#include "tests/workstation/RepairOutcome.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <utility>

#include "platform/foundation/Paths.h"
#include "platform/foundation/Text.h"
#include "workstation/Layout.h"

namespace workstation {
namespace {

using std::chrono::duration_cast;
using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

std::vector<std::string> linesOf(const std::string& text) {
  auto lines = split(text, '\n');
  if (lines.back().empty()) lines.pop_back();
  return lines;
}

ConsoleLine consoleLine(const std::string& line) {
  static const std::regex form(R"(\d{4}-\d\d-\d\d (\d\d):(\d\d):(\d\d)\.(\d{3}) Quillmend\[\d+:\d+\] (.*))");
  std::smatch match;
  if (!std::regex_match(line, match, form)) return {line, std::nullopt};
  const auto number = [&](std::size_t group) { return std::stoi(match[group]); };
  return {match[5], hours(number(1)) + minutes(number(2)) + seconds(number(3)) + milliseconds(number(4))};
}

std::vector<ConsoleLine> consoleOf(const std::string& error) {
  std::vector<ConsoleLine> lines;
  for (const auto& line : linesOf(error)) lines.push_back(consoleLine(line));
  return lines;
}

/// A tool writes itself down once it has the processor, which on a busy machine may be after the next one
/// has; the process ids tell which was started first.
std::vector<RecordLine> callsInOrder(const Volume& volume) {
  auto found = calls(volume);
  std::stable_sort(found.begin(), found.end(), [](const RecordLine& one, const RecordLine& other) {
    return one.process < other.process;
  });
  return found;
}

std::string textOf(const RecordLine& call) {
  std::string text = std::to_string(call.user) + ' ' + call.path;
  for (const auto& argument : call.arguments) text += ' ' + argument;
  return text;
}

void hearSignals(const Volume& volume, Outcome& outcome) {
  for (const auto& signal : heardSignals(volume)) {
    if (signal.interface != "com.vordenworks.DistributedNotifications") continue;
    if (signal.values.at("0") != "tgQuillmendScanFinished") continue;
    EXPECT_EQ(signal.values.at("1"), "") << "its object";
    const auto output = signal.values.find("2/output");
    outcome.finished.push_back(output == signal.values.end() ? "(none)" : output->second);
    outcome.finishedBus = signal.bus;
  }
}

std::vector<std::string> runningOf(const Volume& volume) {
  std::vector<std::string> running;
  for (const auto& process : remainingProcesses(volume)) {
    const std::string user = process.user == 0 ? "root" : std::to_string(process.user);
    running.push_back(user + ' ' + process.executable + (process.resident ? "" : " (busy)"));
  }
  std::sort(running.begin(), running.end());
  running.erase(std::unique(running.begin(), running.end()), running.end());
  return running;
}

/// A name in the trash is the thing's own; one that was taken has the time before its extension, and a spool
/// folder has the time behind it.
bool isNamedAfter(const std::string& inTrash, const std::string& name) {
  if (inTrash == name) return true;
  const auto extension = foundation::pathExtension(name);
  const auto stem = foundation::deletingPathExtension(name);
  const auto quoted = [](const std::string& text) {
    return std::regex_replace(text, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
  };
  const std::string ending = extension.empty() ? "" : quoted("." + extension);
  return std::regex_match(inTrash, std::regex(quoted(stem) + R"(_\d{14}(_\d+)?)" + ending)) ||
         std::regex_match(inTrash, std::regex(quoted(name) + R"( \d{4}-\d\d-\d\d \d\d\.\d\d\.\d\d( \d+)?)"));
}

template <typename Items>
std::vector<std::string> pathsOf(const Items& items) {
  std::vector<std::string> paths;
  paths.reserve(items.size());
  for (const auto& item : items) paths.push_back(item.path);
  std::sort(paths.begin(), paths.end());
  return paths;
}

}  // namespace

std::vector<std::string> Outcome::consoleTexts() const {
  std::vector<std::string> texts;
  for (const auto& line : console) texts.push_back(line.text);
  return texts;
}

std::vector<std::string> Outcome::callTexts() const {
  std::vector<std::string> texts;
  for (const auto& call : calls) texts.push_back(textOf(call));
  return texts;
}

milliseconds Outcome::timeAfter(std::string_view line) const {
  constexpr milliseconds day = hours(24);
  const auto found = std::find_if(console.begin(), console.end(),
                                  [&](const ConsoleLine& candidate) { return candidate.text == line; });
  if (found == console.end() || found + 1 == console.end() || !found->time || !(found + 1)->time) {
    ADD_FAILURE() << "no time after \"" << line << '"';
    return milliseconds(0);
  }
  return (*(found + 1)->time - *found->time + day) % day;
}

milliseconds Outcome::timeAfterCall(std::string_view call) const {
  const auto found = std::find_if(calls.begin(), calls.end(),
                                  [&](const RecordLine& candidate) { return textOf(candidate) == call; });
  if (found == calls.end() || found + 1 == calls.end()) {
    ADD_FAILURE() << "no call after \"" << call << '"';
    return milliseconds(0);
  }
  return duration_cast<milliseconds>((found + 1)->monotonic - found->monotonic);
}

VisitOptions programVisit() {
  VisitOptions options;
  options.bundle = QUILLMEND_BUNDLE;
  options.notifications = NotificationAnswer::expire;
  return options;
}

Outcome outcomeOf(const Volume& volume, const VisitResult& visit, Snapshot before) {
  Outcome outcome;
  outcome.visit = visit;
  outcome.console = consoleOf(visit.error);
  outcome.calls = callsInOrder(volume);
  hearSignals(volume, outcome);
  for (const auto& notification : shownNotifications(volume)) {
    EXPECT_EQ(notification.summary, "Quillmend");
    outcome.shown.push_back(notification.body);
  }
  outcome.running = runningOf(volume);
  outcome.before = std::move(before);
  outcome.after = takeSnapshot(volume);
  outcome.difference = compare(outcome.before, outcome.after);
  return outcome;
}

Outcome run(const Volume& volume, const std::vector<std::string>& arguments, const VisitOptions& options) {
  std::vector<std::string> command{quillmend};
  command.insert(command.end(), arguments.begin(), arguments.end());
  auto before = takeSnapshot(volume);
  return outcomeOf(volume, visit(volume, command, options), std::move(before));
}

Outcome runShell(const Volume& volume, const std::string& line, const VisitOptions& options) {
  VisitOptions withProgram = options;
  withProgram.environment.emplace_back("Q", quillmend);
  auto before = takeSnapshot(volume);
  return outcomeOf(volume, visit(volume, {"/bin/sh", "-c", line}, withProgram), std::move(before));
}

std::optional<LogFile> readLog(const Volume& volume, std::string_view path) {
  static const std::regex entry(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d \+0000 - (.*))");
  const auto text = contentsOf(volume.host(path).string());
  if (!text) return std::nullopt;
  LogFile log;
  for (const auto& line : linesOf(*text)) {
    std::smatch match;
    const bool isEntry = std::regex_match(line, match, entry);
    auto& part = isEntry || !log.entries.empty() ? log.entries : log.header;
    part.push_back(isEntry ? match[1].str() : line);
  }
  return log;
}

std::string describe(const Snapshot& snapshot, const std::string& path) {
  const auto found = snapshot.entries.find(path);
  if (found == snapshot.entries.end()) return "missing";
  const auto& entry = found->second;
  constexpr unsigned shift = 3;
  std::string mode;
  for (unsigned digits = 3; digits-- > 0;)
    mode += static_cast<char>('0' + ((entry.mode >> (shift * digits)) & 7U));
  return std::string(1, entry.type) + ' ' + std::to_string(entry.user) + ':' + std::to_string(entry.group) +
         ' ' + mode;
}

std::vector<std::string> movedInto(const Outcome& outcome, const std::string& folder) {
  std::vector<std::string> origins;
  for (const auto& move : outcome.difference.moved) {
    if (foundation::deletingLastPathComponent(move.to) != folder) continue;
    EXPECT_TRUE(
        isNamedAfter(foundation::lastPathComponent(move.to), foundation::lastPathComponent(move.from)))
        << move.from << " is " << move.to;
    EXPECT_EQ(describe(outcome.before, move.from), describe(outcome.after, move.to)) << move.to;
    EXPECT_EQ(move.before.hash, move.after.hash) << move.to;
    origins.push_back(move.from);
  }
  std::sort(origins.begin(), origins.end());
  return origins;
}

std::vector<std::string> created(const Outcome& outcome) {
  return pathsOf(outcome.difference.created);
}

std::vector<std::string> removed(const Outcome& outcome) {
  return pathsOf(outcome.difference.removed);
}

std::vector<std::string> changed(const Outcome& outcome) {
  return pathsOf(outcome.difference.changed);
}

}  // namespace workstation
