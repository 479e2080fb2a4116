#include "platform/linux/LinuxFileBrowser.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>

#include "platform/posix/UniqueDescriptor.h"

namespace platform {

OSStatus LinuxFileBrowser::itemChanged(const std::string& path) {
  // Held, so that the times are written to the item that they were read from; nothing is opened by this.
  const UniqueDescriptor item(::open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!item || ::fstat(item.get(), &status) != 0) return statusForErrno(errno);
  const std::array<timespec, 2> times{status.st_atim, status.st_mtim};
  return ::utimensat(item.get(), "", times.data(), AT_EMPTY_PATH) == 0 ? noErr : statusForErrno(errno);
}

}  // namespace platform
