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
#include "platform/posix/HeldEntries.h"
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
        options_(options),
        metadata_{options.privileges, options.fidelity},
        takesDevices_(options.privileges == Privileges::keep),
        pace_(options.onProgress, options.progressInterval, path_),
        record_(toFolder, options.recordInMemory) {}

  Result<CopyRecord> run(const Place& from, const Place& to) {
    const auto target = statusOf(toFolder_, path_);
    if (!target) return target.error();
    toStatus_ = target.value();
    // Opened before anything is written, so that it tells of every failure to write.
    const UniqueDescriptor volume(::openat(toFolder_, ".", kFolder));
    if (!volume) return fail(errno);
    Result<void> done = copyAny(from, DT_UNKNOWN, to, 0);
    CopyRecord record = record_.finish();
    if (done && options_.flush == Flush::sync) done = flush(volume);
    if (done && options_.check == Check::compare) done = compareAll(from, to, record);
    if (!done) {
      if (madeTop_) static_cast<void>(removeItem(to.folder, to.name));
      return done.error();
    }
    pace_.end();
    return record;
  }

 private:
  [[nodiscard]] Error fail(int reason) const { return systemError(reason, path_); }
  [[nodiscard]] Error fail(int reason, const char* why) const { return errorWithReason(reason, path_, why); }
  [[nodiscard]] Error changed() const { return fail(EBUSY, "changed while it was copied"); }

  Result<void> flush(const UniqueDescriptor& volume) const {
    if (const int reason = flushVolume(volume.get()); reason != 0) return fail(reason);
    return {};
  }

  Result<void> copyAny(const Place& from, unsigned char type, const Place& to, int depth) {
    auto copied = type == DT_REG ? copyFile(from, nullptr, to) : copyLookedAt(from, to, depth);
    if (!copied) return copied;
    return pace_.finishedObject() ? Result<void>() : fail(ECANCELED);
  }

  /// What may be something else than a regular file is looked at before it is opened: opening a device can do
  /// something, and looking at what is mounted can take for ever.
  Result<void> copyLookedAt(const Place& from, const Place& to, int depth) {
    const auto entry = openEntry(from.folder, from.name, path_);
    if (!entry) return entry.error();
    const auto looked = lookAt(entry.value().get());
    if (!looked) return looked.error();
    const FileStatus& status = looked.value();
    if (status.isRegular()) return copyFile(from, &status, to);
    if (status.isFolder()) return copyFolder(entry.value().get(), status, from.name, to, depth);
    auto copied = copyOther(entry.value().get(), to, status);
    return copied ? remember(Recorded::item, status, from.name) : copied;
  }

  /// What is copied, and whether it may be.
  Result<FileStatus> lookAt(int entry) {
    auto status = statusOf(entry, path_);
    if (!status) return status;
    if (!top_ || !status.value().isSameVolume(*top_)) {
      if (auto heeded = heedMount(entry, status.value()); !heeded) return heeded.error();
    }
    if (!top_) top_ = status.value();
    if (options_.mounts == Mounts::refuse && !status.value().isSameVolume(*top_)) {
      return fail(EXDEV, "another volume is mounted there");
    }
    return status;
  }

  Result<void> remember(Recorded what, const FileStatus& status, const std::string& name) {
    if (options_.check == Check::none) return {};
    const int reason = record_.add(what, status, name);
    return reason == 0 ? Result<void>() : fail(reason);
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

  Result<void> copyFile(const Place& from, const FileStatus* seen, const Place& to) {
    const UniqueDescriptor source(::openat(from.folder, from.name.c_str(), kReading));
    if (!source) return fail(errno);
    const auto looked = lookAt(source.get());
    if (!looked) return looked.error();
    const FileStatus& status = looked.value();
    if (!status.isRegular() || (seen != nullptr && !status.isSameFile(*seen))) return changed();
    if (linkToFirstCopy(status, to)) return remember(Recorded::furtherName, status, from.name);
    auto copied = copyFileAnew(source.get(), status, to);
    return copied ? remember(Recorded::item, status, from.name) : copied;
  }

  Result<void> copyFileAnew(int source, const FileStatus& status, const Place& to) {
    const mode_t mode = modeOfCopy(status, metadata_.privileges) & 0777U;
    // Ours to write while it is made, whatever it will be.
    UniqueDescriptor copy(::openat(to.folder, to.name.c_str(),
                                   O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode | 0600U));
    if (!copy) return fail(errno);
    madeTop_ = true;
    if (auto copied = copyContents(source, status, copy.get(), pace_, path_); !copied) return copied;
    if (auto finished = finish(source, status, copy.get()); !finished) return finished;
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
    const auto found = firstCopies_.find(keyOf(status));
    if (found == firstCopies_.end()) {
      firstCopies_[keyOf(status)] = {folder_, to.name, status.links - 1};
      return false;
    }
    FirstCopy& first = found->second;
    const UniqueDescriptor held = first.folder ? hold(*first.folder) : UniqueDescriptor();
    const int folder = first.folder ? held.get() : toFolder_;
    if (::linkat(folder, first.name.c_str(), to.folder, to.name.c_str(), 0) != 0) return false;
    if (--first.namesToCome == 0) firstCopies_.erase(found);
    return true;
  }

  /// A folder that was made by this copy, and the way to it. Its name is kept once, however much is in it.
  struct MadeFolder {
    std::shared_ptr<const MadeFolder> above;  ///< none for the topmost
    std::string name;
  };

  /// Step by step: the way may be longer than a path can be.
  [[nodiscard]] UniqueDescriptor hold(const MadeFolder& folder) const {
    const UniqueDescriptor above = folder.above ? hold(*folder.above) : UniqueDescriptor();
    return holdEntry(folder.above ? above.get() : toFolder_, folder.name, LastLink::keep, O_DIRECTORY);
  }

  Result<void> copyFolder(int entry, const FileStatus& status, const std::string& name, const Place& to,
                          int depth) {
    if (depth == kDeepest) return fail(ENAMETOOLONG, "too many folders in each other");
    if (status.isSameFile(toStatus_)) return fail(EINVAL, "cannot be copied into itself");
    const UniqueDescriptor source(::openat(entry, ".", kFolder));
    if (!source) return fail(errno);
    if (::mkdirat(to.folder, to.name.c_str(), 0700) != 0) return fail(errno);
    madeTop_ = true;
    const UniqueDescriptor copy(::openat(to.folder, to.name.c_str(), kFolder));
    if (!copy) return fail(errno);
    if (auto ours = requireOurs(copy.get(), status); !ours) return ours;
    if (auto remembered = remember(Recorded::item, status, name); !remembered) return remembered;
    folder_ = std::make_shared<const MadeFolder>(MadeFolder{folder_, to.name});
    if (auto copied = copyChildren(source.get(), copy.get(), depth); !copied) return copied;
    folder_ = folder_->above;
    if (auto remembered = remember(Recorded::end, {}, {}); !remembered) return remembered;
    return finish(source.get(), status, copy.get());
  }

  Result<void> copyChildren(int from, int to, int depth) {
    auto entries = entriesIn(from, path_, [this] { return pace_.goOn(); });
    if (!entries) return entries.error();
    std::string name;
    while (!entries.value().empty()) {
      const unsigned char type = entries.value().takeNext(name);
      const Below below(path_, name);
      if (auto copied = copyAny({from, name}, type, {to, name}, depth + 1); !copied) return copied;
    }
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

  Result<void> compareAll(const Place& from, const Place& to, const CopyRecord& record) {
    CopyRecordReader reader(record);
    RecordedItem item;
    if (const int reason = reader.next(item); reason != 0) return fail(reason);
    return compare(from, to, item, reader);
  }

  Result<void> compare(const Place& from, const Place& to, const RecordedItem& item,
                       CopyRecordReader& reader) {
    if (item.status.isFolder()) return compareFolder(from, to, reader);
    const auto original = openEntry(from.folder, from.name, path_);
    if (!original) return original.error();
    const auto now = statusOf(original.value().get(), path_);
    if (!now) return now.error();
    if (!isUnchanged(now.value(), item.status)) return changed();
    if (!item.status.isRegular() || item.what == Recorded::furtherName) return {};
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

  Result<void> compareFolder(const Place& from, const Place& to, CopyRecordReader& reader) {
    const UniqueDescriptor original(::openat(from.folder, from.name.c_str(), kFolder));
    if (!original) return fail(errno);
    const UniqueDescriptor copy(::openat(to.folder, to.name.c_str(), kFolder));
    if (!copy) return fail(errno);
    RecordedItem child;
    while (true) {
      if (const int reason = reader.next(child); reason != 0) return fail(reason);
      if (child.what == Recorded::end) return {};
      const Below below(path_, child.name);
      auto same = compare({original.get(), child.name}, {copy.get(), child.name}, child, reader);
      if (!same) return same;
    }
  }

  /// Of a file of which more names may come.
  struct FirstCopy {
    std::shared_ptr<const MadeFolder> folder;  ///< none for what is copied itself
    std::string name;
    std::uint64_t namesToCome = 0;
  };

  int toFolder_;
  std::string path_;  ///< of the item in hand
  const CopyOptions& options_;
  MetadataOptions metadata_;
  bool takesDevices_;
  CopyPace pace_;
  FileStatus toStatus_;
  std::optional<FileStatus> top_;
  bool madeTop_ = false;
  std::shared_ptr<const MadeFolder> folder_;  ///< the one in hand
  std::map<FileKey, FirstCopy> firstCopies_;
  CopyRecordWriter record_;
};

/// Names in their own room and that of a number each. Asked when all are in.
class NameSet {
 public:
  void add(const std::string& name) {
    names_.append(name).push_back('\0');
    ++count_;
  }
  void sort() {
    begins_.reserve(count_);
    for (std::size_t at = 0; at < names_.size(); at += nameAt(at).size() + 1) begins_.push_back(at);
    std::sort(begins_.begin(), begins_.end(),
              [this](std::size_t a, std::size_t b) { return nameAt(a) < nameAt(b); });
  }
  /// REQUIRES that they are sorted.
  [[nodiscard]] bool contains(std::string_view name) const {
    const auto found = std::lower_bound(
        begins_.begin(), begins_.end(), name,
        [this](std::size_t begin, std::string_view wanted) { return nameAt(begin) < wanted; });
    return found != begins_.end() && nameAt(*found) == name;
  }

 private:
  [[nodiscard]] std::string_view nameAt(std::size_t begin) const { return names_.c_str() + begin; }

  std::string names_;
  std::size_t count_ = 0;
  std::vector<std::size_t> begins_;
};

/// Removes what was copied, in the order of the copy.
class OriginalsRemoval {
 public:
  OriginalsRemoval(const CopyRecord& copied, std::string path, const OnKept& onKept)
      : record_(copied), path_(std::move(path)), onKept_(onKept) {}

  Result<void> run(int folder) {
    RecordedItem item;
    if (readNext(item)) {
      top_ = item.status;
      static_cast<void>(remove(folder, item, 0));
    }
    if (lost_ != 0) static_cast<void>(keep(lost_, "what is left of it stays: what was copied is forgotten"));
    return outcome_;
  }

 private:
  /// The functions below answer whether it is gone; what is not, has been told. Where the record cannot be
  /// read, all end, and run() tells.
  bool remove(int folder, const RecordedItem& item, int depth) {
    const auto entry = openEntry(folder, item.name, path_);
    const bool isGone = !entry && entry.error().code == ENOENT;
    const auto now = entry ? statusOf(entry.value().get(), path_) : entry.error();
    if (!now || !isStillThat(now.value(), item)) {
      if (item.status.isFolder()) passOver();
      return isGone || keep(EBUSY, kChanged);
    }
    return item.status.isFolder() ? removeFolder(folder, item.name, entry.value().get(), depth)
                                  : unlink(folder, item.name, 0);
  }

  [[nodiscard]] bool isStillThat(const FileStatus& now, const RecordedItem& item) const {
    return isUnchanged(now, item.status) && now.isSameVolume(top_);
  }

  bool removeFolder(int parent, const std::string& name, int folder, int depth) {
    NameSet kept;
    if (depth == kDeepest) lost_ = EIO;  // that deep nothing was copied
    if (!removeChildren(folder, depth, kept)) return false;
    if (::unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0) return true;
    kept.sort();
    tellOthers(folder, kept);
    return unlink(parent, name, AT_REMOVEDIR);
  }

  /// Answers whether the folder's end was reached.
  bool removeChildren(int folder, int depth, NameSet& kept) {
    RecordedItem child;
    while (readNext(child)) {
      if (child.what == Recorded::end) return true;
      const Below below(path_, child.name);
      if (!remove(folder, child, depth + 1) && lost_ == 0) kept.add(child.name);
    }
    return false;
  }

  /// What else is in a folder.
  void tellOthers(int folder, const NameSet& told) {
    const auto tell = [&](const dirent& entry) {
      const Below below(path_, entry.d_name);
      if (!told.contains(entry.d_name)) static_cast<void>(keep(EBUSY, kChanged));
      return true;
    };
    const auto listed = listFolder(folder, path_, tell);
    if (!listed) static_cast<void>(keep(listed.error().code, "cannot be listed"));
  }

  /// What was in a folder that is not there, or not that one.
  void passOver() {
    RecordedItem item;
    for (int folders = 1; folders > 0 && readNext(item);) {
      if (item.what == Recorded::end) --folders;
      if (item.what != Recorded::end && item.status.isFolder()) ++folders;
    }
  }

  bool unlink(int folder, const std::string& name, int flags) {
    return ::unlinkat(folder, name.c_str(), flags) == 0 ||
           keep(errno, "cannot be removed, though there is a copy of it");
  }

  bool readNext(RecordedItem& item) {
    if (lost_ == 0) lost_ = record_.next(item);
    return lost_ == 0;
  }

  bool keep(int reason, const char* why) {
    if (onKept_) onKept_(path_, why);
    if (outcome_) outcome_ = errorWithReason(reason, path_, why);
    return false;
  }

  static constexpr const char* kChanged = "changed or added since, left in place";

  CopyRecordReader record_;
  std::string path_;
  const OnKept& onKept_;
  FileStatus top_;  ///< as it was copied
  int lost_ = 0;    ///< why the record cannot be read further
  Result<void> outcome_;
};

/// Answers 0 or an errno value.
int syncFolder(int folder) {
  const UniqueDescriptor readable(::openat(folder, ".", kFolder));
  return readable && ::fsync(readable.get()) == 0 ? 0 : errno;
}

/// A renaming lasts through a power cut before an original is removed. A user may lack the right to read the
/// folder (EACCES), and some file systems sync no folders (EINVAL): the volume is synced instead, by the
/// folder that the copy grew in, as when the copy was whole.
Result<void> syncRenaming(int toFolder, int staging, const std::string& path) {
  int reason = syncFolder(toFolder);
  if (reason == EACCES || reason == EINVAL) reason = flushVolume(staging);
  return reason == 0 ? Result<void>() : systemError(reason, path);
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

Result<CopyRecord> copyItem(int fromFolder, const std::string& fromName, int toFolder,
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
  if (auto synced = syncRenaming(toFolder, inside, path); !synced) return synced;
  return removeCopied(fromFolder, copied.value(), path, onKept);
}

Result<void> removeCopied(int folder, const CopyRecord& copied, const std::string& path,
                          const OnKept& onKept) {
  return OriginalsRemoval(copied, path, onKept).run(folder);
}

Result<TreeSize> sizeOfTree(const std::string& path, const std::function<bool()>& goesOn) {
  TreeCount count(path, goesOn);
  if (auto counted = count.add(AT_FDCWD, path, DT_UNKNOWN, 0); !counted) return counted.error();
  return count.size();
}

}  // namespace platform
