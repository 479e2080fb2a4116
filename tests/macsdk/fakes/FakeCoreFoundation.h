#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/foundation/PropertyList.h"

/// Core Foundation as far as the Mac's backend uses it, for tests on other systems: objects with retain
/// counts, and calls recorded as lines of text. A use of an object that has been freed, a wrong kind of
/// object and a release too many end the program.
namespace fakes {

/// A moment at which nothing is recorded, no object lives, and all is set to answer.
void resetCoreFoundation();

/// How many objects live; with the balance of retains and releases of the two that always do.
[[nodiscard]] long liveObjects();

/// Has the n-th creation from now on (1 is the next) answer null; 0 none.
void failCreation(int number);
/// Whether that creation has come.
[[nodiscard]] bool creationHasFailed();

/// Calls of preferences, of the notification centre and of panels, in order.
[[nodiscard]] std::vector<std::string> takeCoreFoundationCalls();

/// What stands in the preferences: of "user" or "everybody", on "here" or "any".
void setPreference(const std::string& user, const std::string& host, const std::string& key,
                   const foundation::PropertyList& value);
void setSynchronizeSucceeds(bool succeeds);
/// What showing a panel answers; 0 is success.
void setAlertStatus(SInt32 status);

/// The main bundle, and bundles by their identifiers.
struct FakeBundle {
  std::string path;
  std::string executable;
  std::optional<foundation::PropertyList> information;
  std::map<std::string, std::string> localizedStrings = {};  ///< of its default table
  bool hasAddress = false;  ///< the information holds an address too, "CFBundleInfoPlistURL"
};
void setMainBundle(std::optional<FakeBundle> bundle);
void setBundle(const std::string& identifier, FakeBundle bundle);

/// A text that lives as long as the program and is not counted: a constant of the system's.
[[nodiscard]] CFStringRef makeConstantText(const char* text);

/// An object of a kind that is in no property list, owned by the caller.
[[nodiscard]] CFTypeRef makeUnknownObject();
/// A number that is too large for 64 bits, owned by the caller.
[[nodiscard]] CFNumberRef makeNumberBeyondSixtyFourBits();

}  // namespace fakes
