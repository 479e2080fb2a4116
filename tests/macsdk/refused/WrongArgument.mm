#import <AppKit/AppKit.h>

bool sendsAnArgumentOfAnotherKind(NSURL* address) {
  return [[NSWorkspace sharedWorkspace] openFile:address];
}
