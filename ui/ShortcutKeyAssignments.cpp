#include "ui/ShortcutKeyAssignments.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <memory>
#include <set>
#include <utility>

#include "platform/Platform.h"
#include "platform/foundation/Identifiers.h"
#include "platform/foundation/Paths.h"
#include "services/TGLocalPaths.h"

namespace shortcutkeys {
namespace {

using foundation::BinaryPropertyList;
using foundation::errorWithReason;
using foundation::PropertyList;
using foundation::Result;
using foundation::systemError;
using platform::FileState;

using Change = std::function<void(WatchList&)>;

constexpr const char* kWatchList = "watchlist";
constexpr auto kLongestWait = std::chrono::seconds(5);
/// Once the process was asked to end: more than another's change takes.
constexpr auto kLongestWaitAtEnd = std::chrono::milliseconds(500);
constexpr auto kWaitBetweenTries = std::chrono::milliseconds(10);
/// For so long nobody who writes a list in its place leaves it half written.
constexpr auto kLongestWriting = std::chrono::milliseconds(100);
/// A program that never stops writing has its way.
constexpr int kMostAttempts = 10;

bool isBinary(std::string_view bytes) {
  return bytes.starts_with("bplist00");
}

/// The same list in the binary format. One that cannot be told is as good as none: it is kept aside.
Result<std::string> inBinary(const std::string& bytes) {
  const auto value = platform::current().propertyLists.parse(bytes, {kLargestFile, kMostValues});
  if (!value) return value.error().code == ENOTSUP ? systemError(EINVAL, "") : value.error();
  return BinaryPropertyList::serialize(value.value());
}

bool isRoot() {
  return platform::current().usersAndFolders.userID() == 0;
}

/// Root reads only what lies there itself: a user's link could lead it to a list that only root may read, and
/// the change would copy that into the user's file.
Result<std::string> readFile(const std::string& path) {
  auto& files = platform::current().fileQueries;
  return isRoot() ? files.readFileItself(path, kLargestFile) : files.readFile(path, kLargestFile);
}

/// The file to replace: behind the links of a user whose own it is.
Result<std::string> fileToReplace(const std::string& path) {
  auto target = platform::current().fileQueries.linkTarget(path);
  if (!target || target.value() == path) return target;
  if (isRoot()) return errorWithReason(ELOOP, path, "it is a symbolic link, which root does not follow here");
  const auto there = platform::current().fileQueries.state(target.value());
  const bool isOwn = !there || there->owner == platform::current().usersAndFolders.userID();
  if (isOwn) return target;
  return errorWithReason(EPERM, path, "it leads to " + target.value() + ", which belongs to another user");
}

Result<WatchList> readList(const std::string& path) {
  auto bytes = readFile(path);
  if (!bytes) {
    // A folder or a device is no list that could be kept aside.
    const int code = bytes.error().code;
    return code == EINVAL ? systemError(ENOTSUP, path) : bytes.error();
  }
  auto list = WatchList::parse(std::move(bytes).value());
  if (list) return list;
  const int code = list.error().code;
  return code == EINVAL ? errorWithReason(code, path, "it is no list of shortcut keys")
                        : systemError(code, path);
}

/// The main thread keeps the program alive meanwhile.
void pause(std::chrono::milliseconds duration) {
  auto& system = platform::current();
  if (system.mainThread.isCurrent()) {
    system.mainThread.serveUntilReadable(-1, duration);
  } else {
    system.clock.sleep(duration);
  }
}

/// What somebody is told whose keys are not recorded because of it.
foundation::Error othersAreInTheWay(int code, const std::string& path) {
  return errorWithReason(code, path, "another program is changing it");
}

/// When a wait that begins now is over.
class WaitForOthers {
 public:
  bool isOver() {
    auto& system = platform::current();
    const auto now = system.clock.uptime();
    if (!isEnding_ && system.interruption.requested()) {
      isEnding_ = true;
      end_ = std::min(end_, now + kLongestWaitAtEnd);
    }
    return now >= end_;
  }

