#pragma once

#include <sys/stat.h>

#include "platform/Files.h"
#include "platform/posix/FileTimes.h"

namespace platform {

/// What a `struct stat` says of a file at that moment.
[[nodiscard]] inline FileState stateOf(const struct stat& status) {
  const timespec changed = modificationTime(status);
  return {.device = static_cast<std::uint64_t>(status.st_dev),
          .number = static_cast<std::uint64_t>(status.st_ino),
          .size = static_cast<std::uint64_t>(status.st_size),
          .modified = std::chrono::seconds(changed.tv_sec) + std::chrono::nanoseconds(changed.tv_nsec),
          .owner = static_cast<std::uint32_t>(status.st_uid)};
}

}  // namespace platform
