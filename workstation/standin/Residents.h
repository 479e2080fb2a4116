#pragma once

#include <string>
#include <vector>

/// Applications and daemons: stand-ins that go on running.
namespace workstation::standin {

/// Starts an executable that goes on running, in a session of its own, as a child of nobody's, with its
/// standard streams at /dev/null, and waits (at most 5 seconds) until it says that it is ready. Answers
/// whether it was started.
bool startResident(const std::string& executable, const std::vector<std::string>& arguments = {});

/// Asks the running processes of an executable to end, waits for that at most 2 seconds, then kills them.
/// Answers whether none is left.
bool endResidents(const std::string& executable);

/// Whether a process of that executable runs. A process of another user's is seen by root only.
[[nodiscard]] bool isRunning(const std::string& executable);

/// The life of an application or daemon: writes "start", registers, then waits for a request to quit
/// (SIGTERM, SIGINT, SIGHUP) and takes it as its manners are, writing "quit" or "ignored" with the signal's
/// name and the user id of who sent it. Answers the exit status.
int liveAsResident(const std::vector<std::string>& arguments);

}  // namespace workstation::standin
