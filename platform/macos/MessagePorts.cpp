#include "platform/macos/MessagePorts.h"

#include <CoreFoundation/CFMessagePort.h>

#include <utility>

#include "platform/foundation/Exception.h"
#include "platform/foundation/Identifiers.h"
#include "platform/macos/CoreFoundationValues.h"

namespace platform {
namespace {

using foundation::Exception;
using foundation::PropertyList;
using Port = CoreFoundationReference<CFMessagePortRef>;
using Bytes = CoreFoundationReference<CFDataRef>;

constexpr CFTimeInterval kLongestWait = 0.5;

Bytes bytesOf(const std::string& text) {
  return Bytes(CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                            static_cast<CFIndex>(text.size())));
}

Bytes archived(const PropertyList& value) {
  const CoreFoundationValue object = coreFoundationValue(value);
  if (!object) return {};
  return Bytes(CFPropertyListCreateData(kCFAllocatorDefault, object.get(), kCFPropertyListBinaryFormat_v1_0,
                                        0, nullptr));
}

class PortClient : public ClientProxy {
 public:
  PortClient(Port port, std::string name) : port_(std::move(port)), name_(std::move(name)) {}

  void setProtocol(const std::string& protocolName) override { protocol_ = protocolName; }

  bool respondsToSelector(const std::string& selector) override {
    const Bytes question = bytesOf(selector);
    const CoreFoundationString mode = coreFoundationString("com.vordenworks.Quillmend.answer");
    if (!question || !mode) throw cannotSend(selector);
    CFDataRef data = nullptr;
    check(CFMessagePortSendRequest(port_.get(), kDoYouImplement, question.get(), kLongestWait, kLongestWait,
                                   mode.get(), &data));
    const Bytes answer(data);
    return answer && CFDataGetLength(answer.get()) == 1 && *CFDataGetBytePtr(answer.get()) == 1;
  }

  void send(const std::string& selector, const std::vector<PropertyList>& arguments) override {
    const Bytes message = archived(
        PropertyList::Dictionary{{"protocol", protocol_}, {"selector", selector}, {"arguments", arguments}});
    if (!message) throw cannotSend(selector);
    check(CFMessagePortSendRequest(port_.get(), kClientMessage, message.get(), kLongestWait, 0, nullptr,
                                   nullptr));
  }

 private:
  static Exception cannotSend(const std::string& selector) {
    return {foundation::kInvalidArgumentException, "the arguments of " + selector + " cannot be sent"};
  }

  void check(SInt32 status) const {
    if (status == kCFMessagePortSuccess) return;
    if (status == kCFMessagePortSendTimeout || status == kCFMessagePortReceiveTimeout) {
      throw Exception(foundation::kPortTimeoutException, "connection " + name_ + ": no answer");
    }
    throw Exception(foundation::kInvalidSendPortException, "connection " + name_ + " is gone");
  }

  const Port port_;
  const std::string name_;
  std::string protocol_;
};

}  // namespace

std::unique_ptr<ClientProxy> MessagePorts::rootProxy(const std::string& registeredName) {
  const CoreFoundationString name = coreFoundationString(identifiers::kVendorPrefix + registeredName);
  if (registeredName.empty() || !name) return nullptr;
  Port port(CFMessagePortCreateRemote(kCFAllocatorDefault, name.get()));
  if (!port) return nullptr;
  return std::make_unique<PortClient>(std::move(port), registeredName);
}

}  // namespace platform
