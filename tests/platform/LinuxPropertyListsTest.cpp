#include "platform/linux/LinuxPropertyLists.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <limits>
#include <random>
#include <set>

#include "tests/support/LibplistPropertyLists.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

using foundation::Date;
using foundation::PropertyList;
using ::testing::HasSubstr;

class LinuxPropertyListsTest : public ::testing::TestWithParam<PropertyListFormat> {
 protected:
  LinuxPropertyLists lists;

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
  int fault(const std::string& bytes) {
    const auto value = lists.parse(bytes);
    return value.ok() ? 0 : value.error().code;
  }
  bool isRefused(const std::string& bytes) { return fault(bytes) == EINVAL; }
};

INSTANTIATE_TEST_SUITE_P(Formats, LinuxPropertyListsTest,
                         ::testing::Values(PropertyListFormat::xml, PropertyListFormat::binary),
                         [](const auto& format) {
                           return format.param == PropertyListFormat::xml ? "Xml" : "Binary";
                         });

TEST_P(LinuxPropertyListsTest, EveryKindComesBackAsItWas) {
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

TEST_P(LinuxPropertyListsTest, TheOrderOfKeysIsKept) {
  PropertyList::Dictionary dictionary;
  for (int number = 300; number > 0; --number) dictionary.emplace_back(std::to_string(number * 7919), number);
  EXPECT_EQ(again(dictionary, GetParam()), PropertyList(dictionary));
}

TEST_P(LinuxPropertyListsTest, DatesLongBeforeAndAfter2001ComeBack) {
  for (const double seconds : {-8e9, -1.0, 0.0, 978307199.0, 4102444800.0, 8e9}) {
    EXPECT_EQ(again(Date::fromUnixTime(seconds), GetParam()), PropertyList(Date::fromUnixTime(seconds)))
        << seconds;
  }
}

TEST_F(LinuxPropertyListsTest, ADateBeyondTheClocksRangeBecomesItsLast) {
  EXPECT_EQ(read("<date>4001-01-01T00:00:00Z</date>"), PropertyList(Date::fromUnixTime(1e12)));
  EXPECT_EQ(read("<date>0001-01-01T00:00:00Z</date>"), PropertyList(Date::fromUnixTime(-1e12)));
}

TEST_F(LinuxPropertyListsTest, AFractionOfASecondIsKeptInBinaryAndCutInXml) {
  for (const double seconds : {1293876000.25, 500000000.75, -0.5}) {
    const Date date = Date::fromUnixTime(seconds);
    EXPECT_EQ(again(date, PropertyListFormat::binary), PropertyList(date));
    EXPECT_EQ(again(date, PropertyListFormat::xml), PropertyList(Date::fromUnixTime(std::floor(seconds))));
  }
}

TEST_F(LinuxPropertyListsTest, AReferenceComesBackInBinary) {
  const PropertyList value = PropertyList::Array{PropertyList::Uid{7}};
  EXPECT_EQ(again(value, PropertyListFormat::binary), value);
}

TEST_F(LinuxPropertyListsTest, XmlIsWhatOtherProgramsExpect) {
  const auto text = lists.serialize(PropertyList::Dictionary{{"a", 1}}, PropertyListFormat::xml);
  ASSERT_TRUE(text.ok());
  EXPECT_THAT(text.value(), HasSubstr("<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\""));
  EXPECT_THAT(text.value(), HasSubstr("<key>a</key>\n\t<integer>1</integer>"));
  EXPECT_TRUE(lists.serialize(true, PropertyListFormat::binary).value().starts_with("bplist00"));
}

/// Every kind of value but the kinds that XML cannot hold whole.
PropertyList everyKindOfXml() {
  return PropertyList::Dictionary{
      {"a <key> & more", "a text <&>\"'\n\ttail "},
      {"", ""},
      {"data", PropertyList::Data{std::string(100, 'x')}},
      {"no data", PropertyList::Data{}},
      {"flags", PropertyList::Array{true, false}},
      {"whole", PropertyList::Array{0, -5, INT64_MIN, INT64_MAX, UINT64_MAX}},
      {"real", PropertyList::Array{0.0, 0.1, -2.5, 1e300, 5.0, std::numeric_limits<double>::infinity(),
                                   -std::numeric_limits<double>::infinity()}},
      {"date", Date::fromUnixTime(1293876000)},
      {"empty", PropertyList::Array{PropertyList::Array{}, PropertyList::Dictionary{}}}};
}

TEST_F(LinuxPropertyListsTest, XmlIsLaidOutAsByApplesOwnPrograms) {
  EXPECT_EQ(lists.serialize(everyKindOfXml(), PropertyListFormat::xml).value(),
            R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
	<key>a &lt;key&gt; &amp; more</key>
	<string>a text &lt;&amp;&gt;"'
	tail </string>
	<key></key>
	<string></string>
	<key>data</key>
	<data>
	eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4
	eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eA==
	</data>
	<key>no data</key>
	<data>
	</data>
	<key>flags</key>
	<array>
		<true/>
		<false/>
	</array>
	<key>whole</key>
	<array>
		<integer>0</integer>
		<integer>-5</integer>
		<integer>-9223372036854775808</integer>
		<integer>9223372036854775807</integer>
		<integer>18446744073709551615</integer>
	</array>
	<key>real</key>
	<array>
		<real>0.0</real>
		<real>0.10000000000000001</real>
		<real>-2.5</real>
		<real>1.0000000000000001e+300</real>
		<real>5</real>
		<real>+infinity</real>
		<real>-infinity</real>
	</array>
	<key>date</key>
	<date>2011-01-01T10:00:00Z</date>
	<key>empty</key>
	<array>
		<array/>
		<dict/>
	</array>
</dict>
</plist>
)");
}

TEST_F(LinuxPropertyListsTest, XmlIsTheSameAsAnothersByteForByte) {
  support::LibplistPropertyLists others;
  for (const PropertyList& value :
       {everyKindOfXml(), PropertyList(PropertyList::Array{PropertyList::Uid{7}}), PropertyList("root")}) {
    EXPECT_EQ(lists.serialize(value, PropertyListFormat::xml).value(),
              others.serialize(value, PropertyListFormat::xml).value());
  }
}

TEST_P(LinuxPropertyListsTest, OthersReadWhatIsWrittenAndTheOtherWayRound) {
  support::LibplistPropertyLists others;
  const PropertyList value = everyKindOfXml();
  EXPECT_EQ(others.parse(lists.serialize(value, GetParam()).value()).value(), value);
  EXPECT_EQ(lists.parse(others.serialize(value, GetParam()).value()).value(), value);
}

/// Kept because they are odd: those that both readers take mean the same to both.
TEST_F(LinuxPropertyListsTest, OddListsAreReadAsOthersReadThem) {
  // The other takes 012 for octal, XML for UTF-8 whatever it says, bytes for text whatever they are, and of
  // data that are not filled up only whole groups.
  const std::set<std::string> readOtherwise = {"hexadecimal.plist",      "utf-16.plist",
                                               "beyond-the-range.plist", "binary-odd-keys",
                                               "binary-odd-texts",       "odd-texts"};
  support::LibplistPropertyLists others;
  std::size_t compared = 0;
  for (const char* const folder : {"propertylist", "binarypropertylist", "assignments"}) {
    for (const auto& file : std::filesystem::directory_iterator(std::string(KEPT_LISTS) + "/" + folder)) {
      const std::string bytes = support::contentOf(file.path().string());
      const auto value = lists.parse(bytes);
      if (!value || readOtherwise.contains(file.path().filename().string())) continue;
      const auto theirs = others.parse(bytes);
      ASSERT_TRUE(theirs) << file.path();
      EXPECT_EQ(value.value(), theirs.value()) << file.path();
      ++compared;
    }
  }
  EXPECT_GE(compared, 15U);
}

TEST_F(LinuxPropertyListsTest, ACarriageReturnComesBackAsItself) {
  EXPECT_EQ(again("a\r\nb\r", PropertyListFormat::xml), PropertyList("a\r\nb\r"));
}

TEST_F(LinuxPropertyListsTest, WhatXmlCannotHoldIsWrittenInBinaryOnly) {
  for (const char* const text : {"\x01", "a\x1F", "\xEF\xBF\xBE", "\xEF\xBF\xBF"}) {
    EXPECT_EQ(lists.serialize(text, PropertyListFormat::xml).error().code, EINVAL);
    EXPECT_EQ(lists.serialize(PropertyList::Dictionary{{text, 1}}, PropertyListFormat::xml).error().code,
              EINVAL);
    EXPECT_EQ(again(text, PropertyListFormat::binary), PropertyList(text));
  }
}

TEST_F(LinuxPropertyListsTest, WholeNumbersAreDecimalOrHexadecimal) {
  EXPECT_EQ(read("<integer>12</integer>"), PropertyList(12));
  EXPECT_EQ(read("<integer> +12\n</integer>"), PropertyList(12));
  EXPECT_EQ(read("<integer>012</integer>"), PropertyList(12));
  EXPECT_EQ(read("<integer>-0x8</integer>"), PropertyList(-8));
  EXPECT_EQ(read("<integer>0XfF</integer>"), PropertyList(255));
  EXPECT_EQ(read("<integer>18446744073709551615</integer>"), PropertyList(UINT64_MAX));
  EXPECT_EQ(read("<integer>-9223372036854775808</integer>"), PropertyList(INT64_MIN));
  for (const char* const text :
       {"", "x", "12x", "- 5", "+-5", "--5", "0x", "1.5", "1 2", "18446744073709551616x"}) {
    EXPECT_TRUE(isRefused(xml(std::string("<integer>") + text + "</integer>"))) << text;
  }
  for (const char* const text : {"18446744073709551616", "-9223372036854775809", "0x10000000000000000"}) {
    EXPECT_EQ(fault(xml(std::string("<integer>") + text + "</integer>")), ENOTSUP) << text;
  }
}

TEST_F(LinuxPropertyListsTest, RealNumbersAreReadWhateverTheLanguage) {
  EXPECT_EQ(read("<real>1.5</real>"), PropertyList(1.5));
  EXPECT_EQ(read("<real> +2.5e-3 </real>"), PropertyList(0.0025));
  EXPECT_EQ(read("<real>-Infinity</real>"), PropertyList(-std::numeric_limits<double>::infinity()));
  EXPECT_EQ(read("<real>+inf</real>"), PropertyList(std::numeric_limits<double>::infinity()));
  EXPECT_TRUE(std::isnan(*read("<real>nan</real>").as<double>()));
  for (const char* const text : {"", "x", "1,5", "1.5x", "+-1", "0x10", "1e999x"}) {
    EXPECT_TRUE(isRefused(xml(std::string("<real>") + text + "</real>"))) << text;
  }
}

TEST_F(LinuxPropertyListsTest, RealNumbersBeyondTheRangeAreTheNearestThereAre) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const auto number = [this](const std::string& text) {
    return *read("<real>" + text + "</real>").as<double>();
  };
  EXPECT_EQ(number("1e999"), kInfinity);
  EXPECT_EQ(number("+1e999"), kInfinity);
  EXPECT_EQ(number("-1e999"), -kInfinity);
  EXPECT_EQ(number("1" + std::string(400, '0')), kInfinity);
  EXPECT_EQ(number("1e99999999999999999999"), kInfinity);
  EXPECT_EQ(number("0e999"), 0);
  EXPECT_EQ(number("1e-400"), 0);
  EXPECT_TRUE(std::signbit(number("-1e-400")));
  EXPECT_EQ(number("-1e-400"), 0);
  EXPECT_EQ(number("0." + std::string(400, '0') + "1"), 0);
  EXPECT_EQ(number("4.9e-324"), std::numeric_limits<double>::denorm_min());
}

