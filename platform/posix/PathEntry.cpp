#include "platform/posix/PathEntry.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <memory>

#include "platform/foundation/Paths.h"
#include "platform/posix/AccessLists.h"
#include "platform/posix/HeldEntries.h"

namespace platform {
namespace {

using foundation::Error;
using foundation::errorWithReason;
using foundation::Result;
using foundation::systemError;

constexpr int kMostLinks = 40;  // as many as the kernel follows
constexpr std::size_t kNameBlock = 64UL << 10;

struct CloseFolder {
  void operator()(DIR* folder) const { closedir(folder); }
};

bool onlyRootCanWrite(const UniqueDescriptor& held, const FileStatus& folder) {
  if (!isTrustedOwner(folder.owner) || (folder.mode & S_IWOTH) != 0) return false;
  if ((folder.mode & S_IWGRP) != 0 && (folder.mode & S_ISVTX) == 0) return false;
  // Where the group may write, the sticky bit keeps it from root's links, and with it all whom a list counts
  // to it.
  return !mayBeWrittenByList(held.get(), folder.mode & static_cast<mode_t>(~S_IWGRP));
}

class PathWalk {
 public:
  PathWalk(std::string_view path, LastLink lastLink, const NewFolders* newFolders = nullptr)
      : asked_(path), lastLink_(lastLink), newFolders_(newFolders), isAbsolute_(path.starts_with('/')) {
    prepend(path);
    leftOfPath_ = pending_.size();
  }

  Result<void> walk(int root) {
    if (auto started = isAbsolute_ ? enterRoot(root) : enter(AT_FDCWD, false); !started) return started;
    while (!pending_.empty()) {
      const std::string component = std::move(pending_.front());
      pending_.pop_front();
      isOfPath_ = pending_.size() < leftOfPath_;
      leftOfPath_ = std::min(leftOfPath_, pending_.size());
      if (auto stepped = step(component); !stepped) return stepped;
    }
    return {};
  }

  Result<PathEntry> entry() {
    if (levels_.size() < 2) return errorWithReason(EPERM, asked_, "refused: it is the root folder");
    return finish();
  }

  Result<UniqueDescriptor> folder() {
    if (!levels_.back().status.isFolder()) return systemError(ENOTDIR, asked_);
    return std::move(levels_.back().descriptor);
  }

 private:
  Result<void> enterRoot(int root) {
    root_ = root;
    return enter(root, true);
  }

  Result<void> enter(int top, bool mayBeTrusted) {
    UniqueDescriptor folder = holdFolder(top, ".");
    if (!folder) return systemError(errno, asked_);
    auto status = statusOf(folder.get(), asked_);
    if (!status) return status.error();
    const bool trusted = mayBeTrusted && onlyRootCanWrite(folder, status.value());
    levels_.clear();
    levels_.push_back(PathLevel{"", std::move(folder), status.value(), trusted});
    return {};
  }

  Result<void> step(const std::string& component) {
    if (component == ".") return {};
    if (component == ".." && (isAbsolute_ || levels_.size() > 1)) {
      if (levels_.size() > 1) levels_.pop_back();
      return {};
    }
    auto opened = openOrMake(component);
    if (!opened) return opened.error();
    auto status = statusOf(opened.value().get(), asked_);
    if (!status) return status.error();
    if (status.value().isSymbolicLink() && (!pending_.empty() || lastLink_ == LastLink::follow)) {
      return followLink(opened.value().get(), status.value());
    }
    if (!pending_.empty() && !status.value().isFolder()) return systemError(ENOTDIR, asked_);
    const bool trusted = levels_.back().onlyRootCanChange && onlyRootCanWrite(opened.value(), status.value());
    levels_.push_back(PathLevel{component, std::move(opened).value(), status.value(), trusted});
    return {};
  }

  Result<UniqueDescriptor> openOrMake(const std::string& component) {
    const int folder = levels_.back().descriptor.get();
    auto opened = openEntry(folder, component, asked_);
    if (opened || newFolders_ == nullptr || opened.error().code != ENOENT) return opened;
    if (!isOfPath_) return systemError(EEXIST, asked_);
    if (!newFolders_->goesOn()) return systemError(ECANCELED, asked_);
    if (::mkdirat(folder, component.c_str(), newFolders_->mode) != 0 && errno != EEXIST) {
      return systemError(errno, asked_);
    }
    return openEntry(folder, component, asked_);
  }

