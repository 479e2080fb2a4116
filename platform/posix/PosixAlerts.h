#pragma once

#include "platform/Alerts.h"

namespace platform {

/// The window module's panels while the desktop application runs. Else title and message go to the system
/// console, one line each.
class PosixAlerts : public Alerts {
 public:
  void runPanel(const std::string& title, const std::string& message) override;

  /// REQUIRES the main thread. nullptr: the window module shows none.
  void setPanels(Alerts* panels) { panels_ = panels; }

 protected:
  [[nodiscard]] bool hasPanels() const { return panels_ != nullptr; }

 private:
  Alerts* panels_ = nullptr;
};

}  // namespace platform
