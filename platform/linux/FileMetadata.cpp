#include "platform/linux/FileMetadata.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <vector>

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

constexpr long kFchmodat2 = 452;         // newer than the C library's headers
constexpr std::size_t kLargest = 65536;  // the most that the kernel gives out, a list or a value
constexpr auto kLeave = static_cast<uid_t>(-1);

using Buffer = std::array<char, kLargest>;

/// Whether a failure only says that the new place cannot hold it, or that it is not this user's to set.
bool isBeyondUs(int reason) {
  return reason == EOPNOTSUPP || reason == EPERM || reason == EACCES;
}

Result<std::vector<std::string>> attributeNames(int file, std::string_view path) {
  Buffer list;  // NOLINT(*-member-init): filled by the kernel, for every file that is copied
  const ssize_t length = ::flistxattr(file, list.data(), list.size());
  if (length < 0 && errno != EOPNOTSUPP) return systemError(errno, path);
  std::vector<std::string> names;
  for (const char* name = list.data(); name < list.data() + length; name += names.back().size() + 1) {
    names.emplace_back(name);
  }
  return names;
}

bool isThereAlready(int file, const char* name, const Buffer& value, std::size_t length) {
  Buffer present;  // NOLINT(*-member-init)
  const ssize_t found = ::fgetxattr(file, name, present.data(), present.size());
  return found == static_cast<ssize_t>(length) &&
         std::equal(value.begin(), value.begin() + found, present.begin());
}

Result<void> copyAttribute(int from, int to, const char* name, std::string_view path, Fidelity fidelity) {
  Buffer value;  // NOLINT(*-member-init)
  const ssize_t length = ::fgetxattr(from, name, value.data(), value.size());
  if (length < 0 && errno == ENODATA) return {};
  if (length >= 0 && ::fsetxattr(to, name, value.data(), static_cast<std::size_t>(length), 0) == 0) return {};
  const int reason = errno;
  if (fidelity == Fidelity::possible && isBeyondUs(reason)) return {};
  // A security label that the new place has by itself needs no copying.
  if (length >= 0 && isThereAlready(to, name, value, static_cast<std::size_t>(length))) return {};
  return systemError(reason, path);
}

/// Answers whether there were any.
Result<bool> copyAttributes(int from, int to, std::string_view path, MetadataOptions options) {
  const auto names = attributeNames(from, path);
  if (!names) return names.error();
  for (const std::string& name : names.value()) {
    if (options.privileges == Privileges::drop && name.starts_with("security.")) continue;
    if (auto copied = copyAttribute(from, to, name.c_str(), path, options.fidelity); !copied) {
      return copied.error();
    }
  }
  return !names.value().empty();
}

enum class OwnerKept { no, yes };

/// Without the owner a group of the user's own can still be kept.
Result<OwnerKept> copyOwner(const FileStatus& original, const FileStatus& made, int to, std::string_view path,
                            Fidelity fidelity) {
  if (made.owner == original.owner && made.group == original.group) return OwnerKept::yes;
  if (::fchownat(to, "", original.owner, original.group, AT_EMPTY_PATH) == 0) return OwnerKept::yes;
  if (fidelity == Fidelity::exact || (errno != EPERM && errno != EINVAL)) return systemError(errno, path);
  static_cast<void>(::fchownat(to, "", kLeave, original.group, AT_EMPTY_PATH));
  return OwnerKept::no;
}

mode_t finalMode(const FileStatus& original, OwnerKept ownerKept, Privileges privileges) {
  const mode_t mode = modeOfCopy(original, privileges);
  return ownerKept == OwnerKept::yes || original.isFolder() ? mode : mode & static_cast<mode_t>(01777);
}

}  // namespace

mode_t modeOfCopy(const FileStatus& original, Privileges privileges) {
  const bool isDisarmed = privileges == Privileges::drop && ::geteuid() == 0;
  return isDisarmed ? original.unprivilegedPermissions() : original.permissions();
}

/// The owner first, because a new one takes set-ID bits away; the mode after the access control list, which
/// changes it.
Result<void> copyOwnerModeAndAttributes(int from, const FileStatus& original, int to, std::string_view path,
                                        MetadataOptions options) {
  const auto made = statusOf(to, path);
  if (!made) return made.error();
  const auto ownerKept = copyOwner(original, made.value(), to, path, options.fidelity);
  if (!ownerKept) return ownerKept.error();
  const auto hadAttributes = copyAttributes(from, to, path, options);
  if (!hadAttributes) return hadAttributes.error();
  const mode_t mode = finalMode(original, ownerKept.value(), options.privileges);
  const bool hasOwnerSince = made.value().owner == original.owner && made.value().group == original.group;
  const bool isSo = hasOwnerSince && !hadAttributes.value() && made.value().permissions() == mode;
  if (isSo || ::fchmod(to, mode) == 0) return {};
  if (options.fidelity == Fidelity::possible && isBeyondUs(errno)) return {};
  return systemError(errno, path);
}

Result<void> copyOwnerAndMode(const FileStatus& original, int to, std::string_view path,
                              MetadataOptions options) {
  const auto made = statusOf(to, path);
  if (!made) return made.error();
  const auto ownerKept = copyOwner(original, made.value(), to, path, options.fidelity);
  if (!ownerKept) return ownerKept.error();
  if (original.isSymbolicLink()) return {};
  return setPermissions(to, finalMode(original, ownerKept.value(), options.privileges), path);
}

Result<void> copyTimes(const FileStatus& original, int file, std::string_view path) {
  const std::array<timespec, 2> times = {original.accessed, original.modified};
  // By its number alone: AT_EMPTY_PATH costs a look at a path, and is needed for O_PATH only.
  if (::futimens(file, times.data()) == 0) return {};
  if (errno == EBADF && ::utimensat(file, "", times.data(), AT_EMPTY_PATH) == 0) return {};
  return systemError(errno, path);
}

Result<void> setPermissions(int descriptor, mode_t mode, std::string_view path) {
  if (::syscall(kFchmodat2, descriptor, "", mode, AT_EMPTY_PATH) == 0) return {};
  // An old kernel says ENOSYS, a container's filter EPERM: the second way tells which of them was meant.
  if (errno != ENOSYS && errno != EPERM) return systemError(errno, path);
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  if (::chmod(link.c_str(), mode) != 0) return systemError(errno, path);
  return {};
}

}  // namespace platform
