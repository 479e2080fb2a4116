#include "services/TGTaskNotification.h"

#include <chrono>
#include <memory>
#include <vector>

#include "diagnostics/TGException.h"
#include "platform/Platform.h"

namespace {

using foundation::PropertyList;
using namespace std::chrono_literals;

constexpr auto kTimeToLeave = 15ms;

/// A message of the client's, and what it is sent with.
struct Message {
  const char* selector;
  std::vector<PropertyList> arguments;
};

std::unique_ptr<platform::ClientProxy> listeningClient() {
  auto& connections = platform::current().clientConnections;
  if (auto client = connections.rootProxy("TGProClientCallback")) return client;
  return connections.rootProxy("TGCareplexClientCallback");
}

void sendFirstImplemented(platform::ClientProxy& client, const std::vector<Message>& candidates) {
  for (const Message& message : candidates) {
    if (!client.respondsToSelector(message.selector)) continue;
    client.send(message.selector, message.arguments);
    return;
  }
}

/// Sends the first of the candidates that the client implements. The pause is taken whether anything was sent
/// or not, so that every report to a client costs the same.
void post(const char* method, const std::vector<Message>& candidates) {
  guarded(method, [&] {
    const auto client = listeningClient();
    if (!client) return;
    client->setProtocol("TGCareplexErrorCallbackProtocol");
    sendFirstImplemented(*client, candidates);
    platform::current().clock.sleep(kTimeToLeave);
  });
}

std::string processName() {
  return platform::current().processInformation.processName();
}

}  // namespace

void TGTaskNotification::postDisconnect() {
  post("+[TGTaskNotification postDisconnect]", {{"postDisconnect", {}}});
}

void TGTaskNotification::postTaskErrorString(const std::string& message) {
  const PropertyList userInfo = PropertyList::Dictionary{{"appName", processName()}};
  post("+[TGTaskNotification postTaskErrorString:]",
       {{"postErrorString:userInfo:", {message, userInfo}}, {"postErrorString:", {message}}});
}

void TGTaskNotification::postTaskError(const PropertyList& error) {
  post("+[TGTaskNotification postTaskError:]",
       {{"postError:forApp:", {error, processName()}}, {"postError:", {error}}});
}

void TGTaskNotification::postTaskFinished() {
  post("+[TGTaskNotification postTaskFinished]", {{"postFinishedTask", {}}});
}

void TGTaskNotification::postIncrementProgress() {
  post("+[TGTaskNotification postIncrementProgress]", {{"incrementRemoteProgress", {}}});
}
