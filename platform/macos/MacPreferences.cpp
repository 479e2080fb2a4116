#include "platform/macos/MacPreferences.h"

#include <array>
#include <cerrno>
#include <utility>

#include "platform/Platform.h"
#include "platform/foundation/Paths.h"
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

/// A null value would remove the key.
bool set(const std::string& key, const PropertyList& value, const std::string& application,
         const Domain& domain) {
  const CoreFoundationString name = coreFoundationString(key);
  const CoreFoundationString owner = coreFoundationString(application);
  const CoreFoundationValue object = coreFoundationValue(value);
  if (!name || !owner || !object) return false;
  CFPreferencesSetValue(name.get(), object.get(), owner.get(), domain.user, domain.host);
  return true;
}

foundation::Error whyNotWritten(const std::string& path) {
  auto& queries = current().fileQueries;
  const std::string folder = foundation::deletingLastPathComponent(path);
  if (queries.isDirectory(path)) return foundation::systemError(EISDIR, path);
  if (!queries.isAccessible(folder, Access::write)) return foundation::systemError(EACCES, path);
  return foundation::errorWithReason(EIO, path, "the system does not say why");
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
  return registered_.value(key);
}

void MacPreferences::setValue(const std::string& key, const PropertyList& value) {
  if (!set(key, value, domain_, usersDomain())) NSLog("Preferences: the value of %@ cannot be stored", key);
}

bool MacPreferences::synchronize() {
  const CoreFoundationString application = coreFoundationString(domain_);
  const Domain domain = usersDomain();
  return application && CFPreferencesSynchronize(application.get(), domain.user, domain.host) != 0;
}

foundation::Result<void> MacPreferences::storeForAnyUserOnCurrentHost(const std::string& key,
                                                                      const PropertyList& value) {
  const Domain domain = everybodysDomainHere();
  const CoreFoundationString name = coreFoundationString(key);
  const CoreFoundationString application = coreFoundationString(domain_);
  if (!name || !application) return foundation::systemError(EINVAL, key);
  const CoreFoundationValue before(
      CFPreferencesCopyValue(name.get(), application.get(), domain.user, domain.host));
  if (!set(key, value, domain_, domain)) return foundation::systemError(EINVAL, key);
  if (CFPreferencesSynchronize(application.get(), domain.user, domain.host) != 0) return {};
  // In memory alone: what waits there would be stored with the next value, unseen.
  CFPreferencesSetValue(name.get(), before.get(), application.get(), domain.user, domain.host);
  return whyNotWritten("/Library/Preferences/" + domain_ + ".plist");
}

}  // namespace platform
