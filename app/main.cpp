#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "app/CommandLine.h"

namespace {

/// A scheduler may start us with standard streams closed; a file opened later must not become one of them.
void openStandardDescriptors() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(descriptor, F_GETFD) == -1 && errno == EBADF) {
      // The lowest free number is this one: those below it are open.
      if (::open("/dev/null", O_RDWR) != descriptor) ::_exit(1);  // NOLINT: variadic by nature
    }
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  openStandardDescriptors();
  // Whoever reads our output may leave; the repair goes on.
  if (std::signal(SIGPIPE, SIG_IGN) == SIG_ERR) return 1;
  return runCommandLine({argv, argv + argc}, stdout);
}
