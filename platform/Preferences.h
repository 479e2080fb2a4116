#pragma once

#include <optional>
#include <string>

#include "platform/foundation/PropertyList.h"
#include "platform/foundation/Result.h"

namespace platform {

/// The application's own preferences.
class Preferences {
 public:
  virtual ~Preferences() = default;

  /// The value of a key: the user's on this computer, the user's, everybody's on this computer, everybody's,
  /// else the registered default, else nullopt.
  [[nodiscard]] virtual std::optional<foundation::PropertyList> value(const std::string& key) = 0;

  /// Values for keys that nobody has set; not stored.
  virtual void registerDefaults(const foundation::PropertyList& dictionary) = 0;

  /// Sets the user's value, in memory until synchronize().
  virtual void setValue(const std::string& key, const foundation::PropertyList& value) = 0;

  /// Writes what setValue() set; answers whether all of it could be stored. What could not stays in memory
  /// for the next call.
  virtual bool synchronize() = 0;

  /// Stores everybody's value on this computer (CFPreferencesSetValue for any user and the current host) at
  /// once, and answers for it alone. It takes the right to write in the machine's Library. On failure nothing
  /// is kept for a later try: what is stored there goes on to hold, also what others store in the meantime.
  virtual foundation::Result<void> storeForAnyUserOnCurrentHost(const std::string& key,
                                                                const foundation::PropertyList& value) = 0;
};

}  // namespace platform
