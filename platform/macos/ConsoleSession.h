#pragma once

#include <optional>
#include <string>
#include <vector>

namespace platform {

/// The command by which root starts a program in the session of the user who sits at the console, as that
/// user: `launchctl asuser` (launchctl(1)) enters the session, sudo(8) becomes the user. nullopt with nobody
/// at the console, also while a login window waits there: then nothing is to be started.
[[nodiscard]] std::optional<std::vector<std::string>> commandInConsoleSession(
    const std::vector<std::string>& command);

/// Starts a command of the desktop, which is the user's at the console and not root's: as root by
/// commandInConsoleSession, else as it is. Its streams are the null device, and nothing is waited for.
/// Answers whether it was started; why not is said on the system console.
bool startForUser(const std::vector<std::string>& command);

}  // namespace platform
