#include <crt_externs.h>
#include <fcntl.h>
#include <unistd.h>

#include "platform/posix/ChildCalls.h"

namespace platform {

bool openPipe(std::array<int, 2>& ends) {
  if (::pipe(ends.data()) != 0) return false;
  for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
  return true;
}

void passStream(posix_spawn_file_actions_t& actions, int descriptor, int stream) {
  if (descriptor == stream) {
    ::posix_spawn_file_actions_addinherit_np(&actions, stream);
  } else {
    ::posix_spawn_file_actions_adddup2(&actions, descriptor, stream);
  }
}

int closeOtherDescriptors(posix_spawn_file_actions_t& /*actions*/) {
  return POSIX_SPAWN_CLOEXEC_DEFAULT;
}

char** ownEnvironment() {
  return *_NSGetEnviron();
}

}  // namespace platform
