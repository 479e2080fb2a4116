#include "platform/foundation/BinaryPropertyList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <random>

#include "tests/support/LibplistPropertyLists.h"

namespace foundation {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Object = BinaryPropertyList::Object;

constexpr std::size_t kMany = 1'000'000;

/// Written and read by the other implementation, which is the measure of what is a sound list.
class BinaryPropertyListTest : public testing::Test {
 protected:
  std::string written(const PropertyList& value) {
    return lists.serialize(value, platform::PropertyListFormat::binary).value();
  }
  PropertyList read(const std::string& bytes) {
    auto value = lists.parse(bytes);
    EXPECT_TRUE(value) << "not sound";
    return value ? value.value() : PropertyList("not sound");
  }
  BinaryPropertyList opened(const PropertyList& value) {
    return BinaryPropertyList::open(written(value), kMany).value();
  }
  static int fault(const std::string& bytes, std::size_t mostValues = kMany) {
    const auto list = BinaryPropertyList::open(bytes, mostValues);
    return list ? 0 : list.error().code;
  }

  static PropertyList everyKind() {
    return PropertyList::Dictionary{
        {"text", "plain"},
        {"umlaut", "\xC3\xBC"},
        {"film", "\xF0\x9F\x8E\xAC"},
        {"empty", ""},
        {"long", std::string(70000, 'x')},
        {"data", PropertyList::Data{std::string("\0\xFF", 2)}},
        {"yes", true},
        {"no", false},
        {"small", 200},
        {"medium", 40000},
        {"large", std::int64_t{3000000000}},
        {"negative", -1},
        {"huge", std::uint64_t{18446744073709551615U}},
        {"real", 0.1},
        {"date", Date::fromUnixTime(1293876000.5)},
        {"uid", PropertyList::Uid{300}},
        {"array", PropertyList::Array{1, "two", PropertyList::Array{}}},
        {"nested", PropertyList::Dictionary{{"a", PropertyList::Dictionary{{"b", "c"}}}}}};
  }

