#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace platform {

/// Opens those of the three standard streams that are closed, as the null device: a scheduler may start a
/// program so, and a file that it opens later must not be taken for one of them. Answers whether all three
/// are open now.
[[nodiscard]] inline bool openStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(stream, F_GETFD) >= 0 || errno != EBADF) continue;
    // The lowest free number is this one: those below it are open.
    if (::open("/dev/null", O_RDWR) != stream) return false;
  }
  return true;
}

}  // namespace platform
