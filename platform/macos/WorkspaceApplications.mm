#include "platform/macos/WorkspaceApplications.h"

#import <AppKit/AppKit.h>

#include "platform/macos/FoundationValues.h"

// Used as long as a system has them.
#pragma clang diagnostic ignored "-Wdeprecated-declarations"

/// What NSWorkspace has since 10.6.
@protocol TGRunningApplication
- (NSString*)bundleIdentifier;
- (pid_t)processIdentifier;
@end
@protocol TGWorkspaceOfToday
- (NSArray*)runningApplications;
- (NSURL*)URLForApplicationWithBundleIdentifier:(NSString*)identifier;
@end

namespace platform {
namespace {

id<TGWorkspaceOfToday> workspaceOfToday() {
  return static_cast<id<TGWorkspaceOfToday>>(static_cast<id>([NSWorkspace sharedWorkspace]));
}

bool workspaceHas(SEL selector) {
  return [[NSWorkspace sharedWorkspace] respondsToSelector:selector];
}

NSString* pathOfApplication(NSString* identifier) {
  if (workspaceHas(@selector(absolutePathForAppBundleWithIdentifier:))) {
    return [[NSWorkspace sharedWorkspace] absolutePathForAppBundleWithIdentifier:identifier];
  }
  return [[workspaceOfToday() URLForApplicationWithBundleIdentifier:identifier] path];
}

void serveRunLoop() {
  if ([NSThread isMainThread]) {
    [[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode beforeDate:[NSDate date]];
  }
}

std::vector<RunningApplication> runningApplications() {
  std::vector<RunningApplication> running;
  if (!workspaceHas(@selector(runningApplications))) return running;
  for (id<TGRunningApplication> application in [workspaceOfToday() runningApplications]) {
    running.push_back({textOf([application bundleIdentifier]), [application processIdentifier]});
  }
  return running;
}

/// Those in the Dock.
std::vector<RunningApplication> launchedApplications() {
  std::vector<RunningApplication> launched;
  for (NSDictionary* application in [[NSWorkspace sharedWorkspace] launchedApplications]) {
    launched.push_back({textOf([application objectForKey:@"NSApplicationBundleIdentifier"]),
                        [[application objectForKey:@"NSApplicationProcessIdentifier"] intValue]});
  }
  return launched;
}

}  // namespace

std::optional<std::string> workspacePathForIdentifier(const std::string& identifier) {
  std::string path;
  @autoreleasepool {
    NSString* const wanted = foundationString(identifier);
    if ([wanted length] == 0) return std::nullopt;
    if (raisedBy([&] { path = textOf(pathOfApplication(wanted)); })) return std::nullopt;
  }
  if (path.empty()) return std::nullopt;
  return path;
}

std::optional<std::string> identifierOfBundle(const std::string& path) {
  std::string identifier;
  @autoreleasepool {
    NSString* const folder = foundationString(path);
    if ([folder length] == 0) return std::nullopt;
    identifier = textOf([[NSBundle bundleWithPath:folder] bundleIdentifier]);
  }
  if (identifier.empty()) return std::nullopt;
  return identifier;
}

std::vector<RunningApplication> workspaceRunningApplications() {
  std::vector<RunningApplication> applications;
  @autoreleasepool {
    const auto raised = raisedBy([&] {
      serveRunLoop();
      if (workspaceHas(@selector(launchedApplications))) applications = launchedApplications();
      // None at all is what a system answers that only keeps the name: the Finder always runs.
      if (applications.empty()) applications = runningApplications();
    });
    if (raised) return {};
  }
  return applications;
}

}  // namespace platform
