#pragma once

#include <optional>
#include <string>
#include <vector>

namespace platform {

/// The command by which root starts a program of the desktop as the user who sits at the console: the
/// backend's own asuser in front of it, from the folder that it lies in with the bundle's other tools. The
/// program's path must be absolute, and so must every path among its arguments: it starts in the user's home.
/// nullopt with nobody at the console, also while a login window waits there: then nothing is to be started.
[[nodiscard]] std::optional<std::vector<std::string>> commandForConsoleUser(
    const std::string& toolFolder, const std::optional<std::string>& user,
    const std::vector<std::string>& command);

}  // namespace platform
