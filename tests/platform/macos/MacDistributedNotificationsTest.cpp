#include "platform/macos/MacDistributedNotifications.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/fakes/FakePlatform.h"
#include "tests/macsdk/fakes/FakeCoreFoundation.h"

namespace platform {
namespace {

using foundation::PropertyList;
using ::testing::ElementsAre;

class MacDistributedNotificationsTest : public ::testing::Test {
 protected:
  void SetUp() override { ::fakes::resetCoreFoundation(); }
  void TearDown() override { EXPECT_EQ(::fakes::liveObjects(), 0) << "objects were not released"; }

  ::fakes::FakePlatform fake;
  MacDistributedNotifications notifications;
};

TEST_F(MacDistributedNotificationsTest, ANotificationGoesAtOnceToAllSessionsWithoutAnObject) {
  notifications.post("TGShortcutKeysReload", std::nullopt);
  EXPECT_THAT(::fakes::takeCoreFoundationCalls(), ElementsAre("post TGShortcutKeysReload options 3"));
}

TEST_F(MacDistributedNotificationsTest, UserInformationIsCarried) {
  notifications.post("tgQuillmendScanFinished", PropertyList::Dictionary{{"output", "Done"}});
  EXPECT_THAT(::fakes::takeCoreFoundationCalls(),
              ElementsAre("post tgQuillmendScanFinished {\n    output = Done;\n} options 3"));
}

TEST_F(MacDistributedNotificationsTest, UserInformationThatIsNoPropertyListIsLeftOutAndSaid) {
  notifications.post("name", PropertyList::Dictionary{{"output", "\xFF"}});
  EXPECT_THAT(::fakes::takeCoreFoundationCalls(), ElementsAre("post name options 3"));
  EXPECT_THAT(fake.systemConsole.messages(),
              ElementsAre("The notification name goes without its user information: it is no property list"));
}

TEST_F(MacDistributedNotificationsTest, WhatIsNoDictionaryIsNoUserInformation) {
  notifications.post("name", PropertyList("text"));
  EXPECT_THAT(::fakes::takeCoreFoundationCalls(), ElementsAre("post name options 3"));
}

}  // namespace
}  // namespace platform
