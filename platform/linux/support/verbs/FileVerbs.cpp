#include "platform/linux/support/verbs/FileVerbs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <utility>

#include "platform/foundation/Paths.h"
#include "platform/posix/FileMetadata.h"
#include "platform/posix/GuardedFolders.h"
#include "platform/posix/IndependentProcess.h"
#include "platform/posix/PathEntry.h"
#include "platform/posix/PrivateFolder.h"
#include "platform/posix/TreeRemoval.h"
#include "platform/posix/UniqueDescriptor.h"

namespace platform {
namespace {

using foundation::Error;
using foundation::errorWithReason;
using foundation::Result;
using foundation::systemError;

constexpr int kDeepest = 256;
constexpr mode_t kModeOfNew = 0755;
constexpr int kFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

bool goesOn() {
  return !stopRequested();
}

/// Ended between two steps where the program is asked to stop.
CopyOptions endingWhenAsked(CopyOptions options) {
  options.onProgress = [](const CopyProgress&) { return goesOn(); };
  options.progressInterval = std::chrono::milliseconds(0);
  return options;
}

Result<GuardedPlace> placeOfItem(const std::string& path) {
  auto place = openGuardedPlace(path);
  if (place && !foundation::isItemName(place.value().name)) return systemError(EINVAL, path);
  return place;
}

/// Into a folder, else in the place of what is there.
Result<GuardedPlace> targetOf(const GuardedPlace& source, const std::string& to) {
  auto folder = openGuardedFolder(to);
  if (folder) return GuardedPlace{std::move(folder).value(), source.name};
  const bool isNone = folder.error().code == ENOENT || folder.error().code == ENOTDIR;
  return isNone ? placeOfItem(to) : folder.error();
}

Result<void> renameOnto(int fromFolder, const std::string& fromName, const GuardedPlace& to,
                        const std::string& path) {
  if (::renameat(fromFolder, fromName.c_str(), to.folder.get(), to.name.c_str()) == 0) return {};
  return systemError(errno, path);
}

/// An entry that is held, and what it is.
struct Held {
  UniqueDescriptor descriptor;
  FileStatus status;
};

Result<Held> hold(int folder, const std::string& name, const std::string& path) {
  auto entry = openEntry(folder, name, path);
  if (!entry) return entry.error();
  const auto status = statusOf(entry.value().get(), path);
  if (!status) return status.error();
  return Held{std::move(entry).value(), status.value()};
}

/// One copy that may find something in its place.
class Merge {
 public:
  explicit Merge(const FileStatus& destination) : destination_(destination) {}

  void copy(const ItemPlace& from, const ItemPlace& to, int depth = 0) {
    const auto target = hold(to.folder, to.name, to.path);
    if (!target && target.error().code == ENOENT) return note(copyIntoPlace(from, to, endingWhenAsked({})));
    const auto source = hold(from.folder, from.name, from.path);
    if (!target || !source) return note(target ? source.error() : target.error());
    note(copyOnto(from, source.value(), to, target.value(), depth));
  }

  [[nodiscard]] const Result<void>& outcome() const { return outcome_; }

 private:
  void note(Result<void> result) {
    if (outcome_ && !result) outcome_ = std::move(result);
  }

  Result<void> copyOnto(const ItemPlace& from, const Held& source, const ItemPlace& to, const Held& target,
                        int depth) {
    if (source.status.isSameFile(target.status)) return errorWithReason(EINVAL, to.path, "is the same file");
    if (source.status.isFolder() && target.status.isFolder()) {
      return copyEntries(from, source, to, target, depth);
    }
    if (source.status.isFolder() || target.status.isFolder()) {
      return systemError(source.status.isFolder() ? ENOTDIR : EISDIR, to.path);
    }
    return replace(from, to);
  }

  static Result<void> replace(const ItemPlace& from, const ItemPlace& to) {
    const auto staging = PrivateFolder::make(to.folder, to.path);
    if (!staging) return staging.error();
    const int inside = staging.value().descriptor();
    const auto copied = copyItem(from.folder, from.name, inside, to.name, from.path, endingWhenAsked({}));
    if (!copied) return copied.error();
    if (::renameat(inside, to.name.c_str(), to.folder, to.name.c_str()) == 0) return {};
    return systemError(errno, to.path);
  }

