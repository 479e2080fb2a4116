#include "platform/linux/busagent/NotificationServer.h"

#include <vector>

#include "platform/linux/busagent/Icon.h"

namespace busagent {

namespace {

using foundation::PropertyList;
using platform::bus::ReportKind;

/// A server may have to be started first; this is what the bus gives it.
constexpr std::chrono::seconds kLimit{25};
constexpr std::uint32_t kClosedByCall = 3;
constexpr const char* kApplicationName = "Quillmend";
constexpr const char* kApplicationIcon = "com.vordenworks.Quillmend";

Target server() {
  return {"org.freedesktop.Notifications", "/org/freedesktop/Notifications", "org.freedesktop.Notifications"};
}

std::int64_t number(const PropertyList& fields, const char* key) {
  const auto* value = fields.find(key);
  const auto* whole = value == nullptr ? nullptr : value->as<std::int64_t>();
  return whole == nullptr ? 0 : *whole;
}

std::uint64_t notificationNumber(const PropertyList& fields) {
  const auto* value = fields.find("notification");
  const auto* natural = value == nullptr ? nullptr : value->as<std::uint64_t>();
  return natural == nullptr ? 0 : *natural;
}

bool isSticky(const PropertyList& fields) {
  const auto* value = fields.find("isSticky");
  return value != nullptr && value->boolValue();
}

std::uint8_t urgency(std::int64_t priority) {
  if (priority < 0) return 0;
  return priority >= 2 ? 2 : 1;
}

std::string escaped(const std::string& plain) {
  std::string result;
  for (const char character : plain) {
    if (character == '&')
      result += "&amp;";
    else if (character == '<')
      result += "&lt;";
    else if (character == '>')
      result += "&gt;";
    else
      result += character;
  }
  return result;
}

template <typename Value>
void appendHint(sdbus::MethodCall& call, const char* name, const char* signature, const Value& value) {
  call.openDictEntry("sv");
  call << std::string(name);
  call.openVariant(signature);
  call << value;
  call.closeVariant();
  call.closeDictEntry();
}

using ImageData = sdbus::Struct<std::int32_t, std::int32_t, std::int32_t, bool, std::int32_t, std::int32_t,
                                std::vector<std::uint8_t>>;

std::optional<ImageData> imageData(const PropertyList& fields) {
  const auto* value = fields.find("icon");
  const auto* data = value == nullptr ? nullptr : value->as<PropertyList::Data>();
  const auto icon = data == nullptr ? std::nullopt : iconOf(data->bytes);
  if (!icon) return std::nullopt;
  return ImageData{icon->width, icon->height, icon->width * 4, true, 8, 4, icon->pixels};
}

}  // namespace

void NotificationServer::show(const PropertyList& fields) {
  listen();
  calls_.call(
      server(), "GetCapabilities", [](sdbus::MethodCall&) {}, kLimit,
      [this, fields](sdbus::MethodReply& reply, const sdbus::Error* error) {
        std::vector<std::string> names;
        if (error == nullptr) reply >> names;
        capabilities_ = {names.begin(), names.end()};
        notify(fields);
      });
}

void NotificationServer::listen() {
  if (std::exchange(isListening_, true)) return;
  auto& proxy = calls_.proxy(server().destination, server().path);
  const auto onSignal = [&](const char* name, void (NotificationServer::*handle)(sdbus::Signal&)) {
    proxy.registerSignalHandler(server().interfaceName, name, [this, handle](sdbus::Signal& signal) {
      try {
        (this->*handle)(signal);
      } catch (const sdbus::Error&) {  // not what such a signal holds: not one of the server's
      }
    });
  };
  onSignal("ActionInvoked", &NotificationServer::actionInvoked);
  onSignal("NotificationClosed", &NotificationServer::closed);
  proxy.finishRegistration();
}

void NotificationServer::actionInvoked(sdbus::Signal& signal) {
  std::uint32_t id = 0;
  std::string action;
  signal >> id >> action;
  if (action != "default") return;
  const auto number = settle(signal.getSender(), id);
  if (number) settled_(ReportKind::notificationClicked, *number);
}

void NotificationServer::closed(sdbus::Signal& signal) {
  std::uint32_t id = 0;
  std::uint32_t reason = 0;
  signal >> id >> reason;
  const auto number = settle(signal.getSender(), id);
  if (number && reason != kClosedByCall) settled_(ReportKind::notificationExpired, *number);
}

void NotificationServer::notify(const PropertyList& fields) {
  calls_.call(
      server(), "Notify", [&](sdbus::MethodCall& call) { fill(call, fields); }, kLimit,
      [this, number = notificationNumber(fields)](sdbus::MethodReply& reply, const sdbus::Error* error) {
        if (error != nullptr) return;
        std::uint32_t id = 0;
        reply >> id;
        shown_[{reply.getSender(), id}] = number;
      });
}

void NotificationServer::fill(sdbus::MethodCall& call, const PropertyList& fields) const {
  const std::string description = fields.stringFor("description");
  const std::vector<std::string> actions = {"default", kApplicationName};
  call << std::string(kApplicationName) << std::uint32_t{0} << std::string(kApplicationIcon);
  call << fields.stringFor("title")
       << (capabilities_.contains("body-markup") ? escaped(description) : description);
  call << (capabilities_.contains("actions") ? actions : std::vector<std::string>());
  appendHints(call, fields);
  call << std::int32_t{isSticky(fields) ? 0 : -1};
}

void NotificationServer::appendHints(sdbus::MethodCall& call, const PropertyList& fields) const {
  call.openContainer("{sv}");
  appendHint(call, "urgency", "y", urgency(number(fields, "priority")));
  appendHint(call, "desktop-entry", "s", std::string(kApplicationIcon));
  if (const auto image = imageData(fields)) appendHint(call, "image-data", "(iiibiiay)", *image);
  call.closeContainer();
}

std::optional<std::uint64_t> NotificationServer::settle(const std::string& sender, std::uint32_t id) {
  const auto found = shown_.find({sender, id});
  if (found == shown_.end()) return std::nullopt;
  const std::uint64_t number = found->second;
  shown_.erase(found);
  return number;
}

}  // namespace busagent
