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
void forgetPlacesOfLibraries(char** arguments) {
  if (std::getenv("LD_LIBRARY_PATH") == nullptr) return;  // NOLINT(concurrency-mt-unsafe): one thread
  std::array<char*, 1> none = {nullptr};
  ::execve("/proc/self/exe", arguments, none.data());
}

}  // namespace platform