  Result<void> copyEntries(const ItemPlace& from, const Held& source, const ItemPlace& to, const Held& target,
                           int depth) {
    if (source.status.isSameFile(destination_)) {
      return errorWithReason(EINVAL, from.path, "cannot be copied into itself");
    }
    if (depth == kDeepest) return systemError(ENAMETOOLONG, from.path);
    const UniqueDescriptor reading(::openat(source.descriptor.get(), ".", kFolder));
    if (!reading) return systemError(errno, from.path);
    const UniqueDescriptor writing(::openat(target.descriptor.get(), ".", kFolder));
    if (!writing) return systemError(errno, to.path);
    auto names = listedNames(reading.get(), from.path);
    if (!names) return names.error();
    std::string name;
    while (!names.value().empty()) {
      if (!goesOn()) return systemError(ECANCELED, from.path);
      names.value().takeNext(name);
      const std::string fromPath = foundation::appendingPathComponent(from.path, name);
      const std::string toPath = foundation::appendingPathComponent(to.path, name);
      copy({reading.get(), name, fromPath}, {writing.get(), name, toPath}, depth + 1);
    }
    return copyAttributesOf(source.status, reading.get(), target.status, writing.get(), to.path);
  }

  /// A folder does not change hands because somebody has put it in the way.
  static Result<void> copyAttributesOf(const FileStatus& source, int from, const FileStatus& target, int to,
                                       const std::string& path) {
    if (source.owner != target.owner) return {};
    auto done = copyOwnerModeAndAttributes(from, source, to, path, {.fidelity = Fidelity::possible});
    return done ? copyTimes(source, to, path) : done;
  }

  const FileStatus destination_;
  Result<void> outcome_;
};

}  // namespace

Result<void> removePath(const std::string& path) {
  const auto isGone = [](const Error& error) { return error.code == ENOENT || error.code == ENOTDIR; };
  const auto place = placeOfItem(path);
  if (!place) return isGone(place.error()) ? Result<void>() : place.error();
  const int folder = place.value().folder.get();
  const std::string& name = place.value().name;
  const auto removed = removeItem(folder, name, {.mounted = MountedItems::leave, .goesOn = goesOn});
  struct stat status {};
  const bool isThere = ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  if (removed || (!isThere && isGone(removed.error()))) return {};
  return systemError(removed.error().code, path);
}

Result<void> makePath(const std::string& path) {
  if (path.size() >= PATH_MAX) return systemError(ENAMETOOLONG, path);
  const auto made = makeFolderPath(path, {.mode = kModeOfNew, .goesOn = goesOn});
  return made ? Result<void>() : made.error();
}

Result<void> movePath(const std::string& from, const std::string& to, const CopyOptions& options) {
  const auto source = placeOfItem(from);
  if (!source) return source.error();
  const auto target = targetOf(source.value(), to);
  if (!target) return target.error();
  const int folder = source.value().folder.get();
  const std::string& name = source.value().name;
  auto renamed = renameOnto(folder, name, target.value(), from);
  if (renamed || renamed.error().code != EXDEV) return renamed;
  return moveByCopy(
      folder, name, target.value().folder.get(), from,
      [&](int inside, const std::string& made) { return renameOnto(inside, made, target.value(), from); }, {},
      endingWhenAsked(options));
}

Result<void> copyPath(const std::string& from, const std::string& to) {
  const auto source = placeOfItem(from);
  if (!source) return source.error();
  const auto target = targetOf(source.value(), to);
  if (!target) return target.error();
  const auto destination = statusOf(target.value().folder.get(), to);
  if (!destination) return destination.error();
  Merge merge(destination.value());
  merge.copy({source.value().folder.get(), source.value().name, from},
             {target.value().folder.get(), target.value().name, to});
  return merge.outcome();
}

}  // namespace platform
