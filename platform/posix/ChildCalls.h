#pragma once

#include <spawn.h>

#include <array>

/// What each system does its own way for children and for the pipes to them; each has a source of its own.
namespace platform {

/// Opens a pipe that no child inherits. Answers whether it did; errno says why not. The kernel closes its
/// ends in what another thread starts meanwhile, where the system can (pipe2(2)).
[[nodiscard]] bool openPipe(std::array<int, 2>& ends);

/// Has a child get a descriptor of this process as that stream, whether or not it is marked close-on-exec.
void passStream(posix_spawn_file_actions_t& actions, int descriptor, int stream);

/// Has a child get no descriptor but those that it is given as its three streams. Answers flags for
/// posix_spawnattr_setflags(3). To be called after the streams were passed.
[[nodiscard]] int closeOtherDescriptors(posix_spawn_file_actions_t& actions);

/// This process's environment, as environ(7) is.
[[nodiscard]] char** ownEnvironment();

}  // namespace platform
