#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/posix/InheritedState.h"

namespace platform {

void closeDescriptorsFrom(int first) {
  ::syscall(SYS_close_range, static_cast<unsigned>(first), ~0U, 0U);  // NOLINT: variadic by nature
}

void forgetEnvironment() {
  ::clearenv();
}

}  // namespace platform
