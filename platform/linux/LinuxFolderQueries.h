#pragma once

#include "platform/FolderQueries.h"

namespace platform {

/// Folders by getdents64(2), which tells the kinds of entries along with their names, and sizes by fstatat(2)
/// in the open folder. A folder is closed before those below it are opened, so that no depth uses descriptors
/// up; paths that are longer than the system's limit count nothing.
class LinuxFolderQueries : public FolderQueries {
 public:
  foundation::Result<FolderListing> entries(const std::string& path) override;
  std::uint64_t totalSize(const std::string& path) override;
  std::optional<ItemIdentity> identity(const std::string& path) override;
};

}  // namespace platform