/// The fault of more weight, wherever it lies.
TEST_F(LinuxPropertyListsTest, WhatIsNoListIsNotTakenForOneThatCannotBeTold) {
  const std::string large = "<integer>18446744073709551616</integer>";
  EXPECT_EQ(fault(xml("<array>" + large + "<true/></array>")), ENOTSUP);
  EXPECT_TRUE(isRefused(xml("<array>" + large + "<odd/></array>")));
  EXPECT_TRUE(isRefused(xml("<array>" + large + "<integer>x</integer></array>")));
  EXPECT_TRUE(isRefused(xml("<array>" + large)));
  EXPECT_EQ(lists.parse(xml("<array>" + large + "<true/></array>"), {.values = 2}).error().code, EFBIG);
}

TEST_F(LinuxPropertyListsTest, DatesAreMomentsOfTheCalendar) {
  EXPECT_EQ(read("<date>\n2012-02-29T23:59:59Z </date>"), PropertyList(Date::fromUnixTime(1330559999)));
  for (const char* const text : {"", "garbage", "2011-01-01T00:00:00", "2011-01-01", "2011-1-1T0:0:0Z",
                                 "2011-01-01T00:00:00Zx", "-011-01-01T00:00:00Z"}) {
    EXPECT_TRUE(isRefused(xml(std::string("<date>") + text + "</date>"))) << text;
  }
  for (const char* const text : {"2011-02-29T00:00:00Z", "2011-13-01T00:00:00Z", "2011-01-01T24:00:00Z",
                                 "2011-01-01T00:60:00Z", "2011-01-01T00:00:60Z"}) {
    EXPECT_EQ(fault(xml(std::string("<date>") + text + "</date>")), ENOTSUP) << text;
  }
}

