#pragma once

#include "platform/UsersAndFolders.h"

namespace platform {

/// Users from the account database, the console user from System Configuration ("loginwindow" while only the
/// login window is showing), folders from sysdir(3), whose numbers for folders and domains are this
/// interface's.
///
/// Home: root's is the account database's; anybody else's is $HOME when that is an absolute path, else the
/// account database's, else "/". No home ends with a slash. Temporary folder: the account's own (confstr(3)),
/// else
/// "/private/tmp".
class MacUsersAndFolders : public UsersAndFolders {
 public:
  uid_t userID() override;
  bool setUserID(uid_t user) override;
  std::string homeDirectory() override;
  std::string userName() override;
  std::optional<std::string> homeDirectoryForUser(const std::optional<std::string>& name) override;
  std::optional<std::string> consoleUser() override;
  std::vector<std::string> searchPaths(SearchPathDirectory directory, SearchPathDomain domain) override;
  std::string temporaryDirectory() override;
};

}  // namespace platform
