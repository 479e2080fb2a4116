#include "platform/macos/MacPropertyLists.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/macsdk/fakes/FakeCoreFoundation.h"

namespace platform {
namespace {

using foundation::PropertyList;

class MacPropertyListsTest : public ::testing::TestWithParam<PropertyListFormat> {
 protected:
  void SetUp() override { fakes::resetCoreFoundation(); }
  void TearDown() override { EXPECT_EQ(fakes::liveObjects(), 0) << "objects were not released"; }

  MacPropertyLists lists;
  const PropertyList sample = PropertyList::Dictionary{{"jobs", PropertyList::Array{1, "two", true}}};
};

TEST_P(MacPropertyListsTest, WhatIsWrittenIsRead) {
  const auto bytes = lists.serialize(sample, GetParam());
  ASSERT_TRUE(bytes);
  const auto value = lists.parse(bytes.value());
  ASSERT_TRUE(value);
  EXPECT_EQ(value.value(), sample);
}

TEST_P(MacPropertyListsTest, TheFormatIsTheOneAskedFor) {
  const auto bytes = lists.serialize(sample, GetParam());
  ASSERT_TRUE(bytes);
  EXPECT_EQ(bytes.value().starts_with("bplist00"), GetParam() == PropertyListFormat::binary);
}

TEST_P(MacPropertyListsTest, FailuresOfTheSystemAreErrorsAndLeaveNothing) {
  for (int number = 1;; ++number) {
    fakes::failCreation(number);
    const auto bytes = lists.serialize(sample, GetParam());
    if (!fakes::creationHasFailed()) break;
    EXPECT_EQ(bytes.error().code, EINVAL) << number;
    EXPECT_EQ(fakes::liveObjects(), 0) << number;
  }
  fakes::failCreation(0);
}

TEST_P(MacPropertyListsTest, AReferenceOfAKeyedArchiveIsRefusedBothWays) {
  EXPECT_EQ(lists.serialize(PropertyList::Uid{3}, GetParam()).error().code, EINVAL);
}

INSTANTIATE_TEST_SUITE_P(Formats, MacPropertyListsTest,
                         ::testing::Values(PropertyListFormat::xml, PropertyListFormat::binary));

using MacPropertyListParsingTest = MacPropertyListsTest;

TEST_P(MacPropertyListParsingTest, BytesThatAreNoPropertyListAreInvalid) {
  EXPECT_EQ(lists.parse("<plist><dict></plist>").error().code, EINVAL);
}

TEST_P(MacPropertyListParsingTest, TooManyBytesAreNotLookedAt) {
  EXPECT_EQ(lists.parse(std::string(kLargestPropertyList + 1, ' ')).error().code, EFBIG);
}

TEST_P(MacPropertyListParsingTest, AReaderMayWantLess) {
  const std::string three = "<plist><array><true/><true/></array></plist>";
  EXPECT_TRUE(lists.parse(three, {.bytes = three.size()}));
  EXPECT_EQ(lists.parse(three, {.bytes = three.size() - 1}).error().code, EFBIG);
  EXPECT_EQ(lists.parse(three, {.values = 2}).error().code, EFBIG);
}

TEST_P(MacPropertyListParsingTest, AReaderMayTakeMore) {
  const std::string large = "<plist><true/></plist>" + std::string(kLargestPropertyList, ' ');
  EXPECT_TRUE(lists.parse(large, {.bytes = large.size()}));
}

TEST_P(MacPropertyListParsingTest, NestingThatWouldEndTheParserIsFoundBefore) {
  std::string bytes = "<plist>";
  for (int level = 0; level < 100'000; ++level) bytes += "<array>";
  EXPECT_EQ(lists.parse(bytes).error().code, EINVAL);
}

TEST_P(MacPropertyListParsingTest, WithoutMemoryForTheBytesItIsSaid) {
  fakes::failCreation(1);
  EXPECT_EQ(lists.parse("<plist><true/></plist>").error().code, ENOMEM);
}

INSTANTIATE_TEST_SUITE_P(Any, MacPropertyListParsingTest, ::testing::Values(PropertyListFormat::xml));

}  // namespace
}  // namespace platform
