#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/foundation/PropertyList.h"
#include "platform/macos/CoreFoundationReference.h"

/// The program's own values as Core Foundation's, and back.
namespace platform {

using CoreFoundationString = CoreFoundationReference<CFStringRef>;
using CoreFoundationValue = CoreFoundationReference<CFPropertyListRef>;
using CoreFoundationURL = CoreFoundationReference<CFURLRef>;

/// A string; null for bytes that are not UTF-8.
[[nodiscard]] CoreFoundationString coreFoundationString(std::string_view utf8);

/// The UTF-8 of a string; "" for null. What UTF-8 cannot express (half a surrogate pair) becomes "?".
[[nodiscard]] std::string textOf(CFStringRef string);

/// A property-list object. Null for what Core Foundation's public functions cannot make: text that is not
/// UTF-8 or holds a zero byte, whole numbers above 2^63-1, references of keyed archives; and for what is
/// nested deeper than kGreatestNesting (PropertyLists.h).
[[nodiscard]] CoreFoundationValue coreFoundationValue(const foundation::PropertyList& value);

/// A dictionary's entries, without those that propertyListOf cannot tell: the system adds objects of its own
/// to some of its dictionaries. Empty for null.
[[nodiscard]] foundation::PropertyList knownEntriesOf(CFDictionaryRef dictionary);

/// The value of a property-list object; nullopt where one in it is of no kind that the program knows, or is
/// nested deeper than that. Dictionaries are in the order of their keys' bytes: Core Foundation keeps none.
/// Numbers of every integer kind become whole numbers, others doubles.
[[nodiscard]] std::optional<foundation::PropertyList> propertyListOf(CFPropertyListRef object);

/// The address of a path; null for an empty one.
[[nodiscard]] CoreFoundationURL fileURL(const std::string& path);

/// The path of a file's address; nullopt for null and for what is not a file's.
[[nodiscard]] std::optional<std::string> pathOf(CFURLRef address);

}  // namespace platform
