#include "platform/macos/MacPreferences.h"

#include <array>
#include <utility>

#include "platform/SystemConsole.h"
#include "platform/macos/CoreFoundationValues.h"

namespace platform {
namespace {

using foundation::PropertyList;

/// Whose values, and on which computers.
struct Domain {
  CFStringRef user;
  CFStringRef host;
};

Domain usersDomain() {
  return {kCFPreferencesCurrentUser, kCFPreferencesAnyHost};
}

Domain everybodysDomainHere() {
  return {kCFPreferencesAnyUser, kCFPreferencesCurrentHost};
}

std::array<Domain, 4> searchList() {
  return {Domain{kCFPreferencesCurrentUser, kCFPreferencesCurrentHost}, usersDomain(), everybodysDomainHere(),
          Domain{kCFPreferencesAnyUser, kCFPreferencesAnyHost}};
}

std::optional<PropertyList> stored(CFStringRef key, CFStringRef application, const Domain& domain) {
  const CoreFoundationValue value(CFPreferencesCopyValue(key, application, domain.user, domain.host));
  return value ? propertyListOf(value.get()) : std::nullopt;
}

void store(const std::string& key, const PropertyList& value, const std::string& application,
           const Domain& domain) {
  const CoreFoundationString name = coreFoundationString(key);
  const CoreFoundationString owner = coreFoundationString(application);
  const CoreFoundationValue object = coreFoundationValue(value);
  // Null would remove the key.
  if (!name || !owner || !object) {
    NSLog("Preferences: the value of %@ cannot be stored", key);
    return;
  }
  CFPreferencesSetValue(name.get(), object.get(), owner.get(), domain.user, domain.host);
}

}  // namespace

MacPreferences::MacPreferences(std::string domain) : domain_(std::move(domain)) {}

std::optional<PropertyList> MacPreferences::value(const std::string& key) {
  const CoreFoundationString name = coreFoundationString(key);
  const CoreFoundationString application = coreFoundationString(domain_);
  if (!name || !application) return std::nullopt;
  for (const Domain& domain : searchList()) {
    if (auto found = stored(name.get(), application.get(), domain)) return found;
  }
  const std::scoped_lock lock(mutex_);
  const PropertyList* const registered = registered_.find(key);
  return registered == nullptr ? std::nullopt : std::optional(*registered);
}

void MacPreferences::registerDefaults(const PropertyList& dictionary) {
  const auto* const entries = dictionary.as<PropertyList::Dictionary>();
  if (entries == nullptr) return;
  const std::scoped_lock lock(mutex_);
  for (const auto& [key, value] : *entries) registered_.set(key, value);
}

void MacPreferences::setValue(const std::string& key, const PropertyList& value) {
  store(key, value, domain_, usersDomain());
}

void MacPreferences::setValueForAnyUserOnCurrentHost(const std::string& key, const PropertyList& value) {
  store(key, value, domain_, everybodysDomainHere());
}

bool MacPreferences::synchronize() {
  const CoreFoundationString application = coreFoundationString(domain_);
  if (!application) return false;
  bool isStored = true;
  for (const Domain& domain : {usersDomain(), everybodysDomainHere()}) {
    if (CFPreferencesSynchronize(application.get(), domain.user, domain.host) == 0) isStored = false;
  }
  return isStored;
}

}  // namespace platform
