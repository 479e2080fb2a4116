#pragma once

#include "platform/Workspace.h"

namespace platform {

/// The workspace (NSWorkspace) of the session that this process runs in. Methods that may be gone are asked
/// for first; README.md says what stands in for each. Recycling is the system's own: it names what clashes,
/// and takes the trash of the volume and of the process's user, whatever folder is given. EIO where it fails.
class AppKitWorkspace : public Workspace {
 public:
  bool openFile(const std::string& path) override;
  bool openFile(const std::string& path, const std::string& application) override;
  bool openURL(const std::string& address) override;
  foundation::Result<void> recycle(const std::string& sourceFolder, const std::string& trashFolder,
                                   const std::vector<std::string>& names) override;
  bool isFilePackage(const std::string& path) override;
};

}  // namespace platform
