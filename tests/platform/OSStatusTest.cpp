#include "platform/OSStatus.h"

#include <gtest/gtest.h>

namespace platform {
namespace {

TEST(OSStatusTest, AStatusHasItsNameAndItsComment) {
  EXPECT_EQ(errorString(paramErr), "paramErr");
  EXPECT_EQ(commentString(paramErr), "error in user parameter list");
  EXPECT_EQ(errorString(noErr), "noErr");
  EXPECT_EQ(errorString(userCanceledErr), "userCanceledErr");
}

TEST(OSStatusTest, AStatusThatIsNotKnownIsItsNumber) {
  EXPECT_EQ(errorString(-9999), "unknown");
  EXPECT_EQ(commentString(-9999), "-9999");
}

}  // namespace
}  // namespace platform
