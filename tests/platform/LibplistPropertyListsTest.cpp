#include "platform/linux/LibplistPropertyLists.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <chrono>
#include <cmath>

#include "platform/PropertyListNesting.h"

namespace platform {
namespace {

using foundation::Date;
using foundation::PropertyList;
using ::testing::HasSubstr;

class LibplistPropertyListsTest : public ::testing::TestWithParam<PropertyListFormat> {
 protected:
  LibplistPropertyLists lists;

  static std::string xml(const std::string& content) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST "
           "1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n" +
           content + "\n</plist>\n";
  }
  PropertyList read(const std::string& content) {
    auto value = lists.parse(xml(content));
    EXPECT_TRUE(value.ok()) << content;
    return value.ok() ? value.value() : PropertyList("failed");
  }
  /// The value after it was written and read again.
  PropertyList again(const PropertyList& value, PropertyListFormat format) {
    const auto bytes = lists.serialize(value, format);
    EXPECT_TRUE(bytes.ok());
    if (!bytes.ok()) return "not written";
    auto read = lists.parse(bytes.value());
    EXPECT_TRUE(read.ok()) << bytes.value();
    return read.ok() ? read.value() : PropertyList("not read");
  }
  bool isRefused(const std::string& bytes) {
    const auto value = lists.parse(bytes);
    return !value.ok() && value.error().code == EINVAL;
  }
};

INSTANTIATE_TEST_SUITE_P(Formats, LibplistPropertyListsTest,
                         ::testing::Values(PropertyListFormat::xml, PropertyListFormat::binary),
                         [](const auto& format) {
                           return format.param == PropertyListFormat::xml ? "Xml" : "Binary";
                         });

TEST_P(LibplistPropertyListsTest, EveryKindComesBackAsItWas) {
  const PropertyList value = PropertyList::Dictionary{
      {"text", "h\xC3\xA9 \xF0\x9F\x98\x80 <&>\"' \n\ttail "},
      {"empty", ""},
      {"", "empty key"},
      {"data", PropertyList::Data{std::string("\0\1\xFF", 3)}},
      {"no data", PropertyList::Data{}},
      {"yes", true},
      {"no", false},
      {"negative", std::int64_t{-5}},
      {"zero", 0},
      {"smallest", INT64_MIN},
      {"largest", INT64_MAX},
      {"unsigned", UINT64_MAX},
      {"above", (std::uint64_t{1} << 63U)},
      {"real", 0.1},
      {"date", Date::fromUnixTime(1293876000)},
      {"array", PropertyList::Array{1, "two", PropertyList::Array{}, PropertyList::Dictionary{}}},
  };
  EXPECT_EQ(again(value, GetParam()), value);
}

TEST_P(LibplistPropertyListsTest, TheOrderOfKeysIsKept) {
  PropertyList::Dictionary dictionary;
  for (int number = 300; number > 0; --number) dictionary.emplace_back(std::to_string(number * 7919), number);
  EXPECT_EQ(again(dictionary, GetParam()), PropertyList(dictionary));
}

TEST_P(LibplistPropertyListsTest, DatesLongBeforeAndAfter2001ComeBack) {
  for (const double seconds : {-8e9, -1.0, 0.0, 978307199.0, 4102444800.0, 8e9}) {
    EXPECT_EQ(again(Date::fromUnixTime(seconds), GetParam()), PropertyList(Date::fromUnixTime(seconds)))
        << seconds;
  }
}

TEST_F(LibplistPropertyListsTest, ADateBeyondTheClocksRangeBecomesItsLast) {
  EXPECT_EQ(read("<date>4001-01-01T00:00:00Z</date>"), PropertyList(Date::fromUnixTime(1e12)));
  EXPECT_EQ(read("<date>0001-01-01T00:00:00Z</date>"), PropertyList(Date::fromUnixTime(-1e12)));
}

TEST_F(LibplistPropertyListsTest, AFractionOfASecondIsKeptInBinaryAndCutInXml) {
  for (const double seconds : {1293876000.25, 500000000.75, -0.5}) {
    const Date date = Date::fromUnixTime(seconds);
    EXPECT_EQ(again(date, PropertyListFormat::binary), PropertyList(date));
    EXPECT_EQ(again(date, PropertyListFormat::xml), PropertyList(Date::fromUnixTime(std::floor(seconds))));
  }
}

TEST_F(LibplistPropertyListsTest, AReferenceComesBackInBinary) {
  const PropertyList value = PropertyList::Array{PropertyList::Uid{7}};
  EXPECT_EQ(again(value, PropertyListFormat::binary), value);
}

TEST_F(LibplistPropertyListsTest, XmlIsWhatOtherProgramsExpect) {
  const auto text = lists.serialize(PropertyList::Dictionary{{"a", 1}}, PropertyListFormat::xml);
  ASSERT_TRUE(text.ok());
  EXPECT_THAT(text.value(), HasSubstr("<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\""));
  EXPECT_THAT(text.value(), HasSubstr("<key>a</key>\n\t<integer>1</integer>"));
  EXPECT_TRUE(lists.serialize(true, PropertyListFormat::binary).value().starts_with("bplist00"));
}

TEST_F(LibplistPropertyListsTest, ReadsEntitiesCommentsAndMarkedSections) {
  EXPECT_EQ(read("<string>a&amp;b&#65;<!-- <array> --><![CDATA[<dict>]]></string>"),
            PropertyList("a&bA<dict>"));
}

TEST_F(LibplistPropertyListsTest, TheLastValueOfAKeyCounts) {
  EXPECT_EQ(read("<dict><key>a</key><string>1</string><key>b</key><string>2</string>"
                 "<key>a</key><string>3</string></dict>"),
            (PropertyList::Dictionary{{"a", "3"}, {"b", "2"}}));
}

TEST_F(LibplistPropertyListsTest, WhatIsNoPropertyListIsRefused) {
  EXPECT_TRUE(isRefused(""));
  EXPECT_TRUE(isRefused(std::string(1, '\0')));
  EXPECT_TRUE(isRefused("garbage"));
  EXPECT_TRUE(isRefused("<html><body>404</body></html>"));
  EXPECT_TRUE(isRefused("bplist00"));
  EXPECT_TRUE(isRefused("bplist00" + std::string(32, '\xFF')));
  EXPECT_TRUE(isRefused(xml("")));
  EXPECT_TRUE(isRefused(xml("<dict><string>x</string></dict>")));
  EXPECT_TRUE(isRefused(xml("<string>&unknown;</string>")));
  EXPECT_TRUE(isRefused(xml("<!-- <array> never closed")));
}

TEST_F(LibplistPropertyListsTest, EveryTruncationOfXmlInsideItsRootIsRefused) {
  const std::string whole = xml("<dict><key>a</key><array><integer>12</integer><true/></array></dict>");
  const std::size_t end = whole.find("</dict>") + std::string("</dict>").size();
  for (std::size_t length = 0; length < end; ++length) {
    EXPECT_TRUE(isRefused(whole.substr(0, length))) << whole.substr(0, length);
  }
}

TEST_F(LibplistPropertyListsTest, EveryTruncationOfABinaryOneIsRefused) {
  const PropertyList value = PropertyList::Dictionary{{"a", PropertyList::Array{1, 2.5, "x"}}, {"b", true}};
  const std::string whole = lists.serialize(value, PropertyListFormat::binary).value();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_TRUE(isRefused(whole.substr(0, length))) << length;
  }
}

