#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>

#include "platform/fakes/FakePlatform.h"
#include "platform/macos/MacDistributedNotifications.h"
#include "tests/platform/gnustep/LiveObjects.h"
#include "tests/support/ChildProcess.h"

namespace platform {
namespace {

using foundation::PropertyList;

/// A listener in a process of its own, by a notification daemon of the test's own.
class GnustepDistributedNotificationsTest : public ::testing::Test {
 protected:
  const std::string name = "TGTestNotification" + std::to_string(::getpid());
  ::fakes::FakePlatform fake;
  ChildProcess listener{{GNUSTEP_PARTNER, "listener", name}};
  MacDistributedNotifications notifications;
};

TEST_F(GnustepDistributedNotificationsTest, ANotificationArrivesWithItsUserInformation) {
  ASSERT_EQ(listener.line(std::chrono::seconds(30)), "ready");
  notifications.post(name, PropertyList::Dictionary{{"output", "Grüße\nRepair complete."}});
  EXPECT_EQ(listener.line(), name + " object (null) {output = Grüße");
  EXPECT_EQ(listener.line(), "Repair complete.}");
  notifications.post(name, std::nullopt);
  EXPECT_EQ(listener.line(), name + " object (null) (null)");
}

TEST_F(GnustepDistributedNotificationsTest, NothingIsLeftBehind) {
  ASSERT_EQ(listener.line(std::chrono::seconds(30)), "ready");
  EXPECT_EQ(gnustep::leftBehindBy([this] {
              notifications.post(
                  name, PropertyList::Dictionary{{"output", "a"}, {"list", PropertyList::Array{1, 2.5}}});
            }),
            "");
}

}  // namespace
}  // namespace platform
