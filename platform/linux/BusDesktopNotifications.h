#pragma once

#include <memory>

#include "platform/Notifications.h"
#include "platform/linux/BusAgent.h"

namespace platform {

/// Desktop notifications by the console user's notification server (version 1.2 of
/// org.freedesktop.Notifications). On the system bus, where there is no such server, nothing is shown.
///
/// - The application's name is "Quillmend", its icon is named like its desktop entry,
///   "com.vordenworks.Quillmend"; icon data in PNG form (up to 1024 x 1024) takes the place of that icon.
/// - Priority -2 and -1 is urgency low, 0 and 1 normal, 2 critical. Sticky: the server is asked not to expire
///   it.
/// - A click is the "default" action; a server without actions shows the notification all the same. Where the
///   server reads markup, the text is escaped, so that it shows as it stands.
/// - Expired, dismissed by the user without a click, or gone for an undefined reason: timed out. Closed by
///   a program's call: nothing is heard.
///
/// post hands the notification over and does not wait for the server, which may have to be started first.
/// The delegate is called on a thread of this object, in the order of the events, and may wait for the main
/// thread there. Of the last 64 notifications the outcome is heard, each at most once.
class BusDesktopNotifications : public DesktopNotifications {
 public:
  explicit BusDesktopNotifications(BusAgent& agent);
  ~BusDesktopNotifications() override;
  BusDesktopNotifications(const BusDesktopNotifications&) = delete;
  BusDesktopNotifications& operator=(const BusDesktopNotifications&) = delete;

  void setDelegate(DesktopNotificationDelegate* delegate) override;
  void post(const DesktopNotification& notification) override;

 private:
  class Callbacks;

  BusAgent& agent_;
  const std::shared_ptr<Callbacks> callbacks_;
};

}  // namespace platform
