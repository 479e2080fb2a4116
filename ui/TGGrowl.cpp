#include "ui/TGGrowl.h"

#include "diagnostics/GlobalPreferences.h"
#include "platform/Platform.h"

namespace {

constexpr const char* kNotificationName = "TGInfoNotification";

/// Hands the callbacks of the desktop's notification service to TGGrowl.
class Callbacks : public platform::DesktopNotificationDelegate {
 public:
  void notificationWasClicked(const std::optional<foundation::Date>& clickContext) override {
    TGGrowl::growlNotificationWasClicked(clickContext);
  }
  void notificationTimedOut(const std::optional<foundation::Date>& clickContext) override {
    TGGrowl::growlNotificationTimedOut(clickContext);
  }
};

bool isDisabled() {
  const auto value = globalPreference("growlDisabled");
  return value && value->boolValue();
}

void postInProcess(const char* name, const std::optional<foundation::Date>& clickContext) {
  if (!clickContext) return;
  foundation::PropertyList userInfo;
  userInfo.set("clickContext", *clickContext);
  const platform::LocalNotification notification{name, userInfo};
  platform::current().mainThread.perform([&] { platform::current().localNotifications.post(notification); },
                                         platform::Wait::yes);
}

}  // namespace

void TGGrowl::postGrowlNotification(const std::string& title, const std::string& description,
                                    const std::optional<std::string>& icon) {
  if (isDisabled()) return;
  // Never freed: a click may come in while the process ends.
  static auto& callbacks = *new Callbacks;
  auto& system = platform::current();
  system.desktopNotifications.setDelegate(&callbacks);
  platform::DesktopNotification notification;
  notification.title = title;
  notification.description = description;
  notification.name = kNotificationName;
  notification.iconData = icon;
  notification.clickContext = system.clock.now();
  system.desktopNotifications.post(notification);
}

void TGGrowl::postGrowlNotification(const std::string& title, const std::string& description) {
  postGrowlNotification(title, description, std::nullopt);
}

void TGGrowl::growlNotificationWasClicked(const std::optional<foundation::Date>& clickContext) {
  postInProcess("TGGrowlAlertClicked", clickContext);
}

void TGGrowl::growlNotificationTimedOut(const std::optional<foundation::Date>& clickContext) {
  postInProcess("TGGrowlAlertTimedOut", clickContext);
}