  support::LibplistPropertyLists lists;
};

TEST_F(BinaryPropertyListTest, AValueIsWrittenAsOthersReadIt) {
  EXPECT_EQ(read(BinaryPropertyList::serialize(everyKind()).value()), everyKind());
  EXPECT_EQ(read(BinaryPropertyList::serialize(PropertyList::Array{}).value()), PropertyList::Array{});
  EXPECT_EQ(read(BinaryPropertyList::serialize("text").value()), PropertyList("text"));
}

TEST_F(BinaryPropertyListTest, EveryNumberOfObjectsIsWrittenAsOthersReadIt) {
  for (const int count : {13, 14, 15, 16, 253, 254, 255, 256, 257, 65533, 65534, 65535, 65536}) {
    PropertyList::Array numbers;
    for (int number = 0; number < count; ++number) numbers.emplace_back(number);
    EXPECT_EQ(read(BinaryPropertyList::serialize(numbers).value()), PropertyList(numbers)) << count;
  }
}

TEST_F(BinaryPropertyListTest, ATextIsWrittenOnce) {
  const PropertyList::Array same(1000, PropertyList("a text that is rather long"));
  EXPECT_LT(BinaryPropertyList::serialize(same).value().size(), 5000U);
}

TEST_F(BinaryPropertyListTest, TextThatCouldNotBeReadAgainIsNotWritten) {
  const std::string zero("a\0b", 3);
  EXPECT_EQ(BinaryPropertyList::serialize(zero).error().code, EINVAL);
  EXPECT_EQ(BinaryPropertyList::serialize(PropertyList::Dictionary{{zero, 1}}).error().code, EINVAL);
  EXPECT_EQ(BinaryPropertyList::serialize("\xFF").error().code, EINVAL);
  EXPECT_EQ(BinaryPropertyList::serialize(PropertyList::Dictionary{{"\xFF", 1}}).error().code, EINVAL);
}

TEST_F(BinaryPropertyListTest, ItFindsWhatADictionaryHolds) {
  const auto list = opened(everyKind());
  const Object root = list.root();
  EXPECT_TRUE(list.isDictionary(root));
  EXPECT_EQ(list.text(*list.find(root, "text")), "plain");
  EXPECT_EQ(list.text(*list.find(root, "umlaut")), "\xC3\xBC");
  EXPECT_EQ(list.text(*list.find(root, "film")), "\xF0\x9F\x8E\xAC");
  EXPECT_EQ(list.text(*list.find(root, "long")), std::string(70000, 'x'));
  EXPECT_EQ(list.text(*list.find(root, "small")), std::nullopt);
  EXPECT_TRUE(list.isText(*list.find(root, "umlaut"), "\xC3\xBC"));
  EXPECT_FALSE(list.isText(*list.find(root, "umlaut"), "u"));
  EXPECT_FALSE(list.isText(*list.find(root, "small"), ""));
  EXPECT_EQ(list.find(root, "none"), std::nullopt);
  EXPECT_EQ(list.find(*list.find(root, "text"), "text"), std::nullopt);
}

TEST_F(BinaryPropertyListTest, WholeNumbersOfEverySizeAreRead) {
  const auto list = opened(everyKind());
  const auto number = [&](const char* key) { return list.integer(*list.find(list.root(), key)); };
  EXPECT_EQ(number("small"), 200);
  EXPECT_EQ(number("medium"), 40000);
  EXPECT_EQ(number("large"), 3000000000);
  EXPECT_EQ(number("negative"), -1);
  EXPECT_EQ(number("real"), std::nullopt);
  EXPECT_EQ(number("text"), std::nullopt);
}

TEST_F(BinaryPropertyListTest, TheElementsOfAnArrayAreInTheirOrder) {
  const auto list = opened(PropertyList::Dictionary{{"a", PropertyList::Array{"x", "y", "x"}}});
  const auto elements = list.elements(*list.find(list.root(), "a"));
  ASSERT_EQ(elements.size(), 3U);
  EXPECT_TRUE(list.isText(elements[0], "x"));
  EXPECT_TRUE(list.isText(elements[1], "y"));
  EXPECT_TRUE(list.isText(elements[2], "x"));
  EXPECT_THAT(list.elements(list.root()), IsEmpty());
  EXPECT_FALSE(list.isArray(list.root()));
}

TEST_F(BinaryPropertyListTest, AnArrayIsReplacedAndAllElseStays) {
  PropertyList root = everyKind();
  root.set("list", PropertyList::Array{"a", everyKind(), "c", 4});
  root.set("after", "z");
  const auto list = opened(root);
  auto elements = list.elements(*list.find(list.root(), "list"));
  elements.erase(elements.begin());
  std::swap(elements[1], elements[2]);
  const PropertyList added = PropertyList::Dictionary{{"k", PropertyList::Array{"\xC3\xBC", 7}}};
  root.set("list", PropertyList::Array{everyKind(), 4, "c", added});
  EXPECT_EQ(read(list.replacingArray("list", elements, {added}).value()), root);
}

/// A dictionary in which "x" stands twice: an empty array, then one that holds "y".
std::string keyTwice() {
  const std::string objects = "bplist00\xD2\x01\x01\x02\x03\x51x\xA0\xA1\x04\x51y";
  return objects + "\x08\x0D\x0F\x10\x12" + std::string(6, '\0') + "\x01\x01" +
         std::string("\0\0\0\0\0\0\0\x05\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x14", 24);
}

TEST_F(BinaryPropertyListTest, OfAKeyThatStandsTwiceTheLastValueCounts) {
  EXPECT_EQ(read(keyTwice()), PropertyList(PropertyList::Dictionary{{"x", PropertyList::Array{"y"}}}));
  const auto list = BinaryPropertyList::open(keyTwice(), kMany).value();
  EXPECT_EQ(list.value().value(), PropertyList(PropertyList::Dictionary{{"x", PropertyList::Array{"y"}}}));
  const auto array = list.find(list.root(), "x");
  ASSERT_TRUE(array);
  const auto elements = list.elements(*array);
  ASSERT_EQ(elements.size(), 1U);
  EXPECT_EQ(list.text(elements[0]), "y");
  const auto changed = list.replacingArray("x", elements, {"z"});
  ASSERT_TRUE(changed);
  EXPECT_EQ(read(changed.value()),
            PropertyList(PropertyList::Dictionary{{"x", PropertyList::Array{"y", "z"}}}));
}

/// Dictionaries whose keys are in every order, missing, repeated and not the same objects, one after the
/// other.
TEST_F(BinaryPropertyListTest, ALookupFindsInEveryDictionaryWhatIsThere) {
  const std::vector<std::string> keys = {"a", "b", "\xC3\xBC"};
  std::mt19937 random(4711);  // NOLINT(cert-msc51-cpp): the same dictionaries each time
  PropertyList::Array array;
  for (int number = 0; number < 3000; ++number) {
    PropertyList::Dictionary dictionary;
    for (auto left = random() % 5; left > 0; --left) {
      const auto key = random() % 4;
      dictionary.emplace_back(key < 3 ? keys[key] : "other" + std::to_string(random() % 99), number);
    }
    array.push_back(random() % 9 == 0 ? PropertyList("none") : PropertyList(dictionary));
  }
  const auto bytes = BinaryPropertyList::serialize(PropertyList::Dictionary{{"list", array}});
  const auto list = BinaryPropertyList::open(bytes.value(), kMany).value();
  BinaryPropertyList::Lookup lookup(list, keys);
  for (const Object element : list.elements(*list.find(list.root(), "list"))) {
    lookup.enter(element);
    for (std::size_t key = 0; key < keys.size(); ++key) EXPECT_EQ(lookup[key], list.find(element, keys[key]));
  }
}

/// A dictionary {"x": ["y"]}, its references and its table of numbers of those sizes.
std::string withNumbersOf(std::size_t referenceSize, std::size_t offsetSize) {
  std::string bytes = "bplist00";
  std::string table;
  const auto number = [](std::size_t value, std::size_t size) {
    return std::string(size - 1, '\0') + static_cast<char>(value);
  };
  const auto object = [&](const std::string& marker, const std::vector<std::size_t>& references) {
    table += number(bytes.size(), offsetSize);
    bytes += marker;
    for (const std::size_t reference : references) bytes += number(reference, referenceSize);
  };
  object("\xD1", {1, 2});
  object("\x51x", {});
  object("\xA1", {3});
  object("\x51y", {});
  const std::size_t begin = bytes.size();
  return bytes + table + std::string(6, '\0') + number(offsetSize, 1) + number(referenceSize, 1) +
         number(4, 8) + number(0, 8) + number(begin, 8);
}

TEST_F(BinaryPropertyListTest, NumbersOfEverySizeAreReadAndReplaced) {
  for (std::size_t referenceSize = 1; referenceSize <= 8; ++referenceSize) {
    for (std::size_t offsetSize = 1; offsetSize <= 8; ++offsetSize) {
      const auto list = BinaryPropertyList::open(withNumbersOf(referenceSize, offsetSize), kMany);
      ASSERT_TRUE(list) << referenceSize << ' ' << offsetSize;
      EXPECT_EQ(list.value().value().value(),
                PropertyList(PropertyList::Dictionary{{"x", PropertyList::Array{"y"}}}));
      const auto elements = list.value().elements(*list.value().find(list.value().root(), "x"));
      const auto changed = list.value().replacingArray("x", elements, {"z"});
      ASSERT_TRUE(changed);
      EXPECT_EQ(read(changed.value()),
                PropertyList(PropertyList::Dictionary{{"x", PropertyList::Array{"y", "z"}}}));
    }
  }
  EXPECT_EQ(fault(withNumbersOf(9, 1)), EINVAL);
  EXPECT_EQ(fault(withNumbersOf(1, 9)), EINVAL);
}

/// A list of one object, which is written out by hand.
std::string onlyObject(const std::string& object) {
  const std::size_t table = 8 + object.size();
  return "bplist00" + object + "\x08" + std::string(6, '\0') + "\x01\x01" + std::string(7, '\0') + '\x01' +
         std::string(15, '\0') + static_cast<char>(table);
}

Result<PropertyList> valueOf(const std::string& object) {
  return BinaryPropertyList::open(onlyObject(object), kMany).value().value();
}

TEST_F(BinaryPropertyListTest, AllOfItIsReadAsOthersWriteIt) {
  EXPECT_EQ(opened(everyKind()).value().value(), everyKind());
  EXPECT_EQ(opened(PropertyList::Array{}).value().value(), PropertyList::Array{});
  EXPECT_EQ(opened("text").value().value(), PropertyList("text"));
}

TEST_F(BinaryPropertyListTest, AllOfItIsReadAsOthersReadIt) {
  using namespace std::string_literals;
  for (const std::string& object :
       {"\x10\xFF"s, "\x11\x80\x00"s, "\x12\xFF\xFF\xFF\xFF"s, "\x13"s + std::string(8, '\xFF'),
        "\x14"s + std::string(8, '\0') + std::string(8, '\xFF'), "\x14"s + std::string(15, '\0') + "\x05",
        "\x22\x3F\x80\x00\x00"s, "\x23\x3F\xB9\x99\x99\x99\x99\x99\x9A"s,
        "\x33\xC1\xD0\x00\x00\x00\x00\x00\x00"s, "\x40"s, "\x41\x00"s, "\x51x"s, "\x62\xD8\x3C\xDF\xAC"s,
        "\x80\x05"s, "\x82\x01\x02\x03"s, "\x8F"s + std::string(15, '\0') + "\x07", "\xC0"s, "\xD0"s}) {
    EXPECT_EQ(valueOf(object).value(), read(onlyObject(object)));
  }
}

/// Where the other reader cuts or leaves out.
TEST_F(BinaryPropertyListTest, NothingOfAValueIsLost) {
  EXPECT_EQ(valueOf("\x72\xC3\xBC").value(), PropertyList("\xC3\xBC"));
  EXPECT_EQ(valueOf("\x14" + std::string(16, '\xFF')).value(), PropertyList(-1));
}

TEST_F(BinaryPropertyListTest, InTextsWhatIsNoCharacterIsReplaced) {
  using namespace std::string_literals;
  const std::vector<std::pair<std::string, std::string>> texts = {
      {"\x53\x61\0\x62"s, "a\xEF\xBF\xBD\x62"},                      // a zero character
      {"\x52\0\0"s, "\xEF\xBF\xBD\xEF\xBF\xBD"},                     //
      {"\x72\x61\0"s, "a\xEF\xBF\xBD"},                              //
      {"\x63\0a\0\0\0b"s, "a\xEF\xBF\xBD\x62"},                      //
      {"\x52\xFFz", "\xEF\xBF\xBDz"},                                // no ASCII, and no UTF-8
      {"\x72\xC3z", "\xEF\xBF\xBDz"},                                // half a character
      {"\x72\xC0\x80", "\xEF\xBF\xBD\xEF\xBF\xBD"},                  // a zero in a longer form
      {"\x73\xED\xA0\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},  // half a pair
      {"\x61\xD8\0"s, "\xEF\xBF\xBD"},                               //
      {"\x63\xDC\0\xD8\0\0a"s, "\xEF\xBF\xBD\xEF\xBF\xBD\x61"},      //
      {"\x74\xEF\xBF\xBD\xFF", "\xEF\xBF\xBD\xEF\xBF\xBD"}};
  for (const auto& [object, text] : texts) {
    EXPECT_EQ(valueOf(object).value(), PropertyList(text)) << testing::PrintToString(object);
    const auto list = BinaryPropertyList::open(onlyObject(object), kMany).value();
    EXPECT_EQ(list.text(list.root()), text);
    EXPECT_TRUE(list.isText(list.root(), text));
    EXPECT_FALSE(list.isText(list.root(), object.substr(1))) << "these are not the characters";
    EXPECT_FALSE(list.isText(list.root(), text + "x"));
    EXPECT_TRUE(BinaryPropertyList::serialize(text));
  }
}

/// Bytes that are half of the time those that text is made of.
std::string anyTextBytes(std::mt19937& random, std::size_t length) {
  std::string bytes;
  while (bytes.size() < length) {
    if (random() % 2 == 0)
      bytes += std::string("a\xC3\xBC\xE2\x82\xAC\xF0\x9F\x8E\xAC").substr(random() % 10, 4);
    bytes += static_cast<char>(random());
    if (random() % 8 == 0) bytes += '\0';
  }
  return bytes.substr(0, length);
}

TEST_F(BinaryPropertyListTest, AnyTextThatIsReadIsItselfAndCanBeWritten) {
  std::mt19937 random(4711);  // NOLINT(cert-msc51-cpp): the same texts each time
  int same = 0;
  for (int round = 0; round < 30000; ++round) {
    const auto kind = 5 + random() % 3;
    const auto count = random() % 8;
    const std::string payload = anyTextBytes(random, kind == 6 ? 2 * count : count);
    const std::string object = static_cast<char>(kind << 4U | count) + payload;
    const auto list = BinaryPropertyList::open(onlyObject(object), kMany).value();
    const auto value = list.value().value();
    const std::string text = *value.as<std::string>();
    EXPECT_EQ(list.text(list.root()), text);
    EXPECT_TRUE(list.isText(list.root(), text));
    EXPECT_LE(text.size(), 3 * payload.size());
    const auto bytes = BinaryPropertyList::serialize(value);
    ASSERT_TRUE(bytes) << testing::PrintToString(object);
    EXPECT_EQ(BinaryPropertyList::open(bytes.value(), kMany).value().value().value(), value);
    same += text == payload ? 1 : 0;
    EXPECT_EQ(list.isText(list.root(), payload), text == payload);
  }
  EXPECT_GT(same, 1000);
}

TEST_F(BinaryPropertyListTest, WhatNoPropertyListCanHoldIsNotRead) {
  using namespace std::string_literals;
  for (const std::string& object :
       {"\0"s, "\x33\x7F\xF8\0\0\0\0\0\0"s, "\x33\xFF\xF0\0\0\0\0\0\0"s,
        "\x14"s + std::string(7, '\0') + '\x01' + std::string(8, '\0'),
        "\x14"s + std::string(8, '\xFF') + std::string(8, '\0'), "\x8F\x01"s + std::string(15, '\0')}) {
    const auto value = valueOf(object);
    ASSERT_FALSE(value.ok());
    EXPECT_EQ(value.error().code, ENOTSUP);
  }
}

TEST_F(BinaryPropertyListTest, AnArrayThatIsMissingIsAdded) {
  const auto list = opened(PropertyList::Dictionary{{"version", 1}});
  EXPECT_EQ(read(list.replacingArray("list", {}, {"a"}).value()),
            PropertyList(PropertyList::Dictionary{{"version", 1}, {"list", PropertyList::Array{"a"}}}));
  EXPECT_EQ(read(BinaryPropertyList::emptyDictionary().replacingArray("list", {}, {}).value()),
            PropertyList(PropertyList::Dictionary{{"list", PropertyList::Array{}}}));
}

TEST_F(BinaryPropertyListTest, AnArrayThatIsReferredToFromElsewhereStaysThere) {
  // libplist gives equal texts one object; the list and the other key share their elements.
  const auto list = opened(PropertyList::Dictionary{{"list", PropertyList::Array{"a", "b"}},
                                                    {"other", PropertyList::Array{"a", "b"}}});
  EXPECT_EQ(read(list.replacingArray("list", {}, {}).value()),
            PropertyList(PropertyList::Dictionary{{"list", PropertyList::Array{}},
                                                  {"other", PropertyList::Array{"a", "b"}}}));
}

TEST_F(BinaryPropertyListTest, WhatNothingRefersToIsLeftOut) {
  const auto list = opened(PropertyList::Dictionary{{"list", PropertyList::Array{std::string(5000, 'x')}}});
  EXPECT_LT(list.replacingArray("list", {}, {}).value().size(), 200U);
}

TEST_F(BinaryPropertyListTest, OnlyADictionaryGetsAnArray) {
  EXPECT_EQ(opened(PropertyList::Array{}).replacingArray("list", {}, {}).error().code, EINVAL);
  EXPECT_EQ(opened(PropertyList()).replacingArray("list", {}, {"\xFF"}).error().code, EINVAL);
  EXPECT_EQ(opened(PropertyList()).replacingArray("\xFF", {}, {}).error().code, EINVAL);
}

TEST_F(BinaryPropertyListTest, MoreValuesThanAllowedAreRefused) {
  const std::string bytes = written(PropertyList::Array(1000, PropertyList("x")));
  EXPECT_EQ(fault(bytes, 1001), 0);
  EXPECT_EQ(fault(bytes, 1000), EFBIG);
}

/// The table of a file may name more objects than any value uses.
TEST_F(BinaryPropertyListTest, MoreObjectsThanAllowedAreRefusedBeforeTheyAreLookedAt) {
  constexpr std::size_t kObjects = 200;
  std::string bytes = "bplist00";
  const std::size_t object = bytes.size();
  bytes += std::string(kObjects, '\x08');
  const std::size_t table = bytes.size();
  bytes += std::string(kObjects, static_cast<char>(object)) + std::string(6, '\0') + "\x01\x01" +
           std::string(7, '\0') + static_cast<char>(kObjects) + std::string(8, '\0') + std::string(7, '\0') +
           static_cast<char>(table);
  EXPECT_EQ(fault(bytes, kObjects), 0);
  EXPECT_EQ(fault(bytes, kObjects - 1), EFBIG);
}

/// Ten arrays in each other, each ten times in the next: 10^10 values in a few hundred bytes.
TEST_F(BinaryPropertyListTest, ASmallFileThatStandsForMoreThanAnyMemoryIsRefused) {
  std::string bytes = "bplist00";
  std::string table;
  for (char level = 0; level < 10; ++level) {
    table += static_cast<char>(bytes.size());
    bytes += '\xAA';
    bytes += std::string(10, static_cast<char>(level + 1));
  }
  table += static_cast<char>(bytes.size());
  bytes += '\x08';
  const std::size_t begin = bytes.size();
  bytes += table + std::string(6, '\0') + "\x01\x01" + std::string(7, '\0') + '\x0B' + std::string(8, '\0') +
           std::string(7, '\0') + static_cast<char>(begin);
  EXPECT_EQ(fault(bytes), EFBIG);
}

TEST_F(BinaryPropertyListTest, DeepNestingIsRefused) {
  const auto nested = [](int levels) {
    PropertyList value = "x";
    for (int level = 0; level < levels; ++level) value = PropertyList::Array{std::move(value)};
    return value;
  };
  EXPECT_EQ(fault(BinaryPropertyList::serialize(nested(512)).value()), 0);
  EXPECT_EQ(fault(BinaryPropertyList::serialize(nested(513)).value()), EINVAL);
}

TEST_F(BinaryPropertyListTest, EveryBeginningOfAListIsRefused) {
  const std::string bytes = written(everyKind());
  for (std::size_t length = 0; length < bytes.size(); length += length < 500 ? 1 : 97) {
    EXPECT_EQ(fault(bytes.substr(0, length)), EINVAL) << length;
  }
}

/// Whatever the bytes: what is taken is written again soundly, and nothing lies outside.
TEST_F(BinaryPropertyListTest, DamagedBytesAreRefusedOrReadWithinTheirBounds) {
  PropertyList root = everyKind();
  root.set("long", "shorter");
  root.set("list", PropertyList::Array{"a", PropertyList::Dictionary{{"k", 1}}, "a"});
  const std::string sound = written(root);
  std::mt19937 random(4711);  // NOLINT(cert-msc51-cpp): the same damage each time
  int taken = 0;
  int readable = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string bytes = sound;
    const auto changes = 1 + random() % 3;
    for (std::size_t change = 0; change < changes; ++change)
      bytes[random() % bytes.size()] = static_cast<char>(random());
    const auto list = BinaryPropertyList::open(bytes, kMany);
    if (!list || !list.value().isDictionary(list.value().root())) continue;
    ++taken;
    const auto value = list.value().value();
    readable += value ? 1 : 0;
    ASSERT_TRUE(!value || BinaryPropertyList::serialize(value.value()));
    const auto array = list.value().find(list.value().root(), "list");
    const auto elements = array ? list.value().elements(*array) : std::vector<Object>();
    for (const Object element : elements) static_cast<void>(list.value().text(element));
    const auto again = list.value().replacingArray("list", elements, {"b"});
    ASSERT_TRUE(again);
    EXPECT_EQ(fault(again.value()), 0);
  }
  EXPECT_GT(taken, 1000);
  EXPECT_GT(readable, 1000);
  EXPECT_LT(readable, taken);
}

}  // namespace
}  // namespace foundation
