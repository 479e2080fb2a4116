// Property lists that somebody has made to do harm: refused, with little work and little memory.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "platform/PropertyListNesting.h"
#include "platform/foundation/BinaryPropertyList.h"
#include "platform/linux/LibplistPropertyLists.h"
#include "tests/hardening/services/AllocationCount.h"

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

/// Both readers refuse it, and what they held on the way was at most eight times its size.
void expectRefusal(const std::string& bytes, int reason) {
  platform::LibplistPropertyLists lists;
  const std::size_t most = 8 * bytes.size();
  const hardening::AllocationPeak peak;
  const auto value = lists.parse(bytes, {64U << 20U, kMany});
  ASSERT_FALSE(value.ok());
  EXPECT_EQ(value.error().code, reason);
  EXPECT_LE(peak.bytes(), most);
  if (!bytes.starts_with("bplist00")) return;
  const hardening::AllocationPeak again;
  const auto list = BinaryPropertyList::open(bytes, kMany);
  ASSERT_FALSE(list.ok());
  EXPECT_EQ(list.error().code, reason);
  EXPECT_LE(again.bytes(), most);
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
  EXPECT_EQ(platform::LibplistPropertyLists().parse(bytes).value(),
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
  const auto list = platform::LibplistPropertyLists().parse(bytes);
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
  EXPECT_TRUE(platform::LibplistPropertyLists().parse(sound)) << "the zeros are halves of two characters";
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
  platform::LibplistPropertyLists lists;
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
  EXPECT_EQ(platform::LibplistPropertyLists().parse(xml("<string>x</string>", type)).value(),
            PropertyList("x"));
}

/// For each reference the parser moves the rest of the text.
TEST(HostilePropertyLists, ATextOfNothingButReferencesIsRefusedBeforeItIsMovedAbout) {
  const std::string longest = xml("<string>" + repeated("&amp;", 200'000) + "</string>");
  expectRefusal(longest, EFBIG);
  const std::string usual =
      xml("<array>" + repeated("<string>a &amp; b &lt; c</string>", 10'000) + "</array>");
  EXPECT_TRUE(platform::LibplistPropertyLists().parse(usual).ok());
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
  EXPECT_EQ(platform::LibplistPropertyLists().parse(bytes).value(),
            PropertyList(PropertyList::Dictionary{{"x", false}}));
}
