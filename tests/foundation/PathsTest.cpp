#include "platform/foundation/Paths.h"

#include <gmock/gmock.h>

namespace foundation {
namespace {

using ::testing::ElementsAre;

TEST(Paths, JoiningInsertsExactlyOneSlash) {
  EXPECT_EQ(appendingPathComponent("/a", "b"), "/a/b");
  EXPECT_EQ(appendingPathComponent("/a/", "b"), "/a/b");
  EXPECT_EQ(appendingPathComponent("/a", "/b/c"), "/a/b/c");
  EXPECT_EQ(appendingPathComponent("/", "b"), "/b");
  EXPECT_EQ(appendingPathComponent("", "b"), "b");
  EXPECT_EQ(appendingPathComponent("/a", ""), "/a");
}

TEST(Paths, ComponentsOfAnAbsolutePathBeginWithASlash) {
  EXPECT_THAT(pathComponents("/a//b/"), ElementsAre("/", "a", "b"));
  EXPECT_THAT(pathComponents("a/b"), ElementsAre("a", "b"));
  EXPECT_THAT(pathComponents(""), ElementsAre());
}

TEST(Paths, LastComponentIgnoresATrailingSlash) {
  EXPECT_EQ(lastPathComponent("/a/b.txt"), "b.txt");
  EXPECT_EQ(lastPathComponent("/a/b.txt/"), "b.txt");
  EXPECT_EQ(lastPathComponent("/"), "/");
  EXPECT_EQ(lastPathComponent("x"), "x");
}

TEST(Paths, ParentOfATopLevelPathIsTheRoot) {
  EXPECT_EQ(deletingLastPathComponent("/a/b"), "/a");
  EXPECT_EQ(deletingLastPathComponent("/a"), "/");
  EXPECT_EQ(deletingLastPathComponent("/"), "/");
  EXPECT_EQ(deletingLastPathComponent("a"), "");
}

TEST(Paths, AnItemIsNamedByOneComponent) {
  for (const char* name : {"a", "a b", ".hidden", "...", "..a", "a\nb", "\xff"})
    EXPECT_TRUE(isItemName(name)) << name;
  for (const char* name : {"", ".", "..", "/", "a/", "/a", "a/b", "../a"})
    EXPECT_FALSE(isItemName(name)) << name;
  EXPECT_FALSE(isItemName(std::string_view("a\0b", 3)));
  EXPECT_FALSE(isItemName(std::string_view("\0", 1)));
}

TEST(Paths, ExtensionIsWhatFollowsTheLastPoint) {
  EXPECT_EQ(pathExtension("/a/b.tar.gz"), "gz");
  EXPECT_EQ(pathExtension("/a.d/b"), "");
  EXPECT_EQ(pathExtension("/a/.hidden"), "");
  EXPECT_EQ(pathExtension("/a/b."), "");
  EXPECT_EQ(deletingPathExtension("/a/b.tar.gz"), "/a/b.tar");
  EXPECT_EQ(deletingPathExtension("/a.d/b"), "/a.d/b");
  EXPECT_EQ(deletingPathExtension("/a/.hidden"), "/a/.hidden");
}

}  // namespace
}  // namespace foundation
