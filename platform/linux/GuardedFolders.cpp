#include "platform/linux/GuardedFolders.h"

#include <fcntl.h>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <deque>
#include <vector>

#include "platform/foundation/Paths.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

/// As many as the kernel follows.
constexpr int kMostLinks = 40;

bool onlyRootCanWrite(const struct stat& folder) {
  if (folder.st_uid != 0 || (folder.st_mode & S_IWOTH) != 0) return false;
  return (folder.st_mode & S_IWGRP) == 0 || (folder.st_mode & S_ISVTX) != 0;
}

std::string targetOfLink(int link) {
  std::string target(4096, '\0');
  const ssize_t length = ::readlinkat(link, "", target.data(), target.size());
  target.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
  return target;
}

UniqueDescriptor opened(int folder, const char* path) {
  UniqueDescriptor descriptor(::openat(folder, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!descriptor && errno == EACCES) {
    descriptor.reset(::openat(folder, path, O_PATH | O_DIRECTORY | O_CLOEXEC));
  }
  return descriptor;
}

/// Walks down a path as root, one component at a time. Each function answers an errno value.
class Walk {
 public:
  explicit Walk(const std::string& path) : path_(path) {}

  Result<UniqueDescriptor> open() {
    enqueue(path_);
    int reason = begin();
    while (reason == 0 && !waiting_.empty()) {
      const std::string name = waiting_.front();
      waiting_.pop_front();
      reason = step(name);
    }
    if (reason != 0) return systemError(reason, path_);
    UniqueDescriptor folder = opened(levels_.back().folder.get(), ".");
    if (!folder) return systemError(errno, path_);
    return folder;
  }

 private:
  struct Level {
    UniqueDescriptor folder;
    bool onlyRootCanChange = false;  ///< this folder and all above it
  };

  void enqueue(const std::string& path) {
    const std::vector<std::string> names = foundation::pathComponents(path);
    waiting_.insert(waiting_.begin(), names.begin(), names.end());
  }

  int begin() {
    if (waiting_.empty()) return ENOENT;
    return waiting_.front() == "/" ? 0 : start(".", false);
  }

  int start(const char* path, bool isWholeWay) {
    UniqueDescriptor folder(::open(path, O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat status {};
    if (!folder || ::fstat(folder.get(), &status) != 0) return errno;
    levels_.clear();
    levels_.push_back({std::move(folder), isWholeWay && onlyRootCanWrite(status)});
    return 0;
  }

  int step(const std::string& name) {
    if (name == "/") return start("/", true);
    if (name == ".") return 0;
    if (name == ".." && levels_.size() > 1) {
      levels_.pop_back();  // not opened by that name: the folder may have been moved since it was entered
      return 0;
    }
    return enter(name);
  }

  /// Enters a folder, or puts a link's components before those that wait.
  int enter(const std::string& name) {
    const Level& from = levels_.back();
    UniqueDescriptor next(::openat(from.folder.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!next || ::fstat(next.get(), &status) != 0) return errno;
    if (S_ISLNK(status.st_mode)) return follow(next.get(), status);
    if (!S_ISDIR(status.st_mode)) return ENOTDIR;
    const bool onlyRootCanChange = from.onlyRootCanChange && onlyRootCanWrite(status);
    levels_.push_back({std::move(next), onlyRootCanChange});
    return 0;
  }

  int follow(int link, const struct stat& status) {
    if (!levels_.back().onlyRootCanChange || status.st_uid != 0 || ++links_ > kMostLinks) return ELOOP;
    const std::string target = targetOfLink(link);
    if (target.empty()) return ENOENT;
    enqueue(target);
    return 0;
  }

  const std::string& path_;
  std::vector<Level> levels_;
  std::deque<std::string> waiting_;
  int links_ = 0;
};

/// Acts on files as another user for the length of a scope, on this thread only: setfsuid(2).
class FileUserScope {
 public:
  FileUserScope(uid_t user, gid_t group) : group_(::setfsgid(group)), user_(::setfsuid(user)) {}
  ~FileUserScope() {
    ::setfsuid(static_cast<uid_t>(user_));
    ::setfsgid(static_cast<gid_t>(group_));
  }
  FileUserScope(const FileUserScope&) = delete;
  FileUserScope& operator=(const FileUserScope&) = delete;

 private:
  int group_;
  int user_;
};

int makeFolder(int parent, const std::string& name, mode_t mode) {
  return ::mkdirat(parent, name.c_str(), mode) == 0 ? 0 : errno;
}

}  // namespace

Result<UniqueDescriptor> openGuardedFolder(const std::string& path) {
  if (::geteuid() == 0) return Walk(path).open();
  UniqueDescriptor folder = opened(AT_FDCWD, path.c_str());
  if (!folder) return systemError(errno, path);
  return folder;
}

int makeFolderForOwner(int parent, const std::string& name, mode_t mode) {
  struct stat owner {};
  if (::fstat(parent, &owner) != 0) return errno;
  if (::geteuid() != 0 || owner.st_uid == 0) return makeFolder(parent, name, mode);
  const FileUserScope scope(owner.st_uid, owner.st_gid);
  return makeFolder(parent, name, mode);
}

Result<UniqueDescriptor> openTrashFolder(const std::string& path) {
  const std::string name = foundation::lastPathComponent(path);
  auto parent = openGuardedFolder(foundation::deletingLastPathComponent(path));
  if (!parent) return parent;
  struct stat around {};
  if (::fstat(parent.value().get(), &around) != 0) return systemError(errno, path);
  const int reason = makeFolderForOwner(parent.value().get(), name, 0700);
  if (reason != 0 && reason != EEXIST) return systemError(reason, path);
  UniqueDescriptor trash(
      ::openat(parent.value().get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!trash || ::fstat(trash.get(), &status) != 0) return systemError(errno, path);
  if (status.st_uid != (::geteuid() == 0 ? around.st_uid : ::geteuid())) return systemError(EPERM, path);
  return trash;
}

}  // namespace platform
