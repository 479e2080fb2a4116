#include "diagnostics/GlobalPreferences.h"

#include "platform/Platform.h"
#include "platform/foundation/Identifiers.h"
#include "platform/foundation/Paths.h"
#include "services/TGLocalPaths.h"

std::optional<foundation::PropertyList> globalPreference(std::string_view key) {
  const auto folder = TGLocalPaths::prefsDirectory(Domain::user);
  if (!folder) return std::nullopt;
  const auto preferences = platform::readDictionary(
      foundation::appendingPathComponent(*folder, identifiers::kGlobalPreferencesFile));
  if (!preferences) return std::nullopt;
  const foundation::PropertyList* const value = preferences.value().find(key);
  return value == nullptr ? std::nullopt : std::optional(*value);
}

bool isSwitchedOnInGlobalPreferences(std::string_view key) {
  const auto value = globalPreference(key);
  return value && value->isSwitchedOn();
}
