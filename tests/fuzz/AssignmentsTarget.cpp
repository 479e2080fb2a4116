#include <algorithm>

#include "platform/fakes/FakePlatform.h"
#include "tests/fuzz/Input.h"
#include "tests/fuzz/Targets.h"
#include "ui/ShortcutKeyAssignments.h"

namespace fuzz {
namespace {

using foundation::PropertyList;
using shortcutkeys::WatchList;

/// Each look goes through the whole list: enough of them, and the time for one input stays short.
constexpr std::size_t kMostSearches = 16;

bool holds(const std::vector<std::size_t>& indexes, std::size_t index) {
  return std::find(indexes.begin(), indexes.end(), index) != indexes.end();
}

void searchFor(const WatchList& list, std::size_t index, const shortcutkeys::Assignment& entry) {
  const bool isFree = entry.bundleId.empty();
  require(isFree || holds(list.entriesOf(entry.bundleId), index), "an entry belongs to whom it names");
  require(entry.keys == list.keys(index), "an entry has the same keys, however they are asked for");
  require(!entry.keys || holds(list.holdersOf({*entry.keys}), index),
          "an entry holds the keys that it names");
}

void lookAtAll(const WatchList& list) {
  for (std::size_t index = 0; index < list.size(); ++index) {
    const auto entry = list.at(index);
    if (entry && index < kMostSearches) searchFor(list, index, *entry);
    const auto command = entry ? entry->commandId : std::nullopt;
    require(!command || list.hasCommandId(index, *command), "an entry has the command that it names");
    static_cast<void>(list.hasParams(index, {"a", "b"}));
  }
}

void changeAndRead(WatchList list) {
  const std::size_t before = list.size();
  if (before > 0) list.erase(before / 2);
  list.append(PropertyList::Dictionary{{"bundleid", "com.example"}, {"commandid", "new"}, {"keycode", 7}});
  const auto bytes = list.serialize();
  require(bytes.ok(), "what was read can be written");
  const auto again = WatchList::parse(bytes.value());
  require(again.ok(), "what was written can be read");
  const WatchList& now = again.value();
  require(now.size() == (before > 0 ? before : 1), "one less, one more");
  const shortcutkeys::Assignment expected{"com.example", "new", shortcutkeys::Combination{7, 0}};
  require(now.at(now.size() - 1) == expected, "the new one is the last");
}

}  // namespace

void changeAssignments(std::string_view input) {
  static fakes::FakePlatform platform;
  const auto list = WatchList::parse(std::string(input));
  if (!list) return;
  lookAtAll(list.value());
  changeAndRead(list.value());
}

}  // namespace fuzz
