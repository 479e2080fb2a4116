#pragma once

#include <memory>
#include <string>

#include "platform/ClientConnections.h"
#include "platform/linux/BusAgent.h"

namespace platform {

/// Controlling clients on the bus that BusAgent chooses. A client
///
/// - owns the name "com.vordenworks.<registered name>", for example com.vordenworks.TGProClientCallback;
/// - exports the object /com/vordenworks/Client, with the interface "com.vordenworks.<protocol>", for example
///   com.vordenworks.TGCareplexErrorCallbackProtocol, and org.freedesktop.DBus.Introspectable, by which it is
///   asked what it implements (every binding brings that along);
/// - has one method for each selector: its keywords without their colons, each after the first with a capital
///   letter. "postErrorString:" is postErrorString, "postErrorString:userInfo:" is postErrorStringUserInfo,
///   "postError:forApp:" is postErrorForApp.
///
/// Arguments: a string is s, a dictionary a{sv}, an array av; the other kinds as BusDistributedNotifications
/// lists them. Calls carry NO_REPLY_EXPECTED: whatever the client answers is dropped.
///
/// A proxy stands for the client that had the name at the time of the look-up. When that one has left the
/// bus, messages throw, also when another client has taken the name meanwhile.
class BusClientConnections : public ClientConnections {
 public:
  explicit BusClientConnections(BusAgent& agent) : agent_(agent) {}

  /// nullptr for a registered name that no bus name can hold, and when there is no bus.
  [[nodiscard]] std::unique_ptr<ClientProxy> rootProxy(const std::string& registeredName) override;

 private:
  BusAgent& agent_;
};

/// The D-Bus method of a selector, as described above.
[[nodiscard]] std::string busMethodName(const std::string& selector);

}  // namespace platform
