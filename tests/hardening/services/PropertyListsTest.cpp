// Property lists that somebody has made to do harm: refused, with little work and little memory.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "platform/foundation/BinaryPropertyList.h"
#include "platform/linux/LinuxPropertyLists.h"
#include "tests/hardening/services/AllocationCount.h"
#include "tests/support/Sanitizers.h"

namespace {

using foundation::BinaryPropertyList;
using foundation::PropertyList;

constexpr std::size_t kMany = 4'000'000;  ///< as many as the largest reader takes

std::string bigEndian(std::uint64_t number, unsigned size) {
  std::string bytes;
  while (size-- > 0) bytes += static_cast<char>(number >> (8 * size) & 0xFFU);
  return bytes;
}

/// A binary property list put together by hand.
struct Binary {
  std::vector<std::string> objects = {};
  unsigned offsetSize = 4;
  unsigned referenceSize = 4;
  std::uint64_t root = 0;

  [[nodiscard]] std::string bytes() const {
    std::string bytes = "bplist00";
    std::string table;
    for (const std::string& object : objects) {
      table += bigEndian(bytes.size(), offsetSize);
      bytes += object;
    }
    const std::size_t begin = bytes.size();
    return bytes + table + trailer(objects.size(), begin);
  }
  [[nodiscard]] std::string trailer(std::uint64_t count, std::uint64_t table) const {
    return std::string(6, '\0') + static_cast<char>(offsetSize) + static_cast<char>(referenceSize) +
           bigEndian(count, 8) + bigEndian(root, 8) + bigEndian(table, 8);
  }
};

std::string arrayOf(const std::vector<std::uint32_t>& elements) {
  std::string object(1, static_cast<char>(0xA0U | elements.size()));
  for (const std::uint32_t element : elements) object += bigEndian(element, 4);
  return object;
}

/// Arrays in a ring: each holds the next, the last the first.
std::string ring(std::uint32_t length) {
  Binary list;
  for (std::uint32_t at = 0; at < length; ++at) list.objects.push_back(arrayOf({(at + 1) % length}));
  return list.bytes();
}

std::string chain(std::uint32_t length) {
  Binary list;
  for (std::uint32_t at = 0; at + 1 < length; ++at) list.objects.push_back(arrayOf({at + 1}));
  list.objects.push_back(arrayOf({}));
  return list.bytes();
}

std::string xml(const std::string& content, const std::string& declarations = "") {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist" + declarations +
         ">\n<plist version=\"1.0\">" + content + "</plist>\n";
}

std::string repeated(const std::string& text, std::size_t count) {
  std::string all;
  all.reserve(text.size() * count);
  while (count-- > 0) all += text;
  return all;
}

/// What a reader holds however small the list is: tables and buffers to begin with.
constexpr std::size_t kAlways = std::size_t{256} << 10U;

/// That this thread has computed for so far, whatever else the computer does.
std::chrono::nanoseconds threadTime() {
  timespec time{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// A reader refuses it within a second of work (a sanitizer's own apart), and what it held on the way was at
/// most eight times its size.
template <typename Read>
void expectRefusalBy(const Read& read, const std::string& bytes, int reason) {
  const hardening::AllocationPeak peak;
  const auto begin = threadTime();
  const auto value = read();
  const auto taken = threadTime() - begin;
  ASSERT_FALSE(value.ok());
  EXPECT_EQ(value.error().code, reason);
  EXPECT_LE(peak.bytes(), 8 * bytes.size() + kAlways);
  const bool isQuick = support::kIsSanitized || taken < std::chrono::seconds(1);
  EXPECT_TRUE(isQuick) << taken.count() << " ns";
}

/// Both readers do.
void expectRefusal(const std::string& bytes, int reason) {
  platform::LinuxPropertyLists lists;
  expectRefusalBy([&] { return lists.parse(bytes, {64U << 20U, kMany}); }, bytes, reason);
  if (!bytes.starts_with("bplist00")) return;
  expectRefusalBy([&] { return BinaryPropertyList::open(bytes, kMany); }, bytes, reason);
}

/// Runs a part in a process of its own with little room on the stack: what recurses does not come back.
void withLittleStack(const std::function<bool()>& part) {
  const pid_t child = ::fork();
  if (child == 0) {
    const rlimit little{256U << 10U, 256U << 10U};
    ::_exit(::setrlimit(RLIMIT_STACK, &little) == 0 && part() ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

}  // namespace

/// Else no bound of memory below could be passed.
TEST(HostilePropertyLists, WhatAListTakesThatIsReadIsCounted) {
  const std::string text(1'000'000, 'x');
  const std::string binary = Binary{.objects = {"\x5F\x12" + bigEndian(text.size(), 4) + text}}.bytes();
  for (const std::string& bytes : {xml("<string>" + text + "</string>"), binary}) {
    const hardening::AllocationPeak peak;
    ASSERT_TRUE(platform::LinuxPropertyLists().parse(bytes).ok());
    EXPECT_GT(peak.bytes(), text.size());
  }
}

TEST(HostilePropertyLists, RingsOfEveryLengthAreRefused) {
  for (const std::uint32_t length : {1U, 2U, 3U, 100U, 512U, 513U, 100'000U}) {
    SCOPED_TRACE(length);
    expectRefusal(ring(length), EINVAL);
  }
}

TEST(HostilePropertyLists, ADictionaryThatIsItsOwnKeyOrValueIsRefused) {
  const std::string text = "\x51x";
  expectRefusal(Binary{.objects = {"\xD1" + bigEndian(0, 4) + bigEndian(1, 4), text}}.bytes(), EINVAL);
  expectRefusal(Binary{.objects = {"\xD1" + bigEndian(1, 4) + bigEndian(0, 4), text}}.bytes(), EINVAL);
}

TEST(HostilePropertyLists, SharedArraysThatStandForMoreThanAnyMemoryAreRefused) {
  for (const std::uint32_t levels : {23U, 64U, 500U}) {
    Binary list;
    for (std::uint32_t at = 0; at + 1 < levels; ++at) list.objects.push_back(arrayOf({at + 1, at + 1}));
    list.objects.push_back(arrayOf({}));
    SCOPED_TRACE(levels);
    expectRefusal(list.bytes(), EFBIG);
  }
}

TEST(HostilePropertyLists, AValueThatIsSharedOftenIsRead) {
  const std::string bytes = Binary{.objects = {arrayOf({1, 1, 1}), arrayOf({2, 2}), "\x51x"}}.bytes();
  const PropertyList::Array pair = {"x", "x"};
  EXPECT_EQ(platform::LinuxPropertyLists().parse(bytes).value(),
            PropertyList(PropertyList::Array{pair, pair, pair}));
}

TEST(HostilePropertyLists, ALongTextThatIsSharedByManyIsRefused) {
  const std::string text = "\x5F\x12" + bigEndian(500'000, 4) + std::string(500'000, 'x');
  const std::string data = "\x4F\x12" + bigEndian(500'000, 4) + std::string(500'000, 'x');
  for (const std::string& object : {text, data}) {
    const std::string references = repeated(bigEndian(1, 4), 99'000);
    const std::string array = "\xAF\x12" + bigEndian(99'000, 4) + references;
    expectRefusal(Binary{.objects = {array, object}}.bytes(), EFBIG);
  }
}

TEST(HostilePropertyLists, AShortTextThatIsSharedByManyIsRead) {
  const std::string array = "\xAF\x12" + bigEndian(99'000, 4) + repeated(bigEndian(1, 4), 99'000);
  const std::string bytes = Binary{.objects = {array, "\x55short"}}.bytes();
  const auto list = platform::LinuxPropertyLists().parse(bytes);
  ASSERT_TRUE(list);
  EXPECT_EQ(list.value(), PropertyList(PropertyList::Array(99'000, "short")));
}

TEST(HostilePropertyLists, AKeyWithAZeroCharacterIsRefused) {
  const std::string dictionary = "\xD1" + bigEndian(1, 4) + bigEndian(2, 4);
  using namespace std::string_literals;
  for (const std::string& key : {"\x53"
                                 "a\0b"s,
                                 "\x62\0a\0\0"s, "\x61\0\0"s,
                                 "\x73"
                                 "a\0b"s}) {
    expectRefusal(Binary{.objects = {dictionary, key, "\x51x"}}.bytes(), EINVAL);
  }
  const std::string sound = Binary{.objects = {dictionary, "\x62\1\0\0\1"s, "\x51x"}}.bytes();
  EXPECT_TRUE(platform::LinuxPropertyLists().parse(sound)) << "the zeros are halves of two characters";
}

/// To look at each would be work without end.
TEST(HostilePropertyLists, KeysThatLieInEachOtherAreRefused) {
  constexpr std::size_t kKeys = 1'000;
  const std::string marker = "\x5F\x11\x7F\x7F";  // each of 32,639 characters, those after it among them
  std::string dictionary = "\xDF\x12" + bigEndian(kKeys, 4);
  for (std::size_t key = 1; key <= kKeys; ++key) dictionary += bigEndian(key, 4);
  dictionary += repeated(bigEndian(1, 4), kKeys);
  Binary list{.objects = {dictionary}};
  for (std::size_t key = 1; key <= kKeys; ++key) list.objects.push_back(marker);
  list.objects.back() += std::string(32'639, 'x');
  expectRefusal(list.bytes(), EINVAL);
}

TEST(HostilePropertyLists, DepthsUpTo100000AreRefusedWithoutRecursion) {
  withLittleStack([] {
    for (const std::uint32_t depth : {514U, 5'000U, 100'000U}) {
      expectRefusal(chain(depth), EINVAL);
      expectRefusal(xml(repeated("<array>", depth) + repeated("</array>", depth)), EINVAL);
      expectRefusal(xml(repeated("<dict><key>k</key>", depth) + repeated("</dict>", depth)), EINVAL);
      expectRefusal(xml(repeated("<array>", depth)), EINVAL);
    }
    return !testing::Test::HasFailure();
  });
}

/// Every number of the format, near 2^64, where sums of it wrap around.
TEST(HostilePropertyLists, NumbersNear2To64AreRefused) {
  const std::uint64_t largest = UINT64_MAX;
  for (std::uint64_t less = 0; less < 64; ++less) {
    const std::uint64_t number = largest - less;
    SCOPED_TRACE(less);
    Binary list{.objects = {arrayOf({1}), "\x51x"}, .offsetSize = 8, .referenceSize = 8};
    list.objects[0] = "\xA1" + bigEndian(1, 8);
    const std::string sound = list.bytes();
    ASSERT_TRUE(BinaryPropertyList::open(sound, kMany).ok());
    const std::size_t end = sound.size();
    const auto with = [&](std::size_t at) { return std::string(sound).replace(at, 8, bigEndian(number, 8)); };
    expectRefusal(with(end - 8), EINVAL);                             // where the table is
    expectRefusal(with(end - 16), EINVAL);                            // the root
    expectRefusal(with(end - 24), EINVAL);                            // how many objects
    expectRefusal(with(end - 32 - 8), EINVAL);                        // where an object is
    expectRefusal(with(std::string("bplist00").size() + 1), EINVAL);  // what an array holds
    for (const char kind : {'\x4F', '\x5F', '\x6F', '\xAF', '\xDF'}) {
      const std::string counted = kind + std::string("\x13") + bigEndian(number, 8);
      expectRefusal(Binary{.objects = {counted, "\x51x"}}.bytes(), EINVAL);
    }
  }
}

TEST(HostilePropertyLists, EveryTruncationOfALargeOneIsRefused) {
  PropertyList::Array array;
  for (int at = 0; at < 300; ++at) array.push_back(PropertyList::Dictionary{{"k" + std::to_string(at), at}});
  const std::string whole = BinaryPropertyList::serialize(array).value();
  platform::LinuxPropertyLists lists;
  for (std::size_t length = 0; length < whole.size(); ++length) {
    ASSERT_FALSE(lists.parse(whole.substr(0, length)).ok()) << length;
    ASSERT_FALSE(BinaryPropertyList::open(whole.substr(0, length), kMany).ok()) << length;
  }
}

/// A byte of a file for each note that a reader would make.
TEST(HostilePropertyLists, ATableOfManyObjectsInOnePlaceIsRefused) {
  const Binary list{.objects = {}, .offsetSize = 1};
  const std::string table(1'000'000, '\x08');
  expectRefusal("bplist00\xA0" + table + list.trailer(table.size(), 9), EINVAL);
}

TEST(HostilePropertyLists, ATableThatLiesInTheMagicIsRefused) {
  const Binary list{.objects = {}, .offsetSize = 1};
  expectRefusal("bplist00\xA0\x08" + list.trailer(1, 0), EINVAL);
}

TEST(HostilePropertyLists, EntitiesOfTheirOwnAreRefused) {
  std::string declarations = " [<!ENTITY a \"aaaaaaaaaa\">";
  for (char entity = 'b'; entity <= 'j'; ++entity) {
    const std::string before(1, static_cast<char>(entity - 1));
    declarations += std::string("<!ENTITY ") + entity + " \"" + repeated("&" + before + ";", 10) + "\">";
  }
  expectRefusal(xml("<string>&j;</string>", declarations + "]"), EINVAL);
  expectRefusal(xml("<string>&j;</string>"), EINVAL);
}

TEST(HostilePropertyLists, ExternalEntitiesAreRefused) {
  expectRefusal(xml("<string>&x;</string>", " [<!ENTITY x SYSTEM \"file:///etc/passwd\">]"), EINVAL);
  expectRefusal(xml("<string>x</string>", " [<!ENTITY % x SYSTEM \"http://localhost/x.dtd\"> %x;]"), EINVAL);
}

TEST(HostilePropertyLists, TheTypeThatEveryListNamesIsNoEntity) {
  const std::string type =
      " PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\"";
  EXPECT_EQ(platform::LinuxPropertyLists().parse(xml("<string>x</string>", type)).value(), PropertyList("x"));
}

/// What one value of a few bytes costs is many times as much.
TEST(HostilePropertyLists, ManyTinyValuesAreRefusedBeforeTheyAreHeld) {
  const std::vector<std::string> values = {"<true/>",
                                           "<dict/>",
                                           "<array/>",
                                           "<string/>",
                                           "<data/>",
                                           "<real>0</real>",
                                           "<integer>0</integer>",
                                           "<dict><key/><true/></dict>"};
  const std::vector<std::string> faults = {
      "<odd/>", "<integer>x</integer>", "<date>x</date>", "<data>?</data>", "x", "</dict>",
      "&x;",    "<key>x</key>"};
  for (const std::string& value : values) {
    SCOPED_TRACE(value);
    expectRefusal(xml("<array>" + repeated(value, 100'000)), EINVAL);
    for (const std::string& fault : faults) {
      SCOPED_TRACE(fault);
      expectRefusal(xml("<array>" + repeated(value, 20'000) + fault + "</array>"), EINVAL);
    }
  }
}

TEST(HostilePropertyLists, ManyTinyValuesOfABinaryOneAreRefusedBeforeTheyAreHeld) {
  const std::string noMoment = "\x33" + bigEndian(0x7FF8'0000'0000'0000U, 8);
  const std::string tooLarge = "\x14" + bigEndian(1, 8) + bigEndian(0, 8);
  for (const std::string& fault : {noMoment, tooLarge, std::string(1, '\0')}) {
    const std::string array = "\xAF\x12" + bigEndian(99'001, 4) + repeated(bigEndian(2, 4), 99'000);
    const Binary list{.objects = {array + bigEndian(1, 4), fault, "\x09"}};
    platform::LinuxPropertyLists lists;
    const std::string bytes = list.bytes();
    const hardening::AllocationPeak peak;
    const auto value = lists.parse(bytes);
    ASSERT_FALSE(value.ok());
    EXPECT_EQ(value.error().code, ENOTSUP) << "sound, but of what no value can hold";
    EXPECT_LE(peak.bytes(), 8 * bytes.size() + kAlways);
  }
}

/// Names of attributes are kept until their tag ends.
TEST(HostilePropertyLists, ATagOfNothingButAttributesIsRefused) {
  std::string attributes;
  for (int at = 0; at < 50'000; ++at) attributes += " a" + std::to_string(at) + "=''";
  expectRefusal(xml("<array" + attributes + "/>"), EFBIG);
  expectRefusal(xml("<array" + repeated(" a=''", 100'000) + "/>"), EFBIG);
  expectRefusal(xml("<array" + repeated(" a=''", 1'000) + "/>"), EINVAL);
  EXPECT_TRUE(platform::LinuxPropertyLists().parse(xml("<array a='1' b='2'/>")).ok());
}

TEST(HostilePropertyLists, LongMarkUpIsRefused) {
  const std::string name = repeated("n", 500'000);
  const std::string unknown = "<" + name + "/>";
  expectRefusal(xml(unknown), EINVAL);
  expectRefusal(xml("<array " + name + "='" + name + "'/><odd/>"), EINVAL);
  expectRefusal(xml("<?" + name + " x?><!--" + name + "--><odd/>"), EINVAL);
  expectRefusal(xml("<integer>" + repeated("1", 500'000) + "</integer>"), ENOTSUP);
  expectRefusal(xml("<real>" + repeated("1", 500'000) + "x</real>"), EINVAL);
  expectRefusal(xml("<data>" + repeated("A", 500'001) + "</data>"), EINVAL);
  expectRefusal(xml("<string>" + repeated("x", 500'000) + "</string><odd/>"), EINVAL);
}

std::string dictionaryOf(const std::vector<std::string>& keys) {
  std::string text = "<dict>";
  for (const std::string& key : keys) text += "<key>" + key + "</key><true/>";
  return xml(text + "</dict>");
}

std::string binaryDictionaryOf(const std::vector<std::string>& keys) {
  const auto count = static_cast<std::uint32_t>(keys.size());
  std::string dictionary = "\xDF\x12" + bigEndian(count, 4);
  for (std::uint32_t at = 0; at < count; ++at) dictionary += bigEndian(at + 2, 4);
  dictionary += repeated(bigEndian(1, 4), count);
  Binary list{.objects = {dictionary, "\x09"}};
  for (const std::string& key : keys) list.objects.push_back("\x5F\x11" + bigEndian(key.size(), 2) + key);
  return list.bytes();
}

/// What is made for it takes no more than its share more time when there is eight times as much: what took
/// the square would take 64 times as much.
void expectLinear(const std::function<std::string(std::size_t)>& made, std::size_t count) {
  const auto timeOf = [](const std::string& bytes) {
    auto least = std::chrono::nanoseconds::max();
    for (int round = 0; round < 3; ++round) {
      const auto begin = threadTime();
      const auto value = platform::LinuxPropertyLists().parse(bytes);
      EXPECT_TRUE(value.ok());
      least = std::min(least, threadTime() - begin);
    }
    return least;
  };
  EXPECT_LT(timeOf(made(8 * count)), 24 * timeOf(made(count)));
}

std::vector<std::string> numbered(std::size_t count) {
  std::vector<std::string> keys;
  for (std::size_t at = 0; at < count; ++at) keys.push_back("k" + std::to_string(at));
  return keys;
}

/// Of "Ez" and "FY" in every combination: the sum that many tables find their keys by is the same for all.
std::vector<std::string> colliding(std::size_t count) {
  std::vector<std::string> keys;
  for (std::size_t at = 0; at < count; ++at) {
    std::string key;
    for (unsigned bit = 0; bit < 16; ++bit) key += (at >> bit & 1U) != 0 ? "Ez" : "FY";
    keys.push_back(key);
  }
  return keys;
}

/// Every key twice, the second time in the other order.
std::vector<std::string> repeatedKeys(std::size_t count) {
  std::vector<std::string> keys = numbered(count);
  for (std::size_t at = count; at-- > 0;) keys.push_back(keys[at]);
  return keys;
}

std::vector<std::string> withLongBeginning(std::size_t count) {
  std::vector<std::string> keys = numbered(count);
  for (std::string& key : keys) key.insert(0, 40, 'x');
  return keys;
}

TEST(HostilePropertyLists, ManyKeysTakeTimeInProportion) {
  for (const auto& keys : {numbered, colliding, repeatedKeys, withLongBeginning}) {
    expectLinear([&](std::size_t count) { return dictionaryOf(keys(count)); }, 1'500);
    expectLinear([&](std::size_t count) { return binaryDictionaryOf(keys(count)); }, 1'500);
  }
}

TEST(HostilePropertyLists, ManyKeysAreWrittenInTimeInProportion) {
  const auto timeOf = [](const std::vector<std::string>& keys, platform::PropertyListFormat format) {
    PropertyList::Dictionary dictionary;
    for (const std::string& key : keys) dictionary.emplace_back(key, key);
    const PropertyList value = std::move(dictionary);
    auto least = std::chrono::nanoseconds::max();
    for (int round = 0; round < 3; ++round) {
      const auto begin = threadTime();
      EXPECT_TRUE(platform::LinuxPropertyLists().serialize(value, format).ok());
      least = std::min(least, threadTime() - begin);
    }
    return least;
  };
  for (const auto& keys : {numbered, colliding}) {
    for (const auto format : {platform::PropertyListFormat::xml, platform::PropertyListFormat::binary}) {
      EXPECT_LT(timeOf(keys(12'000), format), 24 * timeOf(keys(1'500), format));
    }
  }
}

TEST(HostilePropertyLists, ATextOfNothingButReferencesTakesTimeInProportion) {
  const auto text = [](std::size_t count) {
    return xml("<string>" + repeated("&amp;", count) + "</string>");
  };
  expectLinear(text, 20'000);
  EXPECT_EQ(platform::LinuxPropertyLists().parse(text(200'000)).value(),
            PropertyList(std::string(200'000, '&')));
}

/// A reader in C would end it there.
TEST(HostilePropertyLists, ATextWithAZeroCharacterIsReadWholeWithAnotherInItsPlace) {
  using namespace std::string_literals;
  const std::string array = "\xA2" + bigEndian(1, 4) + bigEndian(2, 4);
  const std::string bytes = Binary{
      .objects = {
          array,
          "\x53"
          "a\0b"s,
          "\x63\0a\0\0\0b"s}}.bytes();
  EXPECT_EQ(platform::LinuxPropertyLists().parse(bytes).value(),
            PropertyList(PropertyList::Array{"a\uFFFDb", "a\uFFFDb"}));
}

/// What one reader takes for the end of something may be none to another, and hide how deep it goes.
TEST(HostilePropertyLists, DepthCannotBeHidden) {
  const auto deep = [](const std::string& opening, const std::string& closing) {
    return xml(repeated(opening, 20'000) + repeated(closing, 20'000));
  };
  withLittleStack([&] {
    expectRefusal(deep("<array a=\"/>\">", ""), EINVAL);
    expectRefusal(deep("<array><!--></array>-->", "</array>"), EINVAL);
    expectRefusal(deep("<array><?x \"?></array>\" ?>", "</array>"), EINVAL);
    expectRefusal(deep(std::string("<array\0x>", 9), std::string("</array\0x>", 10)), EINVAL);
    expectRefusal(deep("<array a='/>'>", "</array>"), EINVAL);
    expectRefusal(deep("<array>", "</array><!DOCTYPE [<array>]>"), EINVAL);
    return !testing::Test::HasFailure();
  });
}

TEST(HostilePropertyLists, AKeyThatStandsTwiceHasItsLastValue) {
  const std::string pairs = bigEndian(1, 4) + bigEndian(1, 4) + bigEndian(2, 4) + bigEndian(3, 4);
  const std::string bytes = Binary{.objects = {"\xD2" + pairs, "\x51x", "\x09", "\x08"}}.bytes();
  EXPECT_EQ(platform::LinuxPropertyLists().parse(bytes).value(),
            PropertyList(PropertyList::Dictionary{{"x", false}}));
}
