#pragma once

#include <optional>
#include <string>

namespace platform {

/// The short name of the user who is logged in at this computer's console; nothing where nobody is. While
/// only a login window is shown that is nobody; on a Mac it is "loginwindow", which no account is called.
[[nodiscard]] std::optional<std::string> consoleUser();

}  // namespace platform