TEST_F(LinuxPropertyListsTest, DataMayHaveWhiteSpaceAnywhere) {
  EXPECT_EQ(read("<data>\n\tA A\r\nH/ </data>"),
            PropertyList(PropertyList::Data{std::string("\0\1\xFF", 3)}));
  EXPECT_EQ(read("<data/>"), PropertyList(PropertyList::Data{}));
  EXPECT_EQ(read("<data>QQ</data>"), read("<data>QQ==</data>"));
  EXPECT_TRUE(isRefused(xml("<data>AAAAA</data>")));
  EXPECT_TRUE(isRefused(xml("<data>AA*A</data>")));
}

TEST_F(LinuxPropertyListsTest, EmptyElementsHaveTwoForms) {
  for (const std::string name : {"true", "false", "string", "data", "array", "dict"}) {
    EXPECT_EQ(read("<" + name + "/>"), read("<" + name + "></" + name + ">")) << name;
  }
  EXPECT_EQ(read("<dict><key/><true/></dict>"), PropertyList(PropertyList::Dictionary{{"", true}}));
}

TEST_F(LinuxPropertyListsTest, TheReferenceOfAnArchiveIsADictionaryInXml) {
  const std::string reference = "<dict><key>CF$UID</key><integer>3</integer></dict>";
  EXPECT_EQ(read(reference), PropertyList(PropertyList::Dictionary{{"CF$UID", 3}}));
  EXPECT_EQ(again(PropertyList::Uid{3}, PropertyListFormat::xml), read(reference));
}

