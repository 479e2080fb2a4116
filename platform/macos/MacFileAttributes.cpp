#include "platform/macos/MacFileAttributes.h"

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>

#include "platform/posix/GuardedFolders.h"
#include "platform/posix/HeldEntries.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

constexpr const char* kFinderInformation = "com.apple.FinderInfo";

Result<void> outcome(int reason, const std::string& path) {
  return reason == 0 ? Result<void>() : systemError(reason, path);
}

/// The item that root is to change.
Result<UniqueDescriptor> holdForChanging(const std::string& path) {
  if (path.empty()) return systemError(ENOENT, path);  // not the current folder
  const auto place = openGuardedPlace(path);
  if (!place) return place.error();
  const std::string& name = place.value().name;
  return openEntry(place.value().folder.get(), name.empty() || name == "/" ? "." : name, path);
}

constexpr std::uint32_t kLocks = UF_IMMUTABLE | SF_IMMUTABLE;

// Each setter below answers 0 or an errno value.

bool isLocked(const struct stat& status) {
  return (status.st_flags & kLocks) != 0;
}

std::uint32_t flagsWith(const struct stat& status, Immutable immutable) {
  return immutable == Immutable::yes ? status.st_flags | UF_IMMUTABLE : status.st_flags & ~kLocks;
}

int setLockOf(int item, Immutable immutable) {
  struct stat status {};
  if (::fstat(item, &status) != 0) return errno;
  if (isLocked(status) == (immutable == Immutable::yes)) return 0;
  return ::fchflags(item, flagsWith(status, immutable)) == 0 ? 0 : errno;
}

int setLockAt(const std::string& path, Immutable immutable) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return errno;
  if (isLocked(status) == (immutable == Immutable::yes)) return 0;
  return ::lchflags(path.c_str(), flagsWith(status, immutable)) == 0 ? 0 : errno;
}

int storeIn(int item, const FinderInformation& information) {
  const int stored = ::fsetxattr(item, kFinderInformation, information.data(), information.size(), 0, 0);
  return stored == 0 ? 0 : errno;
}

int storeAt(const std::string& path, const FinderInformation& information) {
  const int stored =
      ::setxattr(path.c_str(), kFinderInformation, information.data(), information.size(), 0, XATTR_NOFOLLOW);
  return stored == 0 ? 0 : errno;
}

}  // namespace

bool MacFileAttributes::isSymbolicLink(const std::string& path) {
  char first = 0;
  return ::readlink(path.c_str(), &first, 1) >= 0;
}

bool MacFileAttributes::isLedAstray(const std::string& path) {
  if (::geteuid() != 0) return false;
  const auto folder = openGuardedFolder(path);
  return !folder && folder.error().code == ELOOP;
}

bool MacFileAttributes::isImmutable(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && isLocked(status);
}

Result<void> MacFileAttributes::setImmutable(const std::string& path, Immutable immutable) {
  if (::geteuid() != 0) return outcome(setLockAt(path, immutable), path);
  const auto item = holdForChanging(path);
  if (!item) return item.error();
  return outcome(setLockOf(item.value().get(), immutable), path);
}

Result<FinderInformation> MacFileAttributes::finderInformation(const std::string& path) {
  FinderInformation information{};
  const ssize_t length =
      ::getxattr(path.c_str(), kFinderInformation, information.data(), information.size(), 0, XATTR_NOFOLLOW);
  if (length < 0 && errno == ENOATTR) return FinderInformation{};
  if (length < 0) return systemError(errno, path);
  if (static_cast<std::size_t>(length) != information.size()) return systemError(EINVAL, path);
  return information;
}

/// Thirty-two zeros are the same to the system as none at all.
Result<void> MacFileAttributes::setFinderInformation(const std::string& path,
                                                     const FinderInformation& information) {
  if (::geteuid() != 0) return outcome(storeAt(path, information), path);
  const auto item = holdForChanging(path);
  if (!item) return item.error();
  return outcome(storeIn(item.value().get(), information), path);
}

}  // namespace platform
