#include "platform/posix/GuardedFileLocks.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

#include "platform/foundation/Paths.h"
#include "platform/posix/FileRights.h"
#include "platform/posix/GuardedFolders.h"
#include "platform/posix/RegularFile.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

class Flock : public FileLock {
 public:
  explicit Flock(UniqueDescriptor file) : file_(std::move(file)) {}

 private:
  UniqueDescriptor file_;
};

/// Made with the rights of the folder's owner, whom it is to belong to.
bool makeLockFile(int folder, const std::string& name) {
  struct stat owner {};
  if (::fstat(folder, &owner) != 0) return false;
  const bool isForOwner = ::geteuid() == 0 && owner.st_uid != 0;
  const FileRightsScope scope(isForOwner ? std::optional(FileRights{owner.st_uid, owner.st_gid})
                                         : std::nullopt);
  if (!scope.isInForce()) return false;
  const UniqueDescriptor file(
      ::openat(folder, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  return file || errno == EEXIST;
}

/// For writing where that is allowed, because a lock on a file of the network needs it.
Result<UniqueDescriptor> openLockFile(int folder, const std::string& name, const std::string& path) {
  auto file = openRegularFile(folder, name, O_RDWR | O_NOFOLLOW, path);
  if (!file && file.error().code == EACCES) file = openRegularFile(folder, name, O_RDONLY | O_NOFOLLOW, path);
  return file;
}

}  // namespace

Result<std::unique_ptr<FileLock>> GuardedFileLocks::tryLock(const std::string& path) {
  const auto place = openGuardedPlace(path);
  if (!place) return place.error();
  const int folder = place.value().folder.get();
  const std::string name = "." + place.value().name + ".lock";
  if (!makeLockFile(folder, name)) return systemError(errno, path);
  auto file = openLockFile(folder, name, path);
  if (!file) return file.error();
  if (::flock(file.value().get(), LOCK_EX | LOCK_NB) != 0) return systemError(errno, path);
  return std::unique_ptr<FileLock>(std::make_unique<Flock>(std::move(file).value()));
}

}  // namespace platform
