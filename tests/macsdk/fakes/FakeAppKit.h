#pragma once

#include <string>
#include <vector>

/// AppKit and the window server as far as the Mac's C++ asks them, for tests on other systems.
namespace fakes {

/// No application runs, and there is a session of the window server.
void resetAppKit();
void setApplicationRuns(bool runs);
void setHasSession(bool has);

/// "title: message" of each panel shown.
[[nodiscard]] std::vector<std::string> takePanels();

}  // namespace fakes
