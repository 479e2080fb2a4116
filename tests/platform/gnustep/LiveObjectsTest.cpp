#include "tests/platform/gnustep/LiveObjects.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/macos/CoreFoundationValues.h"

namespace platform {
namespace {

TEST(LiveObjectsTest, WhatIsNotReleasedIsSeen) {
  const foundation::PropertyList list = foundation::PropertyList::Dictionary{{"key", 0.5}};
  EXPECT_EQ(gnustep::leftBehindBy([&] { const CoreFoundationValue released = coreFoundationValue(list); }),
            "");
  EXPECT_THAT(gnustep::leftBehindBy([&] { CFRetain(coreFoundationValue(list).get()); }),
              ::testing::HasSubstr("Dictionary"));
}

}  // namespace
}  // namespace platform
