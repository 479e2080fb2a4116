#include "platform/posix/WakePipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "platform/foundation/Exception.h"
#include "platform/foundation/Result.h"

namespace platform {

WakePipe::WakePipe() {
  std::array<int, 2> ends{-1, -1};
  if (::pipe(ends.data()) != 0) {
    throw foundation::Exception(foundation::kGenericException,
                                foundation::systemError(errno, "pipe").localizedDescription());
  }
  reading_.reset(ends[0]);
  writing_.reset(ends[1]);
  for (const int end : ends) {
    ::fcntl(end, F_SETFD, FD_CLOEXEC);
    ::fcntl(end, F_SETFL, ::fcntl(end, F_GETFL) | O_NONBLOCK);
  }
}

void WakePipe::raise() const {
  const int before = errno;
  const char byte = 1;
  // A full pipe is raised already.
  while (::write(writing_.get(), &byte, 1) < 0 && errno == EINTR) {
  }
  errno = before;
}

void WakePipe::lower() const {
  std::array<char, 64> bytes{};
  while (true) {
    const ssize_t length = ::read(reading_.get(), bytes.data(), bytes.size());
    if (length <= 0 && errno != EINTR) return;
    if (length == 0) return;
  }
}

}  // namespace platform
