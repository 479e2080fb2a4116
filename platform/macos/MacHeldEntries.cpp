#include <fcntl.h>
#include <sys/attr.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>

#include "platform/posix/FileMetadata.h"
#include "platform/posix/FileTimes.h"
#include "platform/posix/HeldEntries.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

constexpr int kHolding = O_RDONLY | O_EVTONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr time_t kCoarseTime = 2;  // seconds, for a volume that keeps whole ones

/// Opening a FIFO wakes its writers, opening a device does something to it, a socket cannot be opened.
bool canBeHeld(const struct stat& status) {
  return S_ISREG(status.st_mode) || S_ISDIR(status.st_mode) || S_ISLNK(status.st_mode);
}

bool isSameItem(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

bool isSameTime(const timespec& one, const timespec& other) {
  return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

bool isOneItem(int one, const UniqueDescriptor& other) {
  struct stat first {};
  struct stat second {};
  return other && ::fstat(one, &first) == 0 && ::fstat(other.get(), &second) == 0 &&
         isSameItem(first, second);
}

/// A path that leads to what is open, or did a moment ago: fcntl(2), F_GETPATH. Empty where none is known.
std::string pathOf(int descriptor) {
  std::string path(PATH_MAX, '\0');
  if (::fcntl(descriptor, F_GETPATH, path.data()) != 0) return {};
  path.resize(path.find('\0'));
  return path;
}

FileStatus statusFrom(const struct stat& raw) {
  FileStatus status;
  status.device = deviceNumber(raw.st_dev);
  status.inode = raw.st_ino;
  status.mode = raw.st_mode;
  status.owner = raw.st_uid;
  status.group = raw.st_gid;
  status.links = raw.st_nlink;
  status.size = static_cast<std::uint64_t>(raw.st_size);
  status.representedDevice = raw.st_rdev;
  status.blocks = static_cast<std::uint64_t>(raw.st_blocks);
  status.accessed = accessTime(raw);
  status.modified = modificationTime(raw);
  status.changed = changeTime(raw);
  return status;
}

/// Whether a change could have gone by within the unit that the volume keeps times in.
bool isTooRecent(const timespec& changed) {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  return changed.tv_nsec == 0 && now.tv_sec - changed.tv_sec < kCoarseTime;
}

/// In the order in which setattrlist(2) takes them.
struct OwnerAndMode {
  uid_t owner;
  gid_t group;
  std::uint32_t mode;
};

/// All by one call: between two the owner until then could give the bits again.
int setOwnerWithoutSetIds(int file, const struct stat& now, uid_t owner, gid_t group) {
  constexpr auto kLeave = static_cast<uid_t>(-1);
  attrlist changed{};
  changed.bitmapcount = ATTR_BIT_MAP_COUNT;
  changed.commonattr = ATTR_CMN_OWNERID | ATTR_CMN_GRPID | ATTR_CMN_ACCESSMASK;
  OwnerAndMode values{owner == kLeave ? now.st_uid : owner, group == kLeave ? now.st_gid : group,
                      now.st_mode & 01777U};
  return ::fsetattrlist(file, &changed, &values, sizeof values, 0) == 0 ? 0 : errno;
}

}  // namespace

std::uint64_t deviceNumber(dev_t device) {
  return static_cast<std::uint32_t>(device);
}

Result<FileStatus> statusOf(int descriptor, std::string_view path) {
  struct stat raw {};
  if (::fstat(descriptor, &raw) != 0) return systemError(errno, path);
  return statusFrom(raw);
}

Result<FileStatus> statusIn(int folder, const std::string& name, std::string_view path) {
  struct stat raw {};
  if (::fstatat(folder, name.c_str(), &raw, AT_SYMLINK_NOFOLLOW) != 0) return systemError(errno, path);
  return statusFrom(raw);
}

UniqueDescriptor holdEntry(int folder, const std::string& name, LastLink lastLink, int flags) {
  const bool isItself = lastLink == LastLink::keep;
  struct stat status {};
  if (::fstatat(folder, name.c_str(), &status, isItself ? AT_SYMLINK_NOFOLLOW : 0) != 0) return {};
  UniqueDescriptor held;
  if (canBeHeld(status)) {
    held.reset(::openat(folder, name.c_str(), kHolding | (isItself ? O_SYMLINK : 0) | flags));
    if (!held || ::fstat(held.get(), &status) != 0) return {};
  }
  if (canBeHeld(status)) return held;
  errno = ENOTSUP;
  return {};
}

UniqueDescriptor holdFolder(int folder, const std::string& path) {
  return UniqueDescriptor(::openat(folder, path.c_str(), kHolding | O_DIRECTORY));
}

UniqueDescriptor openHeld(int held, int flags) {
  struct stat status {};
  if (::fstat(held, &status) != 0) return {};
  if (S_ISDIR(status.st_mode)) return UniqueDescriptor(::openat(held, ".", flags));
  const std::string path = canBeHeld(status) ? pathOf(held) : "";
  if (path.empty()) {
    errno = ENOTSUP;
    return {};
  }
  UniqueDescriptor opened(::open(path.c_str(), flags | O_NOFOLLOW | O_NONBLOCK));
  if (opened && !isOneItem(held, opened)) {
    errno = ENOENT;
    opened.reset();
  }
  return opened;
}

Result<std::string> targetOfLink(int link, std::string_view path) {
  struct stat held {};
  struct stat named {};
  std::string target(4096, '\0');
  // A link never leads elsewhere than when it was made: it is the same where it is before and after the look.
  const std::string place = pathOf(link);
  const bool isThere =
      ::fstat(link, &held) == 0 && ::lstat(place.c_str(), &named) == 0 && isSameItem(held, named);
  const ssize_t length = isThere ? ::readlink(place.c_str(), target.data(), target.size()) : -1;
  if (length < 0) return systemError(isThere ? errno : ENOENT, path);
  if (::lstat(place.c_str(), &named) != 0 || !isSameItem(held, named)) return systemError(ENOENT, path);
  if (static_cast<std::size_t>(length) == target.size()) return systemError(ENAMETOOLONG, path);
  target.resize(static_cast<std::size_t>(length));
  return target;
}

bool hasKeptItsName(int descriptor, int folder, const std::string& name) {
  struct stat open {};
  struct stat named {};
  if (::fstat(descriptor, &open) != 0) return false;
  if (::fstatat(folder, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0) return false;
  // The name was looked up between the two: had it come or gone since the first, or another name, the time
  // of change would tell.
  return isSameItem(open, named) && open.st_nlink == 1 && named.st_nlink == 1 &&
         isSameTime(changeTime(open), changeTime(named)) && !isTooRecent(changeTime(open));
}

KeptNames::KeptNames() = default;

bool KeptNames::has(int descriptor, int folder, const std::string& name) const {
  return hasKeptItsName(descriptor, folder, name);
}

/// fchown(2) leaves the set-ID bits where root calls: a program that a user has made would be root's with
/// them.
int setOwner(int held, uid_t owner, gid_t group) {
  struct stat now {};
  if (::fstat(held, &now) != 0) return errno;
  if (S_ISREG(now.st_mode)) return setOwnerWithoutSetIds(held, now, owner, group);
  return ::fchown(held, owner, group) == 0 ? 0 : errno;
}

int setTimes(int held, const std::array<timespec, 2>& times) {
  return ::futimens(held, times.data()) == 0 ? 0 : errno;
}

Result<void> setPermissions(int descriptor, mode_t mode, std::string_view path) {
  if (::fchmod(descriptor, mode) != 0) return systemError(errno, path);
  return {};
}

}  // namespace platform
