#include "platform/posix/ExclusiveRename.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "platform/posix/FileSystemCalls.h"
#include "platform/posix/UniqueDescriptor.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

struct Move {
  int fromFolder;
  const char* fromName;
  int toFolder;
  const char* toName;
};

/// 0, or the errno value.
int renameOverOurs(const Move& move, int removeFlags) {
  if (renameat(move.fromFolder, move.fromName, move.toFolder, move.toName) == 0) return 0;
  const int error = errno;
  unlinkat(move.toFolder, move.toName, removeFlags);
  return error;
}

int moveFolder(const Move& move) {
  if (mkdirat(move.toFolder, move.toName, 0700) != 0) return errno;
  const int error = renameOverOurs(move, AT_REMOVEDIR);
  return error == ENOTEMPTY ? EEXIST : error;
}

int moveOntoEmptyFile(const Move& move) {
  const UniqueDescriptor ours(
      openat(move.toFolder, move.toName, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  return ours ? renameOverOurs(move, 0) : errno;
}

bool lacksHardLinks(int error) {
  // Two names of one number here, two numbers on a Mac.
  constexpr std::array kReasons = {EPERM, EOPNOTSUPP, ENOTSUP, EMLINK};
  return std::find(kReasons.begin(), kReasons.end(), error) != kReasons.end();
}

int moveOther(const Move& move) {
  if (linkat(move.fromFolder, move.fromName, move.toFolder, move.toName, 0) != 0) {
    return lacksHardLinks(errno) ? moveOntoEmptyFile(move) : errno;
  }
  if (unlinkat(move.fromFolder, move.fromName, 0) == 0) return 0;
  const int error = errno;
  unlinkat(move.toFolder, move.toName, 0);
  return error;
}

bool lacksFlags(int error) {
  return error == EINVAL || error == ENOSYS;
}

int moveWithoutFlags(const Move& move) {
  struct stat status {};
  if (fstatat(move.fromFolder, move.fromName, &status, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  return S_ISDIR(status.st_mode) ? moveFolder(move) : moveOther(move);
}

}  // namespace

Result<void> renameWithoutReplacing(int fromFolder, const std::string& fromName, int toFolder,
                                    const std::string& toName, std::string_view path, RenameFlags flags) {
  const Move move{fromFolder, fromName.c_str(), toFolder, toName.c_str()};
  int error = EINVAL;
  if (flags == RenameFlags::use) error = renameIfFree(fromFolder, fromName, toFolder, toName);
  if (lacksFlags(error)) error = moveWithoutFlags(move);
  if (error != 0) return systemError(error, path);
  return {};
}

}  // namespace platform
