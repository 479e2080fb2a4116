#pragma once

#include <string>
#include <string_view>

#include "platform/foundation/Result.h"
#include "platform/posix/UniqueDescriptor.h"

namespace platform {

/// A folder that copies grow in: hidden, mode 0700 (where the file system has modes), without access control
/// lists and this process's own, so that in a folder of somebody else's nobody can exchange what is being
/// made before it has its owner. Removed with the object, and with it what is still inside, also where it is
/// locked or in folders that may not be written.
class PrivateFolder {
 public:
  /// Makes ".copying-" and a random number in an open folder. Whatever is found under that name must be a
  /// folder of this process's, empty, and for root with mode 0700; EBUSY where it is not, because then
  /// somebody has exchanged it. `path` is for the error.
  [[nodiscard]] static foundation::Result<PrivateFolder> make(int parent, std::string_view path);
  ~PrivateFolder();
  PrivateFolder(PrivateFolder&&) = default;
  PrivateFolder& operator=(PrivateFolder&&) = delete;

  [[nodiscard]] int descriptor() const { return folder_.get(); }
  [[nodiscard]] const std::string& name() const { return name_; }

 private:
  PrivateFolder(UniqueDescriptor parent, std::string name, UniqueDescriptor folder)
      : parent_(std::move(parent)), name_(std::move(name)), folder_(std::move(folder)) {}

  UniqueDescriptor parent_;
  std::string name_;
  UniqueDescriptor folder_;
};

/// Renames an item of such a folder to where it is to be, under the same name and where nothing is. What is
/// locked, and for anybody but root a folder that its owner may not write, can leave no folder: it becomes
/// movable for that, and afterwards what it was.
[[nodiscard]] foundation::Result<void> renameOutOf(int privateFolder, const std::string& name, int toFolder,
                                                   std::string_view path);

/// Whether an open folder is one that this process has just made: its own, with that mode, and empty. EBUSY
/// where it is not. Only root insists on the mode, because some file systems have modes of their own (FAT):
/// a user who is let into an exchanged folder has nothing in it that others could not read or replace at
/// the destination as well. REQUIRES that it is open for reading.
[[nodiscard]] foundation::Result<void> requireFreshFolder(int folder, mode_t mode, std::string_view path);

}  // namespace platform
