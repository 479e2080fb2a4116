#include "tests/macsdk/fakes/FakeCoreFoundation.h"

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <tuple>
#include <variant>

#include "platform/foundation/Text.h"
#include "platform/linux/LinuxPropertyLists.h"

namespace {

using foundation::Date;
using foundation::PropertyList;

struct Object;
using Objects = std::vector<Object*>;
using Entries = std::vector<std::pair<Object*, Object*>>;
struct Text {
  std::string utf8;
};
struct Bytes {
  std::string bytes;
};
struct Path {
  std::string path;
};
struct HugeNumber {};
struct Unknown {};

/// In the order of the kinds, whose numbers are the type identifiers.
using Content =
    std::variant<Text, Bytes, bool, std::int64_t, double, Date, Objects, Entries, Path, HugeNumber, Unknown>;

struct Object {
  Content content;
  long retains = 1;
  bool immortal = false;
};

struct State {
  std::set<Object*> live;
  int failing = 0;
  bool failed = false;
  std::vector<std::string> calls;
  std::map<std::tuple<std::string, std::string, std::string>, PropertyList> preferences;
  bool synchronizes = true;
  SInt32 alertStatus = 0;
  std::optional<fakes::FakeBundle> mainBundle;
  std::map<std::string, fakes::FakeBundle> bundles;
  std::map<const fakes::FakeBundle*, Object*> information;  ///< owned by the system
  std::size_t systemsOwn = 0;                               ///< objects in it
};

/// Never destroyed: what is the system's own is there until the process ends.
State& state() {
  static State& only = *new State;
  return only;
}

[[noreturn]] void die(const char* why) {
  std::fprintf(stderr, "Fake Core Foundation: %s\n", why);
  std::abort();
}

/// Objects may be used by several threads, as the system's own.
std::recursive_mutex& counting() {
  static std::recursive_mutex only;
  return only;
}

Object booleanTrue{true, 1, true};
Object booleanFalse{false, 1, true};

Object* checked(const void* reference) {
  const std::scoped_lock lock(counting());
  if (reference == nullptr) die("null was used");
  auto* const object = static_cast<Object*>(const_cast<void*>(reference));
  if (!object->immortal && !state().live.contains(object)) die("a freed object was used");
  return object;
}

template <typename Kind>
Kind& contentOf(const void* reference) {
  Kind* const content = std::get_if<Kind>(&checked(reference)->content);
  if (content == nullptr) die("an object of another kind was used");
  return *content;
}

/// nullptr where this creation was chosen to fail.
Object* make(Content content) {
  const std::scoped_lock lock(counting());
  State& now = state();
  if (now.failing > 0 && --now.failing == 0) {
    now.failed = true;
    return nullptr;
  }
  auto* const object = new Object{std::move(content)};
  now.live.insert(object);
  return object;
}

void retain(Object* object) {
  const std::scoped_lock lock(counting());
  ++object->retains;
}

void release(Object* object) {
  const std::scoped_lock lock(counting());
  if (--object->retains > 0) return;
  if (object->immortal) die("a boolean was released too often");
  if (auto* const objects = std::get_if<Objects>(&object->content)) {
    for (Object* each : *objects) release(each);
  }
  if (auto* const entries = std::get_if<Entries>(&object->content)) {
    for (const auto& [key, value] : *entries) {
      release(key);
      release(value);
    }
  }
  state().live.erase(object);
  delete object;
}

/// Objects that stand for a value; their making never fails.
Object* objectOf(const PropertyList& value) {
  const int failing = std::exchange(state().failing, 0);
  Object* made = nullptr;
  if (const auto* text = value.as<std::string>()) made = make(Text{*text});
  if (const auto* data = value.as<PropertyList::Data>()) made = make(Bytes{data->bytes});
  if (const auto* whole = value.as<std::int64_t>()) made = make(*whole);
  if (const auto* whole = value.as<std::uint64_t>()) {
    made = *whole > static_cast<std::uint64_t>(INT64_MAX) ? make(HugeNumber{})
                                                          : make(static_cast<std::int64_t>(*whole));
  }
  if (const auto* real = value.as<double>()) made = make(*real);
  if (const auto* date = value.as<Date>()) made = make(*date);
  if (value.as<PropertyList::Uid>() != nullptr) made = make(Unknown{});
  if (const auto* flag = value.as<bool>()) {
    made = *flag ? &booleanTrue : &booleanFalse;
    retain(made);
  }
  if (const auto* array = value.as<PropertyList::Array>()) {
    Objects objects;
    for (const PropertyList& each : *array) objects.push_back(objectOf(each));
    made = make(std::move(objects));
  }
  if (const auto* dictionary = value.as<PropertyList::Dictionary>()) {
    Entries entries;
    for (const auto& [key, each] : *dictionary) entries.emplace_back(make(Text{key}), objectOf(each));
    made = make(std::move(entries));
  }
  state().failing = failing;
  return made;
}

struct Values {
  PropertyList operator()(const Text& text) const { return text.utf8; }
  PropertyList operator()(const Bytes& bytes) const { return PropertyList::Data{bytes.bytes}; }
  PropertyList operator()(bool flag) const { return flag; }
  PropertyList operator()(std::int64_t number) const { return number; }
  PropertyList operator()(double number) const { return number; }
  PropertyList operator()(Date date) const { return date; }
  PropertyList operator()(const Objects& objects) const {
    PropertyList::Array values;
    for (const Object* each : objects) values.push_back(std::visit(*this, each->content));
    return values;
  }
  PropertyList operator()(const Entries& entries) const {
    PropertyList::Dictionary values;
    for (const auto& [key, each] : entries) {
      values.emplace_back(std::get<Text>(key->content).utf8, std::visit(*this, each->content));
    }
    return values;
  }
  PropertyList operator()(const Path&) const { die("a URL is no property list"); }
  PropertyList operator()(const HugeNumber&) const { die("not made by the backend"); }
  PropertyList operator()(const Unknown&) const { die("not made by the backend"); }
};

PropertyList valueOf(const void* reference) {
  return std::visit(Values(), checked(reference)->content);
}

const std::string& textOf(CFStringRef string) {
  return contentOf<Text>(string).utf8;
}

std::string domainOf(CFStringRef user, CFStringRef host) {
  return textOf(user) + " " + textOf(host);
}

template <typename Reference>
Reference as(Object* object) {
  return reinterpret_cast<Reference>(object);
}

fakes::FakeBundle* bundleOf(CFBundleRef bundle) {
  return reinterpret_cast<fakes::FakeBundle*>(bundle);
}

Object constantText(const char* text) {
  return Object{Text{text}, 1, true};
}

Object anyHost = constantText("any");
Object thisHost = constantText("here");
Object anyUser = constantText("everybody");
Object thisUser = constantText("user");

}  // namespace

