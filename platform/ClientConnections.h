#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/foundation/PropertyList.h"

namespace platform {

/// The root object of a client's registered connection.
class ClientProxy {
 public:
  virtual ~ClientProxy() = default;

  /// Declares the one-way protocol that the client's messages belong to, so that nothing sent is waited for.
  virtual void setProtocol(const std::string& protocolName) = 0;

  /// Whether the client implements a message, by its selector ("postErrorString:userInfo:"). Throws
  /// foundation::Exception when the connection is broken.
  [[nodiscard]] virtual bool respondsToSelector(const std::string& selector) = 0;

  /// Sends a message and waits for nobody. Throws foundation::Exception (NSInvalidSendPortException) when the
  /// client is gone.
  virtual void send(const std::string& selector, const std::vector<foundation::PropertyList>& arguments) = 0;
};

/// Connections that clients of this program have registered by name on this computer.
class ClientConnections {
 public:
  virtual ~ClientConnections() = default;

  /// The client registered under that name, or nullptr. Answers within 1 second.
  [[nodiscard]] virtual std::unique_ptr<ClientProxy> rootProxy(const std::string& registeredName) = 0;
};

}  // namespace platform
