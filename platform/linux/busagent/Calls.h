#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

namespace busagent {

/// Whom a call goes to.
struct Target {
  std::string destination;
  std::string path;
  std::string interfaceName;
};

/// The bus itself.
[[nodiscard]] Target busItself();

/// Method calls on a connection that is served by a loop, none of which blocks.
class Calls {
 public:
  using Fill = std::function<void(sdbus::MethodCall&)>;
  /// Is given nullptr for an error when there is a reply, and reads it; when it does not hold what `then`
  /// reads from it, `then` is called again with that error. REQUIRES that it throws nothing when given an
  /// error.
  using Then = std::function<void(sdbus::MethodReply&, const sdbus::Error*)>;

  explicit Calls(sdbus::IConnection& bus) : bus_(bus) {}

  /// Calls a method, and `then` when the reply, an error or the time-out is there.
  void call(const Target& target, const std::string& method, const Fill& fill,
            std::chrono::milliseconds limit, Then then);

  /// Sends a call whose reply nobody wants.
  void send(const Target& target, const std::string& method, const Fill& fill);

  [[nodiscard]] sdbus::IProxy& proxy(const std::string& destination, const std::string& path);

  /// How many calls wait for their reply.
  [[nodiscard]] int waiting() const { return waiting_; }

 private:
  sdbus::IConnection& bus_;
  std::map<std::pair<std::string, std::string>, std::unique_ptr<sdbus::IProxy>> proxies_;
  int waiting_ = 0;
};

}  // namespace busagent
