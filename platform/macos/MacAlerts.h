#pragma once

#include "platform/posix/PosixAlerts.h"

namespace platform {

/// AppKit's panel while it runs the desktop application; else the window module's, whose toolkit then stands
/// on something else; else, without an application, the system's own panel with its default button
/// (CFUserNotification), which needs neither an application nor a window. Where the system
/// shows none, as in a run without a session, title and message go to the system console, one line each.
class MacAlerts : public PosixAlerts {
 public:
  void runPanel(const std::string& title, const std::string& message) override;
};

}  // namespace platform
