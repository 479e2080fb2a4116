#include "platform/linux/XkbKeyboardLayout.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "platform/linux/MacKeyCodes.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/XServer.h"

// Last, because it defines words of everyday use.
#include <X11/XKBlib.h>

namespace platform {
namespace {

// Keys by their places on the American keyboard.
constexpr std::uint16_t kA = 0x00;
constexpr std::uint16_t kZ = 0x06;
constexpr std::uint16_t kSection = 0x0A;
constexpr std::uint16_t kQ = 0x0C;
constexpr std::uint16_t kY = 0x10;
constexpr std::uint16_t k1 = 0x12;
constexpr std::uint16_t k2 = 0x13;
constexpr std::uint16_t kEqual = 0x18;
constexpr std::uint16_t kMinus = 0x1B;
constexpr std::uint16_t kLeftBracket = 0x21;
constexpr std::uint16_t kSemicolon = 0x29;
constexpr std::uint16_t kGrave = 0x32;
constexpr std::uint16_t kKeypadDecimal = 0x41;
constexpr std::uint16_t kYen = 0x5D;
constexpr std::uint16_t kUnderscore = 0x5E;

constexpr std::uint32_t kShift = 0x02;
constexpr std::uint32_t kOption = 0x08;

/// Switches the X server of $DISPLAY to one of its layouts, as the key for that does.
void switchTo(unsigned group) {
  const std::unique_ptr<Display, decltype(&::XCloseDisplay)> display(::XOpenDisplay(nullptr),
                                                                     &::XCloseDisplay);
  ASSERT_NE(display, nullptr);
  EXPECT_TRUE(::XkbLockGroup(display.get(), XkbUseCoreKbd, group));
  ::XSync(display.get(), 0);
}

/// Without an X server; the test says which layout is in force.
class XkbKeyboardLayoutTest : public testing::Test {
 protected:
  [[nodiscard]] std::string key(std::uint16_t keyCode, std::uint32_t modifierState = 0) {
    const auto translation = XkbKeyboardLayout(folder / "keyboard").translate(keyCode, modifierState);
    if (!translation) return "no layout";
    EXPECT_EQ(translation->status, noErr);
    return translation->characters;
  }
  void use(const std::string& layout, const std::string& variant = "") {
    folder.file("keyboard", "# made by a test\nXKBMODEL=\"pc105\"\nXKBLAYOUT=\"" + layout +
                                "\"\nXKBVARIANT=\"" + variant + "\"\nXKBOPTIONS=\"\"\nBACKSPACE=\"guess\"\n");
  }

