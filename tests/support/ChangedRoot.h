#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>

namespace support {

/// Runs a part of a test, as root, where a folder is "/", in a process of its own: a temporary folder lies in
/// one that everybody can write, but as "/" it has nothing above it. What fails inside is printed there and
/// fails the test here.
struct ChangedRoot {
  static void run(const std::string& folder, const std::function<void()>& part) {
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
      const bool changed = ::chroot(folder.c_str()) == 0 && ::chdir("/") == 0;
      if (changed) part();
      std::fflush(nullptr);
      ::_exit(changed && !::testing::Test::HasFailure() ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "the part that runs below " << folder << " failed";
  }
};

}  // namespace support
