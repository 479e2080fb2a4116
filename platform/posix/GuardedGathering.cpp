#include "platform/posix/GuardedGathering.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <utility>

#include "platform/UsersAndFolders.h"
#include "platform/foundation/Paths.h"
#include "platform/posix/AccessLists.h"
#include "platform/posix/FileRights.h"
#include "platform/posix/FileTimes.h"
#include "platform/posix/GuardedFolders.h"
#include "platform/posix/HeldEntries.h"
#include "platform/posix/UniqueDescriptor.h"

namespace platform {
namespace {

using foundation::errorWithReason;
using foundation::Result;
using foundation::systemError;

/// nullopt: those that the process has.
using Rights = std::optional<FileRights>;

constexpr std::size_t kPieceSize = 256UL << 10;
constexpr int kReading = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

bool isRoot() {
  return ::geteuid() == 0;
}

/// The rights to look with; an error for a reader that is not known, for whom nothing can be read.
Result<Rights> rightsFor(const Reader& reader, const std::string& path) {
  if (!isRoot() || !reader) return Rights();
  Rights rights = fileRightsOf(*reader);
  if (!rights) return systemError(EACCES, path);
  return rights->user == 0 ? Rights() : std::move(rights);
}

/// A path with a zero byte would be cut short in the system's hands, and mean another item.
bool isWhole(const std::string& path) {
  return path.find('\0') == std::string::npos;
}

/// `open` answers a descriptor.
template <typename Open>
UniqueDescriptor openWith(const Rights& rights, Open open) {
  const FileRightsScope scope(rights);
  if (!scope.isInForce()) {
    errno = EPERM;
    return {};
  }
  return open();
}

/// An item held fast: neither renaming nor exchanging it makes it another one.
struct Item {
  UniqueDescriptor descriptor;
  struct stat status {};
};

Result<Item> lookAt(const Rights& rights, int folder, const std::string& name, LastLink lastLink,
                    const std::string& path) {
  Item item{openWith(rights, [&] { return holdEntry(folder, name, lastLink); })};
  if (!item.descriptor || ::fstat(item.descriptor.get(), &item.status) != 0) return systemError(errno, path);
  return item;
}

UniqueDescriptor openForReading(const Rights& rights, const Item& item, int flags) {
  return openWith(rights, [&] { return openHeld(item.descriptor.get(), kReading | flags); });
}

std::string targetOf(const Item& link) {
  auto target = targetOfLink(link.descriptor.get(), "");
  return target ? std::move(target).value() : std::string();
}

std::string destinationOf(const std::string& target, const std::string& linkPath) {
  std::string expanded = expandingTildeInPath(target);
  if (expanded.starts_with('/')) return expanded;
  return foundation::appendingPathComponent(foundation::deletingLastPathComponent(linkPath), expanded);
}

/// Adds what it copied to `at`, which does not come up to `end` when the file is cut meanwhile. Answers 0 or
/// an errno value.
int copyBytes(int from, int to, off_t& at, off_t end) {
  if (::lseek(from, at, SEEK_SET) < 0 || ::lseek(to, at, SEEK_SET) < 0) return errno;
  std::string piece(kPieceSize, '\0');
  while (at < end) {
    const auto wanted = std::min(piece.size(), static_cast<std::size_t>(end - at));
    const ssize_t length = ::read(from, piece.data(), wanted);
    if (length < 0 && errno == EINTR) continue;
    if (length < 0) return errno;
    if (length == 0) return 0;
    for (ssize_t written = 0; written < length;) {
      const ssize_t step = ::write(to, piece.data() + written, static_cast<std::size_t>(length - written));
      if (step < 0 && errno != EINTR) return errno;
      written += std::max<ssize_t>(step, 0);
    }
    at += length;
  }
  return 0;
}

/// How long a file is whose content was met up to there, and nothing but a hole or the end behind it.
off_t lengthOf(int file, off_t met, off_t most) {
  struct stat status {};
  if (::fstat(file, &status) != 0) return met;
  return std::max(met, std::min(most, status.st_size));
}

/// Copies the first `size` bytes, the holes among them as holes: a file may be said to be far longer than any
/// disk. One that is cut meanwhile ends behind what was met of it. Answers 0 or an errno value.
int copyContents(int from, int to, off_t size) {
  off_t met = 0;
  while (met < size) {
    const off_t data = ::lseek(from, met, SEEK_DATA);
    const off_t hole = data < 0 ? data : ::lseek(from, data, SEEK_HOLE);
    if (hole < 0 && errno != ENXIO) return errno;
    if (hole < 0 || data >= size) {
      size = lengthOf(from, met, size);
      break;
    }
    off_t at = data;
    if (const int reason = copyBytes(from, to, at, std::min(hole, size)); reason != 0) return reason;
    if (at > data) met = at;
    if (at < std::min(hole, size)) size = met;
  }
  return ::ftruncate(to, size) == 0 ? 0 : errno;
}

std::array<timespec, 2> timesOf(const struct stat& status) {
  return {accessTime(status), modificationTime(status)};
}

/// A file under way; gone with the object unless it was kept.
class NewFile {
 public:
  explicit NewFile(const std::string& path)
      : path_(path), descriptor_(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)) {}
  ~NewFile() {
    if (descriptor_ && !kept_) ::unlink(path_.c_str());
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  [[nodiscard]] bool isOpen() const { return static_cast<bool>(descriptor_); }
  [[nodiscard]] int descriptor() const { return descriptor_.get(); }

  /// The copy's own owner, who packs it, can read it whatever the original's mode says.
  bool keep(const struct stat& original) {
    const auto times = timesOf(original);
    kept_ = ::fchmod(descriptor_.get(), (original.st_mode & 0777U) | S_IRUSR) == 0 &&
            ::futimens(descriptor_.get(), times.data()) == 0;
    return kept_;
  }

 private:
  const std::string& path_;
  UniqueDescriptor descriptor_;
  bool kept_ = false;
};

class ItemCopy {
 public:
  ItemCopy(const Reader& reader, Rights rights)
      : readsAsOwner_(isRoot() && !reader), rights_(std::move(rights)) {}

