#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

#include "platform/posix/InheritedState.h"

namespace platform {

void closeDescriptorsFrom(int first) {
  ::syscall(SYS_close_range, static_cast<unsigned>(first), ~0U, 0U);  // NOLINT: variadic by nature
}

void forgetEnvironment() {
  ::clearenv();
}

/// What the program is linked with comes from the system's folders all the same (cmake/Bundle.cmake).
void forgetPlacesOfLibraries(char** arguments, const char* name) {
  if (std::getenv("LD_LIBRARY_PATH") != nullptr) {  // NOLINT(concurrency-mt-unsafe): one thread
    std::array<char*, 1> none = {nullptr};
    ::execve("/proc/self/exe", arguments, none.data());
  }
  ::prctl(PR_SET_NAME, name);  // NOLINT: variadic by nature
}

}  // namespace platform
