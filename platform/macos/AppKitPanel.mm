#include "platform/macos/AppKitPanel.h"

#import <AppKit/AppKit.h>

#include "platform/macos/FoundationValues.h"

namespace platform {

bool runAppKitPanel(const std::string& title, const std::string& message) {
  @autoreleasepool {
    NSString* const messageText = foundationString(title);
    NSString* const informativeText = foundationString(message);
    if (![NSApp isRunning] || messageText == nil || informativeText == nil) return false;
    // Without a button of ours the panel has its default one.
    NSAlert* const alert = [[[NSAlert alloc] init] autorelease];
    [alert setMessageText:messageText];
    [alert setInformativeText:informativeText];
    [alert runModal];
  }
  return true;
}

}  // namespace platform
