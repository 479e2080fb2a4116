#pragma once

#include "platform/Applications.h"

namespace platform {

/// Applications by Launch Services and the workspace, asked to quit by AppleScript.
///
/// An identifier is compared with the bundle's own, because Launch Services do not tell capitals apart. Root
/// runs tools that lie inside of applications: as root only what lies below /Applications, /Library or
/// /System is found.
///
/// The workspace knows the applications of this process's session. Root, which may have none, is told those
/// of all users besides: the bundles whose Contents/MacOS holds the program of a running process
/// (proc_pidpath of libproc).
///
/// Asking is done on the main thread, and waited for. As root osascript(1) asks in the console user's session
/// (ConsoleSession.h); what becomes of that is not known, and only nobody at the console is an error.
class MacApplications : public Applications {
 public:
  std::optional<std::string> pathForIdentifier(const std::string& identifier) override;
  OSStatus registerApplication(const std::string& path) override;
  std::vector<std::string> launchedIdentifiers() override;
  std::optional<foundation::PropertyList> askToQuit(const std::string& applicationName) override;
};

}  // namespace platform
