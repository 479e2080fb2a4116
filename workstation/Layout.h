#pragma once

#include <string_view>

/// Where a workstation's volume keeps what the stand-ins know and what they saw. All paths are those inside;
/// Volume::host gives the place of one in the caller's file system.
namespace workstation {

/// Everything of the workstation's own lies here and nowhere else in the volume; snapshots leave it out.
inline constexpr std::string_view stateFolder = "/private/var/db/workstation";

/// A record line (RecordLine.h) for each call of a stand-in tool, and each start and end of a stand-in
/// application or daemon.
inline constexpr std::string_view callsFile = "/private/var/db/workstation/calls";

/// A record line for each signal on the buses and each desktop notification.
inline constexpr std::string_view busFile = "/private/var/db/workstation/bus";

/// A record line for each stage of each visit: begin, exit, remaining (one a process), waited, end.
inline constexpr std::string_view visitsFile = "/private/var/db/workstation/visits";

/// What runs when a visit begins, one a line: user, tab, executable, further tabs and arguments. A visit
/// leaves in it what runs at its end.
inline constexpr std::string_view processesFile = "/private/var/db/workstation/processes";

/// How applications take a request to quit, one a line: executable, tab, "ignores" or a delay in
/// milliseconds. Those not named quit at once.
inline constexpr std::string_view mannersFile = "/private/var/db/workstation/manners";

/// One file a value: "qmaster.sharing" (on, off), "qmaster.jobs" (a number, or "cancelled"),
/// "qmaster.resets" (a number), the same three under "qmaster4.", "launchd.<label>" (the loaded job's file),
/// "ComputerName", "LocalHostName" and "HostName".
inline constexpr std::string_view valuesFolder = "/private/var/db/workstation/values";

/// Present during a visit only: a file named for its process id for each application and daemon that is
/// meant to go on running, so that a visit's end waits for tools and not for these.
inline constexpr std::string_view residentsFolder = "/run/workstation/residents";

/// Present during a visit only: the host's own tools, and the workstation's programs.
inline constexpr std::string_view hostToolsFolder = "/run/host/usr/bin";
inline constexpr std::string_view programsMount = "/run/workstation/programs";

/// Where a visit mounts the bundle that it is given.
inline constexpr std::string_view bundleMount = "/Applications/Quillmend.app";

/// Names a descriptor that a started program closes, or writes a byte to, once it is ready.
inline constexpr const char* readyDescriptorVariable = "WORKSTATION_READY_FD";

}  // namespace workstation
