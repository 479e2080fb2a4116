#include <pthread.h>

#include "platform/posix/ThreadNumber.h"

namespace platform {

std::uint64_t threadNumber() {
  std::uint64_t number = 0;
  ::pthread_threadid_np(nullptr, &number);
  return number;
}

}  // namespace platform
