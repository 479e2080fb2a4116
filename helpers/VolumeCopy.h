#pragma once

#include <map>
#include <string>

#include "helpers/PathEntry.h"
#include "helpers/Report.h"

namespace helpers {

/// Moves an entry with all that is below it to another volume: copies, syncs, compares, gives the copy its
/// name, and only then removes the originals, each only if it has not changed since it was compared.
///
/// The copy has the contents, kinds, owners, modes, extended attributes and modification times of the
/// originals; holes stay holes; hard links become files of their own. It grows under a hidden name, so that
/// an interrupted run leaves either a hidden part of a copy and all originals, or a whole copy and the
/// originals that are not yet removed. A tree in which something is mounted, or that is deeper than 200
/// folders, is not moved.
class VolumeCopy {
 public:
  explicit VolumeCopy(Report& report) : report_(report) {}

  /// Makes the copy `toName`, whole and compared, or nothing. `toName` must not exist.
  [[nodiscard]] foundation::Result<void> copy(int fromFolder, const std::string& fromName, int toFolder,
                                              const std::string& toName, const std::string& path);

  /// Removes what was copied; what has changed since, or come later, stays and is reported.
  void removeOriginals(int fromFolder, const std::string& fromName, const std::string& path);

 private:
  struct Place {
    int folder;
    std::string name;
  };
  using FileKey = std::pair<std::uint64_t, std::uint64_t>;

  foundation::Result<void> copyEntry(const Place& from, const Place& to, const std::string& path, int depth);
  foundation::Result<void> copyFolder(int from, const FileStatus& status, const Place& to,
                                      const std::string& path, int depth);
  foundation::Result<void> compareEntry(const Place& from, const Place& to, const std::string& path);
  foundation::Result<void> compareFolder(int from, int to, const std::string& path);
  [[nodiscard]] bool isUnchanged(const FileStatus& status) const;

  Report& report_;
  FileStatus top_;
  std::map<FileKey, FileStatus> copied_;
};

/// Removes a tree that this process made: never follows a link, passes over what it cannot remove.
void removeTree(int folder, const std::string& name);

}  // namespace helpers
