#include "platform/macos/MacDesktopNotifications.h"

#include "platform/macos/GrowlBridge.h"
#include "platform/macos/UserNotifications.h"

namespace platform {
namespace {

std::unique_ptr<DesktopNotifications> chooseService() {
  if (GrowlBridge::isThere()) return std::make_unique<GrowlBridge>();
  if (UserNotifications::isThere()) return std::make_unique<UserNotifications>();
  return nullptr;
}

}  // namespace

void MacDesktopNotifications::setDelegate(DesktopNotificationDelegate* delegate) {
  if (auto* const desktop = service()) desktop->setDelegate(delegate);
}

void MacDesktopNotifications::post(const DesktopNotification& notification) {
  if (auto* const desktop = service()) desktop->post(notification);
}

DesktopNotifications* MacDesktopNotifications::service() {
  std::call_once(chosen_, [this] { service_ = chooseService(); });
  return service_.get();
}

}  // namespace platform
