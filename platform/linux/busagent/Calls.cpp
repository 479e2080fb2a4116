#include "platform/linux/busagent/Calls.h"

namespace busagent {

Target busItself() {
  return {"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"};
}

namespace {

/// A reply that does not hold what it should is an error like any other; nothing is thrown into the library.
void answer(const Calls::Then& then, sdbus::MethodReply& reply, const sdbus::Error* error) {
  try {
    then(reply, error);
  } catch (const sdbus::Error& malformed) {
    then(reply, &malformed);
  }
}

}  // namespace

void Calls::call(const Target& target, const std::string& method, const Fill& fill,
                 std::chrono::milliseconds limit, Then then) {
  auto& receiver = proxy(target.destination, target.path);
  auto message = receiver.createMethodCall(target.interfaceName, method);
  fill(message);
  receiver.callMethod(
      message,
      [this, then = std::move(then)](sdbus::MethodReply& reply, const sdbus::Error* error) {
        --waiting_;
        answer(then, reply, error);
      },
      limit);
  ++waiting_;
}

void Calls::send(const Target& target, const std::string& method, const Fill& fill) {
  auto& receiver = proxy(target.destination, target.path);
  auto message = receiver.createMethodCall(target.interfaceName, method);
  fill(message);
  message.dontExpectReply();
  receiver.callMethod(message, std::uint64_t{0});
}

sdbus::IProxy& Calls::proxy(const std::string& destination, const std::string& path) {
  auto& entry = proxies_[{destination, path}];
  if (!entry) entry = sdbus::createProxy(bus_, destination, path);
  return *entry;
}

}  // namespace busagent
