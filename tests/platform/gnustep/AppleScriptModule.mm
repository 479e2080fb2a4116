#include "tests/platform/gnustep/AppleScriptModule.h"

#import <Foundation/Foundation.h>

#include <string>
#include <utility>

/// What GNUstep's class lacks: scripts that are written down rather than run.
@interface NSAppleScript (Recorded)
- (id)initWithSource:(NSString*)source;
- (id)executeAndReturnError:(NSDictionary**)errorInfo;
@end

namespace {

std::string source;
std::string run;
bool fails = false;

}  // namespace

@implementation NSAppleScript (Recorded)

- (id)initWithSource:(NSString*)text {
  self = [self init];
  source = [text UTF8String];
  return self;
}

- (id)executeAndReturnError:(NSDictionary**)errorInfo {
  run += source + ([NSThread isMainThread] ? "" : " (elsewhere)");
  if (!fails) return self;
  *errorInfo = [NSDictionary
      dictionaryWithObjectsAndKeys:@"Application isn\u2019t running.", @"NSAppleScriptErrorMessage",
                                   [NSNumber numberWithInt:-600], @"NSAppleScriptErrorNumber",
                                   [NSValue valueWithRange:NSMakeRange(1, 2)], @"NSAppleScriptErrorRange",
                                   nil];
  return nil;
}

@end

extern "C" {

const char* scriptTakeRun() {
  static std::string taken;
  taken = std::exchange(run, {});
  return taken.c_str();
}

void scriptFail() {
  fails = true;
}

}  // extern "C"