TEST_F(LibplistPropertyListsTest, NoChangedByteOfABinaryOneDoesHarm) {
  const PropertyList value = PropertyList::Dictionary{{"a", PropertyList::Array{1, 2.5, "x"}}, {"b", true}};
  const std::string whole = lists.serialize(value, PropertyListFormat::binary).value();
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (const char byte : {'\0', '\x01', '\x7F', '\xA1', '\xDF', '\xFF'}) {
      std::string changed = whole;
      changed[at] = byte;
      static_cast<void>(lists.parse(changed));
    }
  }
  EXPECT_EQ(lists.parse(whole).value(), value);
}

TEST_F(LibplistPropertyListsTest, DeepNestingIsRefusedBeforeItCanExhaustTheStack) {
  for (const int depth : {513, 60000}) {
    std::string text;
    for (int level = 0; level < depth; ++level) text += "<array>";
    const std::string open = text;
    for (int level = 0; level < depth; ++level) text += "</array>";
    EXPECT_TRUE(isRefused(xml(text))) << depth;
    EXPECT_TRUE(isRefused(open)) << depth;
  }
}

TEST_F(LibplistPropertyListsTest, UsualNestingIsRead) {
  PropertyList value = "inside";
  for (int level = 0; level < 500; ++level) value = PropertyList::Array{value};
  EXPECT_EQ(again(value, PropertyListFormat::xml), value);
  EXPECT_EQ(again(value, PropertyListFormat::binary), value);
  for (int level = 0; level < 20; ++level) value = PropertyList::Array{value};
  EXPECT_FALSE(lists.serialize(value, PropertyListFormat::binary).ok());
}

/// A binary property list of arrays, each of which holds the next one `width` times; the last holds nothing.
std::string chainOfArrays(std::uint32_t count, char width) {
  std::string bytes = "bplist00";
  std::vector<std::size_t> offsets;
  const auto add = [&bytes](std::uint64_t number, unsigned size) {
    while (size-- > 0) bytes += static_cast<char>(number >> (8 * size) & 0xFFU);
  };
  for (std::uint32_t object = 0; object < count; ++object) {
    offsets.push_back(bytes.size());
    const bool isLast = object + 1 == count;
    bytes += static_cast<char>(0xA0 | (isLast ? 0 : width));
    for (char element = 0; !isLast && element < width; ++element) add(object + 1, 4);
  }
  const std::size_t table = bytes.size();
  for (const std::size_t offset : offsets) add(offset, 4);
  bytes += std::string(6, '\0') + "\x04\x04";
  add(count, 8);
  add(0, 8);
  add(table, 8);
  return bytes;
}

