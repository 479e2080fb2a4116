#include "platform/macos/UserNotifications.h"

#import <Foundation/Foundation.h>
#include <dlfcn.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/macos/DesktopNotificationListener.h"
#include "platform/macos/FoundationValues.h"

using AuthorizationHandler = void (^)(BOOL granted, NSError* error);
using AddingHandler = void (^)(NSError* error);
using PresentationHandler = void (^)(NSUInteger options);
using ResponseHandler = void (^)();

/// The part of the User Notifications that is used, by its selectors alone.
@protocol TGNotificationCenter
- (void)setDelegate:(id)delegate;
- (void)setNotificationCategories:(NSSet*)categories;
- (void)requestAuthorizationWithOptions:(NSUInteger)options completionHandler:(AuthorizationHandler)handler;
- (void)addNotificationRequest:(id)request withCompletionHandler:(AddingHandler)handler;
@end
@protocol TGNotificationCenterClass
- (id<TGNotificationCenter>)currentNotificationCenter;
@end
@protocol TGNotificationContent
- (void)setTitle:(NSString*)title;
- (void)setBody:(NSString*)body;
- (void)setCategoryIdentifier:(NSString*)identifier;
- (void)setUserInfo:(NSDictionary*)userInfo;
- (void)setInterruptionLevel:(NSUInteger)level;
- (NSDictionary*)userInfo;
@end
@protocol TGNotificationRequestClass
- (id)requestWithIdentifier:(NSString*)identifier content:(id)content trigger:(id)trigger;
@end
@protocol TGNotificationRequest
- (id<TGNotificationContent>)content;
@end
@protocol TGDeliveredNotification
- (id<TGNotificationRequest>)request;
@end
@protocol TGNotificationResponse
- (id<TGDeliveredNotification>)notification;
- (NSString*)actionIdentifier;
@end
@protocol TGNotificationCategoryClass
- (id)categoryWithIdentifier:(NSString*)identifier
                     actions:(NSArray*)actions
           intentIdentifiers:(NSArray*)intentIdentifiers
                     options:(NSUInteger)options;
@end

namespace {

// Values and identifiers as Apple documents them: a variable that is named must be there when a program
// starts.
constexpr NSUInteger kAuthorizationForAlerts = 1 << 2;
constexpr NSUInteger kCategoryTellsOfDismissal = 1 << 0;
constexpr NSUInteger kPresentInListAndBanner = (1 << 3) | (1 << 4);
constexpr NSUInteger kInterruptionPassive = 0;
NSString* const kDefaultAction = @"com.apple.UNNotificationDefaultActionIdentifier";
NSString* const kDismissAction = @"com.apple.UNNotificationDismissActionIdentifier";

NSString* const kCategory = @"TGNotification";
NSString* const kClickContext = @"clickContext";

constexpr std::chrono::seconds kLongestWait{1};

std::optional<foundation::Date> contextIn(NSDictionary* userInfo) {
  const auto value = platform::propertyListOf([userInfo objectForKey:kClickContext]);
  const auto* const date = value ? value->as<foundation::Date>() : nullptr;
  return date == nullptr ? std::nullopt : std::optional(*date);
}

}  // namespace

/// The centre's delegate.
@interface TGNotificationListener : NSObject {
  const platform::DesktopNotificationListener* listener_;
}
- (id)initWithListener:(const platform::DesktopNotificationListener*)listener;
- (void)userNotificationCenter:(id)center
       willPresentNotification:(id)notification
         withCompletionHandler:(PresentationHandler)handler;
- (void)userNotificationCenter:(id)center
    didReceiveNotificationResponse:(id<TGNotificationResponse>)response
             withCompletionHandler:(ResponseHandler)handler;
@end

@implementation TGNotificationListener

- (id)initWithListener:(const platform::DesktopNotificationListener*)listener {
  self = [super init];
  if (self != nil) listener_ = listener;
  return self;
}

/// Shown also while the program's own window is in front.
- (void)userNotificationCenter:(id)center
       willPresentNotification:(id)notification
         withCompletionHandler:(PresentationHandler)handler {
  handler(kPresentInListAndBanner);
}

- (void)userNotificationCenter:(id)center
    didReceiveNotificationResponse:(id<TGNotificationResponse>)response
             withCompletionHandler:(ResponseHandler)handler {
  const auto context = contextIn([[[[response notification] request] content] userInfo]);
  if ([[response actionIdentifier] isEqual:kDefaultAction]) listener_->wasClicked(context);
  if ([[response actionIdentifier] isEqual:kDismissAction]) listener_->timedOut(context);
  handler();
}

@end