 private:
  std::chrono::nanoseconds end_ = platform::current().clock.uptime() + kLongestWait;
  bool isEnding_ = false;
};

Result<std::unique_ptr<platform::FileLock>> waitForLock(const std::string& path) {
  WaitForOthers wait;
  while (true) {
    auto lock = platform::current().fileLocks.tryLock(path);
    if (lock || lock.error().code != EWOULDBLOCK) return lock;
    if (wait.isOver()) return othersAreInTheWay(EWOULDBLOCK, path);
    pause(kWaitBetweenTries);
  }
}

Result<void> keepAside(const std::string& path) {
  const auto aside = platform::keepUnreadableAside(path);
  if (!aside) return aside.error();
  NSLog("The shortcut keys in %@ can't be read. The file is kept as %@.", path, aside.value());
  return {};
}

/// A list, as it was when the file was in that state.
struct SeenList {
  std::optional<FileState> file;
  WatchList list;
};

/// Whether a file that is no list may yet become one: a program that cuts it and writes it in its place is at
/// it as long as it changes.
bool isBeingWritten(const std::string& path, const std::optional<FileState>& seen) {
  pause(kLongestWriting);
  return platform::current().fileQueries.state(path) != seen;
}

Result<SeenList> listToChange(const std::string& path, WhenMissing whenMissing) {
  const auto seen = platform::current().fileQueries.state(path);
  auto list = readList(path);
  if (list) return SeenList{seen, std::move(list).value()};
  const int reason = list.error().code;
  if (reason == EINVAL && isBeingWritten(path, seen)) return systemError(EAGAIN, path);
  if (whenMissing == WhenMissing::leave) return list.error();
  if (reason == ENOENT) return SeenList{seen, WatchList()};
  if (reason != EINVAL) return list.error();
  if (auto kept = keepAside(path); !kept) return kept.error();
  return SeenList{seen, WatchList()};
}

/// One attempt to replace what is there; EAGAIN where a program that does not ask for the lock came between.
Result<FileState> changeOnce(const std::string& file, WhenMissing whenMissing, const Change& change) {
  auto seen = listToChange(file, whenMissing);
  if (!seen) return seen.error();
  WatchList& list = seen.value().list;
  change(list);
  const auto bytes = list.serialize();
  if (!bytes) return bytes.error();
  return platform::current().fileChanges.replaceUnchanged(file, seen.value().file, bytes.value());
}

Result<FileState> changeUnderLock(const std::string& path, WhenMissing whenMissing, const Change& change) {
  if (whenMissing == WhenMissing::create) {
    const std::string folder = foundation::deletingLastPathComponent(path);
    if (auto made = platform::current().fileChanges.createDirectory(folder); !made) return made.error();
  }
  const auto lock = waitForLock(path);
  if (!lock) return lock.error();
  const auto file = fileToReplace(path);
  if (!file) return file.error();
  auto changed = changeOnce(file.value(), whenMissing, change);
  for (int attempt = 1; !changed && changed.error().code == EAGAIN && attempt < kMostAttempts; ++attempt) {
    changed = changeOnce(file.value(), whenMissing, change);
  }
  const bool isLost = !changed && changed.error().code == EAGAIN;
  return isLost ? othersAreInTheWay(EAGAIN, path) : changed;
}

/// nullopt for a missing value, one of another kind, and one that is too large.
std::optional<std::uint16_t> shortNumber(std::optional<std::int64_t> number) {
  const bool isShort = number && *number >= 0 && *number <= UINT16_MAX;
  return isShort ? std::optional(static_cast<std::uint16_t>(*number)) : std::nullopt;
}

std::optional<Combination> combinationOf(std::optional<std::uint16_t> keyCode, bool hasModifiers,
                                         std::optional<std::uint16_t> modifiers) {
  if (!keyCode || (hasModifiers && !modifiers)) return std::nullopt;
  return Combination{*keyCode, modifiers.value_or(0)};
}

/// What an entry says that is not in a file yet.
class NewEntry {
 public:
  explicit NewEntry(const PropertyList& entry) : entry_(entry) {}

  [[nodiscard]] std::optional<std::string> text(const char* key) const {
    const auto* const value = valueOf<std::string>(key);
    return value == nullptr ? std::nullopt : std::optional(*value);
  }
  [[nodiscard]] std::optional<Combination> keys() const {
    return combinationOf(number("keycode"), entry_.find("modifiers") != nullptr, number("modifiers"));
  }

