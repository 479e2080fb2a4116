#include "ui/TGGrowl.h"

#include "platform/Platform.h"
#include "platform/foundation/Identifiers.h"
#include "platform/foundation/Paths.h"
#include "services/TGLocalPaths.h"

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
  const auto folder = TGLocalPaths::prefsDirectory(Domain::user);
  if (!folder) return false;
  const auto preferences = platform::readDictionary(
      foundation::appendingPathComponent(*folder, identifiers::kGlobalPreferencesFile));
  if (!preferences) return false;
  const auto* value = preferences.value().find("growlDisabled");
  return value != nullptr && value->boolValue();
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