  Result<void> copy(int folder, const std::string& name, const std::string& path, const std::string& to,
                    AtLink atLink) {
    const auto item = lookAt(rights_, folder, name, LastLink::keep, path);
    if (!item) return item.error();
    const Rights reading = readingRights(item.value());
    switch (item.value().status.st_mode & S_IFMT) {
      case S_IFREG:
        return copyFile(reading, item.value(), path, to);
      case S_IFLNK:
        return copyLink(reading, item.value(), path, to, atLink);
      case S_IFDIR:
        return copyFolder(reading, item.value(), path, to);
      default:
        return systemError(ENOTSUP, path);
    }
  }

 private:
  /// Whoever may change the folder can have given a name in it to anybody's file: one with further names is
  /// read as everybody could.
  [[nodiscard]] Rights readingRights(const Item& item) const {
    if (!readsAsOwner_) return rights_;
    if (!S_ISDIR(item.status.st_mode) && item.status.st_nlink > 1) return rightsOfEverybody();
    return item.status.st_uid == 0 ? Rights() : fileRightsOf(item.status.st_uid);
  }

  static Result<void> copyFile(const Rights& rights, const Item& item, const std::string& path,
                               const std::string& to) {
    const UniqueDescriptor source = openForReading(rights, item, 0);
    struct stat status {};
    if (!source || ::fstat(source.get(), &status) != 0) return systemError(errno, path);
    NewFile file(to);
    if (!file.isOpen()) return systemError(errno, to);
    const int reason = copyContents(source.get(), file.descriptor(), status.st_size);
    if (reason != 0) return systemError(reason, path);
    if (!file.keep(status)) return systemError(errno, to);
    return {};
  }

  static Result<void> copyLink(const Rights& rights, const Item& link, const std::string& path,
                               const std::string& to, AtLink atLink) {
    const std::string target = targetOf(link);
    if (atLink == AtLink::copyDestination) {
      const std::string destination = destinationOf(target, path);
      const auto item = lookAt(rights, AT_FDCWD, destination, LastLink::follow, destination);
      if (item && S_ISREG(item.value().status.st_mode)) {
        return copyFile(rights, item.value(), destination, to);
      }
    }
    if (::symlink(target.c_str(), to.c_str()) != 0) return systemError(errno, to);
    return {};
  }

  Result<void> copyFolder(const Rights& rights, const Item& item, const std::string& path,
                          const std::string& to) {
    const UniqueDescriptor folder = openForReading(rights, item, O_DIRECTORY);
    if (!folder) return systemError(errno, path);
    auto names = namesIn(folder.get(), path);
    if (!names) return names.error();
    std::sort(names.value().begin(), names.value().end());
    if (::mkdir(to.c_str(), 0700) != 0) return systemError(errno, to);
    for (const std::string& name : names.value()) {
      auto copied = copy(folder.get(), name, foundation::appendingPathComponent(path, name),
                         foundation::appendingPathComponent(to, name), AtLink::copyLink);
      if (!copied) return copied;
    }
    return finishFolder(item, to);
  }

