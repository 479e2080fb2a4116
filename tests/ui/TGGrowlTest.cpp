#include "ui/TGGrowl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "platform/fakes/FakePlatform.h"

using foundation::Date;
using foundation::PropertyList;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr const char* kPreferences = "/Users/alice/Library/Preferences/com.vordenworks.global.plist";

class TGGrowlTest : public testing::Test {
 protected:
  void writePreferences(const PropertyList& preferences) {
    const auto bytes = system.propertyLists.serialize(preferences, platform::PropertyListFormat::xml);
    system.files.makeFile(kPreferences, bytes.value());
  }
  void setGrowlDisabled(const PropertyList& value) {
    writePreferences(PropertyList::Dictionary{{"growlDisabled", value}});
  }
  [[nodiscard]] bool isPosted() {
    TGGrowl::postGrowlNotification("Quillmend", "Repair complete.");
    return !system.desktopNotifications.posted.empty();
  }

  fakes::FakePlatform system;
};

TEST_F(TGGrowlTest, TheDelegateIsSetBeforeTheNotificationIsShown) {
  TGGrowl::postGrowlNotification("Quillmend", "Repairing Compressor...");
  EXPECT_THAT(system.recorder.lines(),
              ElementsAre("set notification delegate", "notify Quillmend: Repairing Compressor..."));
}

TEST_F(TGGrowlTest, ANotificationHasItsKindAndThePostingDateAndNothingSpecial) {
  TGGrowl::postGrowlNotification("title", "description");
  ASSERT_THAT(system.desktopNotifications.posted, SizeIs(1));
  const auto& posted = system.desktopNotifications.posted[0];
  EXPECT_EQ(posted.title, "title");
  EXPECT_EQ(posted.description, "description");
  EXPECT_EQ(posted.name, "TGInfoNotification");
  EXPECT_EQ(posted.iconData, std::nullopt);
  EXPECT_EQ(posted.priority, 0);
  EXPECT_FALSE(posted.isSticky);
  EXPECT_EQ(posted.clickContext, Date::fromUnixTime(1293876000));
}

TEST_F(TGGrowlTest, EachNotificationHasTheDateOfItsOwnPosting) {
  TGGrowl::postGrowlNotification("title", "first");
  system.clock.sleep(std::chrono::seconds(90));
  TGGrowl::postGrowlNotification("title", "second");
  ASSERT_THAT(system.desktopNotifications.posted, SizeIs(2));
  EXPECT_EQ(system.desktopNotifications.posted[1].clickContext, Date::fromUnixTime(1293876090));
}

TEST_F(TGGrowlTest, AnIconIsHandedOverAsItsBytes) {
  const std::string bytes("II*\0icon", 8);
  TGGrowl::postGrowlNotification("title", "description", bytes);
  ASSERT_THAT(system.desktopNotifications.posted, SizeIs(1));
  EXPECT_EQ(system.desktopNotifications.posted[0].iconData, bytes);
}

TEST_F(TGGrowlTest, SwitchedOffNothingIsShownAndNoDelegateIsSet) {
  const PropertyList values[] = {true, 1, 2, -1, 0.5, "1", "YES", "yes", "true", "T", " +07"};
  for (const PropertyList& value : values) {
    setGrowlDisabled(value);
    TGGrowl::postGrowlNotification("title", "description", "icon");
    EXPECT_THAT(system.recorder.lines(), IsEmpty()) << value.description();
  }
}

TEST_F(TGGrowlTest, AnyOtherValueOfTheSwitchLeavesItOn) {
  const PropertyList values[] = {false,
                                 0,
                                 0.0,
                                 "0",
                                 "NO",
                                 "",
                                 "off",
                                 "00",
                                 PropertyList::Array{true},
                                 PropertyList::Dictionary{{"growlDisabled", true}}};
  for (const PropertyList& value : values) {
    system.desktopNotifications.posted.clear();
    setGrowlDisabled(value);
    EXPECT_TRUE(isPosted()) << value.description();
  }
}