namespace fakes {

void resetCoreFoundation() {
  for (const auto& entry : state().information) release(entry.second);
  state().systemsOwn = 0;
  if (liveObjects() != 0) die("objects are left from before");
  state() = State();
}

long liveObjects() {
  return static_cast<long>(state().live.size() - state().systemsOwn) + booleanTrue.retains +
         booleanFalse.retains - 2;
}

void failCreation(int number) {
  state().failing = number;
  state().failed = false;
}

bool creationHasFailed() {
  return state().failed;
}

std::vector<std::string> takeCoreFoundationCalls() {
  return std::exchange(state().calls, {});
}

void setPreference(const std::string& user, const std::string& host, const std::string& key,
                   const PropertyList& value) {
  state().preferences.insert_or_assign({user, host, key}, value);
}

void setSynchronizeSucceeds(bool succeeds) {
  state().synchronizes = succeeds;
}

void setAlertStatus(SInt32 status) {
  state().alertStatus = status;
}

void setMainBundle(std::optional<FakeBundle> bundle) {
  state().mainBundle = std::move(bundle);
}

void setBundle(const std::string& identifier, FakeBundle bundle) {
  state().bundles.insert_or_assign(identifier, std::move(bundle));
}

CFStringRef makeConstantText(const char* text) {
  return as<CFStringRef>(new Object{Text{text}, 1, true});
}

CFTypeRef makeUnknownObject() {
  return make(Unknown{});
}

CFNumberRef makeNumberBeyondSixtyFourBits() {
  return as<CFNumberRef>(make(HugeNumber{}));
}

}  // namespace fakes

