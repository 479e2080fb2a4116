#include <sdbus-c++/sdbus-c++.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "tests/support/Checksum.h"

/// Whom the tests let this program's bus services talk to, as programs of their own so that they can run as
/// another account and be killed:
///
///     bus_partner listen ADDRESS                          prints distributed notifications
///     bus_partner client ADDRESS NAME METHOD:SIGNATURE... a controlling client; prints the calls
///     bus_partner deaf ADDRESS NAME                       a client that answers nothing
///     bus_partner server ADDRESS FATE CAPABILITY...       a notification server; prints what it shows.
///                                                         FATE: click, other, expire, dismiss, close,
///                                                         lose or stay
///
/// Each prints "ready", its user id and its unique name first. Line breaks in texts are printed as blanks.

namespace {

std::string shown(const std::string& text) {
  if (text.size() <= 4096) {
    std::string line = text;
    std::replace(line.begin(), line.end(), '\n', ' ');
    return "'" + line + "'";
  }
  return std::to_string(text.size()) + " bytes, checksum " + std::to_string(checksum(text));
}

/// Any value as its type and its content: "s:'text'", "{sv}[key=x:3]", "y[1,2]".
std::string described(sdbus::Message& message);

template <typename Value>
std::string plain(sdbus::Message& message, const std::string& type) {
  Value value{};
  message >> value;
  if constexpr (std::is_same_v<Value, std::string>) {
    return type + ":" + shown(value);
  } else {
    return type + ":" + std::to_string(value);
  }
}

std::string elements(sdbus::Message& message, const std::string& contents) {
  std::string text = contents + "[";
  message.enterContainer(contents);
  while (true) {
    std::string type;
    std::string inner;
    message.peekType(type, inner);
    if (type.empty() || type == std::string(1, '\0')) break;
    if (text.back() != '[') text += ",";
    text += described(message);
  }
  message.clearFlags();
  message.exitContainer();
  return text + "]";
}

std::string described(sdbus::Message& message) {
  std::string type;
  std::string contents;
  message.peekType(type, contents);
  if (type == "s") return plain<std::string>(message, type);
  if (type == "b") return plain<bool>(message, type);
  if (type == "y") return plain<std::uint8_t>(message, type);
  if (type == "i") return plain<std::int32_t>(message, type);
  if (type == "u") return plain<std::uint32_t>(message, type);
  if (type == "x") return plain<std::int64_t>(message, type);
  if (type == "t") return plain<std::uint64_t>(message, type);
  if (type == "d") return plain<double>(message, type);
  if (type == "a") return elements(message, contents);
  std::string text;
  if (type == "v") {
    message.enterVariant(contents);
    text = described(message);
    message.exitVariant();
  } else if (type == "e") {
    message.enterDictEntry(contents);
    std::string key;
    message >> key;
    text = key + "=" + described(message);
    message.exitDictEntry();
  } else if (type == "r") {
    message.enterStruct(contents);
    std::string inner;
    for (message.peekType(type, inner); !type.empty() && type[0] != '\0'; message.peekType(type, inner)) {
      text += (text.empty() ? "(" : ",") + described(message);
    }
    message.clearFlags();
    message.exitStruct();
    text += ")";
  }
  return text;
}

void say(const std::string& line) {
  std::cout << line << std::endl;
}

void beReady(sdbus::IConnection& bus) {
  say("ready " + std::to_string(::geteuid()) + " " + bus.getUniqueName());
}

int listen(sdbus::IConnection& bus) {
  bus.addMatch(
      "type='signal',interface='com.vordenworks.DistributedNotifications'",
      [](sdbus::Message& message) {
        std::string line = message.getPath() + " " + message.getMemberName();
        for (int argument = 0; argument < 3; ++argument) line += " " + described(message);
        say(line);
      },
      sdbus::floating_slot);
  beReady(bus);
  bus.enterEventLoop();
  return 0;
}

int client(sdbus::IConnection& bus, const std::string& name, const std::vector<std::string>& methods) {
  auto object = sdbus::createObject(bus, "/com/vordenworks/Client");
  for (const std::string& method : methods) {
    const std::string methodName = method.substr(0, method.find(':'));
    const std::string signature = method.substr(method.find(':') + 1);
    object->registerMethod(
        "com.vordenworks.TGCareplexErrorCallbackProtocol", methodName, signature, "",
        [methodName, signature](sdbus::MethodCall call) {
          std::string line = methodName;
          const int count = signature.empty() ? 0 : signature == "s" || signature == "a{sv}" ? 1 : 2;
          for (int argument = 0; argument < count; ++argument) line += " " + described(call);
          say(line + (call.doesntExpectReply() ? " no reply" : " reply"));
          call.createReply().send();
        });
  }
  object->finishRegistration();
  bus.requestName(name);
  beReady(bus);
  bus.enterEventLoop();
  return 0;
}

int deaf(sdbus::IConnection& bus, const std::string& name) {
  bus.requestName(name);
  beReady(bus);
  while (true) ::pause();
}

constexpr const char* kNotifications = "org.freedesktop.Notifications";

void settle(sdbus::IObject& object, const std::string& fate, std::uint32_t id) {
  if (fate == "click" || fate == "other") {
    auto signal = object.createSignal(kNotifications, "ActionInvoked");
    signal << id << std::string(fate == "click" ? "default" : "something else");
    object.emitSignal(signal);
  }
  const std::map<std::string, std::uint32_t> reasons = {
      {"click", 2}, {"expire", 1}, {"dismiss", 2}, {"close", 3}, {"lose", 4}};
  if (!reasons.contains(fate)) return;
  auto signal = object.createSignal(kNotifications, "NotificationClosed");
  signal << id << reasons.at(fate);
  object.emitSignal(signal);
}

int server(sdbus::IConnection& bus, const std::string& fate, const std::vector<std::string>& capabilities) {
  auto object = sdbus::createObject(bus, "/org/freedesktop/Notifications");
  std::uint32_t last = 0;
  object->registerMethod(kNotifications, "GetCapabilities", "", "as", [&](sdbus::MethodCall call) {
    auto reply = call.createReply();
    reply << capabilities;
    reply.send();
  });
  object->registerMethod(kNotifications, "Notify", "susssasa{sv}i", "u", [&](sdbus::MethodCall call) {
    std::string line = "notify";
    for (int argument = 0; argument < 8; ++argument) line += " " + described(call);
    auto reply = call.createReply();
    reply << ++last;
    reply.send();
    say(line);
    settle(*object, fate, last);
  });
  object->registerSignal(kNotifications, "ActionInvoked", "us");
  object->registerSignal(kNotifications, "NotificationClosed", "uu");
  object->finishRegistration();
  bus.requestName(kNotifications);
  beReady(bus);
  bus.enterEventLoop();
  return 0;
}

}  // namespace

int main(int count, char** values) {
  const std::vector<std::string> arguments(values + 1, values + count);
  auto bus = sdbus::createSessionBusConnectionWithAddress(arguments.at(1));
  const std::string& role = arguments.at(0);
  if (role == "listen") return listen(*bus);
  if (role == "deaf") return deaf(*bus, arguments.at(2));
  const std::vector<std::string> rest(arguments.begin() + 3, arguments.end());
  if (role == "client") return client(*bus, arguments.at(2), rest);
  if (role == "server") return server(*bus, arguments.at(2), rest);
  return 2;
}
