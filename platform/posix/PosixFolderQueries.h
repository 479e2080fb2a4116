#pragma once

#include "platform/FolderQueries.h"
#include "platform/posix/FolderReading.h"

namespace platform {

/// Folders by a reader that tells the kinds of entries along with their names (FolderReading.h), and sizes by
/// fstatat(2) in the open folder. A folder is closed before those below it are opened, so that no depth uses
/// descriptors up; paths that are longer than the system's limit count nothing.
class PosixFolderQueries : public FolderQueries {
 public:
  explicit PosixFolderQueries(ReadFolder* read = readFolder) : read_(read) {}

  foundation::Result<FolderListing> entries(const std::string& path) override;
  std::uint64_t totalSize(const std::string& path) override;
  std::optional<ItemIdentity> identity(const std::string& path) override;

 private:
  ReadFolder* read_;
};

}  // namespace platform
