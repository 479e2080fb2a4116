#pragma once

#include "platform/macos/AppKitWorkspace.h"

namespace platform {

/// The workspace of the user at the console. A process that is not root's asks AppKit's; root, which has none
/// in a session of its own, starts open(1) in the console user's session (ConsoleSession.h), with nobody
/// there nothing. What is opened by its path must exist and its path be absolute.
///
/// Root recycles by its own move into the trash folder that is given (Recycling.h): the system would take a
/// trash of its own choice, and follow links in folders of others.
class MacWorkspace : public AppKitWorkspace {
 public:
  bool openFile(const std::string& path) override;
  bool openFile(const std::string& path, const std::string& application) override;
  bool openURL(const std::string& address) override;
  foundation::Result<void> recycle(const std::string& sourceFolder, const std::string& trashFolder,
                                   const std::vector<std::string>& names) override;
};

}  // namespace platform
