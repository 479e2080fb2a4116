#pragma once

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>

namespace support {

inline constexpr uid_t kNobody = 65534;

/// Runs a part of a test as another user, in a process of its own; without root it runs as whoever we are.
/// What fails inside is printed there and fails the test here.
struct AsUser {
  static void run(uid_t user, const std::function<void()>& part) {
    if (::getuid() != 0) return part();
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
      const bool changed = ::setgroups(0, nullptr) == 0 && ::setgid(user) == 0 && ::setuid(user) == 0;
      if (changed) part();
      std::fflush(nullptr);
      ::_exit(changed && !::testing::Test::HasFailure() ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "the part that runs as user " << user << " failed";
  }
};

}  // namespace support
