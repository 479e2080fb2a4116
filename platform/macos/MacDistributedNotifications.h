#pragma once

#include "platform/Notifications.h"

namespace platform {

/// The distributed notification centre (CFNotificationCenter), at once and in all sessions: a repair that a
/// scheduler starts as root is in none, and who listens is in the console user's. User information that
/// cannot be a property list is said on the system console; the notification goes without it.
class MacDistributedNotifications : public DistributedNotifications {
 public:
  void post(const std::string& name, const std::optional<foundation::PropertyList>& userInfo) override;
};

}  // namespace platform
