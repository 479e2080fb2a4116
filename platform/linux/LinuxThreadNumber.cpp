#include <unistd.h>

#include "platform/posix/ThreadNumber.h"

namespace platform {

std::uint64_t threadNumber() {
  return static_cast<std::uint64_t>(::gettid());
}

}  // namespace platform
