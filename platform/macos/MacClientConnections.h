#pragma once

#include "platform/macos/DistributedObjects.h"
#include "platform/macos/MessagePorts.h"

namespace platform {

/// Distributed objects where the system has them, else message ports.
class MacClientConnections : public ClientConnections {
 public:
  [[nodiscard]] std::unique_ptr<ClientProxy> rootProxy(const std::string& registeredName) override;

 private:
  DistributedObjects objects_;
  MessagePorts ports_;
};

}  // namespace platform
