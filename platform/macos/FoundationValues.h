#pragma once

#import <Foundation/Foundation.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/foundation/Exception.h"
#include "platform/foundation/PropertyList.h"

/// The program's own values as Foundation's, and back, for the sources in Objective-C++: Foundation's
/// strings, numbers, dates and collections are Core Foundation's (Apple's Core Foundation Design Concepts,
/// "Toll-Free Bridged Types"). Objects answered are autoreleased.
///
/// These sources hold and release by hand. No C++ exception is caught in them: not every Objective-C runtime
/// lets one be caught beside its own.
namespace platform {

/// nil for bytes that are not UTF-8.
[[nodiscard]] NSString* foundationString(std::string_view utf8);

/// "" for nil.
[[nodiscard]] std::string textOf(NSString* string);

/// A property-list object; nil for what coreFoundationValue (CoreFoundationValues.h) cannot make.
[[nodiscard]] id foundationObject(const foundation::PropertyList& value);

/// nullopt for nil and for what is in no property list.
[[nodiscard]] std::optional<foundation::PropertyList> propertyListOf(id object);

/// Does the work; what an object raises in it comes back.
[[nodiscard]] std::optional<foundation::Exception> raisedBy(const std::function<void()>& work);

}  // namespace platform
