#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "platform/Preferences.h"
#include "platform/posix/RegisteredDefaults.h"

namespace platform {

/// The application's preferences in property-list files at the Mac's places (CFPreferences), for the domain
/// that is the application's bundle identifier:
///
///   the user's on this computer   ~/Library/Preferences/ByHost/<domain>.<computer>.plist
///   the user's                    ~/Library/Preferences/<domain>.plist
///   everybody's on this computer  /Library/Preferences/<domain>.plist
///   everybody's                   /Network/Library/Preferences/<domain>.plist
///
/// <computer> is machine-id(5) in the form of a UUID in capitals. "~" is the home of the process's own user,
/// so a repair run by root has root's preferences.
///
/// Files are read at each question and written when something is stored: keys that others have set there
/// meanwhile stay, a file stays XML or binary (a new one is binary), and each is replaced in one step. A file
/// that holds something and no dictionary is kept aside (keepUnreadableAside) and a new one begun, unless
/// somebody has just changed it (EAGAIN); one that cannot be read, or is a sound list of what cannot be told
/// here (ENOTSUP), is not touched. The user's values that could not be stored stay in memory for the next
/// try, and are lost with the process. May be called from any thread.
class LinuxPreferences : public Preferences {
 public:
  explicit LinuxPreferences(std::string domain = "com.vordenworks.Quillmend");

  std::optional<foundation::PropertyList> value(const std::string& key) override;
  void registerDefaults(const foundation::PropertyList& dictionary) override { registered_.add(dictionary); }
  void setValue(const std::string& key, const foundation::PropertyList& value) override;
  bool synchronize() override;
  foundation::Result<void> storeForAnyUserOnCurrentHost(const std::string& key,
                                                        const foundation::PropertyList& value) override;

 private:
  [[nodiscard]] std::string usersFolder() const;
  [[nodiscard]] std::string usersFile() const;
  [[nodiscard]] std::string usersFileOnThisComputer() const;
  [[nodiscard]] std::string everybodysFileOnThisComputer() const;
  [[nodiscard]] std::string everybodysFile() const;

  std::string domain_;
  std::mutex mutex_;
  RegisteredDefaults registered_;
  foundation::PropertyList usersChanges_;  ///< set and not yet stored
};

}  // namespace platform
