#pragma once

#include <memory>

#include "platform/Notifications.h"

namespace platform {

/// Desktop notifications by the bridge to Growl (GrowlApplicationBridge), where the bundle carries it in
/// Contents/Frameworks/Growl.framework: loaded when it is first asked for, and never unloaded.
///
/// The program is registered as "Quillmend", with the notification's name as one that is on by default. The
/// bridge is used on the main thread alone: on another one, posting hands the notification over to it and
/// waits for nobody. The delegate is called there too, while the main thread's run loop runs. Without a
/// main thread whose run loop runs nothing is heard of clicks.
class GrowlBridge : public DesktopNotifications {
 public:
  GrowlBridge();
  ~GrowlBridge() override;
  GrowlBridge(const GrowlBridge&) = delete;
  GrowlBridge& operator=(const GrowlBridge&) = delete;

  /// Whether the bundle has the bridge; loads it.
  [[nodiscard]] static bool isThere();

  void setDelegate(DesktopNotificationDelegate* delegate) override;
  /// REQUIRES isThere().
  void post(const DesktopNotification& notification) override;

 private:
  class Registration;
  const std::shared_ptr<Registration> registration_;
};

}  // namespace platform
