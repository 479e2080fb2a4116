#include "platform/posix/FileMetadata.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "platform/posix/HeldEntries.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

constexpr auto kLeave = static_cast<uid_t>(-1);

enum class OwnerKept { no, yes };

/// Without the owner a group of the user's own can still be kept.
Result<OwnerKept> copyOwner(const FileStatus& original, const FileStatus& made, int to, std::string_view path,
                            Fidelity fidelity) {
  if (made.owner == original.owner && made.group == original.group) return OwnerKept::yes;
  const int reason = setOwner(to, original.owner, original.group);
  if (reason == 0) return OwnerKept::yes;
  if (fidelity == Fidelity::exact || (reason != EPERM && reason != EINVAL)) return systemError(reason, path);
  static_cast<void>(setOwner(to, kLeave, original.group));
  return OwnerKept::no;
}

mode_t finalMode(const FileStatus& original, OwnerKept ownerKept, Privileges privileges) {
  const mode_t mode = modeOfCopy(original, privileges);
  return ownerKept == OwnerKept::yes || original.isFolder() ? mode : mode & static_cast<mode_t>(01777);
}

}  // namespace

bool isBeyondUs(int reason) {
  // Two names of one number here, two numbers on a Mac.
  constexpr std::array kReasons = {EOPNOTSUPP, ENOTSUP, EPERM, EACCES};
  return std::find(kReasons.begin(), kReasons.end(), reason) != kReasons.end();
}

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
  if (const int reason = setTimes(file, {original.accessed, original.modified}); reason != 0) {
    return systemError(reason, path);
  }
  return {};
}

}  // namespace platform
