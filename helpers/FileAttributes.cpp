#include "helpers/FileAttributes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <vector>

namespace helpers {
namespace {

using foundation::Result;
using foundation::systemError;

Result<std::vector<std::string>> attributeNames(int file, std::string_view path) {
  std::vector<char> list(65536);  // the most that the kernel gives out
  const ssize_t length = flistxattr(file, list.data(), list.size());
  if (length < 0 && errno == EOPNOTSUPP) return std::vector<std::string>();
  if (length < 0) return systemError(errno, path);
  std::vector<std::string> names;
  for (const char* name = list.data(); name < list.data() + length; name += names.back().size() + 1) {
    names.emplace_back(name);
  }
  return names;
}

Result<void> copyAttribute(int from, int to, const std::string& name, std::string_view path) {
  std::vector<char> value(65536);
  const ssize_t length = fgetxattr(from, name.c_str(), value.data(), value.size());
  if (length < 0 && errno == ENODATA) return {};
  if (length < 0) return systemError(errno, path);
  if (fsetxattr(to, name.c_str(), value.data(), static_cast<std::size_t>(length), 0) == 0) return {};
  // A security label that the new place has by itself needs no copying.
  std::vector<char> present(65536);
  const int error = errno;
  const ssize_t presentLength = fgetxattr(to, name.c_str(), present.data(), present.size());
  if (presentLength == length && std::equal(value.begin(), value.begin() + length, present.begin()))
    return {};
  return systemError(error, path);
}

}  // namespace

Result<void> copyOwnerModeAndAttributes(int from, const FileStatus& fromStatus, int to, std::string_view path,
                                        CopiedRights rights) {
  const bool all = rights == CopiedRights::all;
  if (fchown(to, fromStatus.owner, fromStatus.group) != 0) return systemError(errno, path);
  const auto names = attributeNames(from, path);
  if (!names) return names.error();
  for (const std::string& name : names.value()) {
    if (!all && name.starts_with("security.")) continue;
    if (auto copied = copyAttribute(from, to, name, path); !copied) return copied;
  }
  if (fchmod(to, all ? fromStatus.permissions() : fromStatus.unprivilegedPermissions()) != 0)
    return systemError(errno, path);
  return {};
}

Result<void> setModified(int folder, const std::string& name, const FileStatus& status,
                         std::string_view path) {
  const std::array<timespec, 2> times = {status.modified, status.modified};
  if (utimensat(folder, name.c_str(), times.data(), AT_SYMLINK_NOFOLLOW) != 0)
    return systemError(errno, path);
  return {};
}

}  // namespace helpers
