#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/UsersAndFolders.h"

namespace platform {

/// Users from the account database, the console user from the login manager, and the Mac's folder layout.
///
/// Home: root's is the account database's; anybody else's is $HOME when that is an absolute path, else the
/// account database's, else "/". The folder lookup presents root's own home as "/var/root", as on a Mac,
/// because the callers that re-root user folders look for that prefix.
/// No home ends with a slash, however it is written where it comes from.
///
/// The desktop of anybody but root is the one that the desktop shows: XDG_DESKTOP_DIR of
/// $XDG_CONFIG_HOME/user-dirs.dirs (or ~/.config; user-dirs.dirs(5)), whose name is in the user's language,
/// else "~/Desktop". Root goes by no user's file, which could lead it anywhere.
///
/// Temporary folder: $TMPDIR when it is an absolute path of a folder, else "/tmp". Root does not trust
/// $TMPDIR: it takes "/private/tmp" when that is a folder of root's own in which users cannot touch each
/// other's files, else "/tmp".
class LinuxUsersAndFolders : public UsersAndFolders {
 public:
  /// `root` is the folder below which the temporary folders of root are looked for; "" is the system's.
  explicit LinuxUsersAndFolders(std::string root = "") : root_(std::move(root)) {}

  uid_t userID() override;
  bool setUserID(uid_t user) override;
  std::string homeDirectory() override;
  std::string userName() override;
  std::optional<std::string> homeDirectoryForUser(const std::optional<std::string>& name) override;
  std::optional<std::string> consoleUser() override;
  std::vector<std::string> searchPaths(SearchPathDirectory directory, SearchPathDomain domain) override;
  std::string temporaryDirectory() override;

 private:
  std::string root_;
};

}  // namespace platform
