#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <string>

#include "platform/posix/AccessLists.h"

namespace platform {

bool mayBeWrittenByList(int held, mode_t mode) {
  if ((mode & S_IWGRP) == 0) return false;
  const std::string link = "/proc/self/fd/" + std::to_string(held);
  const ssize_t size = ::getxattr(link.c_str(), "system.posix_acl_access", nullptr, 0);
  return size >= 0 || (errno != ENODATA && errno != EOPNOTSUPP);
}

void removeAccessLists(int folder) {
  for (const char* list : {"system.posix_acl_default", "system.posix_acl_access"}) {
    static_cast<void>(::fremovexattr(folder, list));
  }
}

}  // namespace platform
