#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

/// What the workspace (NSWorkspace) knows of applications in the session that this process runs in.
namespace platform {

struct RunningApplication {
  std::string identifier;  ///< "" for one without
  pid_t process = 0;
};

/// The path of the application with that identifier; the system does not tell capitals apart here. Any
/// thread.
[[nodiscard]] std::optional<std::string> workspacePathForIdentifier(const std::string& identifier);

/// The identifier of the bundle at a path; nullopt where there is no bundle or it has none.
[[nodiscard]] std::optional<std::string> identifierOfBundle(const std::string& path);

/// The applications that run. The list is brought up to date by the main thread's run loop alone: called
/// there it is served first, so that a program without a window gets a new list; elsewhere the window's loop
/// is relied on. An application that has ended may still be in it.
[[nodiscard]] std::vector<RunningApplication> workspaceRunningApplications();

}  // namespace platform
