#include "ui/window/askpass/SecretText.h"

#include <gmock/gmock.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string>

namespace window {
namespace {

using namespace std::string_literals;

/// All of the memory that a text may lie in.
bool isWiped(const char* memory) {
  return std::all_of(memory, memory + SecretText::kCapacity, [](char byte) { return byte == '\0'; });
}

TEST(SecretText, ClearingOverwritesIt) {
  SecretText text;
  ASSERT_TRUE(text.append("geheim"));
  const char* const memory = text.bytes().data();
  text.clear();
  EXPECT_EQ(text.bytes(), "");
  EXPECT_TRUE(isWiped(memory));
}

TEST(SecretText, TheLastCharacterIsTakenAwayWholeAndOverwritten) {
  SecretText text;
  ASSERT_TRUE(text.append("a\xC3\xA4\xE2\x82\xAC"));
  EXPECT_EQ(text.length(), 3U);
  text.removeLast();
  EXPECT_EQ(text.bytes(), "a\xC3\xA4");
  text.removeLast();
  text.removeLast();
  text.removeLast();
  EXPECT_EQ(text.length(), 0U);
  EXPECT_TRUE(isWiped(text.bytes().data()));
}

TEST(SecretText, WhatDoesNotFitIsRefusedWhole) {
  SecretText text;
  EXPECT_TRUE(text.append(std::string(SecretText::kCapacity - 1, 'x')));
  EXPECT_FALSE(text.append("yz"));
  EXPECT_TRUE(text.append("y"));
  EXPECT_FALSE(text.append("z"));
  EXPECT_EQ(text.length(), SecretText::kCapacity);
}

TEST(SecretText, ALineBreakOrAZeroIsNoPartOfAPassword) {
  SecretText text;
  for (const std::string& refused : {"a\n"s, "\r"s, "a\0b"s}) EXPECT_FALSE(text.append(refused));
  EXPECT_EQ(text.bytes(), "");
}

TEST(SecretText, Utf16IsTakenAsUtf8OrNotAtAll) {
  SecretText text;
  EXPECT_TRUE(text.append(u"a\u00E4\u20AC\U0001F41D"));
  EXPECT_EQ(text.bytes(), "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x90\x9D");
  EXPECT_EQ(text.length(), 4U);
  const char* const behind = text.bytes().data() + text.bytes().size();
  for (const std::u16string& refused : {u"x\n"s, u"x\r"s, u"x\0"s, u"x\xD83D"s,
                                        u"x\xDC1D"
                                        u"y"s,
                                        std::u16string(SecretText::kCapacity, u'x')}) {
    EXPECT_FALSE(text.append(refused));
    EXPECT_EQ(text.length(), 4U);
    EXPECT_EQ(*behind, '\0') << "nothing of it stays";
  }
  EXPECT_TRUE(text.append(std::u16string(SecretText::kCapacity - 10, u'x')));
  EXPECT_FALSE(text.append(u"x"));
}

TEST(SecretText, ItStaysOutOfSwap) {
  EXPECT_TRUE(SecretText().isLocked());
}

TEST(SecretText, ItIsWrittenAsALine) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  SecretText text;
  ASSERT_TRUE(text.append("two words "));
  EXPECT_TRUE(text.writeLine(ends[1]));
  std::array<char, 64> read{};
  const ssize_t count = ::read(ends[0], read.data(), read.size());
  EXPECT_EQ(std::string(read.data(), static_cast<std::size_t>(count)), "two words \n");
  EXPECT_EQ(text.bytes(), "two words ");
  ::close(ends[0]);
  ::close(ends[1]);
  EXPECT_FALSE(text.writeLine(-1));
}

TEST(SecretText, AProcessThatRefusesLeavesNoCoreAndCannotBeTraced) {
  refuseToBeLookedAt();
  rlimit core{1, 1};
  ASSERT_EQ(::getrlimit(RLIMIT_CORE, &core), 0);
  EXPECT_EQ(core.rlim_max, 0U);
  EXPECT_EQ(::prctl(PR_GET_DUMPABLE, 0, 0, 0, 0), 0);
}

}  // namespace
}  // namespace window
