#include "platform/macos/CoreFoundationValues.h"

#include <gtest/gtest.h>

#include "platform/PropertyLists.h"
#include "tests/macsdk/fakes/FakeCoreFoundation.h"

namespace platform {
namespace {

using foundation::Date;
using foundation::PropertyList;

PropertyList ofEveryKind() {
  return PropertyList::Dictionary{
      {"array", PropertyList::Array{"a", PropertyList::Array{}, 1}},
      {"data", PropertyList::Data{std::string("\0\xFF", 2)}},
      {"date", Date::fromUnixTime(1300000000)},
      {"dictionary", PropertyList::Dictionary{{"inner", true}}},
      {"false", false},
      {"negative", -7},
      {"real", 2.5},
      {"text", "M\xC3\xA4rz \xF0\x9F\x8E\xAC"},
  };
}

class CoreFoundationValuesTest : public ::testing::Test {
 protected:
  void SetUp() override { fakes::resetCoreFoundation(); }
  void TearDown() override { EXPECT_EQ(fakes::liveObjects(), 0) << "objects were not released"; }
};

TEST_F(CoreFoundationValuesTest, AValueOfEveryKindComesBackAsItWas) {
  const CoreFoundationValue object = coreFoundationValue(ofEveryKind());
  ASSERT_TRUE(object);
  EXPECT_EQ(propertyListOf(object.get()), ofEveryKind());
}

TEST_F(CoreFoundationValuesTest, WhateverCannotBeMadeNothingIsLeftBehind) {
  int failed = 0;
  for (int number = 1; failed == number - 1; ++number) {
    fakes::failCreation(number);
    const CoreFoundationValue object = coreFoundationValue(ofEveryKind());
    if (fakes::creationHasFailed()) ++failed;
    EXPECT_EQ(static_cast<bool>(object), !fakes::creationHasFailed()) << number;
    fakes::failCreation(0);
  }
  EXPECT_EQ(failed, 20);
}

TEST_F(CoreFoundationValuesTest, TheKeysOfADictionaryComeInTheOrderOfTheirBytes) {
  const CoreFoundationValue object =
      coreFoundationValue(PropertyList::Dictionary{{"b", 1}, {"a", 2}, {"B", 3}});
  EXPECT_EQ(propertyListOf(object.get()),
            PropertyList(PropertyList::Dictionary{{"B", 3}, {"a", 2}, {"b", 1}}));
}

TEST_F(CoreFoundationValuesTest, WhatCoreFoundationCannotTellIsNotCut) {
  EXPECT_FALSE(coreFoundationValue("\xFF"));
  EXPECT_FALSE(coreFoundationValue(std::string("a\0b", 3)));
  EXPECT_FALSE(coreFoundationValue(std::uint64_t{1} << 63U));
  EXPECT_FALSE(coreFoundationValue(PropertyList::Uid{1}));
  EXPECT_FALSE(coreFoundationValue(PropertyList::Array{1, PropertyList::Uid{1}}));
  EXPECT_FALSE(coreFoundationValue(PropertyList::Dictionary{{"\xFF", 1}}));
  EXPECT_TRUE(coreFoundationValue(std::uint64_t{INT64_MAX}));
}

TEST_F(CoreFoundationValuesTest, AnObjectOfAnotherKindIsNoValueAtAnyDepth) {
  const CoreFoundationReference<CFTypeRef> unknown(fakes::makeUnknownObject());
  EXPECT_EQ(propertyListOf(unknown.get()), std::nullopt);
  const CoreFoundationReference<CFMutableArrayRef> array(
      CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
  CFArrayAppendValue(array.get(), unknown.get());
  EXPECT_EQ(propertyListOf(array.get()), std::nullopt);
}

TEST_F(CoreFoundationValuesTest, ANumberOfMoreThanSixtyFourBitsIsNotCut) {
  const CoreFoundationReference<CFNumberRef> number(fakes::makeNumberBeyondSixtyFourBits());
  EXPECT_EQ(propertyListOf(number.get()), std::nullopt);
}

TEST_F(CoreFoundationValuesTest, ADictionaryWithAKeyThatIsNoTextIsNoValue) {
  const CoreFoundationReference<CFMutableDictionaryRef> dictionary(CFDictionaryCreateMutable(
      kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  CFDictionarySetValue(dictionary.get(), kCFBooleanTrue, kCFBooleanFalse);
  EXPECT_EQ(propertyListOf(dictionary.get()), std::nullopt);
}

TEST_F(CoreFoundationValuesTest, NullIsNothing) {
  EXPECT_EQ(propertyListOf(nullptr), std::nullopt);
  EXPECT_EQ(textOf(nullptr), "");
  EXPECT_EQ(pathOf(nullptr), std::nullopt);
  EXPECT_FALSE(fileURL(""));
}

PropertyList nested(std::size_t levels) {
  PropertyList value = "innermost";
  for (std::size_t level = 0; level < levels; ++level) value = PropertyList::Array{std::move(value)};
  return value;
}

TEST_F(CoreFoundationValuesTest, WhatIsNestedTooDeepIsNotMade) {
  EXPECT_TRUE(coreFoundationValue(nested(kGreatestNesting)));
  EXPECT_FALSE(coreFoundationValue(nested(kGreatestNesting + 1)));
}

TEST_F(CoreFoundationValuesTest, WhatIsNestedTooDeepIsNotRead) {
  CoreFoundationValue object = coreFoundationValue(nested(kGreatestNesting));
  EXPECT_TRUE(propertyListOf(object.get()));
  CoreFoundationReference<CFMutableArrayRef> around(
      CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
  CFArrayAppendValue(around.get(), object.get());
  EXPECT_FALSE(propertyListOf(around.get()));
}

TEST_F(CoreFoundationValuesTest, APathIsItsBytes) {
  const CoreFoundationURL address = fileURL("/tmp/a b\xFF");
  EXPECT_EQ(pathOf(address.get()), "/tmp/a b\xFF");
}

TEST_F(CoreFoundationValuesTest, AReferenceThatIsMovedIsReleasedOnce) {
  CoreFoundationString first = coreFoundationString("one");
  CoreFoundationString second = std::move(first);
  second = coreFoundationString("two");
  EXPECT_EQ(textOf(second.get()), "two");
}

}  // namespace
}  // namespace platform
