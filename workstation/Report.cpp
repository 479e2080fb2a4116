#include "workstation/Report.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "platform/foundation/Paths.h"
#include "workstation/Accounts.h"
#include "workstation/Layout.h"
#include "workstation/Records.h"

namespace workstation {
namespace {

using foundation::deletingLastPathComponent;
using foundation::lastPathComponent;

/// From this many on, things of one folder that went the same way share a line.
constexpr std::size_t groupFrom = 4;
constexpr std::size_t nameWidth = 46;

std::string withThousands(std::size_t number) {
  auto digits = std::to_string(number);
  for (auto at = static_cast<std::ptrdiff_t>(digits.size()) - 3; at > 0; at -= 3) {
    digits.insert(static_cast<std::size_t>(at), ",");
  }
  return digits;
}

std::string counted(std::size_t number, const std::string& noun) {
  return withThousands(number) + ' ' + noun + (number == 1 ? "" : "s");
}

std::string padded(std::string text, std::size_t width) {
  if (text.size() < width) text.append(width - text.size(), ' ');
  return text;
}

/// A name and what is to be said of it, in two columns where that fits.
std::string row(const std::string& name, const std::string& remark) {
  return "    " + (remark.empty() ? name : padded(name, nameWidth) + "  " + remark) + '\n';
}

/// The user whose trash a path lies in, and the path inside it; nothing for other paths.
std::optional<std::pair<std::string, std::string>> trashOf(const std::string& path) {
  constexpr std::string_view folder = "/.Trash/";
  const auto at = path.find(folder);
  if (at == std::string::npos) return std::nullopt;
  const auto home = path.substr(0, at);
  const auto owner = home == "/private/var/root" ? std::string("root") : lastPathComponent(home);
  return std::pair(owner, path.substr(at + folder.size()));
}

bool isTrashFolder(const std::string& path) {
  return lastPathComponent(path) == ".Trash";
}

std::string modeText(mode_t mode) {
  std::string text = "rwxrwxrwx";
  for (std::size_t i = 0; i < text.size(); ++i) {
    if ((mode & (0400U >> i)) == 0) text[i] = '-';
  }
  if ((mode & 06000U) != 0) text += " set-id";
  if ((mode & 01000U) != 0) text += " sticky";
  return text;
}

std::string kindName(char type) {
  switch (type) {
    case 'd':
      return "a folder";
    case 'l':
      return "a link";
    case 'p':
      return "a FIFO";
    case 's':
      return "a socket";
    case 'f':
      return "a file";
    default:
      return "a device";
  }
}

class Writer {
 public:
  explicit Writer(const Volume& volume)
      : volume_(volume),
        accounts_(parseAccounts(contentsOf(volume.host("/etc/passwd")).value_or(""))),
        groupText_(contentsOf(volume.host("/etc/group")).value_or("")) {}

  [[nodiscard]] std::string userName(uid_t user) const;
  [[nodiscard]] std::string ownerText(const SnapshotEntry& entry) const;
  [[nodiscard]] std::string changeText(const SnapshotEntry& before, const SnapshotEntry& after) const;

  void section(const std::string& title, const std::string& rows);
  void moves(const Difference& difference);
  void presences(const std::string& title, const std::vector<Presence>& found, const Snapshot& where);
  void changes(const Difference& difference);
  void calledTools();
  void changedValues(const Snapshot& before, const Snapshot& after);
  void processes(const Snapshot& before, const Snapshot& after);
  void messages();

  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  [[nodiscard]] std::string groupName(gid_t group) const;
  void moveRows(const std::vector<Move>& moves, std::map<std::string, std::string>& sections) const;

