#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <optional>

#include "platform/posix/FileMetadata.h"
#include "platform/posix/HeldEntries.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

constexpr long kFchmodat2 = 452;  // newer than the C library's headers

/// The way back from a descriptor to a path, for calls that take no descriptor of this kind.
std::string pathOf(int descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor);
}

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

Result<FileStatus> askedFor(int descriptor, const char* name, int flags, std::string_view path) {
  struct statx raw {};
  flags |= AT_NO_AUTOMOUNT | AT_SYMLINK_NOFOLLOW;
  if (statx(descriptor, name, flags, STATX_BASIC_STATS | STATX_MNT_ID, &raw) != 0) {
    return systemError(errno, path);
  }
  return statusFrom(raw);
}

/// By the link to a held file in /proc; nothing where it cannot be read.
std::optional<bool> hasKeptNameOf(int place, const std::string& link) {
  // The kernel marks the name that was opened, for good: neither a new name nor the old one given again takes
  // the mark away.
  constexpr std::string_view kMark = " (deleted)";
  std::array<char, PATH_MAX> name;  // NOLINT(*-member-init): 4096 zeroes for each file
  const ssize_t length = ::readlinkat(place, link.c_str(), name.data(), name.size());
  if (length < 0) return std::nullopt;
  return !std::string_view(name.data(), static_cast<std::size_t>(length)).ends_with(kMark);
}

}  // namespace

std::uint64_t deviceNumber(dev_t device) {
  return (std::uint64_t{major(device)} << 32U) | minor(device);
}

Result<FileStatus> statusOf(int descriptor, std::string_view path) {
  return askedFor(descriptor, "", AT_EMPTY_PATH, path);
}

Result<FileStatus> statusIn(int folder, const std::string& name, std::string_view path) {
  return askedFor(folder, name.c_str(), 0, path);
}

UniqueDescriptor holdEntry(int folder, const std::string& name, LastLink lastLink, int flags) {
  const int following = lastLink == LastLink::keep ? O_NOFOLLOW : 0;
  return UniqueDescriptor(::openat(folder, name.c_str(), O_PATH | O_CLOEXEC | following | flags));
}

UniqueDescriptor holdFolder(int folder, const std::string& path) {
  return UniqueDescriptor(::openat(folder, path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

UniqueDescriptor openHeld(int held, int flags) {
  return UniqueDescriptor(::open(pathOf(held).c_str(), flags));
}

Result<std::string> targetOfLink(int link, std::string_view path) {
  std::string target(4096, '\0');
  const ssize_t length = readlinkat(link, "", target.data(), target.size());
  if (length < 0) return systemError(errno, path);
  if (static_cast<std::size_t>(length) == target.size()) return systemError(ENAMETOOLONG, path);
  target.resize(static_cast<std::size_t>(length));
  return target;
}

bool hasKeptItsName(int descriptor, int /*folder*/, const std::string& /*name*/) {
  const auto kept = hasKeptNameOf(AT_FDCWD, pathOf(descriptor));
  return kept ? *kept : errno == ENOENT;
}

KeptNames::KeptNames() : descriptors_(holdFolder(AT_FDCWD, "/proc/self/fd")) {}

bool KeptNames::has(int descriptor, int folder, const std::string& name) const {
  const auto kept = hasKeptNameOf(descriptors_.get(), std::to_string(descriptor));
  return kept ? *kept : hasKeptItsName(descriptor, folder, name);
}

int setOwner(int held, uid_t owner, gid_t group) {
  return ::fchownat(held, "", owner, group, AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

int setTimes(int held, const std::array<timespec, 2>& times) {
  // By its number alone: AT_EMPTY_PATH costs a look at a path, and is needed for O_PATH only.
  if (::futimens(held, times.data()) == 0) return 0;
  if (errno == EBADF && ::utimensat(held, "", times.data(), AT_EMPTY_PATH) == 0) return 0;
  return errno;
}

Result<void> setPermissions(int descriptor, mode_t mode, std::string_view path) {
  if (::syscall(kFchmodat2, descriptor, "", mode, AT_EMPTY_PATH) == 0) return {};
  // An old kernel says ENOSYS, a container's filter EPERM: the second way tells which of them was meant.
  if (errno != ENOSYS && errno != EPERM) return systemError(errno, path);
  if (::chmod(pathOf(descriptor).c_str(), mode) != 0) return systemError(errno, path);
  return {};
}

}  // namespace platform
