#pragma once

#include <csignal>

#include "platform/posix/SpawnedProgram.h"
#include "platform/posix/StandardStreams.h"

namespace platform {

/// What every part of a backend counts on: three standard streams, the exit statuses of children, and that
/// writing to a pipe without a reader is an error, not the end.
struct ProcessSetUp {
  ProcessSetUp() {
    static_cast<void>(openStandardStreams());
    keepExitStatuses();
    ::signal(SIGPIPE, SIG_IGN);
  }
};

}  // namespace platform
