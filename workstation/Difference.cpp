#include "workstation/Difference.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "platform/foundation/Paths.h"

namespace workstation {
namespace {

using foundation::deletingLastPathComponent;
using foundation::lastPathComponent;

/// The same thing under the same name.
bool isSameThing(const SnapshotEntry& one, const SnapshotEntry& other) {
  return one.identity == other.identity && one.type == other.type;
}

bool looksSame(const SnapshotEntry& one, const SnapshotEntry& other) {
  return one.type == other.type && one.mode == other.mode && one.user == other.user &&
         one.group == other.group && one.size == other.size && one.target == other.target &&
         one.hash == other.hash;
}

class Comparison {
 public:
  Comparison(const Snapshot& before, const Snapshot& after)
      : before_(before.entries), after_(after.entries) {}

  Difference run();

 private:
  using Entries = std::map<std::string, SnapshotEntry>;

  void sortOut();
  void matchRenamed();
  void matchCopied();
  void matchReplaced();
  void pair(const std::string& from, const std::string& to);
  void collectMoves();
  static std::vector<Presence> topmost(const std::set<std::string>& paths);

  const Entries& before_;
  const Entries& after_;
  std::set<std::string> gone_;                ///< paths of before that are still without a partner
  std::set<std::string> fresh_;               ///< paths of after, the same
  std::map<std::string, std::string> moves_;  ///< from old path to new
  Difference result_;
};

void Comparison::sortOut() {
  for (const auto& [path, entry] : before_) {
    const auto now = after_.find(path);
    if (now == after_.end() || !isSameThing(entry, now->second)) {
      gone_.insert(path);
    } else if (!looksSame(entry, now->second)) {
      result_.changed.push_back({path, entry, now->second});
    }
  }
  for (const auto& [path, entry] : after_) {
    const auto then = before_.find(path);
    if (then == before_.end() || !isSameThing(entry, then->second)) fresh_.insert(path);
  }
}

void Comparison::pair(const std::string& from, const std::string& to) {
  moves_.emplace(from, to);
  gone_.erase(from);
  fresh_.erase(to);
}

void Comparison::matchRenamed() {
  std::multimap<std::string, std::string> byIdentity;
  for (const auto& path : fresh_) byIdentity.emplace(after_.at(path).identity, path);
  for (const auto& path : std::set(gone_)) {
    const auto found = byIdentity.find(before_.at(path).identity);
    if (found == byIdentity.end() || after_.at(found->second).type != before_.at(path).type) continue;
    pair(path, found->second);
    byIdentity.erase(found);
  }
}

/// A file with the same path before and after was written anew: that is a change, whatever else lies around.
void Comparison::matchReplaced() {
  for (const auto& path : std::set(gone_)) {
    if (!fresh_.contains(path)) continue;
    gone_.erase(path);
    fresh_.erase(path);
    if (!looksSame(before_.at(path), after_.at(path))) {
      result_.changed.push_back({path, before_.at(path), after_.at(path)});
    }
  }
}

void Comparison::matchCopied() {
  std::multimap<std::pair<std::string, std::uint64_t>, std::string> byContent;
  for (const auto& path : fresh_) {
    const auto& entry = after_.at(path);
    if (entry.type == 'f' && entry.size > 0)
      byContent.emplace(std::pair(lastPathComponent(path), entry.hash), path);
  }
  for (const auto& path : std::set(gone_)) {
    const auto& entry = before_.at(path);
    const auto found = byContent.find({lastPathComponent(path), entry.hash});
    if (entry.type != 'f' || found == byContent.end()) continue;
    pair(path, found->second);
    byContent.erase(found);
  }
}

/// A move inside of a folder's move is part of that, as long as it kept its place there.
void Comparison::collectMoves() {
  std::map<std::string, std::size_t> tops;
  for (const auto& [from, to] : moves_) {
    auto top = from;
    auto place = to;
    while (lastPathComponent(top) == lastPathComponent(place)) {
      const auto parent = moves_.find(deletingLastPathComponent(top));
      if (parent == moves_.end() || parent->second != deletingLastPathComponent(place)) break;
      top = parent->first;
      place = parent->second;
    }
    ++tops[top];
  }
  for (const auto& [from, things] : tops) {
    const auto& to = moves_.at(from);
    result_.moved.push_back({from, to, things, before_.at(from), after_.at(to)});
  }
}

std::vector<Presence> Comparison::topmost(const std::set<std::string>& paths) {
  std::map<std::string, std::size_t> tops;
  for (const auto& path : paths) {
    auto top = path;
    while (paths.contains(deletingLastPathComponent(top))) top = deletingLastPathComponent(top);
    ++tops[top];
  }
  std::vector<Presence> found;
  found.reserve(tops.size());
  for (const auto& [path, things] : tops) found.push_back({path, things});
  return found;
}

Difference Comparison::run() {
  sortOut();
  matchRenamed();
  matchReplaced();
  matchCopied();
  collectMoves();
  result_.created = topmost(fresh_);
  result_.removed = topmost(gone_);
  std::sort(result_.changed.begin(), result_.changed.end(),
            [](const Change& one, const Change& other) { return one.path < other.path; });
  return std::move(result_);
}

}  // namespace

Difference compare(const Snapshot& before, const Snapshot& after) {
  return Comparison(before, after).run();
}

}  // namespace workstation
