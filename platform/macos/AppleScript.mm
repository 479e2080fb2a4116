#include "platform/macos/AppleScript.h"

#include "platform/macos/FoundationValues.h"

/// The part of NSAppleScript that is used.
@protocol TGAppleScript
- (id)initWithSource:(NSString*)source;
- (id)executeAndReturnError:(NSDictionary**)errorInfo;
@end

namespace platform {
namespace {

using foundation::PropertyList;

constexpr int kGeneralError = -2700;

PropertyList errorOf(NSDictionary* information) {
  PropertyList error;
  for (NSString* key in information) {
    if (auto value = propertyListOf([information objectForKey:key]))
      error.set(textOf(key), std::move(*value));
  }
  return error;
}

std::optional<PropertyList> execute(NSString* source) {
  const id made = [NSClassFromString(@"NSAppleScript") alloc];
  if (![made respondsToSelector:@selector(initWithSource:)]) {
    [made release];
    return appleScriptError(kGeneralError, "This system has no AppleScript.");
  }
  id<TGAppleScript> const script = [static_cast<id<TGAppleScript>>(made) initWithSource:source];
  NSDictionary* information = nil;
  std::optional<PropertyList> error;
  const auto raised = raisedBy([&] { [script executeAndReturnError:&information]; });
  if (raised) error = appleScriptError(kGeneralError, raised->reason());
  if (information != nil) error = errorOf(information);
  [static_cast<id>(script) release];
  return error;
}

}  // namespace

PropertyList appleScriptError(int number, const std::string& message) {
  return PropertyList::Dictionary{{"NSAppleScriptErrorBriefMessage", message},
                                  {"NSAppleScriptErrorMessage", message},
                                  {"NSAppleScriptErrorNumber", number}};
}

std::optional<PropertyList> runAppleScript(const std::string& source) {
  @autoreleasepool {
    NSString* const text = foundationString(source);
    if (text == nil) return appleScriptError(kGeneralError, "The script is not UTF-8.");
    return execute(text);
  }
}

}  // namespace platform
