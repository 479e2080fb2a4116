#include "platform/fakes/FakePlatform.h"
#include "tests/fuzz/Input.h"
#include "tests/fuzz/Targets.h"
#include "ui/ShortcutKeyAssignments.h"

namespace fuzz {
namespace {

using foundation::PropertyList;
using shortcutkeys::WatchList;

void lookAtAll(const WatchList& list) {
  for (std::size_t index = 0; index < list.size(); ++index) {
    const auto entry = list.at(index);
    const bool isFree = !entry || entry->bundleId.empty();
    require(isFree || list.belongsTo(index, entry->bundleId), "an entry belongs to whom it names");
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
