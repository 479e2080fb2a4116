#include "platform/macos/AppKitWorkspace.h"

#import <AppKit/AppKit.h>

#include <cerrno>

#include "platform/foundation/Paths.h"
#include "platform/macos/ConsoleSession.h"
#include "platform/macos/FoundationValues.h"

// Used as long as a system has them.
#pragma clang diagnostic ignored "-Wdeprecated-declarations"

/// Recycling by NSFileManager, since 10.8.
@protocol TGRecyclingFileManager
- (BOOL)trashItemAtURL:(NSURL*)url resultingItemURL:(NSURL**)resultingURL error:(NSError**)error;
@end

namespace platform {
namespace {

/// Of NSWorkspaceRecycleOperation: a program that names a variable does not start on a system without it.
NSString* const kRecycleOperation = @"recycle";

/// False where the work raises an exception.
bool isDone(const std::function<bool()>& work) {
  bool done = false;
  const auto raised = raisedBy([&] { done = work(); });
  return done && !raised;
}

bool openByWorkspace(NSString* path) {
  NSWorkspace* const workspace = [NSWorkspace sharedWorkspace];
  if ([workspace respondsToSelector:@selector(openFile:)]) return [workspace openFile:path];
  return [workspace openURL:[NSURL fileURLWithPath:path]];
}

bool openByWorkspace(NSString* path, NSString* application) {
  NSWorkspace* const workspace = [NSWorkspace sharedWorkspace];
  if ([workspace respondsToSelector:@selector(openFile:withApplication:)]) {
    return [workspace openFile:path withApplication:application];
  }
  return startForUser({"/usr/bin/open", "-a", textOf(application), textOf(path)});
}

bool recycleByWorkspace(NSString* sourceFolder, NSString* trashFolder, NSString* name) {
  NSInteger tag = 0;
  return [[NSWorkspace sharedWorkspace] performFileOperation:kRecycleOperation
                                                      source:sourceFolder
                                                 destination:trashFolder
                                                       files:[NSArray arrayWithObject:name]
                                                         tag:&tag] &&
         tag >= 0;
}

bool recycleByFileManager(NSString* path) {
  id<TGRecyclingFileManager> const files =
      static_cast<id<TGRecyclingFileManager>>(static_cast<id>([NSFileManager defaultManager]));
  return [files trashItemAtURL:[NSURL fileURLWithPath:path] resultingItemURL:nullptr error:nullptr];
}

bool recycleOne(const std::string& sourceFolder, const std::string& trashFolder, const std::string& name) {
  NSString* const source = foundationString(sourceFolder);
  NSString* const item = foundationString(name);
  if (source == nil || [item length] == 0) return false;
  SEL operation = @selector(performFileOperation:source:destination:files:tag:);
  if ([[NSWorkspace sharedWorkspace] respondsToSelector:operation]) {
    return recycleByWorkspace(source, foundationString(trashFolder), item);
  }
  return recycleByFileManager([source stringByAppendingPathComponent:item]);
}

}  // namespace

bool AppKitWorkspace::openFile(const std::string& path) {
  @autoreleasepool {
    NSString* const file = foundationString(path);
    return file != nil && isDone([&] { return openByWorkspace(file); });
  }
}

bool AppKitWorkspace::openFile(const std::string& path, const std::string& application) {
  @autoreleasepool {
    NSString* const file = foundationString(path);
    NSString* const opener = foundationString(application);
    return file != nil && opener != nil && isDone([&] { return openByWorkspace(file, opener); });
  }
}

bool AppKitWorkspace::openURL(const std::string& address) {
  @autoreleasepool {
    NSString* const text = foundationString(address);
    if (text == nil) return false;
    return isDone([&] {
      NSURL* const url = [NSURL URLWithString:text];
      return url != nil && [[NSWorkspace sharedWorkspace] openURL:url];
    });
  }
}

foundation::Result<void> AppKitWorkspace::recycle(const std::string& sourceFolder,
                                                  const std::string& trashFolder,
                                                  const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    const std::string path = foundation::appendingPathComponent(sourceFolder, name);
    if (!foundation::isItemName(name)) return foundation::systemError(EINVAL, path);
    @autoreleasepool {
      // One at a time: of several the system does not say which failed.
      if (!isDone([&] { return recycleOne(sourceFolder, trashFolder, name); })) {
        return foundation::systemError(EIO, path);
      }
    }
  }
  return {};
}

bool AppKitWorkspace::isFilePackage(const std::string& path) {
  @autoreleasepool {
    NSString* const folder = foundationString(path);
    return folder != nil &&
           isDone([&] { return [[NSWorkspace sharedWorkspace] isFilePackageAtPath:folder]; });
  }
}

}  // namespace platform
