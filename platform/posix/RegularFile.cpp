#include "platform/posix/RegularFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace platform {

using foundation::Result;
using foundation::systemError;

namespace {

constexpr std::size_t kReadSize = 64UL << 10;

int reasonAgainst(const struct stat& status) {
  if (S_ISLNK(status.st_mode)) return ELOOP;
  return S_ISREG(status.st_mode) ? 0 : EINVAL;
}

}  // namespace

Result<UniqueDescriptor> openRegularFile(int folder, const std::string& name, int flags,
                                         const std::string& path) {
  struct stat status {};
  const int following = (flags & O_NOFOLLOW) != 0 ? AT_SYMLINK_NOFOLLOW : 0;
  // Looked at first, because opening a device can do something to it and opening a FIFO wakes its writers.
  if (::fstatat(folder, name.c_str(), &status, following) == 0 && reasonAgainst(status) != 0) {
    return systemError(reasonAgainst(status), path);
  }
  UniqueDescriptor file(::openat(folder, name.c_str(), flags | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  if (!file || ::fstat(file.get(), &status) != 0) return systemError(errno, path);
  if (reasonAgainst(status) != 0) return systemError(reasonAgainst(status), path);
  return file;
}

Result<std::string> readWholeFile(int file, std::uint64_t limit, const std::string& path) {
  std::string bytes;
  std::string piece(kReadSize, '\0');
  while (true) {
    const ssize_t length = ::read(file, piece.data(), piece.size());
    if (length < 0 && errno == EINTR) continue;
    if (length < 0) return systemError(errno, path);
    if (length == 0) return bytes;
    bytes.append(piece, 0, static_cast<std::size_t>(length));
    if (bytes.size() > limit) return systemError(EFBIG, path);
  }
}

}  // namespace platform
