#include "tests/platform/gnustep/Desktop.h"

#import <AppKit/AppKit.h>

@interface DesktopWork : NSObject {
  std::function<void()>* work_;
}
- (id)initWithWork:(std::function<void()>)work;
- (void)perform;
@end

@implementation DesktopWork
- (id)initWithWork:(std::function<void()>)work {
  self = [super init];
  if (self != nil) work_ = new std::function<void()>(std::move(work));
  return self;
}
- (void)dealloc {
  delete work_;
  [super dealloc];
}
- (void)perform {
  (*work_)();
}
@end

namespace gnustep {
namespace {

/// A loop sees that it is to end when it has handled an event.
void wakeLoop() {
  [NSApp postEvent:[NSEvent otherEventWithType:NSApplicationDefined
                                      location:NSZeroPoint
                                 modifierFlags:0
                                     timestamp:0
                                  windowNumber:0
                                       context:nil
                                       subtype:0
                                         data1:0
                                         data2:0]
           atStart:YES];
}

void performSoon(std::function<void()> work, NSString* mode) {
  DesktopWork* const soon = [[[DesktopWork alloc] initWithWork:std::move(work)] autorelease];
  [soon performSelector:@selector(perform)
             withObject:nil
             afterDelay:0.05
                inModes:[NSArray arrayWithObject:mode]];
}

/// nil for every view that is not pressed by the Return key.
NSButton* withDefaultKey(NSView* view) {
  if (![view isKindOfClass:[NSButton class]]) return nil;
  NSButton* const button = static_cast<NSButton*>(view);
  return [[button keyEquivalent] isEqual:@"\r"] ? button : nil;
}

NSButton* defaultButton(NSView* view) {
  NSButton* found = withDefaultKey(view);
  for (NSView* child in [view subviews]) found = found == nil ? defaultButton(child) : found;
  return found;
}

void describe(NSView* view, std::string& texts, std::string& buttons) {
  for (NSView* child in [view subviews]) describe(child, texts, buttons);
  if ([view isHidden]) return;
  if ([view isKindOfClass:[NSButton class]]) {
    if (NSButton* const button = withDefaultKey(view))
      buttons += std::string("[") + [[button title] UTF8String] + "]";
  } else if ([view isKindOfClass:[NSTextField class]]) {
    NSString* const text = [static_cast<NSTextField*>(view) stringValue];
    if ([text length] > 0) texts += std::string(texts.empty() ? "" : ", ") + [text UTF8String];
  }
}

/// Until the loop has seen it.
void stopRunning() {
  [NSApp stop:nil];
  wakeLoop();
  performSoon([] { stopRunning(); }, NSDefaultRunLoopMode);
}

/// Until the panel is gone: its loop may take the first event before it sees what the button did.
void keepAwake() {
  wakeLoop();
  if ([NSApp modalWindow] != nil) performSoon([] { keepAwake(); }, NSModalPanelRunLoopMode);
}

/// Comes back to itself until there is a panel.
void answerPanel(std::string& shown) {
  NSWindow* const panel = [NSApp modalWindow];
  if (panel == nil) return performSoon([&shown] { answerPanel(shown); }, NSModalPanelRunLoopMode);
  std::string texts;
  std::string buttons;
  describe([panel contentView], texts, buttons);
  shown = texts + " " + buttons;
  [defaultButton([panel contentView]) performClick:nil];
  keepAwake();
}

}  // namespace

void inApplication(const std::function<void()>& work) {
  @autoreleasepool {
    [NSApplication sharedApplication];
    performSoon(
        [work] {
          work();
          stopRunning();
        },
        NSDefaultRunLoopMode);
    [NSApp run];
  }
}

void pressDefaultButton(std::string& shown) {
  performSoon([&shown] { answerPanel(shown); }, NSModalPanelRunLoopMode);
}

}  // namespace gnustep
