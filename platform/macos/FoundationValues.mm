#include "platform/macos/FoundationValues.h"

#include "platform/macos/CoreFoundationValues.h"

namespace platform {
namespace {

CFTypeRef bridged(id object) {
  return object;
}

id autoreleased(CFTypeRef object) {
  return [[static_cast<id>(const_cast<void*>(object)) retain] autorelease];
}

}  // namespace

NSString* foundationString(std::string_view utf8) {
  return autoreleased(coreFoundationString(utf8).get());
}

std::string textOf(NSString* string) {
  return textOf(static_cast<CFStringRef>(bridged(string)));
}

id foundationObject(const foundation::PropertyList& value) {
  return autoreleased(coreFoundationValue(value).get());
}

std::optional<foundation::PropertyList> propertyListOf(id object) {
  return propertyListOf(bridged(object));
}

std::optional<foundation::Exception> raisedBy(const std::function<void()>& work) {
  @try {
    work();
  } @catch (NSException* exception) {
    return foundation::Exception(textOf([exception name]), textOf([exception reason]));
  }
  return std::nullopt;
}

}  // namespace platform
