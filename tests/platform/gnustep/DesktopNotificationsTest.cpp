#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "platform/fakes/FakePlatform.h"
#include "platform/macos/GrowlBridge.h"
#include "platform/macos/MacDesktopNotifications.h"
#include "platform/macos/UserNotifications.h"
#include "tests/platform/gnustep/GrowlModule.h"
#include "tests/platform/gnustep/LiveObjects.h"
#include "tests/platform/gnustep/UserNotificationsModule.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

using ::testing::ElementsAre;
using ::testing::StartsWith;

/// Writes down what it hears.
class Heard : public DesktopNotificationDelegate {
 public:
  void notificationWasClicked(const std::optional<foundation::Date>& clickContext) override {
    add("clicked", clickContext);
  }
  void notificationTimedOut(const std::optional<foundation::Date>& clickContext) override {
    add("timed out", clickContext);
  }
  std::vector<std::string> lines;

 private:
  void add(const std::string& what, const std::optional<foundation::Date>& context) {
    lines.push_back(what + (context ? " " + std::to_string(context->unixTime()) : ""));
  }
};

DesktopNotification notification() {
  return {.title = "Quillmend",
          .description = "Repair complete.",
          .name = "TGInfoNotification",
          .iconData = std::nullopt,
          .clickContext = foundation::Date::fromUnixTime(1000000000.25)};
}

/// A bundle, with a bridge to Growl where a test puts it.
class DesktopNotificationsTest : public ::testing::Test {
 protected:
  DesktopNotificationsTest() { fake.mainBundle.bundlePath = bundle.path(); }

  /// One bundle for all tests: a class is loaded once, from where it was first.
  void putGrowl() {
    static const support::TemporaryFolder bundleWithGrowl;
    const std::string framework = bundleWithGrowl.folder("Contents/Frameworks/Growl.framework");
    std::filesystem::copy_file(GROWL_MODULE, framework + "/Growl",
                               std::filesystem::copy_options::skip_existing);
    fake.mainBundle.bundlePath = bundleWithGrowl.path();
    static_cast<void>(growlCalls());
  }

  template <typename Function>
  Function* ofModule(const std::string& path, const char* name) {
    void* const module = ::dlopen(path.c_str(), RTLD_NOW);
    return reinterpret_cast<Function*>(::dlsym(module, name));
  }
  template <typename Function>
  Function* ofGrowl(const char* name) {
    return ofModule<Function>(fake.mainBundle.bundlePath + "/Contents/Frameworks/Growl.framework/Growl",
                              name);
  }
  std::string growlCalls() { return ofGrowl<decltype(growlTakeCalls)>("growlTakeCalls")(); }

  support::TemporaryFolder bundle;
  ::fakes::FakePlatform fake;
  Heard heard;
};

TEST_F(DesktopNotificationsTest, NothingIsShownWhereTheSystemHasNeitherGrowlNorNotifications) {
  EXPECT_FALSE(GrowlBridge::isThere());
  EXPECT_FALSE(UserNotifications::isThere());
  MacDesktopNotifications notifications;
  notifications.setDelegate(&heard);
  notifications.post(notification());
}

TEST_F(DesktopNotificationsTest, TheBundlesGrowlIsToldOfTheProgramAndOfTheNotification) {
  putGrowl();
  MacDesktopNotifications notifications;
  notifications.setDelegate(&heard);
  DesktopNotification wanted = notification();
  wanted.iconData = "TIFF";
  wanted.priority = 2;
  wanted.isSticky = true;
  notifications.post(notification());
  notifications.post(wanted);
  EXPECT_EQ(growlCalls(),
            "register Quillmend (Quillmend): TGInfoNotification; on: TGInfoNotification\n"
            "notify Quillmend: Repair complete. name TGInfoNotification icon 0 bytes priority 0 sticky 0 "
            "context a date\n"
            "notify Quillmend: Repair complete. name TGInfoNotification icon 4 bytes priority 2 sticky 1 "
            "context a date\n");
}

TEST_F(DesktopNotificationsTest, GrowlsClicksAndTimeOutsComeBackWithTheirContext) {
  putGrowl();
  ASSERT_TRUE(GrowlBridge::isThere());
  GrowlBridge growl;
  growl.setDelegate(&heard);
  growl.post(notification());
  ofGrowl<decltype(growlClick)>("growlClick")();
  ofGrowl<decltype(growlTimeOut)>("growlTimeOut")();
  growl.setDelegate(nullptr);
  ofGrowl<decltype(growlClick)>("growlClick")();
  EXPECT_THAT(heard.lines, ElementsAre("clicked 1000000000.250000", "timed out 1000000000.250000"));
}

TEST_F(DesktopNotificationsTest, GrowlIsUsedOnTheMainThreadAlone) {
  putGrowl();
  ASSERT_TRUE(GrowlBridge::isThere());
  GrowlBridge growl;
  fake.mainThread.current = false;
  fake.mainThread.recordsWork = true;
  std::thread([&] { growl.post(notification()); }).join();
  EXPECT_THAT(fake.recorder.lines(), ElementsAre(StartsWith("main")));
}

