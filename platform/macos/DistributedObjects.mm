#include "platform/macos/DistributedObjects.h"

#include <algorithm>
#include <utility>

#include "platform/macos/FoundationValues.h"

/// What a controlling client implements.
@protocol TGCareplexErrorCallbackProtocol
- (oneway void)postDisconnect;
- (oneway void)postErrorString:(in bycopy NSString*)message;
- (oneway void)postError:(in bycopy id)error;
- (oneway void)postFinishedTask;
- (oneway void)incrementRemoteProgress;
@end

/// The part of NSConnection and of its class that is used, by its selectors alone.
@protocol TGConnection
- (void)setRequestTimeout:(NSTimeInterval)seconds;
- (void)setReplyTimeout:(NSTimeInterval)seconds;
- (id)rootProxy;
@end
@protocol TGConnectionClass
- (id<TGConnection>)connectionWithRegisteredName:(NSString*)name host:(NSString*)host;
@end
@protocol TGDistantObject
- (void)setProtocolForProxy:(Protocol*)protocol;
- (BOOL)respondsToSelector:(SEL)selector;
- (void)forwardInvocation:(NSInvocation*)invocation;
@end

namespace platform {
namespace {

using foundation::Exception;
using foundation::PropertyList;

constexpr NSTimeInterval kLongestWait = 0.5;

void throwIfRaised(const std::optional<Exception>& raised) {
  if (raised) throw Exception(*raised);
}

/// The types of a message that goes one way with objects copied, as the runtime encodes them.
NSMethodSignature* oneWaySignature(std::size_t arguments) {
  std::string types = "Vv@:";
  for (std::size_t count = 0; count < arguments; ++count) types += "O@";
  return [NSMethodSignature signatureWithObjCTypes:types.c_str()];
}

/// nil where an argument cannot be sent.
NSInvocation* invocationOf(const std::string& selector, const std::vector<PropertyList>& arguments) {
  NSInvocation* const invocation =
      [NSInvocation invocationWithMethodSignature:oneWaySignature(arguments.size())];
  [invocation setSelector:NSSelectorFromString(foundationString(selector))];
  NSInteger position = 2;  // after the receiver and the selector
  for (const PropertyList& argument : arguments) {
    id object = foundationObject(argument);
    if (object == nil) return nil;
    [invocation setArgument:&object atIndex:position++];
  }
  return invocation;
}

/// Named here: a runtime knows no protocol by its name that none of its classes has adopted.
Protocol* protocolCalled(const std::string& name) {
  if (name == "TGCareplexErrorCallbackProtocol") return @protocol(TGCareplexErrorCallbackProtocol);
  return NSProtocolFromString(foundationString(name));
}

class DistantClient : public ClientProxy {
 public:
  explicit DistantClient(id<TGDistantObject> proxy) : proxy_(proxy) {}
  ~DistantClient() override {
    @autoreleasepool {
      static_cast<void>(raisedBy([this] { [static_cast<id>(proxy_) release]; }));
    }
  }
  DistantClient(const DistantClient&) = delete;
  DistantClient& operator=(const DistantClient&) = delete;

  void setProtocol(const std::string& protocolName) override {
    std::optional<Exception> raised;
    @autoreleasepool {
      raised = raisedBy([&] {
        Protocol* const protocol = protocolCalled(protocolName);
        if (protocol == nil) [NSException raise:NSInvalidArgumentException format:@"no such protocol"];
        [proxy_ setProtocolForProxy:protocol];
      });
    }
    throwIfRaised(raised);
  }

  bool respondsToSelector(const std::string& selector) override {
    bool responds = false;
    std::optional<Exception> raised;
    @autoreleasepool {
      SEL wanted = NSSelectorFromString(foundationString(selector));
      raised = raisedBy([&] { responds = [proxy_ respondsToSelector:wanted]; });
    }
    throwIfRaised(raised);
    return responds;
  }

  void send(const std::string& selector, const std::vector<PropertyList>& arguments) override {
    const auto parameters = std::count(selector.begin(), selector.end(), ':');
    if (static_cast<std::size_t>(parameters) != arguments.size()) throw cannotSend(selector);
    std::optional<Exception> raised;
    @autoreleasepool {
      NSInvocation* const invocation = invocationOf(selector, arguments);
      raised =
          invocation == nil ? cannotSend(selector) : raisedBy([&] { [proxy_ forwardInvocation:invocation]; });
    }
    throwIfRaised(raised);
  }

 private:
  static Exception cannotSend(const std::string& selector) {
    return {foundation::kInvalidArgumentException, "the arguments of " + selector + " cannot be sent"};
  }

  id<TGDistantObject> proxy_;  ///< owned
};

/// The class, asked as an object; nil on a system without it.
id<TGConnectionClass> connectionClass() {
  return static_cast<id<TGConnectionClass>>(static_cast<id>(NSClassFromString(@"NSConnection")));
}

/// Owned by the caller; nil where no client answers.
id ownedRootProxy(NSString* registeredName) {
  id proxy = nil;
  const auto raised = raisedBy([&] {
    id<TGConnection> const connection = [connectionClass() connectionWithRegisteredName:registeredName
                                                                                   host:nil];
    [connection setRequestTimeout:kLongestWait];
    [connection setReplyTimeout:kLongestWait];
    proxy = [[connection rootProxy] retain];
  });
  return raised ? nil : proxy;
}

}  // namespace

bool DistributedObjects::areThere() {
  return connectionClass() != nil;
}

std::unique_ptr<ClientProxy> DistributedObjects::rootProxy(const std::string& registeredName) {
  id proxy = nil;
  @autoreleasepool {
    NSString* const name = foundationString(registeredName);
    if ([name length] > 0) proxy = ownedRootProxy(name);
  }
  if (proxy == nil) return nullptr;
  return std::make_unique<DistantClient>(proxy);
}

}  // namespace platform
