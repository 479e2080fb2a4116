#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/Applications.h"
#include "platform/posix/ProcessTable.h"

namespace platform {

/// Applications found by the Info.plist of their bundles, running ones by the programs of processes.
///
/// An application is running while a process runs whose program lies in the Contents/MacOS of its bundle and
/// is the very file that lies there (a program of the same path in another container is not), or lay there
/// and has since been removed. A name alone counts for nothing. Processes that this one has no right to look
/// at, those of other users for all but root, are not seen.
///
/// Asking to quit is SIGTERM to every such process, through a descriptor that stands for that process alone,
/// after its program has been looked at again. As root the applications of all users are asked. The error
/// dictionary has the keys and numbers of AppleScript's: -600 where no such application runs, -10004 where
/// none that runs may be asked.
class LinuxApplications : public Applications {
 public:
  /// `root` is the folder below which the Applications folders lie, "" the system's; the paths answered are
  /// real ones, below it.
  explicit LinuxApplications(std::string root = "", ProcessTable processes = ProcessTable())
      : root_(std::move(root)), processes_(std::move(processes)) {}

  std::optional<std::string> pathForIdentifier(const std::string& identifier) override;
  OSStatus registerApplication(const std::string& path) override;
  std::vector<std::string> launchedIdentifiers() override;
  std::optional<foundation::PropertyList> askToQuit(const std::string& applicationName) override;

 private:
  std::string root_;
  ProcessTable processes_;
};

inline constexpr int kProcessNotFoundError = -600;  ///< procNotFound
inline constexpr int kPrivilegeViolation = -10004;  ///< errAEPrivilegeError

}  // namespace platform
