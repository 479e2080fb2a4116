#pragma once

#include <optional>
#include <string>
#include <vector>

#include "helpers/Surroundings.h"

namespace helpers {

/// The folders that no tool touches as a whole, whoever asks: the tools run as root, so that one wrong path
/// would cost a whole account or the system. What lies inside these folders is not protected by this.
///
/// - The system's own top-level folders, and those of its folders that many programs share (the list is
///   `kSystemFolders` in the source), for example "/Library", "/Library/Preferences", "/usr/sbin",
///   "/private/var/spool", "/Users/Shared".
/// - Every account's home, and in it Library (with Preferences, Caches, Application Support, Logs, Keychains,
///   LaunchAgents), Documents, Desktop, Downloads, Movies, Music, Pictures, Public, Sites, Applications and
///   .Trash. Homes are those of the accounts, and every folder right below "/Users" and "/home".
/// - Every folder right below "/Volumes": a whole disk.
/// - Everything in "/dev", "/proc" and "/sys".
/// - Every folder that holds one of these.
/// An entry is compared by its real path, and by device and inode: another spelling, a link or a bind mount
/// does not get around it.
class ProtectedFolders {
 public:
  explicit ProtectedFolders(const Surroundings& surroundings);

  [[nodiscard]] bool contains(const PathEntry& entry) const;

 private:
  [[nodiscard]] bool containsPath(const std::string& path) const;
  [[nodiscard]] bool containsFile(const FileStatus& status) const;
  void addHome(const std::string& home);

  int root_;
  std::vector<std::string> paths_;  ///< mostly a folder before what is in it: then less is looked for
};

/// locate() for a path that a tool is about to change: a protected folder gives EPERM.
[[nodiscard]] foundation::Result<PathEntry> locateUnprotected(const Surroundings& surroundings,
                                                              const std::string& path,
                                                              LastLink lastLink = LastLink::keep);

}  // namespace helpers
