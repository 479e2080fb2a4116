#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace platform {

/// Folder kinds, with the numbers of the Mac's NSSearchPathDirectory.
enum class SearchPathDirectory {
  application = 1,
  adminApplication = 4,
  library = 5,
  documentation = 8,
  document = 9,
  desktop = 12,
  caches = 13,
  applicationSupport = 14,
};

/// Domains, with the numbers of the Mac's NSSearchPathDomainMask.
enum class SearchPathDomain { user = 1, local = 2, system = 8 };

/// Who runs the program, who sits at the computer, and where their folders lie.
class UsersAndFolders {
 public:
  virtual ~UsersAndFolders() = default;

  /// The process's real user id; getuid(2).
  [[nodiscard]] virtual uid_t userID() = 0;

  /// Asks for that user id, setuid(2). Answers whether it was granted.
  virtual bool setUserID(uid_t user) = 0;

  /// The process's own home folder and account name (NSHomeDirectory, NSUserName).
  [[nodiscard]] virtual std::string homeDirectory() = 0;
  [[nodiscard]] virtual std::string userName() = 0;

  /// The home folder of an account. An absent name stands for the process's own account; an unknown name has
  /// no home (nullopt).
  [[nodiscard]] virtual std::optional<std::string> homeDirectoryForUser(
      const std::optional<std::string>& name) = 0;

  /// The account at the console, looked up afresh. nullopt when nobody is logged in there; a backend may
  /// answer "loginwindow" while only the login window is showing.
  [[nodiscard]] virtual std::optional<std::string> consoleUser() = 0;

  /// Where folders of that kind lie in that domain, best first, with "~" expanded; empty where the system has
  /// none. Nothing is created. Root's own home is presented as "/var/root".
  [[nodiscard]] virtual std::vector<std::string> searchPaths(SearchPathDirectory directory,
                                                             SearchPathDomain domain) = 0;

  /// The folder for this process's temporary files.
  [[nodiscard]] virtual std::string temporaryDirectory() = 0;
};

/// A path with a leading "~" (this process's own home folder) or "~name" (that account's) replaced. Every
/// other path, and one of an account that is not known, is answered as it is.
[[nodiscard]] std::string expandingTildeInPath(const std::string& path);

}  // namespace platform
