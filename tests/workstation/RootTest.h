#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

namespace workstation {

/// Volumes have real owners, and ways into them real users.
class RootTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root: volumes have real owners";
  }
};

}  // namespace workstation
