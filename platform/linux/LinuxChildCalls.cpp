#include <fcntl.h>
#include <unistd.h>

#include "platform/posix/ChildCalls.h"

namespace platform {

bool openPipe(std::array<int, 2>& ends) {
  return ::pipe2(ends.data(), O_CLOEXEC) == 0;
}

void passStream(posix_spawn_file_actions_t& actions, int descriptor, int stream) {
  ::posix_spawn_file_actions_adddup2(&actions, descriptor, stream);  // clears close-on-exec
}

int closeOtherDescriptors(posix_spawn_file_actions_t& actions) {
  ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
  return 0;
}

char** ownEnvironment() {
  return environ;
}

}  // namespace platform
