#include "platform/macos/CoreFoundationValues.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <vector>

#include "platform/PropertyLists.h"

namespace platform {
namespace {

using foundation::Date;
using foundation::PropertyList;

/// As property lists name moments: seconds since 2001.
constexpr double kReferenceDate = 978307200.0;

const UInt8* bytesOf(std::string_view text) {
  return reinterpret_cast<const UInt8*>(text.data());
}

CFIndex lengthOf(std::string_view text) {
  return static_cast<CFIndex>(text.size());
}

/// Makes objects, from the leaves up. Each answers one that its caller owns, or null.
struct Maker {
  std::size_t depth = 0;

  [[nodiscard]] CoreFoundationValue make(const PropertyList& value) const {
    if (depth > kGreatestNesting) return {};
    return CoreFoundationValue(std::visit(*this, value.value()));
  }
  [[nodiscard]] Maker deeper() const { return {depth + 1}; }

  CFPropertyListRef operator()(const PropertyList::Dictionary& dictionary) const {
    CoreFoundationReference<CFMutableDictionaryRef> made(CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    for (const auto& [key, value] : dictionary) {
      const CoreFoundationValue name((*this)(key));
      const CoreFoundationValue object = deeper().make(value);
      if (!made || !name || !object) return nullptr;
      CFDictionarySetValue(made.get(), name.get(), object.get());
    }
    return made ? CFRetain(made.get()) : nullptr;
  }
  CFPropertyListRef operator()(const PropertyList::Array& array) const {
    CoreFoundationReference<CFMutableArrayRef> made(
        CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
    for (const PropertyList& value : array) {
      const CoreFoundationValue object = deeper().make(value);
      if (!made || !object) return nullptr;
      CFArrayAppendValue(made.get(), object.get());
    }
    return made ? CFRetain(made.get()) : nullptr;
  }
  CFPropertyListRef operator()(const std::string& text) const {
    if (text.find('\0') != std::string::npos) return nullptr;
    return CFStringCreateWithBytes(kCFAllocatorDefault, bytesOf(text), lengthOf(text), kCFStringEncodingUTF8,
                                   0);
  }
  CFPropertyListRef operator()(const PropertyList::Data& data) const {
    return CFDataCreate(kCFAllocatorDefault, bytesOf(data.bytes), lengthOf(data.bytes));
  }
  CFPropertyListRef operator()(bool flag) const { return CFRetain(flag ? kCFBooleanTrue : kCFBooleanFalse); }
  CFPropertyListRef operator()(std::int64_t number) const {
    return CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &number);
  }
  CFPropertyListRef operator()(std::uint64_t number) const {
    if (number > static_cast<std::uint64_t>(INT64_MAX)) return nullptr;
    return (*this)(static_cast<std::int64_t>(number));
  }
  CFPropertyListRef operator()(double number) const {
    return CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &number);
  }
  CFPropertyListRef operator()(Date date) const {
    return CFDateCreate(kCFAllocatorDefault, date.unixTime() - kReferenceDate);
  }
  CFPropertyListRef operator()(PropertyList::Uid) const { return nullptr; }
};

std::optional<PropertyList> numberOf(CFNumberRef number) {
  if (CFNumberIsFloatType(number) != 0) {
    double real = 0;
    CFNumberGetValue(number, kCFNumberFloat64Type, &real);
    return PropertyList(real);
  }
  std::int64_t whole = 0;
  // False where the number does not fit: cut numbers would be written back.
  if (CFNumberGetValue(number, kCFNumberSInt64Type, &whole) == 0) return std::nullopt;
  return PropertyList(whole);
}

PropertyList dataOf(CFDataRef data) {
  const auto length = static_cast<std::size_t>(CFDataGetLength(data));
  if (length == 0) return PropertyList::Data{};
  return PropertyList::Data{std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(data)), length)};
}

std::optional<PropertyList> valueOf(CFTypeRef object, std::size_t depth);

std::optional<PropertyList> arrayOf(CFArrayRef array, std::size_t depth) {
  PropertyList::Array values;
  for (CFIndex at = 0; at < CFArrayGetCount(array); ++at) {
    auto value = valueOf(CFArrayGetValueAtIndex(array, at), depth + 1);
    if (!value) return std::nullopt;
    values.push_back(std::move(*value));
  }
  return PropertyList(std::move(values));
}

/// Borrowed from a dictionary.
struct Entries {
  std::vector<const void*> keys;
  std::vector<const void*> objects;
};

