#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace workstation::session {

/// A process of the visit.
struct RunningProcess {
  pid_t process = 0;
  uid_t user = 0;
  std::string executable;              ///< empty when it cannot be told
  std::vector<std::string> arguments;  ///< without the first, which names the program
  bool resident = false;               ///< an application or daemon that is meant to go on running
};

/// All processes but process 1, those that already ended, and those given.
[[nodiscard]] std::vector<RunningProcess> runningProcesses(const std::vector<pid_t>& without);

}  // namespace workstation::session
