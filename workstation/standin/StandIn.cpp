/// The one program behind every stand-in: what it does is decided by the place that it is installed at.

#include <sys/stat.h>

#include <array>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>

#include "workstation/standin/Knowledge.h"
#include "workstation/standin/Residents.h"
#include "workstation/standin/Tools.h"

namespace workstation::standin {
namespace {

using Tool = int (*)(const Arguments&);

constexpr std::array<std::pair<std::string_view, Tool>, 6> tools{{
    {"/qmasterprefs", qmasterPreferences},
    {"/StartupItems/Qmaster/Qmaster", startupItem},
    {"/launchctl", launchControl},
    {"/scutil", systemConfiguration},
    {"/usr/bin/open", openItem},
    {"/TGShortcutKeyManager", setUpShortcutKeys},
}};

int runTool(Tool tool, const Arguments& arguments) {
  ::umask(0);  // the state is everybody's: tools run as root at one time and as a user at another
  record("call", arguments);
  const int status = tool(arguments);
  std::fflush(stdout);
  record("done", {std::to_string(status)});
  return status;
}

int run(const Arguments& arguments) {
  for (const auto& [ending, tool] : tools) {
    if (executablePath().ends_with(ending)) return runTool(tool, arguments);
  }
  return liveAsResident(arguments);
}

}  // namespace
}  // namespace workstation::standin

int main(int argc, char** argv) {
  return workstation::standin::run(workstation::standin::Arguments(argv + (argc > 0 ? 1 : 0), argv + argc));
}
