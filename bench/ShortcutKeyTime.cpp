#include <grp.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
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

constexpr int times = 15;
constexpr double limit = 0.100;  ///< seconds, of an assignment
constexpr uid_t nobody = 65534;

PropertyList listOfOthers(int entries) {
  PropertyList::Array list;
  for (int number = 0; number < entries; ++number) {
    list.push_back(
        PropertyList::Dictionary{{"bundleid", "com.other.Application" + std::to_string(number % 50)},
                                 {"keycode", number % 128},
                                 {"modifiers", 0x1300},
                                 {"commandid", "command" + std::to_string(number)}});
  }
  return PropertyList::Dictionary{{"watchlist", list}};
}

PropertyList entryOfOurs(int keyCode) {
  return PropertyList::Dictionary{{"bundleid", identifiers::kApplication},
                                  {"keycode", keyCode},
                                  {"modifiers", 0x1300},
                                  {"commandid", "repair"}};
}

/// From the lock to the renamed file, and what the table then says of it: who else holds the keys.
void assign(int keyCode) {
  std::size_t holders = 0;
  const auto isWritten = shortcutkeys::changeAssignments(WhenMissing::create, [&](WatchList& list) {
    for (const std::size_t index : list.entriesOf(identifiers::kApplication)) {
      if (!list.hasCommandId(index, "repair")) continue;
      list.erase(index);
      break;
    }
    list.append(entryOfOurs(keyCode));
    holders = shortcutkeys::keysOf(list, identifiers::kApplication).at("repair").otherHolders.size();
  });
  if (!isWritten || holders == 0) throw std::runtime_error("the list cannot be written");
}

/// What no program can do without: the same bytes read, and written so that they last.
void readAndReplace(const std::string& path) {
  auto& system = platform::current();
  const auto bytes = system.fileQueries.readFile(path, shortcutkeys::kLargestFile);
  if (!bytes || !system.fileChanges.writeAtomically(path, bytes.value())) {
    throw std::runtime_error("the list cannot be replaced");
  }
}

void show() {
  const auto list = shortcutkeys::readAssignments();
  if (!list) throw std::runtime_error("the list cannot be read");
  static_cast<void>(shortcutkeys::keysOf(list.value(), identifiers::kApplication));
}

void parse(const std::string& path) {
  const auto bytes = platform::current().fileQueries.readFile(path, shortcutkeys::kLargestFile);
  const platform::PropertyListLimits limits{shortcutkeys::kLargestFile, shortcutkeys::kMostValues};
  if (!bytes || !platform::current().propertyLists.parse(bytes.value(), limits)) {
    throw std::runtime_error("the list cannot be parsed");
  }
}

/// `before` is done before each of the works, and not measured.
bench::Medians compare(
    const char* what, const char* peerName, const std::function<void()>& subject,
    const std::function<void()>& peer, const std::function<void()>& before = [] {}) {
  const auto measured = [&](const std::function<void()>& work) {
    before();
    return bench::secondsOf(work);
  };
  const auto medians =
      bench::compareInTurn([&] { return measured(subject); }, [&] { return measured(peer); }, times);
  std::printf("%-28s %8.4f s; %-24s %8.4f s; ratio %6.2f    (median of %d)\n", what, medians.subject,
              peerName, medians.peer, medians.subject / medians.peer, times);
  return medians;
}

/// As root the list would be that of the user at the console.
void becomeSomebody() {
  if (::geteuid() != 0) return;
  if (::setgroups(0, nullptr) != 0 || ::setgid(nobody) != 0 || ::setuid(nobody) != 0) {
    throw std::runtime_error("root's rights cannot be given up");
  }
}

constexpr const char* name = "Library/Preferences/com.vordenworks.shortcutkeys.plist";

bench::Medians assignAmong(const char* what, int entries, const support::TemporaryFolder& home) {
  const std::string path =
      home.file(name, foundation::BinaryPropertyList::serialize(listOfOthers(entries)).value());
  int keyCode = 0;
  return compare(
      what, "reading and replacing", [&] { assign(++keyCode % 128); }, [&] { readAndReplace(path); });
}

void measureShowing(const support::TemporaryFolder& home) {
  const PropertyList list = listOfOthers(100'000);
  const auto xml = platform::current().propertyLists.serialize(list, platform::PropertyListFormat::xml);
  const std::string path = home.file(name, xml.value());
  compare("showing 100,000 in XML", "parsing alone", show, [&] { parse(path); });
  int keyCode = 0;
  // An assignment leaves a binary list behind.
  compare(
      "an assignment in XML", "parsing alone", [&] { assign(++keyCode % 128); }, [&] { parse(path); },
      [&] { home.file(name, xml.value()); });
  home.file(name, foundation::BinaryPropertyList::serialize(list).value());
  compare("showing 100,000", "parsing alone", show, [&] { parse(path); });
}

/// For a profiler.
int assignOnce(int entries, const support::TemporaryFolder& home) {
  home.file(name, foundation::BinaryPropertyList::serialize(listOfOthers(entries)).value());
  assign(1);
  return 0;
}

int measure(int argc, char** argv) {
  becomeSomebody();
  const support::TemporaryFolder home;
  ::setenv("HOME", home.path().c_str(), 1);
  if (argc > 1) return assignOnce(std::atoi(argv[1]), home);
  assignAmong("an assignment among 1,000", 1'000, home);
  assignAmong("an assignment among 10,000", 10'000, home);
  const auto assigned = assignAmong("an assignment among 100,000", 100'000, home);
  measureShowing(home);
  std::printf("an assignment among 100,000: at most %.3f s\n", limit);
  return assigned.subject <= limit ? 0 : 2;
}

}  // namespace

/// usage: shortcut_key_time [ENTRIES]
/// How long an assignment takes in a list that holds 1,000, 10,000 and 100,000 entries of other applications,
/// the disk and what the table says of it included, and what it takes to show such a list. With a number only
/// one assignment is made, among that many entries, and nothing measured. Ends with 2 where an assignment is
/// over its limit.
int main(int argc, char** argv) try { return measure(argc, argv); } catch (const std::exception& failure) {
  std::fprintf(stderr, "%s\n", failure.what());
  return 1;
}