Entries entriesOf(CFDictionaryRef dictionary) {
  const auto count = static_cast<std::size_t>(CFDictionaryGetCount(dictionary));
  Entries entries{std::vector<const void*>(count), std::vector<const void*>(count)};
  CFDictionaryGetKeysAndValues(dictionary, entries.keys.data(), entries.objects.data());
  return entries;
}

PropertyList sorted(PropertyList::Dictionary entries) {
  std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  return PropertyList(std::move(entries));
}

std::optional<PropertyList> dictionaryOf(CFDictionaryRef dictionary, std::size_t depth) {
  const Entries all = entriesOf(dictionary);
  PropertyList::Dictionary entries;
  for (std::size_t at = 0; at < all.keys.size(); ++at) {
    if (CFGetTypeID(all.keys[at]) != CFStringGetTypeID()) return std::nullopt;
    auto value = valueOf(all.objects[at], depth + 1);
    if (!value) return std::nullopt;
    entries.emplace_back(textOf(static_cast<CFStringRef>(all.keys[at])), std::move(*value));
  }
  return sorted(std::move(entries));
}

std::optional<PropertyList> valueOf(CFTypeRef object, std::size_t depth) {
  if (object == nullptr || depth > kGreatestNesting) return std::nullopt;
  const CFTypeID kind = CFGetTypeID(object);
  if (kind == CFStringGetTypeID()) return PropertyList(textOf(static_cast<CFStringRef>(object)));
  if (kind == CFBooleanGetTypeID()) {
    return PropertyList(CFBooleanGetValue(static_cast<CFBooleanRef>(object)) != 0);
  }
  if (kind == CFNumberGetTypeID()) return numberOf(static_cast<CFNumberRef>(object));
  if (kind == CFDataGetTypeID()) return dataOf(static_cast<CFDataRef>(object));
  if (kind == CFDateGetTypeID()) {
    return PropertyList(
        Date::fromUnixTime(CFDateGetAbsoluteTime(static_cast<CFDateRef>(object)) + kReferenceDate));
  }
  if (kind == CFArrayGetTypeID()) return arrayOf(static_cast<CFArrayRef>(object), depth);
  if (kind == CFDictionaryGetTypeID()) return dictionaryOf(static_cast<CFDictionaryRef>(object), depth);
  return std::nullopt;
}

}  // namespace

CoreFoundationString coreFoundationString(std::string_view utf8) {
  return CoreFoundationString(
      CFStringCreateWithBytes(kCFAllocatorDefault, bytesOf(utf8), lengthOf(utf8), kCFStringEncodingUTF8, 0));
}

std::string textOf(CFStringRef string) {
  if (string == nullptr) return {};
  const CFRange whole = {0, CFStringGetLength(string)};
  CFIndex length = 0;
  CFStringGetBytes(string, whole, kCFStringEncodingUTF8, '?', 0, nullptr, 0, &length);
  std::string text(static_cast<std::size_t>(length), '\0');
  CFStringGetBytes(string, whole, kCFStringEncodingUTF8, '?', 0, reinterpret_cast<UInt8*>(text.data()),
                   length, &length);
  return text;
}

CoreFoundationValue coreFoundationValue(const PropertyList& value) {
  return Maker().make(value);
}

PropertyList knownEntriesOf(CFDictionaryRef dictionary) {
  PropertyList::Dictionary known;
  const Entries all = dictionary == nullptr ? Entries() : entriesOf(dictionary);
  for (std::size_t at = 0; at < all.keys.size(); ++at) {
    if (CFGetTypeID(all.keys[at]) != CFStringGetTypeID()) continue;
    auto value = propertyListOf(all.objects[at]);
    if (value) known.emplace_back(textOf(static_cast<CFStringRef>(all.keys[at])), std::move(*value));
  }
  return sorted(std::move(known));
}

std::optional<PropertyList> propertyListOf(CFPropertyListRef object) {
  return valueOf(object, 0);
}

CoreFoundationURL fileURL(const std::string& path) {
  if (path.empty()) return {};
  return CoreFoundationURL(
      CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, bytesOf(path), lengthOf(path), 0));
}

std::optional<std::string> pathOf(CFURLRef address) {
  if (address == nullptr) return std::nullopt;
  std::array<UInt8, PATH_MAX> path{};
  if (CFURLGetFileSystemRepresentation(address, 1, path.data(), static_cast<CFIndex>(path.size())) == 0) {
    return std::nullopt;
  }
  return std::string(reinterpret_cast<const char*>(path.data()));
}

}  // namespace platform
