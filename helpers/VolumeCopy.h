#pragma once

#include <functional>
#include <map>
#include <string>

#include "helpers/Report.h"
#include "helpers/Surroundings.h"
#include "platform/posix/UniqueDescriptor.h"

namespace helpers {

/// A folder that copies grow in: mode 0700 and this process's own, so that in a folder of somebody else's
/// nobody can exchange what is being made before it has its owner. Removed with the object if it is empty
/// then.
class StagingFolder {
 public:
  [[nodiscard]] static foundation::Result<StagingFolder> make(int parent, const std::string& name,
                                                              const std::string& path);
  ~StagingFolder();
  StagingFolder(StagingFolder&&) = default;
  StagingFolder& operator=(StagingFolder&&) = delete;
  StagingFolder(const StagingFolder&) = delete;
  StagingFolder& operator=(const StagingFolder&) = delete;

  [[nodiscard]] int descriptor() const { return descriptor_.get(); }

 private:
  StagingFolder(int parent, std::string name, platform::UniqueDescriptor descriptor)
      : parent_(parent), name_(std::move(name)), descriptor_(std::move(descriptor)) {}

  int parent_;
  std::string name_;
  platform::UniqueDescriptor descriptor_;
};

/// Moves an entry with all that is below it to another volume: copies, syncs, compares, gives the copy its
/// name, and only then removes the originals, each only if it has not changed since it was compared.
///
/// The copy has the contents, kinds, owners, modes, extended attributes and modification times of the
/// originals, but no privileges: set-ID bits and attributes of security.* (file capabilities among them) stay
/// behind, and a device, or a tree that holds one, is not moved; holes stay holes; hard links become files of
/// their own. It grows under a hidden name, so that an interrupted run leaves either a hidden part of a copy
/// and all originals, or a whole copy and the originals that are not yet removed. A tree in which something
/// is mounted, or that is deeper than 200 folders, is not moved.
class VolumeCopy {
 public:
  explicit VolumeCopy(Report& report) : report_(report) {}

  /// Makes the copy `toName`, whole and compared, or nothing. `toName` must not exist. `toFolder`
  /// should be a StagingFolder.
  [[nodiscard]] foundation::Result<void> copy(int fromFolder, const std::string& fromName, int toFolder,
                                              const std::string& toName, const std::string& path);

  /// Called when a link, FIFO or socket has been made and is not yet its owner's.
  using OnMade = std::function<void()>;
  void onMade(OnMade onMade) { onMade_ = std::move(onMade); }

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
  OnMade onMade_;
  FileStatus top_;
  std::map<FileKey, FileStatus> copied_;
};

/// Removes a tree that this process made: never follows a link, passes over what it cannot remove.
void removeTree(int folder, const std::string& name);

}  // namespace helpers
