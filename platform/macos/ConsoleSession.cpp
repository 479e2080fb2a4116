#include "platform/macos/ConsoleSession.h"

#include "platform/Platform.h"
#include "platform/posix/Accounts.h"
#include "platform/posix/LaunchAndLeave.h"

namespace platform {
namespace {

bool start(const std::vector<std::string>& command) {
  return launchAndLeave(command.front(), {command.begin() + 1, command.end()});
}

}  // namespace

std::optional<std::vector<std::string>> commandInConsoleSession(const std::vector<std::string>& command) {
  const auto name = current().usersAndFolders.consoleUser();
  if (!name || name->empty() || *name == "loginwindow") return std::nullopt;
  const auto account = accountNamed(*name);
  if (!account) return std::nullopt;
  const std::string user = std::to_string(account->user);
  std::vector<std::string> inSession = {"/bin/launchctl", "asuser", user, "/usr/bin/sudo", "-n", "-H", "-u",
                                        "#" + user,       "--"};
  inSession.insert(inSession.end(), command.begin(), command.end());
  return inSession;
}

bool startForUser(const std::vector<std::string>& command) {
  if (current().usersAndFolders.userID() != 0) return start(command);
  const auto inSession = commandInConsoleSession(command);
  return inSession && start(*inSession);
}

}  // namespace platform