  const Volume& volume_;
  std::vector<Account> accounts_;
  std::string groupText_;
  std::string text_;
};

std::string Writer::userName(uid_t user) const {
  const auto found = std::find_if(accounts_.begin(), accounts_.end(),
                                  [user](const Account& account) { return account.user == user; });
  return found == accounts_.end() ? std::to_string(user) : found->name;
}

std::string Writer::groupName(gid_t group) const {
  for (const auto& line : split(groupText_, '\n')) {
    const auto fields = split(line, ':');
    if (fields.size() > 2 && fields[2] == std::to_string(group)) return fields[0];
  }
  return std::to_string(group);
}

std::string Writer::ownerText(const SnapshotEntry& entry) const {
  return userName(entry.user) + ':' + groupName(entry.group);
}

std::string Writer::changeText(const SnapshotEntry& before, const SnapshotEntry& after) const {
  std::vector<std::string> parts;
  if (before.type != after.type) parts.push_back(kindName(before.type) + " became " + kindName(after.type));
  if (before.user != after.user || before.group != after.group) {
    parts.push_back("owner " + ownerText(before) + " became " + ownerText(after));
  }
  if (before.mode != after.mode)
    parts.push_back("mode " + modeText(before.mode) + " became " + modeText(after.mode));
  if (before.size != after.size || before.hash != after.hash) {
    parts.push_back("content, " + counted(before.size, "byte") + " became " + counted(after.size, "byte"));
  }
  if (before.target != after.target) parts.push_back("leads to " + after.target);
  std::string text;
  for (const auto& part : parts) text.append(text.empty() ? "" : "; ").append(part);
  return text;
}

void Writer::section(const std::string& title, const std::string& rows) {
  if (rows.empty()) return;
  text_ += (text_.empty() ? "" : "\n") + title + '\n' + rows;
}

/// Where a group of moves goes: from one folder to one folder.
using Route = std::pair<std::string, std::string>;

void Writer::moveRows(const std::vector<Move>& moves, std::map<std::string, std::string>& sections) const {
  std::map<Route, std::vector<const Move*>> routes;
  for (const auto& move : moves) {
    routes[{deletingLastPathComponent(move.from), deletingLastPathComponent(move.to)}].push_back(&move);
  }
  for (const auto& [route, members] : routes) {
    const auto trash = trashOf(members.front()->to);
    auto& rows = sections[trash ? "In " + trash->first + "'s trash" : "Moved"];
    if (members.size() >= groupFrom) {
      const auto place = trash ? deletingLastPathComponent(trash->second) : route.second;
      rows +=
          row(counted(members.size(), "item") + (place.empty() ? "" : " in " + place), "from " + route.first);
      continue;
    }
    for (const auto* move : members) {
      const bool sameName = lastPathComponent(move->from) == lastPathComponent(move->to);
      auto remark = "from " + (sameName ? route.first : move->from);
      if (move->things > 1) remark += ", with " + withThousands(move->things - 1) + " inside";
      const auto change = changeText(move->before, move->after);
      if (!change.empty()) remark += " (" + change + ')';
      rows += row(trash ? trashOf(move->to)->second : move->to, remark);
    }
  }
}

void Writer::moves(const Difference& difference) {
  std::map<std::string, std::string> sections;
  moveRows(difference.moved, sections);
  for (const auto& [title, rows] : sections) section(title, rows);
}

void Writer::presences(const std::string& title, const std::vector<Presence>& found, const Snapshot& where) {
  std::map<std::string, std::vector<const Presence*>> folders;
  for (const auto& presence : found) {
    const auto& path = presence.path;
    // A dated folder in a trash is told of with what was moved into it.
    const bool toldElsewhere = where.entries.at(path).type == 'd' && (trashOf(path) || isTrashFolder(path));
    if (!toldElsewhere) folders[deletingLastPathComponent(path)].push_back(&presence);
  }
  std::string rows;
  for (const auto& [folder, members] : folders) {
    if (members.size() >= groupFrom) {
      rows += row(counted(members.size(), "item") + " in " + folder, "");
      continue;
    }
    for (const auto* presence : members) {
      const auto& entry = where.entries.at(presence->path);
      auto remark = ownerText(entry) + ' ' + modeText(entry.mode);
      if (entry.type == 'f') remark += ", " + counted(entry.size, "byte");
      if (presence->things > 1) remark += ", with " + withThousands(presence->things - 1) + " inside";
      rows += row(presence->path, remark);
    }
  }
  section(title, rows);
}

void Writer::changes(const Difference& difference) {
  std::map<std::string, std::string> texts;
  for (const auto& change : difference.changed) texts[change.path] = changeText(change.before, change.after);
  std::map<std::string, std::size_t>
      tops;  // what is inside a folder and changed as the folder did goes with it
  for (const auto& [path, text] : texts) {
    auto top = path;
    for (auto up = texts.find(deletingLastPathComponent(top)); up != texts.end() && up->second == text;
         up = texts.find(deletingLastPathComponent(top))) {
      top = up->first;
    }
    ++tops[top];
  }
  std::string rows;
  for (const auto& [path, things] : tops) {
    rows += row(path, texts[path] + (things > 1 ? ", with " + withThousands(things - 1) + " inside" : ""));
  }
  section("Changed", rows);
}

std::string secondsText(std::chrono::nanoseconds time) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%8.3f s", std::chrono::duration<double>(time).count());
  return text.data();
}

void Writer::calledTools() {
  const auto made = calls(volume_);
  std::string rows;
  for (const auto& call : made) {
    auto text = call.path;
    for (const auto& argument : call.arguments) text += ' ' + argument;
    rows += "  " + secondsText(call.monotonic - made.front().monotonic) + "  " +
            padded(userName(call.user), 6) + "  " + text + '\n';
  }
  section("Tools called", rows);
}

/// A value's key in words.
std::string valueName(const std::string& key) {
  static const std::map<std::string, std::string> names{
      {"qmaster.sharing", "Qmaster sharing"}, {"qmaster.jobs", "Qmaster jobs"},
      {"qmaster.resets", "Qmaster resets"},   {"qmaster4.sharing", "Qmaster 4 sharing"},
      {"qmaster4.jobs", "Qmaster 4 jobs"},    {"qmaster4.resets", "Qmaster 4 resets"},
      {"ComputerName", "Computer name"},      {"LocalHostName", "Local host name"}};
  const auto found = names.find(key);
  if (found != names.end()) return found->second;
  constexpr std::string_view job = "launchd.";
  return key.starts_with(job) ? "Job " + key.substr(job.size()) : key;
}

std::string textAt(const std::map<std::string, std::string>& values, const std::string& key) {
  const auto found = values.find(key);
  return found == values.end() ? "not set" : found->second;
}

void Writer::changedValues(const Snapshot& before, const Snapshot& after) {
  auto all = before.values;
  all.insert(after.values.begin(), after.values.end());
  std::string rows;
  for (const auto& [key, ignored] : all) {
    auto then = textAt(before.values, key);
    const auto now = textAt(after.values, key);
    if (then != now) rows += row(valueName(key), then.append(" became ").append(now));
  }
  section("The workstation's state", rows);
}

/// A line of processesFile in words.
std::string residentText(const std::string& line) {
  const auto fields = split(line, '\t');
  return padded(fields[0], 6) + "  " + (fields.size() > 1 ? fields[1] : "");
}

std::string residentRows(const std::vector<std::string>& those,
                         const std::vector<std::string>& withoutThese) {
  std::string rows;
  for (const auto& line : those) {
    if (std::find(withoutThese.begin(), withoutThese.end(), line) == withoutThese.end()) {
      rows += "    " + residentText(line) + '\n';
    }
  }
  return rows;
}

void Writer::processes(const Snapshot& before, const Snapshot& after) {
  section("No longer running", residentRows(before.residents, after.residents));
  section("Running at the end", residentRows(after.residents, {}));
  std::string rows;
  for (const auto& process : remainingProcesses(volume_)) {
    if (!process.resident)
      rows += "    " + padded(userName(process.user), 6) + "  " + process.executable + '\n';
  }
  section("Tools that did not come to an end", rows);
}

/// A text of several lines, each after the first set in under it.
std::string indented(const std::string& text) {
  std::string lines;
  for (const char character : text) {
    lines += character;
    if (character == '\n') lines += "        ";
  }
  return lines;
}

void Writer::messages() {
  std::string rows;
  for (const auto& shown : shownNotifications(volume_)) rows += row(shown.summary + ": " + shown.body, "");
  section("Notifications on the desktop", rows);
  rows.clear();
  for (const auto& heard : heardSignals(volume_)) {
    rows += row(heard.interface + '.' + heard.member, "on the " + heard.bus + " bus");
    for (const auto& [place, text] : heard.values) {
      if (!text.empty()) rows += "      " + place + ": " + indented(text) + '\n';
    }
  }
  section("Signals heard", rows);
}

std::string compressorRows(const Snapshot& snapshot) {
  std::string rows;
  for (const auto& [path, entry] : snapshot.entries) {
    if (entry.type == 'd' && lastPathComponent(path) == "Compressor.app") rows += row(path, "");
  }
  return rows;
}

std::string spoolRows(const Snapshot& snapshot) {
  constexpr std::string_view extension = ".segment";
  std::map<std::string, std::size_t> folders;
  for (const auto& [path, entry] : snapshot.entries) {
    if (entry.type == 'f' && path.ends_with(extension)) ++folders[deletingLastPathComponent(path)];
  }
  std::string rows;
  for (const auto& [folder, files] : folders) rows += row(counted(files, "file"), "in " + folder);
  return rows;
}

std::string valueRows(const Snapshot& snapshot) {
  std::string rows;
  for (const auto& [key, text] : snapshot.values) rows += row(valueName(key), text);
  return rows;
}

}  // namespace

