#import <Foundation/Foundation.h>

#include <string>
#include <utility>

#include "tests/platform/gnustep/GrowlModule.h"

/// A bridge to Growl for tests: a module that is loaded from a bundle, and writes down what it is called
/// with.
@interface GrowlApplicationBridge : NSObject
+ (void)setGrowlDelegate:(id)delegate;
+ (void)notifyWithTitle:(NSString*)title
            description:(NSString*)description
       notificationName:(NSString*)name
               iconData:(NSData*)iconData
               priority:(int)priority
               isSticky:(BOOL)isSticky
           clickContext:(id)clickContext;
@end

@protocol GrowlDelegate
- (NSDictionary*)registrationDictionaryForGrowl;
- (NSString*)applicationNameForGrowl;
- (void)growlNotificationWasClicked:(id)clickContext;
- (void)growlNotificationTimedOut:(id)clickContext;
@end

namespace {

std::string calls;
id<GrowlDelegate> delegateOfProgram = nil;  ///< not owned, as the bridge's is not
id lastContext = nil;
bool raises = false;

void record(NSString* call) {
  calls += std::string([call UTF8String]) + ([NSThread isMainThread] ? "" : " (elsewhere)") + "\n";
}

}  // namespace

@implementation GrowlApplicationBridge

+ (void)setGrowlDelegate:(id)delegate {
  delegateOfProgram = delegate;
  if (delegate == nil) return record(@"no delegate");
  NSDictionary* const registration = [delegateOfProgram registrationDictionaryForGrowl];
  record([NSString
      stringWithFormat:@"register %@ (%@): %@; on: %@", [delegateOfProgram applicationNameForGrowl],
                       [registration objectForKey:@"ApplicationName"],
                       [[registration objectForKey:@"AllNotifications"] componentsJoinedByString:@","],
                       [[registration objectForKey:@"DefaultNotifications"] componentsJoinedByString:@","]]);
}

+ (void)notifyWithTitle:(NSString*)title
            description:(NSString*)description
       notificationName:(NSString*)name
               iconData:(NSData*)iconData
               priority:(int)priority
               isSticky:(BOOL)isSticky
           clickContext:(id)clickContext {
  if (std::exchange(raises, false))
    [NSException raise:@"NSInternalInconsistencyException" format:@"no Growl"];
  [lastContext release];
  lastContext = [clickContext retain];
  record([NSString stringWithFormat:@"notify %@: %@ name %@ icon %d bytes priority %d sticky %d context %@",
                                    title, description, name, static_cast<int>([iconData length]), priority,
                                    static_cast<int>(isSticky),
                                    [clickContext class] == Nil ? @"none" : @"a date"]);
}

@end

extern "C" {

const char* growlTakeCalls() {
  static std::string taken;
  taken = calls;
  calls.clear();
  return taken.c_str();
}

void growlClick() {
  @autoreleasepool {
    [delegateOfProgram growlNotificationWasClicked:lastContext];
  }
}

void growlTimeOut() {
  @autoreleasepool {
    [delegateOfProgram growlNotificationTimedOut:lastContext];
  }
}

void growlRaise() {
  raises = true;
}

}  // extern "C"
