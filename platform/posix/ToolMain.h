#pragma once

#include <unistd.h>

#include <string>
#include <vector>

#include "platform/posix/IndependentProcess.h"
#include "platform/posix/InheritedState.h"
#include "platform/posix/Report.h"
#include "platform/posix/SystemLogSocket.h"

namespace platform {

/// The main function of a tool: prepares the process, then runs the tool's object on its arguments, which
/// come without the program's name (there may not even be one). `name` is in what it reports, and on Linux is
/// what the process is called. Nothing is thrown out of it.
template <typename Run>
int toolMain(int count, char** values, const char* name, const Run& run,
             WorkingFolder folder = WorkingFolder::leave) {
  forgetPlacesOfLibraries(values, name);
  becomeIndependent(folder);
  Report report(name, STDERR_FILENO, Report::kPatience, kSystemLogSocket);
  try {
    const std::vector<std::string> arguments(values + (count > 0 ? 1 : 0), values + count);
    return static_cast<int>(run(arguments, report));
  } catch (const std::exception& exception) {
    return static_cast<int>(report.stop(ExitStatus::failed, exception.what()));
  }
}

}  // namespace platform
