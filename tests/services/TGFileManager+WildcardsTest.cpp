#include <gmock/gmock.h>

#include <filesystem>

#include "platform/fakes/FakePlatform.h"
#include "services/TGFileManager.h"

namespace {

using std::string_literals::operator""s;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class TGFileManagerWildcardsTest : public ::testing::Test {
 protected:
  TGFileManagerWildcardsTest() {
    for (const char* const file :
         {"/Users/bob/Library/Preferences/com.apple.a.plist",
          "/Users/bob/Library/Preferences/com.apple.B.plist",
          "/Users/bob/Library/Preferences/com.apple.x.txt",
          "/Users/bob/Library/Preferences/COM.apple.c.plist",
          "/Users/bob/Library/Preferences/.com.apple.plist", "/Users/ann/Library/x.plist", "/Users/readme"}) {
      fakes_.files.makeFile(file);
    }
  }
  static std::vector<std::string> matches(const std::string& pattern,
                                          const TGFileManager::Path& base = std::nullopt) {
    return TGFileManager::filesMatchingWildcardPath(pattern, base);
  }
  void link(const std::string& target, const std::string& path) {
    std::filesystem::create_symlink(target, fakes_.files.real(path));
  }

  fakes::FakePlatform fakes_;
};

TEST_F(TGFileManagerWildcardsTest, MatchingEntriesAreAnsweredInTheOrderOfTheirNames) {
  EXPECT_THAT(matches("Library/Preferences/com.apple.*.plist", "/Users/bob"),
              ElementsAre("/Users/bob/Library/Preferences/com.apple.B.plist",
                          "/Users/bob/Library/Preferences/com.apple.a.plist"));
}

TEST_F(TGFileManagerWildcardsTest, WithoutAStarTheJoinedPathIsAnsweredExistingOrNot) {
  EXPECT_THAT(matches("Library/x.plist", "/Users/bob"), ElementsAre("/Users/bob/Library/x.plist"));
  EXPECT_THAT(matches("/no?where/[a]"), ElementsAre("/no?where/[a]"));
  EXPECT_THAT(matches("relative"), ElementsAre("relative"));
  EXPECT_THAT(matches(""), ElementsAre(""));
}

TEST_F(TGFileManagerWildcardsTest, HiddenEntriesAreMatched) {
  EXPECT_THAT(matches("/Users/bob/Library/Preferences/*com.apple.plist"),
              ElementsAre("/Users/bob/Library/Preferences/.com.apple.plist"));
}

TEST_F(TGFileManagerWildcardsTest, SeveralComponentsMayBeWildcards) {
  EXPECT_THAT(matches("/Users/*/Library/*.plist"), ElementsAre("/Users/ann/Library/x.plist"));
  EXPECT_THAT(matches("/U*s/a*"), ElementsAre("/Users/ann"));
}

TEST_F(TGFileManagerWildcardsTest, ARelativePatternWithoutABaseBeginsAtTheRootFolder) {
  EXPECT_THAT(matches("Users/a*"), ElementsAre("/Users/ann"));
  EXPECT_THAT(matches("U*"), ElementsAre("/Users"));
}

TEST_F(TGFileManagerWildcardsTest, AnAbsolutePatternWithABaseLiesBelowTheBase) {
  EXPECT_THAT(matches("/Library/*", "/Users/ann"), ElementsAre("/Users/ann/Library/x.plist"));
}

TEST_F(TGFileManagerWildcardsTest, AComponentThatMatchesNothingMakesTheResultEmpty) {
  EXPECT_THAT(matches("/Users/z*/Library"), IsEmpty());
  EXPECT_THAT(matches("/Users/*/Nowhere"), IsEmpty());
  EXPECT_THAT(matches("/Nowhere/*"), IsEmpty());
  EXPECT_THAT(matches("*", "/missing"), IsEmpty());
  EXPECT_THAT(matches("*", ""), IsEmpty());
}

TEST_F(TGFileManagerWildcardsTest, AFileThatMatchesOnTheWayHoldsNothing) {
  EXPECT_THAT(matches("/Users/readme/*"), IsEmpty());
  EXPECT_THAT(matches("/Users/r*/x*"), IsEmpty());
  EXPECT_THAT(matches("/Users/*d*"), ElementsAre("/Users/readme"));
}

TEST_F(TGFileManagerWildcardsTest, AComponentWithoutAStarIsANameWhateverElseItHolds) {
  fakes_.files.makeFile("/d/a?c/one");
  fakes_.files.makeFile("/d/abc/two");
  EXPECT_THAT(matches("/d/a?c/*"), ElementsAre("/d/a?c/one"));
  EXPECT_THAT(matches("/d/*a?c*"), ElementsAre("/d/a?c", "/d/abc")) << "beside a star it is one character";
}

TEST_F(TGFileManagerWildcardsTest, ALinkThatLeadsNowhereDoesNotExist) {
  fakes_.files.makeFile("/d/file");
  link("nowhere", "/d/dangling");
  link("file", "/d/link");
  link(".", "/d/self");
  EXPECT_THAT(matches("/d/*"), ElementsAre("/d/file", "/d/link", "/d/self"));
  EXPECT_THAT(matches("/d/s*/f*"), ElementsAre("/d/self/file"));
}

TEST_F(TGFileManagerWildcardsTest, NamesOfAnyBytesAreMatched) {
  fakes_.files.makeFile(
      "/d/a\xff"
      "b");
  fakes_.files.makeFile("/d/a\nb");
  EXPECT_THAT(matches("/d/a*b"), ElementsAre("/d/a\nb",
                                             "/d/a\xff"
                                             "b"));
}

TEST_F(TGFileManagerWildcardsTest, AZeroByteMatchesNothing) {
  EXPECT_THAT(matches("/Users\0/*"s), IsEmpty());
  EXPECT_THAT(matches("*", "/Users\0x"s), IsEmpty());
}

TEST_F(TGFileManagerWildcardsTest, DecodingAnswersTheFirstMatch) {
  EXPECT_EQ(TGFileManager::decodeWildcardPath("*/Library", "/Users"), "/Users/ann/Library");
}

TEST_F(TGFileManagerWildcardsTest, DecodingWithoutAMatchAnswersTheJoinedPathOrNothing) {
  EXPECT_EQ(TGFileManager::decodeWildcardPath("z*/x", "/Users"), "/Users/z*/x");
  EXPECT_EQ(TGFileManager::decodeWildcardPath("z*/x", std::nullopt), std::nullopt);
  EXPECT_EQ(TGFileManager::decodeWildcardPath("x", std::nullopt), "x")
      << "a path without a star is its own match";
}

}  // namespace
