#pragma once

#include <ctime>

/// The times that a `struct stat` tells, whichever of its two names the system gives a member: st_mtim
/// (POSIX.1-2008) or st_mtimespec (BSD).
namespace platform {

/// When the content last changed.
template <typename Status>
[[nodiscard]] timespec modificationTime(const Status& status) {
  if constexpr (requires { status.st_mtim; }) {
    return status.st_mtim;
  } else {
    return status.st_mtimespec;
  }
}

/// When the content was last read.
template <typename Status>
[[nodiscard]] timespec accessTime(const Status& status) {
  if constexpr (requires { status.st_atim; }) {
    return status.st_atim;
  } else {
    return status.st_atimespec;
  }
}

/// When anything of the item last changed, its names among it.
template <typename Status>
[[nodiscard]] timespec changeTime(const Status& status) {
  if constexpr (requires { status.st_ctim; }) {
    return status.st_ctim;
  } else {
    return status.st_ctimespec;
  }
}

}  // namespace platform
