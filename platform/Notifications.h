#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/foundation/Date.h"
#include "platform/foundation/PropertyList.h"

namespace platform {

/// Notifications between programs.
class DistributedNotifications {
 public:
  virtual ~DistributedNotifications() = default;

  /// Posts a notification without an object, with its user information (a dictionary) if any, to whoever
  /// listens on the console user's bus (else the system's). No listener and no bus are no error. Takes at
  /// most 1 second.
  virtual void post(const std::string& name, const std::optional<foundation::PropertyList>& userInfo) = 0;
};

/// A notification inside this process, without a sender object.
struct LocalNotification {
  std::string name;
  foundation::PropertyList userInfo;
};

/// The default notification centre of the process.
class LocalNotifications {
 public:
  using Observer = std::function<void(const LocalNotification&)>;
  virtual ~LocalNotifications() = default;

  /// Calls every observer of the name, in the order they were added, on the calling thread.
  virtual void post(const LocalNotification& notification) = 0;

  /// Adds an observer for a name; stays until removeObserver of the number it answers.
  virtual int addObserver(const std::string& name, Observer observer) = 0;
  virtual void removeObserver(int number) = 0;
};

/// What a desktop notification shows and carries.
struct DesktopNotification {
  std::string title;
  std::string description;
  std::string name;                     ///< the kind, "TGInfoNotification"
  std::optional<std::string> iconData;  ///< TIFF or PNG bytes
  int priority = 0;                     ///< -2 (very low) to 2 (emergency)
  bool isSticky = false;                ///< stays until clicked
  std::optional<foundation::Date> clickContext;
};

/// Hears what became of a notification; called on a thread of the service, or on the main thread.
class DesktopNotificationDelegate {
 public:
  virtual ~DesktopNotificationDelegate() = default;
  virtual void notificationWasClicked(const std::optional<foundation::Date>& clickContext) = 0;
  virtual void notificationTimedOut(const std::optional<foundation::Date>& clickContext) = 0;
};

/// Notifications on the user's desktop.
class DesktopNotifications {
 public:
  virtual ~DesktopNotifications() = default;

  /// Who hears of clicks and expiry from now on; nullptr for nobody. Outlives its registration.
  virtual void setDelegate(DesktopNotificationDelegate* delegate) = 0;

  /// Shows one; no desktop is no error. Takes at most 1 second.
  virtual void post(const DesktopNotification& notification) = 0;
};

}  // namespace platform