TEST_F(LinuxPropertyListsTest, XmlMayBeInAnotherEncodingThatItNames) {
  const auto value =
      lists.parse("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><plist><string>\xFC</string></plist>");
  ASSERT_TRUE(value);
  EXPECT_EQ(value.value(), PropertyList("\xC3\xBC"));
  EXPECT_TRUE(lists.parse("\xEF\xBB\xBF<plist><true/></plist>"));
  EXPECT_TRUE(isRefused("<plist><string>\xFC</string></plist>"));
}

TEST_F(LinuxPropertyListsTest, ARootNeedNotBeWithinPlist) {
  EXPECT_EQ(lists.parse("<dict><key>a</key><true/></dict>").value(),
            PropertyList(PropertyList::Dictionary{{"a", true}}));
}

TEST_F(LinuxPropertyListsTest, AnotherStructureThanAPropertyListsIsRefused) {
  for (const char* const content :
       {"<string>a</string><string>b</string>", "garbage<string>a</string>", "<true/>garbage",
        "<dict>x<key>a</key><true/></dict>", "<dict><key>a</key></dict>",
        "<dict><key>a</key><key>b</key><true/></dict>", "<dict><true/></dict>", "<array><key>a</key></array>",
        "<key>a</key>", "<string>a<b/></string>", "<true>x</true>", "<true><true/></true>",
        "<plist><true/></plist>", "<array><plist/></array>", "<null/>", "<TRUE/>",
        "<string>&nothing;</string>", "<array>&nothing;</array>"}) {
    EXPECT_TRUE(isRefused(xml(content))) << content;
  }
  EXPECT_TRUE(isRefused("<plist/>"));
}

/// Some readers take it; what it means is anybody's guess.
TEST_F(LinuxPropertyListsTest, XmlThatIsNotWellFormedIsRefused) {
  for (const char* const bytes :
       {" <?xml version=\"1.0\"?><plist><true/></plist>", "<plist><true/></plist>junk",
        "<plist><true/></plist><plist><true/></plist>", "<plist><string>\x01</string></plist>",
        "<plist><string>]]></string></plist>", "<plist><string>&#0;</string></plist>",
        "<plist><string a=b>x</string></plist>", "<plist><string a='1' a='2'>x</string></plist>",
        "<plist><!-- -- --><true/></plist>", "<plist><true/></PLIST>"}) {
    EXPECT_TRUE(isRefused(bytes)) << bytes;
  }
}

