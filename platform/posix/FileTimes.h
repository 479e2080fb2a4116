#pragma once

#include <ctime>

namespace platform {

/// When the content that a `struct stat` tells of last changed, whichever of its two names the system gives
/// that member: st_mtim (POSIX.1-2008) or st_mtimespec (BSD).
template <typename Status>
[[nodiscard]] timespec modificationTime(const Status& status) {
  if constexpr (requires { status.st_mtim; }) {
    return status.st_mtim;
  } else {
    return status.st_mtimespec;
  }
}

}  // namespace platform
