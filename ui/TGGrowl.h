#pragma once

#include <optional>
#include <string>

#include "platform/foundation/Date.h"

/// Desktop notifications. Posting may be done from any thread; "growlDisabled" in the maker's global
/// preferences switches it off.
class TGGrowl {
 public:
  TGGrowl() = delete;

  /// The icon, if any, as the bytes of an image file.
  static void postGrowlNotification(const std::string& title, const std::string& description,
                                    const std::optional<std::string>& icon);
  static void postGrowlNotification(const std::string& title, const std::string& description);

  /// Post "TGGrowlAlertClicked" and "TGGrowlAlertTimedOut" inside the process, on the main thread, and return
  /// when they are delivered; the user information holds the click context under "clickContext". No context
  /// posts nothing.
  static void growlNotificationWasClicked(const std::optional<foundation::Date>& clickContext);
  static void growlNotificationTimedOut(const std::optional<foundation::Date>& clickContext);
};
