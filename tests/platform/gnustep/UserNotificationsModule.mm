#include "tests/platform/gnustep/UserNotificationsModule.h"

#import <Foundation/Foundation.h>

#include <string>

// A block as the compiler lays it out where blocks are not to be had: its function comes after three words.
using Block = void*;

namespace {

template <typename... Arguments>
void callBlock(Block block, Arguments... arguments) {
  struct Layout {
    void* isa;
    int flags;
    int reserved;
    void (*invoke)(Block, Arguments...);
  };
  static_cast<Layout*>(block)->invoke(block, arguments...);
}

std::string calls;
CenterBehaviour behaviour = CenterBehaviour::grants;
Block waiting = nullptr;
id lastRequest = nil;
id delegateOfProgram = nil;  ///< not owned, as the centre's is not

void record(NSString* call) {
  calls += std::string([call UTF8String]) + "\n";
}

}  // namespace

@interface UNMutableNotificationContent : NSObject {
  NSString* title_;
  NSString* body_;
  NSString* category_;
  NSDictionary* userInfo_;
  NSNumber* level_;
}
@end

@implementation UNMutableNotificationContent
- (void)dealloc {
  [title_ release];
  [body_ release];
  [category_ release];
  [userInfo_ release];
  [level_ release];
  [super dealloc];
}
- (void)setTitle:(NSString*)title {
  title_ = [title copy];
}
- (void)setBody:(NSString*)body {
  body_ = [body copy];
}
- (void)setCategoryIdentifier:(NSString*)identifier {
  category_ = [identifier copy];
}
- (void)setUserInfo:(NSDictionary*)userInfo {
  userInfo_ = [userInfo copy];
}
- (void)setInterruptionLevel:(NSUInteger)level {
  level_ = [[NSNumber alloc] initWithUnsignedLong:level];
}
- (NSDictionary*)userInfo {
  return userInfo_;
}
- (NSString*)description {
  return [NSString stringWithFormat:@"%@: %@ category %@ level %@", title_, body_, category_,
                                    level_ == nil ? @"none" : [level_ description]];
}
@end

@interface UNNotificationRequest : NSObject {
  id content_;
}
@end

@implementation UNNotificationRequest
+ (id)requestWithIdentifier:(NSString*)identifier content:(id)content trigger:(id)trigger {
  if ([identifier length] == 0 || trigger != nil) return nil;
  UNNotificationRequest* const request = [[[self alloc] init] autorelease];
  request->content_ = [content retain];
  return request;
}
- (void)dealloc {
  [content_ release];
  [super dealloc];
}
- (id)content {
  return content_;
}
@end

@interface UNNotificationCategory : NSObject
@end

@implementation UNNotificationCategory
+ (id)categoryWithIdentifier:(NSString*)identifier
                     actions:(NSArray*)actions
           intentIdentifiers:(NSArray*)intentIdentifiers
                     options:(NSUInteger)options {
  if ([actions count] + [intentIdentifiers count] > 0) return nil;
  return
      [NSString stringWithFormat:@"category %@ options %lu", identifier, static_cast<unsigned long>(options)];
}
@end

/// What the delegate is told of: the request of a notification, and what the user did.
@interface Response : NSObject {
  NSString* action_;
}
- (id)initWithAction:(NSString*)action;
@end

@implementation Response
- (id)initWithAction:(NSString*)action {
  self = [super init];
  if (self != nil) action_ = [action copy];
  return self;
}
- (void)dealloc {
  [action_ release];
  [super dealloc];
}
- (id)notification {
  return self;
}
- (id)request {
  return lastRequest;
}
- (NSString*)actionIdentifier {
  return action_;
}
@end

@interface UNUserNotificationCenter : NSObject
@end

@implementation UNUserNotificationCenter
+ (id)currentNotificationCenter {
  if (behaviour == CenterBehaviour::raises) {
    [NSException raise:@"NSInternalInconsistencyException" format:@"bundleProxyForCurrentProcess is nil"];
  }
  static id const only = [[self alloc] init];
  return only;
}
- (void)setDelegate:(id)delegate {
  delegateOfProgram = delegate;
  if (delegate != nil) record(@"delegate");
}
- (void)setNotificationCategories:(NSSet*)categories {
  record([categories anyObject]);
}
- (void)requestAuthorizationWithOptions:(NSUInteger)options completionHandler:(Block)handler {
  record([NSString stringWithFormat:@"authorize %lu", static_cast<unsigned long>(options)]);
  waiting = handler;
  if (behaviour == CenterBehaviour::waits) return;
  callBlock(handler, static_cast<BOOL>(behaviour == CenterBehaviour::grants), static_cast<NSError*>(nil));
}
- (void)addNotificationRequest:(id)request withCompletionHandler:(Block)handler {
  [lastRequest release];
  lastRequest = [request retain];
  record([@"add " stringByAppendingString:[[request content] description]]);
  callBlock(handler, static_cast<NSError*>(nil));
}
@end

@protocol Delegate
- (void)userNotificationCenter:(id)center
    didReceiveNotificationResponse:(id)response
             withCompletionHandler:(Block)handler;
@end

namespace {

bool wasCompleted = false;

struct GlobalBlock {
  void* isa;
  int flags;
  int reserved;
  void (*invoke)(Block);
};
GlobalBlock completion = {nullptr, 1 << 28, 0, [](Block) { wasCompleted = true; }};

}  // namespace

extern "C" {

void centerReset() {
  calls.clear();
  behaviour = CenterBehaviour::grants;
}

void centerSet(CenterBehaviour wanted) {
  behaviour = wanted;
}

void centerAllow() {
  behaviour = CenterBehaviour::grants;
  callBlock(waiting, static_cast<BOOL>(YES), static_cast<NSError*>(nil));
}

const char* centerTakeCalls() {
  static std::string taken;
  taken = calls;
  calls.clear();
  return taken.c_str();
}

void centerRespond(const char* action) {
  @autoreleasepool {
    wasCompleted = false;
    Response* const response =
        [[[Response alloc] initWithAction:[NSString stringWithUTF8String:action]] autorelease];
    [delegateOfProgram userNotificationCenter:nil
               didReceiveNotificationResponse:response
                        withCompletionHandler:&completion];
    if (!wasCompleted) calls += "the handler was not called\n";
  }
}

}  // extern "C"
