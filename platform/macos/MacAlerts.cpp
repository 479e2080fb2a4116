#include "platform/macos/MacAlerts.h"

#include "platform/macos/AppKitPanel.h"
#include "platform/macos/CoreFoundationValues.h"

namespace platform {
namespace {

bool showSystemsPanel(const std::string& title, const std::string& message) {
  const CoreFoundationString header = coreFoundationString(title);
  const CoreFoundationString text = coreFoundationString(message);
  if (!header || !text) return false;
  CFOptionFlags response = 0;
  return CFUserNotificationDisplayAlert(0, kCFUserNotificationNoteAlertLevel, nullptr, nullptr, nullptr,
                                        header.get(), text.get(), nullptr, nullptr, nullptr, &response) == 0;
}

}  // namespace

void MacAlerts::runPanel(const std::string& title, const std::string& message) {
  if (runAppKitPanel(title, message)) return;
  if (!hasPanels() && showSystemsPanel(title, message)) return;
  PosixAlerts::runPanel(title, message);
}

}  // namespace platform
