#include "platform/posix/TreeRemoval.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/posix/DescriptorLimit.h"
#include "platform/posix/FileMetadata.h"
#include "platform/posix/FileSystemCalls.h"
#include "platform/posix/HeldEntries.h"
#include "platform/posix/ItemLocks.h"

namespace platform {
namespace {

using foundation::Error;
using foundation::Result;
using foundation::systemError;

constexpr std::size_t kMostOpenFolders = 128;

/// Whether locks and modes that are in the way are taken away.
enum class Opens { no, yes };

/// Down and up without recursion, because others may have made the tree deeper than the stack, and than
/// descriptors can be had: of the folders on the way down the lowest are held open.
class Removal {
 public:
  Removal(std::string path, Opens opens, RemovalOptions options = {})
      : path_(std::move(path)), opens_(opens), options_(std::move(options)) {}

  /// Removes some of the entries of a folder.
  Result<void> run(int top, NameList names) {
    const auto status = statusOf(top, path_);
    if (!status) return status.error();
    Level level{UniqueDescriptor(::fcntl(top, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)), path_.size(),
                status.value()};
    if (!level.folder) return systemError(errno, path_);
    level.names = std::move(names);
    levels_.push_back(std::move(level));
    while (!levels_.empty()) {
      if (options_.goesOn && !options_.goesOn()) return systemError(ECANCELED, path_);
      if (levels_.back().names.empty()) {
        leave();
      } else {
        removeNext();
      }
    }
    return outcome_;
  }

 private:
  struct Level {
    UniqueDescriptor folder;
    std::size_t pathLength = 0;
    FileStatus status = {};
    std::string name = {};  ///< in the folder above
    NameList names = {};
    Result<void> listed = {};
  };

  void note(const Error& error) {
    if (outcome_) outcome_ = error;
  }

  void removeNext() {
    Level& level = levels_.back();
    level.names.takeNext(name_);
    if (!path_.empty() && !path_.ends_with('/')) path_ += '/';
    path_ += name_;
    if (const int reason = unlink(level.folder.get(), name_, 0); reason != 0) {
      if (reason == kUnlinkedFolder && enter(level.folder.get(), name_)) return;
      // A Mac says the same to what is locked.
      note(systemError(reason != kUnlinkedFolder || errno == ENOTDIR ? reason : errno, path_));
    }
    path_.resize(level.pathLength);
  }

  /// Answers 0 or an errno value.
  [[nodiscard]] int unlink(int folder, const std::string& name, int flags) const {
    if (::unlinkat(folder, name.c_str(), flags) == 0) return 0;
    const int reason = errno;
    if (opens_ == Opens::no || reason != EPERM) return reason;
    const UniqueDescriptor held = holdEntry(folder, name, LastLink::keep);
    if (!held || takeLocks(held.get()) == 0) return reason;
    return ::unlinkat(folder, name.c_str(), flags) == 0 ? 0 : errno;
  }

  /// On failure errno says why.
  bool enter(int parent, const std::string& name) {
    Level level{holdEntry(parent, name, LastLink::keep, O_DIRECTORY), path_.size()};
    const auto status = level.folder ? statusOf(level.folder.get(), path_) : systemError(errno, path_);
    if (!status) {
      errno = status.error().code;
      return false;
    }
    level.status = status.value();
    if (options_.mounted == MountedItems::leave && !level.status.isSameVolume(levels_.back().status)) {
      errno = EXDEV;
      return false;
    }
    level.name = name;
    if (opens_ == Opens::yes) makeWritable(level);
    auto names = listedNames(level.folder.get(), path_);
    if (!names) level.listed = names.error();
    if (names) level.names = std::move(names).value();
    levels_.push_back(std::move(level));
    if (levels_.size() > mostOpen_) levels_[levels_.size() - mostOpen_ - 1].folder.reset();
    return true;
  }

  /// Modes do not stop root.
  void makeWritable(const Level& level) const {
    const auto mode = static_cast<mode_t>(level.status.mode & 07777U);
    if (::geteuid() == 0 || (mode & S_IRWXU) == S_IRWXU) return;
    static_cast<void>(setPermissions(level.folder.get(), mode | S_IRWXU, path_));
  }

  void leave() {
    const Level left = std::move(levels_.back());
    levels_.pop_back();
    if (levels_.empty()) return;
    Level& level = levels_.back();
    if (!level.folder && !goBack(left.folder.get(), level)) {
      note(foundation::errorWithReason(EBUSY, path_, "moved while it was removed"));
      return levels_.clear();
    }
    if (const int reason = unlink(level.folder.get(), left.name, AT_REMOVEDIR); reason != 0) {
      note(left.listed ? systemError(reason, path_) : left.listed.error());
    }
    path_.resize(level.pathLength);
  }

  /// Only to the folder that was come from: somebody may have moved the one below it.
  static bool goBack(int below, Level& level) {
    auto parent = openEntry(below, "..", "", O_DIRECTORY);
    const auto status = parent ? statusOf(parent.value().get(), "") : parent.error();
    if (!status || !status.value().isSameFile(level.status)) return false;
    level.folder = std::move(parent).value();
    return true;
  }

  std::string path_;  ///< of the folder in hand
  std::string name_;  ///< of the entry in hand
  const Opens opens_;
  const RemovalOptions options_;
  const std::size_t mostOpen_ = affordableDescriptors(kMostOpenFolders);
  std::vector<Level> levels_;
  Result<void> outcome_;
};

}  // namespace

Result<void> removeItem(int folder, const std::string& name, RemovalOptions options) {
  NameList one;
  one.add(name);
  return Removal("", Opens::no, std::move(options)).run(folder, std::move(one));
}

Result<void> removeOwnContents(int folder, const std::string& path) {
  auto names = listedNames(folder, path);
  if (!names) return names.error();
  return Removal(path, Opens::yes).run(folder, std::move(names).value());
}

}  // namespace platform
