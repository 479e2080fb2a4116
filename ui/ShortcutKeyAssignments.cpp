#include "ui/ShortcutKeyAssignments.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <utility>

#include "platform/Platform.h"
#include "platform/foundation/Identifiers.h"
#include "platform/foundation/Paths.h"
#include "services/TGLocalPaths.h"

namespace shortcutkeys {
namespace {

using foundation::BinaryPropertyList;
using foundation::Result;
using foundation::systemError;

constexpr const char* kWatchList = "watchlist";
constexpr auto kLongestWait = std::chrono::seconds(5);
constexpr auto kWaitBetweenTries = std::chrono::milliseconds(10);

bool isBinary(std::string_view bytes) {
  return bytes.starts_with("bplist00");
}

/// The same list in the binary format.
Result<std::string> inBinary(const std::string& bytes) {
  const auto value = platform::current().propertyLists.parse(bytes, {kLargestFile, kMostValues});
  if (!value) return value.error();
  return BinaryPropertyList::serialize(value.value());
}

/// Root reads only what lies there itself: a user's link could lead it to a list that only root may read, and
/// the change would copy that into the user's file.
Result<std::string> readFile(const std::string& path) {
  auto& files = platform::current().fileQueries;
  const bool isRoot = platform::current().usersAndFolders.userID() == 0;
  return isRoot ? files.readFileItself(path, kLargestFile) : files.readFile(path, kLargestFile);
}

Result<WatchList> readList(const std::string& path) {
  auto bytes = readFile(path);
  if (!bytes) {
    // A folder or a device is no list that could be kept aside.
    const int code = bytes.error().code;
    return code == EINVAL ? systemError(ENOTSUP, path) : bytes.error();
  }
  return WatchList::parse(std::move(bytes).value());
}

Result<std::unique_ptr<platform::FileLock>> waitForLock(const std::string& path) {
  auto& clock = platform::current().clock;
  for (auto waited = std::chrono::nanoseconds(0);; waited += kWaitBetweenTries) {
    auto lock = platform::current().fileLocks.tryLock(path);
    if (lock || lock.error().code != EWOULDBLOCK || waited >= kLongestWait) return lock;
    clock.sleep(kWaitBetweenTries);
  }
}

/// Moves what is no list out of the way, to a name where nothing is.
Result<void> keepAside(const std::string& path) {
  const std::string date = platform::current().clock.now().formattedLocally("%Y-%m-%d %H.%M.%S");
  const std::string name = foundation::deletingPathExtension(path) + " (unreadable " + date;
  for (int number = 1;; ++number) {
    const std::string aside = name + (number == 1 ? "" : " " + std::to_string(number)) + ").plist";
    auto moved = platform::current().fileChanges.move(path, aside);
    if (moved) NSLog("The shortcut keys in %@ can't be read. The file is kept as %@.", path, aside);
    if (moved || moved.error().code != EEXIST) return moved;
  }
}

Result<WatchList> listToChange(const std::string& path, WhenMissing whenMissing) {
  auto list = readList(path);
  if (list || whenMissing == WhenMissing::leave) return list;
  if (list.error().code == ENOENT) return WatchList();
  if (list.error().code != EINVAL) return list;
  if (auto kept = keepAside(path); !kept) return kept.error();
  return WatchList();
}

Result<void> changeUnderLock(const std::string& path, WhenMissing whenMissing,
                             const std::function<void(WatchList&)>& change) {
  if (whenMissing == WhenMissing::create) {
    const std::string folder = foundation::deletingLastPathComponent(path);
    if (auto made = platform::current().fileChanges.createDirectory(folder); !made) return made;
  }
  const auto lock = waitForLock(path);
  if (!lock) return lock.error();
  auto list = listToChange(path, whenMissing);
  if (!list) return list.error();
  change(list.value());
  const auto bytes = list.value().serialize();
  if (!bytes) return bytes.error();
  return platform::current().fileChanges.writeAtomically(path, bytes.value());
}

std::optional<std::uint16_t> shortNumber(const BinaryPropertyList& file, BinaryPropertyList::Object entry,
                                         const char* key) {
  const auto value = file.find(entry, key);
  const auto number = value ? file.integer(*value) : std::nullopt;
  return number ? std::optional(static_cast<std::uint16_t>(*number)) : std::nullopt;
}

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

std::optional<Assignment> WatchList::at(std::size_t index) const {
  const BinaryPropertyList::Object entry = entries_[index];
  if (!file_.isDictionary(entry)) return std::nullopt;
  const auto text = [&](const char* key) {
    const auto value = file_.find(entry, key);
    return value ? file_.text(*value) : std::nullopt;
  };
  return Assignment{text("bundleid").value_or(""), text("commandid"),
                    shortNumber(file_, entry, "keycode").value_or(0),
                    shortNumber(file_, entry, "modifiers").value_or(0)};
}

bool WatchList::belongsTo(std::size_t index, std::string_view bundleId) const {
  return hasText(index, "bundleid", bundleId);
}

bool WatchList::hasCommandId(std::size_t index, std::string_view commandId) const {
  return hasText(index, "commandid", commandId);
}

bool WatchList::hasText(std::size_t index, std::string_view key, std::string_view text) const {
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

std::optional<std::string> assignmentsPath() {
  const auto folder = TGLocalPaths::prefsDirectory(Domain::user);
  if (!folder) return std::nullopt;
  return foundation::appendingPathComponent(*folder, identifiers::kShortcutKeysFile);
}

Result<WatchList> readAssignments() {
  const auto path = assignmentsPath();
  return path ? readList(*path) : systemError(ENOENT, "");
}

bool changeAssignments(WhenMissing whenMissing, const std::function<void(WatchList&)>& change) {
  const auto path = assignmentsPath();
  const auto changed = path ? changeUnderLock(*path, whenMissing, change)
                            : Result<void>(systemError(ENOENT, identifiers::kShortcutKeysFile));
  if (changed) return true;
  const bool isMissing = whenMissing == WhenMissing::leave && changed.error().code == ENOENT;
  if (!isMissing) NSLog("Unable to write the shortcut keys: %@", changed.error().localizedDescription());
  return false;
}

}  // namespace shortcutkeys
