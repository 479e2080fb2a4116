#pragma once

#include <memory>
#include <string>

#include "platform/ClientConnections.h"

namespace platform {

/// Clients that have registered a connection of distributed objects on this computer, after Apple's
/// Distributed Objects Programming Topics. The class NSConnection is looked up when it is needed: it is
/// deprecated since 10.13, and a system without it is no reason not to start.
///
/// Messages go one way and their arguments as copies, whatever the client's own declarations say: a client
/// need not come back to this process for them, which may have ended. Half a second is waited for a client to
/// take a request, and half a second for its answer.
///
/// A proxy belongs to the thread that looked it up.
class DistributedObjects : public ClientConnections {
 public:
  /// Whether this system has them.
  [[nodiscard]] static bool areThere();

  [[nodiscard]] std::unique_ptr<ClientProxy> rootProxy(const std::string& registeredName) override;
};

}  // namespace platform
