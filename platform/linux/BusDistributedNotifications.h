#pragma once

#include <optional>
#include <string>

#include "platform/Notifications.h"
#include "platform/linux/BusAgent.h"

namespace platform {

/// Distributed notifications as D-Bus signals (D-Bus, "Message Bus Message Routing"), broadcast
/// on the bus that BusAgent chooses: the console user's session bus, else the system bus.
///
///     path       /com/vordenworks/DistributedNotifications
///     interface  com.vordenworks.DistributedNotifications
///     signal     Posted (s name, s object, a{sv} userInfo)
///
/// The name is the first argument, not the member, because a notification may have any name; a match rule
/// picks one out by arg0. The object is "" for none, the user information is empty for none. To wait for the
/// end of a repair, in the session of the user at the console (with --system where nobody is):
///
///     match="interface='com.vordenworks.DistributedNotifications',arg0='tgQuillmendScanFinished'"
///     dbus-monitor --session "$match"
///
/// Values: a string is s, a dictionary a{sv}, an array av, data ay, a boolean b, a whole number x, one of
/// the unsigned kind (and a reference of a keyed archive) t, a real number d, a date s in the form
/// "2011-01-01T10:00:00Z". Texts are made fit for the bus as bus::busText says.
///
/// post returns when the bus has taken the signal, or after 1 second at the latest.
class BusDistributedNotifications : public DistributedNotifications {
 public:
  explicit BusDistributedNotifications(BusAgent& agent) : agent_(agent) {}
  void post(const std::string& name, const std::optional<foundation::PropertyList>& userInfo) override;

 private:
  BusAgent& agent_;
};

}  // namespace platform
