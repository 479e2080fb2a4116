#include "platform/posix/TreeCopy.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <utility>

#include "platform/posix/ExclusiveRename.h"
#include "platform/posix/FileContents.h"
#include "platform/posix/FileSystemCalls.h"
#include "platform/posix/GuardedFolders.h"
#include "platform/posix/PrivateFolder.h"

namespace platform {
namespace {

using foundation::Error;
using foundation::errorWithReason;
using foundation::Result;
using foundation::systemError;

constexpr int kDeepest = 256;
constexpr int kReading = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr int kFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

using FileKey = std::pair<std::uint64_t, std::uint64_t>;

FileKey keyOf(const FileStatus& status) {
  return {status.device, status.inode};
}

bool isSameTime(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool isSameKind(const FileStatus& a, const FileStatus& b) {
  return a.isSameFile(b) && ((a.mode ^ b.mode) & S_IFMT) == 0;
}

/// For a folder its entries count, each by itself. The time of change of a file with several names is not
/// looked at: it changes when one of them is removed.
bool isUnchanged(const FileStatus& now, const FileStatus& then) {
  if (!isSameKind(now, then)) return false;
  if (now.isFolder()) return true;
  return now.size == then.size && now.mode == then.mode && isSameTime(now.modified, then.modified) &&
         (then.links > 1 || isSameTime(now.changed, then.changed));
}

struct FolderEntry {
  ino_t inode = 0;
  unsigned char type = DT_UNKNOWN;
  std::string name;
};

/// The entries of a folder, in little more than the room of their names. They are given out in the order of
/// their inodes, in which a disk reads them fastest: of some thousands at a time, as they come.
class FolderEntries {
 public:
  void add(const dirent& entry) {
    portion_.push_back({entry.d_ino, entry.d_type, entry.d_name});
    if (portion_.size() == kPortion) sortIn();
  }
  void end() {
    sortIn();
    portion_ = {};
  }
  [[nodiscard]] bool empty() const { return names_.empty(); }
  /// The type and the name. REQUIRES that it is not empty.
  unsigned char takeNext(std::string& name) {
    names_.takeNext(name);
    const auto type = static_cast<unsigned char>(name.front() - kFirstType);
    name.erase(0, 1);
    return type;
  }

 private:
  static constexpr std::size_t kPortion = 16'384;
  static constexpr char kFirstType = 'a';  // DT_UNKNOWN is 0, which would end the name

  void sortIn() {
    std::sort(portion_.begin(), portion_.end(),
              [](const FolderEntry& a, const FolderEntry& b) { return a.inode < b.inode; });
    for (const FolderEntry& entry : portion_) {
      names_.add(static_cast<char>(kFirstType + entry.type) + entry.name);
    }
    portion_.clear();
  }

  std::vector<FolderEntry> portion_;
  NameList names_;
};

/// Listing a large folder takes its time, so `goesOn` is asked for each.
template <typename GoesOn>
Result<FolderEntries> entriesIn(int folder, const std::string& path, GoesOn goesOn) {
  FolderEntries entries;
  bool isCancelled = false;
  const auto add = [&](const dirent& entry) {
    entries.add(entry);
    isCancelled = !goesOn();
    return !isCancelled;
  };
  if (auto listed = listFolder(folder, path, add); !listed) return listed.error();
  if (isCancelled) return systemError(ECANCELED, path);
  entries.end();
  return entries;
}

/// Adds a component to the path in hand while it lives.
class Below {
 public:
  Below(std::string& path, const std::string& name) : path_(path), length_(path.size()) {
    if (!path.ends_with('/')) path += '/';
    path += name;
  }
  ~Below() { path_.resize(length_); }
  Below(const Below&) = delete;
  Below& operator=(const Below&) = delete;

 private:
  std::string& path_;
  std::size_t length_;
};

struct Place {
  int folder;
  const std::string& name;
};

/// One copy from its beginning to its end.
class TreeCopy {
 public:
  TreeCopy(int toFolder, std::string path, const CopyOptions& options)
      : toFolder_(toFolder),
        path_(std::move(path)),
        topLength_(path_.size() - (path_.ends_with('/') ? 1 : 0)),
        options_(options),
        metadata_{options.privileges, options.fidelity},
        takesDevices_(options.privileges == Privileges::keep),
        pace_(options.onProgress, options.progressInterval, path_) {}

  Result<CopiedItem> run(const Place& from, const Place& to) {
    const auto target = statusOf(toFolder_, path_);
    if (!target) return target.error();
    toStatus_ = target.value();
    topName_ = to.name;
    // Opened before anything is written, so that it tells of every failure to write.
    const UniqueDescriptor volume(::openat(toFolder_, ".", kFolder));
    if (!volume) return fail(errno);
    CopiedItem item{from.name, {}};
    Result<void> done = copyAny(from, DT_UNKNOWN, to, item, 0);
    if (done && options_.flush == Flush::sync) done = flush(volume);
    if (done && options_.check == Check::compare) done = compare(from, to, item);
    if (!done) {
      if (madeTop_) static_cast<void>(removeItem(to.folder, to.name));
      return done.error();
    }
    pace_.end();
    return item;
  }

 private:
  [[nodiscard]] Error fail(int reason) const { return systemError(reason, path_); }
  [[nodiscard]] Error fail(int reason, const char* why) const { return errorWithReason(reason, path_, why); }
  [[nodiscard]] Error changed() const { return fail(EBUSY, "changed while it was copied"); }

  Result<void> flush(const UniqueDescriptor& volume) const {
    if (const int reason = flushVolume(volume.get()); reason != 0) return fail(reason);
    return {};
  }

  Result<void> copyAny(const Place& from, unsigned char type, const Place& to, CopiedItem& item, int depth) {
    auto copied = type == DT_REG ? copyFile(from, nullptr, to, item) : copyLookedAt(from, to, item, depth);
    if (!copied) return copied;
    return pace_.finishedObject() ? Result<void>() : fail(ECANCELED);
  }

  /// What may be something else than a regular file is looked at before it is opened: opening a device can do
  /// something, and looking at what is mounted can take for ever.
  Result<void> copyLookedAt(const Place& from, const Place& to, CopiedItem& item, int depth) {
    auto entry = openEntry(from.folder, from.name, path_);
    if (!entry) return entry.error();
    if (auto noted = note(entry.value().get(), item); !noted) return noted;
    if (item.status.isRegular()) return copyFile(from, &item.status, to, item);
    if (item.status.isFolder()) return copyFolder(entry.value().get(), to, item, depth);
    return copyOther(entry.value().get(), to, item.status);
  }

  /// Takes down the status of what is copied.
  Result<void> note(int entry, CopiedItem& item) {
    auto status = statusOf(entry, path_);
    if (!status) return status.error();
    item.status = status.value();
    if (!top_ || !item.status.isSameVolume(*top_)) {
      if (auto heeded = heedMount(entry, item.status); !heeded) return heeded;
    }
    if (!top_) top_ = item.status;
    if (options_.mounts == Mounts::refuse && !item.status.isSameVolume(*top_)) {
      return fail(EXDEV, "another volume is mounted there");
    }
    return {};
  }

  /// What the mount it is read through does not let take effect is not to take effect because root copied it.
  Result<void> heedMount(int entry, const FileStatus& status) {
    MountEffects effects;
    if (::geteuid() != 0 || status.isSameVolume(toStatus_)) return {};
    if (const int reason = mountEffects(entry, effects); reason != 0) return fail(reason);
    if (!effects.setIds) metadata_.privileges = Privileges::drop;
    if (!effects.devices) takesDevices_ = false;
    return {};
  }

  Result<void> copyFile(const Place& from, const FileStatus* seen, const Place& to, CopiedItem& item) {
    const UniqueDescriptor source(::openat(from.folder, from.name.c_str(), kReading));
    if (!source) return fail(errno);
    const FileStatus before = seen != nullptr ? *seen : FileStatus();
    if (auto noted = note(source.get(), item); !noted) return noted;
    if (!item.status.isRegular() || (seen != nullptr && !item.status.isSameFile(before))) return changed();
    if (linkToFirstCopy(item.status, to)) return {};
    const mode_t mode = modeOfCopy(item.status, metadata_.privileges) & 0777U;
    // Ours to write while it is made, whatever it will be.
    UniqueDescriptor copy(::openat(to.folder, to.name.c_str(),
                                   O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode | 0600U));
    if (!copy) return fail(errno);
    madeTop_ = true;
    if (auto copied = copyContents(source.get(), item.status, copy.get(), pace_, path_); !copied)
      return copied;
    if (auto finished = finish(source.get(), item.status, copy.get()); !finished) return finished;
    return close(std::move(copy));
  }

  /// A network volume, and one with a quota, may say only now that it could not store what was written.
  [[nodiscard]] Result<void> close(UniqueDescriptor copy) const {
    if (::close(copy.release()) != 0 && errno != EINTR) return fail(errno);
    return {};
  }

  /// The times last, because all else changes them.
  Result<void> finish(int from, const FileStatus& status, int copy) {
    auto done = copyOwnerModeAndAttributes(from, status, copy, path_, metadata_);
    return done ? copyTimes(status, copy, path_) : done;
  }

  /// A further name of what is already copied becomes a further name of the copy. Where there are no links,
  /// or no more, it becomes a file of its own.
  bool linkToFirstCopy(const FileStatus& status, const Place& to) {
    if (status.links == 1) return false;
    const std::string place = topName_ + path_.substr(topLength_);
    const auto [first, isNew] = firstCopies_.try_emplace(keyOf(status), place);
    return !isNew && ::linkat(toFolder_, first->second.c_str(), to.folder, to.name.c_str(), 0) == 0;
  }

  Result<void> copyFolder(int entry, const Place& to, CopiedItem& item, int depth) {
    if (depth == kDeepest) return fail(ENAMETOOLONG, "too many folders in each other");
    if (item.status.isSameFile(toStatus_)) return fail(EINVAL, "cannot be copied into itself");
    const UniqueDescriptor source(::openat(entry, ".", kFolder));
    if (!source) return fail(errno);
    if (::mkdirat(to.folder, to.name.c_str(), 0700) != 0) return fail(errno);
    madeTop_ = true;
    const UniqueDescriptor copy(::openat(to.folder, to.name.c_str(), kFolder));
    if (!copy) return fail(errno);
    if (auto ours = requireOurs(copy.get(), item.status); !ours) return ours;
    if (auto copied = copyChildren(source.get(), copy.get(), item, depth); !copied) return copied;
    return finish(source.get(), item.status, copy.get());
  }

  Result<void> copyChildren(int from, int to, CopiedItem& item, int depth) {
    auto entries = entriesIn(from, path_, [this] { return pace_.goOn(); });
    if (!entries) return entries.error();
    while (!entries.value().empty()) {
      CopiedItem child;
      const unsigned char type = entries.value().takeNext(child.name);
      const std::string name = child.name;
      const Below below(path_, name);
      if (auto copied = copyAny({from, name}, type, {to, name}, child, depth + 1); !copied) return copied;
      if (options_.check == Check::compare) item.children.push_back(std::move(child));
    }
    std::sort(item.children.begin(), item.children.end(),
              [](const CopiedItem& a, const CopiedItem& b) { return a.name < b.name; });
    return {};
  }

  Result<void> copyOther(int entry, const Place& to, const FileStatus& status) {
    if (auto made = status.isSymbolicLink() ? makeLink(entry, to) : makeSpecialFile(to, status); !made) {
      return made;
    }
    madeTop_ = true;
    if (!pace_.goOn()) return fail(ECANCELED);
    const auto copy = openEntry(to.folder, to.name, path_);
    if (!copy) return copy.error();
    if (auto ours = requireOurs(copy.value().get(), status); !ours) return ours;
    auto done = copyOwnerAndMode(status, copy.value().get(), path_, metadata_);
    return done ? copyTimes(status, copy.value().get(), path_) : done;
  }

  Result<void> makeLink(int entry, const Place& to) const {
    const auto target = targetOfLink(entry, path_);
    if (!target) return target.error();
    if (::symlinkat(target.value().c_str(), to.folder, to.name.c_str()) != 0) return fail(errno);
    return {};
  }

  /// Made anew, never opened.
  Result<void> makeSpecialFile(const Place& to, const FileStatus& status) const {
    const bool isDevice = S_ISCHR(status.mode) || S_ISBLK(status.mode);
    if (isDevice && !takesDevices_) {
      return fail(ENOTSUP, "a device is not copied to another volume");
    }
    const mode_t mode = (status.mode & static_cast<mode_t>(S_IFMT)) | 0600U;
    const int reason = platform::makeSpecialFile(to.folder, to.name, mode, status.representedDevice);
    return reason == 0 ? Result<void>() : fail(reason);
  }

  /// Whether what was opened is what was just made: before anything is given away.
  [[nodiscard]] Result<void> requireOurs(int made, const FileStatus& original) const {
    const auto status = statusOf(made, path_);
    if (!status) return status.error();
    const FileStatus& found = status.value();
    const bool isOurs = found.owner == ::geteuid() && ((found.mode ^ original.mode) & S_IFMT) == 0;
    if (isOurs && (found.isFolder() || found.links == 1)) return {};
    return fail(EBUSY, "the copy was exchanged while it was made");
  }

  Result<void> compare(const Place& from, const Place& to, const CopiedItem& item) {
    if (item.status.isFolder()) return compareFolder(from, to, item);
    const auto original = openEntry(from.folder, from.name, path_);
    if (!original) return original.error();
    const auto now = statusOf(original.value().get(), path_);
    if (!now) return now.error();
    if (!isUnchanged(now.value(), item.status)) return changed();
    if (!item.status.isRegular()) return {};
    if (item.status.links > 1 && !compared_.insert(keyOf(item.status)).second) return {};
    return compareFile(from, to, item.status);
  }

  Result<void> compareFile(const Place& from, const Place& to, const FileStatus& status) {
    const UniqueDescriptor original(::openat(from.folder, from.name.c_str(), kReading));
    if (!original) return fail(errno);
    const UniqueDescriptor copy(::openat(to.folder, to.name.c_str(), kReading));
    if (!copy) return fail(errno);
    // Else only what is still in memory would be read back.
    if (options_.flush == Flush::sync) forgetCached(copy.get());
    if (auto same = compareContents(original.get(), copy.get(), pace_, path_); !same) return same;
    const auto now = statusOf(original.get(), path_);
    if (!now) return now.error();
    return isUnchanged(now.value(), status) ? Result<void>() : changed();
  }

  Result<void> compareFolder(const Place& from, const Place& to, const CopiedItem& item) {
    const UniqueDescriptor original(::openat(from.folder, from.name.c_str(), kFolder));
    if (!original) return fail(errno);
    const UniqueDescriptor copy(::openat(to.folder, to.name.c_str(), kFolder));
    if (!copy) return fail(errno);
    for (const CopiedItem& child : item.children) {
      const Below below(path_, child.name);
      auto same = compare({original.get(), child.name}, {copy.get(), child.name}, child);
      if (!same) return same;
    }
    return {};
  }

  int toFolder_;
  std::string path_;       ///< of the item in hand
  std::size_t topLength_;  ///< of the topmost item's path, without a slash at its end
  const CopyOptions& options_;
  MetadataOptions metadata_;
  bool takesDevices_;
  CopyPace pace_;
  FileStatus toStatus_;
  std::string topName_;
  std::optional<FileStatus> top_;
  bool madeTop_ = false;
  std::map<FileKey, std::string> firstCopies_;  ///< where below the destination the first copy lies
  std::set<FileKey> compared_;
};

/// Removes what was copied.
class OriginalsRemoval {
 public:
  OriginalsRemoval(std::string path, const OnKept& onKept) : path_(std::move(path)), onKept_(onKept) {}

  void remove(int folder, const std::string& name, const CopiedItem* item) {
    const auto entry = openEntry(folder, name, path_);
    if (!entry && entry.error().code == ENOENT) return;
    const auto now = entry ? statusOf(entry.value().get(), path_) : entry.error();
    if (!now || item == nullptr || !isUnchanged(now.value(), item->status)) {
      return keep(EBUSY, "changed or added since, left in place");
    }
    if (item->status.isFolder()) removeChildren(entry.value().get(), *item);
    if (::unlinkat(folder, name.c_str(), item->status.isFolder() ? AT_REMOVEDIR : 0) != 0) {
      keep(errno, "cannot be removed, though there is a copy of it");
    }
  }

  [[nodiscard]] Result<void> outcome() const { return outcome_; }

 private:
  void removeChildren(int folder, const CopiedItem& item) {
    const auto names = namesIn(folder, path_);
    if (!names) return keep(names.error().code, "cannot be listed");
    for (const std::string& name : names.value()) {
      const Below below(path_, name);
      const auto child =
          std::lower_bound(item.children.begin(), item.children.end(), name,
                           [](const CopiedItem& a, const std::string& b) { return a.name < b; });
      const bool isCopied = child != item.children.end() && child->name == name;
      remove(folder, name, isCopied ? &*child : nullptr);
    }
  }

  void keep(int reason, const char* why) {
    if (onKept_) onKept_(path_, why);
    if (outcome_) outcome_ = errorWithReason(reason, path_, why);
  }

  std::string path_;
  const OnKept& onKept_;
  Result<void> outcome_;
};

/// The renaming lasts through a power cut before an original is removed. EINVAL is said by file systems that
/// sync no folders.
Result<void> syncFolder(int folder, const std::string& path) {
  const UniqueDescriptor readable(::openat(folder, ".", kFolder));
  if (!readable || ::fsync(readable.get()) == 0 || errno == EINVAL) return {};
  return systemError(errno, path);
}

bool isTaken(const ItemPlace& place) {
  struct stat status {};
  return ::fstatat(place.folder, place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
}

/// While it lies where nobody else can enter.
Result<void> makeOwn(int folder, const std::string& name, mode_t mode, const std::string& path) {
  const UniqueDescriptor own(::openat(folder, name.c_str(), kFolder));
  if (!own || ::fchown(own.get(), ::geteuid(), static_cast<gid_t>(-1)) != 0 ||
      ::fchmod(own.get(), mode) != 0) {
    return systemError(errno, path);
  }
  return {};
}

class TreeCount {
 public:
  TreeCount(std::string path, const std::function<bool()>& goesOn)
      : path_(std::move(path)), goesOn_(goesOn) {}

  Result<void> add(int folder, const std::string& name, unsigned char type, int depth) {
    if (!goesOn()) return systemError(ECANCELED, path_);
    if (depth > kDeepest) return systemError(ENAMETOOLONG, path_);
    ++size_.objects;
    if (type == DT_DIR) return addChildren(folder, name, depth);
    struct stat status {};
    const bool isLookedAt = type == DT_REG || type == DT_UNKNOWN;
    if (isLookedAt && ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
      return systemError(errno, path_);
    if (S_ISDIR(status.st_mode)) return addChildren(folder, name, depth);
    if (S_ISREG(status.st_mode)) addFile(status);
    return {};
  }

  [[nodiscard]] TreeSize size() const { return size_; }

 private:
  [[nodiscard]] bool goesOn() const { return !goesOn_ || goesOn_(); }

  void addFile(const struct stat& status) {
    if (status.st_nlink > 1 && !linked_.emplace(status.st_dev, status.st_ino).second) return;
    size_.bytes += static_cast<std::uint64_t>(status.st_size);
  }

  Result<void> addChildren(int folder, const std::string& name, int depth) {
    const UniqueDescriptor inside(::openat(folder, name.c_str(), kFolder));
    if (!inside) return systemError(errno, path_);
    auto entries = entriesIn(inside.get(), path_, [this] { return goesOn(); });
    if (!entries) return entries.error();
    std::string entry;
    while (!entries.value().empty()) {
      const unsigned char type = entries.value().takeNext(entry);
      const Below below(path_, entry);
      if (auto added = add(inside.get(), entry, type, depth + 1); !added) return added;
    }
    return {};
  }

  std::string path_;
  const std::function<bool()>& goesOn_;
  TreeSize size_;
  std::set<std::pair<dev_t, ino_t>> linked_;
};

}  // namespace

CopyOptions optionsForMoving() {
  return {.privileges = Privileges::drop,
          .fidelity = Fidelity::exact,
          .check = Check::compare,
          .flush = Flush::sync,
          .mounts = Mounts::refuse};
}

Result<CopiedItem> copyItem(int fromFolder, const std::string& fromName, int toFolder,
                            const std::string& toName, const std::string& path, const CopyOptions& options) {
  return TreeCopy(toFolder, path, options).run({fromFolder, fromName}, {toFolder, toName});
}

Result<void> copyItemAtPath(const std::string& from, const std::string& to, const CopyOptions& options) {
  const auto source = openGuardedPlace(from);
  if (!source) return source.error();
  const auto target = openGuardedPlace(to);
  if (!target) return target.error();
  return copyIntoPlace({source.value().folder.get(), source.value().name, from},
                       {target.value().folder.get(), target.value().name, to}, options);
}

Result<void> copyIntoPlace(const ItemPlace& from, const ItemPlace& to, const CopyOptions& options) {
  if (isTaken(to)) return systemError(EEXIST, to.path);
  const auto staging = PrivateFolder::make(to.folder, to.path);
  if (!staging) return staging.error();
  const int inside = staging.value().descriptor();
  const auto copied = copyItem(from.folder, from.name, inside, to.name, from.path, options);
  if (!copied) return copied.error();
  if (options.topMode) {
    if (auto owned = makeOwn(inside, to.name, *options.topMode, to.path); !owned) return owned;
  }
  return renameOutOf(inside, to.name, to.folder, to.path);
}

Result<void> moveByCopy(int fromFolder, const std::string& fromName, int toFolder, const std::string& path,
                        const GivePlace& givePlace, const OnKept& onKept, const CopyOptions& options) {
  const auto staging = PrivateFolder::make(toFolder, path);
  if (!staging) return staging.error();
  const int inside = staging.value().descriptor();
  const auto copied = copyItem(fromFolder, fromName, inside, fromName, path, options);
  if (!copied) return copied.error();
  if (auto placed = givePlace(inside, fromName); !placed) return placed;
  if (auto synced = syncFolder(toFolder, path); !synced) return synced;
  return removeCopied(fromFolder, copied.value(), path, onKept);
}

Result<void> removeCopied(int folder, const CopiedItem& item, const std::string& path, const OnKept& onKept) {
  OriginalsRemoval removal(path, onKept);
  removal.remove(folder, item.name, &item);
  return removal.outcome();
}

Result<TreeSize> sizeOfTree(const std::string& path, const std::function<bool()>& goesOn) {
  TreeCount count(path, goesOn);
  if (auto counted = count.add(AT_FDCWD, path, DT_UNKNOWN, 0); !counted) return counted.error();
  return count.size();
}

}  // namespace platform
