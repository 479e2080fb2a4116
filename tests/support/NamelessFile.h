#pragma once

#include <unistd.h>

#include <filesystem>
#include <string>

#include "platform/posix/UniqueDescriptor.h"

namespace support {

/// A file that this process has open and that had a name in a folder; none where there is no such.
[[nodiscard]] inline platform::UniqueDescriptor namelessFileOf(const std::string& folder) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    const std::string target = std::filesystem::read_symlink(entry.path(), gone).string();
    const bool isOne = target.starts_with(folder + "/") && target.ends_with(" (deleted)");
    if (isOne) return platform::UniqueDescriptor(::dup(std::stoi(entry.path().filename().string())));
  }
  return {};
}

}  // namespace support
