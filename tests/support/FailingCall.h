#pragma once

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <functional>

#include "tests/support/Counts.h"

namespace support {

/// Runs a part of a test, in a process of its own, in which one system call (SYS_..., by its number) always
/// fails for a reason (an errno value). What fails inside is printed there and fails the test here.
struct FailingCall {
  static void run(long call, int reason, const std::function<void()>& part) {
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
      const bool fails = forbid(static_cast<unsigned>(call), static_cast<unsigned>(reason));
      // An exception must not run the test's end here as well.
      if (fails) [&part]() noexcept { part(); }();
      std::fflush(nullptr);
      keepCounts();
      ::_exit(fails && !::testing::Test::HasFailure() ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "the part in which system call " << call << " fails";
  }

  /// From here on another call fails as well. REQUIRES that this is in a part that run() runs.
  static void also(long call, int reason) {
    EXPECT_TRUE(forbid(static_cast<unsigned>(call), static_cast<unsigned>(reason)));
  }
  /// The same, only where the call is made with that descriptor as its first argument.
  static void alsoOf(int descriptor, long call, int reason) {
    sock_filter steps[] = {
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 3, static_cast<unsigned>(call)},
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, args)},  // the lower half
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, static_cast<unsigned>(descriptor)},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ERRNO | static_cast<unsigned>(reason)},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
    };
    EXPECT_TRUE(install({6, steps}));
  }

 private:
  static bool forbid(unsigned call, unsigned reason) {
    sock_filter steps[] = {
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, call},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ERRNO | reason},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
    };
    return install({4, steps});
  }

  /// Once and for all in this process: seccomp(2).
  static bool install(const sock_fprog& program) {
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program, 0, 0) == 0;
  }
};

}  // namespace support