TEST_F(LinuxPropertyListsTest, AttributesCountForNothing) {
  EXPECT_EQ(read("<string a='b' c=\"/>\">x</string>"), PropertyList("x"));
  EXPECT_EQ(read("<string a='&nothing;'>x</string>"), PropertyList("x"));
  EXPECT_TRUE(isRefused("<plist><string a='&nothing;'>x</string></plist>")) << "without a document type";
}

TEST_F(LinuxPropertyListsTest, AReaderMayWantLessOrMore) {
  const std::string three = xml("<array><true/><string/></array>");
  EXPECT_TRUE(lists.parse(three, {.bytes = three.size(), .values = 3}));
  EXPECT_EQ(lists.parse(three, {.bytes = three.size() - 1}).error().code, EFBIG);
  EXPECT_EQ(lists.parse(three, {.values = 2}).error().code, EFBIG);
  const std::string large = three + std::string(kLargestPropertyList, '\n');
  EXPECT_TRUE(lists.parse(large, {.bytes = large.size()}));
}

TEST_F(LinuxPropertyListsTest, ReadsEntitiesCommentsAndMarkedSections) {
  EXPECT_EQ(read("<string>a&amp;b&#65;<!-- <array> --><![CDATA[<dict>]]></string>"),
            PropertyList("a&bA<dict>"));
}

TEST_F(LinuxPropertyListsTest, TheLastValueOfAKeyCounts) {
  EXPECT_EQ(read("<dict><key>a</key><string>1</string><key>b</key><string>2</string>"
                 "<key>a</key><string>3</string></dict>"),
            (PropertyList::Dictionary{{"a", "3"}, {"b", "2"}}));
}

TEST_F(LinuxPropertyListsTest, WhatIsNoPropertyListIsRefused) {
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

TEST_F(LinuxPropertyListsTest, EveryTruncationOfXmlInsideItsRootIsRefused) {
  const std::string whole = xml("<dict><key>a</key><array><integer>12</integer><true/></array></dict>");
  const std::size_t end = whole.find("</dict>") + std::string("</dict>").size();
  for (std::size_t length = 0; length < end; ++length) {
    EXPECT_TRUE(isRefused(whole.substr(0, length))) << whole.substr(0, length);
  }
}

TEST_F(LinuxPropertyListsTest, EveryTruncationOfABinaryOneIsRefused) {
  const PropertyList value = PropertyList::Dictionary{{"a", PropertyList::Array{1, 2.5, "x"}}, {"b", true}};
  const std::string whole = lists.serialize(value, PropertyListFormat::binary).value();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_TRUE(isRefused(whole.substr(0, length))) << length;
  }
}

