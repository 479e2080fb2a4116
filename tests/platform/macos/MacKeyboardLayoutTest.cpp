#include "platform/macos/MacKeyboardLayout.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/OSStatus.h"
#include "tests/macsdk/fakes/FakeCoreFoundation.h"
#include "tests/macsdk/fakes/FakeKeyboard.h"

namespace platform {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Does the work at once and counts it.
class CountingMainThread : public MainThread {
 public:
  bool isCurrent() override { return false; }
  void perform(std::function<void()> work, Wait wait) override {
    EXPECT_EQ(wait, Wait::yes);
    ++performed;
    work();
  }
  bool serveUntilReadable(int, std::optional<std::chrono::nanoseconds>) override { return false; }
  int performed = 0;
};

class MacKeyboardLayoutTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ::fakes::resetCoreFoundation();
    ::fakes::keyboard() = {};
  }
  void TearDown() override { EXPECT_EQ(::fakes::liveObjects(), 0) << "objects were not released"; }

  CountingMainThread mainThread;
  MacKeyboardLayout layout{mainThread};
};

TEST_F(MacKeyboardLayoutTest, AKeyIsTranslatedByTheCurrentLayoutForThisKeyboard) {
  ::fakes::keyboard().layout = "the layout";
  ::fakes::keyboard().characters = u"\u00e4";
  ::fakes::keyboard().type = 41;
  const auto translation = layout.translate(12, 0x0A);
  ASSERT_TRUE(translation);
  EXPECT_EQ(translation->status, noErr);
  EXPECT_EQ(translation->characters, "\xC3\xA4");
  EXPECT_THAT(::fakes::keyboard().calls,
              ElementsAre("the layout key 12 action 0 modifiers 10 type 41 options 0 dead 0 room 255"));
}

TEST_F(MacKeyboardLayoutTest, TheSystemIsAskedOnTheMainThread) {
  static_cast<void>(layout.translate(0, 0));
  EXPECT_EQ(mainThread.performed, 1);
}

TEST_F(MacKeyboardLayoutTest, AKeyMayProduceSeveralCharactersAndSuchBeyondSixteenBits) {
  ::fakes::keyboard().characters = u"a\U0001F600";
  EXPECT_EQ(layout.translate(0, 0)->characters, "a\xF0\x9F\x98\x80");
}

TEST_F(MacKeyboardLayoutTest, ADeadKeyProducesNothing) {
  const auto translation = layout.translate(33, 0);
  ASSERT_TRUE(translation);
  EXPECT_EQ(translation->status, noErr);
  EXPECT_EQ(translation->characters, "");
}

TEST_F(MacKeyboardLayoutTest, AnErrorOfTheSystemIsHandedOn) {
  ::fakes::keyboard().characters = u"x";
  ::fakes::keyboard().status = -25340;
  const auto translation = layout.translate(0, 0);
  EXPECT_EQ(translation->status, -25340);
  EXPECT_EQ(translation->characters, "");
}

TEST_F(MacKeyboardLayoutTest, WithoutALayoutThereIsNoTranslation) {
  ::fakes::keyboard().layout = std::nullopt;
  EXPECT_FALSE(layout.translate(0, 0));
  EXPECT_FALSE(layout.translate(0x80, 0));
  ::fakes::keyboard().hasSource = false;
  EXPECT_FALSE(layout.translate(0, 0));
}

TEST_F(MacKeyboardLayoutTest, WhatIsNoKeyIsAnErrorAndTheSystemIsNotAsked) {
  EXPECT_EQ(layout.translate(0x80, 0)->status, paramErr);
  EXPECT_THAT(::fakes::keyboard().calls, IsEmpty());
}

TEST_F(MacKeyboardLayoutTest, NothingIsLeftWhereTheSystemGivesNoObject) {
  ::fakes::keyboard().characters = u"x";
  for (int failing = 1; failing <= 3; ++failing) {
    ::fakes::failCreation(failing);
    const auto translation = layout.translate(0, 0);
    EXPECT_TRUE(::fakes::creationHasFailed()) << failing;
    EXPECT_TRUE(!translation || translation->characters.empty()) << failing;
    EXPECT_EQ(::fakes::liveObjects(), 0) << failing;
  }
}

TEST_F(MacKeyboardLayoutTest, AScanCodeIsTheKeyCode) {
  EXPECT_EQ(layout.keyCodeForScanCode(0), 0);
  EXPECT_EQ(layout.keyCodeForScanCode(0x7F), 0x7F);
  EXPECT_EQ(layout.keyCodeForScanCode(0x80), std::nullopt);
}

}  // namespace
}  // namespace platform
