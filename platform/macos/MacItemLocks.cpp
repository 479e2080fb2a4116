#include <sys/stat.h>

#include "platform/posix/ItemLocks.h"

namespace platform {
namespace {

constexpr std::uint32_t kOwnersLocks = UF_IMMUTABLE | UF_APPEND;

}  // namespace

std::uint32_t takeLocks(int held) {
  struct stat status {};
  if (::fstat(held, &status) != 0) return 0;
  const std::uint32_t locks = status.st_flags & kOwnersLocks;
  return locks != 0 && ::fchflags(held, status.st_flags & ~locks) == 0 ? locks : 0;
}

void giveLocks(int held, std::uint32_t locks) {
  struct stat status {};
  if (::fstat(held, &status) == 0) static_cast<void>(::fchflags(held, status.st_flags | locks));
}

}  // namespace platform
