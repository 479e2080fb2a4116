#include "platform/linux/LinuxFileAttributes.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/posix/GuardedFolders.h"
#include "platform/posix/UniqueDescriptor.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

constexpr long kHfsPlus = 0x482b;

/// An item held by a descriptor that opens nothing; every further step is about this one.
Result<UniqueDescriptor> holdItself(int folder, const std::string& name, const std::string& path) {
  UniqueDescriptor item(::openat(folder, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!item) return systemError(errno, path);
  return item;
}

Result<UniqueDescriptor> holdForReading(const std::string& path) {
  return holdItself(AT_FDCWD, path, path);
}

Result<UniqueDescriptor> holdForChanging(const std::string& path) {
  if (path.empty() || ::geteuid() != 0) return holdItself(AT_FDCWD, path, path);
  const auto place = openGuardedPlace(path);
  if (!place) return place.error();
  return holdItself(place.value().folder.get(), place.value().name, path);
}

/// The way back from a descriptor to a path, for calls that take no descriptor of this kind.
std::string pathOf(const UniqueDescriptor& item) {
  return "/proc/self/fd/" + std::to_string(item.get());
}

/// Opens the item itself, if it is one that opening does nothing to.
UniqueDescriptor openForFlags(const UniqueDescriptor& item) {
  struct stat status {};
  if (::fstat(item.get(), &status) != 0) return {};
  if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
    errno = EOPNOTSUPP;
    return {};
  }
  return UniqueDescriptor(::open(pathOf(item).c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

bool isImmutableItself(const UniqueDescriptor& item) {
  struct statx status {};
  if (::statx(item.get(), "", AT_EMPTY_PATH, 0, &status) != 0) return false;
  if ((status.stx_attributes_mask & STATX_ATTR_IMMUTABLE) != 0) {
    return (status.stx_attributes & STATX_ATTR_IMMUTABLE) != 0;
  }
  // A file system that does not tell statx may still have the flag.
  const UniqueDescriptor opened = openForFlags(item);
  int flags = 0;
  return opened && ::ioctl(opened.get(), FS_IOC_GETFLAGS, &flags) == 0 && (flags & FS_IMMUTABLE_FL) != 0;
}

std::string attributeName(const UniqueDescriptor& item) {
  struct statfs volume {};
  const bool isHfsPlus = ::fstatfs(item.get(), &volume) == 0 && volume.f_type == kHfsPlus;
  return isHfsPlus ? "osx.com.apple.FinderInfo" : "user.com.apple.FinderInfo";
}

}  // namespace

bool LinuxFileAttributes::isSymbolicLink(const std::string& path) {
  char first = 0;
  return ::readlink(path.c_str(), &first, 1) >= 0;
}

bool LinuxFileAttributes::isLedAstray(const std::string& path) {
  if (::geteuid() != 0) return false;
  const auto folder = openGuardedFolder(path);
  return !folder && folder.error().code == ELOOP;
}

bool LinuxFileAttributes::isImmutable(const std::string& path) {
  const auto item = holdForReading(path);
  return item && isImmutableItself(item.value());
}

Result<void> LinuxFileAttributes::setImmutable(const std::string& path, Immutable immutable) {
  const auto item = holdForChanging(path);
  if (!item) return item.error();
  if (isImmutableItself(item.value()) == (immutable == Immutable::yes)) return {};
  const UniqueDescriptor opened = openForFlags(item.value());
  int flags = 0;
  if (!opened || ::ioctl(opened.get(), FS_IOC_GETFLAGS, &flags) != 0) return systemError(errno, path);
  const int changed = immutable == Immutable::yes ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
  if (::ioctl(opened.get(), FS_IOC_SETFLAGS, &changed) != 0) return systemError(errno, path);
  return {};
}

Result<FinderInformation> LinuxFileAttributes::finderInformation(const std::string& path) {
  const auto item = holdForReading(path);
  if (!item) return item.error();
  FinderInformation information{};
  const ssize_t length = ::getxattr(pathOf(item.value()).c_str(), attributeName(item.value()).c_str(),
                                    information.data(), information.size());
  if (length < 0 && errno == ENODATA) return FinderInformation{};
  if (length < 0) return systemError(errno, path);
  if (static_cast<std::size_t>(length) != information.size()) return systemError(EINVAL, path);
  return information;
}

Result<void> LinuxFileAttributes::setFinderInformation(const std::string& path,
                                                       const FinderInformation& information) {
  const auto item = holdForChanging(path);
  if (!item) return item.error();
  const std::string held = pathOf(item.value());
  const std::string name = attributeName(item.value());
  const bool isNothing =
      std::all_of(information.begin(), information.end(), [](auto byte) { return byte == 0; });
  const int result = isNothing
                         ? ::removexattr(held.c_str(), name.c_str())
                         : ::setxattr(held.c_str(), name.c_str(), information.data(), information.size(), 0);
  if (result != 0 && !(isNothing && errno == ENODATA)) return systemError(errno, path);
  return {};
}

}  // namespace platform
