#pragma once

#include <string>
#include <string_view>

#include "platform/foundation/Text.h"

namespace platform {

/// The process's diagnostic output.
class SystemConsole {
 public:
  virtual ~SystemConsole() = default;

  /// Writes one message to standard error, as "2011-01-01 10:00:00.123 Quillmend[4711:4712] message" (local
  /// time, process name, process and thread id), in one piece, and to the system log. A closed or broken
  /// standard error is no error; nothing here stalls.
  virtual void write(const std::string& message) = 0;
};

/// Writes a formatted message to the current platform's system console.
void logToSystemConsole(const std::string& message);

}  // namespace platform

/// Formats a message and writes it to the system console.
template <typename... Arguments>
void NSLog(std::string_view format, const Arguments&... arguments) {
  platform::logToSystemConsole(foundation::stringWithFormat(format, arguments...));
}