TEST_F(DesktopNotificationsTest, WhatGrowlRaisesGoesNoFurther) {
  putGrowl();
  ASSERT_TRUE(GrowlBridge::isThere());
  ofGrowl<decltype(growlRaise)>("growlRaise")();
  GrowlBridge().post(notification());
  EXPECT_EQ(growlCalls(),
            "register Quillmend (Quillmend): TGInfoNotification; on: TGInfoNotification\nno delegate\n");
}

TEST_F(DesktopNotificationsTest, GrowlsNotificationsLeaveNothingBehind) {
  putGrowl();
  ASSERT_TRUE(GrowlBridge::isThere());
  EXPECT_EQ(gnustep::leftBehindBy([this] {
              GrowlBridge growl;
              growl.setDelegate(&heard);
              growl.post(notification());
              ofGrowl<decltype(growlClick)>("growlClick")();
            }),
            "");
}

/// With the system's centre, which a module plays.
class UserNotificationsTest : public DesktopNotificationsTest {
 protected:
  UserNotificationsTest() { ofCenter<decltype(centerReset)>("centerReset")(); }

  template <typename Function>
  Function* ofCenter(const char* name) {
    return ofModule<Function>(USER_NOTIFICATIONS_MODULE, name);
  }
  std::string calls() { return ofCenter<decltype(centerTakeCalls)>("centerTakeCalls")(); }
  void set(CenterBehaviour behaviour) { ofCenter<decltype(centerSet)>("centerSet")(behaviour); }
  void respond(const char* action) { ofCenter<decltype(centerRespond)>("centerRespond")(action); }
};

TEST_F(UserNotificationsTest, TheSystemsCentreStandsInForGrowl) {
  ASSERT_TRUE(UserNotifications::isThere());
  MacDesktopNotifications notifications;
  notifications.setDelegate(&heard);
  notifications.post(notification());
  notifications.post(notification());
  EXPECT_EQ(calls(),
            "delegate\ncategory TGNotification options 1\n"
            "authorize 4\nadd Quillmend: Repair complete. category TGNotification level none\n"
            "authorize 4\nadd Quillmend: Repair complete. category TGNotification level none\n");
}

TEST_F(UserNotificationsTest, ClicksAndDismissalsComeBackWithTheirContext) {
  UserNotifications notifications;
  notifications.setDelegate(&heard);
  notifications.post(notification());
  respond("com.apple.UNNotificationDefaultActionIdentifier");
  respond("com.apple.UNNotificationDismissActionIdentifier");
  respond("another");
  EXPECT_THAT(heard.lines, ElementsAre("clicked 1000000000.250000", "timed out 1000000000.250000"));
  DesktopNotification without = notification();
  without.clickContext = std::nullopt;
  notifications.post(without);
  respond("com.apple.UNNotificationDefaultActionIdentifier");
  EXPECT_EQ(heard.lines.back(), "clicked");
}

TEST_F(UserNotificationsTest, LowPriorityIsPassiveWhereTheSystemKnowsLevels) {
  UserNotifications notifications;
  DesktopNotification low = notification();
  low.priority = -1;
  notifications.post(low);
  EXPECT_THAT(calls(), ::testing::HasSubstr("level 0"));
}

TEST_F(UserNotificationsTest, NothingIsAddedWithoutTheUsersLeave) {
  set(CenterBehaviour::refuses);
  UserNotifications notifications;
  notifications.post(notification());
  EXPECT_EQ(calls(), "delegate\ncategory TGNotification options 1\nauthorize 4\n");
}

TEST_F(UserNotificationsTest, AUserWhoHasNotAnsweredIsWaitedForASecondAndNotLonger) {
  set(CenterBehaviour::waits);
  UserNotifications notifications;
  const auto start = std::chrono::steady_clock::now();
  notifications.post(notification());
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited, std::chrono::milliseconds(900));
  EXPECT_LT(waited, std::chrono::milliseconds(1800));
  EXPECT_EQ(calls(), "delegate\ncategory TGNotification options 1\nauthorize 4\n");
  ofCenter<decltype(centerAllow)>("centerAllow")();
  EXPECT_EQ(calls(), "add Quillmend: Repair complete. category TGNotification level none\n");
}

TEST_F(UserNotificationsTest, AProcessInNoBundleShowsNothing) {
  set(CenterBehaviour::raises);
  UserNotifications().post(notification());
  EXPECT_EQ(calls(), "");
}

TEST_F(UserNotificationsTest, NothingIsLeftBehind) {
  EXPECT_EQ(gnustep::leftBehindBy([this] {
              UserNotifications notifications;
              notifications.setDelegate(&heard);
              notifications.post(notification());
              respond("com.apple.UNNotificationDefaultActionIdentifier");
            }),
            "");
}

}  // namespace
}  // namespace platform