  [[nodiscard]] bool mayFollow(const FileStatus& link) const {
    if (newFolders_ != nullptr && ::geteuid() != 0) return true;
    return levels_.back().onlyRootCanChange && isTrustedOwner(link.owner);
  }

  Result<void> followLink(int link, const FileStatus& status) {
    if (!mayFollow(status)) {
      if (newFolders_ != nullptr) return systemError(ELOOP, asked_);
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
  const NewFolders* newFolders_;
  bool isAbsolute_;
  std::deque<std::string> pending_;
  std::size_t leftOfPath_ = 0;  ///< how many of those are the path's own, not a link's on it
  bool isOfPath_ = true;        ///< whether this step's is
  std::vector<PathLevel> levels_;
  int root_ = -1;
  int followed_ = 0;
};

Result<UniqueDescriptor> folderAtEndOf(PathWalk walk, const std::string& path) {
  if (path.empty()) return systemError(ENOENT, path);
  if (path.find('\0') != std::string::npos) return systemError(EINVAL, path);
  const UniqueDescriptor root = holdFolder(AT_FDCWD, "/");
  if (!root) return systemError(errno, path);
  if (auto walked = walk.walk(root.get()); !walked) return walked.error();
  return walk.folder();
}

}  // namespace

Result<UniqueDescriptor> openEntry(int folder, const std::string& name, std::string_view path, int flags) {
  UniqueDescriptor opened = holdEntry(folder, name, LastLink::keep, flags);
  if (!opened) return systemError(errno, path);
  return opened;
}

Result<void> listFolder(int folder, std::string_view path,
                        const std::function<bool(const dirent&)>& onEntry) {
  UniqueDescriptor readable(openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!readable) return systemError(errno, path);
  const std::unique_ptr<DIR, CloseFolder> stream(fdopendir(readable.get()));
  if (!stream) return systemError(errno, path);
  static_cast<void>(readable.release());  // the stream's from here on
  while (true) {
    errno = 0;
    const dirent* entry = readdir(stream.get());  // NOLINT(concurrency-mt-unsafe): a stream of our own
    if (entry == nullptr && errno != 0) return systemError(errno, path);
    if (entry == nullptr) return {};
    const std::string_view name = entry->d_name;
    if (name != "." && name != ".." && !onEntry(*entry)) return {};
  }
}

Result<std::vector<std::string>> namesIn(int folder, std::string_view path, std::size_t most) {
  std::vector<std::string> names;
  const auto add = [&names, most](const dirent& entry) {
    names.emplace_back(entry.d_name);
    return names.size() != most;
  };
  if (auto listed = listFolder(folder, path, add); !listed) return listed.error();
  return names;
}

void NameList::add(std::string_view name) {
  const bool isFull = !empty() && blocks_.back().size() + name.size() >= kNameBlock;
  if (empty() || isFull) blocks_.emplace_back();
  if (isFull) blocks_.back().reserve(kNameBlock);
  blocks_.back().append(name).push_back('\0');
}

std::string NameList::next() {
  std::string name;
  takeNext(name);
  return name;
}

void NameList::takeNext(std::string& name) {
  std::string& block = blocks_[first_];
  name = block.c_str() + at_;
  at_ += name.size() + 1;
  if (at_ < block.size()) return;
  std::string().swap(block);
  ++first_;
  at_ = 0;
}

Result<NameList> listedNames(int folder, std::string_view path) {
  NameList names;
  const auto add = [&names](const dirent& entry) {
    names.add(entry.d_name);
    return true;
  };
  if (auto listed = listFolder(folder, path, add); !listed) return listed.error();
  return names;
}

Result<PathEntry> locate(int root, std::string_view path, LastLink lastLink) {
  if (!path.starts_with('/')) return errorWithReason(EINVAL, path, "not an absolute path");
  if (path.find('\0') != std::string_view::npos) return systemError(EINVAL, path);
  PathWalk walk(path, lastLink);
  if (auto walked = walk.walk(root); !walked) return walked.error();
  return walk.entry();
}

Result<UniqueDescriptor> locateFolder(const std::string& path) {
  return folderAtEndOf(PathWalk(path, LastLink::follow), path);
}

Result<UniqueDescriptor> makeFolderPath(const std::string& path, const NewFolders& newFolders) {
  return folderAtEndOf(PathWalk(path, LastLink::follow, &newFolders), path);
}

bool isTrustedOwner(uid_t user) {
  return user == 0 || user == ::geteuid();
}

bool isMissing(const Error& error) {
  return error.code == ENOENT || error.code == ENOTDIR;
}

}  // namespace platform