 private:
  template <typename Value>
  [[nodiscard]] const Value* valueOf(const char* key) const {
    const PropertyList* const value = entry_.find(key);
    return value == nullptr ? nullptr : value->as<Value>();
  }
  [[nodiscard]] std::optional<std::uint16_t> number(const char* key) const {
    const auto* const value = valueOf<std::int64_t>(key);
    return shortNumber(value == nullptr ? std::nullopt : std::optional(*value));
  }

  const PropertyList& entry_;
};

/// The commands of one application that have keys, and all who hold the same.
class HolderSearch {
 public:
  HolderSearch(const WatchList& list, std::string_view bundleId) : list_(list), bundleId_(bundleId) {}

  KeysByCommand run() {
    findOwn();
    std::vector<Combination> held;
    for (const auto& [keys, commands] : held_) held.push_back(keys);
    for (const std::size_t index : list_.holdersOf(held)) note(*list_.at(index));
    return std::move(found_);
  }

 private:
  using Command = KeysByCommand::value_type;
  using Name = std::pair<std::string, std::optional<std::string>>;

  void findOwn() {
    for (const std::size_t index : list_.entriesOf(bundleId_)) {
      const auto entry = list_.at(index);
      if (entry->commandId) found_[*entry->commandId].keys = entry->keys;
    }
    for (Command& command : found_) {
      if (command.second.keys) held_[*command.second.keys].push_back(&command);
    }
  }

  void note(const Assignment& holder) {
    const bool isOwn = holder.bundleId == bundleId_;
    for (Command* const command : held_[*holder.keys]) {
      if (isOwn && holder.commandId == command->first) continue;
      const Name name(holder.bundleId, isOwn ? holder.commandId : std::nullopt);
      if (seen_[command].insert(name).second) command->second.otherHolders.push_back(holder);
    }
  }