TEST_F(LibplistPropertyListsTest, DeepNestingIsRefusedInBinaryToo) {
  EXPECT_TRUE(lists.parse(chainOfArrays(500, 1)).ok());
  EXPECT_TRUE(isRefused(chainOfArrays(600, 1)));
  EXPECT_TRUE(isRefused(chainOfArrays(90000, 1)));
}

TEST_F(LibplistPropertyListsTest, AFewBytesThatStandForMoreThanAnyMemoryAreRefused) {
  EXPECT_TRUE(lists.parse(chainOfArrays(10, 2)).ok());
  EXPECT_EQ(lists.parse(chainOfArrays(60, 2)).error().code, EFBIG);
  EXPECT_EQ(lists.parse(chainOfArrays(300, 10)).error().code, EFBIG);
}

TEST_F(LibplistPropertyListsTest, MoreValuesThanAnyApplicationWritesAreRefused) {
  const auto listOf = [](std::size_t count) {
    std::string text = "<array>";
    for (std::size_t at = 0; at < count; ++at) text += "<true/>";
    return text + "</array>";
  };
  EXPECT_EQ(read(listOf(50000)).as<PropertyList::Array>()->size(), 50000U);
  EXPECT_EQ(lists.parse(xml(listOf(kMostValues))).error().code, EFBIG);
}

/// A binary property list of many empty arrays, of which one is the root.
std::string tableOf(std::uint32_t count) {
  std::string bytes = "bplist00" + std::string(count, '\xA0');
  bytes += std::string(count, '\x08') + std::string(6, '\0') + "\x01\x04";
  for (const std::uint64_t number : {std::uint64_t{count}, std::uint64_t{0}, std::uint64_t{8} + count}) {
    for (unsigned shift = 64; shift > 0; shift -= 8)
      bytes += static_cast<char>(number >> (shift - 8) & 0xFFU);
  }
  return bytes;
}

TEST_F(LibplistPropertyListsTest, ATableOfMoreObjectsThanAnyApplicationWritesIsRefused) {
  EXPECT_TRUE(lists.parse(tableOf(1000)).ok());
  EXPECT_EQ(lists.parse(tableOf(kMostValues + 1)).error().code, EFBIG);
}

TEST_F(LibplistPropertyListsTest, ArraysThatShareTheirBytesAreRefusedBeforeTheyAreHeldInMemory) {
  // Each holds the one behind it and then all the bytes up to the table, which serve every array.
  std::string bytes = "bplist00";
  std::vector<std::size_t> offsets;
  for (std::uint8_t object = 0; object < 200; ++object) {
    offsets.push_back(bytes.size());
    bytes += std::string("\xAF\x12", 2) + std::string("\x00\x01\x00\x00", 4);
    bytes += static_cast<char>(object + 1);
  }
  offsets.push_back(bytes.size());
  bytes += std::string(70000, '\0');
  const std::size_t table = bytes.size();
  for (const std::size_t offset : offsets) {
    for (unsigned shift = 24; shift > 0; shift -= 8)
      bytes += static_cast<char>(offset >> (shift - 8) & 0xFFU);
  }
  bytes += std::string(6, '\0') + "\x03\x01";
  for (const std::uint64_t number : {std::uint64_t{offsets.size()}, std::uint64_t{0}, std::uint64_t{table}}) {
    for (unsigned shift = 64; shift > 0; shift -= 8)
      bytes += static_cast<char>(number >> (shift - 8) & 0xFFU);
  }
  EXPECT_NE(nestingFault(bytes), 0);
}

TEST_F(LibplistPropertyListsTest, AnArrayThatContainsItselfIsRefused) {
  std::string bytes = chainOfArrays(2, 1);
  bytes[12] = '\0';  // the first array's element is itself now
  EXPECT_TRUE(isRefused(bytes));
}

TEST_F(LibplistPropertyListsTest, ATextThatWouldBeCutOrGarbledIsNotWritten) {
  for (const PropertyListFormat format : {PropertyListFormat::xml, PropertyListFormat::binary}) {
    EXPECT_FALSE(lists.serialize(std::string("a\0b", 3), format).ok());
    EXPECT_FALSE(lists.serialize("\xFF\xFE", format).ok());
    EXPECT_FALSE(lists.serialize(PropertyList::Dictionary{{std::string("a\0b", 3), 1}}, format).ok());
    EXPECT_FALSE(lists.serialize(PropertyList::Array{PropertyList::Array{"\xC3"}}, format).ok());
  }
}

TEST_F(LibplistPropertyListsTest, MoreThanTheLargestFileIsRefused) {
  const auto value = lists.parse(std::string(kLargestPropertyList + 1, ' '));
  ASSERT_FALSE(value.ok());
  EXPECT_EQ(value.error().code, EFBIG);
}

}  // namespace
}  // namespace platform