  support::TemporaryFolder folder;
  support::EnvironmentVariable display{"DISPLAY", std::nullopt};
  support::EnvironmentVariable defaultLayout{"XKB_DEFAULT_LAYOUT", std::nullopt};
  support::EnvironmentVariable defaultVariant{"XKB_DEFAULT_VARIANT", std::nullopt};
};

TEST_F(XkbKeyboardLayoutTest, American) {
  use("us");
  EXPECT_EQ(key(kA), "a");
  EXPECT_EQ(key(kQ), "q");
  EXPECT_EQ(key(kZ), "z");
  EXPECT_EQ(key(k1), "1");
  EXPECT_EQ(key(kMinus), "-");
  EXPECT_EQ(key(kSemicolon), ";");
  EXPECT_EQ(key(kGrave), "`");
  EXPECT_EQ(key(kKeypadDecimal), ".");
}

TEST_F(XkbKeyboardLayoutTest, German) {
  use("de");
  EXPECT_EQ(key(kY), "z");
  EXPECT_EQ(key(kZ), "y");
  EXPECT_EQ(key(kLeftBracket), "\xC3\xBC");
  EXPECT_EQ(key(kMinus), "\xC3\x9F");
  EXPECT_EQ(key(kSection), "<");
  EXPECT_EQ(key(kKeypadDecimal), ",");
}

TEST_F(XkbKeyboardLayoutTest, French) {
  use("fr");
  EXPECT_EQ(key(kA), "q");
  EXPECT_EQ(key(kQ), "a");
  EXPECT_EQ(key(k1), "&");
  EXPECT_EQ(key(k2), "\xC3\xA9");
  EXPECT_EQ(key(kSemicolon), "m");
}

TEST_F(XkbKeyboardLayoutTest, Russian) {
  use("ru");
  EXPECT_EQ(key(kA), "\xD1\x84");
  EXPECT_EQ(key(kQ), "\xD0\xB9");
  EXPECT_EQ(key(kGrave), "\xD1\x91");
}

TEST_F(XkbKeyboardLayoutTest, Dvorak) {
  use("us", "dvorak");
  EXPECT_EQ(key(kA), "a");
  EXPECT_EQ(key(kQ), "'");
  EXPECT_EQ(key(kSemicolon), "s");
  EXPECT_EQ(key(kMinus), "[");
}

TEST_F(XkbKeyboardLayoutTest, Japanese) {
  use("jp");
  EXPECT_EQ(key(kA), "a");
  EXPECT_EQ(key(kEqual), "^");
  EXPECT_EQ(key(kLeftBracket), "@");
  EXPECT_EQ(key(kYen), "\\");
  EXPECT_EQ(key(kUnderscore), "\\");
}

TEST_F(XkbKeyboardLayoutTest, ADeadKeyProducesNothing) {
  use("de");
  EXPECT_EQ(key(kGrave), "");
  EXPECT_EQ(key(kEqual), "");
  use("us");
  EXPECT_EQ(key(kGrave), "`");
}

TEST_F(XkbKeyboardLayoutTest, ShiftAndOptionChangeWhatAKeyProduces) {
  use("de");
  EXPECT_EQ(key(kA, kShift), "A");
  EXPECT_EQ(key(kQ, kOption), "@");
  EXPECT_EQ(key(kA, 0x11), "a");
  EXPECT_EQ(key(0x30, kShift), "\x19");
}

TEST_F(XkbKeyboardLayoutTest, KeysWithoutALetterProduceTheMacsCharactersInEveryLayout) {
  const std::map<std::uint16_t, std::string> characters = {
      {0x24, "\r"},   {0x30, "\t"},   {0x31, " "},    {0x33, "\x08"}, {0x35, "\x1B"}, {0x47, "\x1B"},
      {0x4C, "\x03"}, {0x73, "\x01"}, {0x74, "\x0B"}, {0x75, "\x7F"}, {0x77, "\x04"}, {0x79, "\x0C"},
      {0x7B, "\x1C"}, {0x7C, "\x1D"}, {0x7D, "\x1F"}, {0x7E, "\x1E"}};
  for (const char* name : {"us", "ru", "jp"}) {
    use(name);
    for (const auto& [code, character] : characters) EXPECT_EQ(key(code), character) << name << " " << code;
    const std::vector<std::uint16_t> functions = {0x7A, 0x78, 0x63, 0x76, 0x60, 0x61, 0x62, 0x64, 0x65, 0x6D,
                                                  0x67, 0x6F, 0x69, 0x6B, 0x71, 0x6A, 0x40, 0x4F, 0x50, 0x5A};
    for (std::size_t number = 1; number <= functions.size(); ++number) {
      EXPECT_EQ(key(functions[number - 1]), "F" + std::to_string(number));
    }
    EXPECT_EQ(key(0x72), "Insert") << "a Mac's Help has a character that nobody can see";
  }
}

TEST_F(XkbKeyboardLayoutTest, TheNumberBlockProducesItsDigits) {
  use("us");
  const std::map<std::uint16_t, std::string> characters = {
      {0x52, "0"}, {0x53, "1"}, {0x54, "2"}, {0x55, "3"}, {0x56, "4"}, {0x57, "5"}, {0x58, "6"}, {0x59, "7"},
      {0x5B, "8"}, {0x5C, "9"}, {0x43, "*"}, {0x45, "+"}, {0x4B, "/"}, {0x4E, "-"}, {0x51, "="}};
  for (const auto& [code, character] : characters) EXPECT_EQ(key(code), character) << code;
}

TEST_F(XkbKeyboardLayoutTest, KeysThatAreNoneProduceNothingAndCodesThatAreNoneAreAnError) {
  use("us");
  const std::vector<std::uint16_t> codes = {0x34, 0x42, 0x70, 0x7F, 0x38, 0x3B};
  for (const std::uint16_t code : codes) EXPECT_EQ(key(code), "") << code;
  const auto beyond = XkbKeyboardLayout(folder / "keyboard").translate(0x80, 0);
  ASSERT_TRUE(beyond);
  EXPECT_EQ(beyond->status, paramErr);
}

TEST_F(XkbKeyboardLayoutTest, TheEnvironmentIsAskedBeforeTheSystem) {
  use("fr");
  const support::EnvironmentVariable other("XKB_DEFAULT_LAYOUT", "de");
  EXPECT_EQ(key(kA), "a");
  EXPECT_EQ(key(kY), "z");
}

TEST_F(XkbKeyboardLayoutTest, WithoutAnyNamesTheLibrarysOwnLayoutIsInForce) {
  EXPECT_EQ(key(kA), "a");
}

TEST_F(XkbKeyboardLayoutTest, ALayoutThatDoesNotExistIsNone) {
  use("no-such-layout");
  EXPECT_EQ(key(kA), "no layout");
}

TEST_F(XkbKeyboardLayoutTest, ADisplayThatIsNotThereIsPassedOver) {
  use("fr");
  const support::EnvironmentVariable gone("DISPLAY", ":7777");
  EXPECT_EQ(key(kA), "q");
}

TEST_F(XkbKeyboardLayoutTest, TheLayoutOfTheXServerIsInForceAsItIsNow) {
  use("us");
  const support::XServer server;
  const support::EnvironmentVariable shown("DISPLAY", server.name());
  ASSERT_EQ(std::system("setxkbmap de"), 0);  // NOLINT(cert-env33-c): a test's own command
  EXPECT_EQ(key(kY), "z");
  EXPECT_EQ(key(kLeftBracket), "\xC3\xBC");
  ASSERT_EQ(std::system("setxkbmap -layout us -variant dvorak"), 0);  // NOLINT(cert-env33-c)
  EXPECT_EQ(key(kQ), "'");
}

TEST_F(XkbKeyboardLayoutTest, OfTwoLayoutsOfTheXServerTheOneThatIsSwitchedToIsInForce) {
  use("us");
  const support::XServer server;
  const support::EnvironmentVariable shown("DISPLAY", server.name());
  ASSERT_EQ(std::system("setxkbmap us,ru"), 0);  // NOLINT(cert-env33-c)
  EXPECT_EQ(key(kQ), "q");
  EXPECT_EQ(key(kA, kShift), "A");
  switchTo(1);
  EXPECT_EQ(key(kQ), "\xD0\xB9");
  EXPECT_EQ(key(kA, kShift), "\xD0\xA4");
  EXPECT_EQ(key(0x60), "F5") << "whatever the layout";
  switchTo(0);
  EXPECT_EQ(key(kQ), "q");
}

TEST_F(XkbKeyboardLayoutTest, OptionLeadsToTheThirdLevelOfTheXServersLayout) {
  use("us");
  const support::XServer server;
  const support::EnvironmentVariable shown("DISPLAY", server.name());
  ASSERT_EQ(std::system("setxkbmap de"), 0);  // NOLINT(cert-env33-c)
  EXPECT_EQ(key(kQ, kOption), "@");
  EXPECT_EQ(key(k2, kOption), "\xC2\xB2");
  EXPECT_EQ(key(kSection, kOption), "|");
  EXPECT_EQ(key(kQ), "q");
}

TEST_F(XkbKeyboardLayoutTest, ScanCodesAreThoseOfTheKernelWhateverTheLayout) {
  use("fr");
  XkbKeyboardLayout layout;
  EXPECT_EQ(layout.keyCodeForScanCode(KEY_A), 0x00);
  EXPECT_EQ(layout.keyCodeForScanCode(KEY_F5), 0x60);
  EXPECT_EQ(layout.keyCodeForScanCode(KEY_DELETE), 0x75);
  EXPECT_EQ(layout.keyCodeForScanCode(KEY_SYSRQ), std::nullopt);
  EXPECT_EQ(layout.keyCodeForScanCode(0), std::nullopt);
  EXPECT_EQ(layout.keyCodeForScanCode(0xFFFFFFFF), std::nullopt);
}

TEST(MacKeyCodesTest, EveryCodeStandsForOneKeyAndEveryKeyForOneCode) {
  std::set<int> codes;
  std::set<int> keys;
  for (const KeyPlace& place : kKeyPlaces) {
    EXPECT_TRUE(codes.insert(place.mac).second) << int{place.mac};
    EXPECT_TRUE(keys.insert(place.kernel).second) << int{place.kernel};
    EXPECT_EQ(macKeyCodeForScanCode(place.kernel + kFirstScanCode), place.mac);
    EXPECT_EQ(scanCodeForMacKeyCode(place.mac), place.kernel + kFirstScanCode);
  }
}

TEST(MacKeyCodesTest, KeysAreThoseInTheSamePlaces) {
  EXPECT_EQ(macKeyCodeForScanCode(38), 0x00);  // the letter A's place
  EXPECT_EQ(macKeyCodeForScanCode(71), 0x60);  // F5
  EXPECT_EQ(macKeyCodeForScanCode(94), 0x0A);  // beside the left Shift
  EXPECT_EQ(macKeyCodeForScanCode(111), 0x7E);
  EXPECT_EQ(macKeyCodeForScanCode(107), std::nullopt);  // Print Screen
  EXPECT_EQ(scanCodeForMacKeyCode(0x34), std::nullopt);
}

}  // namespace
}  // namespace platform
