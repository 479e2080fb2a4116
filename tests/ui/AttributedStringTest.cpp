#include "ui/AttributedString.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

TEST(AttributedStringTest, AHyperlinkIsBlueAndUnderlinedOverTheWholeText) {
  const auto link = AttributedString::hyperlinkFromString("Get more", "https://example.org/more");
  EXPECT_EQ(link.string(), "Get more");
  EXPECT_THAT(link.attributeRuns(),
              ElementsAre(AttributedString::Run{{0, 8},
                                                {.link = "https://example.org/more",
                                                 .foregroundColor = outlets::Color::blue,
                                                 .underlineStyle = 1}}));
}

TEST(AttributedStringTest, ItsLengthIsInCharacters) {
  const auto link = AttributedString::hyperlinkFromString("Größe 🎬", "https://example.org");
  ASSERT_EQ(link.attributeRuns().size(), 1U);
  EXPECT_EQ(link.attributeRuns().front().range, (outlets::Range{0, 8}));
}

TEST(AttributedStringTest, AHyperlinkOfAnEmptyTextHasNoAttributes) {
  const auto link = AttributedString::hyperlinkFromString("", "https://example.org/more");
  EXPECT_EQ(link.string(), "");
  EXPECT_THAT(link.attributeRuns(), IsEmpty());
}

TEST(AttributedStringTest, TheAddressStaysAsItIsGiven) {
  const auto link = AttributedString::hyperlinkFromString("a", "https://example.org/?a=1&b=<2>#c d");
  ASSERT_EQ(link.attributeRuns().size(), 1U);
  EXPECT_EQ(link.attributeRuns().front().attributes.link, "https://example.org/?a=1&b=<2>#c d");
}
