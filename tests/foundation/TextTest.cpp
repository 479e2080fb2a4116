#include "platform/foundation/Text.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "platform/foundation/PropertyList.h"

namespace foundation {
namespace {

TEST(StringWithFormat, TextStandsWhereItsDirectiveStood) {
  EXPECT_EQ(stringWithFormat("Error: %@ is not executable", "/bin/x"), "Error: /bin/x is not executable");
  EXPECT_EQ(stringWithFormat("Exception in %s. %@ - %@.", "-[A b]", std::string("Name"), "reason"),
            "Exception in -[A b]. Name - reason.");
  EXPECT_EQ(stringWithFormat("%@", std::string("a\0b", 3)), std::string("a\0b", 3));
  EXPECT_EQ(stringWithFormat("%@%@", "\xFF", ""), "\xFF");
}

TEST(StringWithFormat, NothingIsShownAsNull) {
  const char* const none = nullptr;
  EXPECT_EQ(stringWithFormat("%@ %s %d", nullptr, none, std::optional<std::string>()),
            "(null) (null) (null)");
  EXPECT_EQ(stringWithFormat("%@", std::optional<std::string>("x")), "x");
}

TEST(StringWithFormat, WholeNumbersTakeEveryLengthModifier) {
  EXPECT_EQ(stringWithFormat("%i %d %hd %ld %lld %qd %zd", -1, -2, -3, -4L, -5LL, -6, -7),
            "-1 -2 -3 -4 -5 -6 -7");
  EXPECT_EQ(stringWithFormat("%lld %lld", INT64_MIN, INT64_MAX), "-9223372036854775808 9223372036854775807");
  EXPECT_EQ(stringWithFormat("%u %lu %llu %qu", 1U, 2UL, UINT64_MAX, 3), "1 2 18446744073709551615 3");
  EXPECT_EQ(stringWithFormat("%x %X %o", 255, 255U, 8), "ff FF 10");
  EXPECT_EQ(stringWithFormat("%d", true), "1");
}

TEST(StringWithFormat, ANegativeNumberAsUnsignedIsItsComplement) {
  EXPECT_EQ(stringWithFormat("%u", -1), "4294967295");
  EXPECT_EQ(stringWithFormat("%llu", -1LL), "18446744073709551615");
  EXPECT_EQ(stringWithFormat("%x", -1), "ffffffff");
}

TEST(StringWithFormat, RealNumbersTakeWidthAndPrecision) {
  EXPECT_EQ(stringWithFormat("%0.2f", 1.005), "1.00");
  EXPECT_EQ(stringWithFormat("%0.2f %0.2f", 2.5, -0.125), "2.50 -0.12");
  EXPECT_EQ(stringWithFormat("%f %e %g", 1.5, 1500.0, 0.5), "1.500000 1.500000e+03 0.5");
  EXPECT_EQ(stringWithFormat("%8.3f|%-8.1f|%08.1f|%+.0f", 3.14159, 2.0, 2.0, 2.0),
            "   3.142|2.0     |000002.0|+2");
  EXPECT_EQ(stringWithFormat("%0.2f", 1e300).size(), 304U);
}

TEST(StringWithFormat, WhatIsNoNumberAndWhatIsEndless) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(stringWithFormat("%0.2f %f %g %@", nan, -nan, nan, nan), "nan nan nan nan");
  EXPECT_EQ(stringWithFormat("%6.2f|", nan), "   nan|");
  EXPECT_EQ(stringWithFormat("%0.2f %f", INFINITY, -INFINITY), "inf -inf");
}

TEST(StringWithFormat, WidthAndPrecisionOfTextAndNumbers) {
  EXPECT_EQ(stringWithFormat("%5s|%-5s|%.2s", "ab", "ab", "abc"), "   ab|ab   |ab");
  EXPECT_EQ(stringWithFormat("%5@|%-5@|", "ab", "ab"), "   ab|ab   |");
  EXPECT_EQ(stringWithFormat("%5d|%-5d|%05d|%.3d", 42, 42, 42, 42), "   42|42   |00042|042");
  EXPECT_EQ(stringWithFormat("%02x", static_cast<unsigned char>(10)), "0a");
}

TEST(StringWithFormat, AnAbsurdWidthIsBounded) {
  EXPECT_LE(stringWithFormat("%999999999999999999999d", 1).size(), 4096U);
  EXPECT_LE(stringWithFormat("%.99999999999f", 1e308).size(), 4096U);
}

TEST(StringWithFormat, ACharacterByItsNumber) {
  EXPECT_EQ(stringWithFormat("%c%c%3c", 'a', 66, 'c'), "aB  c");
}

TEST(StringWithFormat, AnArgumentOfAnotherKindHasItsOwnForm) {
  EXPECT_EQ(stringWithFormat("%d %u %f", "text", "more", "last"), "text more last");
  EXPECT_EQ(stringWithFormat("%@ %@ %@", 7, 0.1, UINT64_MAX), "7 0.1 18446744073709551615");
  EXPECT_EQ(stringWithFormat("%@", 1234567.5), "1234567.5");
  EXPECT_EQ(stringWithFormat("%0.2f", 2), "2.00");
  EXPECT_EQ(stringWithFormat("%d", 2.5), "2.5");
  EXPECT_EQ(stringWithFormat("%@", PropertyList(PropertyList::Array{1, "b c"})), "(\n    1,\n    \"b c\"\n)");
}

TEST(StringWithFormat, TwoPercentSignsAreOne) {
  EXPECT_EQ(stringWithFormat("100%%"), "100%");
  EXPECT_EQ(stringWithFormat("%%@ %%%@", "x"), "%@ %x");
}

TEST(StringWithFormat, ADirectiveWithoutAnArgumentIsKept) {
  EXPECT_EQ(stringWithFormat("%@ and %@", "one"), "one and %@");
  EXPECT_EQ(stringWithFormat("%s%n%d%0.2f"), "%s%n%d%0.2f");
}

TEST(StringWithFormat, APercentSignThatStartsNothingIsKept) {
  EXPECT_EQ(stringWithFormat("100% sure, %y %! %"), "100% sure, %y %! %");
  EXPECT_EQ(stringWithFormat("100%, %y %! %", "unused"), "100%, %y %! %");
  EXPECT_EQ(stringWithFormat("%1$@ %*d %'d %l", "x"), "%1$@ %*d %'d %l");
  EXPECT_EQ(stringWithFormat("3 % % 4, %5%, %l%", 1), "3 % % 4, %5%, %l%");
}

TEST(StringWithFormat, AMessageThatIsFormattedTwiceStaysSafe) {
  const std::string once = stringWithFormat("Trashing %@", "/tmp/100%@%s%n%%.txt");
  EXPECT_EQ(once, "Trashing /tmp/100%@%s%n%%.txt");
  EXPECT_EQ(stringWithFormat(once), "Trashing /tmp/100%@%s%n%.txt");
}

TEST(StringWithFormat, ArgumentsLeftOverAreIgnored) {
  EXPECT_EQ(stringWithFormat("plain", 1, "x"), "plain");
  EXPECT_EQ(stringWithFormat("", 1), "");
}

TEST(Trimmed, CutsBlanksOfEveryKindAtBothEnds) {
  EXPECT_EQ(trimmed(" \t\r\n\v\f text with  blanks \n"), "text with  blanks");
  EXPECT_EQ(trimmed("\xC2\x85\xC2\xA0\xE2\x80\xA8\xE2\x80\xA9\xE3\x80\x80h\xC3\xA9\xE2\x80\x83"),
            "h\xC3\xA9");
  EXPECT_EQ(trimmed(" \n "), "");
  EXPECT_EQ(trimmed(""), "");
}

TEST(Trimmed, LeavesBytesThatAreNoText) {
  EXPECT_EQ(trimmed(" \xFF\xA0 "), "\xFF\xA0");
  EXPECT_EQ(trimmed(std::string("\0 ", 2)), std::string("\0", 1));
}

TEST(Uppercase, ChangesLettersOfEveryScript) {
  EXPECT_EQ(uppercase("abz-1 [{"), "ABZ-1 [{");
  EXPECT_EQ(uppercase("\xC3\xBC\xC3\xA9"), "\xC3\x9C\xC3\x89");
  EXPECT_EQ(uppercase("\xD1\x84 \xCE\xB1"), "\xD0\xA4 \xCE\x91");
  EXPECT_EQ(uppercase("\xC3\x9F"), "SS");
  EXPECT_EQ(uppercase("\xE3\x81\xA1\x01"), "\xE3\x81\xA1\x01");
}

TEST(Uppercase, KeepsBytesThatAreNoText) {
  EXPECT_EQ(uppercase("\xFF"
                      "a\xC3"),
            "\xFF"
            "A\xC3");
  EXPECT_EQ(uppercase(""), "");
}

TEST(AppendUtf8, WritesCharactersOfEveryLength) {
  std::string text;
  for (const char32_t code : {0x41U, 0xFCU, 0xF72CU, 0x1F3ACU}) appendUtf8(text, code);
  EXPECT_EQ(text, "A\xC3\xBC\xEF\x9C\xAC\xF0\x9F\x8E\xAC");
}

TEST(Lowercase, ChangesAsciiLettersOnly) {
  EXPECT_EQ(lowercase("-REPAIR \xC3\x89 [Z]"), "-repair \xC3\x89 [z]");
}

TEST(CharacterCount, CountsUtf16Units) {
  EXPECT_EQ(characterCount(""), 0U);
  EXPECT_EQ(characterCount("abc"), 3U);
  EXPECT_EQ(characterCount("h\xC3\xA9\xE2\x82\xAC"), 3U);
  EXPECT_EQ(characterCount("\xF0\x9F\x98\x80"), 2U);
}

TEST(CharacterCount, EachByteThatIsNoTextCountsAsOne) {
  EXPECT_EQ(characterCount("\xFF\xFE"), 2U);
  for (std::size_t before = 0; before < 20; ++before) {
    const std::string ascii(before, 'a');
    EXPECT_EQ(characterCount(ascii + "\xC3\xA9" + ascii), 2 * before + 1);
    EXPECT_EQ(characterCount(ascii + "\xF0\x9F\x98\x80"), before + 2);
    EXPECT_EQ(characterCount(ascii + "\xA9"), before + 1) << "no character";
  }
  EXPECT_EQ(characterCount("\xC3"), 1U);
  EXPECT_EQ(characterCount("\xE2\x82"), 2U);
  EXPECT_EQ(characterCount("\xC0\xAF"), 2U) << "overlong";
  EXPECT_EQ(characterCount("\xED\xA0\x80"), 3U) << "a surrogate";
  EXPECT_EQ(characterCount("\xF4\x90\x80\x80"), 4U) << "beyond Unicode";
}

TEST(FirstCharacter, HasItsLengthAndItsNumber) {
  const auto isCharacter = [](std::string_view text, std::size_t length, char32_t code) {
    const Utf8Character character = firstCharacter(text);
    return character.length == length && character.code == code;
  };
  EXPECT_TRUE(isCharacter("a", 1, U'a'));
  EXPECT_TRUE(isCharacter(std::string_view("\0", 1), 1, 0));
  EXPECT_TRUE(isCharacter("\xC2\x80z", 2, 0x80));
  EXPECT_TRUE(isCharacter("\xE0\xA0\x80", 3, 0x800));
  EXPECT_TRUE(isCharacter("\xED\x9F\xBF", 3, 0xD7FF));
  EXPECT_TRUE(isCharacter("\xEE\x80\x80", 3, 0xE000));
  EXPECT_TRUE(isCharacter("\xF0\x90\x80\x80", 4, 0x10000));
  EXPECT_TRUE(isCharacter("\xF4\x8F\xBF\xBF", 4, 0x10FFFF));
}

TEST(FirstCharacter, IsNoneWhereNoValidTextBegins) {
  for (const char* const bytes :
       {"", "\x80", "\xC0\x80", "\xC1\xBF", "\xC3", "\xC3z", "\xE0\x9F\xBF", "\xE2\x82", "\xED\xA0\x80",
        "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF"}) {
    EXPECT_EQ(firstCharacter(bytes).length, 0U) << bytes;
  }
}

TEST(IsUtf8, TellsTextFromOtherBytes) {
  EXPECT_TRUE(isUtf8(""));
  EXPECT_TRUE(isUtf8("h\xC3\xA9 \xF0\x9F\x98\x80"));
  EXPECT_FALSE(isUtf8("\xFF"));
  EXPECT_FALSE(isUtf8("a\xC3"));
  for (std::size_t before = 0; before < 20; ++before) {
    const std::string ascii(before, 'a');
    EXPECT_TRUE(isUtf8(ascii + "\xC3\xA9" + ascii));
    EXPECT_FALSE(isUtf8(ascii + "\xA9" + ascii));
  }
}

}  // namespace
}  // namespace foundation
