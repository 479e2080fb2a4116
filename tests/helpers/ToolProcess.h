#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>

#include "helpers/Tool.h"
#include "tests/support/Counts.h"

namespace helpers {

/// Runs a part of a test in a process of its own that is prepared as a tool's is: it hears a signal that asks
/// it to end, and has no descriptor of the test's but the standard ones, of which one may be chosen. What
/// fails inside is printed there and fails the test here.
struct ToolProcess {
  static void run(const std::function<void()>& part, int standardError = STDERR_FILENO) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
      dup2(standardError, STDERR_FILENO);
      platform::becomeIndependent();
      [&part]() noexcept { part(); }();  // an exception must not run the test's end here as well
      std::fflush(nullptr);
      support::keepCounts();
      _exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "the part that runs as a tool failed";
  }
};

}  // namespace helpers