namespace platform {
namespace {

/// A class of the framework's, asked as an object; nil on a system without it.
id classCalled(NSString* name) {
  // Loaded once; later calls find it.
  static_cast<void>(::dlopen("/System/Library/Frameworks/UserNotifications.framework/UserNotifications",
                             RTLD_LAZY | RTLD_GLOBAL));
  return static_cast<id>(NSClassFromString(name));
}

id<TGNotificationCenter> currentCenter() {
  return [static_cast<id<TGNotificationCenterClass>>(classCalled(@"UNUserNotificationCenter"))
      currentNotificationCenter];
}

/// nil for text that is not UTF-8.
id contentOf(const DesktopNotification& notification) {
  NSString* const title = foundationString(notification.title);
  NSString* const body = foundationString(notification.description);
  if (title == nil || body == nil) return nil;
  const id made = [[[classCalled(@"UNMutableNotificationContent") alloc] init] autorelease];
  id<TGNotificationContent> const content = static_cast<id<TGNotificationContent>>(made);
  [content setTitle:title];
  [content setBody:body];
  [content setCategoryIdentifier:kCategory];
  if (notification.clickContext) {
    [content setUserInfo:[NSDictionary dictionaryWithObject:foundationObject(*notification.clickContext)
                                                     forKey:kClickContext]];
  }
  if (notification.priority < 0 && [made respondsToSelector:@selector(setInterruptionLevel:)]) {
    [content setInterruptionLevel:kInterruptionPassive];
  }
  return made;
}

id requestFor(const DesktopNotification& notification) {
  const id content = contentOf(notification);
  if (content == nil) return nil;
  return [static_cast<id<TGNotificationRequestClass>>(classCalled(@"UNNotificationRequest"))
      requestWithIdentifier:[[NSProcessInfo processInfo] globallyUniqueString]
                    content:content
                    trigger:nil];
}

NSSet* categories() {
  return [NSSet
      setWithObject:[static_cast<id<TGNotificationCategoryClass>>(classCalled(@"UNNotificationCategory"))
                        categoryWithIdentifier:kCategory
                                       actions:[NSArray array]
                             intentIdentifiers:[NSArray array]
                                       options:kCategoryTellsOfDismissal]];
}

/// Notifications on their way to the centre. The centre's handlers have nobody but the process to call: a
/// block that holds an object would need the object to outlive it, and this lives as long as the process.
class Outbox {
 public:
  static Outbox& only() {
    static auto& outbox = *new Outbox;
    return outbox;
  }

  /// Takes the request, and waits for the system to have it.
  void post(id request) {
    add(request);
    [currentCenter() requestAuthorizationWithOptions:kAuthorizationForAlerts
                                   completionHandler:^(BOOL granted, NSError*) {
                                     Outbox::only().authorizationWasDecided(granted);
                                   }];
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, kLongestWait, [this] { return underWay_ == 0; });
  }

 private:
  void add(id request) {
    const std::scoped_lock lock(mutex_);
    waiting_.push_back([request retain]);
    ++underWay_;
  }

  std::vector<id> takeWaiting() {
    const std::scoped_lock lock(mutex_);
    return std::exchange(waiting_, {});
  }

  void authorizationWasDecided(bool granted) {
    @autoreleasepool {
      for (const id request : takeWaiting()) {
        if (granted) {
          deliver(request);
        } else {
          hasArrived();
        }
        [request release];
      }
    }
  }

  void deliver(id request) {
    const auto raised = raisedBy([&] {
      [currentCenter() addNotificationRequest:request
                        withCompletionHandler:^(NSError*) {
                          Outbox::only().hasArrived();
                        }];
    });
    if (raised) hasArrived();
  }

  void hasArrived() {
    const std::scoped_lock lock(mutex_);
    --underWay_;
    changed_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<id> waiting_;  ///< owned
  int underWay_ = 0;
};

}  // namespace

/// What the centre knows of this process.
class UserNotifications::Center {
 public:
  Center() : delegate_([[TGNotificationListener alloc] initWithListener:&listener]) {}
  ~Center() {
    @autoreleasepool {
      if (isSet_) static_cast<void>(raisedBy([] { [currentCenter() setDelegate:nil]; }));
      [delegate_ release];
    }
  }
  Center(const Center&) = delete;
  Center& operator=(const Center&) = delete;

  void post(const DesktopNotification& notification) {
    @autoreleasepool {
      static_cast<void>(raisedBy([&] {
        const id request = requestFor(notification);
        if (request == nil || currentCenter() == nil) return;
        introduce();
        Outbox::only().post(request);
      }));
    }
  }

  DesktopNotificationListener listener;

 private:
  void introduce() {
    const std::scoped_lock lock(mutex_);
    if (isSet_) return;
    [currentCenter() setDelegate:delegate_];
    [currentCenter() setNotificationCategories:categories()];
    isSet_ = true;
  }

  TGNotificationListener* delegate_;  ///< owned; the centre does not hold it
  std::mutex mutex_;
  bool isSet_ = false;
};

UserNotifications::UserNotifications() : center_(std::make_unique<Center>()) {}
UserNotifications::~UserNotifications() = default;

bool UserNotifications::isThere() {
  @autoreleasepool {
    return classCalled(@"UNUserNotificationCenter") != nil;
  }
}

void UserNotifications::setDelegate(DesktopNotificationDelegate* delegate) {
  center_->listener.setDelegate(delegate);
}

void UserNotifications::post(const DesktopNotification& notification) {
  center_->post(notification);
}

}  // namespace platform
