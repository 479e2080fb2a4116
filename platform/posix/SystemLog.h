#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace platform {

/// The most bytes of one line in the system log; what is longer is cut.
inline constexpr std::size_t kLongestLogLine = 8192;

/// syslog(3)'s numbers.
enum class LogLevel { warning = 4, info = 6 };

/// Hands a line to the system log that listens at a socket, /dev/log as a rule: one datagram as syslog(3)
/// writes it, facility user, "tool[process id]: line". Never waits: where nobody listens or
/// the log's queue is full the line is dropped. The line must have been made harmless (escaped, Report.h).
void writeToSystemLog(const std::string& socket, LogLevel level, std::string_view tool,
                      std::string_view line);

}  // namespace platform
