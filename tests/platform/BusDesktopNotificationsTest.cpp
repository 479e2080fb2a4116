#include "platform/linux/BusDesktopNotifications.h"

#include <png.h>

#include <condition_variable>
#include <mutex>

#include "platform/linux/BusDistributedNotifications.h"
#include "tests/platform/BusFixture.h"

using foundation::Date;
using platform::BusAgent;
using platform::BusDesktopNotifications;
using platform::DesktopNotification;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using namespace std::chrono_literals;

namespace {

/// Notes what it hears, "clicked 5" or "timed out 5" by the context's seconds.
class Notes : public platform::DesktopNotificationDelegate {
 public:
  void notificationWasClicked(const std::optional<Date>& context) override { add("clicked", context); }
  void notificationTimedOut(const std::optional<Date>& context) override { add("timed out", context); }

  /// The next thing heard, or "" when nothing comes in time.
  std::string next(std::chrono::milliseconds limit = 10s) {
    std::unique_lock lock(mutex_);
    if (!heard_.wait_for(lock, limit, [&] { return !notes_.empty(); })) return "";
    std::string note = notes_.front();
    notes_.erase(notes_.begin());
    return note;
  }
  std::function<void()> whenHeard = [] {};

 private:
  void add(const std::string& what, const std::optional<Date>& context) {
    whenHeard();
    const std::scoped_lock lock(mutex_);
    notes_.push_back(what + " " +
                     (context ? std::to_string(static_cast<int>(context->unixTime())) : "nothing"));
    heard_.notify_all();
  }
  std::mutex mutex_;
  std::condition_variable heard_;
  std::vector<std::string> notes_;
};

/// A PNG file of 2 x 1 pixels: opaque red, transparent.
std::string png() {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = 2;
  image.height = 1;
  image.format = PNG_FORMAT_RGBA;
  const unsigned char pixels[] = {255, 0, 0, 255, 0, 0, 0, 0};
  std::string file(1024, '\0');
  png_alloc_size_t size = file.size();
  EXPECT_NE(png_image_write_to_memory(&image, file.data(), &size, 0, pixels, 0, nullptr), 0);
  file.resize(size);
  return file;
}

DesktopNotification notification(int context = 5) {
  DesktopNotification shown;
  shown.title = "Quillmend";
  shown.description = "Repair complete.";
  shown.name = "TGInfoNotification";
  shown.clickContext = Date::fromUnixTime(context);
  return shown;
}

class BusDesktopNotificationsTest : public BusFixture {
 protected:
  BusDesktopNotificationsTest() { notifications.setDelegate(&notes); }

  [[nodiscard]] std::unique_ptr<ChildProcess> server(const std::string& fate,
                                                     const std::vector<std::string>& capabilities = {
                                                         "actions"}) {
    std::vector<std::string> more = {fate};
    more.insert(more.end(), capabilities.begin(), capabilities.end());
    return partner("server", bus.address(), more);
  }

