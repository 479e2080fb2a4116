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

bool isRootsAlone(const struct stat& status) {
  return status.st_uid == 0 && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

std::string targetOfLink(int link) {
  std::string target(4096, '\0');
  const ssize_t length = ::readlinkat(link, "", target.data(), target.size());
  target.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
  return target;
}

/// Walks down a path, one component at a time.
class Walk {
 public:
  explicit Walk(const std::string& path) : path_(path) {}

  Result<UniqueDescriptor> open() {
    enqueue(path_);
    while (!waiting_.empty()) {
      const std::string name = waiting_.front();
      waiting_.pop_front();
      if (const int reason = enter(name); reason != 0) return systemError(reason, path_);
    }
    UniqueDescriptor folder(::openat(folder_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) return systemError(errno, path_);
    return folder;
  }

 private:
  void enqueue(const std::string& path) {
    const std::vector<std::string> names = foundation::pathComponents(path);
    waiting_.insert(waiting_.begin(), names.begin(), names.end());
  }

  /// Enters a folder, or puts a link's components before those that wait. Answers an errno value.
  int enter(const std::string& name) {
    const int from = folder_ ? folder_.get() : AT_FDCWD;
    UniqueDescriptor next(::openat(from, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!next || ::fstat(next.get(), &status) != 0) return errno;
    if (S_ISLNK(status.st_mode)) return follow(next.get(), status);
    if (!S_ISDIR(status.st_mode)) return ENOTDIR;
    folder_ = std::move(next);
    return 0;
  }

  int follow(int link, const struct stat& status) {
    struct stat around {};
    if (!folder_ || ::fstat(folder_.get(), &around) != 0) return ELOOP;
    if (!isRootsAlone(around) || status.st_uid != 0 || ++links_ > kMostLinks) return ELOOP;
    const std::string target = targetOfLink(link);
    if (target.empty()) return ENOENT;
    enqueue(target);
    return 0;
  }

  const std::string& path_;
  UniqueDescriptor folder_;
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

/// Made with the rights of its owner, so that there is no moment at which it is root's.
int makeTrash(int parent, const std::string& name, const struct stat& owner) {
  const FileUserScope scope(owner.st_uid, owner.st_gid);
  return ::mkdirat(parent, name.c_str(), 0700) == 0 || errno == EEXIST ? 0 : errno;
}

}  // namespace

Result<UniqueDescriptor> openGuardedFolder(const std::string& path) {
  if (::geteuid() == 0) return Walk(path).open();
  UniqueDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return systemError(errno, path);
  return folder;
}

Result<UniqueDescriptor> openTrashFolder(const std::string& path) {
  const std::string name = foundation::lastPathComponent(path);
  auto parent = openGuardedFolder(foundation::deletingLastPathComponent(path));
  if (!parent) return parent;
  struct stat owner {};
  if (::fstat(parent.value().get(), &owner) != 0) return systemError(errno, path);
  if (::geteuid() != 0) {
    owner.st_uid = ::geteuid();
    owner.st_gid = ::getegid();
  }
  if (const int reason = makeTrash(parent.value().get(), name, owner); reason != 0) {
    return systemError(reason, path);
  }
  UniqueDescriptor trash(
      ::openat(parent.value().get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!trash || ::fstat(trash.get(), &status) != 0) return systemError(errno, path);
  if (status.st_uid != owner.st_uid) return systemError(EPERM, path);
  return trash;
}

}  // namespace platform
