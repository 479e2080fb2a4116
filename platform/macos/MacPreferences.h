#pragma once

#include <string>

#include "platform/Preferences.h"
#include "platform/posix/RegisteredDefaults.h"

namespace platform {

/// The application's preferences by Core Foundation (CFPreferences), for the domain that is the application's
/// bundle identifier. What a value is looked up in is named one by one, so that neither the preferences of
/// all applications nor what an administrator's profile forces is taken for this application's own. May be
/// called from any thread.
class MacPreferences : public Preferences {
 public:
  explicit MacPreferences(std::string domain = "com.vordenworks.Quillmend");

  std::optional<foundation::PropertyList> value(const std::string& key) override;
  void registerDefaults(const foundation::PropertyList& dictionary) override { registered_.add(dictionary); }
  void setValue(const std::string& key, const foundation::PropertyList& value) override;
  bool synchronize() override;
  /// Core Foundation does not say why it could not. The error is what can be seen from outside: EISDIR for a
  /// folder in the file's place, EACCES where this process may not write there, else EIO.
  foundation::Result<void> storeForAnyUserOnCurrentHost(const std::string& key,
                                                        const foundation::PropertyList& value) override;

 private:
  std::string domain_;
  RegisteredDefaults registered_;
};

}  // namespace platform
