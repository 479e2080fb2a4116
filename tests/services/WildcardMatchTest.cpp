#include "services/WildcardMatch.h"

#include <gmock/gmock.h>

#include <chrono>
#include <string>

namespace {

TEST(WildcardMatchTest, AStarStandsForAnyCharacters) {
  for (const char* const pattern :
       {"*", "com.*", "*.plist", "com.*.plist", "*apple*", "**", "com.apple.x.plist*"}) {
    EXPECT_TRUE(isLike("com.apple.x.plist", pattern)) << pattern;
  }
  for (const char* const pattern : {"", "*.log", "x*", "com.*.plistx", "apple*"}) {
    EXPECT_FALSE(isLike("com.apple.x.plist", pattern)) << pattern;
  }
  EXPECT_TRUE(isLike("", "*"));
  EXPECT_TRUE(isLike("", ""));
}

TEST(WildcardMatchTest, TheWholeNameMustMatchInItsCase) {
  EXPECT_FALSE(isLike("Report", "r*"));
  EXPECT_FALSE(isLike("aXb",
                      "a*"
                      "x*"));
  EXPECT_TRUE(isLike("aab", "*ab"));
  EXPECT_TRUE(isLike("abcabd", "*abd"));
}

TEST(WildcardMatchTest, AQuestionMarkStandsForOneCharacterOfAnyLength) {
  EXPECT_TRUE(isLike("abc", "a?c"));
  EXPECT_FALSE(isLike("ac", "a?c"));
  EXPECT_TRUE(
      isLike("a\xc3\xa4"
             "c",
             "a?c"))
      << "two bytes, one character";
  EXPECT_FALSE(
      isLike("a\xc3\xa4"
             "c",
             "a??c"));
  EXPECT_TRUE(isLike("x\xf0\x9f\x98\x80", "*?"));
  EXPECT_TRUE(
      isLike("a\xff"
             "c",
             "a?c"))
      << "a byte that is no character counts as one";
}

TEST(WildcardMatchTest, APointAtTheHeadIsACharacterLikeAnyOther) {
  EXPECT_TRUE(isLike(".hidden", "*"));
  EXPECT_TRUE(isLike(".hidden", "?hidden*"));
}

TEST(WildcardMatchTest, EverythingElseStandsForItself) {
  EXPECT_TRUE(isLike("[ab]c", "[ab]*"));
  EXPECT_FALSE(isLike("ac", "[ab]*"));
  EXPECT_TRUE(isLike("a\\*b", "a\\*"));
}

TEST(WildcardMatchTest, APartOfACharacterIsLikeNoCharacter) {
  EXPECT_FALSE(isLike("\xc3\xa4", "\xc3*"));
  EXPECT_FALSE(isLike("\xc3\xa4", "*\xa4"));
  EXPECT_TRUE(isLike("\xc3", "\xc3"));
}

/// What a star stands for ends before each place in turn at which the pattern may go on.
TEST(WildcardMatchTest, AStarGoesOnToTheLastPlaceThatFits) {
  EXPECT_TRUE(isLike("a.plist.plist", "*.plist"));
  EXPECT_TRUE(isLike("a.plis.plist", "a*.plist"));
  EXPECT_FALSE(isLike("a.plist.plis", "*.plist"));
  EXPECT_FALSE(isLike("nothing of it", "*x"));
  EXPECT_TRUE(isLike("\u00e9t\u00e9.log", "*t?.log"));
  EXPECT_TRUE(isLike("\u00e9\u00e9", "*\u00e9"));
  EXPECT_TRUE(isLike("\xc3x", "*x")) << "half a character";
}

TEST(WildcardMatchTest, ManyStarsTakeNoTimeToSpeakOf) {
  std::string pattern;
  for (int count = 0; count < 100; ++count) pattern += "*a";
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(isLike(std::string(255, 'a') + "b", pattern + "c"));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

}  // namespace
