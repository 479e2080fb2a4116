#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/Workspace.h"

namespace platform {

/// The desktop's services by its own tools. An application bundle is started by its executable; every other
/// file and every address is handed to xdg-open(1), where there is one. What is started has the null device
/// for its three streams and outlives the program.
///
/// As root everything is started as the user at the console, through the bundle's
/// Contents/SharedSupport/asuser; with nobody at the console nothing is opened.
///
/// Recycling is documented in Recycling.h. A file package is a folder with one of the known extensions
/// (".app",
/// ".bundle", ".plugin", ".rtfd", ...; not ".framework") or one whose Contents/Info.plist has a
/// CFBundlePackageType other than "FMWK".
class LinuxWorkspace : public Workspace {
 public:
  /// `root` is the folder below which applications are looked for by name; "" is the system's.
  explicit LinuxWorkspace(std::string root = "") : root_(std::move(root)) {}

  bool openFile(const std::string& path) override;
  bool openFile(const std::string& path, const std::string& application) override;
  bool openURL(const std::string& address) override;
  foundation::Result<void> recycle(const std::string& sourceFolder, const std::string& trashFolder,
                                   const std::vector<std::string>& names) override;
  bool isFilePackage(const std::string& path) override;

 private:
  std::string root_;
};

}  // namespace platform
