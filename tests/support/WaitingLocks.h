#pragma once

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#include "platform/foundation/Text.h"

namespace support {

/// Whether somebody waits for a lock (flock(2)) on that file now: proc_locks(5).
inline bool isLockWaitedFor(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return false;
  const std::string file = foundation::stringWithFormat(" %02x:%02x:%lu ", ::gnu_dev_major(status.st_dev),
                                                        ::gnu_dev_minor(status.st_dev), status.st_ino);
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    if (line.find("-> FLOCK") != std::string::npos && line.find(file) != std::string::npos) return true;
  }
  return false;
}

/// Waits until somebody does. False where nobody has within ten seconds.
inline bool waitUntilLockIsWaitedFor(const std::string& path) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!isLockWaitedFor(path)) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace support
