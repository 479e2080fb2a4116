#include "workstation/Records.h"

#include <algorithm>
#include <cstdlib>

#include "workstation/Layout.h"

namespace workstation {
namespace {

namespace fs = std::filesystem;
using std::chrono::nanoseconds;

nanoseconds lastBegin(const Volume& volume) {
  nanoseconds begin{0};
  for (const auto& line : records(volume, visitsFile)) {
    if (line.kind == "begin") begin = line.monotonic;
  }
  return begin;
}

std::vector<RecordLine> linesOfLastVisit(const Volume& volume, std::string_view file) {
  auto lines = records(volume, file);
  const auto begin = lastBegin(volume);
  std::erase_if(lines, [begin](const RecordLine& line) { return line.monotonic < begin; });
  return lines;
}

std::vector<RecordLine> linesOfKind(const Volume& volume, std::string_view file, std::string_view kind) {
  auto lines = linesOfLastVisit(volume, file);
  std::erase_if(lines, [kind](const RecordLine& line) { return line.kind != kind; });
  return lines;
}

/// A message's line begins with its bus, interface, member and signature; pairs of place and text follow.
constexpr std::size_t fixedWords = 4;

std::map<std::string, std::string> valuesIn(const RecordLine& line) {
  std::map<std::string, std::string> found;
  for (auto i = fixedWords; i + 1 < line.arguments.size(); i += 2) {
    found.emplace(line.arguments[i], line.arguments[i + 1]);
  }
  return found;
}

std::string textAt(const std::map<std::string, std::string>& values, const std::string& place) {
  const auto found = values.find(place);
  return found == values.end() ? std::string() : found->second;
}

}  // namespace

std::vector<RecordLine> records(const Volume& volume, std::string_view file) {
  std::vector<RecordLine> lines;
  for (const auto& text : split(contentsOf(volume.host(file)).value_or(""), '\n')) {
    if (auto line = decoded(text)) lines.push_back(std::move(*line));
  }
  return lines;
}

std::vector<RecordLine> calls(const Volume& volume) {
  return linesOfKind(volume, callsFile, "call");
}

std::vector<std::string> callTexts(const Volume& volume) {
  std::vector<std::string> texts;
  for (const auto& call : calls(volume)) {
    auto text = std::to_string(call.user) + ' ' + call.path;
    for (const auto& argument : call.arguments) text += ' ' + argument;
    texts.push_back(std::move(text));
  }
  return texts;
}

std::vector<nanoseconds> pauses(const std::vector<RecordLine>& calls) {
  std::vector<nanoseconds> times;
  for (std::size_t i = 1; i < calls.size(); ++i) {
    times.push_back(calls[i].monotonic - calls[i - 1].monotonic);
  }
  return times;
}

std::vector<RecordLine> events(const Volume& volume) {
  auto lines = linesOfLastVisit(volume, callsFile);
  std::erase_if(lines, [](const RecordLine& line) { return line.kind == "call" || line.kind == "done"; });
  return lines;
}

std::vector<HeardSignal> heardSignals(const Volume& volume) {
  std::vector<HeardSignal> found;
  for (const auto& line : linesOfKind(volume, busFile, "signal")) {
    if (line.arguments.size() < fixedWords) continue;
    const auto& words = line.arguments;
    found.push_back({words[0], line.path, words[1], words[2], words[3], valuesIn(line), line.user});
  }
  return found;
}

std::vector<ShownNotification> shownNotifications(const Volume& volume) {
  std::vector<ShownNotification> found;
  for (const auto& line : linesOfKind(volume, busFile, "notify")) {
    auto values = valuesIn(line);
    ShownNotification shown{
        textAt(values, "0"), textAt(values, "2"), textAt(values, "3"), textAt(values, "4"), {}};
    shown.values = std::move(values);
    found.push_back(std::move(shown));
  }
  return found;
}

std::vector<RemainingProcess> remainingProcesses(const Volume& volume) {
  constexpr std::size_t leadingWords = 3;  // process id, user id, kind
  std::vector<RemainingProcess> found;
  for (const auto& line : linesOfKind(volume, visitsFile, "remaining")) {
    const auto& words = line.arguments;
    if (words.size() < leadingWords) continue;
    found.push_back({line.path,
                     static_cast<uid_t>(std::strtoul(words[1].c_str(), nullptr, 10)),
                     words[2] == "resident",
                     {words.begin() + leadingWords, words.end()}});
  }
  return found;
}

std::optional<std::string> commandEnd(const Volume& volume) {
  const auto lines = linesOfKind(volume, visitsFile, "exit");
  if (lines.empty() || lines.back().arguments.size() != 2) return std::nullopt;
  return lines.back().arguments[0] + ' ' + lines.back().arguments[1];
}

std::chrono::milliseconds waitedForTools(const Volume& volume) {
  const auto lines = linesOfKind(volume, visitsFile, "waited");
  if (lines.empty() || lines.back().arguments.empty()) return std::chrono::milliseconds{0};
  return std::chrono::milliseconds(std::strtol(lines.back().arguments[0].c_str(), nullptr, 10));
}

std::map<std::string, std::string> values(const Volume& volume) {
  std::map<std::string, std::string> found;
  std::error_code none;
  for (const auto& entry : fs::directory_iterator(volume.host(valuesFolder), none)) {
    const auto key = entry.path().filename().string();
    if (const auto text = value(volume, key)) found.emplace(key, *text);
  }
  return found;
}

std::optional<std::string> value(const Volume& volume, std::string_view key) {
  auto text = contentsOf(volume.host(std::string(valuesFolder) + '/' + std::string(key)));
  if (text && text->ends_with('\n')) text->pop_back();
  return text;
}

}  // namespace workstation
