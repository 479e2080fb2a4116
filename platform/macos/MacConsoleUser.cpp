#include <SystemConfiguration/SystemConfiguration.h>

#include "platform/macos/CoreFoundationValues.h"
#include "platform/posix/ConsoleUserName.h"

namespace platform {

std::optional<std::string> consoleUser() {
  const CoreFoundationString user(SCDynamicStoreCopyConsoleUser(nullptr, nullptr, nullptr));
  std::string name = textOf(user.get());
  return name.empty() ? std::nullopt : std::optional(std::move(name));
}

}  // namespace platform
