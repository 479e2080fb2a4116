#pragma once

#include "platform/Files.h"
#include "platform/Gathering.h"

namespace platform {

/// Gathering with the reader's rights (FileRights.h): items are held (HeldEntries.h) and then opened for
/// reading. A folder is in use while it is locked (flock(2)); on a file system without locks nobody is kept
/// out.
class GuardedGathering : public Gathering {
 public:
  explicit GuardedGathering(FileQueries& queries) : queries_(queries) {}

  foundation::Result<std::unique_ptr<FolderInUse>> createPrivateFolder(const std::string& path) override;
  foundation::Result<std::unique_ptr<FolderInUse>> useLeftFolder(const std::string& path) override;
  foundation::Result<std::vector<std::string>> contentsOfDirectory(const Reader& reader,
                                                                   const std::string& path) override;
  bool exists(const Reader& reader, const std::string& path) override;
  foundation::Result<void> copy(const Reader& reader, const std::string& from, const std::string& to,
                                AtLink atLink) override;

 private:
  FileQueries& queries_;
};

}  // namespace platform
