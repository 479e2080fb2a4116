#pragma once

#include <atomic>
#include <optional>

#include "platform/Notifications.h"

namespace platform {

/// Who hears what became of notifications; outlives the objects that the system calls.
class DesktopNotificationListener {
 public:
  void setDelegate(DesktopNotificationDelegate* delegate) { delegate_ = delegate; }

  void wasClicked(const std::optional<foundation::Date>& clickContext) const {
    if (auto* const delegate = delegate_.load()) delegate->notificationWasClicked(clickContext);
  }
  void timedOut(const std::optional<foundation::Date>& clickContext) const {
    if (auto* const delegate = delegate_.load()) delegate->notificationTimedOut(clickContext);
  }

 private:
  std::atomic<DesktopNotificationDelegate*> delegate_ = nullptr;
};

}  // namespace platform
