#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "platform/posix/UniqueDescriptor.h"

/// A program that a test starts and talks with; ended with the object.
class ChildProcess {
 public:
  /// The program is looked for in the search path. With an account (by number) it runs as that.
  explicit ChildProcess(std::vector<std::string> command, std::optional<uid_t> account = std::nullopt);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// The next line of its output, without the line break; "" when none comes in time.
  [[nodiscard]] std::string line(std::chrono::milliseconds limit = std::chrono::seconds(10));

  [[nodiscard]] pid_t process() const { return process_; }
  void signal(int number) const;
  /// Ends it at once, and waits for that.
  void kill();

 private:
  bool readMore(std::chrono::steady_clock::time_point deadline);

  pid_t process_ = -1;
  platform::UniqueDescriptor output_;
  std::string unread_;
};
