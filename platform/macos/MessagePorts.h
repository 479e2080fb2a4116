#pragma once

#include <memory>
#include <string>

#include "platform/ClientConnections.h"

namespace platform {

/// Clients on a system without distributed objects: by Core Foundation's message ports (CFMessagePort), which
/// need no entry with the system's launcher. A client
///
/// - makes a local port of the name "com.vordenworks.<registered name>", for example
///   com.vordenworks.TGProClientCallback;
/// - answers the message 1, whose data is a selector in UTF-8, with one byte: 1 when it implements it, else
/// 0;
/// - takes the message 2, a binary property list (plist(5)): a dictionary of "protocol" (its name),
/// "selector"
///   (a string) and "arguments" (an array).
///
/// Message 2 has no answer. Half a second is waited for a client to take a message, and half a second for its
/// answer to message 1.
class MessagePorts : public ClientConnections {
 public:
  [[nodiscard]] std::unique_ptr<ClientProxy> rootProxy(const std::string& registeredName) override;
};

inline constexpr int kDoYouImplement = 1;
inline constexpr int kClientMessage = 2;

}  // namespace platform