  const WatchList& list_;
  std::string_view bundleId_;
  KeysByCommand found_;
  std::map<Combination, std::vector<Command*>> held_;
  std::map<const Command*, std::set<Name>> seen_;
};

}  // namespace

WatchList::WatchList() : file_(BinaryPropertyList::emptyDictionary()) {}

WatchList::WatchList(BinaryPropertyList file) : file_(std::move(file)) {}

Result<WatchList> WatchList::parse(std::string bytes) {
  if (!isBinary(bytes)) {
    auto binary = inBinary(bytes);
    if (!binary) return binary.error();
    bytes = std::move(binary).value();
  }
  auto file = BinaryPropertyList::open(std::move(bytes), kMostValues);
  if (!file) return file.error();
  WatchList list(std::move(file).value());
  if (auto found = list.findEntries(); !found) return found.error();
  return list;
}

Result<void> WatchList::findEntries() {
  if (!file_.isDictionary(file_.root())) return systemError(EINVAL, "");
  const auto array = file_.find(file_.root(), kWatchList);
  if (!array) return {};
  if (!file_.isArray(*array)) return systemError(EINVAL, "");
  entries_ = file_.elements(*array);
  return {};
}

const PropertyList* WatchList::appendedAt(std::size_t index) const {
  return index < entries_.size() ? nullptr : &appended_[index - entries_.size()];
}

std::optional<std::string> WatchList::text(std::size_t index, const char* key) const {
  if (const auto* const entry = appendedAt(index)) return NewEntry(*entry).text(key);
  const auto value = file_.find(entries_[index], key);
  return value ? file_.text(*value) : std::nullopt;
}

std::optional<Assignment> WatchList::at(std::size_t index) const {
  const bool isEntry = appendedAt(index) != nullptr || file_.isDictionary(entries_[index]);
  if (!isEntry) return std::nullopt;
  return Assignment{text(index, "bundleid").value_or(""), text(index, "commandid"), keys(index)};
}

std::optional<Combination> WatchList::keys(std::size_t index) const {
  if (const auto* const entry = appendedAt(index)) return NewEntry(*entry).keys();
  const auto keyCode = file_.find(entries_[index], "keycode");
  return keyCode ? keysIn(keyCode, file_.find(entries_[index], "modifiers")) : std::nullopt;
}

std::optional<Combination> WatchList::keysIn(std::optional<Object> keyCode,
                                             std::optional<Object> modifiers) const {
  const auto number = [this](std::optional<Object> value) {
    return shortNumber(value ? file_.integer(*value) : std::nullopt);
  };
  return combinationOf(number(keyCode), modifiers.has_value(), number(modifiers));
}

std::vector<std::size_t> WatchList::entriesOf(std::string_view bundleId) const {
  std::vector<std::size_t> indexes;
  BinaryPropertyList::Lookup entry(file_, {"bundleid"});
  for (std::size_t index = 0; index < entries_.size(); ++index) {
    entry.enter(entries_[index]);
    if (entry[0] && file_.isText(*entry[0], bundleId)) indexes.push_back(index);
  }
  for (std::size_t index = entries_.size(); index < size(); ++index) {
    if (hasText(index, "bundleid", bundleId)) indexes.push_back(index);
  }
  return indexes;
}

std::vector<std::size_t> WatchList::holdersOf(const std::vector<Combination>& combinations) const {
  std::vector<std::size_t> indexes;
  if (combinations.empty()) return indexes;
  const auto noteIfHeld = [&](std::size_t index, const std::optional<Combination>& keys) {
    if (keys && std::find(combinations.begin(), combinations.end(), *keys) != combinations.end()) {
      indexes.push_back(index);
    }
  };
  BinaryPropertyList::Lookup entry(file_, {"keycode", "modifiers"});
  for (std::size_t index = 0; index < entries_.size(); ++index) {
    entry.enter(entries_[index]);
    noteIfHeld(index, keysIn(entry[0], entry[1]));
  }
  for (std::size_t index = entries_.size(); index < size(); ++index) noteIfHeld(index, keys(index));
  return indexes;
}

bool WatchList::hasCommandId(std::size_t index, std::string_view commandId) const {
  return hasText(index, "commandid", commandId);
}

/// Without taking the text out of the file: most entries are others'.
bool WatchList::hasText(std::size_t index, const char* key, std::string_view text) const {
  if (appendedAt(index) != nullptr) return this->text(index, key) == text;
  const auto value = file_.find(entries_[index], key);
  return value && file_.isText(*value, text);
}

bool WatchList::hasParams(std::size_t index, const std::vector<std::string>& params) const {
  const auto array = file_.find(entries_[index], "commandparams");
  if (!array || !file_.isArray(*array)) return false;
  const auto elements = file_.elements(*array);
  return std::equal(elements.begin(), elements.end(), params.begin(), params.end(),
                    [this](auto element, const std::string& param) { return file_.isText(element, param); });
}

void WatchList::erase(std::size_t index) {
  entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(index));
}

Result<std::string> WatchList::serialize() const {
  return file_.replacingArray(kWatchList, entries_, appended_);
}

KeysByCommand keysOf(const WatchList& list, std::string_view bundleId) {
  return HolderSearch(list, bundleId).run();
}

std::optional<std::string> assignmentsPath() {
  const auto folder = TGLocalPaths::prefsDirectory(Domain::user);
  if (!folder) return std::nullopt;
  return foundation::appendingPathComponent(*folder, identifiers::kShortcutKeysFile);
}

std::optional<platform::FileState> assignmentsState() {
  const auto path = assignmentsPath();
  return path ? platform::current().fileQueries.state(*path) : std::nullopt;
}

Result<WatchList> readAssignments() {
  const auto path = assignmentsPath();
  return path ? readList(*path) : systemError(ENOENT, "");
}

std::optional<platform::FileState> changeAssignments(WhenMissing whenMissing, const Change& change) {
  const auto path = assignmentsPath();
  auto changed = path ? changeUnderLock(*path, whenMissing, change)
                      : Result<FileState>(systemError(ENOENT, identifiers::kShortcutKeysFile));
  if (changed) return changed.value();
  const bool isMissing = whenMissing == WhenMissing::leave && changed.error().code == ENOENT;
  if (!isMissing) NSLog("Unable to write the shortcut keys: %@", changed.error().localizedDescription());
  return std::nullopt;
}

}  // namespace shortcutkeys
