#include "platform/posix/GuardedFolders.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/foundation/Paths.h"
#include "platform/posix/FileRights.h"
#include "platform/posix/HeldEntries.h"
#include "platform/posix/PathEntry.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

UniqueDescriptor opened(int folder, const char* path) {
  UniqueDescriptor descriptor(::openat(folder, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!descriptor && errno == EACCES) {
    descriptor = holdFolder(folder, path);
  }
  return descriptor;
}

int makeFolder(int parent, const std::string& name, mode_t mode) {
  return ::mkdirat(parent, name.c_str(), mode) == 0 ? 0 : errno;
}

}  // namespace

Result<UniqueDescriptor> openGuardedFolder(const std::string& path) {
  UniqueDescriptor folder;
  if (::geteuid() == 0) {
    const auto located = locateFolder(path);
    if (!located) return systemError(located.error().code == EPERM ? ELOOP : located.error().code, path);
    folder = opened(located.value().get(), ".");
  } else {
    folder = opened(AT_FDCWD, path.c_str());
  }
  if (!folder) return systemError(errno, path);
  return folder;
}

Result<GuardedPlace> openGuardedPlace(const std::string& path) {
  const std::string parent = foundation::deletingLastPathComponent(path);
  auto folder = openGuardedFolder(parent.empty() ? "." : parent);
  if (!folder) return systemError(folder.error().code, path);
  return GuardedPlace{std::move(folder).value(), foundation::lastPathComponent(path)};
}

int makeFolders(const std::string& path) {
  if (::mkdir(path.c_str(), 0755) == 0 || errno == EEXIST) return 0;
  const std::string above = foundation::deletingLastPathComponent(path);
  if (errno != ENOENT || above.empty() || above == path) return errno;
  if (const int reason = makeFolders(above); reason != 0) return reason;
  return ::mkdir(path.c_str(), 0755) == 0 || errno == EEXIST ? 0 : errno;
}

int makeFolderForOwner(int parent, const std::string& name, mode_t mode) {
  struct stat owner {};
  if (::fstat(parent, &owner) != 0) return errno;
  if (::geteuid() != 0 || owner.st_uid == 0) return makeFolder(parent, name, mode);
  const FileRightsScope scope(FileRights{owner.st_uid, owner.st_gid});
  return scope.isInForce() ? makeFolder(parent, name, mode) : EPERM;
}

Result<UniqueDescriptor> openTrashFolder(const std::string& path) {
  const auto place = openGuardedPlace(path);
  if (!place) return place.error();
  const int parent = place.value().folder.get();
  const std::string& name = place.value().name;
  struct stat around {};
  if (::fstat(parent, &around) != 0) return systemError(errno, path);
  const int reason = makeFolderForOwner(parent, name, 0700);
  if (reason != 0 && reason != EEXIST) return systemError(reason, path);
  UniqueDescriptor trash(::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!trash || ::fstat(trash.get(), &status) != 0) return systemError(errno, path);
  if (status.st_uid != (::geteuid() == 0 ? around.st_uid : ::geteuid())) return systemError(EPERM, path);
  return trash;
}

}  // namespace platform
