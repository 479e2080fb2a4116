#include "platform/linux/TreeCopy.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <memory>
#include <string_view>
#include <utility>

#include "platform/foundation/Paths.h"
#include "platform/posix/UniqueDescriptor.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

constexpr std::size_t kPieceSize = 256UL << 10;
constexpr int kReading = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

bool sameTime(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool isSameItem(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && (a.st_mode & S_IFMT) == (b.st_mode & S_IFMT);
}

bool isUnchanged(const struct stat& a, const struct stat& b) {
  return isSameItem(a, b) && a.st_size == b.st_size && sameTime(a.st_mtim, b.st_mtim);
}

Result<std::vector<std::string>> namesIn(int folder, const std::string& path) {
  const int own = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const std::unique_ptr<DIR, int (*)(DIR*)> listing(own < 0 ? nullptr : ::fdopendir(own), &::closedir);
  if (!listing) return systemError(errno, path);
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* const entry = ::readdir(listing.get())) {  // NOLINT(concurrency-mt-unsafe): our own
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  if (errno != 0) return systemError(errno, path);
  return names;
}

/// Reads until the piece is full or the file ends; -1 on failure.
ssize_t readPiece(int file, std::string& piece) {
  std::size_t filled = 0;
  while (filled < piece.size()) {
    const ssize_t count = ::read(file, piece.data() + filled, piece.size() - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return -1;
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
  }
  return static_cast<ssize_t>(filled);
}

bool writePiece(int file, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(file, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

/// Each answers 0 or an errno value.
int copyContents(int from, int to) {
  std::string piece(kPieceSize, '\0');
  while (true) {
    const ssize_t count = readPiece(from, piece);
    if (count < 0) return errno;
    if (count == 0) return 0;
    if (!writePiece(to, std::string_view(piece).substr(0, static_cast<std::size_t>(count)))) return errno;
  }
}

int compareContents(int one, int other) {
  if (::lseek(one, 0, SEEK_SET) < 0 || ::lseek(other, 0, SEEK_SET) < 0) return errno;
  std::string first(kPieceSize, '\0');
  std::string second(kPieceSize, '\0');
  while (true) {
    const ssize_t count = readPiece(one, first);
    if (count < 0) return errno;
    if (readPiece(other, second) != count) return EIO;
    if (count == 0) return 0;
    const auto length = static_cast<std::size_t>(count);
    if (std::string_view(first).substr(0, length) != std::string_view(second).substr(0, length)) return EIO;
  }
}

std::string attributeNames(int file) {
  const ssize_t length = ::flistxattr(file, nullptr, 0);
  if (length <= 0) return "";
  std::string names(static_cast<std::size_t>(length), '\0');
  const ssize_t filled = ::flistxattr(file, names.data(), names.size());
  names.resize(filled < 0 ? 0 : static_cast<std::size_t>(filled));
  return names;
}

int copyAttribute(int from, int to, const char* name) {
  const ssize_t length = ::fgetxattr(from, name, nullptr, 0);
  if (length < 0) return errno;
  std::string value(static_cast<std::size_t>(length), '\0');
  const ssize_t filled = ::fgetxattr(from, name, value.data(), value.size());
  if (filled < 0) return errno;
  return ::fsetxattr(to, name, value.data(), static_cast<std::size_t>(filled), 0) == 0 ? 0 : errno;
}

/// The security attributes are left out: labels are the destination's own affair, and capabilities are not
/// carried along on purpose.
int copyAttributes(int from, int to) {
  const std::string names = attributeNames(from);
  for (std::size_t at = 0; at < names.size();) {
    const std::string name = names.c_str() + at;
    at += name.size() + 1;
    if (name.starts_with("security.")) continue;
    if (const int reason = copyAttribute(from, to, name.c_str()); reason != 0) return reason;
  }
  return 0;
}

mode_t keptMode(const struct stat& status) {
  const bool isDisarmed = ::geteuid() == 0 && !S_ISDIR(status.st_mode);
  return status.st_mode & (isDisarmed ? 01777U : 07777U);
}

int changeOwner(int file, const struct stat& status) {
  struct stat now {};
  if (::fstat(file, &now) != 0) return errno;
  if (now.st_uid == status.st_uid && now.st_gid == status.st_gid) return 0;
  return ::fchown(file, status.st_uid, status.st_gid) == 0 ? 0 : errno;
}

/// Owner first, because it takes away set-id bits; times last, because everything else changes them.
int copyMetadata(int from, int to, const struct stat& status) {
  if (const int reason = changeOwner(to, status); reason != 0) return reason;
  if (const int reason = copyAttributes(from, to); reason != 0) return reason;
  if (::fchmod(to, keptMode(status)) != 0) return errno;
  const timespec times[] = {status.st_atim, status.st_mtim};
  return ::futimens(to, times) == 0 && ::fsync(to) == 0 ? 0 : errno;
}

/// For what has no descriptor of its own: links, FIFOs and sockets.
int copyMetadataByName(int folder, const char* name, const struct stat& status) {
  if (::fchownat(folder, name, status.st_uid, status.st_gid, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  if (!S_ISLNK(status.st_mode) && ::fchmodat(folder, name, keptMode(status), 0) != 0) return errno;
  const timespec times[] = {status.st_atim, status.st_mtim};
  return ::utimensat(folder, name, times, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

class TreeCopy {
 public:
  TreeCopy(int destination, dev_t device) : destination_(destination), device_(device) {}

  Result<CopiedItem> copy(int from, const std::string& name, int to, const std::string& path) {
    CopiedItem item{name};
    if (::fstatat(from, name.c_str(), &item.status, AT_SYMLINK_NOFOLLOW) != 0) {
      return systemError(errno, path);
    }
    if (item.status.st_dev != device_) return systemError(EXDEV, path);
    if (S_ISDIR(item.status.st_mode)) return copyFolder(from, std::move(item), to, path);
    if (const int reason = copySingle(from, item, to, path); reason != 0) return systemError(reason, path);
    return item;
  }

 private:
  using FileNumber = std::pair<dev_t, ino_t>;

  int copySingle(int from, const CopiedItem& item, int to, const std::string& path) {
    switch (item.status.st_mode & S_IFMT) {
      case S_IFREG:
        return copyOrLinkFile(from, item, to, path);
      case S_IFLNK:
        return copyLink(from, item, to);
      case S_IFIFO:
      case S_IFSOCK:
        if (::mknodat(to, item.name.c_str(), (item.status.st_mode & S_IFMT) | 0600U, 0) != 0) return errno;
        return copyMetadataByName(to, item.name.c_str(), item.status);
      default:
        return ENOTSUP;
    }
  }

  /// A further name of a file that is already copied becomes a further name of the copy.
  int copyOrLinkFile(int from, const CopiedItem& item, int to, const std::string& path) {
    if (item.status.st_nlink == 1) return copyFile(from, item, to);
    const auto [known, isNew] = copies_.try_emplace({item.status.st_dev, item.status.st_ino}, path);
    if (isNew) return copyFile(from, item, to);
    return ::linkat(destination_, known->second.c_str(), to, item.name.c_str(), 0) == 0 ? 0 : errno;
  }

  static int copyFile(int from, const CopiedItem& item, int to) {
    const UniqueDescriptor source(::openat(from, item.name.c_str(), kReading));
    struct stat status {};
    if (!source || ::fstat(source.get(), &status) != 0) return errno;
    if (!isUnchanged(status, item.status)) return EBUSY;
    const UniqueDescriptor copy(
        ::openat(to, item.name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!copy) return errno;
    if (const int reason = copyContents(source.get(), copy.get()); reason != 0) return reason;
    if (::fsync(copy.get()) != 0) return errno;
    if (const int reason = compareContents(source.get(), copy.get()); reason != 0) return reason;
    if (::fstat(source.get(), &status) != 0) return errno;
    if (!isUnchanged(status, item.status)) return EBUSY;
    return copyMetadata(source.get(), copy.get(), item.status);
  }

  static int copyLink(int from, const CopiedItem& item, int to) {
    std::string target(static_cast<std::size_t>(std::max<off_t>(item.status.st_size, 0)) + 1, '\0');
    const ssize_t length = ::readlinkat(from, item.name.c_str(), target.data(), target.size());
    if (length < 0) return errno;
    if (static_cast<std::size_t>(length) == target.size()) return EBUSY;
    target.resize(static_cast<std::size_t>(length));
    if (::symlinkat(target.c_str(), to, item.name.c_str()) != 0) return errno;
    return copyMetadataByName(to, item.name.c_str(), item.status);
  }

  Result<CopiedItem> copyFolder(int from, CopiedItem item, int to, const std::string& path) {
    const UniqueDescriptor source(::openat(from, item.name.c_str(), kReading | O_DIRECTORY));
    struct stat status {};
    if (!source || ::fstat(source.get(), &status) != 0) return systemError(errno, path);
    if (!isSameItem(status, item.status)) return systemError(EBUSY, path);
    if (::mkdirat(to, item.name.c_str(), 0700) != 0) return systemError(errno, path);
    const UniqueDescriptor copy(::openat(to, item.name.c_str(), kReading | O_DIRECTORY));
    if (!copy) return systemError(errno, path);
    if (auto children = copyChildren(source.get(), copy.get(), path); children) {
      item.children = std::move(children).value();
    } else {
      return children.error();
    }
    const int reason = copyMetadata(source.get(), copy.get(), item.status);
    if (reason != 0) return systemError(reason, path);
    return item;
  }

  Result<std::vector<CopiedItem>> copyChildren(int from, int to, const std::string& path) {
    auto names = namesIn(from, path);
    if (!names) return names.error();
    std::vector<CopiedItem> children;
    for (const std::string& name : names.value()) {
      auto child = copy(from, name, to, foundation::appendingPathComponent(path, name));
      if (!child) return child.error();
      children.push_back(std::move(child).value());
    }
    return children;
  }

  int destination_;
  dev_t device_;
  std::map<FileNumber, std::string> copies_;  ///< where below the destination the first copy lies
};

}  // namespace

Result<CopiedItem> copyItem(int sourceFolder, const std::string& name, int destination) {
  struct stat status {};
  if (::fstatat(sourceFolder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return systemError(errno, name);
  }
  return TreeCopy(destination, status.st_dev).copy(sourceFolder, name, destination, name);
}

Result<void> removeCopied(int folder, const CopiedItem& item) {
  struct stat status {};
  if (::fstatat(folder, item.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return systemError(errno, item.name);
  }
  const bool isFolder = S_ISDIR(item.status.st_mode);
  if (isFolder ? !isSameItem(status, item.status) : !isUnchanged(status, item.status)) {
    return systemError(EBUSY, item.name);
  }
  if (isFolder) {
    const UniqueDescriptor inside(::openat(folder, item.name.c_str(), kReading | O_DIRECTORY));
    if (!inside) return systemError(errno, item.name);
    for (const CopiedItem& child : item.children) {
      if (auto removed = removeCopied(inside.get(), child); !removed) return removed;
    }
  }
  if (::unlinkat(folder, item.name.c_str(), isFolder ? AT_REMOVEDIR : 0) != 0) {
    return systemError(errno, item.name);
  }
  return {};
}

Result<void> removeItem(int folder, const std::string& name) {
  if (::unlinkat(folder, name.c_str(), 0) == 0) return {};
  if (errno != EISDIR) return systemError(errno, name);
  const UniqueDescriptor inside(::openat(folder, name.c_str(), kReading | O_DIRECTORY));
  if (!inside) return systemError(errno, name);
  auto names = namesIn(inside.get(), name);
  if (!names) return names.error();
  for (const std::string& child : names.value()) {
    if (auto removed = removeItem(inside.get(), child); !removed) return removed;
  }
  if (::unlinkat(folder, name.c_str(), AT_REMOVEDIR) != 0) return systemError(errno, name);
  return {};
}

}  // namespace platform