std::string visitReport(const Volume& volume, const Snapshot& before, const Snapshot& after) {
  auto difference = compare(before, after);
  // A folder that was moved away whole, with a fresh one in its place, is an emptied folder to its user.
  const auto firstNew =
      std::partition(difference.created.begin(), difference.created.end(), [&](const Presence& presence) {
        const auto then = before.entries.find(presence.path);
        return then != before.entries.end() && then->second.type == after.entries.at(presence.path).type;
      });
  const std::vector<Presence> emptied(difference.created.begin(), firstNew);
  difference.created.erase(difference.created.begin(), firstNew);
  Writer writer(volume);
  writer.moves(difference);
  writer.presences("Emptied", emptied, after);
  writer.presences("Created", difference.created, after);
  writer.changes(difference);
  writer.presences("Removed", difference.removed, before);
  if (difference.empty() && emptied.empty()) writer.section("No file or folder has changed", "\n");
  writer.calledTools();
  writer.changedValues(before, after);
  writer.processes(before, after);
  writer.messages();
  return writer.text();
}

std::string volumeReport(const Volume& volume, const Snapshot& snapshot) {
  Writer writer(volume);
  writer.section("Compressor", compressorRows(snapshot));
  writer.section("Spool data", spoolRows(snapshot));
  writer.section("The workstation's state", valueRows(snapshot));
  writer.section("Running", residentRows(snapshot.residents, {}));
  return writer.text();
}

}  // namespace workstation
