#include "platform/macos/MacClientConnections.h"

namespace platform {

std::unique_ptr<ClientProxy> MacClientConnections::rootProxy(const std::string& registeredName) {
  if (DistributedObjects::areThere()) return objects_.rootProxy(registeredName);
  return ports_.rootProxy(registeredName);
}

}  // namespace platform
