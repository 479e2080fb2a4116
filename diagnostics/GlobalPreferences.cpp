#include "diagnostics/GlobalPreferences.h"

#include "platform/Platform.h"
#include "platform/foundation/Identifiers.h"
#include "platform/foundation/Paths.h"
#include "services/TGLocalPaths.h"

bool isSwitchedOnInGlobalPreferences(std::string_view key) {
  const auto folder = TGLocalPaths::prefsDirectory(Domain::user);
  if (!folder) return false;
  const auto preferences = platform::readDictionary(
      foundation::appendingPathComponent(*folder, identifiers::kGlobalPreferencesFile));
  if (!preferences) return false;
  const foundation::PropertyList* const value = preferences.value().find(key);
  return value != nullptr && value->isSwitchedOn();
}
