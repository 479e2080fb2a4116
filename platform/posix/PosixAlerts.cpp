#include "platform/posix/PosixAlerts.h"

#include "platform/SystemConsole.h"

namespace platform {

void PosixAlerts::runPanel(const std::string& title, const std::string& message) {
  if (panels_ != nullptr) return panels_->runPanel(title, message);
  NSLog("%@", title);
  if (!message.empty()) NSLog("%@", message);
}

}  // namespace platform
