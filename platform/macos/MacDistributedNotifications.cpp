#include "platform/macos/MacDistributedNotifications.h"

#include "platform/SystemConsole.h"
#include "platform/macos/CoreFoundationValues.h"

namespace platform {

void MacDistributedNotifications::post(const std::string& name,
                                       const std::optional<foundation::PropertyList>& userInfo) {
  auto* const center = CFNotificationCenterGetDistributedCenter();
  const CoreFoundationString title = coreFoundationString(name);
  if (center == nullptr || !title) return;
  CoreFoundationValue information;
  if (userInfo && userInfo->as<foundation::PropertyList::Dictionary>() != nullptr) {
    information = coreFoundationValue(*userInfo);
    if (!information)
      NSLog("The notification %@ goes without its user information: it is no property list", name);
  }
  CFNotificationCenterPostNotificationWithOptions(
      center, title.get(), nullptr, static_cast<CFDictionaryRef>(information.get()),
      kCFNotificationDeliverImmediately | kCFNotificationPostToAllSessions);
}

}  // namespace platform
