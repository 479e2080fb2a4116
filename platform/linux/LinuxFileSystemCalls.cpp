#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>

#include "platform/posix/FileMetadata.h"
#include "platform/posix/FileSystemCalls.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

constexpr std::size_t kLargest = 65536;  // the most that the kernel gives out, a list or a value

using Buffer = std::array<char, kLargest>;

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

}  // namespace

const int kWithoutMounting = AT_NO_AUTOMOUNT;
const int kUnlinkedFolder = EISDIR;

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

int renameIfFree(int fromFolder, const std::string& fromName, int toFolder, const std::string& toName) {
  return renameat2(fromFolder, fromName.c_str(), toFolder, toName.c_str(), RENAME_NOREPLACE) == 0 ? 0 : errno;
}

int exchangeNames(int folder, const std::string& one, const std::string& other) {
  return renameat2(folder, one.c_str(), folder, other.c_str(), RENAME_EXCHANGE) == 0 ? 0 : errno;
}

bool shareContents(int from, int to) {
  return ::ioctl(to, FICLONE, from) == 0;
}

ssize_t copyPiece(int from, off_t& fromAt, int to, off_t& toAt, std::size_t length) {
  return ::copy_file_range(from, &fromAt, to, &toAt, length, 0);
}

int flushVolume(int item) {
  return ::syncfs(item) == 0 ? 0 : errno;
}

void forgetCached(int file) {
  ::posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED);
}

int makeSpecialFile(int folder, const std::string& name, mode_t mode, dev_t device) {
  return ::mknodat(folder, name.c_str(), mode, device) == 0 ? 0 : errno;
}

int mountEffects(int held, MountEffects& effects) {
  struct statvfs mount {};
  if (::fstatvfs(held, &mount) != 0) return errno;
  effects = {(mount.f_flag & ST_NOSUID) == 0, (mount.f_flag & ST_NODEV) == 0};
  return 0;
}

}  // namespace platform
