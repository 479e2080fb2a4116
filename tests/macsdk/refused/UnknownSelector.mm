#import <AppKit/AppKit.h>

bool sendsAMessageThatNobodyDeclares(NSString* path) {
  return [[NSWorkspace sharedWorkspace] openFileWithoutAsking:path];
}
