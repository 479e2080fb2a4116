#pragma once

#include <memory>

#include "platform/Notifications.h"

namespace platform {

/// Desktop notifications by the system's own centre (Apple's User Notifications, since 10.14), looked up at
/// run time. The user is asked once whether notifications may be shown; until then they wait.
///
/// - A click and dismissal without one are heard, the latter as timed out; the system tells of no other end.
/// - Priorities below 0 are delivered without lighting up the screen, from system 12 on. How long one stays,
///   and its icon, are the user's and the system's: isSticky and iconData have no effect.
/// - A process that is in no bundle has no centre, and shows nothing.
///
/// post waits until the system has the notification, at most 1 second: a program that ends right after its
/// last notification has shown it. The delegate is called on a thread of the system's. There is one of these
/// in a process, as there is one centre.
class UserNotifications : public DesktopNotifications {
 public:
  UserNotifications();
  ~UserNotifications() override;
  UserNotifications(const UserNotifications&) = delete;
  UserNotifications& operator=(const UserNotifications&) = delete;

  [[nodiscard]] static bool isThere();

  void setDelegate(DesktopNotificationDelegate* delegate) override;
  void post(const DesktopNotification& notification) override;

 private:
  class Center;
  const std::unique_ptr<Center> center_;
};

}  // namespace platform
