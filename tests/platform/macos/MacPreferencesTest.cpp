#include "platform/macos/MacPreferences.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "platform/fakes/FakePlatform.h"
#include "tests/macsdk/fakes/FakeCoreFoundation.h"

namespace platform {
namespace {

using foundation::PropertyList;
using ::testing::ElementsAre;

class MacPreferencesTest : public ::testing::Test {
 protected:
  void SetUp() override { fakes::resetCoreFoundation(); }
  void TearDown() override { EXPECT_EQ(fakes::liveObjects(), 0) << "objects were not released"; }

  ::fakes::FakePlatform fake;
  MacPreferences preferences;
};

TEST_F(MacPreferencesTest, AValueIsLookedUpFromTheUsersHereToEverybodysAnywhereThenTheDefault) {
  preferences.registerDefaults(PropertyList::Dictionary{{"key", "registered"}});
  EXPECT_EQ(preferences.value("key"), PropertyList("registered"));
  fakes::setPreference("everybody", "any", "key", "everybody, any");
  EXPECT_EQ(preferences.value("key"), PropertyList("everybody, any"));
  fakes::setPreference("everybody", "here", "key", "everybody, here");
  EXPECT_EQ(preferences.value("key"), PropertyList("everybody, here"));
  fakes::setPreference("user", "any", "key", "user, any");
  EXPECT_EQ(preferences.value("key"), PropertyList("user, any"));
  fakes::setPreference("user", "here", "key", "user, here");
  EXPECT_EQ(preferences.value("key"), PropertyList("user, here"));
}

TEST_F(MacPreferencesTest, WhatNobodySetIsNothing) {
  EXPECT_EQ(preferences.value("requireAdminPassword"), std::nullopt);
  EXPECT_EQ(preferences.value("\xFF"), std::nullopt);
}

TEST_F(MacPreferencesTest, RegisteringAgainReplacesDefaultsKeyByKey) {
  preferences.registerDefaults(PropertyList::Dictionary{{"a", 1}, {"b", 1}});
  preferences.registerDefaults(PropertyList::Dictionary{{"b", 2}});
  preferences.registerDefaults("no dictionary");
  EXPECT_EQ(preferences.value("a"), PropertyList(1));
  EXPECT_EQ(preferences.value("b"), PropertyList(2));
}

TEST_F(MacPreferencesTest, ValuesAreSetForTheUserAnywhere) {
  preferences.setValue("shouldTrash", 1);
  EXPECT_THAT(fakes::takeCoreFoundationCalls(),
              ElementsAre("set com.vordenworks.Quillmend user any shouldTrash = 1"));
}

TEST_F(MacPreferencesTest, AValueForEverybodyHereIsStoredAtOnceAndAlone) {
  EXPECT_TRUE(preferences.storeForAnyUserOnCurrentHost("requireAdminPassword", 1));
  EXPECT_THAT(fakes::takeCoreFoundationCalls(),
              ElementsAre("set com.vordenworks.Quillmend everybody here requireAdminPassword = 1",
                          "synchronize com.vordenworks.Quillmend everybody here"));
}

TEST_F(MacPreferencesTest, AValueForEverybodyThatCannotBeStoredGoesBackAndIsNotTriedAgain) {
  fakes::setPreference("everybody", "here", "requireAdminPassword", 1);
  fakes::setSynchronizeSucceeds(false);
  const auto stored = preferences.storeForAnyUserOnCurrentHost("requireAdminPassword", 0);
  ASSERT_FALSE(stored);
  EXPECT_EQ(preferences.value("requireAdminPassword"), PropertyList(1));
  EXPECT_THAT(fakes::takeCoreFoundationCalls(),
              ElementsAre("set com.vordenworks.Quillmend everybody here requireAdminPassword = 0",
                          "synchronize com.vordenworks.Quillmend everybody here",
                          "set com.vordenworks.Quillmend everybody here requireAdminPassword = 1"));
  static_cast<void>(preferences.synchronize());
  EXPECT_THAT(fakes::takeCoreFoundationCalls(),
              ElementsAre("synchronize com.vordenworks.Quillmend user any"));
}

TEST_F(MacPreferencesTest, WhatKeepsAValueForEverybodyFromBeingStoredIsLookedForFromOutside) {
  fakes::setSynchronizeSucceeds(false);
  const auto code = [this] { return preferences.storeForAnyUserOnCurrentHost("key", 1).error().code; };
  fake.files.makeFolder("/Library/Preferences");
  EXPECT_EQ(code(), EIO);
  fake.files.denied = {{"/Library/Preferences", Access::write}};
  EXPECT_EQ(code(), EACCES);
  fake.files.makeFolder("/Library/Preferences/com.vordenworks.Quillmend.plist");
  EXPECT_EQ(code(), EISDIR);
  EXPECT_EQ(preferences.value("key"), std::nullopt) << "as before";
}

TEST_F(MacPreferencesTest, AValueThatCannotBeStoredRemovesNothingAndIsSaid) {
  preferences.setValue("key", PropertyList::Uid{1});
  EXPECT_FALSE(preferences.storeForAnyUserOnCurrentHost("key", PropertyList::Uid{1}));
  EXPECT_THAT(fakes::takeCoreFoundationCalls(), ElementsAre());
  EXPECT_THAT(fake.systemConsole.messages(), ElementsAre("Preferences: the value of key cannot be stored"));
}

TEST_F(MacPreferencesTest, SynchronizingStoresTheUsersAndSaysWhetherItCould) {
  fakes::setSynchronizeSucceeds(false);
  EXPECT_FALSE(preferences.synchronize());
  EXPECT_THAT(fakes::takeCoreFoundationCalls(),
              ElementsAre("synchronize com.vordenworks.Quillmend user any"));
  fakes::setSynchronizeSucceeds(true);
  EXPECT_TRUE(preferences.synchronize());
}

}  // namespace
}  // namespace platform