  Notes notes;
  PrivateBus bus = PrivateBus::session(folder);
  BusAgent agent{options()};
  BusDesktopNotifications notifications{agent};
};

TEST_F(BusDesktopNotificationsTest, TheServerIsGivenNameIconTextsAndTheDefaultAction) {
  auto desktop = server("stay");
  notifications.post(notification());
  EXPECT_EQ(
      desktop->line(),
      "notify s:'Quillmend' u:0 s:'com.vordenworks.Quillmend' s:'Quillmend' s:'Repair complete.' "
      "s[s:'default',s:'Quillmend'] {sv}[urgency=y:1,desktop-entry=s:'com.vordenworks.Quillmend'] i:-1");
}

TEST_F(BusDesktopNotificationsTest, AServerWithoutActionsIsGivenNone) {
  auto desktop = server("expire", {});
  notifications.post(notification());
  EXPECT_THAT(desktop->line(), HasSubstr(" s[] "));
  EXPECT_EQ(notes.next(), "timed out 5");
}

TEST_F(BusDesktopNotificationsTest, OnlyAServerThatReadsMarkupIsGivenEscapedText) {
  auto shown = notification();
  shown.description = "a <b> & c";
  auto plain = server("stay");
  notifications.post(shown);
  EXPECT_THAT(plain->line(), HasSubstr("s:'a <b> & c'"));
  plain->kill();
  auto reader = server("stay", {"body-markup"});
  notifications.post(shown);
  EXPECT_THAT(reader->line(), HasSubstr("s:'a &lt;b&gt; &amp; c'"));
}

TEST_F(BusDesktopNotificationsTest, PriorityIsTheUrgencyAndStickyNeverExpires) {
  auto desktop = server("stay");
  const std::pair<int, const char*> urgencies[] = {
      {-2, "y:0"}, {-1, "y:0"}, {0, "y:1"}, {1, "y:1"}, {2, "y:2"}};
  for (const auto& [priority, urgency] : urgencies) {
    auto shown = notification();
    shown.priority = priority;
    shown.isSticky = priority == 2;
    notifications.post(shown);
    const std::string line = desktop->line();
    EXPECT_THAT(line, HasSubstr(std::string("urgency=") + urgency));
    EXPECT_THAT(line, testing::EndsWith(priority == 2 ? "i:0" : "i:-1"));
  }
}

TEST_F(BusDesktopNotificationsTest, AnIconInPngFormIsShown) {
  auto desktop = server("stay");
  auto shown = notification();
  shown.iconData = png();
  notifications.post(shown);
  EXPECT_THAT(desktop->line(),
              HasSubstr("image-data=(i:2,i:1,i:8,b:1,i:8,i:4,y[y:255,y:0,y:0,y:255,y:0,y:0,y:0,y:0])"));
}

TEST_F(BusDesktopNotificationsTest, AnIconInAnotherFormIsLeftOut) {
  auto desktop = server("stay");
  for (const std::string& data : {std::string("II*\0", 4), std::string(), png().substr(0, 40)}) {
    auto shown = notification();
    shown.iconData = data;
    notifications.post(shown);
    EXPECT_THAT(desktop->line(), Not(HasSubstr("image-data")));
  }
}

TEST_F(BusDesktopNotificationsTest, AClickIsHeardOnceWithItsContext) {
  auto desktop = server("click");
  notifications.post(notification(7));
  EXPECT_EQ(notes.next(), "clicked 7");
  EXPECT_EQ(notes.next(200ms), "");  // the server closes it after the click
}

TEST_F(BusDesktopNotificationsTest, AnotherActionIsNoClick) {
  auto desktop = server("other");
  notifications.post(notification());
  EXPECT_THAT(desktop->line(), StartsWith("notify"));
  EXPECT_EQ(notes.next(200ms), "");
}

TEST_F(BusDesktopNotificationsTest, WhatExpiresIsDismissedOrVanishesTimesOut) {
  for (const char* fate : {"expire", "dismiss", "lose"}) {
    auto desktop = server(fate);
    notifications.post(notification(9));
    EXPECT_EQ(notes.next(), "timed out 9") << fate;
  }
}

TEST_F(BusDesktopNotificationsTest, WhatAProgramClosesIsNotHeardOf) {
  auto desktop = server("close");
  notifications.post(notification());
  EXPECT_THAT(desktop->line(), StartsWith("notify"));
  EXPECT_EQ(notes.next(200ms), "");
}

TEST_F(BusDesktopNotificationsTest, NoContextIsHandedOnAsNone) {
  auto desktop = server("click");
  auto shown = notification();
  shown.clickContext.reset();
  notifications.post(shown);
  EXPECT_EQ(notes.next(), "clicked nothing");
}

TEST_F(BusDesktopNotificationsTest, EachNotificationComesBackWithItsOwnContext) {
  auto desktop = server("click");
  for (int context = 1; context <= 10; ++context) notifications.post(notification(context));
  for (int context = 1; context <= 10; ++context)
    EXPECT_EQ(notes.next(), "clicked " + std::to_string(context));
}

TEST_F(BusDesktopNotificationsTest, WithoutADelegateNothingIsHeard) {
  auto desktop = server("click");
  notifications.setDelegate(nullptr);
  notifications.post(notification());
  EXPECT_THAT(desktop->line(), StartsWith("notify"));
  EXPECT_EQ(notes.next(200ms), "");
}

TEST_F(BusDesktopNotificationsTest, ADelegateThatWaitsKeepsNoRequestWaiting) {
  auto desktop = server("click");
  std::mutex gate;
  std::atomic<bool> isWaiting = false;
  notes.whenHeard = [&] {
    isWaiting = true;
    const std::scoped_lock pass(gate);
  };
  {
    const std::scoped_lock closed(gate);
    notifications.post(notification(3));
    ASSERT_TRUE(becomesTrue([&] { return isWaiting.load(); }));
    EXPECT_TRUE(agent.ask(platform::bus::RequestKind::findClient, {}));
  }
  EXPECT_EQ(notes.next(), "clicked 3");
}

TEST_F(BusDesktopNotificationsTest, WithoutAServerPostReturnsAtOnce) {
  EXPECT_LT(duration([&] { notifications.post(notification()); }), 3s);
  EXPECT_EQ(notes.next(200ms), "");
}

TEST_F(BusDesktopNotificationsTest, AServerThatAnswersNothingKeepsNobodyWaiting) {
  auto desktop = partner("deaf", bus.address(), {"org.freedesktop.Notifications"});
  auto listener = partner("listen", bus.address());
  EXPECT_LT(duration([&] { notifications.post(notification()); }), 500ms);
  platform::BusDistributedNotifications(agent).post("meanwhile", std::nullopt);
  EXPECT_THAT(listener->line(), HasSubstr("meanwhile"));
}

TEST_F(BusDesktopNotificationsTest, TheConsoleUsersDesktopShowsWhatRootPosts) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to post on another account's desktop";
  system.users.console = "nobody";
  const auto theirs = PrivateBus::session(folder, kNobody);
  auto desktop = partner("server", theirs.address(), {"click", "actions"}, kNobody);
  notifications.post(notification(4));
  EXPECT_THAT(desktop->line(), StartsWith("notify s:'Quillmend'"));
  EXPECT_EQ(notes.next(), "clicked 4");
}

}  // namespace
