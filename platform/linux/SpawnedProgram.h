#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/foundation/Result.h"
#include "platform/posix/UniqueDescriptor.h"

/// Children that stay in this process's session, which Subprocesses' children do not; posix_spawn(3).
namespace platform {

/// What to start. The streams are descriptors of this process; -1 stands for the null device.
struct ProgramToSpawn {
  std::vector<std::string> command;      ///< the program's path, then its arguments
  std::vector<std::string> environment;  ///< "NAME=value"
  int standardInput = -1;
  int standardOutput = -1;
  int standardError = -1;
};

/// Starts it as a direct child in a process group of its own, with no descriptor but its three streams, no
/// signal ignored and none blocked. The caller reaps it.
[[nodiscard]] foundation::Result<pid_t> spawnProgram(const ProgramToSpawn& program);

/// Waits for a child to end and answers its wait status (waitpid(2)); -1 when it is no child of ours.
int waitForProgram(pid_t child);

/// A descriptor above the three standard ones, also in a process that was started with one of them closed.
[[nodiscard]] UniqueDescriptor raisedDescriptor(UniqueDescriptor descriptor);

struct Pipe {
  UniqueDescriptor reading;
  UniqueDescriptor writing;
};

/// A new pipe. Neither end is one of the three standard descriptors, and no child inherits them. Both are
/// empty on failure.
[[nodiscard]] Pipe makePipe();

/// This process's environment as "NAME=value".
[[nodiscard]] std::vector<std::string> currentEnvironment();

}  // namespace platform