TEST_F(TGGrowlTest, WithoutTheKeyItIsShown) {
  writePreferences(PropertyList::Dictionary{{"disable-logging", "1"}});
  EXPECT_TRUE(isPosted());
}

TEST_F(TGGrowlTest, PreferencesThatCannotBeReadLeaveItOn) {
  system.files.makeFile(kPreferences, "no property list");
  EXPECT_TRUE(isPosted());
}

TEST_F(TGGrowlTest, PreferencesThatAreNoDictionaryLeaveItOn) {
  writePreferences(PropertyList::Array{"growlDisabled"});
  EXPECT_TRUE(isPosted());
}

TEST_F(TGGrowlTest, AsRootTheSwitchOfTheUserAtTheConsoleCounts) {
  system.users.user = 0;
  system.users.home = "/var/root";
  setGrowlDisabled(true);
  EXPECT_FALSE(isPosted());
}

TEST_F(TGGrowlTest, AClickBecomesANotificationInTheProcess) {
  TGGrowl::growlNotificationWasClicked(Date::fromUnixTime(5));
  ASSERT_THAT(system.localNotifications.posted, SizeIs(1));
  EXPECT_EQ(system.localNotifications.posted[0].name, "TGGrowlAlertClicked");
  EXPECT_EQ(system.localNotifications.posted[0].userInfo,
            PropertyList(PropertyList::Dictionary{{"clickContext", Date::fromUnixTime(5)}}));
}

TEST_F(TGGrowlTest, ATimeOutBecomesANotificationInTheProcess) {
  TGGrowl::growlNotificationTimedOut(Date::fromUnixTime(6));
  ASSERT_THAT(system.localNotifications.posted, SizeIs(1));
  EXPECT_EQ(system.localNotifications.posted[0].name, "TGGrowlAlertTimedOut");
  EXPECT_EQ(system.localNotifications.posted[0].userInfo,
            PropertyList(PropertyList::Dictionary{{"clickContext", Date::fromUnixTime(6)}}));
}

TEST_F(TGGrowlTest, WithoutAContextNothingIsPosted) {
  system.mainThread.recordsWork = true;
  TGGrowl::growlNotificationWasClicked(std::nullopt);
  TGGrowl::growlNotificationTimedOut(std::nullopt);
  EXPECT_THAT(system.recorder.lines(), IsEmpty());
}

TEST_F(TGGrowlTest, WhatBecameOfItIsDeliveredOnTheMainThreadAndWaitedFor) {
  system.mainThread.recordsWork = true;
  system.mainThread.current = false;
  bool wasOnMainThread = false;
  system.localNotifications.addObserver("TGGrowlAlertClicked", [&](const platform::LocalNotification&) {
    wasOnMainThread = system.mainThread.isCurrent();
  });
  TGGrowl::growlNotificationWasClicked(Date::fromUnixTime(5));
  EXPECT_THAT(system.recorder.lines(), ElementsAre("main (wait)", "local post TGGrowlAlertClicked"));
  EXPECT_TRUE(wasOnMainThread);
}

TEST_F(TGGrowlTest, TheDesktopsCallbacksArriveHere) {
  TGGrowl::postGrowlNotification("title", "description");
  ASSERT_NE(system.desktopNotifications.delegate, nullptr);
  system.desktopNotifications.delegate->notificationWasClicked(Date::fromUnixTime(5));
  system.desktopNotifications.delegate->notificationTimedOut(Date::fromUnixTime(5));
  EXPECT_THAT(system.recorder.only({"local"}),
              ElementsAre("local post TGGrowlAlertClicked", "local post TGGrowlAlertTimedOut"));
}

TEST_F(TGGrowlTest, PostingMayBeDoneFromAnotherThread) {
  std::thread([] { TGGrowl::postGrowlNotification("title", "description"); }).join();
  EXPECT_THAT(system.desktopNotifications.posted, SizeIs(1));
}

}  // namespace
