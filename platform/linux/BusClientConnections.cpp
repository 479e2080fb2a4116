#include "platform/linux/BusClientConnections.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "platform/foundation/Exception.h"
#include "platform/foundation/Identifiers.h"
#include "platform/foundation/PropertyList.h"

namespace platform {

namespace {

using foundation::Exception;
using foundation::PropertyList;

bool isNameCharacter(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9') || character == '_';
}

/// A word that may be an element of bus names, interfaces and a method's name.
bool isElement(const std::string& word) {
  const bool beginsWithDigit = !word.empty() && word.front() >= '0' && word.front() <= '9';
  return !word.empty() && word.size() <= 128 && !beginsWithDigit &&
         std::all_of(word.begin(), word.end(), isNameCharacter);
}

class BusClientProxy : public ClientProxy {
 public:
  BusClientProxy(BusAgent& agent, std::string registeredName, std::string connection)
      : agent_(agent), registeredName_(std::move(registeredName)), connection_(std::move(connection)) {}

  void setProtocol(const std::string& protocolName) override { protocol_ = protocolName; }

  bool respondsToSelector(const std::string& selector) override {
    const auto outcome = ask(bus::RequestKind::askClient, selector, {});
    if (outcome == bus::Outcome::unanswered) {
      throw Exception(foundation::kPortTimeoutException, "connection " + registeredName_ + ": no answer");
    }
    return outcome == bus::Outcome::done;
  }

  void send(const std::string& selector, const std::vector<PropertyList>& arguments) override {
    if (ask(bus::RequestKind::messageClient, selector, arguments) != bus::Outcome::done) throw isGone();
  }

 private:
  /// REQUIRES a protocol.
  bus::Outcome ask(bus::RequestKind kind, const std::string& selector, const PropertyList::Array& arguments) {
    const std::string method = busMethodName(selector);
    if (!isElement(protocol_) || !isElement(method)) {
      throw Exception(foundation::kInvalidArgumentException,
                      "no message " + selector + " in the protocol \"" + protocol_ + "\"");
    }
    PropertyList fields;
    fields.set("connection", connection_);
    fields.set("interface", identifiers::kVendorPrefix + protocol_);
    fields.set("method", method);
    fields.set("arguments", arguments);
    const auto report = agent_.ask(kind, fields);
    if (!report || report->outcome == bus::Outcome::gone) throw isGone();
    return report->outcome;
  }

  [[nodiscard]] Exception isGone() const {
    return {foundation::kInvalidSendPortException, "connection " + registeredName_ + " is gone"};
  }

  BusAgent& agent_;
  const std::string registeredName_;
  const std::string connection_;  // the unique name, which is never given to another
  std::string protocol_;
};

}  // namespace

std::string busMethodName(const std::string& selector) {
  std::string name;
  bool beginsKeyword = false;
  for (const char character : selector) {
    const bool isSmall = character >= 'a' && character <= 'z';
    if (character != ':')
      name += beginsKeyword && isSmall ? static_cast<char>(character - 'a' + 'A') : character;
    beginsKeyword = character == ':';
  }
  return name;
}

std::unique_ptr<ClientProxy> BusClientConnections::rootProxy(const std::string& registeredName) {
  if (!isElement(registeredName)) return nullptr;
  PropertyList fields;
  fields.set("name", identifiers::kVendorPrefix + registeredName);
  const auto report = agent_.ask(bus::RequestKind::findClient, fields);
  if (!report || report->outcome != bus::Outcome::done) return nullptr;
  return std::make_unique<BusClientProxy>(agent_, registeredName, report->text);
}

}  // namespace platform
