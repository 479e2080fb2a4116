#include "platform/foundation/PropertyList.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

namespace foundation {
namespace {

using Array = PropertyList::Array;
using Dictionary = PropertyList::Dictionary;

TEST(PropertyList, IsAnEmptyDictionaryAtFirst) {
  ASSERT_NE(PropertyList().as<Dictionary>(), nullptr);
  EXPECT_TRUE(PropertyList().as<Dictionary>()->empty());
}

TEST(PropertyList, IsOfOneKindOnly) {
  const PropertyList number = 5;
  ASSERT_NE(number.as<std::int64_t>(), nullptr);
  EXPECT_EQ(*number.as<std::int64_t>(), 5);
  EXPECT_EQ(number.as<bool>(), nullptr);
  EXPECT_EQ(number.as<std::uint64_t>(), nullptr);
  EXPECT_EQ(number.as<std::string>(), nullptr);
  EXPECT_NE(PropertyList(true), PropertyList(1));
  EXPECT_NE(PropertyList("1"), PropertyList(1));
  EXPECT_NE(PropertyList("text").as<std::string>(), nullptr) << "a literal is text, no boolean";
}

TEST(PropertyList, OfRepeatedKeysTheLastValueCountsInTheFirstsPlace) {
  EXPECT_EQ(PropertyList::withoutRepeats({}), Dictionary());
  EXPECT_EQ(PropertyList::withoutRepeats({{"b", 1}, {"a", 2}}), (Dictionary{{"b", 1}, {"a", 2}}));
  EXPECT_EQ(PropertyList::withoutRepeats({{"b", 1}, {"a", 2}, {"b", 3}, {"c", 4}, {"a", 5}, {"b", 6}}),
            (Dictionary{{"b", 6}, {"a", 5}, {"c", 4}}));
  EXPECT_EQ(PropertyList::withoutRepeats({{"", 1}, {"", Dictionary{{"x", 1}}}}),
            (Dictionary{{"", Dictionary{{"x", 1}}}}));
}

TEST(PropertyList, FindsTheValueOfAKey) {
  const PropertyList list = Dictionary{{"a", 1}, {"b", "two"}};
  ASSERT_NE(list.find("b"), nullptr);
  EXPECT_EQ(*list.find("b"), PropertyList("two"));
  EXPECT_EQ(list.find("c"), nullptr);
  EXPECT_EQ(list.find("A"), nullptr);
  EXPECT_EQ(PropertyList("text").find("a"), nullptr);
  EXPECT_EQ(PropertyList(Array{1}).find("0"), nullptr);
}

TEST(PropertyList, TheStringOfAKeyIsEmptyWhereThereIsNone) {
  const PropertyList list = PropertyList::Dictionary{{"text", "a"}, {"number", 1}};
  EXPECT_EQ(list.stringFor("text"), "a");
  EXPECT_EQ(list.stringFor("number"), "");
  EXPECT_EQ(list.stringFor("absent"), "");
  EXPECT_EQ(PropertyList("text").stringFor("text"), "");
}

TEST(PropertyList, SettingReplacesInPlaceOrAppends) {
  PropertyList list = Dictionary{{"a", 1}, {"b", 2}};
  list.set("a", "new");
  list.set("c", 3);
  EXPECT_EQ(list, PropertyList(Dictionary{{"a", "new"}, {"b", 2}, {"c", 3}}));
  PropertyList text = "text";
  text.set("a", 1);
  EXPECT_EQ(text, PropertyList(Dictionary{{"a", 1}}));
}

TEST(PropertyList, ASwitchIsOnForTheTextOneAndNumbersEqualToOne) {
  for (const PropertyList& on : {PropertyList("1"), PropertyList(1), PropertyList(true), PropertyList(1.0),
                                 PropertyList(std::uint64_t{1})}) {
    EXPECT_TRUE(on.isSwitchedOn()) << on.description();
  }
  for (const PropertyList& off :
       {PropertyList("0"), PropertyList("YES"), PropertyList("1 "), PropertyList(""), PropertyList(0),
        PropertyList(2), PropertyList(-1), PropertyList(false), PropertyList(1.5), PropertyList(Date()),
        PropertyList(Array{1}), PropertyList(Dictionary{{"1", 1}}), PropertyList(PropertyList::Data{"1"})}) {
    EXPECT_FALSE(off.isSwitchedOn()) << off.description();
  }
}

TEST(PropertyList, ABooleanValueIsReadAsThePlatformReadsIt) {
  for (const char* const text : {"YES", "y", "true", "T", "1", "9", " \t+001", "-7", "00003", "yellow"}) {
    EXPECT_TRUE(PropertyList(text).boolValue()) << text;
  }
  for (const char* const text : {"", "0", "000", "NO", "false", "off", "on", "+", "--1", "x1"}) {
    EXPECT_FALSE(PropertyList(text).boolValue()) << text;
  }
  EXPECT_TRUE(PropertyList(2).boolValue());
  EXPECT_TRUE(PropertyList(-1).boolValue());
  EXPECT_TRUE(PropertyList(0.5).boolValue());
  EXPECT_FALSE(PropertyList(0).boolValue());
  EXPECT_FALSE(PropertyList(0.0).boolValue());
  EXPECT_FALSE(PropertyList(Array{1}).boolValue());
}

TEST(PropertyList, ReadsIntegersAsThePlatformDoes) {
  EXPECT_EQ(PropertyList("7").integerValue(), 7);
  EXPECT_EQ(PropertyList(" \t\n+12abc").integerValue(), 12);
  EXPECT_EQ(PropertyList("-3.9").integerValue(), -3);
  for (const char* const text : {"", "seven", "v7", "+", "-", "+-5", "--5", "- 5", ".5"}) {
    EXPECT_EQ(PropertyList(text).integerValue(), 0) << text;
  }
  EXPECT_EQ(PropertyList(true).integerValue(), 1);
  EXPECT_EQ(PropertyList(-4).integerValue(), -4);
  EXPECT_EQ(PropertyList(6.9).integerValue(), 6);
  EXPECT_EQ(PropertyList(-6.9).integerValue(), -6);
  EXPECT_EQ(PropertyList(Array{1}).integerValue(), 0);
}

TEST(PropertyList, AnIntegerThatIsTooLargeIsTheNearestThereIs) {
  EXPECT_EQ(PropertyList("9223372036854775808").integerValue(), INT64_MAX);
  EXPECT_EQ(PropertyList("-9223372036854775809").integerValue(), INT64_MIN);
  EXPECT_EQ(PropertyList(UINT64_MAX).integerValue(), INT64_MAX);
  EXPECT_EQ(PropertyList(1e300).integerValue(), INT64_MAX);
  EXPECT_EQ(PropertyList(-1e300).integerValue(), INT64_MIN);
  EXPECT_EQ(PropertyList(9223372036854775808.0).integerValue(), INT64_MAX);
  EXPECT_EQ(PropertyList(std::nan("")).integerValue(), 0);
}

TEST(PropertyList, DescribesSingleValues) {
  EXPECT_EQ(PropertyList("as it is \"\n").description(), "as it is \"\n");
  EXPECT_EQ(PropertyList(-5).description(), "-5");
  EXPECT_EQ(PropertyList(UINT64_MAX).description(), "18446744073709551615");
  EXPECT_EQ(PropertyList(true).description(), "1");
  EXPECT_EQ(PropertyList(0.1).description(), "0.1");
  EXPECT_EQ(PropertyList(Date::fromUnixTime(1293876000)).description(), "2011-01-01 10:00:00 +0000");
  EXPECT_EQ(PropertyList(PropertyList::Data{std::string("\0\xFF", 2)}).description(), "<00ff>");
  EXPECT_EQ(PropertyList(PropertyList::Uid{3}).description(), "3");
}

TEST(PropertyList, DescribesContainersWithTheirNesting) {
  EXPECT_EQ(PropertyList().description(), "{\n}");
  EXPECT_EQ(PropertyList(Array{}).description(), "(\n)");
  const PropertyList list = Dictionary{
      {"plain", "word"},
      {"two words", Array{1, "a\"b\\c\nd", Array{}}},
      {"date", Date()},
  };
  EXPECT_EQ(list.description(),
            "{\n"
            "    plain = word;\n"
            "    \"two words\" = (\n"
            "        1,\n"
            "        \"a\\\"b\\\\c\\nd\",\n"
            "        (\n"
            "        )\n"
            "    );\n"
            "    date = \"1970-01-01 00:00:00 +0000\";\n"
            "}");
}

}  // namespace
}  // namespace foundation
