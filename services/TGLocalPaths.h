#pragma once

#include <optional>
#include <string>

#include "platform/UsersAndFolders.h"

/// Whose folder is meant: the user's own (~/Library) or the machine-wide one (/Library). When the process
/// runs as root, "the user" is the one at the console.
enum class Domain { local, user };

enum class ExactMatch { no, yes };

/// Where well-known folders lie. Paths are POSIX paths without a trailing slash; nullopt where the system has
/// no such folder. Nothing is stored: every answer is computed on each call, so a change of console user is
/// seen. Never throws, never logs, may be called from any thread.
class TGLocalPaths {
 public:
  TGLocalPaths() = delete;

  /// The first folder of that kind in that domain. As root, a user folder is re-rooted from root's home into
  /// userDirectory().
  [[nodiscard]] static std::optional<std::string> pathForDirectory(platform::SearchPathDirectory directory,
                                                                   platform::SearchPathDomain domain);

  [[nodiscard]] static std::optional<std::string> applicationDirectory(Domain domain);
  [[nodiscard]] static std::optional<std::string> adminApplicationDirectory(Domain domain);
  [[nodiscard]] static std::optional<std::string> documentDirectory(Domain domain);
  [[nodiscard]] static std::optional<std::string> libraryDirectory(Domain domain);
  [[nodiscard]] static std::optional<std::string> prefsDirectory(Domain domain);
  [[nodiscard]] static std::optional<std::string> cacheDirectory(Domain domain);
  [[nodiscard]] static std::optional<std::string> appSupportDirectory(Domain domain);
  [[nodiscard]] static std::optional<std::string> logDirectory(Domain domain);
  [[nodiscard]] static std::optional<std::string> desktopDirectory();
  [[nodiscard]] static std::optional<std::string> systemLibraryDirectory();
  [[nodiscard]] static std::optional<std::string> localDocumentationDirectory();

  /// The process's home; as root, the home of the user at the console.
  [[nodiscard]] static std::optional<std::string> userDirectory();
  [[nodiscard]] static std::optional<std::string> movieDirectory();
  [[nodiscard]] static std::optional<std::string> trashDirectory();

  /// The process's account; as root, the account at the console, if any.
  [[nodiscard]] static std::optional<std::string> username();

  /// The account logged in at the console; nullopt for nobody and for the login window.
  [[nodiscard]] static std::optional<std::string> currentConsoleUser();

  [[nodiscard]] static std::string tempDirectory();
  [[nodiscard]] static std::string uuid();

  /// A path in the temporary folder where nothing is yet; nothing is created.
  [[nodiscard]] static std::string tempFile();

  /// Whether a folder is protected against trashing, moving and removing. Plain string comparisons: no link
  /// is resolved, no case folded. Without ExactMatch::yes everything that begins with "/usr", "/var",
  /// "/private/var" or "/System" is protected too.
  [[nodiscard]] static bool isPathSystemDirectory(const std::optional<std::string>& path,
                                                  ExactMatch exactMatch = ExactMatch::no);

  /// The path lies in a "Backups.backupdb" folder below "/Volumes/".
  [[nodiscard]] static bool isPathOnTimeMachineVolume(const std::optional<std::string>& path);
};
