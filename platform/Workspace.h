#pragma once

#include <string>
#include <vector>

#include "platform/foundation/Result.h"

namespace platform {

/// What the desktop does for a program: opening things and recycling them.
class Workspace {
 public:
  virtual ~Workspace() = default;

  /// Opens a file in the user's viewer for it, or starts an application bundle. Nothing is waited for;
  /// answers whether the opening began. As root it opens as the user at the console.
  virtual bool openFile(const std::string& path) = 0;

  /// Opens a file with an application, given by its bundle's path or by its name.
  virtual bool openFile(const std::string& path, const std::string& application) = 0;

  /// Opens an address in the user's browser.
  virtual bool openURL(const std::string& address) = 0;

  /// Moves the named items of a folder into a trash folder, giving names that clash the platform's own form
  /// ("name 2.ext"). Owner, mode and times stay. The first failure ends it; items already moved stay moved.
  virtual foundation::Result<void> recycle(const std::string& sourceFolder, const std::string& trashFolder,
                                           const std::vector<std::string>& names) = 0;

  /// The path is a directory that the desktop presents as one file: an application or another bundle.
  [[nodiscard]] virtual bool isFilePackage(const std::string& path) = 0;
};

}  // namespace platform
