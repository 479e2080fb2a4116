#include "helpers/FileMode.h"

#include <gmock/gmock.h>

namespace helpers {
namespace {

mode_t apply(const char* text, mode_t current, bool isFolder = false) {
  const auto mode = FileMode::parse(text);
  EXPECT_TRUE(mode) << text;
  return mode ? mode->appliedTo(current, isFolder) : 0;
}

TEST(FileMode, OctalSetsExactlyThoseBitsOnAFile) {
  EXPECT_EQ(apply("755", 0644), 0755U);
  EXPECT_EQ(apply("0644", 04777), 0644U);
  EXPECT_EQ(apply("4755", 0), 04755U);
  EXPECT_EQ(apply("0", 0777), 0U);
}

TEST(FileMode, OctalKeepsAFoldersSetIdBitsUnlessAskedFor) {
  EXPECT_EQ(apply("755", 02700, true), 02755U);
  EXPECT_EQ(apply("2755", 0700, true), 02755U);
  EXPECT_EQ(apply("755", 01777, true), 0755U);
}

TEST(FileMode, AddsForThoseNamed) {
  EXPECT_EQ(apply("ugo+r", 0200), 0644U);
  EXPECT_EQ(apply("a+x", 0600), 0711U);
  EXPECT_EQ(apply("ugo+w", 0444), 0666U);
  EXPECT_EQ(apply("g+wx", 0), 0030U);
}

TEST(FileMode, SeveralClausesAndActionsWorkInOrder) {
  EXPECT_EQ(apply("u+rwX,go-w", 0466), 0644U);
  EXPECT_EQ(apply("u=rw,g=r,o=", 0777), 0640U);
  EXPECT_EQ(apply("u=r+x", 0), 0500U);
  EXPECT_EQ(apply("a=,u+r", 0777), 0400U);
}

TEST(FileMode, CapitalXIsForFoldersAndWhatSomebodyMayExecute) {
  EXPECT_EQ(apply("a+X", 0644), 0644U);
  EXPECT_EQ(apply("a+X", 0744), 0755U);
  EXPECT_EQ(apply("a+X", 0600, true), 0711U);
  EXPECT_EQ(apply("a+Xr", 0600), 0644U);
  EXPECT_EQ(apply("a+rXw", 0700), 0777U);
}

TEST(FileMode, ACopyTakesAnotherClassesPermissions) {
  EXPECT_EQ(apply("g=u", 0740), 0770U);
  EXPECT_EQ(apply("o+g", 0750), 0755U);
  EXPECT_EQ(apply("u-o", 0705), 0205U);
  EXPECT_EQ(apply("g=u", 04740), 04770U);
  EXPECT_EQ(apply("g=u+x,o=g", 0640), 0677U);
}

TEST(FileMode, SetIdAndStickyGoToTheirClasses) {
  EXPECT_EQ(apply("u+s", 0755), 04755U);
  EXPECT_EQ(apply("g+s", 0755), 02755U);
  EXPECT_EQ(apply("o+s", 0755), 0755U);
  EXPECT_EQ(apply("+t", 0755), 01755U);
  EXPECT_EQ(apply("a-s", 06755), 0755U);
  EXPECT_EQ(apply("u=rx", 04755), 0555U);
}

TEST(FileMode, WithoutWhoTheFixedMaskAppliesToWhatIsGiven) {
  EXPECT_EQ(apply("+w", 0), 0200U);
  EXPECT_EQ(apply("+rx", 0), 0555U);
  EXPECT_EQ(apply("=rw", 0777), 0644U);
}

TEST(FileMode, WhatIsNoModeIsRefused) {
  for (const char* text : {"", "8", "77777", "07777777", "u", "rwx", "u+q", "u+r,", ",u+r", "u+gr", "+r u+x",
                           "-1", "0x1", "u+r;", "ux+r", "+rX,g=uX"}) {
    EXPECT_FALSE(FileMode::parse(text)) << text;
  }
}

}  // namespace
}  // namespace helpers
