#include "platform/macos/GrowlBridge.h"

#include <dlfcn.h>

#include "platform/Platform.h"
#include "platform/macos/DesktopNotificationListener.h"
#include "platform/macos/FoundationValues.h"

/// The part of GrowlApplicationBridge's class that is used.
@protocol TGGrowlApplicationBridge
- (void)setGrowlDelegate:(id)delegate;
- (void)notifyWithTitle:(NSString*)title
            description:(NSString*)description
       notificationName:(NSString*)name
               iconData:(NSData*)iconData
               priority:(int)priority
               isSticky:(BOOL)isSticky
           clickContext:(id)clickContext;
@end

namespace {

std::optional<foundation::Date> dateOf(id clickContext) {
  const auto value = platform::propertyListOf(clickContext);
  const auto* const date = value ? value->as<foundation::Date>() : nullptr;
  return date == nullptr ? std::nullopt : std::optional(*date);
}

}  // namespace

/// Growl's delegate.
@interface TGGrowlListener : NSObject {
  const platform::DesktopNotificationListener* listener_;
  NSMutableSet* names_;
}
- (id)initWithListener:(const platform::DesktopNotificationListener*)listener;
- (BOOL)addName:(NSString*)name;
- (NSDictionary*)registrationDictionaryForGrowl;
- (NSString*)applicationNameForGrowl;
- (void)growlNotificationWasClicked:(id)clickContext;
- (void)growlNotificationTimedOut:(id)clickContext;
@end

@implementation TGGrowlListener

- (id)initWithListener:(const platform::DesktopNotificationListener*)listener {
  self = [super init];
  if (self != nil) {
    listener_ = listener;
    names_ = [[NSMutableSet alloc] init];
  }
  return self;
}

- (void)dealloc {
  [names_ release];
  [super dealloc];
}

- (BOOL)addName:(NSString*)name {
  if ([names_ containsObject:name]) return NO;
  [names_ addObject:name];
  return YES;
}

- (NSDictionary*)registrationDictionaryForGrowl {
  NSArray* const names = [names_ allObjects];
  return [NSDictionary dictionaryWithObjectsAndKeys:[self applicationNameForGrowl], @"ApplicationName", names,
                                                    @"AllNotifications", names, @"DefaultNotifications", nil];
}

- (NSString*)applicationNameForGrowl {
  return @"Quillmend";
}

- (void)growlNotificationWasClicked:(id)clickContext {
  listener_->wasClicked(dateOf(clickContext));
}

- (void)growlNotificationTimedOut:(id)clickContext {
  listener_->timedOut(dateOf(clickContext));
}

@end

namespace platform {
namespace {

id<TGGrowlApplicationBridge> bridge() {
  return static_cast<id<TGGrowlApplicationBridge>>(
      static_cast<id>(NSClassFromString(@"GrowlApplicationBridge")));
}

NSData* dataOf(const std::optional<std::string>& bytes) {
  return bytes ? [NSData dataWithBytes:bytes->data() length:bytes->size()] : nil;
}

}  // namespace

/// The delegate that the bridge knows. Main thread only, but for the listener.
class GrowlBridge::Registration {
 public:
  Registration() : delegate_([[TGGrowlListener alloc] initWithListener:&listener]) {}
  ~Registration() {
    @autoreleasepool {
      if (isRegistered_) static_cast<void>(raisedBy([] { [bridge() setGrowlDelegate:nil]; }));
      [delegate_ release];
    }
  }
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;

  void notify(const DesktopNotification& notification) {
    @autoreleasepool {
      NSString* const title = foundationString(notification.title);
      NSString* const description = foundationString(notification.description);
      NSString* const name = foundationString(notification.name);
      if (title == nil || description == nil || name == nil) return;
      static_cast<void>(raisedBy([&] {
        registerName(name);
        [bridge()
             notifyWithTitle:title
                 description:description
            notificationName:name
                    iconData:dataOf(notification.iconData)
                    priority:notification.priority
                    isSticky:notification.isSticky
                clickContext:notification.clickContext ? foundationObject(*notification.clickContext) : nil];
      }));
    }
  }

  DesktopNotificationListener listener;

 private:
  /// Growl reads the names when it is given its delegate.
  void registerName(NSString* name) {
    if (![delegate_ addName:name]) return;
    isRegistered_ = true;
    [bridge() setGrowlDelegate:delegate_];
  }

  TGGrowlListener* delegate_;  ///< owned
  bool isRegistered_ = false;
};

GrowlBridge::GrowlBridge() : registration_(std::make_shared<Registration>()) {}
GrowlBridge::~GrowlBridge() = default;

bool GrowlBridge::isThere() {
  const std::string program = current().mainBundle.path() + "/Contents/Frameworks/Growl.framework/Growl";
  @autoreleasepool {
    return ::dlopen(program.c_str(), RTLD_NOW | RTLD_LOCAL) != nullptr && bridge() != nil;
  }
}

void GrowlBridge::setDelegate(DesktopNotificationDelegate* delegate) {
  registration_->listener.setDelegate(delegate);
}

void GrowlBridge::post(const DesktopNotification& notification) {
  MainThread& mainThread = current().mainThread;
  if (mainThread.isCurrent()) return registration_->notify(notification);
  mainThread.perform([registration = registration_, notification] { registration->notify(notification); },
                     Wait::no);
}

}  // namespace platform