extern "C" {

const CFAllocatorRef kCFAllocatorDefault = nullptr;
const CFBooleanRef kCFBooleanTrue = as<CFBooleanRef>(&booleanTrue);
const CFBooleanRef kCFBooleanFalse = as<CFBooleanRef>(&booleanFalse);
const CFArrayCallBacks kCFTypeArrayCallBacks{};
const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks{};
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks{};
const CFStringRef kCFRunLoopDefaultMode = fakes::makeConstantText("default");
const CFStringRef kCFPreferencesAnyHost = as<CFStringRef>(&anyHost);
const CFStringRef kCFPreferencesCurrentHost = as<CFStringRef>(&thisHost);
const CFStringRef kCFPreferencesAnyUser = as<CFStringRef>(&anyUser);
const CFStringRef kCFPreferencesCurrentUser = as<CFStringRef>(&thisUser);

CFTypeRef CFRetain(CFTypeRef reference) {
  retain(checked(reference));
  return reference;
}

void CFRelease(CFTypeRef reference) {
  release(checked(reference));
}

// Numbers of both kinds, and huge ones, are one type.
CFTypeID CFGetTypeID(CFTypeRef reference) {
  const Content& content = checked(reference)->content;
  if (std::holds_alternative<double>(content) || std::holds_alternative<HugeNumber>(content)) {
    return CFNumberGetTypeID();
  }
  return content.index() + 1;
}

CFTypeID CFStringGetTypeID() {
  return 1;
}
CFTypeID CFDataGetTypeID() {
  return 2;
}
CFTypeID CFBooleanGetTypeID() {
  return 3;
}
CFTypeID CFNumberGetTypeID() {
  return 4;
}
CFTypeID CFDateGetTypeID() {
  return 6;
}
CFTypeID CFArrayGetTypeID() {
  return 7;
}
CFTypeID CFDictionaryGetTypeID() {
  return 8;
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8* bytes, CFIndex length,
                                    CFStringEncoding encoding, Boolean) {
  std::string text(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
  if (encoding != kCFStringEncodingUTF8) die("another encoding than UTF-8");
  return foundation::isUtf8(text) ? as<CFStringRef>(make(Text{std::move(text)})) : nullptr;
}

/// Half a surrogate pair is no text.
CFStringRef CFStringCreateWithCharacters(CFAllocatorRef, const UniChar* characters, CFIndex count) {
  std::string text;
  for (CFIndex at = 0; at < count; ++at) {
    char32_t code = characters[at];
    if (code >= 0xD800 && code < 0xDC00 && at + 1 < count) {
      code = 0x10000 + ((code - 0xD800) << 10U) + (characters[++at] - 0xDC00U);
    }
    foundation::appendUtf8(text, code);
  }
  return as<CFStringRef>(make(Text{std::move(text)}));
}

/// In UTF-16 units.
CFIndex CFStringGetLength(CFStringRef string) {
  return static_cast<CFIndex>(foundation::characterCount(textOf(string)));
}

CFIndex CFStringGetBytes(CFStringRef string, CFRange range, CFStringEncoding encoding, UInt8, Boolean,
                         UInt8* buffer, CFIndex size, CFIndex* used) {
  const std::string& text = textOf(string);
  const auto length = static_cast<CFIndex>(text.size());
  if (encoding != kCFStringEncodingUTF8 || range.location != 0 || range.length != CFStringGetLength(string)) {
    die("only whole strings as UTF-8");
  }
  if (buffer != nullptr) {
    if (size < length) die("a buffer is too small");
    std::memcpy(buffer, text.data(), text.size());
  }
  *used = length;
  return range.length;
}

CFDataRef CFDataCreate(CFAllocatorRef, const UInt8* bytes, CFIndex length) {
  return as<CFDataRef>(
      make(Bytes{std::string(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length))}));
}

const UInt8* CFDataGetBytePtr(CFDataRef data) {
  return reinterpret_cast<const UInt8*>(contentOf<Bytes>(data).bytes.data());
}

CFIndex CFDataGetLength(CFDataRef data) {
  return static_cast<CFIndex>(contentOf<Bytes>(data).bytes.size());
}

Boolean CFBooleanGetValue(CFBooleanRef boolean) {
  return contentOf<bool>(boolean) ? 1 : 0;
}

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType type, const void* value) {
  if (type == kCFNumberSInt64Type) return as<CFNumberRef>(make(*static_cast<const std::int64_t*>(value)));
  if (type == kCFNumberFloat64Type) return as<CFNumberRef>(make(*static_cast<const double*>(value)));
  die("a number of another kind");
}

