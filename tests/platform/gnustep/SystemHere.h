#pragma once

#include <string>
#include <vector>

/// What the backend asks of a Mac's system beside Objective-C, on this system: processes are this system's
/// own, and what is registered with Launch Services is written down.
namespace gnustep {

/// The paths registered since the last call.
[[nodiscard]] std::vector<std::string> takeRegisteredPaths();

}  // namespace gnustep
