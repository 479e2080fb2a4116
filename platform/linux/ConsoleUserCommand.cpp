#include "platform/linux/ConsoleUserCommand.h"

#include "platform/foundation/Paths.h"

namespace platform {

std::optional<std::vector<std::string>> commandForConsoleUser(const std::string& toolFolder,
                                                              const std::optional<std::string>& user,
                                                              const std::vector<std::string>& command) {
  if (!user || user->empty() || *user == "loginwindow") return std::nullopt;
  std::vector<std::string> asUser = {foundation::appendingPathComponent(toolFolder, "asuser"), *user, "--"};
  asUser.insert(asUser.end(), command.begin(), command.end());
  return asUser;
}

}  // namespace platform