Boolean CFNumberIsFloatType(CFNumberRef number) {
  return std::holds_alternative<double>(checked(number)->content) ? 1 : 0;
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value) {
  if (std::holds_alternative<HugeNumber>(checked(number)->content)) return 0;
  if (type == kCFNumberSInt64Type) {
    *static_cast<std::int64_t*>(value) = contentOf<std::int64_t>(number);
  } else {
    *static_cast<double*>(value) = contentOf<double>(number);
  }
  return 1;
}

CFDateRef CFDateCreate(CFAllocatorRef, CFAbsoluteTime time) {
  return as<CFDateRef>(make(Date::fromUnixTime(time + 978307200.0)));
}

CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date) {
  return contentOf<Date>(date).unixTime() - 978307200.0;
}

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef, CFIndex, const CFArrayCallBacks* callBacks) {
  if (callBacks != &kCFTypeArrayCallBacks) die("an array that does not retain");
  return as<CFMutableArrayRef>(make(Objects()));
}

void CFArrayAppendValue(CFMutableArrayRef array, const void* value) {
  retain(checked(value));
  contentOf<Objects>(array).push_back(checked(value));
}

CFIndex CFArrayGetCount(CFArrayRef array) {
  return static_cast<CFIndex>(contentOf<Objects>(array).size());
}

const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex at) {
  return contentOf<Objects>(array).at(static_cast<std::size_t>(at));
}

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef, CFIndex,
                                                 const CFDictionaryKeyCallBacks* keys,
                                                 const CFDictionaryValueCallBacks* values) {
  if (keys != &kCFTypeDictionaryKeyCallBacks || values != &kCFTypeDictionaryValueCallBacks) {
    die("a dictionary that does not retain");
  }
  return as<CFMutableDictionaryRef>(make(Entries()));
}

void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value) {
  retain(checked(key));
  retain(checked(value));
  contentOf<Entries>(dictionary).emplace_back(checked(key), checked(value));
}

CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary) {
  return static_cast<CFIndex>(contentOf<Entries>(dictionary).size());
}

void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys, const void** values) {
  for (const auto& [key, value] : contentOf<Entries>(dictionary)) {
    *keys++ = key;
    *values++ = value;
  }
}

CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef, CFDataRef data, CFOptionFlags,
                                               CFPropertyListFormat*, CFErrorRef*) {
  platform::LinuxPropertyLists reader;
  // With no limits of its own.
  const std::string& bytes = contentOf<Bytes>(data).bytes;
  const auto value = reader.parse(bytes, {.bytes = bytes.size(), .values = 10'000'000});
  return value ? objectOf(value.value()) : nullptr;
}

CFDataRef CFPropertyListCreateData(CFAllocatorRef, CFPropertyListRef value, CFPropertyListFormat format,
                                   CFOptionFlags, CFErrorRef*) {
  platform::LinuxPropertyLists writer;
  const auto bytes = writer.serialize(valueOf(value), format == kCFPropertyListXMLFormat_v1_0
                                                          ? platform::PropertyListFormat::xml
                                                          : platform::PropertyListFormat::binary);
  return bytes ? as<CFDataRef>(make(Bytes{bytes.value()})) : nullptr;
}

CFPropertyListRef CFPreferencesCopyValue(CFStringRef key, CFStringRef application, CFStringRef user,
                                         CFStringRef host) {
  if (textOf(application) != "com.vordenworks.Quillmend") die("another application's preferences");
  const auto found = state().preferences.find({textOf(user), textOf(host), textOf(key)});
  return found == state().preferences.end() ? nullptr : objectOf(found->second);
}

void CFPreferencesSetValue(CFStringRef key, CFPropertyListRef value, CFStringRef application,
                           CFStringRef user, CFStringRef host) {
  const std::string whose = textOf(application) + " " + domainOf(user, host) + " " + textOf(key);
  if (value == nullptr) {
    state().calls.push_back("remove " + whose);
    state().preferences.erase({textOf(user), textOf(host), textOf(key)});
    return;
  }
  state().calls.push_back("set " + whose + " = " + valueOf(value).description());
  fakes::setPreference(textOf(user), textOf(host), textOf(key), valueOf(value));
}

Boolean CFPreferencesSynchronize(CFStringRef application, CFStringRef user, CFStringRef host) {
  state().calls.push_back("synchronize " + textOf(application) + " " + domainOf(user, host));
  return state().synchronizes ? 1 : 0;
}

CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef, const UInt8* bytes, CFIndex length,
                                                 Boolean) {
  return as<CFURLRef>(
      make(Path{std::string(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length))}));
}

Boolean CFURLGetFileSystemRepresentation(CFURLRef address, Boolean, UInt8* buffer, CFIndex size) {
  const std::string& path = contentOf<Path>(address).path;
  if (static_cast<CFIndex>(path.size()) >= size) return 0;
  std::memcpy(buffer, path.c_str(), path.size() + 1);
  return 1;
}

/// Borrowed from the address; one at a time is enough.
CFStringRef CFURLGetString(CFURLRef address) {
  static Object text{Text{}, 1, true};
  text.content = Text{"file://" + contentOf<Path>(address).path};
  return as<CFStringRef>(&text);
}

CFBundleRef CFBundleGetMainBundle() {
  return state().mainBundle ? reinterpret_cast<CFBundleRef>(&*state().mainBundle) : nullptr;
}

CFBundleRef CFBundleGetBundleWithIdentifier(CFStringRef identifier) {
  const auto found = state().bundles.find(textOf(identifier));
  return found == state().bundles.end() ? nullptr : reinterpret_cast<CFBundleRef>(&found->second);
}

CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle) {
  return as<CFURLRef>(make(Path{bundleOf(bundle)->path}));
}

CFURLRef CFBundleCopyExecutableURL(CFBundleRef bundle) {
  return as<CFURLRef>(make(Path{bundleOf(bundle)->executable}));
}

CFURLRef CFBundleCopyResourceURL(CFBundleRef bundle, CFStringRef name, CFStringRef type, CFStringRef) {
  const std::string path =
      bundleOf(bundle)->path + "/Contents/Resources/" + textOf(name) + "." + textOf(type);
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? as<CFURLRef>(make(Path{path})) : nullptr;
}

CFStringRef CFBundleCopyLocalizedString(CFBundleRef bundle, CFStringRef key, CFStringRef value,
                                        CFStringRef table) {
  if (table != nullptr) die("another table than the default");
  const auto& texts = bundleOf(bundle)->localizedStrings;
  const auto found = texts.find(textOf(key));
  return as<CFStringRef>(make(Text{found == texts.end() ? textOf(value) : found->second}));
}

CFDictionaryRef CFBundleGetInfoDictionary(CFBundleRef bundle) {
  const fakes::FakeBundle* const own = bundleOf(bundle);
  if (!own->information) return nullptr;
  Object*& held = state().information[own];
  if (held == nullptr) {
    const std::size_t before = state().live.size();
    held = objectOf(*own->information);
    if (own->hasAddress) {
      contentOf<Entries>(held).emplace_back(make(Text{"CFBundleInfoPlistURL"}), make(Path{own->path}));
    }
    state().systemsOwn += state().live.size() - before;
  }
  return as<CFDictionaryRef>(held);
}

CFNotificationCenterRef CFNotificationCenterGetDistributedCenter() {
  return reinterpret_cast<CFNotificationCenterRef>(&state());
}

void CFNotificationCenterPostNotificationWithOptions(CFNotificationCenterRef, CFStringRef name,
                                                     const void* object, CFDictionaryRef information,
                                                     CFOptionFlags options) {
  std::string call = "post " + textOf(name) + (object == nullptr ? "" : " with an object");
  if (information != nullptr) call += " " + valueOf(information).description();
  state().calls.push_back(call + " options " + std::to_string(options));
}

SInt32 CFUserNotificationDisplayAlert(CFTimeInterval timeout, CFOptionFlags flags, CFURLRef, CFURLRef,
                                      CFURLRef, CFStringRef header, CFStringRef message, CFStringRef,
                                      CFStringRef, CFStringRef, CFOptionFlags* response) {
  state().calls.push_back("alert " + textOf(header) + ": " + textOf(message) + " timeout " +
                          std::to_string(timeout) + " flags " + std::to_string(flags));
  *response = 0;
  return state().alertStatus;
}

CFUUIDRef CFUUIDCreate(CFAllocatorRef) {
  return as<CFUUIDRef>(make(Unknown{}));
}

CFStringRef CFUUIDCreateString(CFAllocatorRef, CFUUIDRef unique) {
  static int number = 0;
  contentOf<Unknown>(unique);
  return as<CFStringRef>(make(Text{"unique " + std::to_string(++number)}));
}

}  // extern "C"
