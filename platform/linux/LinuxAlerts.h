#pragma once

#include "platform/Alerts.h"

namespace platform {

/// The window module's panels while the desktop application runs. Else title and message go to the system
/// console, one line each.
class LinuxAlerts : public Alerts {
 public:
  void runPanel(const std::string& title, const std::string& message) override;

  /// REQUIRES the main thread. nullptr: nobody shows panels.
  void setPanels(Alerts* panels) { panels_ = panels; }

 private:
  Alerts* panels_ = nullptr;
};

}  // namespace platform
