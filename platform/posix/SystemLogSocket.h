#pragma once

namespace platform {

/// Where the system log listens for what syslog(3) sends.
extern const char* const kSystemLogSocket;

}  // namespace platform
