#include <grp.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/Ratio.h"
#include "platform/Platform.h"
#include "platform/foundation/BinaryPropertyList.h"
#include "platform/foundation/Identifiers.h"
#include "tests/support/TemporaryFolder.h"
#include "ui/ShortcutKeyAssignments.h"

namespace {

using foundation::PropertyList;
using shortcutkeys::WatchList;
using shortcutkeys::WhenMissing;

constexpr int entries = 100'000;
constexpr int times = 15;
constexpr double limit = 0.100;
constexpr uid_t nobody = 65534;

PropertyList::Array entriesOfOthers() {
  PropertyList::Array list;
  for (int number = 0; number < entries; ++number) {
    list.push_back(
        PropertyList::Dictionary{{"bundleid", "com.other.Application" + std::to_string(number % 50)},
                                 {"keycode", number % 128},
                                 {"modifiers", 0x1300},
                                 {"commandid", "command" + std::to_string(number)}});
  }
  return list;
}

PropertyList entryOfOurs(int keyCode) {
  return PropertyList::Dictionary{{"bundleid", identifiers::kApplication},
                                  {"keycode", keyCode},
                                  {"modifiers", 0x0100},
                                  {"commandid", "repair"}};
}

/// Seconds: what an assignment takes from the lock to the renamed file.
double assign(int keyCode) {
  const auto begin = std::chrono::steady_clock::now();
  const bool isWritten = shortcutkeys::changeAssignments(WhenMissing::create, [&](WatchList& list) {
    for (std::size_t at = 0; at < list.size(); ++at) {
      if (!list.belongsTo(at, identifiers::kApplication) || !list.hasCommandId(at, "repair")) continue;
      list.erase(at);
      break;
    }
    list.append(entryOfOurs(keyCode));
  });
  if (!isWritten) throw std::runtime_error("the list cannot be written");
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

/// As root the list would be that of the user at the console.
void becomeSomebody() {
  if (::geteuid() != 0) return;
  if (::setgroups(0, nullptr) != 0 || ::setgid(nobody) != 0 || ::setuid(nobody) != 0) {
    throw std::runtime_error("root's rights cannot be given up");
  }
}

int measure() {
  becomeSomebody();
  const support::TemporaryFolder home;
  ::setenv("HOME", home.path().c_str(), 1);
  const PropertyList file = PropertyList::Dictionary{{"watchlist", entriesOfOthers()}};
  const auto bytes = foundation::BinaryPropertyList::serialize(file);
  home.file("Library/Preferences/com.vordenworks.shortcutkeys.plist", bytes.value());
  std::vector<double> seconds;
  for (int time = 0; time < times; ++time) seconds.push_back(assign(time));
  const double middle = bench::median(seconds);
  std::printf("an assignment among 100,000   %9.4f s    (median of %d, at most %.3f s)\n", middle, times,
              limit);
  return middle <= limit ? 0 : 2;
}

}  // namespace

/// usage: shortcut_key_time
/// How long an assignment takes in a list that holds 100,000 entries of other applications, the disk
/// included. Ends with 2 where that is over its limit.
int main() try { return measure(); } catch (const std::exception& failure) {
  std::fprintf(stderr, "%s\n", failure.what());
  return 1;
}
