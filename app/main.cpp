#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "app/CommandLine.h"
#include "platform/posix/StandardStreams.h"

namespace {

/// A file that is installed set-user-ID or set-group-ID lends its rights to everybody who starts it, along
/// with an environment, descriptors and a working folder of their choosing. This program is made for none of
/// that.
bool hasRightsOfItsFile() {
  return ::getuid() != ::geteuid() || ::getgid() != ::getegid();
}

}  // namespace

int main(int argc, char* argv[]) {
  if (!platform::openStandardStreams()) return 1;
  if (hasRightsOfItsFile()) {
    std::fputs(
        "Quillmend must not be installed set-user-ID or set-group-ID: nothing was done. "
        "Take that mode off the program and start it with sudo.\n",
        stderr);
    return 1;
  }
  // Whoever reads our output may leave, and whoever starts us may limit the size of files; the repair goes
  // on.
  for (const int signal : {SIGPIPE, SIGXFSZ}) {
    if (std::signal(signal, SIG_IGN) == SIG_ERR) return 1;
  }
  return runCommandLine({argv, argv + argc}, stdout);
}
