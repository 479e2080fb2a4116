#pragma once

#include "platform/Alerts.h"

namespace platform {

/// Alerts of a run without a window: title and message go to the system console, one line each. The window
/// module brings panels of its own.
class LinuxAlerts : public Alerts {
 public:
  void runPanel(const std::string& title, const std::string& message) override;
};

}  // namespace platform
