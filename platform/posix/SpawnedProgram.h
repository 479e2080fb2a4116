#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/foundation/Result.h"

/// How every child of this program is started: posix_spawn(3).
namespace platform {

/// Whether a child stays in this process's session or leads one of its own. Either way an interrupt typed at
/// the terminal does not hit it.
enum class ChildSession { shared, own };

/// What to start. The streams are descriptors of this process; -1 stands for the null device.
struct ProgramToSpawn {
  std::vector<std::string> command;      ///< the program's path, then its arguments
  std::vector<std::string> environment;  ///< "NAME=value"
  int standardInput = -1;
  int standardOutput = -1;
  int standardError = -1;
  std::string executable = {};  ///< the file to run where that is not the command's path
  ChildSession session = ChildSession::shared;
};

/// Starts it as a direct child in a process group of its own, with no descriptor but its three streams, no
/// signal ignored and none blocked. The caller reaps it; keepExitStatuses() has been called then. An argument
/// or a variable with a zero byte in it cannot be passed: EINVAL.
[[nodiscard]] foundation::Result<pid_t> spawnProgram(const ProgramToSpawn& program);

/// Waits for a child to end and answers its wait status (waitpid(2)); -1 when it is no child of ours.
int waitForProgram(pid_t child);

/// Ends a child that nobody can watch, by SIGKILL, and collects it.
void endProgram(pid_t child);

/// Has the kernel keep the exit statuses of children until they are asked for. It throws them away when the
/// program was started with SIGCHLD ignored, which a parent can hand down.
void keepExitStatuses();

/// A standard stream of this process for a child to share: its number, or -1 where it is closed.
[[nodiscard]] int ownStream(int stream);

/// This process's environment as "NAME=value".
[[nodiscard]] std::vector<std::string> currentEnvironment();

}  // namespace platform
