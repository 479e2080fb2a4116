#pragma once

#include <memory>
#include <mutex>

#include "platform/Notifications.h"

namespace platform {

/// Growl where the bundle carries its bridge (GrowlBridge.h), else the system's notifications
/// (UserNotifications.h); chosen when it is first used. Where there is neither, nothing is shown.
class MacDesktopNotifications : public DesktopNotifications {
 public:
  void setDelegate(DesktopNotificationDelegate* delegate) override;
  void post(const DesktopNotification& notification) override;

 private:
  DesktopNotifications* service();

  std::once_flag chosen_;
  std::unique_ptr<DesktopNotifications> service_;
};

}  // namespace platform
