#include "platform/posix/FolderReading.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string_view>

#include "platform/posix/UniqueDescriptor.h"

namespace platform {

int readFolderByStream(int folder, const VisitEntry& visit) {
  UniqueDescriptor own(::fcntl(folder, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  if (!own) return errno;
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(::fdopendir(own.get()), &::closedir);
  if (!stream) return errno;
  static_cast<void>(own.release());  // the stream's from here on
  while (true) {
    errno = 0;
    const dirent* const entry =
        ::readdir(stream.get());  // NOLINT(concurrency-mt-unsafe): a stream of our own
    if (entry == nullptr) return errno;
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") visit(entry->d_name, entry->d_type);
  }
}

}  // namespace platform
