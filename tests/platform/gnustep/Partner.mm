#import <Foundation/Foundation.h>

#include <cstdio>
#include <cstring>

/// Whom the tests talk to: "client NAME" implements every message of a controlling client, "basic NAME" those
/// of the protocol alone, "deaf NAME" is registered and answers nobody, "listener NAME" hears a distributed
/// notification. Says "ready" when it can be talked to, then one line for each thing it hears.

namespace {

void say(NSString* line) {
  std::printf("%s\n", [line UTF8String]);
  std::fflush(stdout);
}

/// In one line, with the keys in order.
NSString* described(id object) {
  if ([object isProxy]) return @"a proxy";
  if ([object isKindOfClass:[NSNumber class]])
    return [NSString stringWithFormat:@"%s %@", [object objCType], object];
  if ([object isKindOfClass:[NSDate class]]) {
    return [NSString stringWithFormat:@"date %.3f", [object timeIntervalSinceReferenceDate]];
  }
  if ([object isKindOfClass:[NSArray class]]) {
    NSMutableArray* const parts = [NSMutableArray array];
    for (id element in object) [parts addObject:described(element)];
    return [NSString stringWithFormat:@"(%@)", [parts componentsJoinedByString:@", "]];
  }
  if (![object isKindOfClass:[NSDictionary class]]) return [object description];
  NSMutableArray* const parts = [NSMutableArray array];
  for (id key in [[object allKeys] sortedArrayUsingSelector:@selector(compare:)]) {
    [parts addObject:[NSString stringWithFormat:@"%@ = %@", key, described([object objectForKey:key])]];
  }
  return [NSString stringWithFormat:@"{%@}", [parts componentsJoinedByString:@"; "]];
}

}  // namespace

@interface BasicClient : NSObject
- (oneway void)postDisconnect;
- (oneway void)postErrorString:(NSString*)message;
- (oneway void)postError:(id)error;
- (oneway void)postFinishedTask;
- (oneway void)incrementRemoteProgress;
@end

@implementation BasicClient
- (oneway void)postDisconnect {
  say(@"postDisconnect");
}
- (oneway void)postErrorString:(NSString*)message {
  say([@"postErrorString: " stringByAppendingString:message]);
}
- (oneway void)postError:(id)error {
  say([@"postError: " stringByAppendingString:described(error)]);
}
- (oneway void)postFinishedTask {
  say(@"postFinishedTask");
}
- (oneway void)incrementRemoteProgress {
  say(@"incrementRemoteProgress");
}
@end

@interface Client : BasicClient
- (void)postErrorString:(NSString*)message userInfo:(NSDictionary*)userInfo;
- (void)postError:(id)error forApp:(NSString*)application;
- (void)takeYourTime;
@end

@implementation Client
- (void)postErrorString:(NSString*)message userInfo:(NSDictionary*)userInfo {
  say([NSString stringWithFormat:@"postErrorString:userInfo: %@ %@", message, described(userInfo)]);
}
- (void)postError:(id)error forApp:(NSString*)application {
  say([NSString stringWithFormat:@"postError:forApp: %@ %@", described(error), application]);
}
/// Who waits for it waits long.
- (void)takeYourTime {
  [NSThread sleepForTimeInterval:1.5];
  say(@"takeYourTime");
}
@end

@interface Listener : NSObject
- (void)hear:(NSNotification*)notification;
@end

@implementation Listener
- (void)hear:(NSNotification*)notification {
  say([NSString stringWithFormat:@"%@ object %@ %@", [notification name], [notification object],
                                 described([notification userInfo])]);
}
@end

namespace {

constexpr NSTimeInterval kPatience = 20;

/// GNUstep's processes lock the list of names against each other and give up after a moment, which on a busy
/// computer may be too short for the other: then it is tried again.
void patiently(void (*work)(NSString*, id), NSString* name, id object) {
  NSDate* const end = [NSDate dateWithTimeIntervalSinceNow:kPatience];
  while (true) {
    @try {
      return work(name, object);
    } @catch (NSException* exception) {
      if ([end timeIntervalSinceNow] < 0) @throw;
      [NSThread sleepForTimeInterval:0.1];
    }
  }
}

void becomeClient(NSString* name, id object) {
  NSConnection* const connection = [[NSConnection alloc] init];
  [connection setRootObject:object];
  say([connection registerName:name] ? @"ready" : @"the name is taken");
}

void becomeListener(NSString* name, id listener) {
  [[NSDistributedNotificationCenter defaultCenter]
             addObserver:listener
                selector:@selector(hear:)
                    name:name
                  object:nil
      suspensionBehavior:NSNotificationSuspensionBehaviorDeliverImmediately];
  say(@"ready");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 64;
  @autoreleasepool {
    NSString* const role = [NSString stringWithUTF8String:argv[1]];
    NSString* const name = [NSString stringWithUTF8String:argv[2]];
    if ([role isEqual:@"client"]) patiently(becomeClient, name, [[Client alloc] init]);
    if ([role isEqual:@"basic"] || [role isEqual:@"deaf"])
      patiently(becomeClient, name, [[BasicClient alloc] init]);
    if ([role isEqual:@"listener"]) patiently(becomeListener, name, [[Listener alloc] init]);
    if ([role isEqual:@"deaf"]) [NSThread sleepForTimeInterval:60];
    [[NSRunLoop currentRunLoop] run];
  }
  return 0;
}
