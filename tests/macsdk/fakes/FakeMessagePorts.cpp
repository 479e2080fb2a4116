#include "tests/macsdk/fakes/FakeMessagePorts.h"

#include <map>
#include <utility>

#include "platform/macos/CoreFoundationValues.h"

namespace {

struct State {
  std::map<std::string, std::set<std::string>> ports;
  std::vector<std::string> messages;
  SInt32 status = kCFMessagePortSuccess;
};

State& state() {
  static State only;
  return only;
}

/// A port is the object of its name.
CFStringRef nameOf(CFMessagePortRef port) {
  return reinterpret_cast<CFStringRef>(port);
}

std::string bytesOf(CFDataRef data) {
  return {reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
          static_cast<std::size_t>(CFDataGetLength(data))};
}

std::string contentOf(SInt32 number, CFDataRef data) {
  if (number == 1) return bytesOf(data);
  const platform::CoreFoundationValue object(
      CFPropertyListCreateWithData(kCFAllocatorDefault, data, kCFPropertyListImmutable, nullptr, nullptr));
  const auto value = platform::propertyListOf(object.get());
  return value ? value->description() : "not a property list";
}

}  // namespace

namespace fakes {

void resetMessagePorts() {
  state() = State();
}

void addPort(const std::string& name, std::set<std::string> implemented) {
  state().ports[name] = std::move(implemented);
}

void setPortStatus(SInt32 status) {
  state().status = status;
}

std::vector<std::string> takePortMessages() {
  return std::exchange(state().messages, {});
}

}  // namespace fakes

CFMessagePortRef CFMessagePortCreateRemote(CFAllocatorRef, CFStringRef name) {
  if (!state().ports.contains(platform::textOf(name))) return nullptr;
  const void* const port = CFRetain(name);
  return static_cast<CFMessagePortRef>(const_cast<void*>(port));
}

SInt32 CFMessagePortSendRequest(CFMessagePortRef remote, SInt32 msgid, CFDataRef data,
                                CFTimeInterval sendTimeout, CFTimeInterval rcvTimeout, CFStringRef replyMode,
                                CFDataRef* returnData) {
  const std::string name = platform::textOf(nameOf(remote));
  const std::string wait = " (" + std::to_string(sendTimeout) +
                           (replyMode == nullptr ? "" : ", " + std::to_string(rcvTimeout)) + ")";
  state().messages.push_back(std::to_string(msgid) + " to " + name + ": " + contentOf(msgid, data) + wait);
  if (state().status != kCFMessagePortSuccess) return state().status;
  if (replyMode == nullptr) return kCFMessagePortSuccess;
  const UInt8 answer = state().ports[name].contains(bytesOf(data)) ? 1 : 0;
  *returnData = CFDataCreate(kCFAllocatorDefault, &answer, 1);
  return kCFMessagePortSuccess;
}
