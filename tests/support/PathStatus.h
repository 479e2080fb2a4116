#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

namespace support {

/// What lies at a path, a link itself: lstat(2). Fails the test where that says nothing.
[[nodiscard]] inline struct stat statusAt(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status;
}

/// What everybody may do with it: the bits that chmod(2) sets.
[[nodiscard]] inline mode_t modeAt(const std::string& path) {
  return statusAt(path).st_mode & 07777U;
}

}  // namespace support
