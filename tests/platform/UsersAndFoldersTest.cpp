#include "platform/UsersAndFolders.h"

#include <gtest/gtest.h>

#include "platform/fakes/FakePlatform.h"

namespace {

using platform::expandingTildeInPath;

/// alice runs the program; bob has an account.
class ExpandingTildeTest : public testing::Test {
 protected:
  fakes::FakePlatform mac;
};

}  // namespace

TEST_F(ExpandingTildeTest, ALoneTildeIsTheProcesssHome) {
  EXPECT_EQ(expandingTildeInPath("~"), "/Users/alice");
  EXPECT_EQ(expandingTildeInPath("~/"), "/Users/alice");
  EXPECT_EQ(expandingTildeInPath("~/a/b"), "/Users/alice/a/b");
}

TEST_F(ExpandingTildeTest, ATildeWithANameIsThatAccountsHome) {
  EXPECT_EQ(expandingTildeInPath("~bob"), "/Users/bob");
  EXPECT_EQ(expandingTildeInPath("~bob/a"), "/Users/bob/a");
}

TEST_F(ExpandingTildeTest, AnUnknownAccountsPathStaysAsItIs) {
  EXPECT_EQ(expandingTildeInPath("~nobody/a"), "~nobody/a");
}

TEST_F(ExpandingTildeTest, OnlyALeadingTildeIsReplaced) {
  EXPECT_EQ(expandingTildeInPath("/a/~/b"), "/a/~/b");
  EXPECT_EQ(expandingTildeInPath(""), "");
}
