#pragma once

#include <chrono>
#include <mutex>

#include "platform/Clock.h"
#include "platform/ProcessInformation.h"
#include "platform/SystemConsole.h"
#include "platform/posix/SystemLogSocket.h"

namespace platform {

/// Standard error and the system log's socket.
///
/// A message is written to standard error as it is, line breaks included. Where the reader of a pipe, socket
/// or terminal is stuck, writing gives up after kPatience and drops the rest of the message; from then on no
/// message waits, until one gets through.
///
/// To the system log it goes as syslog(3) writes it, facility user, level notice: one datagram, cut to
/// kLongestLogLine bytes, each control character as "#012" (its number in octal), so that no message can look
/// like two. It is dropped when nobody listens or the log's queue is full.
///
/// REQUIRES that SIGPIPE is ignored.
class PosixSystemConsole : public SystemConsole {
 public:
  static constexpr std::chrono::milliseconds kPatience{1000};
  static constexpr std::size_t kLongestLogLine = 8192;

  PosixSystemConsole(Clock& clock, ProcessInformation& process, std::string systemLog = kSystemLogSocket)
      : clock_(clock), process_(process), systemLog_(std::move(systemLog)) {}

  void write(const std::string& message) override;

 private:
  void writeToStandardError(const std::string& line);
  void sendToSystemLog(const std::string& message, const foundation::Date& now);

  Clock& clock_;
  ProcessInformation& process_;
  const std::string systemLog_;
  std::mutex mutex_;      ///< one message after the other
  bool isStuck_ = false;  ///< the last message did not get through
};

}  // namespace platform
