#pragma once

#include <string>

namespace platform {

/// REQUIRES the main thread. Shows AppKit's panel (NSAlert) with its default button, in the user's language,
/// and returns when it is dismissed. Answers whether it was shown: AppKit must be running this process's
/// application, and the texts must be UTF-8.
[[nodiscard]] bool runAppKitPanel(const std::string& title, const std::string& message);

}  // namespace platform
