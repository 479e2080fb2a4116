#include "platform/posix/OwnerName.h"

#include <gmock/gmock.h>

namespace platform {
namespace {

TEST(OwnerName, RootAndWheelAreZeroAlsoWhereThereIsNoWheel) {
  const auto named = ownershipNamed("root:wheel");
  ASSERT_TRUE(named);
  EXPECT_EQ(named->owner, 0U);
  EXPECT_EQ(named->group, 0U);
}

TEST(OwnerName, ANameAloneLeavesTheGroup) {
  const auto named = ownershipNamed("daemon");
  ASSERT_TRUE(named);
  EXPECT_TRUE(named->owner);
  EXPECT_FALSE(named->group);
}

TEST(OwnerName, NumbersAreTakenAsTheyAre) {
  const auto named = ownershipNamed("4201:4202");
  ASSERT_TRUE(named);
  EXPECT_EQ(named->owner, 4201U);
  EXPECT_EQ(named->group, 4202U);
}

TEST(OwnerName, AGroupAloneLeavesTheOwnerAndAColonAloneTakesTheLoginGroup) {
  ASSERT_TRUE(ownershipNamed(":4202"));
  EXPECT_FALSE(ownershipNamed(":4202")->owner);
  ASSERT_TRUE(ownershipNamed("root:"));
  EXPECT_EQ(ownershipNamed("root:")->group, 0U);
}

TEST(OwnerName, UnknownAndMalformedOnesAreNothing) {
  for (const char* text : {"", ":", "no-such-user", "root:no-such-group", "-1", "4294967295", "0:4294967295",
                           "99999999999", "root:wheel:x", "4201:", "0x10", " root"}) {
    EXPECT_FALSE(ownershipNamed(text)) << text;
  }
}

}  // namespace
}  // namespace platform