TEST_F(LinuxPropertyListsTest, NoChangedByteOfABinaryOneDoesHarm) {
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

TEST_F(LinuxPropertyListsTest, DeepNestingIsRefusedBeforeItCanExhaustTheStack) {
  for (const int depth : {513, 60000}) {
    std::string text;
    for (int level = 0; level < depth; ++level) text += "<array>";
    const std::string open = text;
    for (int level = 0; level < depth; ++level) text += "</array>";
    EXPECT_TRUE(isRefused(xml(text))) << depth;
    EXPECT_TRUE(isRefused(open)) << depth;
  }
}

TEST_F(LinuxPropertyListsTest, UsualNestingIsRead) {
  PropertyList value = "inside";
  for (int level = 0; level < 500; ++level) value = PropertyList::Array{value};
  EXPECT_EQ(again(value, PropertyListFormat::xml), value);
  EXPECT_EQ(again(value, PropertyListFormat::binary), value);
  for (int level = 0; level < 20; ++level) value = PropertyList::Array{value};
  EXPECT_FALSE(lists.serialize(value, PropertyListFormat::binary).ok());
}

TEST_P(LinuxPropertyListsTest, TheDeepestThatIsReadIsTheDeepestThatIsWritten) {
  const auto within = [](std::size_t arrays, PropertyList value) {
    while (arrays-- > 0) value = PropertyList::Array{std::move(value)};
    return value;
  };
  const PropertyList deepest = within(kGreatestNesting, "inside");
  EXPECT_EQ(again(deepest, GetParam()), deepest);
  EXPECT_EQ(lists.serialize(within(1, deepest), GetParam()).error().code, EINVAL);
  EXPECT_FALSE(lists.serialize(within(kGreatestNesting, PropertyList::Array{}), GetParam()));
  const bool isDictionary = GetParam() == PropertyListFormat::xml;
  EXPECT_EQ(lists.serialize(within(kGreatestNesting, PropertyList::Uid{1}), GetParam()).ok(), !isDictionary);
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

TEST_F(LinuxPropertyListsTest, DeepNestingIsRefusedInBinaryToo) {
  EXPECT_TRUE(lists.parse(chainOfArrays(500, 1)).ok());
  EXPECT_TRUE(isRefused(chainOfArrays(600, 1)));
  EXPECT_TRUE(isRefused(chainOfArrays(90000, 1)));
}

TEST_F(LinuxPropertyListsTest, AFewBytesThatStandForMoreThanAnyMemoryAreRefused) {
  EXPECT_TRUE(lists.parse(chainOfArrays(10, 2)).ok());
  EXPECT_EQ(lists.parse(chainOfArrays(60, 2)).error().code, EFBIG);
  EXPECT_EQ(lists.parse(chainOfArrays(300, 10)).error().code, EFBIG);
}

TEST_F(LinuxPropertyListsTest, MoreValuesThanAnyApplicationWritesAreRefused) {
  const auto listOf = [](std::size_t count) {
    std::string text = "<array>";
    for (std::size_t at = 0; at < count; ++at) text += "<true/>";
    return text + "</array>";
  };
  EXPECT_EQ(read(listOf(50000)).as<PropertyList::Array>()->size(), 50000U);
  EXPECT_EQ(lists.parse(xml(listOf(PropertyListLimits{}.values))).error().code, EFBIG);
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

TEST_F(LinuxPropertyListsTest, ATableOfMoreObjectsThanAnyApplicationWritesIsRefused) {
  EXPECT_TRUE(lists.parse(tableOf(1000)).ok());
  EXPECT_EQ(lists.parse(tableOf(PropertyListLimits{}.values + 1)).error().code, EFBIG);
}

TEST_P(LinuxPropertyListsTest, WhateverIsReadCanBeWrittenInBinary) {
  const std::string sound =
      lists
          .serialize(PropertyList::Dictionary{{"text", "a longer text"},
                                              {"umlauts", "\xC3\xBC\xC3\xA4\xC3\xB6"},
                                              {"values", PropertyList::Array{1, 2.5, true, "x"}},
                                              {"date", Date::fromUnixTime(0)}},
                     GetParam())
          .value();
  std::mt19937 random(4711);  // NOLINT(cert-msc51-cpp): the same damage each time
  int taken = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string bytes = sound;
    bytes[random() % bytes.size()] = static_cast<char>(random());
    const auto value = lists.parse(bytes);
    if (!value) continue;
    ++taken;
    const auto written = lists.serialize(value.value(), PropertyListFormat::binary);
    ASSERT_TRUE(written) << ::testing::PrintToString(bytes);
    EXPECT_TRUE(lists.parse(written.value()));
  }
  EXPECT_GT(taken, 1000);
}

TEST_F(LinuxPropertyListsTest, AnArrayThatContainsItselfIsRefused) {
  std::string bytes = chainOfArrays(2, 1);
  bytes[12] = '\0';  // the first array's element is itself now
  EXPECT_TRUE(isRefused(bytes));
}

TEST_F(LinuxPropertyListsTest, ATextThatWouldBeCutOrGarbledIsNotWritten) {
  for (const PropertyListFormat format : {PropertyListFormat::xml, PropertyListFormat::binary}) {
    EXPECT_FALSE(lists.serialize(std::string("a\0b", 3), format).ok());
    EXPECT_FALSE(lists.serialize("\xFF\xFE", format).ok());
    EXPECT_FALSE(lists.serialize(PropertyList::Dictionary{{std::string("a\0b", 3), 1}}, format).ok());
    EXPECT_FALSE(lists.serialize(PropertyList::Array{PropertyList::Array{"\xC3"}}, format).ok());
  }
}

TEST_F(LinuxPropertyListsTest, MoreThanTheLargestFileIsRefused) {
  const auto value = lists.parse(std::string(kLargestPropertyList + 1, ' '));
  ASSERT_FALSE(value.ok());
  EXPECT_EQ(value.error().code, EFBIG);
}

}  // namespace
}  // namespace platform
