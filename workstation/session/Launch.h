#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

#include "workstation/Accounts.h"

/// Starting programs inside a volume as one of its users.
namespace workstation::session {

struct Program {
  std::vector<std::string> command;  ///< the first is looked for in PATH unless it holds a slash
  Account account;
  std::vector<gid_t> groups;
  std::vector<std::pair<std::string, std::string>> environment;  ///< nothing else is handed on
  std::vector<int> droppedCapabilities;  ///< kernel numbers; lost for good, also by root
  bool background = false;               ///< a session of its own, input and output at /dev/null
  int keptDescriptor = -1;               ///< stays open in the program
};

/// Starts it and answers its process id, or -1. A program that cannot be run ends with the status that a
/// shell gives: 127 when there is none, 126 when it cannot be executed; both with a line on standard error.
[[nodiscard]] pid_t launch(const Program& program);

/// As above, and waits until the program writes a byte to the descriptor that readyDescriptorVariable names,
/// closes it, or 5 seconds have passed.
[[nodiscard]] pid_t launchAndWaitUntilReady(Program program);

}  // namespace workstation::session
