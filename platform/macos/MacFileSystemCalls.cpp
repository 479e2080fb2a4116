#include <copyfile.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/macos/ExtendedAccessList.h"
#include "platform/posix/FileMetadata.h"
#include "platform/posix/FileSystemCalls.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

/// fsync_volume_np, in systems since 10.13.
using FlushVolume = int(int, int);
constexpr int kFullSync = 0x01;
constexpr int kWait = 0x02;

/// Where a file system has no flags for renaming, the way without them is taken.
int withoutFlags(int reason) {
  return reason == ENOTSUP ? EINVAL : reason;
}

int rename(int fromFolder, const std::string& from, int toFolder, const std::string& to, unsigned flags) {
  return ::renameatx_np(fromFolder, from.c_str(), toFolder, to.c_str(), flags) == 0 ? 0 : errno;
}

Result<void> copyByFlag(int from, int to, copyfile_flags_t flag, std::string_view path, Fidelity fidelity) {
  if (::fcopyfile(from, to, nullptr, flag) == 0) return {};
  if (fidelity == Fidelity::possible && isBeyondUs(errno)) return {};
  return systemError(errno, path);
}

}  // namespace

const int kWithoutMounting = 0;
const int kUnlinkedFolder = EPERM;

/// What an access list gives to others it gives them on the copy too, as on Linux, where it is an attribute.
Result<bool> copyAttributes(int from, int to, std::string_view path, MetadataOptions options) {
  const ssize_t length = ::flistxattr(from, nullptr, 0, 0);
  if (length < 0 && errno != ENOTSUP && errno != EPERM) return systemError(errno, path);
  const bool hasList = accessListOf(from) != nullptr;
  if (length > 0) {
    if (auto copied = copyByFlag(from, to, COPYFILE_XATTR, path, options.fidelity); !copied) {
      return copied.error();
    }
  }
  if (hasList) {
    if (auto copied = copyByFlag(from, to, COPYFILE_ACL, path, options.fidelity); !copied) {
      return copied.error();
    }
  }
  return length > 0 || hasList;
}

int renameIfFree(int fromFolder, const std::string& fromName, int toFolder, const std::string& toName) {
  return withoutFlags(rename(fromFolder, fromName, toFolder, toName, RENAME_EXCL));
}

int exchangeNames(int folder, const std::string& one, const std::string& other) {
  return rename(folder, one, folder, other, RENAME_SWAP);
}

/// A clone is a new file, not the content of one that is there.
bool shareContents(int /*from*/, int /*to*/) {
  return false;
}

ssize_t copyPiece(int /*from*/, off_t& /*fromAt*/, int /*to*/, off_t& /*toAt*/, std::size_t /*length*/) {
  errno = ENOTSUP;
  return -1;
}

int flushVolume(int item) {
  if (auto* const flush = reinterpret_cast<FlushVolume*>(::dlsym(RTLD_DEFAULT, "fsync_volume_np"))) {
    return flush(item, kFullSync | kWait) == 0 ? 0 : errno;
  }
  ::sync();
  return ::fcntl(item, F_FULLFSYNC) == 0 ? 0 : errno;
}

void forgetCached(int file) {
  ::fcntl(file, F_NOCACHE, 1);
}

int makeSpecialFile(int /*folder*/, const std::string& /*name*/, mode_t /*mode*/, dev_t /*device*/) {
  return ENOTSUP;
}

int mountEffects(int held, MountEffects& effects) {
  struct statfs mount {};
  if (::fstatfs(held, &mount) != 0) return errno;
  effects = {(mount.f_flags & MNT_NOSUID) == 0, (mount.f_flags & MNT_NODEV) == 0};
  return 0;
}

}  // namespace platform
