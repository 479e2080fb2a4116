#include "platform/macos/ConsoleSession.h"

#include "platform/Platform.h"
#include "platform/foundation/Exception.h"
#include "platform/posix/Accounts.h"

namespace platform {
namespace {

bool start(std::vector<std::string> command) {
  const std::string program = command.front();
  command.erase(command.begin());
  try {
    current()
        .subprocesses
        .create({.launchPath = program,
                 .arguments = command,
                 .standardInput = Stream::nullDevice,
                 .standardOutput = Stream::nullDevice,
                 .standardError = Stream::nullDevice})
        ->launch();
    return true;
  } catch (const foundation::Exception& exception) {
    NSLog("%@", exception.reason());
    return false;
  }
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
  auto inSession = commandInConsoleSession(command);
  return inSession && start(std::move(*inSession));
}

}  // namespace platform
