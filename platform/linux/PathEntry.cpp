#include "platform/linux/PathEntry.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <memory>

#include "platform/foundation/Paths.h"

namespace platform {
namespace {

using foundation::Error;
using foundation::errorWithReason;
using foundation::Result;
using foundation::systemError;

constexpr int kMostLinks = 40;  // as many as the kernel follows

struct CloseFolder {
  void operator()(DIR* folder) const { closedir(folder); }
};

bool onlyRootCanWrite(const FileStatus& folder) {
  if (!isTrustedOwner(folder.owner) || (folder.mode & S_IWOTH) != 0) return false;
  return (folder.mode & S_IWGRP) == 0 || (folder.mode & S_ISVTX) != 0;
}

class PathWalk {
 public:
  PathWalk(std::string_view path, LastLink lastLink) : asked_(path), lastLink_(lastLink) { prepend(path); }

  Result<PathEntry> walk(int root) {
    if (auto started = enterRoot(root); !started) return started.error();
    while (!pending_.empty()) {
      const std::string component = std::move(pending_.front());
      pending_.pop_front();
      if (auto stepped = step(component); !stepped) return stepped.error();
    }
    if (levels_.size() < 2) return errorWithReason(EPERM, asked_, "refused: it is the root folder");
    return finish();
  }

 private:
  Result<void> enterRoot(int rootFolder) {
    UniqueDescriptor root(openat(rootFolder, ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!root) return systemError(errno, "/");
    auto status = statusOf(root.get(), "/");
    if (!status) return status.error();
    const bool trusted = onlyRootCanWrite(status.value());
    levels_.clear();
    levels_.push_back(PathLevel{"", std::move(root), status.value(), trusted});
    root_ = rootFolder;
    return {};
  }

  Result<void> step(const std::string& component) {
    if (component == ".") return {};
    if (component == "..") {
      if (levels_.size() > 1) levels_.pop_back();
      return {};
    }
    auto opened = openEntry(levels_.back().descriptor.get(), component, asked_);
    if (!opened) return opened.error();
    auto status = statusOf(opened.value().get(), asked_);
    if (!status) return status.error();
    if (status.value().isSymbolicLink() && (!pending_.empty() || lastLink_ == LastLink::follow)) {
      return followLink(opened.value().get(), status.value());
    }
    if (!pending_.empty() && !status.value().isFolder()) return systemError(ENOTDIR, asked_);
    const bool trusted = levels_.back().onlyRootCanChange && onlyRootCanWrite(status.value());
    levels_.push_back(PathLevel{component, std::move(opened).value(), status.value(), trusted});
    return {};
  }

  Result<void> followLink(int link, const FileStatus& status) {
    if (!levels_.back().onlyRootCanChange || !isTrustedOwner(status.owner)) {
      return errorWithReason(EPERM, asked_, "refused: it leads through a symbolic link that is not root's");
    }
    if (++followed_ > kMostLinks) return systemError(ELOOP, asked_);
    const Result<std::string> target = targetOfLink(link, asked_);
    if (!target) return target.error();
    prepend(target.value());
    return target.value().starts_with('/') ? enterRoot(root_) : Result<void>();
  }

  void prepend(std::string_view path) {
    std::vector<std::string> components = foundation::pathComponents(path);
    if (!components.empty() && components.front() == "/") components.erase(components.begin());
    pending_.insert(pending_.begin(), components.begin(), components.end());
  }

  PathEntry finish() {
    PathEntry entry;
    for (const PathLevel& level : levels_) {
      if (!level.name.empty()) entry.path += "/" + level.name;
    }
    entry.levels = std::move(levels_);
    return entry;
  }

  std::string asked_;
  LastLink lastLink_;
  std::deque<std::string> pending_;
  std::vector<PathLevel> levels_;
  int root_ = -1;
  int followed_ = 0;
};

timespec timeOf(const statx_timestamp& stamp) {
  timespec time{};
  time.tv_sec = stamp.tv_sec;
  time.tv_nsec = stamp.tv_nsec;
  return time;
}

FileStatus statusFrom(const struct statx& raw) {
  FileStatus status;
  status.device = (std::uint64_t{raw.stx_dev_major} << 32U) | raw.stx_dev_minor;
  status.inode = raw.stx_ino;
  status.mount = (raw.stx_mask & STATX_MNT_ID) != 0 ? raw.stx_mnt_id : 0;
  status.mode = raw.stx_mode;
  status.owner = raw.stx_uid;
  status.group = raw.stx_gid;
  status.links = raw.stx_nlink;
  status.size = raw.stx_size;
  status.representedDevice = makedev(raw.stx_rdev_major, raw.stx_rdev_minor);
  status.blocks = raw.stx_blocks;
  status.accessed = timeOf(raw.stx_atime);
  status.modified = timeOf(raw.stx_mtime);
  status.changed = timeOf(raw.stx_ctime);
  return status;
}

}  // namespace

Result<FileStatus> statusOf(int descriptor, std::string_view path) {
  struct statx raw {};
  constexpr int kFlags = AT_EMPTY_PATH | AT_NO_AUTOMOUNT | AT_SYMLINK_NOFOLLOW;
  if (statx(descriptor, "", kFlags, STATX_BASIC_STATS | STATX_MNT_ID, &raw) != 0) {
    return systemError(errno, path);
  }
  return statusFrom(raw);
}

Result<UniqueDescriptor> openEntry(int folder, const std::string& name, std::string_view path, int flags) {
  UniqueDescriptor opened(openat(folder, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC | flags));
  if (!opened) return systemError(errno, path);
  return opened;
}

Result<std::string> targetOfLink(int link, std::string_view path) {
  std::string target(4096, '\0');
  const ssize_t length = readlinkat(link, "", target.data(), target.size());
  if (length < 0) return systemError(errno, path);
  if (static_cast<std::size_t>(length) == target.size()) return systemError(ENAMETOOLONG, path);
  target.resize(static_cast<std::size_t>(length));
  return target;
}

Result<std::vector<std::string>> namesIn(int folder, std::string_view path, std::size_t most) {
  UniqueDescriptor readable(openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!readable) return systemError(errno, path);
  const std::unique_ptr<DIR, CloseFolder> stream(fdopendir(readable.get()));
  if (!stream) return systemError(errno, path);
  static_cast<void>(readable.release());  // the stream's from here on
  std::vector<std::string> names;
  while (most == 0 || names.size() < most) {
    errno = 0;
    const dirent* entry = readdir(stream.get());  // NOLINT(concurrency-mt-unsafe): a stream of our own
    if (entry == nullptr && errno != 0) return systemError(errno, path);
    if (entry == nullptr) break;
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  return names;
}

Result<PathEntry> locate(int root, std::string_view path, LastLink lastLink) {
  if (!path.starts_with('/')) return errorWithReason(EINVAL, path, "not an absolute path");
  if (path.find('\0') != std::string_view::npos) return systemError(EINVAL, path);
  return PathWalk(path, lastLink).walk(root);
}

bool isTrustedOwner(uid_t user) {
  return user == 0 || user == ::geteuid();
}

bool isMissing(const Error& error) {
  return error.code == ENOENT || error.code == ENOTDIR;
}

}  // namespace platform
