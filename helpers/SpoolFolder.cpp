#include "helpers/SpoolFolder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <thread>

#include "helpers/SpoolPlace.h"
#include "helpers/ToolPath.h"
#include "platform/foundation/Paths.h"
#include "platform/posix/FileMetadata.h"
#include "platform/posix/FileSystemCalls.h"
#include "platform/posix/PrivateFolder.h"

namespace helpers {
namespace {

using foundation::Result;
using foundation::systemError;
using platform::copyOwnerModeAndAttributes;
using platform::UniqueDescriptor;

constexpr std::chrono::milliseconds kBetweenLooks{10};
constexpr std::size_t kLongestName = 255;
constexpr int kMostAttempts = 500;  // five seconds of others getting in the way

std::string nameWhileEmptying(const std::string& name) {
  const std::string tail = ".emptying";
  return "." + name.substr(0, kLongestName - tail.size() - 1) + tail;
}

bool isVolumeTop(const PathEntry& folder) {
  return !folder.status().isSameVolume(folder.folder().status);
}

UniqueDescriptor openFolderForLock(int folder, const std::string& name) {
  return UniqueDescriptor(openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

bool lock(const UniqueDescriptor& folder) {
  return flock(folder.get(), LOCK_EX | LOCK_NB) == 0;
}

}  // namespace

Result<platform::NameList> contentsOf(const PathEntry& folder) {
  platform::NameList names;
  const bool isTop = isVolumeTop(folder);
  const auto add = [&names, isTop](const dirent& entry) {
    const std::string_view name = entry.d_name;
    if (!isTop || (name != ".Trashes" && name != "lost+found")) names.add(name);
    return true;
  };
  auto listed = platform::listFolder(folder.self().descriptor.get(), folder.path, add);
  if (!listed) return listed.error();
  return names;
}

void SpoolFolder::step(Step reached) const {
  if (onStep_) onStep_(reached);
}

bool SpoolFolder::patienceIsOver() const {
  return std::chrono::steady_clock::now() - start_ >= lockPatience_;
}

ExitStatus SpoolFolder::empty(const std::string& path) {
  start_ = std::chrono::steady_clock::now();
  for (int attempts = 0; !stopRequested(); ++attempts) {
    const auto spool = locateUnprotected(surroundings_, path, LastLink::follow);
    if (!spool && isMissing(spool.error())) return report_.status();
    if (!spool) return reportUnlocated(report_, spool.error());
    if (!spool.value().status().isFolder()) {
      report_.failure(systemError(ENOTDIR, path));
      return report_.status();
    }
    if (!maySpoolBeEmptied(surroundings_, spool.value(), path)) {
      report_.failure(path, "refused: neither a spool folder of Qmaster's nor the user's own");
      return ExitStatus::refused;
    }
    const Outcome outcome = attempts < kMostAttempts ? attempt(spool.value()) : Outcome::impossible;
    if (outcome == Outcome::impossible) moveEntries(spool.value());
    if (outcome != Outcome::again) return report_.status();
    std::this_thread::sleep_for(kBetweenLooks);
  }
  report_.failure(path, "not emptied: asked to stop");
  return report_.status();
}

SpoolFolder::Outcome SpoolFolder::attempt(const PathEntry& spool) {
  step(Step::located);
  if (isVolumeTop(spool)) return Outcome::impossible;
  const Outcome interrupted = finishInterrupted(spool);
  if (interrupted != Outcome::done) return interrupted;
  const auto names = namesIn(spool.self().descriptor.get(), spool.path, 1);
  if (names && names.value().empty()) return Outcome::done;
  if (exchange_ == Exchange::avoid) return Outcome::impossible;
  const UniqueDescriptor old = openFolderForLock(spool.self().descriptor.get(), ".");
  if (!lock(old) && !patienceIsOver()) return Outcome::again;
  auto trash = TrashCan::open(surroundings_, report_, spool.levels, spool.levels.size() - 1);
  if (!trash) {
    report_.failure(trash.error());
    return Outcome::done;
  }
  return exchange(spool, trash.value());
}

/// What a run that was killed has left: an empty folder to be removed, or a full one on its way to the trash.
SpoolFolder::Outcome SpoolFolder::finishInterrupted(const PathEntry& spool) {
  const int parent = spool.folder().descriptor.get();
  const std::string name = nameWhileEmptying(spool.name());
  if (auto entry = openEntry(parent, name, name); !entry && entry.error().code == ENOENT)
    return Outcome::done;
  const UniqueDescriptor left = openFolderForLock(parent, name);
  if (!left) return errno == ENOENT ? Outcome::again : Outcome::impossible;
  if (!lock(left)) return patienceIsOver() ? Outcome::impossible : Outcome::again;
  if (unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT) return Outcome::again;
  auto trash = TrashCan::open(surroundings_, report_, spool.levels, spool.levels.size() - 1);
  if (!trash) {
    report_.failure(trash.error());
    return Outcome::impossible;
  }
  const std::string path = foundation::deletingLastPathComponent(spool.path) + "/" + name;
  const auto names = TrashName::ofContents(spool.name(), surroundings_.now());
  const auto taken = trash.value().take(parent, name, path, names);
  if (!taken) {
    report_.failure(taken.error());
    return Outcome::impossible;
  }
  report_.moved(spool.path, trash.value().path() + "/" + taken.value());
  return Outcome::again;
}

SpoolFolder::Outcome SpoolFolder::exchange(const PathEntry& spool, TrashCan& trash) {
  const int parent = spool.folder().descriptor.get();
  const std::string name = nameWhileEmptying(spool.name());
  if (mkdirat(parent, name.c_str(), 0700) != 0) {
    return errno == EEXIST ? Outcome::again : Outcome::impossible;
  }
  step(Step::made);
  const UniqueDescriptor fresh = openFolderForLock(parent, name);
  if (!fresh || !lock(fresh)) return Outcome::again;  // another run took it for a left one
  // The name alone does not say that it is the folder that was made.
  if (auto ours = platform::requireFreshFolder(fresh.get(), 0700, spool.path); !ours) {
    report_.failure(ours.error());
    return Outcome::done;
  }
  const Outcome outcome = exchangeWith(spool, fresh.get(), trash);
  if (outcome == Outcome::impossible) unlinkat(parent, name.c_str(), AT_REMOVEDIR);
  return outcome;
}

SpoolFolder::Outcome SpoolFolder::exchangeWith(const PathEntry& spool, int fresh, TrashCan& trash) {
  const UniqueDescriptor old = openFolderForLock(spool.self().descriptor.get(), ".");
  if (!old) return Outcome::impossible;
  auto alike = copyOwnerModeAndAttributes(old.get(), spool.status(), fresh, spool.path);
  if (!alike) return Outcome::impossible;
  step(Step::prepared);
  const std::string name = nameWhileEmptying(spool.name());
  const int reason = platform::exchangeNames(spool.folder().descriptor.get(), name, spool.name());
  if (reason != 0) {
    return reason == ENOENT ? Outcome::again : Outcome::impossible;
  }
  step(Step::exchanged);
  return trashExchanged(spool, trash);
}

SpoolFolder::Outcome SpoolFolder::trashExchanged(const PathEntry& spool, TrashCan& trash) {
  const int parent = spool.folder().descriptor.get();
  const std::string name = nameWhileEmptying(spool.name());
  // Empty where another run has been quicker.
  if (unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0) return Outcome::done;
  const auto names = TrashName::ofContents(spool.name(), surroundings_.now());
  if (const auto taken = trash.take(parent, name, spool.path, names)) {
    report_.moved(spool.path, trash.path() + "/" + taken.value());
  } else {
    report_.failure(taken.error());
    putBack(spool);
  }
  step(Step::trashed);
  return Outcome::done;
}

/// What writers have added since the exchange goes back with the rest.
void SpoolFolder::putBack(const PathEntry& spool) {
  const int parent = spool.folder().descriptor.get();
  const std::string name = nameWhileEmptying(spool.name());
  if (const int reason = platform::exchangeNames(parent, name, spool.name()); reason != 0) {
    return report_.failure(systemError(reason, spool.folder().name + "/" + name));
  }
  if (unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0) return;
  auto added = openEntry(parent, name, spool.path, O_DIRECTORY);
  if (!added) return report_.failure(added.error());
  const auto entries = namesIn(added.value().get(), spool.path);
  if (!entries) return report_.failure(entries.error());
  for (const std::string& entry : entries.value()) {
    const std::string path = spool.path + "/" + entry;
    const auto moved =
        renameWithoutReplacing(added.value().get(), entry, spool.self().descriptor.get(), entry, path);
    if (!moved) report_.failure(moved.error());
  }
  unlinkat(parent, name.c_str(), AT_REMOVEDIR);
}

void SpoolFolder::moveEntries(const PathEntry& spool) {
  auto entries = contentsOf(spool);
  if (!entries) return report_.failure(entries.error());
  if (entries.value().empty()) return;
  auto trash = TrashCan::open(surroundings_, report_, spool.levels, spool.levels.size());
  if (!trash) return report_.failure(trash.error());
  const auto folder = trash.value().makeFolder(TrashName::ofContents(spool.name(), surroundings_.now()),
                                               spool.status(), [this] { step(Step::made); });
  if (!folder) return report_.failure(folder.error());
  auto dated = trash.value().opened(folder.value());
  if (!dated) return report_.failure(dated.error());
  report_.moved(spool.path, dated.value().path());
  while (!entries.value().empty()) {
    const std::string entry = entries.value().next();
    if (stopRequested()) {
      report_.failure(spool.path, "not finished: asked to stop");
      break;
    }
    const std::string path = spool.path + "/" + entry;
    const auto taken = dated.value().take(spool.self().descriptor.get(), entry, path,
                                          TrashName::ofItem(entry, surroundings_.now()));
    if (!taken && !isMissing(taken.error())) report_.failure(taken.error());
  }
  trash.value().removeIfEmpty(folder.value());
}

}  // namespace helpers
