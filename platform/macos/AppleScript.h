#pragma once

#include <optional>
#include <string>

#include "platform/foundation/PropertyList.h"

namespace platform {

/// REQUIRES the main thread. Runs a script (NSAppleScript). On failure the error dictionary that describes
/// it, without the entries that no property list can hold, such as the range of the text that is wrong.
[[nodiscard]] std::optional<foundation::PropertyList> runAppleScript(const std::string& source);

/// An error dictionary as AppleScript has them, with its number and its text.
[[nodiscard]] foundation::PropertyList appleScriptError(int number, const std::string& message);

}  // namespace platform