  /// Last, because what is put into a folder changes its times. Its owner must be able to empty it.
  static Result<void> finishFolder(const Item& item, const std::string& to) {
    const auto times = timesOf(item.status);
    if (::chmod(to.c_str(), (item.status.st_mode & 0777U) | S_IRWXU) != 0 ||
        ::utimensat(AT_FDCWD, to.c_str(), times.data(), AT_SYMLINK_NOFOLLOW) != 0) {
      return systemError(errno, to);
    }
    return {};
  }

  const bool readsAsOwner_;
  const Rights rights_;
};

class LockedFolder : public FolderInUse {
 public:
  explicit LockedFolder(UniqueDescriptor folder) : folder_(std::move(folder)) {}

 private:
  UniqueDescriptor folder_;
};

/// Opens one entry of an open folder, if it is a folder.
UniqueDescriptor openFolderIn(int folder, const std::string& name) {
  return UniqueDescriptor(::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

/// Who had it locked may have removed it before we got the lock.
Result<std::unique_ptr<FolderInUse>> locked(UniqueDescriptor folder, const std::string& path) {
  if (!folder) return systemError(errno, path);
  struct stat status {};
  const bool isTaken = ::flock(folder.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  if (isTaken || ::fstat(folder.get(), &status) != 0 || status.st_nlink == 0) {
    return errorWithReason(EBUSY, path, "another gathering is using it");
  }
  return std::unique_ptr<FolderInUse>(std::make_unique<LockedFolder>(std::move(folder)));
}

bool onlyRootCanExchangeItems(int held, const struct stat& folder) {
  return folder.st_uid == 0 && ((folder.st_mode & 0022U) == 0 || (folder.st_mode & S_ISVTX) != 0) &&
         !mayBeWrittenByList(held, folder.st_mode & static_cast<mode_t>(~S_IWGRP));
}

/// The items of root's in an open folder, it itself and the folders above it: what lies at a path in it stays
/// there.
bool onlyRootCanExchangeItemsIn(int folder) {
  UniqueDescriptor above;
  struct stat status {};
  struct stat below {};
  for (int at = folder; ::fstat(at, &status) == 0; at = above.get()) {
    if (status.st_dev == below.st_dev && status.st_ino == below.st_ino) return true;
    if (!onlyRootCanExchangeItems(at, status)) return false;
    below = status;
    above = holdFolder(at, "..");
  }
  return false;
}

}  // namespace

Result<std::unique_ptr<FolderInUse>> GuardedGathering::createPrivateFolder(const std::string& path) {
  const int reason = makeFolders(foundation::deletingLastPathComponent(path));
  if (reason != 0) return systemError(reason, path);
  const auto place = openGuardedPlace(path);
  if (!place) return place.error();
  const int folder = place.value().folder.get();
  const std::string& name = place.value().name;
  if (isRoot() && !onlyRootCanExchangeItemsIn(folder)) return systemError(EPERM, path);
  if (::mkdirat(folder, name.c_str(), 0700) != 0) return systemError(errno, path);
  return locked(openFolderIn(folder, name), path);
}

Result<std::unique_ptr<FolderInUse>> GuardedGathering::useLeftFolder(const std::string& path) {
  const auto place = openGuardedPlace(path);
  if (!place) return std::unique_ptr<FolderInUse>();
  UniqueDescriptor folder = openFolderIn(place.value().folder.get(), place.value().name);
  struct stat status {};
  // What is somebody else's they may lock for ever.
  const bool isOurs = folder && ::fstat(folder.get(), &status) == 0 && status.st_uid == ::geteuid();
  if (!isOurs) return std::unique_ptr<FolderInUse>();
  return locked(std::move(folder), path);
}

Result<std::vector<std::string>> GuardedGathering::contentsOfDirectory(const Reader& reader,
                                                                       const std::string& path) {
  const auto rights = rightsFor(reader, path);
  if (!rights) return rights.error();
  const FileRightsScope scope(rights.value());
  if (!scope.isInForce()) return systemError(EPERM, path);
  return queries_.contentsOfDirectory(path);
}

bool GuardedGathering::exists(const Reader& reader, const std::string& path) {
  const auto rights = rightsFor(reader, path);
  if (!rights || !isWhole(path)) return false;
  const FileRightsScope scope(rights.value());
  return scope.isInForce() && queries_.exists(path);
}

Result<void> GuardedGathering::copy(const Reader& reader, const std::string& from, const std::string& to,
                                    AtLink atLink) {
  if (!isWhole(from) || !isWhole(to)) return systemError(EINVAL, from);
  auto rights = rightsFor(reader, from);
  if (!rights) return rights.error();
  return ItemCopy(reader, std::move(rights).value()).copy(AT_FDCWD, from, from, to, atLink);
}

}  // namespace platform
